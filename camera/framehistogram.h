// The histogram of a frame (or of a region of it): one channel for grey images, red, green and
// blue for colour ones, with minimum, maximum, mean, standard deviation and the pixels at the
// lowest and highest level. What the window's histogram panel and viewlane-cli histogram show.
#pragma once

#include <korvatin/korvatinframe.h>

#include <cstdint>
#include <string>
#include <vector>

class CFrameHistogram {
public:
    // A rectangle of the image in pixels; an empty one means the whole image.
    struct Region {
        uint32_t x = 0, y = 0, width = 0, height = 0;
    };

    struct Channel {
        std::string name;           // "grey", "red", "green" or "blue"
        std::vector<uint64_t> bins; // one per level, 2^bits of them
    };

    // The figures of one channel's bins.
    struct Figures {
        uint32_t minimum = 0;
        uint32_t maximum = 0;
        double mean = 0;
        double stddev = 0;
        uint64_t count = 0;
        uint64_t clippedLow = 0;  // pixels at level 0
        uint64_t clippedHigh = 0; // pixels at the highest level, 2^bits - 1
    };

    // Adds the pixels of `frame` in `region` (cut to the image). Grey formats count their
    // levels at their own depth (Mono8 to Mono16 unpacked: 2^bits bins); RGB and BGR 8-bit
    // formats count their three components; an unpacked Bayer mosaic shown in colour
    // (`bayerMode` 1 nearest neighbour or 3 bilinear) counts each cell into its own colour at
    // the format's depth, the values the sensor measured (red and blue a quarter of the
    // pixels each, green half); any other format, and a mosaic with `bayerMode` 0, goes
    // through the SDK's conversion to 8-bit grey or RGB as the display shows it, with
    // `context` the conversion context (may be null). A frame of another kind of channels or depth
    // than the frames added before starts the histogram anew. Returns false, adding nothing, for a
    // format the SDK cannot convert.
    bool Add(const CKorvatinFrame& frame, uint32_t bayerMode, const Region& region, void* context);
    void Clear();

    int Bits() const { return m_bits; }
    const std::vector<Channel>& Channels() const { return m_channels; }
    uint32_t Frames() const { return m_frames; }

    static Figures FiguresOf(const std::vector<uint64_t>& bins);
    // "grey 0 255 127.50 73.90 1000 900": channel, min, max, mean, stddev, clipped low and
    // clipped high, space-separated.
    static std::string Line(const std::string& channel, const Figures& figures);

private:
    void Prepare(int channels, int bits);
    void AddGrey8(const uint8_t* data, uint32_t stride, const Region& r);
    void AddGrey16(const uint8_t* data, uint32_t stride, const Region& r, int bits);
    void AddRgb8(const uint8_t* data, uint32_t stride, const Region& r, int step, bool bgr);
    void AddMosaic(const uint8_t* data, uint32_t stride, const Region& r, int bits,
                   const char* cell);

    int m_bits = 0;
    std::vector<Channel> m_channels;
    uint32_t m_frames = 0;
    std::vector<uint8_t> m_converted; // scratch of the conversion path
};
