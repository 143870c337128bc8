#!/usr/bin/env bash
# Runs the benchmarks and their peers on one core and rewrites bench/RESULTS.md. Needs an idle machine and about ten
# minutes. Every bench/<module>/<thing>_report.py declares a section of the report, for the program
# <module>_<thing>_bench; a <thing>_peers.py beside it, called with the path of the program, measures peers in Python.
#
#   scripts/bench.sh [PROGRAM...]     runs only these programs and prints their sections to standard output
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
core=${BENCH_CORE:-$(($(nproc) - 1))}
python=${BENCH_PYTHON:-/usr/bin/python3} # the interpreter that Debian's Python packages are installed for

scripts/bootstrap.sh build bench-peers
cmake --preset release -DSCANSTEPS_BENCH_PEERS=ON >/dev/null
cmake --build --preset release --parallel "$(nproc)" | tail -n 1
bin=build/release/bin

programs=("$@")
if [ $# -eq 0 ]; then
    for report in bench/*/*_report.py; do
        name=${report#bench/}
        name=${name%_report.py}
        programs+=("${name/\//_}_bench")
    done
fi

folder=$(mktemp -d "${TMPDIR:-/tmp}/scansteps-bench-XXXXXX")
trap 'rm -rf "$folder"' EXIT
for program in "${programs[@]}"; do
    echo "$program" >&2
    taskset -c "$core" "$bin/$program" --benchmark_min_time=0.2 \
        --benchmark_out="$folder/$program.json" --benchmark_out_format=json >"$folder/$program.log" 2>&1 ||
        { tail -n 5 "$folder/$program.log" >&2; exit 1; }
    thing=${program#*_}
    peers=bench/${program%%_*}/${thing%_bench}_peers.py
    if [ -f "$peers" ]; then
        OMP_NUM_THREADS=1 taskset -c "$core" "$python" "$peers" "$bin/$program" 2>/dev/null \
            >"$folder/${program}_peers.txt"
    fi
done

python3 bench/report.py "$folder" >"$folder/RESULTS.md"
if [ $# -gt 0 ]; then
    cat "$folder/RESULTS.md"
else
    mv "$folder/RESULTS.md" bench/RESULTS.md
fi
