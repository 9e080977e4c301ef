// The histogram of a frame or of a region of it, with its figures.
#include "framehistogram.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <utility>

namespace {

constexpr uint32_t kDisplayGrey = 0x21084001;
constexpr uint32_t kDisplayRgb = 0x23088005;

// Unpacked mono formats and their depth; 0 for any other format.
int unpackedMonoBits(uint32_t code) {
    switch (code) {
    case 0x01080001: // Mono8
    case kDisplayGrey:
        return 8;
    case 0x01100003: // Mono10
        return 10;
    case 0x01100005: // Mono12
        return 12;
    case 0x01100025: // Mono14
        return 14;
    case 0x01100007: // Mono16
        return 16;
    default:
        return 0;
    }
}

// Unpacked Bayer formats: their depth and the 2 x 2 cell (first row, then second); 0 otherwise.
int unpackedBayer(uint32_t code, const char** cell) {
    static const char* const kCells[] = {"GRBG", "RGGB", "GBRG", "BGGR"};
    struct Entry {
        uint32_t first;
        int bits;
    };
    // Each depth's four orders follow each other in the order GR, RG, GB, BG.
    static const Entry kEntries[] = {
        {0x01080008, 8}, {0x0110000C, 10}, {0x01100010, 12}, {0x0110002E, 16}};
    for (const Entry& entry : kEntries) {
        if (code >= entry.first && code < entry.first + 4) {
            *cell = kCells[code - entry.first];
            return entry.bits;
        }
    }
    return 0;
}

CFrameHistogram::Region cut(const CFrameHistogram::Region& region, uint32_t width,
                            uint32_t height) {
    CFrameHistogram::Region r = region;
    if (r.width == 0 || r.height == 0 || r.x >= width || r.y >= height)
        return {0, 0, width, height};
    r.width = std::min(r.width, width - r.x);
    r.height = std::min(r.height, height - r.y);
    return r;
}

// Counts the 16-bit little-endian samples of region `r`, two columns at a time, into 32-bit
// partial tables: `tables(line)` gives the tables of that line's first and second column of the
// region, and `fold()` moves the partial counts into the totals, every 4096 lines (a line adds at
// most 65535 to a count) and after the last line.
template <typename Tables, typename Fold>
void countPairs16(const uint8_t* data, uint32_t stride, const CFrameHistogram::Region& r,
                  uint32_t mask, Tables tables, Fold fold) {
    for (uint32_t y = 0; y < r.height; ++y) {
        const uint32_t line = r.y + y;
        const uint8_t* p = data + size_t(line) * stride + size_t(r.x) * 2;
        const auto [first, second] = tables(line);
        uint32_t x = 0;
        for (; x + 2 <= r.width; x += 2, p += 4) {
            ++first[(p[0] | (uint32_t(p[1]) << 8)) & mask];
            ++second[(p[2] | (uint32_t(p[3]) << 8)) & mask];
        }
        if (x < r.width)
            ++first[(p[0] | (uint32_t(p[1]) << 8)) & mask];
        if ((y & 4095) == 4095 || y + 1 == r.height)
            fold();
    }
}

} // namespace

void CFrameHistogram::Clear() {
    m_channels.clear();
    m_bits = 0;
    m_frames = 0;
}

void CFrameHistogram::Prepare(int channels, int bits) {
    if (m_bits == bits && int(m_channels.size()) == channels)
        return;
    Clear();
    m_bits = bits;
    static const char* const kGrey[] = {"grey"};
    static const char* const kColour[] = {"red", "green", "blue"};
    for (int c = 0; c < channels; ++c)
        m_channels.push_back(
            {channels == 1 ? kGrey[0] : kColour[c], std::vector<uint64_t>(size_t(1) << bits, 0)});
}

void CFrameHistogram::AddGrey8(const uint8_t* data, uint32_t stride, const Region& r) {
    // Four partial tables, so that runs of equal levels do not wait on one counter.
    uint64_t* bins = m_channels[0].bins.data();
    std::vector<uint32_t> partial(4 * 256, 0);
    for (uint32_t y = 0; y < r.height; ++y) {
        const uint8_t* p = data + size_t(r.y + y) * stride + r.x;
        uint32_t x = 0;
        for (; x + 4 <= r.width; x += 4) {
            ++partial[p[x]];
            ++partial[256 + p[x + 1]];
            ++partial[512 + p[x + 2]];
            ++partial[768 + p[x + 3]];
        }
        for (; x < r.width; ++x)
            ++partial[p[x]];
        // A line adds at most 65535 x 4 to a partial count, far below its limit, so the
        // partial tables go into the totals every 4096 lines.
        if ((y & 4095) == 4095 || y + 1 == r.height) {
            for (int level = 0; level < 256; ++level) {
                bins[level] += uint64_t(partial[level]) + partial[256 + level] +
                               partial[512 + level] + partial[768 + level];
            }
            std::fill(partial.begin(), partial.end(), 0);
        }
    }
}

void CFrameHistogram::AddGrey16(const uint8_t* data, uint32_t stride, const Region& r, int bits) {
    // Two 32-bit partial tables, as for eight bits, folded into the totals every 4096 lines.
    uint64_t* bins = m_channels[0].bins.data();
    const uint32_t mask = (1u << bits) - 1;
    const size_t levels = size_t(1) << bits;
    std::vector<uint32_t> partial(2 * levels, 0);
    uint32_t* even = partial.data();
    uint32_t* odd = even + levels;
    countPairs16(
        data, stride, r, mask, [&](uint32_t) { return std::pair(even, odd); },
        [&] {
            for (size_t level = 0; level < levels; ++level)
                bins[level] += uint64_t(even[level]) + odd[level];
            std::fill(partial.begin(), partial.end(), 0);
        });
}

void CFrameHistogram::AddRgb8(const uint8_t* data, uint32_t stride, const Region& r, int step,
                              bool bgr) {
    uint64_t* red = m_channels[0].bins.data();
    uint64_t* green = m_channels[1].bins.data();
    uint64_t* blue = m_channels[2].bins.data();
    if (bgr)
        std::swap(red, blue);
    for (uint32_t y = 0; y < r.height; ++y) {
        const uint8_t* p = data + size_t(r.y + y) * stride + size_t(r.x) * step;
        for (uint32_t x = 0; x < r.width; ++x, p += step) {
            ++red[p[0]];
            ++green[p[1]];
            ++blue[p[2]];
        }
    }
}

void CFrameHistogram::AddMosaic(const uint8_t* data, uint32_t stride, const Region& r, int bits,
                                const char* cell) {
    uint64_t* channels[3] = {m_channels[0].bins.data(), m_channels[1].bins.data(),
                             m_channels[2].bins.data()};
    // The channel of each cell position, (line & 1) * 2 + (column & 1).
    uint64_t* colourOf[4];
    for (int k = 0; k < 4; ++k) {
        const char c = cell[k];
        colourOf[k] = channels[c == 'R' ? 0 : c == 'G' ? 1 : 2];
    }
    if (bits > 8) {
        // One 32-bit partial table per cell position, folded into the channels every 4096 lines.
        const uint32_t mask = (1u << bits) - 1;
        const size_t levels = size_t(1) << bits;
        std::vector<uint32_t> partial(4 * levels, 0);
        countPairs16(
            data, stride, r, mask,
            [&](uint32_t line) {
                return std::pair(partial.data() + ((line & 1) * 2 + (r.x & 1)) * levels,
                                 partial.data() + ((line & 1) * 2 + ((r.x + 1) & 1)) * levels);
            },
            [&] {
                for (int k = 0; k < 4; ++k) {
                    const uint32_t* counts = partial.data() + size_t(k) * levels;
                    for (size_t level = 0; level < levels; ++level)
                        colourOf[k][level] += counts[level];
                }
                std::fill(partial.begin(), partial.end(), 0);
            });
        return;
    }
    // Eight levels: two partial tables per cell position, so that runs of equal levels do not
    // wait on one counter (as for grey), folded into the channels every 4096 lines.
    std::vector<uint32_t> partial(8 * 256, 0);
    auto fold = [&] {
        for (int k = 0; k < 4; ++k) {
            const uint32_t* a = partial.data() + (2 * k) * 256;
            const uint32_t* b = a + 256;
            for (int level = 0; level < 256; ++level)
                colourOf[k][level] += uint64_t(a[level]) + b[level];
        }
        std::fill(partial.begin(), partial.end(), 0);
    };
    for (uint32_t y = 0; y < r.height; ++y) {
        const uint32_t line = r.y + y;
        const uint8_t* p = data + size_t(line) * stride + r.x;
        // Tables of this line's two positions, the first for the region's first column.
        uint32_t* first = partial.data() + ((line & 1) * 2 + (r.x & 1)) * 512;
        uint32_t* second = partial.data() + ((line & 1) * 2 + ((r.x + 1) & 1)) * 512;
        uint32_t x = 0;
        for (; x + 4 <= r.width; x += 4) {
            ++first[p[x]];
            ++second[p[x + 1]];
            ++first[256 + p[x + 2]];
            ++second[256 + p[x + 3]];
        }
        for (; x < r.width; ++x)
            ++((x & 1) ? second : first)[p[x]];
        if ((y & 4095) == 4095 || y + 1 == r.height)
            fold();
    }
}

bool CFrameHistogram::Add(const CKorvatinFrame& frame, uint32_t bayerMode, const Region& region,
                          void* context) {
    const uint32_t width = frame.Width();
    const uint32_t height = frame.Height();
    if (frame.Data() == nullptr || width == 0 || height == 0)
        return false;
    const Region r = cut(region, width, height);
    const uint32_t code = frame.PixelType();
    const int monoBits = unpackedMonoBits(code);
    const size_t depthBytes = monoBits > 8 ? 2 : 1;
    if (monoBits != 0) {
        const uint32_t stride = frame.Stride() ? frame.Stride() : uint32_t(width * depthBytes);
        if (size_t(height - 1) * stride + width * depthBytes > frame.DataSize())
            return false;
        Prepare(1, monoBits);
        if (monoBits == 8)
            AddGrey8(frame.Data(), stride, r);
        else
            AddGrey16(frame.Data(), stride, r, monoBits);
        ++m_frames;
        return true;
    }
    const bool rgb = code == 0x02180014 || code == kDisplayRgb;
    const bool bgr = code == 0x02180015;
    const bool rgba = code == 0x02200016;
    const bool bgra = code == 0x02200017;
    if (rgb || bgr || rgba || bgra) {
        const int step = (rgba || bgra) ? 4 : 3;
        const uint32_t stride = frame.Stride() ? frame.Stride() : width * step;
        if (size_t(height - 1) * stride + size_t(width) * step > frame.DataSize())
            return false;
        Prepare(3, 8);
        AddRgb8(frame.Data(), stride, r, step, bgr || bgra);
        ++m_frames;
        return true;
    }
    // A mosaic shown in colour: each cell counts into its own colour, at the format's depth, as
    // the sensor measured it (no interpolated value is counted).
    const char* cell = nullptr;
    const int bayerBits = unpackedBayer(code, &cell);
    if (bayerBits != 0 && (bayerMode & 3) != 0) {
        const size_t bytes = bayerBits > 8 ? 2 : 1;
        const uint32_t stride = frame.Stride() ? frame.Stride() : uint32_t(width * bytes);
        if (size_t(height - 1) * stride + width * bytes > frame.DataSize())
            return false;
        Prepare(3, bayerBits);
        AddMosaic(frame.Data(), stride, r, bayerBits, cell);
        ++m_frames;
        return true;
    }
    // Packed, YUV and uninterpolated Bayer formats: as the display shows them, 8 bits per
    // channel.
    const uint32_t conversion = (bayerMode & 3) | 4;
    uint32_t type = 0;
    size_t bytes = 0;
    if (CKorvatinFrame::ConvertedLayout(frame, conversion, 8, &type, &bytes) != 0)
        return false;
    if (m_converted.size() < bytes)
        m_converted.resize(bytes);
    CKorvatinFrame converted;
    converted.Describe(m_converted.data(), bytes, m_converted.size(), 0, 0, 0, nullptr);
    if (converted.Convert(frame, conversion, 8, 1, context) != 0)
        return false;
    const bool grey = converted.PixelType() == kDisplayGrey;
    const uint32_t stride = converted.Stride() ? converted.Stride() : width * (grey ? 1 : 3);
    if (grey) {
        Prepare(1, 8);
        AddGrey8(converted.Data(), stride, r);
    } else {
        Prepare(3, 8);
        AddRgb8(converted.Data(), stride, r, 3, false);
    }
    ++m_frames;
    return true;
}

CFrameHistogram::Figures CFrameHistogram::FiguresOf(const std::vector<uint64_t>& bins) {
    Figures figures;
    if (bins.empty())
        return figures;
    double sum = 0;
    bool seen = false;
    for (size_t level = 0; level < bins.size(); ++level) {
        const uint64_t n = bins[level];
        if (n == 0)
            continue;
        if (!seen)
            figures.minimum = uint32_t(level);
        seen = true;
        figures.maximum = uint32_t(level);
        figures.count += n;
        sum += double(n) * double(level);
    }
    if (figures.count == 0)
        return figures;
    figures.mean = sum / double(figures.count);
    // The spread around the mean in a second pass: no cancellation of two large sums.
    double squares = 0;
    for (size_t level = 0; level < bins.size(); ++level) {
        if (bins[level] == 0)
            continue;
        const double d = double(level) - figures.mean;
        squares += double(bins[level]) * d * d;
    }
    figures.stddev = std::sqrt(squares / double(figures.count));
    figures.clippedLow = bins.front();
    figures.clippedHigh = bins.back();
    return figures;
}

std::string CFrameHistogram::Line(const std::string& channel, const Figures& figures) {
    char text[160];
    std::snprintf(text, sizeof text, "%s %u %u %.2f %.2f %llu %llu", channel.c_str(),
                  figures.minimum, figures.maximum, figures.mean, figures.stddev,
                  static_cast<unsigned long long>(figures.clippedLow),
                  static_cast<unsigned long long>(figures.clippedHigh));
    return text;
}
