// A small libaravis host for the simulator tests: open by address, features, frames.
#include "aravishost.h"

namespace {

bool report(const CGError& error, QString* message) {
    if (!error.isSet())
        return true;
    if (message)
        *message = error.message();
    return false;
}

} // namespace

bool CAravisHost::open(const QString& address, QString* error) {
    close();
    GObjectPtr<GInetAddress> interfaceAddress(g_inet_address_new_from_string("127.0.0.1"));
    GObjectPtr<GInetAddress> deviceAddress(
        g_inet_address_new_from_string(address.toLatin1().constData()));
    if (!deviceAddress) {
        *error = "not an address: " + address;
        return false;
    }
    CGError e;
    device_.reset(arv_gv_device_new(interfaceAddress.get(), deviceAddress.get(), e.out()));
    if (!device_)
        return report(e, error);
    camera_.reset(arv_camera_new_with_device(device_.get(), e.out()));
    if (!camera_) {
        device_.reset();
        return report(e, error);
    }
    return true;
}

void CAravisHost::close() {
    camera_.reset();
    device_.reset();
}

ArvGcNode* CAravisHost::node(const char* name) const {
    return arv_device_get_feature(device_.get(), name);
}

qint64 CAravisHost::integer(const char* name, QString* error) const {
    CGError e;
    const qint64 value = arv_device_get_integer_feature_value(device_.get(), name, e.out());
    report(e, error);
    return value;
}

bool CAravisHost::setInteger(const char* name, qint64 value, QString* error) {
    CGError e;
    arv_device_set_integer_feature_value(device_.get(), name, value, e.out());
    return report(e, error);
}

bool CAravisHost::setString(const char* name, const char* value, QString* error) {
    CGError e;
    arv_device_set_string_feature_value(device_.get(), name, value, e.out());
    return report(e, error);
}

QString CAravisHost::string(const char* name, QString* error) const {
    CGError e;
    const char* value = arv_device_get_string_feature_value(device_.get(), name, e.out());
    report(e, error);
    return value ? QString::fromUtf8(value) : QString();
}

bool CAravisHost::setBoolean(const char* name, bool value, QString* error) {
    CGError e;
    arv_device_set_boolean_feature_value(device_.get(), name, value, e.out());
    return report(e, error);
}

bool CAravisHost::execute(const char* name, QString* error) {
    CGError e;
    arv_device_execute_command(device_.get(), name, e.out());
    return report(e, error);
}

double CAravisHost::floatValue(const char* name, QString* error) const {
    CGError e;
    const double value = arv_device_get_float_feature_value(device_.get(), name, e.out());
    report(e, error);
    return value;
}

bool CAravisHost::setFloat(const char* name, double value, QString* error) {
    CGError e;
    arv_device_set_float_feature_value(device_.get(), name, value, e.out());
    return report(e, error);
}

GrabResult CAravisHost::grab(int frames, int buffers, int timeoutMs) {
    GrabResult result;
    CGError e;
    GObjectPtr<ArvStream> stream(
        arv_camera_create_stream(camera_.get(), nullptr, nullptr, e.out()));
    if (!stream) {
        result.failed = frames;
        return result;
    }
    // Aravis gives up on a frame 100 ms after its last packet by default: on a machine busy
    // with other tests a resend that comes a little late would then count as the simulator's
    // failure. The reference host keeps an incomplete frame for 2 s, so that only a packet the
    // simulator never sends leaves a frame incomplete.
    g_object_set(stream.get(), "frame-retention", guint(2000000), nullptr);
    const guint payload = arv_camera_get_payload(camera_.get(), nullptr);
    for (int i = 0; i < buffers; ++i)
        arv_stream_push_buffer(stream.get(), arv_buffer_new(payload, nullptr));
    arv_camera_start_acquisition(camera_.get(), e.out());
    if (e.isSet()) {
        result.failed = frames;
        return result;
    }
    for (int i = 0; i < frames; ++i) {
        ArvBuffer* buffer = arv_stream_timeout_pop_buffer(stream.get(), guint64(timeoutMs) * 1000);
        if (!buffer) {
            ++result.failed;
            continue;
        }
        if (arv_buffer_get_status(buffer) == ARV_BUFFER_STATUS_SUCCESS) {
            ++result.succeeded;
            size_t size = 0;
            const void* data = arv_buffer_get_image_data(buffer, &size);
            if (size != payload)
                ++result.wrongSize;
            result.lastImage = QByteArray(static_cast<const char*>(data), int(size));
            result.lastPixelFormat = arv_buffer_get_image_pixel_format(buffer);
            result.lastWidth = arv_buffer_get_image_width(buffer);
            result.lastHeight = arv_buffer_get_image_height(buffer);
        } else {
            ++result.failed;
        }
        arv_stream_push_buffer(stream.get(), buffer);
    }
    arv_camera_stop_acquisition(camera_.get(), nullptr);
    guint64 underruns = 0;
    arv_stream_get_statistics(stream.get(), &result.completedBuffers, &result.failures, &underruns);
    arv_gv_stream_get_statistics(ARV_GV_STREAM(stream.get()), &result.resentPackets,
                                 &result.missingPackets);
    return result;
}
