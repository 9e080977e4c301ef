// Names of GigE Vision pixel formats, and why Convert refuses the ones it refuses.
#pragma once

#include <cstdint>
#include <string>

namespace korvatin {

// The PFNC name of a pixel-format code ("Mono8", "YCbCr709_422_8", "Coord3D_ABC8"), or null for
// a code the SDK does not know.
const char* PixelFormatName(uint32_t code);

// Empty when Convert reads the format; otherwise a sentence that names it and says why not.
std::string ConversionRefusal(uint32_t code);

} // namespace korvatin
