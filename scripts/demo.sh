#!/usr/bin/env bash
# From photographs to edge pictures: installs what is missing, builds, runs examples/edges.json over
# examples/images, and says where the pictures are.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

scripts/bootstrap.sh
cmake --preset release -B build/demo -DSCANSTEPS_TESTS=OFF -DSCANSTEPS_BENCH=OFF -DSCANSTEPS_WERROR=OFF >/dev/null
cmake --build build/demo --parallel "$(nproc)"

rm -f out/edge*.jpg
mkdir -p out
build/demo/bin/scansteps run examples/edges.json

shopt -s nullglob
pictures=(out/edge*.jpg)
[ ${#pictures[@]} -ge 8 ] || { echo "demo: only ${#pictures[@]} pictures came out" >&2; exit 1; }
echo
echo "${#pictures[@]} edge pictures: $PWD/${pictures[0]} to $PWD/${pictures[-1]}"
echo "Their photographs:  $PWD/examples/images/img0000.jpg and on"
