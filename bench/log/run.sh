#!/usr/bin/env bash
# Builds the log benchmark optimised (build/bench) and runs it:
#   bench/log/run.sh [threads] [lines per thread]
set -euo pipefail
root=$(cd "$(dirname "$0")/../.." && pwd)
cmake -S "$root" -B "$root/build/bench" -DCMAKE_BUILD_TYPE=Release -DBUILD_TESTING=OFF >/dev/null
cmake --build "$root/build/bench" --target bench_log --parallel 2 >/dev/null
"$root/build/bench/bench/log/bench_log" "$@"
