#!/usr/bin/env bash
# Installs what is missing, builds, and shows what the program does:
#
#   scripts/demo.sh         from photographs to edge pictures (examples/edges.json)
#   scripts/demo.sh scan    from pictures of projected patterns to a model in millimetres, compared with the truth
#   scripts/demo.sh views   eight such views, rendered first, become a closed model with texture
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
demo=${1:-edges}

build() {
    scripts/bootstrap.sh
    # The tree of scripts/test.sh, which need not build these again.
    cmake --preset dev >/dev/null
    cmake --build --preset dev --parallel "$(nproc)" --target scansteps_program scansteps_plugin scansteps_man "$@"
}

edges() {
    build
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
}

scan() {
    build images scan scansteps_deviation
    mkdir -p out/scan
    rm -f out/scan/*
    build/dev/bin/scansteps run examples/scan/structured_light.json
    echo
    echo "Deviation from the truth:"
    build/dev/bin/scansteps-deviation examples/scan/structured_light out/scan/model.ply --picture out/scan/deviation.png
    echo
    echo "The model:               $PWD/out/scan/model.ply"
    echo "Its errors in colours:   $PWD/out/scan/deviation.png (red: too far, blue: too near, full colour at 0.25 mm)"
    echo "To turn it in the browser:"
    echo "  build/dev/bin/scansteps view out/scan/model.ply --open"
    echo "The pictures it is from: $PWD/examples/scan/structured_light/img0000.png and on"
}

views() {
    scripts/bootstrap.sh build simulator
    build images scan scansteps_deviation scansteps_simulate
    mkdir -p out/scan
    rm -rf out/scan/views out/scan/closed*
    build/dev/bin/scansteps-simulate examples/scan/views/scene.json --out out/scan/views --meshes
    printf '%s\n' "$PWD"/out/scan/views/pose*/img*.png >out/scan/views/pictures.txt
    build/dev/bin/scansteps run examples/scan/views.json
    echo
    echo "Deviation from the truth:"
    build/dev/bin/scansteps-deviation out/scan/views out/scan/closed.rec --mesh
    echo
    echo "The model:  $PWD/out/scan/closed.obj, with closed.mtl and closed.jpg"
    echo "To turn it in the browser:"
    echo "  build/dev/bin/scansteps view out/scan/closed.obj --open"
}

case $demo in
    edges | scan | views) "$demo" ;;
    *) echo "usage: scripts/demo.sh [edges|scan|views]" >&2; exit 2 ;;
esac
