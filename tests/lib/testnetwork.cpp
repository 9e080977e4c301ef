// Test environment helpers: where the built programs are, and private loopback addresses.
#include "testnetwork.h"

#include <QCoreApplication>
#include <QDir>
#include <QProcess>
#include <QtGlobal>

bool TestNetwork::isIsolated() {
    return qEnvironmentVariable("KORVATIN_TEST_NETNS") == "1";
}

bool TestNetwork::addLoopbackAddress(const QString& address, QString* error) {
    auto fail = [error](const QString& text) {
        if (error)
            *error = text;
        return false;
    };
    if (address == "127.0.0.1")
        return true;
    if (!isIsolated())
        return fail("adding loopback address " + address +
                    " needs a private network namespace (run the test as root through ctest)");
    QProcess ip;
    ip.start("ip", {"addr", "add", address + "/32", "dev", "lo"});
    if (!ip.waitForFinished(10000))
        return fail("ip addr add " + address + " did not finish");
    const QString err = QString::fromLocal8Bit(ip.readAllStandardError());
    if (ip.exitCode() != 0 && !err.contains("File exists") && !err.contains("already assigned"))
        return fail("ip addr add " + address + " failed: " + err.trimmed());
    return true;
}

QString TestNetwork::binDir() {
    const QString dir = qEnvironmentVariable("KORVATIN_BIN_DIR");
    if (!dir.isEmpty())
        return dir;
    return QDir(QCoreApplication::applicationDirPath() + "/../bin").absolutePath();
}

QString TestNetwork::sourceDir() {
    const QString dir = qEnvironmentVariable("KORVATIN_SOURCE_DIR");
    if (!dir.isEmpty())
        return dir;
    return QDir(QCoreApplication::applicationDirPath() + "/../..").absolutePath();
}
