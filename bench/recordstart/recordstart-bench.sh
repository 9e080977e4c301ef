#!/bin/sh
# Recording start benchmark: korvatin-recordstart-bench starts and ends recordings on a
# 2048 x 2048 Mono8 stream at FrameRate 60 from a korvatin-camsim it starts here, and prints the
# frames the session lost around each start. Runs in a network namespace of its own when possible.
# Usage: recordstart-bench.sh BIN_DIR WORK_DIR [extra korvatin-recordstart-bench options]
set -u
BIN_DIR=$1
WORK_DIR=$2
. "$(dirname "$0")/../lib/camsim.sh"
bench_private_network "$0" "$@"
shift 2

ADDRESS=${KORVATIN_BENCH_ADDRESS:-127.0.50.12}
export KORVATIN_GEV_INTERFACES=lo
bench_prepare 'start-*.avi'

bench_start_camsim "$ADDRESS" --width 2048 --height 2048
echo "$(nproc) CPUs, load average $(cut -d' ' -f1-3 /proc/loadavg)"
"$BIN_DIR/korvatin-recordstart-bench" "$ADDRESS" "$WORK_DIR" "$@"
