// Test environment helpers: where the built programs are, and private loopback addresses.
#pragma once

#include <QString>

class TestNetwork {
public:
    // True when the test runs in a network namespace of its own (see isolated.sh): it may then
    // add loopback addresses and expect to be alone on GVCP port 3956.
    static bool isIsolated();

    // Adds `address`/32 to the loopback interface, as programs that bind to an interface address
    // (Aravis' simulator) need. Only done inside a private namespace; false with `error` set
    // otherwise or when `ip` fails. An address already present is success.
    static bool addLoopbackAddress(const QString& address, QString* error = nullptr);

    // Directory of the project's built programs (korvatin-camsim, viewlane-cli).
    static QString binDir();

    // Root of the source tree, for test data.
    static QString sourceDir();
};
