// The value of one pixel of a frame as the camera sent it: the grey level at the format's own
// depth, the Bayer mosaic's colour and level, or the components of a colour format.
#pragma once

#include <korvatin/korvatinframe.h>

#include <cstdint>
#include <string>

class CPixelValue {
public:
    enum EKind { None, Grey, Mosaic, Colour, Yuv };

    EKind kind = None;
    char mosaicColour = 0;          // Mosaic: 'R', 'G' or 'B'
    uint32_t values[3] = {0, 0, 0}; // Grey and Mosaic: [0]; Colour: R, G, B; Yuv: Y, U, V
    int bits = 0;                   // bits of each value

    // The pixel at (x, y) of `frame`; kind None when it lies outside the image or the format is
    // one this reading does not know.
    static CPixelValue Read(const CKorvatinFrame& frame, uint32_t x, uint32_t y);

    // "Grey 4095", "Bayer R 255", "R 255 G 0 B 0", "Y 81 U 90 V 240"; empty for None.
    std::string Text() const;
};
