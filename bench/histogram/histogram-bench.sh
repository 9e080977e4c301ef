#!/bin/sh
# Histogram benchmark: the cost of counting one 2448 x 2048 frame (grey and colour), then the
# live path fed by a korvatin-camsim sending 2448 x 2048 at 60 frames/s with the histogram panel
# open and closed in turns, once per pixel format; then the same path with the pointer resting on
# the live image (the pixel read-out following every frame) and away from it, in turns, with the
# reading in a label that has room for it and in one that has not (drawn over the image). Runs
# under an X server of its own (XVFB_SH), in a network namespace of its own when possible.
# Usage: histogram-bench.sh BIN_DIR WORK_DIR XVFB_SH
# TURN_SECONDS (10) is each measured turn, TURNS (3) the turns with the panel open and closed
# each, LIVE_FORMATS ("Mono8 BayerRG8") the pixel formats (Bayer ones shown bilinear),
# READOUT_FORMATS ("Mono8") those of the read-out's turns.
set -u
BIN_DIR=$1
WORK_DIR=$2
XVFB_SH=$3
TURN_SECONDS=${TURN_SECONDS:-10}
TURNS=${TURNS:-3}
LIVE_FORMATS=${LIVE_FORMATS:-Mono8 BayerRG8}
READOUT_FORMATS=${READOUT_FORMATS-Mono8}

. "$(dirname "$0")/../lib/camsim.sh"
bench_private_network "$0" "$@"

ADDRESS=${KORVATIN_BENCH_ADDRESS:-127.0.50.20}
export KORVATIN_GEV_INTERFACES=lo
bench_prepare

BENCH="$BIN_DIR/korvatin-histogram-bench"
echo "$(nproc) CPUs, load average $(cut -d' ' -f1-3 /proc/loadavg)"
status=0
"$XVFB_SH" "$BENCH" cost 20 || status=1
live() {
    mode=$1
    format=$2
    case "$format" in Bayer*) bayer=3 ;; *) bayer=0 ;; esac
    echo
    bench_start_camsim "$ADDRESS" --width 2448 --height 2048 --fps 60
    "$XVFB_SH" "$BENCH" "$mode" "$ADDRESS" "$format" "$bayer" "$TURN_SECONDS" "$TURNS" || status=1
    bench_stop_camsim "$ADDRESS"
}
for format in $LIVE_FORMATS; do
    live live "$format"
done
for format in $READOUT_FORMATS; do
    live readout "$format"
    live readout-box "$format"
done
echo "load average at the end $(cut -d' ' -f1-3 /proc/loadavg)"
exit $status
