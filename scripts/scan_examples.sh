#!/usr/bin/env bash
# Renders the series of examples/scan anew from their scenes. The files come out as they are in the repository.
#
#   scripts/scan_examples.sh [BUILD]     the build tree, build/dev unless given
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
build=${1:-build/dev}
for series in structured_light laser; do
    "$build/bin/scansteps-simulate" "examples/scan/$series/scene.json" --out "examples/scan/$series"
done
git status --short examples/scan
