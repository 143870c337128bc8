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
    programs=(jpeg_decoder_bench jpeg_pack_yuyv16_bench pixels_conversions_bench edges_canny_bench images_pipeline_bench
        core_chain_bench core_record_bench recording_recording_bench recording_sender_bench mesh_writers_bench
        capture_capture_bench grey_planes_bench corners_corners_bench regions_mser_bench edges_growth_bench
        edges_steps_bench)
fi

folder=$(mktemp -d "${TMPDIR:-/tmp}/scansteps-bench-XXXXXX")
trap 'rm -rf "$folder"' EXIT
for program in "${programs[@]}"; do
    echo "$program" >&2
    taskset -c "$core" "$bin/$program" --benchmark_min_time=0.2 \
        --benchmark_out="$folder/$program.json" --benchmark_out_format=json >"$folder/$program.log" 2>&1 ||
        { tail -n 5 "$folder/$program.log" >&2; exit 1; }
    if [ "$program" = mesh_writers_bench ]; then
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
