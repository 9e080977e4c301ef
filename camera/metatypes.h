// The SDK types that travel in QVariants and queued signals, known to Qt's meta-type system.
#pragma once

#include <korvatin/gigevisiondeviceinfo.h>
#include <korvatin/korvatinexception.h>

#include <QMetaType>

Q_DECLARE_METATYPE(GigEVisionDeviceInfo)
Q_DECLARE_METATYPE(const GigEVisionDeviceInfo*)
Q_DECLARE_METATYPE(CKorvatinException)

// Registers GigEVisionDeviceInfo and CKorvatinException under their own names, and the pointer
// type the discovery signal carries. Safe to call any number of times, from any thread.
void RegisterCameraMetaTypes();
