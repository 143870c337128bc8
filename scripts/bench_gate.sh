#!/usr/bin/env bash
# Counts the instructions of six kernels with callgrind and fails when one of them grew by more than 5 % over
# the kept count. Times vary with the machine, counts don't. The dev build is counted, by GCC 12 and for AVX2.
#
#   scripts/bench_gate.sh             compare
#   scripts/bench_gate.sh --update    keep the counts of now
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
kept=bench/gate/instructions.txt

[ -f build/dev/build.ninja ] || cmake --preset dev >/dev/null
cmake --build --preset dev --parallel "$(nproc)" --target gate_kernels >/dev/null
folder=$(mktemp -d "${TMPDIR:-/tmp}/scansteps-gate-XXXXXX")
trap 'rm -rf "$folder"' EXIT
valgrind --tool=callgrind --instr-atstart=no --callgrind-out-file="$folder/out" \
    build/dev/bin/gate_kernels 2>"$folder/log" || { cat "$folder/log" >&2; exit 1; }

# Each dump names its kernel and carries the sum.
for dump in "$folder"/out.*; do
    sed -n 's/^desc: Trigger: Client Request: //p; s/^totals: //p' "$dump" | paste -s -d ' '
done | sort | sed -n '/^[A-Za-z]/p' >"$folder/now"

if [ "${1:-}" = --update ]; then
    cp "$folder/now" "$kept"
    cat "$kept"
    exit 0
fi
awk '
    NR == FNR { kept[$1] = $2; next }
    { now[$1] = 1
      if (!($1 in kept)) { printf "%-16s %12d  not kept yet\n", $1, $2; bad = 1; next }
      growth = 100 * ($2 / kept[$1] - 1)
      verdict = growth > 5 ? "GREW" : growth < -5 ? "shrank: keep it with --update" : ""
      if (growth > 5) bad = 1
      printf "%-16s %12d instructions  %+6.2f %%  %s\n", $1, $2, growth, verdict }
    END { for (name in kept) if (!(name in now)) { print name ": not counted"; bad = 1 }
          exit bad }' "$kept" "$folder/now"
