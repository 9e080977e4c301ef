// Frame files: the image bytes as received, TIFF through libtiff, BMP through QtGui.
#include "korvatin/korvatincamera.h"

#include "displaypixeltypes.h"
#include "fileremoval.h"

#include <QFile>
#include <QImage>
#include <QImageWriter>
#include <QString>

#include <tiffio.h>

#include <cstdio>
#include <cstring>
#include <memory>
#include <new>
#include <vector>

namespace {

enum FileFormat { kRaw = 0, kTiff = 1, kBmp = 2 };

// How the samples of a grey or RGB pixel type lie in memory.
struct Layout {
    int channels = 0;        // 1 grey, 3 colour
    int bytesPerSample = 0;  // 1, or 2 (little-endian)
    int significantBits = 0; // of each sample: 8, or 10 to 16 in two bytes
    bool bgr = false;        // colour bytes in B, G, R order
};

// Grey and RGB types in 8 bits or in 16-bit containers; every other type (packed, Bayer, YUV)
// is not a picture by itself.
bool layoutOf(uint32_t pixelType, Layout* layout) {
    switch (pixelType) {
    case 0x01080001: // Mono8
    case korvatin::kDisplayGrey:
        *layout = {1, 1, 8, false};
        return true;
    case 0x01100003: // Mono10
        *layout = {1, 2, 10, false};
        return true;
    case 0x01100005: // Mono12
        *layout = {1, 2, 12, false};
        return true;
    case 0x01100025: // Mono14
        *layout = {1, 2, 14, false};
        return true;
    case 0x01100007: // Mono16
        *layout = {1, 2, 16, false};
        return true;
    case 0x02180014: // RGB8
    case korvatin::kDisplayRgb:
        *layout = {3, 1, 8, false};
        return true;
    case 0x02180015: // BGR8
        *layout = {3, 1, 8, true};
        return true;
    case 0x02300018: // RGB10
        *layout = {3, 2, 10, false};
        return true;
    case 0x0230001A: // RGB12
        *layout = {3, 2, 12, false};
        return true;
    case 0x02300033: // RGB16
        *layout = {3, 2, 16, false};
        return true;
    default:
        return false;
    }
}

// The frame's pixels as rows of R, G, B (or grey) samples: 8-bit ones as they are, deeper ones
// either kept in 16 bits (`keepDepth`) or cut to their top 8 bits.
class RowReader {
public:
    RowReader(const CKorvatinFrame& frame, const Layout& layout)
        : frame_(frame), layout_(layout),
          stride_(frame.Stride() != 0 ? frame.Stride()
                                      : frame.Width() * layout.channels * layout.bytesPerSample) {}

    bool Fits() const {
        const size_t rowBytes = size_t(frame_.Width()) * layout_.channels * layout_.bytesPerSample;
        return frame_.Data() != nullptr && frame_.Width() > 0 && frame_.Height() > 0 &&
               stride_ >= rowBytes &&
               frame_.DataSize() >= size_t(stride_) * (frame_.Height() - 1) + rowBytes;
    }

    void Read8(uint32_t y, uint8_t* out) const {
        const uint8_t* in = frame_.Data() + size_t(y) * stride_;
        const size_t samples = size_t(frame_.Width()) * layout_.channels;
        if (layout_.bytesPerSample == 1) {
            std::memcpy(out, in, samples);
        } else {
            const int shift = layout_.significantBits - 8;
            for (size_t i = 0; i < samples; ++i)
                out[i] = static_cast<uint8_t>((in[2 * i] | (in[2 * i + 1] << 8)) >> shift);
        }
        SwapIfBgr(out, 1);
    }

    void Read16(uint32_t y, uint16_t* out) const {
        const uint8_t* in = frame_.Data() + size_t(y) * stride_;
        const size_t samples = size_t(frame_.Width()) * layout_.channels;
        for (size_t i = 0; i < samples; ++i)
            out[i] = static_cast<uint16_t>(in[2 * i] | (in[2 * i + 1] << 8));
        SwapIfBgr(out, 2);
    }

private:
    template <typename T> void SwapIfBgr(T* row, int) const {
        if (!layout_.bgr)
            return;
        for (uint32_t x = 0; x < frame_.Width(); ++x)
            std::swap(row[3 * x], row[3 * x + 2]);
    }

    const CKorvatinFrame& frame_;
    Layout layout_;
    uint32_t stride_;
};

struct FileCloser {
    void operator()(std::FILE* file) const { std::fclose(file); }
};

struct TiffCloser {
    void operator()(TIFF* tiff) const { TIFFClose(tiff); }
};

// Each writer sets `opened` once the file exists, so that a failure removes only what it made.
QRN_ERROR saveRaw(const CKorvatinFrame& frame, const char* fileName, bool* opened) {
    if (frame.Data() == nullptr || frame.DataSize() == 0)
        return QRN_ERR_INVALID;
    std::unique_ptr<std::FILE, FileCloser> file(std::fopen(fileName, "wb"));
    if (!file)
        return QRN_ERR_IO;
    *opened = true;
    const bool written =
        std::fwrite(frame.Data(), 1, frame.DataSize(), file.get()) == frame.DataSize();
    const bool closed = std::fclose(file.release()) == 0;
    return written && closed ? QRN_OK : QRN_ERR_IO;
}

QRN_ERROR saveTiff(const CKorvatinFrame& frame, const Layout& layout, const char* fileName,
                   bool* opened) {
    const RowReader reader(frame, layout);
    if (!reader.Fits())
        return QRN_ERR_INVALID;
    // libtiff's messages would go to standard error beside the caller's own report of the
    // failure: this file's handle keeps them to itself.
    std::unique_ptr<TIFFOpenOptions, void (*)(TIFFOpenOptions*)> options(TIFFOpenOptionsAlloc(),
                                                                         TIFFOpenOptionsFree);
    if (!options)
        return QRN_ERR_NO_MEMORY;
    const TIFFErrorHandlerExtR quiet = [](TIFF*, void*, const char*, const char*, va_list) {
        return 1; // handled: nothing printed
    };
    TIFFOpenOptionsSetErrorHandlerExtR(options.get(), quiet, nullptr);
    TIFFOpenOptionsSetWarningHandlerExtR(options.get(), quiet, nullptr);
    std::unique_ptr<TIFF, TiffCloser> tiff(TIFFOpenExt(fileName, "w", options.get()));
    if (!tiff)
        return QRN_ERR_IO;
    *opened = true;
    const uint32_t width = frame.Width(), height = frame.Height();
    const bool deep = layout.bytesPerSample == 2;
    TIFFSetField(tiff.get(), TIFFTAG_IMAGEWIDTH, width);
    TIFFSetField(tiff.get(), TIFFTAG_IMAGELENGTH, height);
    TIFFSetField(tiff.get(), TIFFTAG_SAMPLESPERPIXEL, uint16_t(layout.channels));
    TIFFSetField(tiff.get(), TIFFTAG_BITSPERSAMPLE, uint16_t(deep ? 16 : 8));
    TIFFSetField(tiff.get(), TIFFTAG_PHOTOMETRIC,
                 layout.channels == 3 ? PHOTOMETRIC_RGB : PHOTOMETRIC_MINISBLACK);
    TIFFSetField(tiff.get(), TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
    TIFFSetField(tiff.get(), TIFFTAG_COMPRESSION, COMPRESSION_NONE);
    TIFFSetField(tiff.get(), TIFFTAG_ORIENTATION, ORIENTATION_TOPLEFT);
    TIFFSetField(tiff.get(), TIFFTAG_ROWSPERSTRIP, TIFFDefaultStripSize(tiff.get(), 0));
    std::vector<uint16_t> row(size_t(width) * layout.channels);
    for (uint32_t y = 0; y < height; ++y) {
        if (deep)
            reader.Read16(y, row.data());
        else
            reader.Read8(y, reinterpret_cast<uint8_t*>(row.data()));
        if (TIFFWriteScanline(tiff.get(), row.data(), y, 0) < 0)
            return QRN_ERR_IO;
    }
    if (TIFFFlush(tiff.get()) != 1)
        return QRN_ERR_IO;
    return QRN_OK;
}

QRN_ERROR saveBmp(const CKorvatinFrame& frame, const Layout& layout, const char* fileName,
                  bool* opened) {
    const RowReader reader(frame, layout);
    if (!reader.Fits())
        return QRN_ERR_INVALID;
    QImage image(int(frame.Width()), int(frame.Height()),
                 layout.channels == 3 ? QImage::Format_RGB888 : QImage::Format_Grayscale8);
    if (image.isNull())
        return QRN_ERR_NO_MEMORY;
    for (uint32_t y = 0; y < frame.Height(); ++y)
        reader.Read8(y, image.scanLine(int(y)));
    QFile file(QString::fromLocal8Bit(fileName));
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate))
        return QRN_ERR_IO;
    *opened = true;
    QImageWriter writer(&file, "bmp");
    if (!writer.write(image))
        return QRN_ERR_IO;
    file.close();
    return file.error() == QFileDevice::NoError ? QRN_OK : QRN_ERR_IO;
}

} // namespace

QRN_ERROR CKorvatinCamera::FrameSave(const CKorvatinFrame* frame, const char* fileName, int format,
                                     int, void*) {
    if (frame == nullptr || fileName == nullptr || fileName[0] == '\0')
        return QRN_ERR_INVALID;
    if (format != kRaw && format != kTiff && format != kBmp)
        return QRN_ERR_UNSUPPORTED;
    Layout layout;
    // A mosaic, packed or YUV image is saved as what Convert makes of it without interpolation:
    // grey or RGB, 16 bits per sample for deep sources in a TIFF, 8 bits in a BMP.
    CKorvatinFrame converted;
    std::vector<uint8_t> convertedPixels;
    if (format != kRaw && !layoutOf(frame->PixelType(), &layout)) {
        const size_t bytes = size_t(frame->Width()) * frame->Height() * 3 * 2;
        try {
            convertedPixels.resize(bytes);
        } catch (const std::bad_alloc&) {
            return QRN_ERR_NO_MEMORY;
        }
        converted.SetWidth(frame->Width());
        converted.SetHeight(frame->Height());
        converted.Describe(convertedPixels.data(), 0, bytes, 0, 0, 0, nullptr);
        const QRN_ERROR result = converted.Convert(*frame, 0, format == kBmp ? 8 : 0, 0, nullptr);
        if (result != QRN_OK)
            return result;
        if (!layoutOf(converted.PixelType(), &layout))
            return QRN_ERR_UNSUPPORTED;
        frame = &converted;
    }
    QRN_ERROR result = QRN_OK;
    bool opened = false;
    switch (format) {
    case kRaw:
        result = saveRaw(*frame, fileName, &opened);
        break;
    case kTiff:
        result = saveTiff(*frame, layout, fileName, &opened);
        break;
    default:
        result = saveBmp(*frame, layout, fileName, &opened);
        break;
    }
    // Whatever part of the file was written is no picture. Only a regular file is removed: a
    // name such as a device's stays.
    if (result != QRN_OK && opened)
        korvatin::RemoveIfRegularFile(fileName);
    return result;
}
