// Shared set-up of the streaming tests: a korvatin-camsim camera and a session connected to it.
#include "streamingfixture.h"

#include "loopbackdevice.h"

#include <korvatin/korvatinexception.h>

#include <QFile>

bool StreamingFixture::startCamera(const QString& address, const QStringList& arguments,
                                   QString* error) {
    address_ = address;
    if (!camsim_.startCamsim(QStringList{"--address", address} + arguments)) {
        *error = camsim_.errorString();
        return false;
    }
    return true;
}

std::unique_ptr<CKorvatinCameraViewlane> StreamingFixture::connect(const QByteArray& settingsIni,
                                                                   QString* error) {
    // A file of its own each time: QSettings caches what it read per file name.
    const QString path = dir_.filePath(QString("settings%1.ini").arg(++files_));
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate)) {
        *error = "cannot write " + path;
        return nullptr;
    }
    file.write(settingsIni);
    file.close();
    settings_ = std::make_unique<CAppSettings>(path);
    auto session = std::make_unique<CKorvatinCameraViewlane>(*settings_);
    try {
        session->ConnectDevice(LoopbackDevice(address_.toLatin1().constData()));
    } catch (const std::exception& e) {
        *error = QString("connect to %1 failed: %2").arg(address_, e.what());
        return nullptr;
    }
    return session;
}
