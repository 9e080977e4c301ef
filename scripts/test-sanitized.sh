#!/usr/bin/env bash
# Runs the SDK and camera-session tests again in build trees of their own: all of them with
# AddressSanitizer and UndefinedBehaviorSanitizer, the threaded session tests with
# ThreadSanitizer. Part of `make test`.
set -euo pipefail
cd "$(dirname "$0")/.."
jobs=${JOBS:-$(nproc)}

# sanitized_run BUILD_DIR SANITIZERS TEST_REGEX
sanitized_run() {
    local build=$1 sanitizers=$2 pattern=$3
    cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Debug \
        -DKORVATIN_SANITIZE="$sanitizers" >/dev/null
    local targets
    mapfile -t targets < <(ninja -C "$build" -t targets all |
        sed -n 's/^\([a-z_]*\): .*/\1/p' | grep -E "$pattern" | sort -u)
    # The simulator the tests talk to is built plainly sanitized too.
    cmake --build "$build" -j "$jobs" --target korvatin-camsim "${targets[@]}"
    (cd "$build" && ctest --output-on-failure -j "$jobs" --timeout 900 -R "$pattern")
}

# GLib keeps its type system and caches for the life of the process by design; buffer leaks are
# checked by the tests' own counters (AllocatedFrameBufferCount) instead of LeakSanitizer.
export ASAN_OPTIONS=detect_leaks=0:abort_on_error=1
export UBSAN_OPTIONS=halt_on_error=1:print_stacktrace=1
sanitized_run build-asan address,undefined '^(tst_sdk[a-z_]*|camera_[a-z_]*)$'

# The tests start simulators with fork+exec from a threaded process, which ThreadSanitizer
# reports as an error unless told the child only execs. A report makes the test exit nonzero.
export TSAN_OPTIONS="die_after_fork=0:suppressions=$PWD/tests/lib/tsan.supp"
sanitized_run build-tsan thread '^camera_[a-z_]*$'
