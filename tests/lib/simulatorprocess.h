// A simulated GigE Vision camera run as a child process for the length of a test.
#pragma once

#include <QProcess>
#include <QString>
#include <QStringList>

#include <memory>

// Starts korvatin-camsim or Aravis' arv-fake-gv-camera-0.8, waits until it answers on its
// address, and stops it when destroyed, also when the test fails half-way.
class SimulatorProcess {
public:
    SimulatorProcess();
    ~SimulatorProcess();
    SimulatorProcess(const SimulatorProcess&) = delete;
    SimulatorProcess& operator=(const SimulatorProcess&) = delete;

    // Runs build/bin/korvatin-camsim with `arguments` and waits for `cameras` lines
    // "listening on ADDR".
    bool startCamsim(const QStringList& arguments, int cameras = 1, int timeoutMs = 15000);

    // Runs arv-fake-gv-camera-0.8 on `address` (added to the loopback interface first when it
    // is not 127.0.0.1) and waits until its GVCP socket is bound.
    bool startAravisFake(const QString& address, const QString& serial = QString(),
                         const QStringList& extraArguments = QStringList(), int timeoutMs = 15000);

    // Asks the simulator to end (SIGTERM) and waits for it; SIGKILL if it does not end.
    void stop();

    // Ends the simulator at once with SIGKILL, as a camera that loses power.
    void kill();

    bool isRunning() const;
    // The simulator's process id, 0 when none runs: for a test that must end it from another
    // thread with kill(2), at an exact point of that thread's work.
    qint64 processId() const { return process_ ? process_->processId() : 0; }
    QString errorString() const { return error_; }
    // Everything the simulator printed so far, standard output and error merged.
    QString output() const;
    // The addresses from the "listening on ADDR" lines, in order.
    QStringList addresses() const;

private:
    bool waitFor(const std::function<bool()>& ready, int timeoutMs);
    static bool udpPortBound(const QString& address, int port);

    std::unique_ptr<QProcess> process_;
    mutable QByteArray output_;
    QString error_;
};
