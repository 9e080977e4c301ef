// Shared set-up of the streaming tests: a korvatin-camsim camera and a session connected to it.
#include "streamingfixture.h"

#include <korvatin/korvatinexception.h>

#include <QFile>

#include <cstring>

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
        session->ConnectDevice(loopbackDevice(address_));
    } catch (const std::exception& e) {
        *error = QString("connect to %1 failed: %2").arg(address_, e.what());
        return nullptr;
    }
    return session;
}

GigEVisionDeviceInfo StreamingFixture::loopbackDevice(const QString& address) {
    GigEVisionDeviceInfo info;
    std::memset(&info, 0, sizeof(info));
    const QByteArray ip = address.toLatin1();
    std::strncpy(info.currentIp, ip.constData(), sizeof(info.currentIp) - 1);
    std::strncpy(info.currentSubnetMask, "255.0.0.0", sizeof(info.currentSubnetMask) - 1);
    std::strncpy(info.hostInterfaceAddress, "127.0.0.1", sizeof(info.hostInterfaceAddress) - 1);
    std::strncpy(info.hostInterfaceName, "lo", sizeof(info.hostInterfaceName) - 1);
    std::strncpy(info.macAddress, "00-00-00-00-00-00", sizeof(info.macAddress) - 1);
    return info;
}
