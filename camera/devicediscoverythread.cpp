// Periodic device discovery on a thread of its own, results handed to the GUI thread.
#include "devicediscoverythread.h"

#include "metatypes.h"

#include <korvatin/korvatincamera.h>

#include <QMetaMethod>
#include <QMutexLocker>

#include <algorithm>
#include <cstring>
#include <exception>
#include <memory>

DeviceDiscoveryThread::DeviceDiscoveryThread(const ListDevicesSettings& settings)
    : QThread(nullptr), m_settings(settings) {
    RegisterCameraMetaTypes();
}

DeviceDiscoveryThread::~DeviceDiscoveryThread() = default;

void DeviceDiscoveryThread::SetDiscovery(bool enabled, const ListDevicesSettings& settings,
                                         bool waitForIdle) {
    m_enabled = enabled;
    {
        QMutexLocker lock(&m_settingsMutex);
        m_settings = settings;
    }
    if (!enabled && waitForIdle) {
        // A pass in progress holds the list mutex until ListDevices has returned.
        m_listMutex.lock();
        m_listMutex.unlock();
    }
}

void DeviceDiscoveryThread::SetDiscoveryTimeout(int32_t timeoutMs) {
    QMutexLocker lock(&m_settingsMutex);
    m_settings.timeoutMs = timeoutMs;
}

int32_t DeviceDiscoveryThread::DiscoveryTimeout() {
    QMutexLocker lock(&m_settingsMutex);
    return m_settings.timeoutMs;
}

void DeviceDiscoveryThread::stop() {
    m_running = false;
    QMutexLocker lock(&m_waitMutex);
    m_wakeCondition.wakeAll();
}

void DeviceDiscoveryThread::run() {
    std::unique_ptr<GigEVisionDeviceInfo[]> buffer(new GigEVisionDeviceInfo[kMaxDevices]);
    QMutexLocker waitLock(&m_waitMutex);

    for (;;) {
        // Stopped before the first pass: none is made.
        if (!m_running)
            return;
        if (m_enabled) {
            unsigned int count = 0;
            bool listed = false;
            ListDevicesSettings settings;
            {
                // Waits for a settings write in progress; the pass then works on what it found,
                // so a write during the pass takes effect with the next one.
                QMutexLocker settingsLock(&m_settingsMutex);
                settings = m_settings;
            }
            {
                QMutexLocker listLock(&m_listMutex);
                // Checked again under the list mutex: once SetDiscovery(false, ..., true) has
                // returned, no pass may start.
                if (m_enabled) {
                    try {
                        CKorvatinCamera::ListDevices(buffer.get(), kMaxDevices, &count, &settings);
                        listed = true;
                    } catch (const std::exception&) {
                        // Deliberately silent: the owner keeps its last result until a later
                        // pass succeeds.
                    }
                }
            }
            if (listed) {
                if (m_skipNextResult || !m_running) {
                    m_skipNextResult = false;
                } else if (isSignalConnected(QMetaMethod::fromSignal(
                               &DeviceDiscoveryThread::devicesDiscovered))) {
                    // Without a receiver nobody would own the copy, so none is made.
                    const unsigned int found = std::min(count, kMaxDevices);
                    GigEVisionDeviceInfo* block = new GigEVisionDeviceInfo[found];
                    std::memcpy(static_cast<void*>(block), buffer.get(),
                                found * sizeof(GigEVisionDeviceInfo));
                    emit devicesDiscovered(block, int(found));
                }
            }
        }
        if (!m_running)
            return;
        const bool woken = m_wakeCondition.wait(&m_waitMutex, kPeriodMs);
        if (woken || !m_running)
            return;
    }
}
