#!/usr/bin/env bash
# Packages for those who do not build: Debian packages (scansteps, libscansteps-dev, scansteps-doc, python3-scansteps) and a .tar.gz that
# runs wherever it is unpacked, in build/packages; with --windows also the zip (scripts/windows.sh). Then it tries them:
# lintian, and in a minimal Debian of their own (mmdebstrap, as root) the demo, the install test and the removal.
#
#   scripts/package.sh [--no-trial] [--windows]
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
root=$PWD
tree=$root/build/package
out=$root/build/packages

trial=1 windows=0
for option in "$@"; do
    case $option in
        --no-trial) trial=0 ;;
        --windows) windows=1 ;;
        *) echo "package: no option '$option' (--no-trial, --windows)" >&2; exit 2 ;;
    esac
done

scripts/bootstrap.sh build packages
rm -rf "$out"
mkdir -p "$out"
work=$(mktemp -d "${TMPDIR:-/tmp}/scansteps-package-XXXXXX")
trap 'rm -rf "$work"' EXIT

# The same tree for both: Debian's folders first, then one lib folder and libraries that find each other from there.
configure() {
    cmake -S . -B "$tree" -G Ninja -DCMAKE_C_COMPILER_LAUNCHER=ccache -DCMAKE_CXX_COMPILER_LAUNCHER=ccache \
        -DCMAKE_BUILD_TYPE=Release -DSCANSTEPS_TESTS=OFF "$@" >/dev/null
    cmake --build "$tree" --parallel "$(nproc)" | tail -n 1
}

configure -DSCANSTEPS_PYTHON=ON -DPython3_EXECUTABLE=/usr/bin/python3 -DCMAKE_INSTALL_PREFIX=/usr -DCMAKE_INSTALL_LIBDIR="lib/$(dpkg-architecture -qDEB_HOST_MULTIARCH)" \
    -DCMAKE_INSTALL_RPATH= -DCMAKE_SHARED_LINKER_FLAGS= -DCMAKE_MODULE_LINKER_FLAGS= -DCMAKE_EXE_LINKER_FLAGS= \
    -DSCANSTEPS_DEBIAN=ON -DSCANSTEPS_ZSH_FOLDER=zsh/vendor-completions
(cd "$tree" && cpack -G DEB -B "$work/deb" >"$work/cpack.log") || { cat "$work/cpack.log" >&2; exit 1; }
cp "$work"/deb/*.deb "$out/"
lintian --fail-on error --suppress-tags "$(paste -sd, scripts/package_lintian.txt | sed 's/[[:space:]]*#[^,]*//g')" "$out"/*.deb
echo "package: $(cd "$out" && echo *.deb)"

# The archive brings the libraries that a machine may lack; those of the compiler and the system it has.
# shellcheck disable=SC2016  # $ORIGIN is the loader's
configure -DSCANSTEPS_PYTHON=OFF -DCMAKE_INSTALL_LIBDIR=lib -DSCANSTEPS_DEBIAN=OFF -DSCANSTEPS_ZSH_FOLDER=zsh/site-functions \
    '-DCMAKE_INSTALL_RPATH=$ORIGIN/../lib;$ORIGIN;$ORIGIN/..' \
    -DCMAKE_SHARED_LINKER_FLAGS=-Wl,--disable-new-dtags -DCMAKE_MODULE_LINKER_FLAGS=-Wl,--disable-new-dtags \
    -DCMAKE_EXE_LINKER_FLAGS=-Wl,--disable-new-dtags
version=$("$tree/bin/scansteps" --version | cut -d' ' -f2)
name=scansteps-$version-$(uname -s | tr '[:upper:]' '[:lower:]')-$(uname -m)
cmake --install "$tree" --prefix "$work/$name" --strip >/dev/null
find "$work/$name/lib" "$work/$name/bin" -type f \( -name '*.so' -o -perm -u+x \) -exec ldd {} + |
    awk '/=> \//{print $3}' | sort -u |
    grep -vE '/(libc|libm|libdl|libpthread|librt|libstdc\+\+|libgcc_s|ld-linux[^/]*)\.so' |
    while read -r library; do cp -L "$library" "$work/$name/lib/"; done
tar -C "$work" --owner=0 --group=0 --sort=name -czf "$out/$name.tar.gz" "$name"
echo "package: $name.tar.gz, $(du -h "$out/$name.tar.gz" | cut -f1)"

if [ "$windows" = 1 ]; then
    scripts/windows.sh
    cp build/scansteps-windows-x64.zip "$out/"
fi

[ "$trial" = 0 ] || scripts/package_trial.sh "$out"
