// A camera opened with Aravis itself: the reference the project's own code is checked against.
#include "aravisreference.h"

// GLib names a member "signals", which Qt defines as a keyword macro; this file needs no Qt
// signals.
#undef signals
#include <arv.h>

#include <QSet>

#include <functional>

namespace {

template <typename T> struct GObjectDeleter {
    void operator()(T* object) const {
        if (object)
            g_object_unref(object);
    }
};
template <typename T> using GObjectPtr = std::unique_ptr<T, GObjectDeleter<T>>;

struct ErrorDeleter {
    void operator()(GError* error) const {
        if (error)
            g_error_free(error);
    }
};
using ErrorPtr = std::unique_ptr<GError, ErrorDeleter>;

QString accessWord(ArvGcFeatureNode* node) {
    GError* raw = nullptr;
    const gboolean implemented = arv_gc_feature_node_is_implemented(node, &raw);
    ErrorPtr error(raw);
    if (error || !implemented)
        return "NI";
    raw = nullptr;
    const gboolean available = arv_gc_feature_node_is_available(node, &raw);
    error.reset(raw);
    if (error || !available)
        return "NA";
    switch (arv_gc_feature_node_get_actual_access_mode(node)) {
    case ARV_GC_ACCESS_MODE_RO:
        return "RO";
    case ARV_GC_ACCESS_MODE_WO:
        return "WO";
    case ARV_GC_ACCESS_MODE_RW:
        return "RW";
    default:
        return "NA";
    }
}

void readValue(ArvGcNode* node, AravisReference::Feature* feature) {
    GError* raw = nullptr;
    if (ARV_IS_GC_CATEGORY(node) || ARV_IS_GC_COMMAND(node))
        return;
    if (ARV_IS_GC_ENUMERATION(node)) {
        const char* entry = arv_gc_enumeration_get_string_value(ARV_GC_ENUMERATION(node), &raw);
        if (!raw && entry)
            feature->value = QString::fromUtf8(entry);
    } else if (ARV_IS_GC_BOOLEAN(node)) {
        const gboolean value = arv_gc_boolean_get_value(ARV_GC_BOOLEAN(node), &raw);
        feature->value = value ? "true" : "false";
    } else if (feature->integer && ARV_IS_GC_INTEGER(node)) {
        feature->value = QString::number(arv_gc_integer_get_value(ARV_GC_INTEGER(node), &raw));
    } else if (ARV_IS_GC_FLOAT(node)) {
        feature->floatValue = arv_gc_float_get_value(ARV_GC_FLOAT(node), &raw);
        const char* unit = arv_gc_float_get_unit(ARV_GC_FLOAT(node));
        feature->unit = unit ? QString::fromUtf8(unit) : QString();
    } else if (ARV_IS_GC_STRING(node)) {
        const char* text = arv_gc_string_get_value(ARV_GC_STRING(node), &raw);
        if (!raw && text)
            feature->value = QString::fromUtf8(text);
    } else {
        return;
    }
    ErrorPtr error(raw);
    feature->readable = !error;
}

} // namespace

struct AravisReference::Device {
    GObjectPtr<ArvDevice> device;
};

AravisReference::AravisReference() = default;

AravisReference::~AravisReference() {
    close();
}

bool AravisReference::open(const QString& deviceAddress, QString* error) {
    close();
    GObjectPtr<GInetAddress> interfaceAddress(g_inet_address_new_from_string("127.0.0.1"));
    GObjectPtr<GInetAddress> address(
        g_inet_address_new_from_string(deviceAddress.toLatin1().constData()));
    if (!address) {
        *error = "not an address: " + deviceAddress;
        return false;
    }
    GError* raw = nullptr;
    ArvDevice* device = arv_gv_device_new(interfaceAddress.get(), address.get(), &raw);
    ErrorPtr gerror(raw);
    if (!device) {
        *error = "Aravis cannot open " + deviceAddress + ": " +
                 (gerror ? QString::fromUtf8(gerror->message) : QString("no reason given"));
        return false;
    }
    device_ = std::make_unique<Device>();
    device_->device.reset(device);
    return true;
}

void AravisReference::close() {
    device_.reset();
}

QByteArray AravisReference::genicamXml() const {
    if (!device_)
        return QByteArray();
    size_t size = 0;
    const char* xml = arv_device_get_genicam_xml(device_->device.get(), &size);
    return xml ? QByteArray(xml, qsizetype(size)) : QByteArray();
}

qint64 AravisReference::integerValue(const char* name, qint64 fallback) const {
    if (!device_)
        return fallback;
    GError* raw = nullptr;
    const gint64 value = arv_device_get_integer_feature_value(device_->device.get(), name, &raw);
    ErrorPtr error(raw);
    return error ? fallback : value;
}

QList<AravisReference::Feature> AravisReference::featuresFromRoot() const {
    QList<Feature> features;
    if (!device_)
        return features;
    ArvGc* genicam = arv_device_get_genicam(device_->device.get());
    QSet<QString> path;
    std::function<void(const char*, int)> walk = [&](const char* name, int depth) {
        ArvGcNode* node = arv_gc_get_node(genicam, name);
        Feature feature;
        feature.name = QString::fromUtf8(name);
        feature.depth = depth;
        if (!node || !ARV_IS_GC_FEATURE_NODE(node)) {
            features.append(feature);
            return;
        }
        feature.element = QString::fromUtf8(arv_dom_node_get_node_name(ARV_DOM_NODE(node)));
        feature.access = accessWord(ARV_GC_FEATURE_NODE(node));
        static const QSet<QString> integerElements{"Integer",       "IntReg",       "MaskedIntReg",
                                                   "IntSwissKnife", "IntConverter", "StructEntry"};
        feature.integer = integerElements.contains(feature.element);
        if (feature.integer && ARV_IS_GC_INTEGER(node)) {
            GError* raw = nullptr;
            const gint64 min = arv_gc_integer_get_min(ARV_GC_INTEGER(node), &raw);
            ErrorPtr error(raw);
            // A node without a defined minimum has no lower bound.
            feature.signedInt = error ? (error->domain == ARV_GC_ERROR &&
                                         error->code == ARV_GC_ERROR_PROPERTY_NOT_DEFINED)
                                      : min < 0;
        }
        readValue(node, &feature);
        features.append(feature);
        if (!ARV_IS_GC_CATEGORY(node) || path.contains(feature.name))
            return;
        path.insert(feature.name);
        for (const GSList* item = arv_gc_category_get_features(ARV_GC_CATEGORY(node)); item;
             item = item->next)
            walk(static_cast<const char*>(item->data), depth + 1);
        path.remove(feature.name);
    };
    walk("Root", 0);
    return features;
}
