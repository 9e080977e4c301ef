// Moving test pattern of the simulated sensor, in every pixel format the camera offers.
#include "testpattern.h"

#include <algorithm>
#include <cstring>

bool CTestPattern::isSupported(uint32_t pixelFormat) {
    switch (pixelFormat) {
    case PixelFormat::Mono8:
    case PixelFormat::Mono8Signed:
    case PixelFormat::Mono10:
    case PixelFormat::Mono12:
    case PixelFormat::Mono16:
    case PixelFormat::Mono10Packed:
    case PixelFormat::Mono12Packed:
    case PixelFormat::BayerGR8:
    case PixelFormat::BayerRG8:
    case PixelFormat::BayerGB8:
    case PixelFormat::BayerBG8:
    case PixelFormat::BayerGR12:
    case PixelFormat::BayerRG12:
    case PixelFormat::BayerGB12:
    case PixelFormat::BayerBG12:
    case PixelFormat::RGB8:
    case PixelFormat::BGR8:
    case PixelFormat::YUV422_8:
        return true;
    default:
        return false;
    }
}

// Bits per pixel are bits 16-23 of a GigE Vision pixel format code.
uint32_t CTestPattern::bitsPerPixel(uint32_t pixelFormat) {
    return (pixelFormat >> 16) & 0xFF;
}

uint32_t CTestPattern::payloadSize(uint32_t width, uint32_t height, uint32_t pixelFormat) {
    return uint32_t(uint64_t(width) * height * bitsPerPixel(pixelFormat) / 8);
}

namespace {

// The number of bits of `valueMax + 1` when that is a power of two, else 0.
int powerOfTwoBits(uint32_t valueMax) {
    const uint64_t levels = uint64_t(valueMax) + 1;
    if ((levels & (levels - 1)) != 0)
        return 0;
    int bits = 0;
    while ((uint64_t(1) << bits) < levels)
        ++bits;
    return bits;
}

} // namespace

void CTestPattern::buildTable(int bits, const LutTable* lut) {
    const uint32_t levels = 1u << bits;
    table_.resize(levels);
    if (!lut || lut->entries.empty()) {
        for (uint32_t p = 0; p < levels; ++p)
            table_[p] = uint16_t(p);
        return;
    }
    const uint64_t entries = lut->entries.size();
    const uint32_t valueMax = std::max<uint32_t>(lut->valueMax, 1);
    const int valueBits = powerOfTwoBits(valueMax);
    const uint32_t levelMax = levels - 1;
    for (uint32_t p = 0; p < levels; ++p) {
        const uint32_t out =
            std::min<uint32_t>(lut->entries[(uint64_t(p) * entries) >> bits], valueMax);
        uint32_t level = 0;
        if (valueBits >= bits)
            level = out >> (valueBits - bits);
        else if (valueBits > 0 && 2 * valueBits >= bits)
            level = (out << (bits - valueBits)) | (out >> (2 * valueBits - bits));
        else
            level = uint32_t((uint64_t(out) * levelMax + valueMax / 2) / valueMax);
        table_[p] = uint16_t(level);
    }
}

void CTestPattern::barColour(uint32_t x, uint8_t rgb[3]) {
    // Black, red, green, blue, yellow, cyan, magenta, white: bit 0 red, bit 1 green, bit 2 blue.
    static const uint8_t kBars[8] = {0, 1, 2, 4, 3, 6, 5, 7};
    const uint8_t bits = kBars[(x / kBarWidth) % 8];
    for (int c = 0; c < 3; ++c)
        rgb[c] = (bits >> c) & 1 ? 255 : 0;
}

void CTestPattern::fillBars(const FrameGeometry& g, uint8_t* destination) {
    // Which colour each position of a 2 x 2 Bayer cell carries (0 red, 1 green, 2 blue), by
    // (y & 1) * 2 + (x & 1).
    int cell[4] = {1, 1, 1, 1};
    switch (g.pixelFormat) {
    case PixelFormat::BayerRG8:
        cell[0] = 0, cell[3] = 2;
        break;
    case PixelFormat::BayerGR8:
        cell[1] = 0, cell[2] = 2;
        break;
    case PixelFormat::BayerGB8:
        cell[1] = 2, cell[2] = 0;
        break;
    case PixelFormat::BayerBG8:
        cell[0] = 2, cell[3] = 0;
        break;
    default:
        break;
    }
    const uint32_t channels =
        g.pixelFormat == PixelFormat::RGB8 || g.pixelFormat == PixelFormat::BGR8 ? 3 : 1;
    uint8_t* out = destination;
    for (uint32_t y = 0; y < g.height; ++y) {
        const uint32_t sy = g.offsetY + y;
        for (uint32_t x = 0; x < g.width; ++x) {
            const uint32_t sx = g.offsetX + x;
            uint8_t rgb[3];
            barColour(sx, rgb);
            for (uint8_t& level : rgb)
                level = uint8_t(table_[level]);
            if (g.pixelFormat == PixelFormat::RGB8) {
                out[0] = rgb[0], out[1] = rgb[1], out[2] = rgb[2];
            } else if (g.pixelFormat == PixelFormat::BGR8) {
                out[0] = rgb[2], out[1] = rgb[1], out[2] = rgb[0];
            } else if (g.pixelFormat == PixelFormat::Mono8) {
                out[0] = uint8_t((299 * rgb[0] + 587 * rgb[1] + 114 * rgb[2] + 500) / 1000);
            } else {
                out[0] = rgb[cell[(sy & 1) * 2 + (sx & 1)]];
            }
            out += channels;
        }
    }
}

void CTestPattern::fill(const FrameGeometry& geometry, uint32_t step, const LutTable* lut,
                        uint8_t* destination) {
    if (geometry.colourBars) {
        switch (geometry.pixelFormat) {
        case PixelFormat::Mono8:
        case PixelFormat::BayerGR8:
        case PixelFormat::BayerRG8:
        case PixelFormat::BayerGB8:
        case PixelFormat::BayerBG8:
        case PixelFormat::RGB8:
        case PixelFormat::BGR8:
            buildTable(8, lut);
            fillBars(geometry, destination);
            return;
        default:
            break;
        }
    }
    switch (geometry.pixelFormat) {
    case PixelFormat::Mono8:
    case PixelFormat::Mono8Signed:
    case PixelFormat::BayerGR8:
    case PixelFormat::BayerRG8:
    case PixelFormat::BayerGB8:
    case PixelFormat::BayerBG8:
        buildTable(8, lut);
        fillEightBit(geometry, step, destination);
        break;
    case PixelFormat::Mono10:
    case PixelFormat::Mono10Packed:
        buildTable(10, lut);
        fillWide(geometry, step, 10, destination);
        break;
    case PixelFormat::Mono12:
    case PixelFormat::Mono12Packed:
    case PixelFormat::BayerGR12:
    case PixelFormat::BayerRG12:
    case PixelFormat::BayerGB12:
    case PixelFormat::BayerBG12:
        buildTable(12, lut);
        fillWide(geometry, step, 12, destination);
        break;
    case PixelFormat::Mono16:
        buildTable(16, lut);
        fillWide(geometry, step, 16, destination);
        break;
    default:
        buildTable(8, lut);
        fillColour(geometry, step, destination);
        break;
    }
}

// Row y is a window into one ramp of levels, shifted by one per row: a memcpy per row, so the
// largest frames are generated much faster than they can be sent.
void CTestPattern::fillEightBit(const FrameGeometry& g, uint32_t step, uint8_t* destination) {
    ramp_.resize(g.width + 256);
    for (uint32_t i = 0; i < ramp_.size(); ++i)
        ramp_[i] = uint8_t(table_[i & 0xFF]);
    for (uint32_t y = 0; y < g.height; ++y) {
        const uint32_t start = (g.offsetX + g.offsetY + y + step) & 0xFF;
        std::memcpy(destination + std::size_t(y) * g.width, ramp_.data() + start, g.width);
    }
}

void CTestPattern::fillWide(const FrameGeometry& g, uint32_t step, int bits, uint8_t* destination) {
    const uint32_t lowMask = (1u << (bits - 8)) - 1;
    const bool packed =
        g.pixelFormat == PixelFormat::Mono10Packed || g.pixelFormat == PixelFormat::Mono12Packed;
    uint8_t* out = destination;
    for (uint32_t y = 0; y < g.height; ++y) {
        const uint32_t sy = g.offsetY + y;
        uint32_t x = 0;
        while (x < g.width) {
            const uint32_t sx = g.offsetX + x;
            const uint32_t level0 = ((sx + sy + step) & 0xFF) << (bits - 8) | (sx & lowMask);
            const uint16_t p0 = table_[level0];
            if (!packed) {
                out[0] = uint8_t(p0);
                out[1] = uint8_t(p0 >> 8);
                out += 2;
                ++x;
                continue;
            }
            const uint32_t level1 =
                ((sx + 1 + sy + step) & 0xFF) << (bits - 8) | ((sx + 1) & lowMask);
            const uint16_t p1 = table_[level1];
            if (bits == 10) {
                out[0] = uint8_t(p0 >> 2);
                out[1] = uint8_t((p0 & 0x3) | (p1 & 0x3) << 4);
                out[2] = uint8_t(p1 >> 2);
            } else {
                out[0] = uint8_t(p0 >> 4);
                out[1] = uint8_t((p0 & 0xF) | (p1 & 0xF) << 4);
                out[2] = uint8_t(p1 >> 4);
            }
            out += 3;
            x += 2;
        }
    }
}

void CTestPattern::fillColour(const FrameGeometry& g, uint32_t step, uint8_t* destination) {
    uint8_t* out = destination;
    for (uint32_t y = 0; y < g.height; ++y) {
        const uint32_t sy = g.offsetY + y;
        for (uint32_t x = 0; x < g.width; ++x) {
            const uint32_t sx = g.offsetX + x;
            const uint8_t red = uint8_t(table_[(sx + step) & 0xFF]);
            const uint8_t green = uint8_t(table_[(sy + step) & 0xFF]);
            const uint8_t blue = uint8_t(table_[(sx + sy + step) & 0xFF]);
            if (g.pixelFormat == PixelFormat::RGB8) {
                out[0] = red;
                out[1] = green;
                out[2] = blue;
                out += 3;
            } else if (g.pixelFormat == PixelFormat::BGR8) {
                out[0] = blue;
                out[1] = green;
                out[2] = red;
                out += 3;
            } else {
                // YUV422_8: luma per pixel, U on even and V on odd pixels.
                out[0] = blue;
                out[1] = uint8_t((x % 2 == 0 ? sx : sy) + step);
                out += 2;
            }
        }
    }
}
