#pragma once

#include <cstddef>
#include <cstdint>

#include "Codecs/H264/Picture.h"

namespace NmH264 {

// Luma sample prediction of clause 8.4.2.2.1: a width x height block whose
// top left lies at (x, y) + mv / 4 in the reference, quarter-sample
// positions by the six-tap filter and averages. Samples outside the picture
// repeat its edge. dst holds 8-bit results.
void PredictLuma(const CmPicture& reference, int x, int y, int mvx, int mvy, int width, int height,
                 uint8_t* dst, ptrdiff_t dstStride);

// Chroma of 4:2:0 (8.4.2.2.2) in both planes, which share a stride:
// eighth-sample bilinear interpolation; x, y and the block size in chroma
// samples, mv in luma quarter samples.
void PredictChromaPair(const CmPicture& reference, int x, int y, int mvx, int mvy, int width,
                       int height, uint8_t* dstCb, uint8_t* dstCr, ptrdiff_t dstStride);

// Asks for reference rows that the macroblocks a little further along the
// row will probably read, if they move like the one at (x, y).
void PrefetchAhead(const CmPicture& reference, int x, int y, int mvx, int mvy);

// Asks, with the intent to write, for the lines of the picture being decoded
// that the macroblocks a little further along the row will fill.
void PrefetchForWriting(const CmPicture& picture, int x, int y);

} // namespace NmH264
