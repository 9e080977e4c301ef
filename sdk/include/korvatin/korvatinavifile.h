// Writer of AVI recordings: uncompressed 8-bit grey or 24-bit colour frames.
#pragma once

#include "qrnerror.h"

#include <cstdint>
#include <memory>
#include <string>

class CKorvatinFrame;

namespace korvatin {
class AviWriter;
}

// Set the file name, frame rate, size and colour flag, Open, Append display-type frames
// (grey 0x21084001 or RGB 0x23088005), Close. A closed file plays in common players and decodes
// back to the appended pixels. Files above 1 GiB are written as OpenDML AVI.
class CKorvatinAVIFile {
public:
    CKorvatinAVIFile();
    ~CKorvatinAVIFile();
    CKorvatinAVIFile(const CKorvatinAVIFile&) = delete;
    CKorvatinAVIFile& operator=(const CKorvatinAVIFile&) = delete;

    void SetFileName(const char* fileName);
    const char* FileName() const { return fileName_.c_str(); }
    void SetFrameRate(double framesPerSecond) { frameRate_ = framesPerSecond; }
    double FrameRate() const { return frameRate_; }
    void SetWidth(uint32_t width) { width_ = width; }
    uint32_t Width() const { return width_; }
    void SetHeight(uint32_t height) { height_ = height; }
    uint32_t Height() const { return height_; }
    void SetColor(bool color) { color_ = color; }
    bool Color() const { return color_; }

    // Creates the file; QRN_OK, or an error code when it cannot be created (the reason is in
    // LastError()). A file already open is closed first.
    QRN_ERROR Open();
    // Appends one frame of the file's size and kind; an error code for a frame that does not fit.
    QRN_ERROR Append(const CKorvatinFrame& frame);
    // Finishes the file (index, header sizes); harmless when not open.
    QRN_ERROR Close();
    bool IsOpen() const;
    // Frames appended since Open; still told after Close, until the next Open.
    uint32_t FrameCount() const;
    const char* LastError() const { return lastError_.c_str(); }

private:
    std::string fileName_;
    double frameRate_ = 25.0;
    uint32_t width_ = 0;
    uint32_t height_ = 0;
    bool color_ = false;
    std::string lastError_;
    std::unique_ptr<korvatin::AviWriter> writer_;
};
