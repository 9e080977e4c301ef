#!/bin/sh
# Stream path benchmark: viewlane-cli grab (and record) against a bare libaravis consumer on the
# same korvatin-camsim stream, 2048 x 2048 Mono8 and BayerRG8 as fast as the simulator sends,
# rounds alternating between the two consumers, each run on a freshly started simulator. Prints
# each run and the ratios of the means.
# Runs in a network namespace of its own when possible.
# Usage: stream-bench.sh BIN_DIR WORK_DIR [FRAMES] [ROUNDS]
set -u
BIN_DIR=$1
WORK_DIR=$2
FRAMES=${3:-600}
ROUNDS=${4:-3}
RECORD_FRAMES=${RECORD_FRAMES:-300}

. "$(dirname "$0")/../lib/camsim.sh"
bench_private_network "$0" "$@"

ADDRESS=127.0.20.11
export KORVATIN_GEV_INTERFACES=lo
bench_prepare 'record-*.avi'

CLI="$BIN_DIR/viewlane-cli"
BARE="$BIN_DIR/korvatin-stream-bare"

# A fresh simulator for every run: it slows down for a host that fell behind and speeds up only
# later, which must not carry over from one consumer to the next.
start_camsim() {
    bench_start_camsim "$ADDRESS" --width 2048 --height 2048
    # No frame rate limit: the simulator sends as fast as a 10 Gbit/s link would carry.
    "$CLI" set "$ADDRESS" FrameRate 0 --timeout 500 || exit 1
}
stop_camsim() {
    bench_stop_camsim "$ADDRESS"
}

# figure FILE NAME: the number on the line "NAME: number".
figure() {
    sed -n "s/^$2: //p" "$1"
}

# run LABEL OUTFILE COMMAND...: runs one consumer on a fresh simulator (with PACKET_SIZE set
# into GevSCPSPacketSize first when given), appends "fps dropped recorded-fps" to OUTFILE.
run() {
    label=$1
    out=$2
    shift 2
    start_camsim
    if [ -n "${PACKET_SIZE:-}" ]; then
        "$CLI" set "$ADDRESS" GevSCPSPacketSize "$PACKET_SIZE" --timeout 500 || exit 1
    fi
    if ! "$@" >"$WORK_DIR/run.txt" 2>"$WORK_DIR/run.err"; then
        echo "$label failed: $(cat "$WORK_DIR/run.err")"
        stop_camsim
        return 1
    fi
    stop_camsim
    fps=$(figure "$WORK_DIR/run.txt" "frames per second")
    dropped=$(figure "$WORK_DIR/run.txt" "frames dropped")
    received=$(figure "$WORK_DIR/run.txt" "frames received")
    recorded=$(figure "$WORK_DIR/run.txt" "recorded frames per second")
    printf "  %-38s %8s frames/s  %5s received  %3s dropped%s\n" "$label" "$fps" "$received" \
        "$dropped" "${recorded:+  ($recorded recorded frames/s)}"
    echo "$fps $dropped ${recorded:-0}" >>"$out"
}

# mean FILE COLUMN
mean() {
    awk -v c="$2" '{ s += $c; n++ } END { if (n) printf "%.2f", s / n; else print "0" }' "$1"
}
total() {
    awk -v c="$2" '{ s += $c } END { printf "%d", s }' "$1"
}

# The "packet" runs set GevSCPSPacketSize to what the bare consumer negotiated before
# viewlane-cli starts, so that they measure the session path alone on the same packets.
echo "2048 x 2048, $FRAMES frames per grab run, $RECORD_FRAMES per recording, $ROUNDS rounds, $(nproc) CPUs"
for format in Mono8 BayerRG8; do
    if [ "$format" = Mono8 ]; then bayer=none; else bayer=bilinear; fi
    for kind in bare cli cli-packet cli-rec cli-rec-packet; do : >"$WORK_DIR/$format-$kind.txt"; done
    echo "$format:"
    round=1
    while [ $round -le "$ROUNDS" ]; do
        run "bare libaravis" "$WORK_DIR/$format-bare.txt" "$BARE" "$ADDRESS" "$FRAMES" "$format"
        packet=$(figure "$WORK_DIR/run.txt" "packet size")
        run "viewlane-cli grab" "$WORK_DIR/$format-cli.txt" \
            "$CLI" grab "$ADDRESS" --frames "$FRAMES" --pixel-format "$format" --timeout 500
        PACKET_SIZE=$packet run "viewlane-cli grab, packet $packet" \
            "$WORK_DIR/$format-cli-packet.txt" \
            "$CLI" grab "$ADDRESS" --frames "$FRAMES" --pixel-format "$format" --timeout 500
        run "viewlane-cli record --bayer $bayer" "$WORK_DIR/$format-cli-rec.txt" \
            "$CLI" record "$ADDRESS" "$WORK_DIR/record-$format.avi" --frames "$RECORD_FRAMES" \
            --pixel-format "$format" --bayer "$bayer" --timeout 500
        rm -f "$WORK_DIR/record-$format.avi"
        PACKET_SIZE=$packet run "viewlane-cli record, packet $packet" \
            "$WORK_DIR/$format-cli-rec-packet.txt" \
            "$CLI" record "$ADDRESS" "$WORK_DIR/record-$format.avi" --frames "$RECORD_FRAMES" \
            --pixel-format "$format" --bayer "$bayer" --timeout 500
        rm -f "$WORK_DIR/record-$format.avi"
        round=$((round + 1))
    done
    bare_fps=$(mean "$WORK_DIR/$format-bare.txt" 1)
    bare_dropped=$(total "$WORK_DIR/$format-bare.txt" 2)
    for kind in cli cli-packet cli-rec cli-rec-packet; do
        cli_fps=$(mean "$WORK_DIR/$format-$kind.txt" 1)
        ratio=$(awk -v a="$cli_fps" -v b="$bare_fps" 'BEGIN { if (b > 0) printf "%.3f", a / b; else print "0" }')
        recorded=""
        case $kind in cli-rec*) recorded=", $(mean "$WORK_DIR/$format-$kind.txt" 3) recorded frames/s" ;; esac
        echo "RESULT $format $kind: bare ${bare_fps} fps, $bare_dropped dropped; viewlane-cli ${cli_fps} fps, $(total "$WORK_DIR/$format-$kind.txt" 2) dropped${recorded}; ratio $ratio"
    done
done
