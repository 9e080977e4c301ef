// The two pixel types of frames converted for display, recording and saving: 8-bit grey and
// 8-bit RGB with the SDK's own (custom) pixel-type codes.
#pragma once

#include <cstdint>

namespace korvatin {

constexpr uint32_t kDisplayGrey = 0x21084001;
constexpr uint32_t kDisplayRgb = 0x23088005;

} // namespace korvatin
