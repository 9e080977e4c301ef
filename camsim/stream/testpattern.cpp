// Moving test pattern of the simulated sensor, in every pixel format the camera offers.
#include "testpattern.h"

#include "pixelformats.h"

#include <algorithm>
#include <cmath>
#include <cstring>

bool CTestPattern::isSupported(uint32_t pixelFormat) {
    return camsim::FindPixelFormat(pixelFormat) != nullptr;
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
            buildTable(8, lut);
            fillAnyFormat(geometry, step, destination);
            return;
        }
    }
    switch (geometry.pixelFormat) {
    case PixelFormat::Mono8:
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
    case PixelFormat::RGB8:
    case PixelFormat::BGR8:
    case PixelFormat::YUV422_8:
        buildTable(8, lut);
        fillColour(geometry, step, destination);
        break;
    default:
        buildTable(8, lut);
        fillAnyFormat(geometry, step, destination);
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

namespace {

using camsim::PixelFormatInfo;
using camsim::SampleLayout;

// An 8-bit level as a sample of `bits` bits: wider by repeating its bits below it (so its top 8
// bits are the level again), narrower by rounding to the nearest of the fewer levels.
uint32_t scaleLevel(uint32_t level, int bits) {
    if (bits >= 8)
        return (level << (bits - 8)) | (level >> (16 - bits));
    const uint32_t top = (1u << bits) - 1;
    return (level * top + 127) / 255;
}

// Luma, Cb and Cr of an R, G, B colour (0..255 each) with the format's matrix, unrounded.
void toYCbCr(const uint8_t rgb[3], camsim::YuvMatrix matrix, double ycc[3]) {
    const bool bt709 = matrix == camsim::YuvMatrix::Studio709;
    const double kr = bt709 ? 0.2126 : 0.299;
    const double kb = bt709 ? 0.0722 : 0.114;
    const double luma = kr * rgb[0] + (1 - kr - kb) * rgb[1] + kb * rgb[2];
    const double cb = (rgb[2] - luma) / (2 * (1 - kb));
    const double cr = (rgb[0] - luma) / (2 * (1 - kr));
    if (matrix == camsim::YuvMatrix::Full601) {
        ycc[0] = luma;
        ycc[1] = 128 + cb;
        ycc[2] = 128 + cr;
    } else {
        ycc[0] = 16 + luma * 219 / 255;
        ycc[1] = 128 + cb * 224 / 255;
        ycc[2] = 128 + cr * 224 / 255;
    }
}

uint8_t roundByte(double v) {
    return uint8_t(std::clamp(std::lround(v), 0L, 255L));
}

// Appends `bits`-bit values to a little-endian bit stream, the first value in the lowest bits.
class BitWriter {
public:
    explicit BitWriter(uint8_t* out) : out_(out) {}
    void put(uint32_t value, int bits) {
        acc_ |= uint64_t(value) << filled_;
        filled_ += bits;
        while (filled_ >= 8) {
            *out_++ = uint8_t(acc_);
            acc_ >>= 8;
            filled_ -= 8;
        }
    }
    void flush() {
        if (filled_ > 0)
            *out_++ = uint8_t(acc_);
        acc_ = 0;
        filled_ = 0;
    }

private:
    uint8_t* out_;
    uint64_t acc_ = 0;
    int filled_ = 0;
};

// Two samples in three bytes, high 8 bits in the first and third byte, the low bits in the
// middle byte's low and high nibble; a lone last sample leaves the third byte out.
class GevPairWriter {
public:
    GevPairWriter(uint8_t* out, int bits) : out_(out), low_(bits - 8) {}
    void put(uint32_t value) {
        if (!odd_) {
            out_[0] = uint8_t(value >> low_);
            out_[1] = uint8_t(value & ((1u << low_) - 1));
        } else {
            out_[1] = uint8_t(out_[1] | (value & ((1u << low_) - 1)) << 4);
            out_[2] = uint8_t(value >> low_);
            out_ += 3;
        }
        odd_ = !odd_;
    }

private:
    uint8_t* out_;
    int low_;
    bool odd_ = false;
};

void putWord(uint8_t*& out, uint32_t value) {
    out[0] = uint8_t(value);
    out[1] = uint8_t(value >> 8);
    out += 2;
}

} // namespace

// Any format of the table, from the colour and grey level of each pixel: the still bars, or the
// ramp (red x + n, green y + n, blue x + y + n, grey x + y + n, mod 256). Levels go through the
// look-up table as 8-bit levels, then become the format's samples: grey for mono formats, the
// cell's colour for Bayer formats, the three colours for RGB formats, luma and chroma (the
// chroma of a group is the mean of its pixels') for YUV formats.
void CTestPattern::fillAnyFormat(const FrameGeometry& g, uint32_t step, uint8_t* destination) {
    const PixelFormatInfo* format = camsim::FindPixelFormat(g.pixelFormat);
    if (format == nullptr)
        return;
    const std::size_t pixels = std::size_t(g.width) * g.height;
    // The colour and the grey level of every pixel, in stream order.
    rgb_.resize(pixels * 3);
    grey_.resize(pixels);
    for (uint32_t y = 0; y < g.height; ++y) {
        const uint32_t sy = g.offsetY + y;
        for (uint32_t x = 0; x < g.width; ++x) {
            const uint32_t sx = g.offsetX + x;
            uint8_t* rgb = &rgb_[(std::size_t(y) * g.width + x) * 3];
            uint8_t level = 0;
            if (g.colourBars) {
                barColour(sx, rgb);
                for (int c = 0; c < 3; ++c)
                    rgb[c] = uint8_t(table_[rgb[c]]);
                level = uint8_t((299 * rgb[0] + 587 * rgb[1] + 114 * rgb[2] + 500) / 1000);
            } else {
                rgb[0] = uint8_t(table_[(sx + step) & 0xFF]);
                rgb[1] = uint8_t(table_[(sy + step) & 0xFF]);
                rgb[2] = uint8_t(table_[(sx + sy + step) & 0xFF]);
                level = uint8_t(table_[(sx + sy + step) & 0xFF]);
            }
            grey_[std::size_t(y) * g.width + x] = level;
        }
    }

    const int bits = format->bits;
    const bool bayer = format->mosaic[0] != '\0';
    // The sample of a single-channel format at pixel index i.
    auto single = [&](std::size_t i) -> uint32_t {
        if (!bayer)
            return scaleLevel(grey_[i], bits);
        const uint32_t x = g.offsetX + uint32_t(i % g.width);
        const uint32_t y = g.offsetY + uint32_t(i / g.width);
        const char colour = format->mosaic[(y & 1) * 2 + (x & 1)];
        const int channel = colour == 'R' ? 0 : colour == 'G' ? 1 : 2;
        return scaleLevel(rgb_[i * 3 + channel], bits);
    };
    // Component k (0 red, 1 green, 2 blue) of pixel i, at the format's depth.
    auto component = [&](std::size_t i, int k) { return scaleLevel(rgb_[i * 3 + k], bits); };
    // The order the components are written in.
    const int order[3] = {format->bgr ? 2 : 0, 1, format->bgr ? 0 : 2};

    uint8_t* out = destination;
    switch (format->layout) {
    case SampleLayout::Byte:
        for (std::size_t i = 0; i < pixels; ++i)
            *out++ = uint8_t(single(i));
        break;
    case SampleLayout::SignedByte:
        for (std::size_t i = 0; i < pixels; ++i)
            *out++ = uint8_t(grey_[i] ^ 0x80);
        break;
    case SampleLayout::Word:
        for (std::size_t i = 0; i < pixels; ++i)
            putWord(out, single(i));
        break;
    case SampleLayout::GevPacked: {
        GevPairWriter writer(out, bits);
        for (std::size_t i = 0; i < pixels; ++i)
            writer.put(single(i));
        break;
    }
    case SampleLayout::LsbPacked: {
        BitWriter writer(out);
        for (std::size_t i = 0; i < pixels; ++i)
            writer.put(single(i), bits);
        writer.flush();
        break;
    }
    case SampleLayout::Rgb8:
    case SampleLayout::Rgba8:
        for (std::size_t i = 0; i < pixels; ++i) {
            for (int k : order)
                *out++ = uint8_t(component(i, k));
            if (format->layout == SampleLayout::Rgba8)
                *out++ = 255;
        }
        break;
    case SampleLayout::Rgb16:
        for (std::size_t i = 0; i < pixels; ++i)
            for (int k : order)
                putWord(out, component(i, k));
        break;
    case SampleLayout::Rgb10V1:
        for (std::size_t i = 0; i < pixels; ++i, out += 4) {
            const uint32_t r = component(i, 0), gr = component(i, 1), b = component(i, 2);
            out[0] = uint8_t((b & 3) | (gr & 3) << 2 | (r & 3) << 4);
            out[1] = uint8_t(b >> 2);
            out[2] = uint8_t(gr >> 2);
            out[3] = uint8_t(r >> 2);
        }
        break;
    case SampleLayout::Rgb10p32:
        for (std::size_t i = 0; i < pixels; ++i, out += 4) {
            const uint32_t w = component(i, 0) | component(i, 1) << 10 | component(i, 2) << 20;
            for (int k = 0; k < 4; ++k)
                out[k] = uint8_t(w >> (8 * k));
        }
        break;
    case SampleLayout::Rgb12V1: {
        GevPairWriter writer(out, 12);
        for (std::size_t i = 0; i < pixels; ++i)
            for (int k = 0; k < 3; ++k)
                writer.put(component(i, k));
        break;
    }
    case SampleLayout::Rgb565:
        for (std::size_t i = 0; i < pixels; ++i) {
            const uint32_t first = scaleLevel(rgb_[i * 3 + order[0]], 5);
            const uint32_t green = scaleLevel(rgb_[i * 3 + 1], 6);
            const uint32_t last = scaleLevel(rgb_[i * 3 + order[2]], 5);
            putWord(out, first | green << 5 | last << 11);
        }
        break;
    case SampleLayout::Planar8:
    case SampleLayout::Planar16:
        for (int k = 0; k < 3; ++k)
            for (std::size_t i = 0; i < pixels; ++i) {
                if (format->layout == SampleLayout::Planar8)
                    *out++ = uint8_t(component(i, k));
                else
                    putWord(out, component(i, k));
            }
        break;
    case SampleLayout::Yuv: {
        const char* layout = format->yuvOrder;
        const std::size_t groupBytes = std::strlen(layout);
        const std::size_t groupPixels = groupBytes == 3 ? 1 : groupBytes == 4 ? 2 : 4;
        for (std::size_t i = 0; i + groupPixels <= pixels; i += groupPixels) {
            double luma[4] = {}, cb = 0, cr = 0;
            for (std::size_t p = 0; p < groupPixels; ++p) {
                double ycc[3];
                toYCbCr(&rgb_[(i + p) * 3], format->matrix, ycc);
                luma[p] = ycc[0];
                cb += ycc[1] / double(groupPixels);
                cr += ycc[2] / double(groupPixels);
            }
            std::size_t nextLuma = 0;
            for (std::size_t b = 0; b < groupBytes; ++b) {
                const char what = layout[b];
                *out++ = roundByte(what == 'U' ? cb : what == 'V' ? cr : luma[nextLuma++]);
            }
        }
        break;
    }
    case SampleLayout::Coord3D8:
        for (std::size_t i = 0; i < pixels; ++i) {
            *out++ = grey_[i];
            *out++ = uint8_t(g.offsetX + i % g.width);
            *out++ = uint8_t(g.offsetY + i / g.width);
        }
        break;
    }
}
