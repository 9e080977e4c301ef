#!/bin/sh
# Memory benchmark: korvatin-memory-bench streams 2048 x 2048 Mono8 from a korvatin-camsim it
# starts here, for KORVATIN_BENCH_SECONDS seconds (300 unless set), and prints the resident
# memory samples and the buffer counts. Runs in a network namespace of its own when possible.
# Usage: memory-bench.sh BIN_DIR WORK_DIR [extra korvatin-memory-bench options]
set -u
BIN_DIR=$1
WORK_DIR=$2
. "$(dirname "$0")/../lib/camsim.sh"
bench_private_network "$0" "$@"
shift 2


ADDRESS=${KORVATIN_BENCH_ADDRESS:-127.0.50.11}
export KORVATIN_GEV_INTERFACES=lo
bench_prepare

bench_start_camsim "$ADDRESS" --width 2048 --height 2048

echo "$(nproc) CPUs, load average $(cut -d' ' -f1-3 /proc/loadavg)"
# The benchmark's own status, not tee's.
{ "$BIN_DIR/korvatin-memory-bench" "$ADDRESS" "$@"; echo $? >"$WORK_DIR/status"; } \
    | tee "$WORK_DIR/memory.txt"
status=$(cat "$WORK_DIR/status")
echo "load average at the end $(cut -d' ' -f1-3 /proc/loadavg)"
exit $status
