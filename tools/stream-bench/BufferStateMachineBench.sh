#!/bin/sh
# Builds and runs the state machine benchmark (buffers per second of the
# queue-to-deliver cycle with one and with several consumer threads).
# Usage: tools/stream-bench/BufferStateMachineBench.sh [seconds-per-case] [buffers] [build-dir]
#   defaults: 2 seconds, 16 buffers, build-bench (relative to the repository root)
# JOBS sets the build's parallelism (default 2). Prints figures; never fails
# on timing.
set -eu
cd "$(dirname "$0")/../.."
seconds=${1:-2}
buffers=${2:-16}
dir=${3:-build-bench}
cmake -S . -B "$dir" -G Ninja -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build "$dir" --target bench_buffer_state_machine -j"${JOBS:-2}"
"$dir/bin/bench_buffer_state_machine" "$seconds" "$buffers"
