// The SDK types that travel in QVariants and queued signals, known to Qt's meta-type system.
#include "metatypes.h"

void RegisterCameraMetaTypes() {
    qRegisterMetaType<GigEVisionDeviceInfo>("GigEVisionDeviceInfo");
    qRegisterMetaType<const GigEVisionDeviceInfo*>("const GigEVisionDeviceInfo*");
    qRegisterMetaType<CKorvatinException>("CKorvatinException");
}
