#!/bin/sh
# Memory benchmark: korvatin-memory-bench streams 2048 x 2048 Mono8 from a korvatin-camsim it
# starts here, for KORVATIN_BENCH_SECONDS seconds (300 unless set), and prints the resident
# memory samples and the buffer counts. Runs in a network namespace of its own when possible.
# Usage: memory-bench.sh BIN_DIR WORK_DIR [extra korvatin-memory-bench options]
set -u
BIN_DIR=$1
WORK_DIR=$2
shift 2

if [ "${KORVATIN_BENCH_INSIDE:-}" != 1 ] && [ "$(id -u)" = 0 ] && command -v unshare >/dev/null 2>&1 \
    && unshare -n true 2>/dev/null; then
    exec unshare -n env KORVATIN_BENCH_INSIDE=1 sh -c 'ip link set lo up && exec "$@"' sh "$0" \
        "$BIN_DIR" "$WORK_DIR" "$@"
fi

ADDRESS=${KORVATIN_BENCH_ADDRESS:-127.0.50.11}
export KORVATIN_GEV_INTERFACES=lo
mkdir -p "$WORK_DIR" || exit 1
CAMSIM_PID=
cleanup() {
    [ -n "$CAMSIM_PID" ] && kill "$CAMSIM_PID" 2>/dev/null
    wait 2>/dev/null
}
trap cleanup EXIT INT TERM

GVCP_SOCKET="$(echo "$ADDRESS" | awk -F. '{ printf "%02X%02X%02X%02X", $4, $3, $2, $1 }'):0F74"
"$BIN_DIR/korvatin-camsim" --address "$ADDRESS" --width 2048 --height 2048 \
    >"$WORK_DIR/camsim.log" 2>&1 &
CAMSIM_PID=$!
# Ready when its GVCP socket is bound (/proc/net/udp shows little-endian hex).
tries=0
until grep -q "$GVCP_SOCKET" /proc/net/udp; do
    tries=$((tries + 1))
    if [ $tries -gt 100 ]; then
        echo "korvatin-camsim did not start"; cat "$WORK_DIR/camsim.log"; exit 1
    fi
    sleep 0.1
done

echo "$(nproc) CPUs, load average $(cut -d' ' -f1-3 /proc/loadavg)"
# The benchmark's own status, not tee's.
{ "$BIN_DIR/korvatin-memory-bench" "$ADDRESS" "$@"; echo $? >"$WORK_DIR/status"; } \
    | tee "$WORK_DIR/memory.txt"
status=$(cat "$WORK_DIR/status")
echo "load average at the end $(cut -d' ' -f1-3 /proc/loadavg)"
exit $status
