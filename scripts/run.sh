#!/usr/bin/env bash
# `make run`: starts one simulated camera on the loopback interface, then the viewer; stopping the
# viewer stops the simulator. Discovery is kept on loopback so nothing is broadcast elsewhere.
set -euo pipefail
build=${1:-build}
bin="$build/bin"
address=${KORVATIN_DEMO_ADDRESS:-127.0.0.1}
export KORVATIN_GEV_INTERFACES=lo
# The About box reads the release notes from $KORVATIN_DIR/Release_Notes.txt.
KORVATIN_DIR=$(cd "$(dirname "$0")/.." && pwd)
export KORVATIN_DIR

if [ ! -x "$bin/korvatin-camsim" ]; then
    echo "run: $bin/korvatin-camsim was not built" >&2
    exit 1
fi

log=$(mktemp)
"$bin/korvatin-camsim" --address "$address" >"$log" 2>&1 &
sim=$!
trap 'kill "$sim" 2>/dev/null; wait "$sim" 2>/dev/null || true; rm -f "$log"' EXIT INT TERM

# The simulator says "listening on ADDR" once it answers.
for _ in $(seq 100); do
    grep -q "listening on" "$log" && break
    if ! kill -0 "$sim" 2>/dev/null; then
        echo "run: the simulator did not start:" >&2
        cat "$log" >&2
        exit 1
    fi
    sleep 0.1
done
cat "$log"

if [ -x "$bin/viewlane" ]; then
    "$bin/viewlane"
    exit $?
fi

# Until the window exists, show the simulated camera through the command-line tool.
echo "run: the viewer window is not built yet; showing the simulated camera with viewlane-cli"
"$bin/viewlane-cli" list --timeout 500
serial=$("$bin/viewlane-cli" list --timeout 500 | awk -F'\t' -v a="$address" '$3 == a { print $2; exit }')
if [ -n "$serial" ]; then
    "$bin/viewlane-cli" tree "$serial"
fi
echo "run: the simulator keeps running on $address; press Ctrl-C to stop it"
wait "$sim"
