#!/usr/bin/env bash
# Installs a build tree, moves the result elsewhere, and lets the project of examples/host find and use it, by CMake and
# by pkg-config, and the project beside this script the host library. Or tries what has been installed under a prefix.
#
#   tests/install/run.sh BUILD_DIR|PREFIX
set -euo pipefail
from=$(realpath "$1")
here=$(realpath "$(dirname "${BASH_SOURCE[0]}")")
examples=$(realpath "$here/../../examples")
photo=$examples/images/photo_rocket.jpg
work=$(mktemp -d "${TMPDIR:-/tmp}/scansteps-install-XXXXXX")
trap 'rm -rf "$work"' EXIT

prefix=$from
if [ -f "$from/CMakeCache.txt" ]; then
    prefix=$work/moved
    cmake --install "$from" --prefix "$work/first" >/dev/null
    mv "$work/first" "$prefix"
    export PKG_CONFIG_PATH=$prefix/lib/pkgconfig
fi

cmake -S "$examples/host" -B "$work/build" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build "$work/build"
"$work/build/own_host" "$photo" "$work/negative.ppm"

# shellcheck disable=SC2046  # flags are words
g++ -std=c++20 -DSTEP_LIBRARY="\"$(pkg-config --variable=steplibrary scansteps)\"" "$examples/host/own_host.cpp" \
    -o "$work/own_host" $(pkg-config --cflags --libs scansteps)
"$work/own_host" "$photo" "$work/again.ppm"
cmp "$work/negative.ppm" "$work/again.ppm"

# The negative of the negative is the photograph as the installed program reads it.
cd "$work"
"$prefix/bin/scansteps" run "cjread load.name=$photo load.one=true ! cjwrite name=plain.ppm" --quiet >/dev/null
"$work/build/own_host" negative.ppm positive.ppm
cmp plain.ppm positive.ppm

cmake -S "$here" -B short -G Ninja -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_BUILD_TYPE=Release >short.log
if grep -v -e compile -e '^-- \(Detecting\|Configuring\|Generating\|Build files\)' short.log; then
    echo "find_package is not silent" >&2
    exit 1
fi
cmake --build short
short/short_host "cjread load.name=$photo load.one=true ! cjwrite name=short.ppm" >/dev/null
cmp plain.ppm short.ppm
! short/short_host cf2u >/dev/null 2>short.err
grep -q '^step 1 (cf2u): ' short.err
# Whoever compiles as C++17 reads one line.
echo '#include <scansteps/record.h>' >old.cpp
# shellcheck disable=SC2046
! g++ -std=c++17 -c old.cpp $(pkg-config --cflags scansteps) 2>old.err
[ "$(grep -c error old.err)" = 1 ] && grep -q 'C++20' old.err

# The host library by pkg-config.
# shellcheck disable=SC2046  # flags are words
g++ -std=c++20 -DSTEP_LIBRARY="\"$(pkg-config --variable=steplibrary scansteps)\"" "$here/short_host.cpp" -o short_pkg \
    $(pkg-config --cflags --libs scansteps-host)
./short_pkg "cjread load.name=$photo load.one=true ! cjwrite name=pkg.ppm" >/dev/null
cmp plain.ppm pkg.ppm

"$here/plugin.sh" "$prefix" "$work" "$photo"
echo "installed package: found, linked, loaded"

if [ "$prefix" != "$from" ]; then
    python3 "$here/completion.py" "$prefix"
    for page in "$prefix"/share/man/man?/*; do
        warnings=
        ! command -v man >/dev/null || warnings=$(MANROFFSEQ='' man --warnings -l "$page" 2>&1 >/dev/null)
        ! command -v mandoc >/dev/null || warnings+=$(mandoc -Tlint -Wwarning "$page")
        [ -z "$warnings" ] || { echo "$page: $warnings" >&2; exit 1; }
    done
fi
