// What Aravis itself reads of a feature, and the description of Aravis' own fake camera: the
// references the feature help is checked against.
#pragma once

#include <QByteArray>
#include <QString>

#include <cstdint>

namespace aravisfacts {

// The GenICam description Aravis' fake camera serves, as Aravis holds it.
QByteArray FakeCameraXml();

// The bounds and increment of integer `feature` of the device at `address`, opened by address;
// false (with `error`) when Aravis cannot read them.
bool IntegerBounds(const QString& address, const char* feature, int64_t* minimum, int64_t* maximum,
                   int64_t* increment, QString* error);

} // namespace aravisfacts
