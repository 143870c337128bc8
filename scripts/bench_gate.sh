#!/usr/bin/env bash
# Counts the instructions of six kernels with callgrind and fails when a count exceeds the stored one by more than
# 5 %. Unlike times, counts do not vary between machines. Measures the dev build (GCC 12, AVX2).
#
#   scripts/bench_gate.sh             compares with the stored counts
#   scripts/bench_gate.sh --update    stores the current counts
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
stored=bench/gate/instructions.txt

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
    cp "$folder/now" "$stored"
    cat "$stored"
    exit 0
fi
awk '
    NR == FNR { stored[$1] = $2; next }
    { now[$1] = 1
      if (!($1 in stored)) { printf "%-16s %12d  no stored count\n", $1, $2; bad = 1; next }
      growth = 100 * ($2 / stored[$1] - 1)
      verdict = growth > 5 ? "GREW" : growth < -5 ? "shrank: store with --update" : ""
      if (growth > 5) bad = 1
      printf "%-16s %12d instructions  %+6.2f %%  %s\n", $1, $2, growth, verdict }
    END { for (name in stored) if (!(name in now)) { print name ": not counted"; bad = 1 }
          exit bad }' "$stored" "$folder/now"
