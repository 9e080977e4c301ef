// Shared set-up of the streaming tests: a korvatin-camsim camera and a session connected to it.
#pragma once

#include "appsettings.h"
#include "korvatincameraviewlane.h"
#include "simulatorprocess.h"

#include <korvatin/gigevisiondeviceinfo.h>

#include <QByteArray>
#include <QString>
#include <QTemporaryDir>

#include <memory>

// One simulated camera for a whole test class, and a fresh settings file and session per test.
class StreamingFixture {
public:
    // Starts korvatin-camsim on `address` with the given extra arguments; false with `error` set
    // when it does not come up.
    bool startCamera(const QString& address, const QStringList& arguments, QString* error);
    void stopCamera() { camsim_.stop(); }

    // A session made from a settings file with `settingsIni` as its contents, connected to the
    // camera; null with `error` set when the connect fails.
    std::unique_ptr<CKorvatinCameraViewlane> connect(const QByteArray& settingsIni, QString* error);

    QString tempPath(const QString& name) const { return dir_.filePath(name); }

private:
    SimulatorProcess camsim_;
    QString address_;
    QTemporaryDir dir_;
    std::unique_ptr<CAppSettings> settings_;
    int files_ = 0;
};
