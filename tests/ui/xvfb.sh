#!/bin/sh
# Runs one test command under an X server of its own (Xvfb), so that real windows, OpenGL ones
# included (Mesa's software renderer), can be shown and grabbed. Without Xvfb the command runs on
# whatever platform the environment names, and the tests that need a screen skip themselves.
if ! command -v Xvfb >/dev/null 2>&1; then
    echo "xvfb.sh: Xvfb is not installed; running without an X server" >&2
    exec "$@"
fi
try=0
while [ $try -lt 20 ]; do
    try=$((try + 1))
    display=$(( ($$ * 31 + try * 7919) % 4000 + 200 ))
    [ -e "/tmp/.X$display-lock" ] && continue
    Xvfb ":$display" -screen 0 1920x1080x24 -nolisten tcp >/dev/null 2>&1 &
    server=$!
    waited=0
    while [ $waited -lt 100 ] && [ ! -S "/tmp/.X11-unix/X$display" ] && kill -0 $server 2>/dev/null; do
        sleep 0.1
        waited=$((waited + 1))
    done
    if kill -0 $server 2>/dev/null && [ -S "/tmp/.X11-unix/X$display" ]; then
        DISPLAY=":$display" QT_QPA_PLATFORM=xcb "$@"
        status=$?
        kill $server 2>/dev/null
        wait $server 2>/dev/null
        exit $status
    fi
    wait $server 2>/dev/null
done
echo "xvfb.sh: no X server could be started; running without one" >&2
exec "$@"
