#!/usr/bin/env bash
# Makes docs/steps.md and pipeline.schema.json anew from the table of steps, and examples/plugin by new-step. With
# --check it only says whether the first two
# are up to date. BIN names the folder of a built program (default build/dev/bin).
set -euo pipefail
cd "$(dirname "$0")/.."
bin=${BIN:-build/dev/bin}
if [ "${1:-}" = --check ]; then
  cmp docs/steps.md <("$bin/scansteps" steps --markdown)
  cmp pipeline.schema.json <("$bin/scansteps" steps --schema)
else
  "$bin/scansteps" steps --markdown >docs/steps.md
  "$bin/scansteps" steps --schema >pipeline.schema.json
  rm -rf examples/plugin
  "$bin/scansteps" new-step scale --plugin-project examples/plugin >/dev/null
fi
