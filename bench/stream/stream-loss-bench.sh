#!/bin/sh
# Packet loss benchmark: viewlane-cli grab with the viewer's default settings (10 buffers)
# against a bare libaravis consumer given the same 10 buffers, on a korvatin-camsim that drops
# stream packets on purpose (--lost-ratio, per mille), 2048 x 2048 Mono8 at FrameRate 60. Each run
# on a freshly started simulator, rounds alternating between the two consumers. Prints each run
# and, per loss ratio, the means and the ratios.
# Runs in a network namespace of its own when possible.
# Usage: stream-loss-bench.sh BIN_DIR WORK_DIR [FRAMES] [ROUNDS] [RATIOS]
set -u
BIN_DIR=$1
WORK_DIR=$2
FRAMES=${3:-300}
ROUNDS=${4:-3}
RATIOS=${5:-0 20 100}

. "$(dirname "$0")/../lib/camsim.sh"
bench_private_network "$0" "$@"

ADDRESS=127.0.20.12
export KORVATIN_GEV_INTERFACES=lo
bench_prepare

CLI="$BIN_DIR/viewlane-cli"
BARE="$BIN_DIR/korvatin-stream-bare"

figure() {
    sed -n "s/^$2: //p" "$1"
}

# run RATIO LABEL OUTFILE COMMAND...: one consumer on a fresh simulator; appends
# "received dropped fps resent incomplete" to OUTFILE.
run() {
    ratio=$1
    label=$2
    out=$3
    shift 3
    bench_start_camsim "$ADDRESS" --width 2048 --height 2048 --lost-ratio "$ratio"
    "$CLI" set "$ADDRESS" FrameRate 60 --timeout 500 >/dev/null || exit 1
    if ! "$@" >"$WORK_DIR/run.txt" 2>"$WORK_DIR/run.err"; then
        echo "$label failed: $(cat "$WORK_DIR/run.err")"
        bench_stop_camsim "$ADDRESS"
        return 1
    fi
    bench_stop_camsim "$ADDRESS"
    received=$(figure "$WORK_DIR/run.txt" "frames received")
    dropped=$(figure "$WORK_DIR/run.txt" "frames dropped")
    fps=$(figure "$WORK_DIR/run.txt" "frames per second")
    resent=$(figure "$WORK_DIR/run.txt" "packets resent")
    incomplete=$(figure "$WORK_DIR/run.txt" "frames incomplete")
    printf "  %-20s %4s received  %4s dropped  %6s frames/s  %6s packets resent  %3s incomplete\n" \
        "$label" "$received" "$dropped" "$fps" "$resent" "$incomplete"
    echo "$received $dropped $fps $resent $incomplete" >>"$out"
}

mean() {
    awk -v c="$2" '{ s += $c; n++ } END { if (n) printf "%.2f", s / n; else print "0" }' "$1"
}
total() {
    awk -v c="$2" '{ s += $c } END { printf "%d", s }' "$1"
}

echo "2048 x 2048 Mono8, FrameRate 60, $FRAMES frames per run, 10 buffers each, $ROUNDS rounds, $(nproc) CPUs"
for ratio in $RATIOS; do
    : >"$WORK_DIR/bare-$ratio.txt"
    : >"$WORK_DIR/cli-$ratio.txt"
    echo "loss $ratio per mille:"
    round=1
    while [ $round -le "$ROUNDS" ]; do
        run "$ratio" "bare libaravis" "$WORK_DIR/bare-$ratio.txt" "$BARE" "$ADDRESS" "$FRAMES" Mono8 10
        run "$ratio" "viewlane-cli grab" "$WORK_DIR/cli-$ratio.txt" \
            "$CLI" grab "$ADDRESS" --frames "$FRAMES" --timeout 500
        round=$((round + 1))
    done
    bare_fps=$(mean "$WORK_DIR/bare-$ratio.txt" 3)
    cli_fps=$(mean "$WORK_DIR/cli-$ratio.txt" 3)
    fps_ratio=$(awk -v a="$cli_fps" -v b="$bare_fps" 'BEGIN { if (b > 0) printf "%.3f", a / b; else print "0" }')
    echo "RESULT loss $ratio: bare $bare_fps fps, $(total "$WORK_DIR/bare-$ratio.txt" 1) received, $(total "$WORK_DIR/bare-$ratio.txt" 2) dropped, $(total "$WORK_DIR/bare-$ratio.txt" 4) packets resent; viewlane-cli $cli_fps fps, $(total "$WORK_DIR/cli-$ratio.txt" 1) received, $(total "$WORK_DIR/cli-$ratio.txt" 2) dropped, $(total "$WORK_DIR/cli-$ratio.txt" 4) packets resent; frame rate ratio $fps_ratio"
done
