// CKorvatinFrame::Convert: any source format the SDK reads into grey or RGB, 8 or 16 bits.
#include "displaypixeltypes.h"
#include "korvatin/korvatinframe.h"

#include "convertbayer.h"
#include "convertrows.h"
#include "convertworkers.h"
#include "sourceformats.h"

#include <algorithm>
#include <functional>

namespace {

using korvatin::BayerMethod;
using korvatin::BayerOrder;
using korvatin::SourceFormat;
using korvatin::SourcePacking;

constexpr uint32_t kMono8 = 0x01080001;
constexpr uint32_t kMono16 = 0x01100007;
constexpr uint32_t kRgb8 = 0x02180014;
constexpr uint32_t kRgb16 = 0x02300033;
using korvatin::kDisplayGrey;
using korvatin::kDisplayRgb;

// Below this many pixels a second thread costs more than it saves.
constexpr uint64_t kThreadedPixels = 1u << 16;
// Bands an image is cut into for the threads to share: enough that a thread the scheduler keeps
// waiting costs little, few enough that each band's setup (two extra source rows) is noise.
constexpr uint32_t kBands = 16;

bool Overlap(const uint8_t* a, size_t aSize, const uint8_t* b, size_t bSize) {
    const auto pa = reinterpret_cast<uintptr_t>(a);
    const auto pb = reinterpret_cast<uintptr_t>(b);
    return pa < pb + bSize && pb < pa + aSize;
}

} // namespace

namespace {

// What a conversion of `source` with `code` and `bitDepth` reads and writes.
struct Plan {
    const SourceFormat* format = nullptr;
    uint32_t width = 0;
    uint32_t height = 0;
    size_t sourceStride = 0;
    size_t sourceBytes = 0;
    uint32_t interpolation = 0;
    bool colourSource = false;
    bool colour = false;
    bool wide = false;
    size_t outLine = 0;
    size_t outBytes = 0;
    uint32_t pixelType = 0;
};

// Everything Convert checks about the source, and the layout of its result.
QRN_ERROR PlanConversion(const CKorvatinFrame& source, uint32_t code, uint32_t bitDepth,
                         Plan* plan) {
    const SourceFormat* format = korvatin::FindSourceFormat(source.PixelType());
    if (format == nullptr)
        return QRN_ERR_UNSUPPORTED;
    const uint32_t width = source.Width();
    const uint32_t height = source.Height();
    if (width == 0 || height == 0 || source.Data() == nullptr)
        return QRN_ERR_INVALID;

    const bool packedStream = korvatin::IsPackedStream(*format);
    const size_t lineBytes = korvatin::LineBytes(*format, width);
    const size_t sourceStride =
        !packedStream && source.Stride() >= lineBytes ? source.Stride() : lineBytes;
    const size_t sourceBytes = korvatin::ImageBytes(*format, width, height, sourceStride);
    if (source.DataSize() < sourceBytes)
        return QRN_ERR_INVALID;

    const uint32_t interpolation = code & 3;
    const bool display = (code & 4) != 0;
    const bool bayer = format->bayer != BayerOrder::None;
    const bool colourSource = korvatin::IsColour(*format);
    const bool colour = colourSource || (bayer && interpolation != 0);
    const bool wide = bitDepth == 0 && format->bits > 8;
    // Pixels that share chroma come in whole groups.
    if (format->yuv != nullptr && width % format->yuv->pixels != 0)
        return QRN_ERR_INVALID;
    if (bayer && interpolation != 0 && (width < 2 || height < 2))
        return QRN_ERR_INVALID;

    const uint32_t channels = colour ? 3 : 1;
    const uint32_t sampleBytes = wide ? 2 : 1;
    plan->format = format;
    plan->width = width;
    plan->height = height;
    plan->sourceStride = sourceStride;
    plan->sourceBytes = sourceBytes;
    plan->interpolation = interpolation;
    plan->colourSource = colourSource;
    plan->colour = colour;
    plan->wide = wide;
    plan->outLine = size_t(width) * channels * sampleBytes;
    plan->outBytes = plan->outLine * height;
    plan->pixelType = colour ? (wide      ? kRgb16
                                : display ? kDisplayRgb
                                          : kRgb8)
                             : (wide      ? kMono16
                                : display ? kDisplayGrey
                                          : kMono8);
    return QRN_OK;
}

} // namespace

QRN_ERROR CKorvatinFrame::ConvertedLayout(const CKorvatinFrame& source, uint32_t code,
                                          uint32_t bitDepth, uint32_t* pixelType, size_t* bytes) {
    Plan plan;
    const QRN_ERROR result = PlanConversion(source, code, bitDepth, &plan);
    if (result != QRN_OK)
        return result;
    if (pixelType != nullptr)
        *pixelType = plan.pixelType;
    if (bytes != nullptr)
        *bytes = plan.outBytes;
    return QRN_OK;
}

// The result:
// - Mono sources, and Bayer sources without interpolation (code bits 0-1 = 0), give one channel;
//   Bayer with interpolation (1 nearest neighbour, 2 or 3 bilinear) and the colour sources (RGB
//   and BGR in every packing, planar RGB, YUV and YCbCr) give R, G, B. Alpha is dropped; YUV and
//   YCbCr go through their standard's matrix (see sourceformats.cpp); Mono8s shows -128..127 as
//   0..255; 1-, 2- and 4-bit samples are stretched to 0..255, 5- and 6-bit ones (RGB565p) widened
//   by repeating their top bits.
// - bitDepth 0 with a source of more than 8 significant bits gives 16 bits per channel, Mono16 or
//   RGB16, holding the source's values unshifted (a 12-bit source stays 0..4095, so the image
//   keeps every bit; 16-bit output never carries a display type). Any other bitDepth gives 8 bits
//   per channel: the top 8 significant bits of each sample (value >> (bits - 8)), taken before a
//   Bayer interpolation.
// - 8-bit results carry the display types when code bit 2 is set (grey 0x21084001, RGB
//   0x23088005), else Mono8 or RGB8. Bit 3 and `flag` change nothing.
// The destination's stride becomes its line length, its block id and timestamp the source's.
// The source is read only within its DataSize; lines of byte-aligned formats are Stride() apart
// when Stride() is at least a line's length. Packed formats (GigE Vision 10/12Packed, PFNC 10p and
// 12p) are one continuous run of pixels whatever the stride. YUV 4:2:2 needs an even width, 4:1:1 a
// multiple of 4, Bayer interpolation at least 2 x 2 pixels. Nothing is written unless the whole
// result fits. Planar sources are three planes of width x height samples, one after the other,
// whatever the stride; RGB12V1Packed, like the other packed formats, is one continuous run.
QRN_ERROR CKorvatinFrame::Convert(const CKorvatinFrame& source, uint32_t code, uint32_t bitDepth,
                                  uint32_t flag, void* context) {
    (void)flag;
    Plan plan;
    const QRN_ERROR planned = PlanConversion(source, code, bitDepth, &plan);
    if (planned != QRN_OK)
        return planned;
    const SourceFormat* format = plan.format;
    const uint32_t width = plan.width;
    const uint32_t height = plan.height;
    const size_t sourceStride = plan.sourceStride;
    const bool colourSource = plan.colourSource;
    const bool colour = plan.colour;
    const bool wide = plan.wide;
    const size_t outLine = plan.outLine;
    const size_t outBytes = plan.outBytes;
    if (data_ == nullptr || bufferSize_ < outBytes)
        return QRN_ERR_INVALID;
    if (wide && (reinterpret_cast<uintptr_t>(data_) & 1))
        return QRN_ERR_INVALID;
    if (Overlap(data_, bufferSize_, source.Data(), plan.sourceBytes))
        return QRN_ERR_INVALID;

    const korvatin::MonoImage image{format, source.Data(), sourceStride, width};
    uint8_t* const out = data_;
    const BayerMethod method =
        plan.interpolation == 1 ? BayerMethod::NearestNeighbour : BayerMethod::Bilinear;

    // Rows [first, end) of the result; bands of rows are independent.
    const std::function<void(int, int)> job = [&](int band, int bands) {
        const uint32_t first = uint32_t(uint64_t(height) * band / bands);
        const uint32_t end = uint32_t(uint64_t(height) * (band + 1) / bands);
        if (colourSource) {
            const korvatin::ColourImage colourImage{format, source.Data(), sourceStride, width,
                                                    height};
            for (uint32_t y = first; y < end; ++y) {
                if (wide)
                    korvatin::ColourRow16(colourImage, y,
                                          reinterpret_cast<uint16_t*>(out + y * outLine));
                else
                    korvatin::ColourRow8(colourImage, y, out + y * outLine);
            }
        } else if (colour) {
            if (wide)
                korvatin::DemosaicRows16(image, height, format->bayer, method, first, end,
                                         reinterpret_cast<uint16_t*>(out));
            else
                korvatin::DemosaicRows8(image, height, format->bayer, method, first, end, out);
        } else {
            for (uint32_t y = first; y < end; ++y) {
                if (wide)
                    korvatin::UnpackRow16(image, y, reinterpret_cast<uint16_t*>(out + y * outLine));
                else
                    korvatin::UnpackRow8(image, y, out + y * outLine);
            }
        }
    };
    if (context != nullptr && uint64_t(width) * height >= kThreadedPixels)
        korvatin::ConvertWorkers::Shared().Run(int(std::min<uint32_t>(height, kBands)), job);
    else
        job(0, 1);

    width_ = width;
    height_ = height;
    pixelType_ = plan.pixelType;
    stride_ = uint32_t(outLine);
    dataSize_ = outBytes;
    blockId_ = source.BlockId();
    timestamp_ = source.Timestamp();
    return QRN_OK;
}

const char* CKorvatinFrame::PixelFormatName(uint32_t pixelType) {
    return korvatin::PixelFormatName(pixelType);
}

std::string CKorvatinFrame::ConversionRefusal(uint32_t pixelType) {
    return korvatin::ConversionRefusal(pixelType);
}
