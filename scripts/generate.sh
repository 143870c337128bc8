#!/usr/bin/env bash
# Makes docs/steps.md and pipeline.schema.json anew from the table of steps and the plug-ins of plugins/, and
# examples/plugin by new-step. With --check it only says whether the first two are up to date. BIN names the folder of a
# built program (default build/dev/bin), which has to have all of these plug-ins.
set -euo pipefail
cd "$(dirname "$0")/.."
bin=${BIN:-build/dev/bin}
unset SCANSTEPS_PLUGINS SCANSTEPS_LIBRARY
for table in plugins/*/steps.def; do
  name=$(basename "$(dirname "$table")")
  "$bin/scansteps" steps -v 2>&1 >/dev/null | grep -q "plug-in $name " ||
    { echo "generate: the plug-in $name is not built here" >&2; exit 1; }
done
if [ "${1:-}" = --check ]; then
  cmp docs/steps.md <("$bin/scansteps" steps --markdown)
  cmp pipeline.schema.json <("$bin/scansteps" steps --schema)
else
  "$bin/scansteps" steps --markdown >docs/steps.md
  "$bin/scansteps" steps --schema >pipeline.schema.json
  rm -rf examples/plugin
  "$bin/scansteps" new-step scale --plugin-project examples/plugin >/dev/null
fi
