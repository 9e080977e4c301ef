// Periodic device discovery on a thread of its own, results handed to the GUI thread.
#pragma once

#include <korvatin/gigevisiondeviceinfo.h>

#include <QMutex>
#include <QThread>
#include <QWaitCondition>

#include <atomic>
#include <cstdint>

// Lists the GigE Vision devices every kPeriodMs and emits each result as a heap copy of its own.
// The owner may pause discovery around operations that must not overlap with a discovery
// broadcast (SetDiscovery), and ends the thread with stop() followed by wait().
class DeviceDiscoveryThread : public QThread {
    Q_OBJECT
public:
    static constexpr unsigned long kPeriodMs = 5000;
    static constexpr unsigned int kMaxDevices = 50;

    // The settings are copied; the interface address text they point to is not, so it must
    // stay valid (and unchanged during a pass) for as long as the thread runs.
    explicit DeviceDiscoveryThread(const ListDevicesSettings& settings);
    ~DeviceDiscoveryThread() override;

    // GUI thread. Turns discovery on or off and takes a new copy of the settings. Turning it off
    // with waitForIdle set returns only after a discovery pass in progress has finished; no pass
    // starts after that until discovery is turned on again.
    void SetDiscovery(bool enabled, const ListDevicesSettings& settings, bool waitForIdle);

    // GUI thread. Ends the thread: at once when it waits for its next pass, right after the
    // discovery call returns when one is running (that result is dropped). Follow with wait().
    void stop();

    // GUI thread. The next discovery result is thrown away, as when the owner has just emptied
    // its device table and a result gathered before that must not refill it.
    void SkipNextResult() { m_skipNextResult = true; }

    // GUI thread. Changes only the time-out of the settings copy, leaving discovery on or off:
    // used around a connect, which wants a longer time-out from the passes that overlap it.
    void SetDiscoveryTimeout(int32_t timeoutMs);
    int32_t DiscoveryTimeout();

    bool IsEnabled() const { return m_enabled; }

signals:
    // Emitted on the discovery thread after each pass that is not dropped, also with count 0.
    // deviceInfos was allocated with new[] for this emission alone; the receiver owns it and
    // frees it with delete[].
    void devicesDiscovered(const GigEVisionDeviceInfo* deviceInfos, int count);

protected:
    void run() override;

private:
    // Held by the thread for its whole run except while it waits for the next pass; stop()
    // takes it so that its wake-up cannot fall between the thread's last check and its wait.
    QMutex m_waitMutex;
    // Held only while ListDevices runs, so that SetDiscovery can wait for a pass to finish.
    QMutex m_listMutex;
    // Signalled only to end the thread.
    QWaitCondition m_wakeCondition;

    // Flags written by one thread and read by the other; atomic so that each read sees a whole
    // value, no ordering beyond that is relied on.
    std::atomic<bool> m_skipNextResult{false};
    // Cleared by stop() alone: a stop that comes before the thread has begun to run (a window
    // closed as soon as it opened) still ends it.
    std::atomic<bool> m_running{true};
    std::atomic<bool> m_enabled{true};

    // Guards m_settings. Each pass copies it under the mutex and discovers with the copy, so a
    // write never overlaps a running ListDevices.
    QMutex m_settingsMutex;
    ListDevicesSettings m_settings;
};
