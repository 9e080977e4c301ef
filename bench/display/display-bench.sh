#!/bin/sh
# Display-path benchmark: korvatin-display-bench times the live-image widget's steps on
# 2448 x 2048 Mono8 and BayerRG8 frames, then runs the display fed by the camera session from a
# korvatin-camsim that sends 2448 x 2048 at 60 frames/s, once per pixel format, each on a
# freshly started simulator. Everything runs under an X server of its own (XVFB_SH), in a
# network namespace of its own when possible.
# Usage: display-bench.sh BIN_DIR WORK_DIR XVFB_SH
# LIVE_SECONDS (30) is the measured time of each live run, PAINT_ROUNDS (60) the rounds per step,
# LIVE_FORMATS ("Mono8 BayerRG8") the pixel formats of the live runs (Bayer ones shown bilinear).
set -u
BIN_DIR=$1
WORK_DIR=$2
XVFB_SH=$3
LIVE_SECONDS=${LIVE_SECONDS:-30}
PAINT_ROUNDS=${PAINT_ROUNDS:-60}
LIVE_FORMATS=${LIVE_FORMATS:-Mono8 BayerRG8}

. "$(dirname "$0")/../lib/camsim.sh"
bench_private_network "$0" "$@"

ADDRESS=${KORVATIN_BENCH_ADDRESS:-127.0.50.12}
export KORVATIN_GEV_INTERFACES=lo
bench_prepare

BENCH="$BIN_DIR/korvatin-display-bench"

start_camsim() {
    bench_start_camsim "$ADDRESS" --width 2448 --height 2048 --fps 60
}
stop_camsim() {
    bench_stop_camsim "$ADDRESS"
}

echo "$(nproc) CPUs, load average $(cut -d' ' -f1-3 /proc/loadavg)"
status=0
"$XVFB_SH" "$BENCH" paint --rounds "$PAINT_ROUNDS" || status=1

for format in $LIVE_FORMATS; do
    case "$format" in Bayer*) bayer=3 ;; *) bayer=0 ;; esac
    echo
    start_camsim
    # The simulator's CPU time over the whole run (fields 14 and 15 of /proc/PID/stat, in
    # clock ticks), for how much of the machine the sending side takes.
    before=$(awk '{ print $14 + $15 }' "/proc/$CAMSIM_PID/stat")
    start=$(date +%s.%N)
    "$XVFB_SH" "$BENCH" live "$ADDRESS" --pixel-format "$format" --bayer "$bayer" \
        --seconds "$LIVE_SECONDS" || status=1
    after=$(awk '{ print $14 + $15 }' "/proc/$CAMSIM_PID/stat")
    awk -v b="$before" -v a="$after" -v s="$start" -v e="$(date +%s.%N)" -v hz="$(getconf CLK_TCK)" \
        'BEGIN { printf "korvatin-camsim: %.0f %% of one core over the run\n", 100 * (a - b) / hz / (e - s) }'
    stop_camsim
done
echo "load average at the end $(cut -d' ' -f1-3 /proc/loadavg)"
exit $status
