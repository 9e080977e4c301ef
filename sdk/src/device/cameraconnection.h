// One open control connection to a GigE Vision device through Aravis, with its description.
#pragma once

#include "genicamdescription.h"
#include "gobjectref.h"
#include "korvatin/gigevisiondeviceinfo.h"

#include <arv.h>

#include <condition_variable>
#include <memory>
#include <mutex>
#include <thread>

namespace korvatin {

// Tells the application once that the device is gone. Shared by the Aravis signal handler and
// the connection's watchdog thread, so it lives as long as either may still call it.
class ConnectionLostNotifier {
public:
    using Callback = void (*)(void* context, void* reserved);
    void Set(Callback callback, void* context);
    // Calls the callback unless it already ran or the connection was closed. Runs on Aravis'
    // heartbeat thread or on the watchdog thread, never on the application's.
    void Fire();
    // True once the loss was seen (whether or not a callback was set).
    bool Fired();
    // After Disable returns no call is running and none will start.
    void Disable();

private:
    std::mutex mutex_; // guards every member below, and is held while the callback runs
    Callback callback_ = nullptr;
    void* context_ = nullptr;
    bool fired_ = false;
    bool enabled_ = true;
};

// Opening takes control of the device (or, for reading only, does without when another host
// holds it) and
// loads its GenICam description; destruction detaches the description, stops the watchdog,
// gives control back when it was held and closes the socket.
class CameraConnection {
public:
    struct Options {
        int32_t gvcpTimeoutUnits = 5; // control-channel time-out, 100 ms each
        bool heartbeatDisable = false;
        const char* xmlPath = nullptr; // description file instead of the device's own
        // False: the connection only reads, so a device another host controls is opened all
        // the same, without control.
        bool control = true;
    };

    CameraConnection(const GigEVisionDeviceInfo& device, const Options& options);
    ~CameraConnection();
    CameraConnection(const CameraConnection&) = delete;
    CameraConnection& operator=(const CameraConnection&) = delete;

    const GigEVisionDeviceInfo& Info() const { return info_; }
    int XmlIndex() const { return xmlIndex_; }
    const std::shared_ptr<GenicamDescription>& Description() const { return description_; }
    ArvDevice* Device() const { return device_.Get(); }
    bool HoldsControl() const { return holdsControl_; }

    // Replaces the description with the one in `path`; the old one is detached.
    void LoadDescriptionFile(const char* path);
    void SetLostCallback(ConnectionLostNotifier::Callback callback, void* context);
    // True once the device was seen gone.
    bool IsLost() const { return lostNotifier_->Fired(); }
    // For a device that is gone: makes further control transfers (closing a stream writes a
    // register) give up at once instead of retrying for seconds.
    void GiveUpIfLost();
    // For a device that was told to restart: it gives control up by itself and stops
    // answering for a while, so the connection no longer reports it lost, and closing neither
    // gives control back nor waits for it.
    void ForgetControl();

private:
    void LoadDescriptionFromDevice();
    void ApplyHeartbeatDisable(bool disable);
    void WatchControl();
    // On the watchdog, when the device is seen gone: detaches the description, so that every
    // access fails at once with "not connected", and cuts the control channel's retries short.
    void MarkGone();

    GigEVisionDeviceInfo info_;
    GObjectRef<ArvDevice> device_;
    std::shared_ptr<GenicamDescription> description_;
    int xmlIndex_ = 0;
    std::shared_ptr<ConnectionLostNotifier> lostNotifier_;
    gulong controlLostHandler_ = 0;
    bool timeoutControl_ = false; // whether the control-channel time-out could be set
    bool restarting_ = false;     // set by ForgetControl
    bool holdsControl_ = false;   // set once while opening
    // Guards the replacement of description_ against the watchdog's MarkGone, and gone_.
    std::mutex descriptionMutex_;
    bool gone_ = false; // MarkGone ran: a description loaded afterwards is detached too

    std::thread watchdog_;
    std::mutex watchdogMutex_; // guards stopping_
    std::condition_variable watchdogWake_;
    bool stopping_ = false;
};

} // namespace korvatin
