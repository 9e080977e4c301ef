// An AVI file of uncompressed frames written through FFmpeg's libavformat.
#pragma once

#include "korvatin/qrnerror.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

struct AVFormatContext;

namespace korvatin {

// Grey files are 8-bit palettised (a grey ramp palette) and colour files 24-bit BGR: the two
// uncompressed layouts every AVI player knows. FFmpeg reads them as pal8 and bgr24; decoded to
// rgb24 both give back the appended pixels exactly (grey levels as equal R, G and B). Rows go
// top-down (libavformat marks them so with a negative height), and libavformat pads each row to 4
// bytes and switches to OpenDML past 1 GiB. Destroying a writer that was not closed finishes the
// file.
class AviWriter {
public:
    ~AviWriter();
    AviWriter(const AviWriter&) = delete;
    AviWriter& operator=(const AviWriter&) = delete;

    // Creates `fileName`; a rate of zero or below becomes 25 frames per second. On failure
    // returns null with `error` set, and no file is left behind.
    static std::unique_ptr<AviWriter> Open(const std::string& fileName, uint32_t width,
                                           uint32_t height, bool color, double framesPerSecond,
                                           std::string* error);

    // One frame of the file's size: `rgb` true for R,G,B bytes, false for 8-bit grey (a grey
    // frame in a colour file is written as colour). `stride` is the distance between rows.
    QRN_ERROR Append(const uint8_t* pixels, uint32_t stride, bool rgb, std::string* error);
    // Writes the index and the header sizes; QRN_ERR_IO if that fails.
    QRN_ERROR Close(std::string* error);
    bool IsOpen() const { return context_ != nullptr; }
    // Frames appended since Open, also after Close.
    uint32_t FrameCount() const { return frameCount_; }

private:
    AviWriter() = default;
    void Free();

    AVFormatContext* context_ = nullptr; // owned, with its I/O context
    std::string fileName_;
    uint32_t width_ = 0;
    uint32_t height_ = 0;
    bool color_ = false;
    uint32_t frameCount_ = 0;
    // One frame in the file's layout when the caller's is not (colour, padded rows), kept from
    // frame to frame: a fresh allocation of this size would cost page faults on every frame.
    std::vector<uint8_t> frame_;
};

} // namespace korvatin
