// An AVI file of uncompressed frames written through FFmpeg's libavformat.
#include "aviwriter.h"

#include "convertrows.h"
#include "fileremoval.h"

extern "C" {
#include <libavformat/avformat.h>
#include <libavutil/mathematics.h>
}

#if defined(__x86_64__) || defined(__i386__)
#include <immintrin.h>
#endif

#include <cstdio>
#include <cstring>
#include <new>

namespace korvatin {

namespace {

constexpr double kDefaultFramesPerSecond = 25.0;

std::string avError(int code) {
    char text[AV_ERROR_MAX_STRING_SIZE] = {};
    av_strerror(code, text, sizeof text);
    return text;
}

// R, G, B to B, G, R for one row of `width` pixels.
void swapRedBlue(const uint8_t* in, uint8_t* out, uint32_t width) {
    for (uint32_t x = 0; x < width; ++x) {
        out[3 * x] = in[3 * x + 2];
        out[3 * x + 1] = in[3 * x + 1];
        out[3 * x + 2] = in[3 * x];
    }
}

#if defined(__x86_64__) || defined(__i386__)
// The same, five pixels a step with one byte shuffle. Each store writes one byte past the five
// pixels; the next step (or the scalar tail) writes that byte again, so rows stay in bounds as
// long as a whole sixth pixel follows the step.
__attribute__((target("ssse3"))) void swapRedBlueSsse3(const uint8_t* in, uint8_t* out,
                                                       uint32_t width) {
    const __m128i order = _mm_setr_epi8(2, 1, 0, 5, 4, 3, 8, 7, 6, 11, 10, 9, 14, 13, 12, 15);
    uint32_t x = 0;
    for (; x + 6 <= width; x += 5) {
        const __m128i pixels = _mm_loadu_si128(reinterpret_cast<const __m128i*>(in + 3 * x));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out + 3 * x), _mm_shuffle_epi8(pixels, order));
    }
    swapRedBlue(in + 3 * x, out + 3 * x, width - x);
}

#endif

void toBgr(const uint8_t* in, uint8_t* out, uint32_t width) {
#if defined(__x86_64__) || defined(__i386__)
    if (CpuHasSsse3()) {
        swapRedBlueSsse3(in, out, width);
        return;
    }
#endif
    swapRedBlue(in, out, width);
}

struct PacketDeleter {
    void operator()(AVPacket* packet) const { av_packet_free(&packet); }
};
using PacketPtr = std::unique_ptr<AVPacket, PacketDeleter>;

} // namespace

AviWriter::~AviWriter() {
    if (context_ != nullptr)
        Close(nullptr);
}

void AviWriter::Free() {
    if (context_ == nullptr)
        return;
    if (context_->pb != nullptr)
        avio_closep(&context_->pb);
    avformat_free_context(context_);
    context_ = nullptr;
}

std::unique_ptr<AviWriter> AviWriter::Open(const std::string& fileName, uint32_t width,
                                           uint32_t height, bool color, double framesPerSecond,
                                           std::string* error) {
    auto fail = [&](const std::string& why, AviWriter* writer) {
        const bool created =
            writer != nullptr && writer->context_ != nullptr && writer->context_->pb != nullptr;
        if (writer != nullptr)
            writer->Free();
        if (created)
            RemoveIfRegularFile(fileName.c_str());
        if (error != nullptr)
            *error = why;
        return std::unique_ptr<AviWriter>();
    };
    if (fileName.empty())
        return fail("No file name was given", nullptr);
    if (width == 0 || height == 0 || width > 32768 || height > 32768)
        return fail("The frame size " + std::to_string(width) + " x " + std::to_string(height) +
                        " cannot be recorded",
                    nullptr);
    std::unique_ptr<AviWriter> writer(new AviWriter());
    writer->fileName_ = fileName;
    writer->width_ = width;
    writer->height_ = height;
    writer->color_ = color;

    int result =
        avformat_alloc_output_context2(&writer->context_, nullptr, "avi", fileName.c_str());
    if (result < 0 || writer->context_ == nullptr)
        return fail("Cannot set up an AVI file: " + avError(result), writer.get());
    AVStream* stream = avformat_new_stream(writer->context_, nullptr);
    if (stream == nullptr)
        return fail("Cannot set up an AVI file: out of memory", writer.get());
    const double rate = framesPerSecond > 0.0 ? framesPerSecond : kDefaultFramesPerSecond;
    const AVRational frameRate = av_d2q(rate, 1000000);
    stream->time_base = av_inv_q(frameRate);
    stream->avg_frame_rate = frameRate;
    stream->r_frame_rate = frameRate;
    AVCodecParameters* parameters = stream->codecpar;
    parameters->codec_type = AVMEDIA_TYPE_VIDEO;
    parameters->codec_id = AV_CODEC_ID_RAWVIDEO;
    parameters->codec_tag = 0; // BI_RGB: uncompressed
    parameters->width = static_cast<int>(width);
    parameters->height = static_cast<int>(height);
    parameters->format = color ? AV_PIX_FMT_BGR24 : AV_PIX_FMT_PAL8;
    parameters->bits_per_coded_sample = color ? 24 : 8;

    result = avio_open(&writer->context_->pb, fileName.c_str(), AVIO_FLAG_WRITE);
    if (result < 0)
        return fail("Cannot create '" + fileName + "': " + avError(result), writer.get());
    result = avformat_write_header(writer->context_, nullptr);
    if (result < 0)
        return fail("Cannot write the AVI header of '" + fileName + "': " + avError(result),
                    writer.get());
    return writer;
}

QRN_ERROR AviWriter::Append(const uint8_t* pixels, uint32_t stride, bool rgb, std::string* error) {
    if (context_ == nullptr) {
        if (error != nullptr)
            *error = "The AVI file is not open";
        return QRN_ERR_INVALID;
    }
    if (pixels == nullptr || (rgb && !color_)) {
        if (error != nullptr)
            *error = pixels == nullptr ? "The frame has no pixels"
                                       : "A colour frame cannot go into a grey AVI file";
        return QRN_ERR_INVALID;
    }
    const uint32_t bytesPerPixel = color_ ? 3 : 1;
    const size_t rowBytes = size_t(width_) * bytesPerPixel;
    PacketPtr packet(av_packet_alloc());
    if (!packet) {
        if (error != nullptr)
            *error = "Out of memory for an AVI frame";
        return QRN_ERR_NO_MEMORY;
    }
    // libavformat only reads the frame during av_write_frame, so it may stay the caller's (or
    // ours): grey rows without padding are already the file's layout and go out as they are.
    if (!color_ && stride == rowBytes) {
        packet->data = const_cast<uint8_t*>(pixels);
    } else {
        try {
            frame_.resize(rowBytes * height_);
        } catch (const std::bad_alloc&) {
            if (error != nullptr)
                *error = "Out of memory for an AVI frame";
            return QRN_ERR_NO_MEMORY;
        }
        uint8_t* out = frame_.data();
        for (uint32_t y = 0; y < height_; ++y) {
            const uint8_t* in = pixels + size_t(y) * stride;
            uint8_t* row = out + size_t(y) * rowBytes;
            if (!color_) {
                std::memcpy(row, in, rowBytes);
            } else if (rgb) {
                toBgr(in, row, width_);
            } else {
                for (uint32_t x = 0; x < width_; ++x)
                    row[3 * x] = row[3 * x + 1] = row[3 * x + 2] = in[x];
            }
        }
        packet->data = out;
    }
    packet->size = static_cast<int>(rowBytes * height_);
    if (!color_ && frameCount_ == 0) {
        // The grey ramp palette goes into the file's header with the first frame.
        uint8_t* palette =
            av_packet_new_side_data(packet.get(), AV_PKT_DATA_PALETTE, AVPALETTE_SIZE);
        if (palette == nullptr) {
            if (error != nullptr)
                *error = "Out of memory for an AVI frame";
            return QRN_ERR_NO_MEMORY;
        }
        for (uint32_t level = 0; level < 256; ++level) {
            const uint32_t entry = 0xFF000000u | (level << 16) | (level << 8) | level;
            std::memcpy(palette + 4 * level, &entry, 4); // native-endian ARGB, as FFmpeg wants
        }
    }
    packet->stream_index = 0;
    packet->pts = packet->dts = frameCount_;
    packet->duration = 1;
    packet->flags |= AV_PKT_FLAG_KEY;
    const int result = av_write_frame(context_, packet.get());
    if (result < 0) {
        if (error != nullptr)
            *error = "Cannot write to '" + fileName_ + "': " + avError(result);
        return QRN_ERR_IO;
    }
    ++frameCount_;
    return QRN_OK;
}

QRN_ERROR AviWriter::Close(std::string* error) {
    if (context_ == nullptr)
        return QRN_OK;
    // Open hands out only writers whose header is written; a failed one is freed at once.
    int result = av_write_trailer(context_);
    if (result >= 0 && context_->pb != nullptr)
        result = context_->pb->error;
    Free();
    if (result < 0) {
        if (error != nullptr)
            *error = "Cannot finish '" + fileName_ + "': " + avError(result);
        return QRN_ERR_IO;
    }
    return QRN_OK;
}

} // namespace korvatin
