// Bayer mosaics to RGB: nearest neighbour and bilinear, row by row.
#pragma once

#include "convertrows.h"

#include <cstdint>

namespace korvatin {

enum class BayerMethod { NearestNeighbour, Bilinear };

// Demosaics rows [firstRow, endRow) of `image` (width x height, both at least 2) into R, G, B
// samples, `out` pointing at the image's first output row (3 x width samples a row). 8-bit
// output takes the top 8 bits of each source sample before interpolating; 16-bit output
// interpolates the samples as they are.
//
// Borders are mirrored about the outermost pixel (the neighbour of column -1 is column 1, of
// column `width` column width - 2, and the same for rows), which keeps every mirrored neighbour
// on the same colour of the mosaic as the pixel it stands for.
//
// Nearest neighbour: the image is cut into 2 x 2 cells from the top-left corner; every pixel
// takes the red and the blue of its cell and the green of its own row of the cell (its own
// green when it is green). A cell cut off by an odd width or height is completed by mirroring.
//
// Bilinear: a pixel keeps its own colour; at a red or blue pixel green is the mean of the four
// side neighbours and the opposite colour the mean of the four diagonal neighbours; at a green
// pixel each other colour is the mean of the two neighbours that have it (left and right, or
// above and below). Means are rounded half up: (a + b + 1) / 2, (a + b + c + d + 2) / 4.
void DemosaicRows8(const MonoImage& image, uint32_t height, BayerOrder order, BayerMethod method,
                   uint32_t firstRow, uint32_t endRow, uint8_t* out);
void DemosaicRows16(const MonoImage& image, uint32_t height, BayerOrder order, BayerMethod method,
                    uint32_t firstRow, uint32_t endRow, uint16_t* out);

} // namespace korvatin
