// Scratch memory a camera lends to CKorvatinFrame::Convert, kept between conversions.
#pragma once

#include <cstdint>
#include <vector>

namespace korvatin {

// Owned by the camera, passed to Convert as an opaque pointer; one conversion at a time uses it.
struct ConversionContext {
    std::vector<uint8_t> scratch;
};

} // namespace korvatin
