// One open control connection to a GigE Vision device through Aravis, with its description.
#include "cameraconnection.h"

#include "genicamloader.h"
#include "korvatin/korvatinexception.h"

#include <chrono>
#include <cstring>
#include <string>

namespace korvatin {

namespace {

constexpr guint64 kControlChannelPrivilege = 0x0A00;
constexpr guint32 kPrivilegeControl = 0x2;
constexpr guint32 kPrivilegeExclusive = 0x1;
constexpr auto kWatchPeriod = std::chrono::milliseconds(1000);
// How long the device may stay silent before the connection counts as lost; GigE Vision's
// default heartbeat time-out is 3 s, after which the device gives control away anyway.
constexpr auto kSilenceLimit = std::chrono::milliseconds(3000);

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
    GInetAddress* address = g_inet_address_new_from_string(text);
    if (address == nullptr || g_inet_address_get_family(address) != G_SOCKET_FAMILY_IPV4) {
        if (address != nullptr)
            g_object_unref(address);
        throw CKorvatinException(std::string("Invalid ") + what + " address '" + text +
                                     "' in the device descriptor",
                                 QRN_ERR_INVALID);
    }
    return GObjectRef<GInetAddress>::Adopt(address);
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

// True when the time-out could be set.
bool setGvcpTimeout(ArvDevice* device, int32_t units) {
    if (arv_get_major_version() != 0 || arv_get_minor_version() != 8 ||
        arv_get_micro_version() != 26 || !ARV_IS_GV_DEVICE(device))
        return false;
    G_GNUC_BEGIN_IGNORE_DEPRECATIONS
    auto* priv = static_cast<AravisGvPrivate0826*>(
        g_type_instance_get_private(reinterpret_cast<GTypeInstance*>(device), ARV_TYPE_GV_DEVICE));
    G_GNUC_END_IGNORE_DEPRECATIONS
    if (priv == nullptr || priv->ioData == nullptr || !G_IS_SOCKET(priv->ioData->socket))
        return false;
    // Aravis' two built-in defaults; anything else means the layout is not what we expect.
    if (priv->ioData->gvcpTimeoutMs != 500 && priv->ioData->gvcpTimeoutMs != 25)
        return false;
    g_mutex_lock(&priv->ioData->mutex);
    priv->ioData->gvcpTimeoutMs = static_cast<unsigned int>(units) * 100u;
    g_mutex_unlock(&priv->ioData->mutex);
    return true;
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
    const auto interfaceAddress = inetAddress(interfaceText, "host interface");
    const auto deviceAddress = inetAddress(deviceText, "device");

    GErrorPtr error;
    ArvDevice* opened = arv_gv_device_new(interfaceAddress.Get(), deviceAddress.Get(), Out(error));
    if (opened == nullptr || error) {
        if (opened != nullptr)
            g_object_unref(opened);
        throw CKorvatinException(std::string("Cannot open the device at ") + deviceText + ": " +
                                     (error ? error->message : "no answer"),
                                 codeOf(error.get()));
    }
    device_ = GObjectRef<ArvDevice>::Adopt(opened);
    setGvcpTimeout(device_.Get(), options.gvcpTimeoutUnits > 0 ? options.gvcpTimeoutUnits : 1);

    ArvGvDevice* gvDevice = ARV_GV_DEVICE(device_.Get());
    if (!arv_gv_device_is_controller(gvDevice)) {
        GErrorPtr controlError;
        if (!arv_gv_device_take_control(gvDevice, Out(controlError)))
            throw CKorvatinException(
                std::string("Cannot take control of the device at ") + deviceText + ": " +
                    (controlError ? controlError->message : "another application controls it"),
                QRN_ERR_ACCESS);
    }

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
        // Giving control back lets another application in at once; failing to is harmless,
        // the device's heartbeat time-out frees it as well.
        arv_gv_device_leave_control(ARV_GV_DEVICE(device_.Get()), nullptr);
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
    description_->Detach();
    description_ = std::move(replacement);
}

void CameraConnection::ApplyHeartbeatDisable(bool disable) {
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

void CameraConnection::SetLostCallback(ConnectionLostNotifier::Callback callback, void* context) {
    lostNotifier_->Set(callback, context);
}

// Aravis reports control-lost only when the device answers that someone else has control; a
// device that stops answering altogether goes unreported. This thread notices the silence.
void CameraConnection::WatchControl() {
    auto lastAnswer = std::chrono::steady_clock::now();
    std::unique_lock<std::mutex> lock(watchdogMutex_);
    while (!watchdogWake_.wait_for(lock, kWatchPeriod, [this] { return stopping_; })) {
        lock.unlock();
        guint32 privilege = 0;
        GErrorPtr error;
        const bool answered = arv_device_read_register(device_.Get(), kControlChannelPrivilege,
                                                       &privilege, Out(error)) != FALSE;
        const auto now = std::chrono::steady_clock::now();
        bool lost = false;
        if (answered) {
            lastAnswer = now;
            lost = (privilege & (kPrivilegeControl | kPrivilegeExclusive)) == 0;
        } else {
            lost = now - lastAnswer >= kSilenceLimit;
        }
        lock.lock();
        if (lost && !stopping_) {
            lock.unlock();
            lostNotifier_->Fire();
            lock.lock();
            break;
        }
    }
}

} // namespace korvatin
