// One open control connection to a GigE Vision device through Aravis, with its description.
#include "cameraconnection.h"

#include "genicamloader.h"
#include "korvatin/korvatincamera.h"
#include "korvatin/korvatinexception.h"
#include "korvatin/korvatingigevision.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <string>

namespace korvatin {

namespace {

constexpr uint16_t kGvcpPort = 3956;
// Control-channel time-out used while closing a connection to a device that is gone.
constexpr unsigned int kGoneTimeoutMs = 10;
constexpr auto kProbeTimeout = std::chrono::milliseconds(250);
constexpr guint32 kPrivilegeControl = 0x2;
constexpr guint32 kPrivilegeExclusive = 0x1;
constexpr auto kWatchPeriod = std::chrono::milliseconds(500);
// How long the device may stay silent before the connection counts as lost. GigE Vision's
// default heartbeat time-out is 3 s, after which the device gives control away anyway; a loss
// is to be known within that time of the device's last answer, so the limit leaves room for a
// probe period and a probe's time-out: silent probes end 0.75 s apart, and the loss is seen
// 2.25 s after the last answer.
constexpr auto kSilenceLimit = std::chrono::milliseconds(2000);

QRN_ERROR codeOf(const GError* error) {
    if (error != nullptr && error->domain == ARV_DEVICE_ERROR) {
        switch (error->code) {
        case ARV_DEVICE_ERROR_TIMEOUT:
            return QRN_ERR_TIMEOUT;
        case ARV_DEVICE_ERROR_GENICAM_NOT_FOUND:
        case ARV_DEVICE_ERROR_NOT_FOUND:
            return QRN_ERR_NOT_FOUND;
        case ARV_DEVICE_ERROR_INVALID_PARAMETER:
            return QRN_ERR_INVALID;
        default:
            break;
        }
    }
    return QRN_ERR_IO;
}

GObjectRef<GInetAddress> inetAddress(const char* text, const char* what) {
    auto address = GObjectRef<GInetAddress>::Adopt(g_inet_address_new_from_string(text));
    if (!address || g_inet_address_get_family(address.Get()) != G_SOCKET_FAMILY_IPV4)
        throw CKorvatinException(std::string("Invalid ") + what + " address '" + text +
                                     "' in the device descriptor",
                                 QRN_ERR_INVALID);
    return address;
}

// Aravis 0.8.26 fixes the control-channel time-out at 500 ms and has no call to change it.
// Its value lives in the device's private I/O record; these mirror that version's layout up to
// the field, and are used only when the running library is exactly that version.
struct AravisGvIoData0826 {
    GMutex mutex;
    guint16 packetId;
    GSocket* socket;
    GSocketAddress* interfaceAddress;
    GSocketAddress* deviceAddress;
    GPollFD pollInEvent;
    void* buffer;
    unsigned int gvcpRetries;
    unsigned int gvcpTimeoutMs;
    gboolean isController;
};

struct AravisGvPrivate0826 {
    GInetAddress* interfaceAddress;
    GInetAddress* deviceAddress;
    AravisGvIoData0826* ioData;
};

// True when the time-out could be set. `checkDefault` makes sure the field still holds one
// of Aravis' built-in defaults, which is how a layout this code does not know is refused.
bool setGvcpTimeoutMs(ArvDevice* device, unsigned int timeoutMs, bool checkDefault) {
    if (arv_get_major_version() != 0 || arv_get_minor_version() != 8 ||
        arv_get_micro_version() != 26 || !ARV_IS_GV_DEVICE(device))
        return false;
    G_GNUC_BEGIN_IGNORE_DEPRECATIONS
    auto* priv = static_cast<AravisGvPrivate0826*>(
        g_type_instance_get_private(reinterpret_cast<GTypeInstance*>(device), ARV_TYPE_GV_DEVICE));
    G_GNUC_END_IGNORE_DEPRECATIONS
    if (priv == nullptr || priv->ioData == nullptr || !G_IS_SOCKET(priv->ioData->socket))
        return false;
    if (checkDefault && priv->ioData->gvcpTimeoutMs != 500 && priv->ioData->gvcpTimeoutMs != 25)
        return false;
    // Aravis reads the field afresh for every attempt, so a plain store is enough; the I/O
    // mutex is not taken because a transfer may hold it for the whole of its retries.
    g_atomic_int_set(reinterpret_cast<gint*>(&priv->ioData->gvcpTimeoutMs),
                     static_cast<gint>(timeoutMs));
    return true;
}

// For a descriptor that names no host interface (one written by hand rather than found by
// discovery): the interface whose subnet holds the device, a loopback one for a loopback
// device, else any.
std::string interfaceFor(const char* deviceText) {
    in_addr device{};
    if (inet_pton(AF_INET, deviceText, &device) != 1)
        return "0.0.0.0";
    const uint32_t deviceIp = ntohl(device.s_addr);
    const NetworkInterfaceController* best = nullptr;
    const auto nics = CKorvatinGigEVision::EnumerateNICs();
    for (const auto& nic : nics) {
        const bool sameSubnet = (nic.address & nic.mask) == (deviceIp & nic.mask);
        const bool loopback = (deviceIp >> 24) == 127 && (nic.address >> 24) == 127;
        if (!sameSubnet && !loopback)
            continue;
        if (best == nullptr || (sameSubnet && nic.mask > best->mask))
            best = &nic;
    }
    return best != nullptr ? std::string(best->name) : std::string("0.0.0.0");
}

void onControlLost(ArvDevice*, gpointer data) {
    (*static_cast<std::shared_ptr<ConnectionLostNotifier>*>(data))->Fire();
}

void releaseNotifier(gpointer data, GClosure*) {
    delete static_cast<std::shared_ptr<ConnectionLostNotifier>*>(data);
}

} // namespace

void ConnectionLostNotifier::Set(Callback callback, void* context) {
    std::lock_guard<std::mutex> lock(mutex_);
    callback_ = callback;
    context_ = context;
}

void ConnectionLostNotifier::Fire() {
    std::lock_guard<std::mutex> lock(mutex_);
    if (fired_ || !enabled_)
        return;
    fired_ = true;
    if (callback_ != nullptr)
        callback_(context_, nullptr);
}

bool ConnectionLostNotifier::Fired() {
    std::lock_guard<std::mutex> lock(mutex_);
    return fired_;
}

void ConnectionLostNotifier::Disable() {
    std::lock_guard<std::mutex> lock(mutex_);
    enabled_ = false;
}

CameraConnection::CameraConnection(const GigEVisionDeviceInfo& device, const Options& options)
    : info_(device), lostNotifier_(std::make_shared<ConnectionLostNotifier>()) {
    char interfaceText[sizeof device.hostInterfaceAddress + 1] = {};
    char deviceText[sizeof device.currentIp + 1] = {};
    std::memcpy(interfaceText, device.hostInterfaceAddress, sizeof device.hostInterfaceAddress);
    std::memcpy(deviceText, device.currentIp, sizeof device.currentIp);
    if (interfaceText[0] == '\0')
        std::strncpy(interfaceText, interfaceFor(deviceText).c_str(), sizeof interfaceText - 1);
    const auto interfaceAddress = inetAddress(interfaceText, "host interface");
    const auto deviceAddress = inetAddress(deviceText, "device");

    GErrorPtr error;
    auto opened = GObjectRef<ArvDevice>::Adopt(
        arv_gv_device_new(interfaceAddress.Get(), deviceAddress.Get(), Out(error)));
    if (!opened || error)
        throw CKorvatinException(std::string("Cannot open the device at ") + deviceText + ": " +
                                     (error ? error->message : "no answer"),
                                 codeOf(error.get()));
    device_ = std::move(opened);
    const int32_t units = options.gvcpTimeoutUnits > 0 ? options.gvcpTimeoutUnits : 1;
    timeoutControl_ =
        setGvcpTimeoutMs(device_.Get(), static_cast<unsigned int>(units) * 100u, true);

    // Aravis tries to take control while opening and keeps the device open when it cannot, as a
    // host that may read but not write.
    ArvGvDevice* gvDevice = ARV_GV_DEVICE(device_.Get());
    if (options.control && !arv_gv_device_is_controller(gvDevice)) {
        GErrorPtr controlError;
        if (!arv_gv_device_take_control(gvDevice, Out(controlError))) {
            std::string controller;
            try {
                controller = CKorvatinCamera::ControllingHost(info_);
            } catch (const CKorvatinException&) {
                // Silent now: the reason Aravis gave is all there is to say.
            }
            if (!controller.empty())
                throw CKorvatinException(std::string("The device at ") + deviceText +
                                             " is controlled by another host (" + controller + ")",
                                         QRN_ERR_ACCESS);
            throw CKorvatinException(
                std::string("Cannot take control of the device at ") + deviceText + ": " +
                    (controlError ? controlError->message : "another application controls it"),
                QRN_ERR_ACCESS);
        }
    }
    // A reading connection keeps control when it had it, so that it reads what a controlling
    // host reads (the control privilege itself among the features).
    holdsControl_ = arv_gv_device_is_controller(gvDevice);

    if (options.xmlPath != nullptr) {
        description_ = std::make_shared<GenicamDescription>(
            device_.Get(), GenicamLoader::FromFile(options.xmlPath),
            std::string("'") + options.xmlPath + "'");
        xmlIndex_ = 0;
    } else {
        LoadDescriptionFromDevice();
    }
    ApplyHeartbeatDisable(options.heartbeatDisable);

    controlLostHandler_ =
        g_signal_connect_data(device_.Get(), "control-lost", G_CALLBACK(onControlLost),
                              new std::shared_ptr<ConnectionLostNotifier>(lostNotifier_),
                              releaseNotifier, GConnectFlags(0));
    watchdog_ = std::thread([this] { WatchControl(); });
}

CameraConnection::~CameraConnection() {
    lostNotifier_->Disable();
    {
        std::lock_guard<std::mutex> lock(watchdogMutex_);
        stopping_ = true;
    }
    watchdogWake_.notify_all();
    if (watchdog_.joinable())
        watchdog_.join();
    if (description_)
        description_->Detach();
    if (device_) {
        if (controlLostHandler_ != 0)
            g_signal_handler_disconnect(device_.Get(), controlLostHandler_);
        if (lostNotifier_->Fired() || restarting_) {
            // The device is gone or restarting: nothing to give back, and Aravis' heartbeat
            // thread, which the release below waits for, should give up its retries at once.
            if (timeoutControl_)
                setGvcpTimeoutMs(device_.Get(), kGoneTimeoutMs, false);
        } else if (holdsControl_) {
            // Giving control back lets another application in at once; failing to is
            // harmless, the device's heartbeat time-out frees it as well.
            arv_gv_device_leave_control(ARV_GV_DEVICE(device_.Get()), nullptr);
        }
        device_.Reset();
    }
}

void CameraConnection::LoadDescriptionFromDevice() {
    std::string reasons;
    const uint64_t addresses[2] = {GenicamLoader::kFirstUrlAddress,
                                   GenicamLoader::kSecondUrlAddress};
    for (int index = 0; index < 2; ++index) {
        std::string url;
        try {
            url = GenicamLoader::ReadUrl(device_.Get(), addresses[index]);
            const std::string origin = "the device's " +
                                       std::string(index == 0 ? "first" : "second") + " URL '" +
                                       url + "'";
            description_ = std::make_shared<GenicamDescription>(
                device_.Get(), GenicamLoader::Fetch(device_.Get(), url), origin);
            xmlIndex_ = index;
            return;
        } catch (const CKorvatinException& e) {
            reasons += std::string(index == 0 ? "first" : "; second") + " URL";
            if (!url.empty())
                reasons += " '" + url + "'";
            reasons += std::string(": ") + e.what();
        }
    }
    throw CKorvatinException("The device's GenICam description could not be loaded (" + reasons +
                                 ")",
                             QRN_ERR_NOT_FOUND);
}

void CameraConnection::LoadDescriptionFile(const char* path) {
    auto replacement = std::make_shared<GenicamDescription>(
        device_.Get(), GenicamLoader::FromFile(path),
        std::string("'") + (path != nullptr ? path : "") + "'");
    std::lock_guard<std::mutex> lock(descriptionMutex_);
    description_->Detach();
    description_ = std::move(replacement);
    if (gone_)
        description_->Detach();
}

void CameraConnection::MarkGone() {
    {
        std::lock_guard<std::mutex> lock(descriptionMutex_);
        gone_ = true;
        if (description_)
            description_->Detach();
    }
    if (timeoutControl_)
        setGvcpTimeoutMs(device_.Get(), kGoneTimeoutMs, false);
}

void CameraConnection::ApplyHeartbeatDisable(bool disable) {
    if (!holdsControl_)
        return; // a reading connection writes nothing
    ArvGcFeatureNode* node = description_->FindFeature("GevGVCPHeartbeatDisable");
    if (node == nullptr)
        return;
    // A camera that refuses the write keeps its heartbeat: the connection works either way,
    // the watchdog only has to keep it alive, which Aravis' heartbeat thread does.
    GErrorPtr error;
    if (ARV_IS_GC_BOOLEAN(node))
        arv_gc_boolean_set_value(ARV_GC_BOOLEAN(node), disable, Out(error));
    else if (ARV_IS_GC_INTEGER(node))
        arv_gc_integer_set_value(ARV_GC_INTEGER(node), disable ? 1 : 0, Out(error));
}

void CameraConnection::GiveUpIfLost() {
    if (timeoutControl_ && lostNotifier_->Fired())
        setGvcpTimeoutMs(device_.Get(), kGoneTimeoutMs, false);
}

void CameraConnection::ForgetControl() {
    lostNotifier_->Disable();
    restarting_ = true;
    if (timeoutControl_)
        setGvcpTimeoutMs(device_.Get(), kGoneTimeoutMs, false);
}

void CameraConnection::SetLostCallback(ConnectionLostNotifier::Callback callback, void* context) {
    lostNotifier_->Set(callback, context);
}

// Aravis reports control-lost only when the device answers that someone else has control; a
// device that stops answering altogether goes unreported, and Aravis' own retries would take
// many seconds to show it. This thread asks the device for its control-channel privilege
// register once a period, on a socket of its own with a short time-out, and reports the loss
// when the device stays silent for kSilenceLimit or answers that we no longer control it.
void CameraConnection::WatchControl() {
    const int probe = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (probe < 0)
        return; // without a socket only Aravis' own control-lost signal is left to report
    sockaddr_in local{};
    local.sin_family = AF_INET;
    inet_pton(AF_INET, info_.hostInterfaceAddress, &local.sin_addr);
    sockaddr_in remote{};
    remote.sin_family = AF_INET;
    remote.sin_port = htons(kGvcpPort);
    inet_pton(AF_INET, info_.currentIp, &remote.sin_addr);
    if (::bind(probe, reinterpret_cast<sockaddr*>(&local), sizeof local) != 0 ||
        ::connect(probe, reinterpret_cast<sockaddr*>(&remote), sizeof remote) != 0) {
        ::close(probe);
        return;
    }

    uint16_t requestId = 1;
    auto lastAnswer = std::chrono::steady_clock::now();
    std::unique_lock<std::mutex> lock(watchdogMutex_);
    while (!watchdogWake_.wait_for(lock, kWatchPeriod, [this] { return stopping_; })) {
        lock.unlock();
        requestId = static_cast<uint16_t>(requestId == 0xFFFF ? 1 : requestId + 1);
        const uint8_t command[12] = {
            0x42, 0x01, 0x00, 0x80, 0x00, 0x04, uint8_t(requestId >> 8), uint8_t(requestId & 0xFF),
            0x00, 0x00, 0x0A, 0x00};
        bool answered = false;
        uint32_t privilege = 0;
        if (::send(probe, command, sizeof command, 0) == sizeof command) {
            const auto deadline = std::chrono::steady_clock::now() + kProbeTimeout;
            for (;;) {
                const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
                    deadline - std::chrono::steady_clock::now());
                if (left.count() <= 0)
                    break;
                pollfd ready{probe, POLLIN, 0};
                if (::poll(&ready, 1, static_cast<int>(left.count())) <= 0)
                    break;
                uint8_t ack[64];
                const ssize_t size = ::recv(probe, ack, sizeof ack, 0);
                if (size >= 12 && ack[2] == 0x00 && ack[3] == 0x81 && ack[6] == command[6] &&
                    ack[7] == command[7]) {
                    answered = ack[0] == 0 && ack[1] == 0;
                    privilege = (uint32_t(ack[8]) << 24) | (uint32_t(ack[9]) << 16) |
                                (uint32_t(ack[10]) << 8) | ack[11];
                    break;
                }
            }
        }
        const auto now = std::chrono::steady_clock::now();
        bool lost = false;
        if (answered) {
            lastAnswer = now;
            // A reading connection holds no control, so only silence tells it the device went.
            lost = holdsControl_ && (privilege & (kPrivilegeControl | kPrivilegeExclusive)) == 0;
        } else {
            lost = now - lastAnswer >= kSilenceLimit;
        }
        lock.lock();
        if (lost && !stopping_) {
            lock.unlock();
            // From now on every access fails at once with "not connected" instead of waiting
            // out the control channel's retries: a job in progress and the disconnect that
            // follows the notification end without delay.
            MarkGone();
            lostNotifier_->Fire();
            lock.lock();
            break;
        }
    }
    lock.unlock();
    ::close(probe);
}

} // namespace korvatin
