// The value of one pixel of a frame as the camera sent it.
#include "pixelvalue.h"

namespace {

enum class Layout { Unpacked, GevPacked, LsbPacked, Rgb, Bgr, Rgba, Bgra, Yuyv, Uyvy };

struct Format {
    uint32_t code;
    Layout layout;
    int bits;           // bits of one sample
    const char* mosaic; // Bayer: the 2 x 2 cell, first row then second; "" otherwise
};

// The GigE Vision (PFNC) formats the display converts, by how their samples are laid out.
constexpr Format kFormats[] = {
    {0x01080001, Layout::Unpacked, 8, ""},   // Mono8
    {0x01100003, Layout::Unpacked, 10, ""},  // Mono10
    {0x01100005, Layout::Unpacked, 12, ""},  // Mono12
    {0x01100025, Layout::Unpacked, 14, ""},  // Mono14
    {0x01100007, Layout::Unpacked, 16, ""},  // Mono16
    {0x010C0004, Layout::GevPacked, 10, ""}, // Mono10Packed
    {0x010C0006, Layout::GevPacked, 12, ""}, // Mono12Packed
    {0x010A0046, Layout::LsbPacked, 10, ""}, // Mono10p
    {0x010C0047, Layout::LsbPacked, 12, ""}, // Mono12p
    {0x01080008, Layout::Unpacked, 8, "GRBG"},
    {0x01080009, Layout::Unpacked, 8, "RGGB"},
    {0x0108000A, Layout::Unpacked, 8, "GBRG"},
    {0x0108000B, Layout::Unpacked, 8, "BGGR"},
    {0x0110000C, Layout::Unpacked, 10, "GRBG"},
    {0x0110000D, Layout::Unpacked, 10, "RGGB"},
    {0x0110000E, Layout::Unpacked, 10, "GBRG"},
    {0x0110000F, Layout::Unpacked, 10, "BGGR"},
    {0x01100010, Layout::Unpacked, 12, "GRBG"},
    {0x01100011, Layout::Unpacked, 12, "RGGB"},
    {0x01100012, Layout::Unpacked, 12, "GBRG"},
    {0x01100013, Layout::Unpacked, 12, "BGGR"},
    {0x0110002E, Layout::Unpacked, 16, "GRBG"},
    {0x0110002F, Layout::Unpacked, 16, "RGGB"},
    {0x01100030, Layout::Unpacked, 16, "GBRG"},
    {0x01100031, Layout::Unpacked, 16, "BGGR"},
    {0x010C0026, Layout::GevPacked, 10, "GRBG"},
    {0x010C0027, Layout::GevPacked, 10, "RGGB"},
    {0x010C0028, Layout::GevPacked, 10, "GBRG"},
    {0x010C0029, Layout::GevPacked, 10, "BGGR"},
    {0x010C002A, Layout::GevPacked, 12, "GRBG"},
    {0x010C002B, Layout::GevPacked, 12, "RGGB"},
    {0x010C002C, Layout::GevPacked, 12, "GBRG"},
    {0x010C002D, Layout::GevPacked, 12, "BGGR"},
    {0x010A0056, Layout::LsbPacked, 10, "GRBG"},
    {0x010A0058, Layout::LsbPacked, 10, "RGGB"},
    {0x010A0054, Layout::LsbPacked, 10, "GBRG"},
    {0x010A0052, Layout::LsbPacked, 10, "BGGR"},
    {0x010C0057, Layout::LsbPacked, 12, "GRBG"},
    {0x010C0059, Layout::LsbPacked, 12, "RGGB"},
    {0x010C0055, Layout::LsbPacked, 12, "GBRG"},
    {0x010C0053, Layout::LsbPacked, 12, "BGGR"},
    {0x02180014, Layout::Rgb, 8, ""},  // RGB8
    {0x02180015, Layout::Bgr, 8, ""},  // BGR8
    {0x02200016, Layout::Rgba, 8, ""}, // RGBa8
    {0x02200017, Layout::Bgra, 8, ""}, // BGRa8
    {0x02100032, Layout::Yuyv, 8, ""}, // YUV422_8
    {0x0210001F, Layout::Uyvy, 8, ""}, // YUV422_8_UYVY
    // The display's own formats, for a frame the recorder converted already.
    {0x21084001, Layout::Unpacked, 8, ""},
    {0x23088005, Layout::Rgb, 8, ""},
};

const Format* findFormat(uint32_t code) {
    for (const Format& format : kFormats)
        if (format.code == code)
            return &format;
    return nullptr;
}

// Bits of one pixel in the buffer, from the code's bits 16 to 23.
uint32_t pixelBits(uint32_t code) {
    return (code >> 16) & 0xFF;
}

} // namespace

CPixelValue CPixelValue::Read(const CKorvatinFrame& frame, uint32_t x, uint32_t y) {
    CPixelValue value;
    const Format* format = findFormat(frame.PixelType());
    const uint8_t* data = frame.Data();
    if (format == nullptr || data == nullptr || x >= frame.Width() || y >= frame.Height())
        return value;
    const uint64_t bitsPerPixel = pixelBits(format->code);
    // Packed lines without a stride of their own follow each other without padding.
    const uint64_t stride =
        frame.Stride() != 0 ? frame.Stride() : (uint64_t(frame.Width()) * bitsPerPixel + 7) / 8;
    const uint64_t lineStart = uint64_t(y) * stride;
    // A pixel whose bytes lie beyond what the frame holds is not read.
    const auto fits = [&](uint64_t bytesIntoLine) {
        return lineStart + bytesIntoLine <= frame.DataSize();
    };
    const uint8_t* line = data + lineStart;
    value.bits = format->bits;
    uint64_t needed = 0;
    switch (format->layout) {
    case Layout::Unpacked:
        needed = (uint64_t(x) + 1) * (format->bits <= 8 ? 1 : 2);
        break;
    case Layout::GevPacked:
        needed = (uint64_t(x) / 2) * 3 + 3;
        break;
    case Layout::LsbPacked:
        needed = ((uint64_t(x) + 1) * format->bits + 7) / 8;
        break;
    case Layout::Rgb:
    case Layout::Bgr:
        needed = (uint64_t(x) + 1) * 3;
        break;
    case Layout::Rgba:
    case Layout::Bgra:
        needed = (uint64_t(x) + 1) * 4;
        break;
    case Layout::Yuyv:
    case Layout::Uyvy:
        needed = (uint64_t(x) / 2) * 4 + 4;
        break;
    }
    if (!fits(needed))
        return value;

    uint32_t sample = 0;
    switch (format->layout) {
    case Layout::Unpacked:
        sample = format->bits <= 8 ? line[x] : uint32_t(line[2 * x] | (line[2 * x + 1] << 8));
        break;
    case Layout::GevPacked: {
        // Two pixels in three bytes: each pixel's high bits in its own byte, the low bits of
        // both in the middle byte (the first's in its low nibble).
        const uint8_t* pair = line + (x / 2) * 3;
        const int low = format->bits - 8;
        const uint32_t lowBits = (x & 1) ? (pair[1] >> 4) : (pair[1] & 0x0F);
        sample = (uint32_t((x & 1) ? pair[2] : pair[0]) << low) | (lowBits & ((1u << low) - 1));
        break;
    }
    case Layout::LsbPacked: {
        // A little-endian bit stream, each pixel's lowest bit first.
        const uint64_t bit = uint64_t(x) * format->bits;
        uint32_t word = 0;
        for (uint64_t i = 0; i < 4 && fits(bit / 8 + i + 1); ++i)
            word |= uint32_t(line[bit / 8 + i]) << (8 * i);
        sample = (word >> (bit % 8)) & ((1u << format->bits) - 1);
        break;
    }
    case Layout::Rgb:
    case Layout::Bgr:
    case Layout::Rgba:
    case Layout::Bgra: {
        const bool alpha = format->layout == Layout::Rgba || format->layout == Layout::Bgra;
        const bool bgr = format->layout == Layout::Bgr || format->layout == Layout::Bgra;
        const uint8_t* p = line + uint64_t(x) * (alpha ? 4 : 3);
        value.kind = Colour;
        value.values[0] = bgr ? p[2] : p[0];
        value.values[1] = p[1];
        value.values[2] = bgr ? p[0] : p[2];
        return value;
    }
    case Layout::Yuyv:
    case Layout::Uyvy: {
        const uint8_t* group = line + uint64_t(x / 2) * 4;
        const bool yuyv = format->layout == Layout::Yuyv;
        value.kind = Yuv;
        value.values[0] = yuyv ? group[(x & 1) * 2] : group[1 + (x & 1) * 2];
        value.values[1] = yuyv ? group[1] : group[0];
        value.values[2] = yuyv ? group[3] : group[2];
        return value;
    }
    }
    value.values[0] = sample;
    if (format->mosaic[0] != '\0') {
        value.kind = Mosaic;
        value.mosaicColour = format->mosaic[(y & 1) * 2 + (x & 1)];
    } else {
        value.kind = Grey;
    }
    return value;
}

std::string CPixelValue::Text() const {
    switch (kind) {
    case Grey:
        return "Grey " + std::to_string(values[0]);
    case Mosaic:
        return std::string("Bayer ") + mosaicColour + ' ' + std::to_string(values[0]);
    case Colour:
        return "R " + std::to_string(values[0]) + " G " + std::to_string(values[1]) + " B " +
               std::to_string(values[2]);
    case Yuv:
        return "Y " + std::to_string(values[0]) + " U " + std::to_string(values[1]) + " V " +
               std::to_string(values[2]);
    default:
        return std::string();
    }
}
