// viewlane-cli doctor against a host of the test's own: a network namespace whose loopback MTU
// the test sets, and a folder that stands for /proc/sys (net.core.rmem_max is the system's, not
// the namespace's, so it cannot be made small here).
#include "aravisreference.h"
#include "clirun.h"
#include "simulatorprocess.h"
#include "testnetwork.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QtTest>

#include <cmath>

namespace {

const char* const kAddress = "127.0.22.2";
constexpr qint64 kMiB = 1024 * 1024;

// What a stream asks of net.core.rmem_max: two frames, or 100 ms of the stream when that is
// more.
qint64 receiveBufferNeed(qint64 payload, double fps) {
    return std::max<qint64>(2 * payload, qint64(std::ceil(payload * fps / 10.0)));
}

// The same rounded up to whole MiB, as the fixing command gives it.
qint64 advisedReceiveBuffer(qint64 payload, double fps) {
    return (receiveBufferNeed(payload, fps) + kMiB - 1) / kMiB * kMiB;
}

} // namespace

class TestViewlaneCliDoctor : public QObject {
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanup();

    void doctorFindsASmallReceiveBufferASmallMtuAndAStrictFilter();
    void doctorPassesAWellSetHostWhileAnotherHostControlsTheCamera();
    void doctorWithoutDeviceMeasuresAFiveMegapixelCameraAt60Fps();
    void doctorFindsAFirewallRuleThatDropsUdp();
    void doctorOfAnUnknownDeviceFailsWithOneLine();

private:
    // Writes the files of the stand-in for /proc/sys.
    void setHost(qint64 rmemMax, int rpFilterAll, int rpFilterLo);
    static bool setLoopbackMtu(int mtu);

    QTemporaryDir m_dir;
    SimulatorProcess m_camsim;
};

void TestViewlaneCliDoctor::initTestCase() {
    if (!TestNetwork::isIsolated())
        QSKIP("doctor is tested in a private network namespace only (run through ctest as "
              "root): the test changes the loopback interface's MTU");
    QVERIFY(m_dir.isValid());
    QVERIFY2(m_camsim.startCamsim({"--address", kAddress}), qPrintable(m_camsim.errorString()));
    qputenv("KORVATIN_HOST_PROC_SYS", m_dir.filePath("sys").toLocal8Bit());
}

void TestViewlaneCliDoctor::cleanup() {
    setLoopbackMtu(65536);
}

void TestViewlaneCliDoctor::setHost(qint64 rmemMax, int rpFilterAll, int rpFilterLo) {
    const QString root = m_dir.filePath("sys");
    const auto write = [&](const QString& path, const QByteArray& value) {
        QVERIFY(QDir().mkpath(QFileInfo(root + '/' + path).absolutePath()));
        QFile file(root + '/' + path);
        QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
        file.write(value + '\n');
    };
    write("net/core/rmem_max", QByteArray::number(rmemMax));
    write("net/ipv4/conf/all/rp_filter", QByteArray::number(rpFilterAll));
    write("net/ipv4/conf/lo/rp_filter", QByteArray::number(rpFilterLo));
}

bool TestViewlaneCliDoctor::setLoopbackMtu(int mtu) {
    return QProcess::execute("ip", {"link", "set", "dev", "lo", "mtu", QString::number(mtu)}) == 0;
}

void TestViewlaneCliDoctor::doctorFindsASmallReceiveBufferASmallMtuAndAStrictFilter() {
    const qint64 payload = RunCli({"get", kAddress, "PayloadSize"}).out.trimmed().toLongLong();
    const double fps = RunCli({"get", kAddress, "FrameRate"}).out.trimmed().toDouble();
    QVERIFY(payload > 0 && fps > 0);
    const qint64 advised = advisedReceiveBuffer(payload, fps);
    setHost(212992, 0, 1);
    QVERIFY(setLoopbackMtu(1400));

    const CliRun run = RunCli({"doctor", kAddress});
    QCOMPARE(run.exitCode, 1);
    QCOMPARE(run.errLines, QStringList());
    const QStringList lines = run.out.split('\n', Qt::SkipEmptyParts);
    QVERIFY2(lines.contains("receive buffer limit (net.core.rmem_max): PROBLEM"),
             qPrintable(run.out));
    QVERIFY(lines.contains("  found:     212992 bytes"));
    QVERIFY2(run.out.contains(QString("  should be: at least %1 bytes: two frames or 100 ms of ")
                                  .arg(receiveBufferNeed(payload, fps))),
             qPrintable(run.out));
    QVERIFY(run.out.contains(QString("  fix:       sysctl -w net.core.rmem_max=%1 and, to keep "
                                     "it, echo net.core.rmem_max=%1 > "
                                     "/etc/sysctl.d/60-korvatin-viewlane.conf\n")
                                 .arg(advised)));

    const int mtu = int(lines.indexOf("MTU of lo (jumbo frames): PROBLEM"));
    QVERIFY2(mtu >= 0, qPrintable(run.out));
    QCOMPARE(lines[mtu + 1], QString("  found:     1400 bytes"));
    QVERIFY2(lines[mtu + 2].startsWith("  should be: at least 9000 bytes: the device sends packets "
                                       "of up to 65500 bytes"),
             qPrintable(lines[mtu + 2]));
    QVERIFY(lines[mtu + 3].startsWith("  fix:       ip link set dev lo mtu 9000"));

    const int filter =
        int(lines.indexOf("reverse-path filter (net.ipv4.conf.lo.rp_filter): PROBLEM"));
    QVERIFY2(filter >= 0, qPrintable(run.out));
    QCOMPARE(lines[filter + 1], QString("  found:     1 (strict), from lo 1 and all 0"));
    QCOMPARE(lines[filter + 3], QString("  fix:       sysctl -w net.ipv4.conf.all.rp_filter=2 "
                                        "net.ipv4.conf.lo.rp_filter=2"));

    QVERIFY(lines.contains("firewall rules that drop UDP: ok") ||
            lines.contains("firewall rules that drop UDP: not checked"));
    QCOMPARE(lines.last(), QString("3 problems found: frames may be lost on this host."));
}

void TestViewlaneCliDoctor::doctorPassesAWellSetHostWhileAnotherHostControlsTheCamera() {
    setHost(64 * kMiB, 0, 2);
    AravisReference otherHost;
    QString error;
    QVERIFY2(otherHost.open(kAddress, &error), qPrintable(error));

    const CliRun run = RunCli({"doctor", kAddress});
    QVERIFY2(run.exitCode == 0, qPrintable(run.out + run.errLines.join(" | ")));
    QCOMPARE(run.errLines, QStringList());
    const QStringList lines = run.out.split('\n', Qt::SkipEmptyParts);
    QVERIFY(lines.contains("receive buffer limit (net.core.rmem_max): ok"));
    QVERIFY(lines.contains(QString("  found:     %1 bytes").arg(64 * kMiB)));
    QVERIFY(lines.contains("MTU of lo (jumbo frames): ok"));
    QVERIFY(lines.contains("  found:     65536 bytes"));
    QVERIFY(lines.contains("reverse-path filter (net.ipv4.conf.lo.rp_filter): ok"));
    QVERIFY(lines.contains("  found:     2 (loose), from lo 2 and all 0"));
    QVERIFY(!run.out.contains("fix:"));
    QCOMPARE(lines.last(), QString("No problem found."));
}

void TestViewlaneCliDoctor::doctorWithoutDeviceMeasuresAFiveMegapixelCameraAt60Fps() {
    // 2592 x 1944 bytes at 60 fps: 100 ms of it is more than two frames.
    const qint64 need = receiveBufferNeed(2592 * 1944, 60);
    QCOMPARE(need, 2592 * 1944 * 6);
    const qint64 advised = advisedReceiveBuffer(2592 * 1944, 60);
    QCOMPARE(advised, 29 * kMiB);
    setHost(need, 0, 0);
    const CliRun enough = RunCli({"doctor"});
    QVERIFY2(enough.exitCode == 0, qPrintable(enough.out));
    QVERIFY(enough.out.contains("MTU (jumbo frames): not checked\n  found:     no device named\n"));

    setHost(need - 1, 0, 0);
    const CliRun small = RunCli({"doctor"});
    QCOMPARE(small.exitCode, 1);
    QVERIFY2(small.out.startsWith(QString("receive buffer limit (net.core.rmem_max): PROBLEM\n"
                                          "  found:     %1 bytes\n"
                                          "  should be: at least %2 bytes: two frames or 100 ms "
                                          "of 5.0 MB frames at 60.0 fps of a 5-megapixel camera "
                                          "at 60 fps, whichever is more\n"
                                          "  fix:       sysctl -w net.core.rmem_max=%3 ")
                                      .arg(need - 1)
                                      .arg(need)
                                      .arg(advised)),
             qPrintable(small.out));
    QVERIFY(small.out.endsWith("1 problem found: frames may be lost on this host.\n"));
}

void TestViewlaneCliDoctor::doctorFindsAFirewallRuleThatDropsUdp() {
    if (QStandardPaths::findExecutable("nft", {"/usr/sbin", "/sbin"}).isEmpty())
        QSKIP("nft is not installed (scripts/install-deps.sh installs nftables)");
    setHost(64 * kMiB, 0, 0);
    // A rule in this test's own namespace that drops UDP from a port the camera does not use,
    // so the doctor's own connection still gets through.
    const auto nft = [](const QStringList& arguments) {
        return QProcess::execute("nft", arguments) == 0;
    };
    QVERIFY(nft({"add", "table", "inet", "doctortest"}));
    QVERIFY(nft({"add", "chain", "inet", "doctortest", "input",
                 "{ type filter hook input priority 0; policy accept; }"}));
    QVERIFY(nft({"add", "rule", "inet", "doctortest", "input", "udp", "sport", "20202", "drop"}));

    const CliRun run = RunCli({"doctor", kAddress});
    QVERIFY(nft({"delete", "table", "inet", "doctortest"}));
    QCOMPARE(run.exitCode, 1);
    QVERIFY2(run.out.contains("firewall rules that drop UDP: PROBLEM\n"
                              "  found:     udp sport 20202 drop (chain input of table inet "
                              "doctortest)\n"
                              "  should be: no rule that drops the camera's UDP packets\n"
                              "  fix:       nft insert rule inet doctortest input ip saddr " +
                              QString(kAddress) + " meta l4proto udp accept\n"),
             qPrintable(run.out));
    QVERIFY(run.out.endsWith("1 problem found: frames may be lost on this host.\n"));

    const CliRun clean = RunCli({"doctor", kAddress});
    QVERIFY2(clean.out.contains("firewall rules that drop UDP: ok\n"), qPrintable(clean.out));
    QCOMPARE(clean.exitCode, 0);
}

void TestViewlaneCliDoctor::doctorOfAnUnknownDeviceFailsWithOneLine() {
    const CliRun run = RunCli({"doctor", "999999999", "--timeout", "200"});
    QCOMPARE(run.exitCode, 1);
    QCOMPARE(run.out, QString());
    QCOMPARE(run.errLines.size(), 1);
    QVERIFY(run.errLines[0].startsWith("viewlane-cli: unknown device \"999999999\""));
}

QTEST_GUILESS_MAIN(TestViewlaneCliDoctor)
#include "tst_viewlaneclidoctor.moc"
