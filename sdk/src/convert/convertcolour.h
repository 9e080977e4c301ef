// The colour row readers of each instruction set; ColourRow8 and ColourRow16 choose among them.
#pragma once

#include "convertrows.h"

namespace korvatin {

#define KORVATIN_COLOUR_ROWS(isa)                                                                  \
    namespace isa {                                                                                \
    void Row8(const ColourImage& image, uint32_t y, uint8_t* out);                                 \
    void Row16(const ColourImage& image, uint32_t y, uint16_t* out);                               \
    }

KORVATIN_COLOUR_ROWS(colourscalar)
KORVATIN_COLOUR_ROWS(colouravx2)
KORVATIN_COLOUR_ROWS(colouravx512)

#undef KORVATIN_COLOUR_ROWS

} // namespace korvatin
