// A simulated GigE Vision camera run as a child process for the length of a test.
#include "simulatorprocess.h"

#include "testnetwork.h"

#include <QFile>
#include <QRegularExpression>
#include <QtTest>

#include <functional>

#include <signal.h>
#include <sys/prctl.h>

SimulatorProcess::SimulatorProcess() = default;

namespace {
// A simulator must not outlive a test that crashed or was killed: the kernel ends it with its
// parent.
std::unique_ptr<QProcess> newSimulatorProcess() {
    auto process = std::make_unique<QProcess>();
    process->setProcessChannelMode(QProcess::MergedChannels);
    process->setChildProcessModifier([] { prctl(PR_SET_PDEATHSIG, SIGKILL); });
    return process;
}
} // namespace

SimulatorProcess::~SimulatorProcess() {
    stop();
}

bool SimulatorProcess::waitFor(const std::function<bool()>& ready, int timeoutMs) {
    return QTest::qWaitFor(
               [&] {
                   if (process_->state() == QProcess::NotRunning)
                       return true;
                   output_ += process_->readAll();
                   return ready();
               },
               timeoutMs) &&
           process_->state() != QProcess::NotRunning && ready();
}

bool SimulatorProcess::startCamsim(const QStringList& arguments, int cameras, int timeoutMs) {
    stop();
    const QString program = TestNetwork::binDir() + "/korvatin-camsim";
    process_ = newSimulatorProcess();
    process_->start(program, arguments);
    if (!process_->waitForStarted(timeoutMs)) {
        error_ = "cannot start " + program + ": " + process_->errorString();
        return false;
    }
    if (!waitFor([&] { return addresses().size() >= cameras; }, timeoutMs)) {
        error_ = "korvatin-camsim " + arguments.join(' ') +
                 " did not report ready; it printed: " + output();
        return false;
    }
    return true;
}

bool SimulatorProcess::startAravisFake(const QString& address, const QString& serial,
                                       const QStringList& extraArguments, int timeoutMs) {
    stop();
    if (!TestNetwork::addLoopbackAddress(address, &error_))
        return false;
    QStringList arguments{"-i", address};
    if (!serial.isEmpty())
        arguments << "-s" << serial;
    arguments << extraArguments;
    process_ = newSimulatorProcess();
    process_->start("arv-fake-gv-camera-0.8", arguments);
    if (!process_->waitForStarted(timeoutMs)) {
        error_ = "cannot start arv-fake-gv-camera-0.8: " + process_->errorString();
        return false;
    }
    if (!waitFor([&] { return udpPortBound(address, 3956); }, timeoutMs)) {
        error_ = "arv-fake-gv-camera-0.8 on " + address +
                 " did not bind its port; it printed: " + output();
        return false;
    }
    return true;
}

void SimulatorProcess::stop() {
    if (!process_)
        return;
    if (process_->state() != QProcess::NotRunning) {
        process_->terminate();
        if (!process_->waitForFinished(5000)) {
            process_->kill();
            process_->waitForFinished(5000);
        }
    }
    output_ += process_->readAll();
    process_.reset();
}

void SimulatorProcess::kill() {
    if (!process_ || process_->state() == QProcess::NotRunning)
        return;
    process_->kill();
    process_->waitForFinished(5000);
}

bool SimulatorProcess::isRunning() const {
    return process_ && process_->state() != QProcess::NotRunning;
}

QString SimulatorProcess::output() const {
    if (process_)
        output_ += process_->readAll();
    return QString::fromLocal8Bit(output_);
}

QStringList SimulatorProcess::addresses() const {
    QStringList result;
    static const QRegularExpression line("listening on ([0-9.]+)");
    auto it = line.globalMatch(output());
    while (it.hasNext())
        result << it.next().captured(1);
    return result;
}

// /proc/net/udp lists bound sockets as "HEXADDR:HEXPORT", the address in host byte order.
bool SimulatorProcess::udpPortBound(const QString& address, int port) {
    QFile file("/proc/net/udp");
    if (!file.open(QIODevice::ReadOnly))
        return false;
    const QStringList octets = address.split('.');
    if (octets.size() != 4)
        return false;
    // The kernel prints the network-order address as a little-endian number: octets reversed.
    QString wanted;
    for (int i = 3; i >= 0; --i)
        wanted += QString("%1").arg(octets[i].toInt(), 2, 16, QLatin1Char('0'));
    wanted += QString(":%1").arg(port, 4, 16, QLatin1Char('0'));
    wanted = wanted.toUpper();
    return QString::fromLatin1(file.readAll()).toUpper().contains(wanted);
}
