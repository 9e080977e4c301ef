#!/bin/sh
# Runs one test executable in a network namespace of its own when this user may create one, so
# that its simulated cameras, its discovery broadcasts and GVCP port 3956 are private to it and
# tests can run side by side. Elsewhere the test runs on the shared loopback interface and the
# tests that need a private network skip themselves, saying why.
if [ "$(id -u)" = 0 ] && command -v unshare >/dev/null 2>&1 && command -v ip >/dev/null 2>&1 \
    && unshare -n true 2>/dev/null; then
    exec unshare -n sh -c 'ip link set lo up && KORVATIN_TEST_NETNS=1 exec "$@"' sh "$@"
fi
exec "$@"
