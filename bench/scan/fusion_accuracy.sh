#!/usr/bin/env bash
# Renders eight full-size views of the bust and the knot, fuses them at 0.25 mm with holes filled, and prints their
# deviation from the truth; with --peer also time and error beside Open3D on the same views.
#
#   bench/scan/fusion_accuracy.sh BIN DIR [--peer]     BIN: built programs; DIR: for series and models, 1 GB each
#
# Series that are in DIR already are not rendered again (two minutes of processor time each).
set -euo pipefail
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
bin=$(realpath "$1")
mkdir -p "$2"
dir=$(realpath "$2")
for body in bust knot; do
    series=$dir/$body
    if [ ! -f "$series/views.rec" ]; then
        "$bin/scansteps-simulate" "$here/${body}_views.json" --out "$series" --meshes 2>/dev/null
        printf '%s\n' "$series"/pose*/img*.png >"$series/pictures.txt"
        "$bin/scansteps" run --quiet "imread imread.name=@$series/pictures.txt ! sgray sgray.patterns=$here/../../examples/scan/structured_light/patterns.json ! stri stri.calibration=$series/calibration.json ! smesh ! filesaver save.name=$series/views.rec" >"$series/scan.log"
    fi
    echo "## $body"
    "$bin/scansteps" run --quiet "read load.name=$series/views.rec ! sfuse sfuse.voxel=0.25 sfuse.close=1000 sfuse.calibration=$series/calibration.json ! filesaver save.name=$series/closed.rec" | grep -E "views|holes|time"
    "$bin/scansteps-deviation" "$series" "$series/closed.rec" --mesh
    [ "${3:-}" != --peer ] || /usr/bin/python3 "$here/fusion_peers.py" "$bin" "$series" "$series/views.rec"
done
