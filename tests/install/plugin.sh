#!/usr/bin/env bash
# Makes a plug-in project, builds it against an installed package, runs its test, uses it, and installs it beside the
# package where that is one of a test.
#
#   tests/install/plugin.sh PREFIX WORK_DIR PHOTO
set -euo pipefail
prefix=$1
cd "$2"
scansteps=$prefix/bin/scansteps

"$scansteps" new-step scale --plugin-project scale >/dev/null
cmake -S scale -B scale/build -G Ninja -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build scale/build
ctest --test-dir scale/build --output-on-failure

pipeline="cjread load.name=$3 load.one=true ! c3f ! scale factor=0.5 ! cjwrite name=scaled.ppm"
! "$scansteps" run "$pipeline" >/dev/null 2>unknown.txt
grep -q 'there is no kind "scale"' unknown.txt
"$scansteps" run "$pipeline" --plugin scale/build/libscansteps-scale.so --quiet >/dev/null
mv scaled.ppm named.ppm
# A plug-in of the installation needs no name. A package that was installed for the system is left as it is.
if [ "$prefix" = "$PWD/moved" ]; then
    cmake --install scale/build --prefix "$prefix" >/dev/null
    "$scansteps" run "$pipeline" --quiet >/dev/null
    cmp scaled.ppm named.ppm
fi
