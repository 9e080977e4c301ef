// The simulator's colour bars as the tests know them: the colour of each column, what every
// pixel format keeps of it, and the check of an image read back against them.
#pragma once

#include "pixelformats.h"

#include <QByteArray>
#include <QProcess>
#include <QString>

#include <cmath>
#include <cstdlib>
#include <functional>
#include <vector>

namespace colourbars {

// The first frame of a picture or video file decoded by ffmpeg as rgb24; empty when it cannot
// be decoded or has another size than `width` x `height`.
inline QByteArray decodeRgb(const QString& file, uint32_t width, uint32_t height) {
    QProcess ffmpeg;
    ffmpeg.start("ffmpeg", {"-v", "error", "-i", file, "-frames:v", "1", "-f", "rawvideo",
                            "-pix_fmt", "rgb24", "-"});
    if (!ffmpeg.waitForFinished(60000) || ffmpeg.exitCode() != 0)
        return QByteArray();
    const QByteArray rgb = ffmpeg.readAllStandardOutput();
    return rgb.size() == int(width * height * 3) ? rgb : QByteArray();
}

// The bars as this test knows them: black, red, green, blue, yellow, cyan, magenta, white, 8
// pixels wide each from the sensor's left edge, repeating every 64 pixels.
inline void barColour(uint32_t x, int rgb[3]) {
    static const int kBars[8][3] = {{0, 0, 0},     {255, 0, 0},   {0, 255, 0},   {0, 0, 255},
                                    {255, 255, 0}, {0, 255, 255}, {255, 0, 255}, {255, 255, 255}};
    for (int c = 0; c < 3; ++c)
        rgb[c] = kBars[(x / 8) % 8][c];
}

inline bool isMono(const camsim::PixelFormatInfo& f) {
    using L = camsim::SampleLayout;
    return f.mosaic[0] == '\0' &&
           (f.layout == L::Byte || f.layout == L::SignedByte || f.layout == L::Word ||
            f.layout == L::GevPacked || f.layout == L::LsbPacked);
}

// What a format can keep of the bars, in levels of 0..255: nothing is lost at 8 bits and more
// (the bars are whole levels); a narrower grey is rounded to its nearest level, half a step of
// 255 / (2^bits - 1); YUV and YCbCr round luma and chroma to whole bytes, half a level each,
// which the way back multiplies by the luma factor and the largest chroma factor of the
// format's matrix, plus half a level for the fixed-point arithmetic.
inline int tolerance(const camsim::PixelFormatInfo& f) {
    if (f.layout == camsim::SampleLayout::Yuv) {
        double luma = 1.0, chroma = 1.772; // full-range BT.601: Cb to B
        if (f.matrix == camsim::YuvMatrix::Studio601) {
            luma = 255.0 / 219;
            chroma = 1.772 * 255 / 224;
        } else if (f.matrix == camsim::YuvMatrix::Studio709) {
            luma = 255.0 / 219;
            chroma = 1.8556 * 255 / 224;
        }
        return int(std::ceil(0.5 * (luma + chroma) + 0.5));
    }
    if (isMono(f) && f.bits < 8)
        return int(std::ceil(255.0 / ((1 << f.bits) - 1) / 2));
    return 0;
}

// The 8-bit colour the converted pixel at sensor column x must have: the bar's colour, or its
// luma in grey for a mono format.
inline void expectedColour(const camsim::PixelFormatInfo& f, uint32_t x, int rgb[3]) {
    barColour(x, rgb);
    if (isMono(f)) {
        const int luma = (299 * rgb[0] + 587 * rgb[1] + 114 * rgb[2] + 500) / 1000;
        rgb[0] = rgb[1] = rgb[2] = luma;
    }
}

// Compares an image read back (through `sample`, 8-bit levels, `channels` 1 or 3) with the bars;
// the first difference beyond the format's tolerance is described in `error`.
inline bool matchesBars(const camsim::PixelFormatInfo& f, uint32_t width, uint32_t height,
                        int channels, const std::function<int(uint32_t, uint32_t, int)>& sample,
                        QString* error) {
    const int allowed = tolerance(f);
    for (uint32_t y = 0; y < height; ++y)
        for (uint32_t x = 0; x < width; ++x) {
            int rgb[3];
            expectedColour(f, x, rgb);
            for (int c = 0; c < channels; ++c) {
                const int got = sample(x, y, c);
                if (std::abs(got - rgb[c]) > allowed) {
                    *error = QString("%1: pixel %2,%3 channel %4 is %5, the bar is %6 (within %7)")
                                 .arg(f.name)
                                 .arg(x)
                                 .arg(y)
                                 .arg(c)
                                 .arg(got)
                                 .arg(rgb[c])
                                 .arg(allowed);
                    return false;
                }
            }
        }
    return true;
}

// The formats the simulator offers that are images (all but Coord3D_ABC8).
inline std::vector<const camsim::PixelFormatInfo*> imageFormats() {
    size_t count = 0;
    const camsim::PixelFormatInfo* formats = camsim::PixelFormats(&count);
    std::vector<const camsim::PixelFormatInfo*> images;
    for (size_t i = 0; i < count; ++i)
        if (formats[i].layout != camsim::SampleLayout::Coord3D8)
            images.push_back(&formats[i]);
    return images;
}

} // namespace colourbars
