#!/usr/bin/env bash
# Runs the benchmarks beside their peers on one core and writes bench/RESULTS.md anew. Wants a quiet machine and
# some ten minutes.
#
#   scripts/bench.sh [PROGRAM...]     only these programs; their tables go to standard output instead
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
core=${BENCH_CORE:-$(($(nproc) - 1))}
python=${BENCH_PYTHON:-/usr/bin/python3} # the one that Debian's packages of VTK and meshio belong to

scripts/bootstrap.sh build bench-peers
cmake --preset release -DSCANSTEPS_BENCH_PEERS=ON >/dev/null
cmake --build --preset release --parallel "$(nproc)" | tail -n 1
bin=build/release/bin

if [ $# -gt 0 ]; then
    programs=("$@")
else
    programs=(io_baseline_jpeg_bench io_pack_yuyv16_bench convert_pixels_bench features_mcanny_bench io_pipeline_bench
        framework_chain_bench framework_record_bench io_recording_bench transport_bench export_model_bench
        io_capture_bench features_planes_bench features_corners_bench features_mser_bench features_growth_bench
        features_steps_bench)
fi

folder=$(mktemp -d "${TMPDIR:-/tmp}/scansteps-bench-XXXXXX")
trap 'rm -rf "$folder"' EXIT
for program in "${programs[@]}"; do
    echo "$program" >&2
    taskset -c "$core" "$bin/$program" --benchmark_min_time=0.2 \
        --benchmark_out="$folder/$program.json" --benchmark_out_format=json >"$folder/$program.log" 2>&1 ||
        { tail -n 5 "$folder/$program.log" >&2; exit 1; }
    if [ "$program" = export_model_bench ]; then
        taskset -c "$core" "$python" bench/mesh/writers_peers.py "$bin/export_model_bench" \
            2>/dev/null >"$folder/model_peers.txt"
    fi
done

if [ $# -gt 0 ]; then
    python3 bench/tables.py "$folder"
else
    python3 bench/tables.py "$folder" >"$folder/RESULTS.md"
    mv "$folder/RESULTS.md" bench/RESULTS.md
fi
