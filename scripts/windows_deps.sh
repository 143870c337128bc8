#!/usr/bin/env bash
# Builds the libraries that the Windows build needs from Debian's source packages, once: a second run does nothing.
#
#   scripts/windows_deps.sh             into $SCANSTEPS_WINDOWS_DEPS or ~/.cache/scansteps/windows-deps
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
root=$PWD
prefix=${SCANSTEPS_WINDOWS_DEPS:-$HOME/.cache/scansteps/windows-deps}
stamp=$prefix/built-by
recipe=$(cat scripts/windows_deps.sh cmake/toolchain-mingw.cmake | sha256sum)
[ "$(cat "$stamp" 2>/dev/null)" != "$recipe" ] || exit 0

scripts/bootstrap.sh windows
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
rm -rf "$prefix"
mkdir -p "$prefix" "$work"/{lists/partial,sources.d}

# The machine's own package sources, asked for source packages; its configuration stays as it is.
for list in /etc/apt/sources.list /etc/apt/sources.list.d/debian.sources; do
    [ ! -f "$list" ] || sed -E 's/^deb /deb-src /; s/^Types:.*/Types: deb-src/' "$list" >"$work/sources.d/$(basename "$list")"
done
[ ! -f "$work/sources.d/sources.list" ] || mv "$work/sources.d/sources.list" "$work/sources.d/main.list"
apt=(-q -o "Dir::Etc::SourceList=/dev/null" -o "Dir::Etc::SourceParts=$work/sources.d" -o "Dir::State::Lists=$work/lists"
    -o "APT::Sandbox::User=root" -o "Dir::Cache::pkgcache=" -o "Dir::Cache::srcpkgcache=")
apt-get "${apt[@]}" update >/dev/null
fetch() { (cd "$work" && apt-get "${apt[@]}" source --download-only "$@" >/dev/null); }
for name in libjpeg-turbo libpng1.6 tiff libwebp imath highway googletest fmtlib nlohmann-json3 cli11 eigen3; do
    # Mirrors may lack the newest security update: then the version of the release.
    fetch "$name" || fetch --target-release "$(. /etc/os-release && echo "$VERSION_CODENAME")" "$name"
done

# build SOURCE-PACKAGE [CMAKE-OPTION...]
build() {
    local name=$1 dsc
    shift
    dsc=$(ls "$work/$name"_*.dsc)
    dpkg-source -x --no-check "$dsc" "$work/$name" >/dev/null
    cmake -S "$work/$name" -B "$work/$name-build" -G Ninja -DCMAKE_BUILD_TYPE=Release \
        -DCMAKE_TOOLCHAIN_FILE="$root/cmake/toolchain-mingw.cmake" -DSCANSTEPS_WINDOWS_DEPS="$prefix" \
        -DCMAKE_INSTALL_PREFIX="$prefix" -DCMAKE_C_COMPILER_LAUNCHER=ccache -DCMAKE_CXX_COMPILER_LAUNCHER=ccache \
        -DBUILD_SHARED_LIBS=OFF -DBUILD_TESTING=OFF "$@" >"$work/$name.log" 2>&1 &&
        cmake --build "$work/$name-build" --target install >>"$work/$name.log" 2>&1 ||
        { tail -40 "$work/$name.log" >&2; echo "windows_deps: $name could not be built" >&2; exit 1; }
    echo "windows_deps: $(basename "$dsc" .dsc)" >&2
}
build libjpeg-turbo -DENABLE_SHARED=0 -DWITH_JPEG8=0 -DWITH_JPEG7=0 -DWITH_TURBOJPEG=0 -DREQUIRE_SIMD=1
# Deflate comes ready from Debian (libz-mingw-w64-dev).
cp /usr/x86_64-w64-mingw32/include/z{lib,conf}.h "$prefix/include/"
cp /usr/x86_64-w64-mingw32/lib/libz.a "$prefix/lib/"
build libpng1.6 -DPNG_SHARED=OFF -DPNG_TESTS=OFF
build tiff -Dtiff-tools=OFF -Dtiff-tests=OFF -Dtiff-contrib=OFF -Dtiff-docs=OFF -Dtiff-deprecated=OFF -Dcxx=OFF \
    -Djpeg=OFF -Dlzma=OFF -Dzstd=OFF -Dwebp=OFF -Djbig=OFF -Dlerc=OFF -Dlibdeflate=OFF
build libwebp -DWEBP_BUILD_ANIM_UTILS=OFF -DWEBP_BUILD_CWEBP=OFF -DWEBP_BUILD_DWEBP=OFF -DWEBP_BUILD_GIF2WEBP=OFF \
    -DWEBP_BUILD_IMG2WEBP=OFF -DWEBP_BUILD_VWEBP=OFF -DWEBP_BUILD_WEBPINFO=OFF -DWEBP_BUILD_WEBPMUX=OFF \
    -DWEBP_BUILD_EXTRAS=OFF
build imath -DPYTHON=OFF
build highway -DHWY_ENABLE_EXAMPLES=OFF -DHWY_ENABLE_TESTS=OFF -DHWY_ENABLE_CONTRIB=OFF
build googletest
build fmtlib -DFMT_TEST=OFF -DFMT_DOC=OFF
build nlohmann-json3 -DJSON_BuildTests=OFF
build cli11 -DCLI11_BUILD_TESTS=OFF -DCLI11_BUILD_EXAMPLES=OFF -DCLI11_BUILD_DOCS=OFF
build eigen3 -DEIGEN_BUILD_DOC=OFF -DEIGEN_BUILD_PKGCONFIG=OFF -DCMAKE_Fortran_COMPILER=NOTFOUND
# Headers only, without a build of their own.
cp -r /usr/include/stb "$prefix/include/"
echo "$recipe" >"$stamp"
