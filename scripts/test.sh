#!/usr/bin/env bash
# Installs what is missing, builds, and runs every test.
#
#   scripts/test.sh [PRESET]     dev (the default), release, asan, tsan, clang
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
preset=${1:-dev}

scripts/bootstrap.sh build python-tests
cmake --preset "$preset"
cmake --build --preset "$preset" --parallel "$(nproc)"
ctest --preset "$preset"
