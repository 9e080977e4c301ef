// Helpers of the maintenance dialog tests: a simulated camera to connect to, a job host that
// records what a job reports, and the wait for a dialog's job to end.
#pragma once

#include "uitesthelpers.h"

#include <cameranodesetting.h>
#include <dialogprogressthreadevent.h>
#include <loopbackdevice.h>
#include <maintenancejobhost.h>
#include <simulatorprocess.h>

#include <korvatin/korvatincamera.h>

#include <QMutex>
#include <QMutexLocker>
#include <QPair>
#include <QTest>

#include <functional>
#include <memory>

namespace dialogtest {

// A korvatin-camsim on `address` with a connected SDK camera; both end with the object.
class ConnectedCamsim {
public:
    bool Start(const QString& address, const QStringList& extraArguments = QStringList()) {
        address_ = address;
        if (!camsim_.startCamsim(QStringList{"--address", address} + extraArguments)) {
            error_ = camsim_.errorString();
            return false;
        }
        return Connect();
    }
    bool Connect() {
        try {
            camera_.Connect(LoopbackDevice(address_.toLatin1().constData()), nullptr);
        } catch (const std::exception& e) {
            error_ = e.what();
            return false;
        }
        return true;
    }
    CKorvatinCamera& Camera() { return camera_; }
    SimulatorProcess& Process() { return camsim_; }
    QString Error() const { return error_; }

private:
    // The camera is released before the simulator stops.
    SimulatorProcess camsim_;
    CKorvatinCamera camera_;
    QString address_;
    QString error_;
};

// A write straight to the camera, as viewlane-cli makes it: false with the camera's text.
inline bool WriteDirect(CKorvatinCamera& camera, const TCameraNodeSetting& setting,
                        QString& error) {
    try {
        WriteCameraNodeSetting(camera, setting);
        return true;
    } catch (const std::exception& e) {
        error = e.what();
        return false;
    }
}

// Runs a job on the test's thread and keeps every event it sends; writes go straight to the
// camera unless `write` is set, which then decides each write's fate.
class RecordingHost : public CMaintenanceJobHost {
public:
    explicit RecordingHost(CKorvatinCamera* camera) : camera_(camera) {}

    std::function<bool(const TCameraNodeSetting&, QString&)> write;

    void SendThreadEvent(int event, int, const char* text) override {
        QMutexLocker lock(&mutex_);
        events_.append({event, text != nullptr ? QString(text) : QString()});
    }
    void SendThreadEventNumber(int event, int value) override {
        SendThreadEvent(event, value, QByteArray::number(value).constData());
    }
    bool CameraSet(const TCameraNodeSetting& setting, QString& error) override {
        {
            QMutexLocker lock(&mutex_);
            writes_.append(setting);
        }
        if (write)
            return write(setting, error);
        return WriteDirect(*camera_, setting, error);
    }

    QList<QPair<int, QString>> Events() const {
        QMutexLocker lock(&mutex_);
        return events_;
    }
    QList<TCameraNodeSetting> Writes() const {
        QMutexLocker lock(&mutex_);
        return writes_;
    }
    // The texts of the events with this code, in order.
    QStringList Texts(int event) const {
        QStringList texts;
        for (const auto& e : Events())
            if (e.first == event)
                texts << e.second;
        return texts;
    }
    // The names written, in order ("LUTIndex=3" style with the value text).
    QStringList WrittenNames() const {
        QStringList names;
        for (const TCameraNodeSetting& s : Writes())
            names << QString("%1=%2").arg(s.name, s.valueText);
        return names;
    }

private:
    CKorvatinCamera* camera_;
    mutable QMutex mutex_; // protects events_ and writes_
    QList<QPair<int, QString>> events_;
    QList<TCameraNodeSetting> writes_;
};

// Writes `text` to a file under `dir` named `name`; returns its path.
inline QString WriteFile(const QString& dir, const QString& name, const QByteArray& text) {
    const QString path = dir + "/" + name;
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly))
        return QString();
    file.write(text);
    return path;
}

} // namespace dialogtest
