#!/usr/bin/env bash
# Builds the file-operation benchmark in Release and runs it on tmpfs.
#   bench/fsapi/run.sh [--runs N] [--root DIR] [--files N] [--folders N] [--copy-files N]
set -euo pipefail
cd "$(dirname "$0")/../.."
build=build/bench
cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=Release -DBUILD_TESTING=OFF >/dev/null
cmake --build "$build" --parallel 2 --target bench_fsoperations >/dev/null \
    || cmake --build "$build" --parallel 2 --target bench_fsoperations
exec "$build/bench/fsapi/bench_fsoperations" "$@"
