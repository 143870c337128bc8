#!/usr/bin/env bash
# Installs what building and testing need, from Debian packages. Does nothing, quickly, when all is there.
#
#   scripts/bootstrap.sh [GROUP...]     groups: build (the default), python-tests, readers, bench-peers, simulator,
#                                       windows, packages, docs, vivid, viewer, slurm, all
set -euo pipefail

build=(
    g++ cmake ninja-build ccache pkg-config python3
    clang clang-format clang-tidy libclang-rt-dev
    libjpeg-dev libpng-dev libtiff-dev libwebp-dev libimath-dev libhwy-dev libcli11-dev nlohmann-json3-dev libfmt-dev libeigen3-dev libstb-dev libvalijson-dev libceres-dev libnanoflann-dev
    libgtest-dev libgmock-dev libbenchmark-dev valgrind
    libwebsockets-dev libjs-three
    python3-dev python3-numpy pybind11-dev
)
# What the tests of the Python package use.
python_tests=(
    python3-pytest python3-hypothesis python3-venv python3-pip python3-matplotlib python3-distributed mypy ffmpeg
)
bench_peers=(
    libturbojpeg0-dev libyuv-dev libswscale-dev libavutil-dev libvips-dev libassimp-dev
    python3-meshio python3-vtk9 python3-numpy python3-skimage python3-vigra python3-pil python3-open3d
)
# Programs of other makers that tests open our model files with; without them those tests are skipped.
readers=(
    python3-meshio assimp-utils openscenegraph
)
# The simulator of scanners (tools/simulate), which makes the example series of scans.
simulator=(
    libembree-dev
)
windows=(
    g++-mingw-w64-x86-64-posix libz-mingw-w64-dev wine wine64 nasm dpkg-dev zip unzip
)

# Making and trying packages, the documentation as a site, completion in other shells.
packages=(
    dpkg-dev fakeroot lintian mmdebstrap
)
docs=(
    mkdocs man-db mandoc bash-completion zsh fish
)
# The browser in which the viewer is tested.
viewer=(
    chromium chromium-driver python3-selenium
)
command -v npm >/dev/null || viewer+=(npm)

vivid=(
    qemu-system-x86 busybox-static
)

slurm=(
    slurm-wlm munge iproute2 util-linux
)

die() {
    echo "bootstrap: $*" >&2
    exit 1
}

wanted=()
for group in "${@:-build}"; do
    case $group in
        build) wanted+=("${build[@]}") ;;
        python-tests) wanted+=("${python_tests[@]}") ;;
        readers) wanted+=("${readers[@]}") ;;
        bench-peers) wanted+=("${bench_peers[@]}") ;;
        simulator) wanted+=("${simulator[@]}") ;;
        windows) wanted+=("${windows[@]}") ;;
        packages) wanted+=("${packages[@]}") ;;
        docs) wanted+=("${docs[@]}") ;;
        vivid) wanted+=("${vivid[@]}") ;;
        viewer) wanted+=("${viewer[@]}") ;;
        slurm) wanted+=("${slurm[@]}") ;;
        all) wanted+=("${build[@]}" "${python_tests[@]}" "${readers[@]}" "${bench_peers[@]}" "${simulator[@]}" "${windows[@]}" "${packages[@]}"
            "${docs[@]}" "${vivid[@]}" "${viewer[@]}" "${slurm[@]}") ;;
        *) die "no group '$group' (build, python-tests, readers, bench-peers, simulator, windows, packages, docs, vivid, viewer, slurm, all)" ;;
    esac
done

if ! command -v dpkg-query >/dev/null; then
    echo "bootstrap: not a Debian system; these packages' counterparts are needed: ${wanted[*]}" >&2
    exit 0
fi

installed=$(dpkg-query -W -f '${db:Status-Abbrev}${Package}\n' "${wanted[@]}" 2>/dev/null |
    sed -n 's/^ii *//p' || true)
missing=()
for package in "${wanted[@]}"; do
    grep -qx -- "$package" <<<"$installed" || missing+=("$package")
done
[ ${#missing[@]} -gt 0 ] || exit 0

sudo=()
if [ "$(id -u)" -ne 0 ]; then
    command -v sudo >/dev/null || die "root or sudo is needed to install: ${missing[*]}"
    sudo=(sudo)
fi
echo "bootstrap: installing ${missing[*]}" >&2
install() {
    "${sudo[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y -q --no-install-recommends \
        -o DPkg::Lock::Timeout=300 "${missing[@]}" >&2
}
# The package lists of a fresh machine are missing or old: update them when the first try fails.
install || { "${sudo[@]}" apt-get update -q -o DPkg::Lock::Timeout=300 >&2 && install; } ||
    die "could not install: ${missing[*]}"
