#!/usr/bin/env bash
# Builds the window benchmark in Release and runs it: a run that deletes 1,000,000 small
# files from ~/.bv2 in a throw-away HOME (on /dev/shm when it has room), or with --details
# the start page's details counting 100,000 files in ~/Library/Caches/Brisvane.
#   bench/gui/run.sh [--details] [--files N] [--folders N] [--bytes N] [--root DIR]
set -euo pipefail
cd "$(dirname "$0")/../.."
build=build/bench
cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=Release -DBUILD_TESTING=OFF >/dev/null
cmake --build "$build" --parallel 2 --target bench_uninstallwindow >/dev/null \
    || cmake --build "$build" --parallel 2 --target bench_uninstallwindow
exec "$build/bench/gui/bench_uninstallwindow" "$@"
