# Shell functions shared by the benchmark scripts: a private network, and a korvatin-camsim
# started and stopped around a measurement. Source it after setting BIN_DIR and WORK_DIR.

# bench_private_network SCRIPT ARGS...: runs SCRIPT again with ARGS in a network namespace of
# its own, with loopback up, when this user may create one; returns when it may not (or when
# already inside one), so that the caller goes on where it is.
bench_private_network() {
    if [ "${KORVATIN_BENCH_INSIDE:-}" != 1 ] && [ "$(id -u)" = 0 ] \
        && command -v unshare >/dev/null 2>&1 && unshare -n true 2>/dev/null; then
        exec unshare -n env KORVATIN_BENCH_INSIDE=1 sh -c 'ip link set lo up && exec "$@"' sh "$@"
    fi
}

# bench_gvcp_socket ADDRESS: the address' GVCP socket as /proc/net/udp shows it (little-endian
# hex address, port 3956).
bench_gvcp_socket() {
    echo "$1" | awk -F. '{ printf "%02X%02X%02X%02X:0F74", $4, $3, $2, $1 }'
}

# bench_start_camsim ADDRESS [camsim options...]: starts korvatin-camsim on ADDRESS in the
# background (CAMSIM_PID, output in WORK_DIR/camsim.log) and waits until its GVCP socket is
# bound; exits the script when it does not start.
bench_start_camsim() {
    bench_address=$1
    shift
    "$BIN_DIR/korvatin-camsim" --address "$bench_address" "$@" >"$WORK_DIR/camsim.log" 2>&1 &
    CAMSIM_PID=$!
    bench_socket=$(bench_gvcp_socket "$bench_address")
    bench_tries=0
    until grep -q "$bench_socket" /proc/net/udp; do
        bench_tries=$((bench_tries + 1))
        if [ $bench_tries -gt 100 ]; then
            echo "korvatin-camsim did not start"; cat "$WORK_DIR/camsim.log"; exit 1
        fi
        sleep 0.1
    done
}

# bench_stop_camsim ADDRESS: stops the simulator started last and waits until its socket is
# gone, so that the next one can bind it.
bench_stop_camsim() {
    kill "$CAMSIM_PID" 2>/dev/null
    wait "$CAMSIM_PID" 2>/dev/null
    CAMSIM_PID=
    bench_socket=$(bench_gvcp_socket "$1")
    while grep -q "$bench_socket" /proc/net/udp; do sleep 0.1; done
}

# bench_prepare [LEFTOVERS]: makes WORK_DIR, and when the script ends or is interrupted stops the
# simulator it started and removes the files matching LEFTOVERS (a pattern under WORK_DIR).
bench_prepare() {
    mkdir -p "$WORK_DIR" || exit 1
    CAMSIM_PID=
    BENCH_LEFTOVERS=${1:-}
    trap bench_cleanup EXIT INT TERM
}

bench_cleanup() {
    if [ -n "$CAMSIM_PID" ]; then
        kill "$CAMSIM_PID" 2>/dev/null
    fi
    wait 2>/dev/null
    if [ -n "$BENCH_LEFTOVERS" ]; then
        rm -f "$WORK_DIR"/$BENCH_LEFTOVERS
    fi
}
