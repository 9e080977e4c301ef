// Moving test pattern and still colour bars of the simulated sensor, in every pixel format the
// camera offers (pixelformats.h lists them).
#pragma once

#include <cstdint>
#include <vector>

namespace PixelFormat {
constexpr uint32_t Mono8 = 0x01080001;
constexpr uint32_t Mono10 = 0x01100003;
constexpr uint32_t Mono12 = 0x01100005;
constexpr uint32_t Mono16 = 0x01100007;
constexpr uint32_t Mono10Packed = 0x010C0004;
constexpr uint32_t Mono12Packed = 0x010C0006;
constexpr uint32_t BayerGR8 = 0x01080008;
constexpr uint32_t BayerRG8 = 0x01080009;
constexpr uint32_t BayerGB8 = 0x0108000A;
constexpr uint32_t BayerBG8 = 0x0108000B;
constexpr uint32_t BayerGR12 = 0x01100010;
constexpr uint32_t BayerRG12 = 0x01100011;
constexpr uint32_t BayerGB12 = 0x01100012;
constexpr uint32_t BayerBG12 = 0x01100013;
constexpr uint32_t RGB8 = 0x02180014;
constexpr uint32_t BGR8 = 0x02180015;
constexpr uint32_t YUV422_8 = 0x02100032; // Y0 U Y1 V
} // namespace PixelFormat

struct FrameGeometry {
    uint32_t width = 0;
    uint32_t height = 0;
    uint32_t offsetX = 0;
    uint32_t offsetY = 0;
    uint32_t pixelFormat = PixelFormat::Mono8;
    // Still colour bars instead of the moving ramp (see CTestPattern).
    bool colourBars = false;
};

// The look-up table as the pattern applies it: its entries in index order and the largest value
// an entry takes. A level of `bits` bits is looked up at level * entries / 2^bits; the entry's
// value goes back to `bits` bits by its top bits (narrower) or by repeating them below it
// (wider) when valueMax + 1 is a power of two, else by scaling. With the camera's default
// 1024-entry table of 10-bit values an 8-bit level p is looked up at p * 4 and divided by 4.
// Colour formats go through the table per channel; YUV422_8 only with its luma.
struct LutTable {
    std::vector<uint16_t> entries;
    uint32_t valueMax = 1023;
};

// The colour bars: vertical bars kBarWidth pixels wide (from the sensor's left edge) of black,
// red, green, blue, yellow, cyan, magenta and white at full level, repeating every 64 pixels.
// Bayer formats carry each bar's colour through their mosaic (so interpolation gives the bar's
// colour back away from its edges), mono formats the bar's luma (0.299 R + 0.587 G + 0.114 B),
// RGB formats the colour itself and YUV formats its luma and chroma; every format at its own
// depth, so that each encodes the same colours. Bars are 8 pixels wide and groups of pixels that
// share chroma are at most 4 wide, so a region whose OffsetX is a multiple of 4 never mixes
// two bars in one group.
class CTestPattern {
public:
    static constexpr uint32_t kBarWidth = 8;
    // The colour (red, green, blue, 0 or 255 each) of the bar at sensor column `x`.
    static void barColour(uint32_t x, uint8_t rgb[3]);

    static bool isSupported(uint32_t pixelFormat);
    static uint32_t bitsPerPixel(uint32_t pixelFormat);
    static uint32_t payloadSize(uint32_t width, uint32_t height, uint32_t pixelFormat);

    // Writes frame number `step` of the pattern (payloadSize() bytes) to destination. The pattern
    // is a diagonal ramp over the sensor that moves by one level per step; the region shows the
    // part of it under the region. lut is null when the table is off.
    void fill(const FrameGeometry& geometry, uint32_t step, const LutTable* lut,
              uint8_t* destination);

private:
    void buildTable(int bits, const LutTable* lut);
    void fillEightBit(const FrameGeometry& g, uint32_t step, uint8_t* destination);
    void fillWide(const FrameGeometry& g, uint32_t step, int bits, uint8_t* destination);
    void fillColour(const FrameGeometry& g, uint32_t step, uint8_t* destination);
    void fillBars(const FrameGeometry& g, uint8_t* destination);
    void fillAnyFormat(const FrameGeometry& g, uint32_t step, uint8_t* destination);

    std::vector<uint16_t> table_; // level -> output level, for the current depth
    std::vector<uint8_t> ramp_;
    std::vector<uint8_t> rgb_;  // fillAnyFormat: each pixel's colour
    std::vector<uint8_t> grey_; // fillAnyFormat: each pixel's grey level
};
