#!/bin/sh
# Streams 2048 x 2048 Mono8 over loopback from korvatin-camsim and from arv-fake-gv-camera-0.8
# to the same bare libaravis consumer and prints both frame rates and their ratio. Runs in a
# network namespace of its own when possible, so that Aravis' simulator can have an address of
# its own on the loopback interface.
# Usage: camsim-bench.sh BIN_DIR [SECONDS]
set -u
BIN_DIR=$1
SECONDS_PER_RUN=${2:-5}

if [ "${KORVATIN_BENCH_INSIDE:-}" != 1 ] && [ "$(id -u)" = 0 ] && command -v unshare >/dev/null 2>&1 \
    && unshare -n true 2>/dev/null; then
    exec unshare -n env KORVATIN_BENCH_INSIDE=1 sh -c 'ip link set lo up && exec "$@"' sh "$0" "$@"
fi

CAMSIM_ADDRESS=127.0.20.1
if [ "${KORVATIN_BENCH_INSIDE:-}" = 1 ]; then
    FAKE_ADDRESS=127.0.20.2
    ip addr add "$FAKE_ADDRESS/32" dev lo || exit 1
else
    echo "note: not in a private network namespace; Aravis' simulator uses 127.0.0.1"
    FAKE_ADDRESS=127.0.0.1
fi

WORK=$(mktemp -d)
CAMSIM_PID=
FAKE_PID=
cleanup() {
    [ -n "$CAMSIM_PID" ] && kill "$CAMSIM_PID" 2>/dev/null
    [ -n "$FAKE_PID" ] && kill "$FAKE_PID" 2>/dev/null
    wait 2>/dev/null
    rm -rf "$WORK"
}
trap cleanup EXIT INT TERM

"$BIN_DIR/korvatin-camsim" --address "$CAMSIM_ADDRESS" --width 2048 --height 2048 \
    >"$WORK/camsim.log" 2>&1 &
CAMSIM_PID=$!
arv-fake-gv-camera-0.8 -i "$FAKE_ADDRESS" -s BENCH01 >"$WORK/fake.log" 2>&1 &
FAKE_PID=$!

# Both are ready when their GVCP sockets are bound (/proc/net/udp shows little-endian hex).
hex_address() {
    echo "$1" | awk -F. '{ printf "%02X%02X%02X%02X", $4, $3, $2, $1 }'
}
for address in "$CAMSIM_ADDRESS" "$FAKE_ADDRESS"; do
    wanted="$(hex_address "$address"):0F74"
    tries=0
    until grep -q "$wanted" /proc/net/udp; do
        tries=$((tries + 1))
        if [ $tries -gt 100 ]; then
            echo "simulator on $address did not start"; cat "$WORK"/*.log; exit 1
        fi
        sleep 0.1
    done
done

BENCH="$BIN_DIR/korvatin-camsim-bench"
echo "2048 x 2048 Mono8, ${SECONDS_PER_RUN} s per run, $(nproc) CPUs"
"$BENCH" "$CAMSIM_ADDRESS" --label korvatin-camsim --seconds "$SECONDS_PER_RUN" | tee "$WORK/camsim.txt"
"$BENCH" "$FAKE_ADDRESS" --label arv-fake-gv-camera --seconds "$SECONDS_PER_RUN" | tee "$WORK/fake.txt"
# Aravis' simulator does not offer test packets, so it keeps 1500-byte packets; give it the
# packet size korvatin-camsim negotiated too, and compare with its better result.
CAMSIM_PACKET=$(awk '/^RESULT/ { print $5 }' "$WORK/camsim.txt")
"$BENCH" "$FAKE_ADDRESS" --label arv-fake-gv-camera-same-packets --seconds "$SECONDS_PER_RUN" \
    --packet-size "$CAMSIM_PACKET" | tee "$WORK/fake-same.txt"

cat "$WORK/camsim.txt" "$WORK/fake.txt" "$WORK/fake-same.txt" | awk '
    /^RESULT/ { fps[$2] = $3; failed[$2] = $4 }
    END {
        best = fps["arv-fake-gv-camera"]; bestName = "arv-fake-gv-camera"
        if (fps["arv-fake-gv-camera-same-packets"] > best) {
            best = fps["arv-fake-gv-camera-same-packets"]; bestName = "arv-fake-gv-camera-same-packets"
        }
        if (best > 0)
            printf "ratio korvatin-camsim / %s: %.2f (failed frames %d vs %d)\n", bestName,
                fps["korvatin-camsim"] / best, failed["korvatin-camsim"], failed[bestName]
        else
            print "Aravis simulator delivered no frames"
    }'
