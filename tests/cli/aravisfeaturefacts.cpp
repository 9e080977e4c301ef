// What Aravis itself reads of a feature, and the description of Aravis' own fake camera.
#include "aravisfeaturefacts.h"

// GLib names a member "signals", which Qt defines as a keyword macro; this file needs no Qt
// signals.
#undef signals
#include <arv.h>

namespace aravisfacts {

QByteArray FakeCameraXml() {
    ArvFakeCamera* fake = arv_fake_camera_new("DESCRIBE");
    size_t size = 0;
    const char* text = arv_fake_camera_get_genicam_xml(fake, &size);
    const QByteArray xml(text, qsizetype(size));
    g_object_unref(fake);
    return xml;
}

bool IntegerBounds(const QString& address, const char* feature, int64_t* minimum, int64_t* maximum,
                   int64_t* increment, QString* error) {
    GInetAddress* device = g_inet_address_new_from_string(address.toUtf8().constData());
    GInetAddress* host = g_inet_address_new_from_string("127.0.0.1");
    GError* failure = nullptr;
    ArvDevice* camera = arv_gv_device_new(host, device, &failure);
    g_object_unref(host);
    g_object_unref(device);
    if (camera) {
        gint64 low = 0, high = 0;
        arv_device_get_integer_feature_bounds(camera, feature, &low, &high, &failure);
        if (!failure) {
            *minimum = low;
            *maximum = high;
            *increment = arv_device_get_integer_feature_increment(camera, feature, &failure);
        }
        g_object_unref(camera);
    }
    if (failure) {
        *error = QString::fromUtf8(failure->message);
        g_error_free(failure);
        return false;
    }
    return true;
}

} // namespace aravisfacts
