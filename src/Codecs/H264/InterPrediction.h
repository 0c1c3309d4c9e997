#pragma once

#include <cstddef>
#include <cstdint>

#include "Codecs/H264/Picture.h"

namespace NmH264 {

// Luma sample prediction of clause 8.4.2.2.1: a width x height block whose
// top left lies at (x, y) + mv / 4 in the reference, quarter-sample
// positions by the six-tap filter and averages. Samples outside the picture
// repeat its edge. dst holds 8-bit results; where `other` is given, the
// rounded average with the block there (bi-prediction).
void PredictLuma(const CmPicture& reference, int x, int y, int mvx, int mvy, int width, int height,
                 uint8_t* dst, ptrdiff_t dstStride, const uint8_t* other = nullptr,
                 ptrdiff_t otherStride = 0);

// Chroma of 4:2:0 (8.4.2.2.2) in both planes, which share a stride:
// eighth-sample bilinear interpolation; x, y and the block size in chroma
// samples, mv in luma quarter samples. Where otherCb is given, the rounded
// average with the blocks at otherCb and otherCr.
void PredictChromaPair(const CmPicture& reference, int x, int y, int mvx, int mvy, int width,
                       int height, uint8_t* dstCb, uint8_t* dstCr, ptrdiff_t dstStride,
                       const uint8_t* otherCb = nullptr, const uint8_t* otherCr = nullptr,
                       ptrdiff_t otherStride = 0);

// Asks for reference rows that the macroblocks a little further along the
// row will probably read, if they move like the one at (x, y).
void PrefetchAhead(const CmPicture& reference, int x, int y, int mvx, int mvy);

// Asks, with the intent to write, for the lines of the picture being decoded
// that the macroblocks a little further along the row will fill.
void PrefetchForWriting(const CmPicture& picture, int x, int y);

} // namespace NmH264
