#!/usr/bin/env bash
# From photographs to edge pictures: installs what is missing, builds, runs examples/edges.json over
# examples/images, and says where the pictures are.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

scripts/bootstrap.sh
# The tree of scripts/test.sh, which need not build these again.
cmake --preset dev >/dev/null
cmake --build --preset dev --parallel "$(nproc)" --target scansteps_program scansteps_plugin scansteps_man

rm -f out/edge*.jpg
mkdir -p out
build/dev/bin/scansteps run examples/edges.json

shopt -s nullglob
pictures=(out/edge*.jpg)
[ ${#pictures[@]} -ge 8 ] || { echo "demo: only ${#pictures[@]} pictures came out" >&2; exit 1; }
echo
echo "${#pictures[@]} edge pictures: $PWD/${pictures[0]} to $PWD/${pictures[-1]}"
echo "To look at every step and move the thresholds, in the browser:"
echo "  build/dev/bin/scansteps view examples/edges.json --open"
echo "Their photographs:  $PWD/examples/images/img0000.jpg and on"
