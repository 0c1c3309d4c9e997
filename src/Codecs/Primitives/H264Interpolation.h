#pragma once

#include <cstddef>
#include <cstdint>

// Motion-compensated sample interpolation of H.264 from a reference plane.
// src points at the block's whole-sample position; the caller guarantees
// that every sample the filters read around the block is addressable (the
// picture's padded border or an edge-extended copy), so no kernel clamps.
namespace NmPrimitives {

// Luma at quarter-sample offset (dx, dy), each 0..3: the six-tap half-sample
// filter and the rounded averages. Reads columns -2 .. width + 2 and rows
// -2 .. height + 2 around src. width is 4, 8 or 16; height 1 to 16.
void H264InterpolateLuma(const uint8_t* src, ptrdiff_t srcStride, uint8_t* dst, ptrdiff_t dstStride,
                         int width, int height, int dx, int dy);

// The same averaged on store with the block at `other`, (a + b + 1) >> 1:
// bi-prediction from the first list's block without writing the second one
// and reading both back. dst may be `other` (same stride).
void H264InterpolateLumaAverage(const uint8_t* src, ptrdiff_t srcStride, const uint8_t* other,
                                ptrdiff_t otherStride, uint8_t* dst, ptrdiff_t dstStride, int width,
                                int height, int dx, int dy);

// Chroma at eighth-sample offset (dx, dy), each 0..7: bilinear weights.
// Reads columns 0 .. width and rows 0 .. height. width is 2, 4 or 8;
// height 1 to 8.
void H264InterpolateChroma(const uint8_t* src, ptrdiff_t srcStride, uint8_t* dst,
                           ptrdiff_t dstStride, int width, int height, int dx, int dy);

// The same block of both chroma planes, which share one vector and one
// stride: Cb and Cr always move together, and a 2 or 4 wide block of one
// plane alone fills too little of a vector to pay for its call.
void H264InterpolateChromaPair(const uint8_t* srcCb, const uint8_t* srcCr, ptrdiff_t srcStride,
                               uint8_t* dstCb, uint8_t* dstCr, ptrdiff_t dstStride, int width,
                               int height, int dx, int dy);

// The same averaged on store with the blocks at otherCb and otherCr, as
// H264InterpolateLumaAverage.
void H264InterpolateChromaPairAverage(const uint8_t* srcCb, const uint8_t* srcCr,
                                      ptrdiff_t srcStride, const uint8_t* otherCb,
                                      const uint8_t* otherCr, ptrdiff_t otherStride, uint8_t* dstCb,
                                      uint8_t* dstCr, ptrdiff_t dstStride, int width, int height,
                                      int dx, int dy);

namespace NmReference {
void H264InterpolateLuma(const uint8_t* src, ptrdiff_t srcStride, uint8_t* dst, ptrdiff_t dstStride,
                         int width, int height, int dx, int dy);
void H264InterpolateLumaAverage(const uint8_t* src, ptrdiff_t srcStride, const uint8_t* other,
                                ptrdiff_t otherStride, uint8_t* dst, ptrdiff_t dstStride, int width,
                                int height, int dx, int dy);
void H264InterpolateChroma(const uint8_t* src, ptrdiff_t srcStride, uint8_t* dst,
                           ptrdiff_t dstStride, int width, int height, int dx, int dy);
void H264InterpolateChromaPair(const uint8_t* srcCb, const uint8_t* srcCr, ptrdiff_t srcStride,
                               uint8_t* dstCb, uint8_t* dstCr, ptrdiff_t dstStride, int width,
                               int height, int dx, int dy);
void H264InterpolateChromaPairAverage(const uint8_t* srcCb, const uint8_t* srcCr,
                                      ptrdiff_t srcStride, const uint8_t* otherCb,
                                      const uint8_t* otherCr, ptrdiff_t otherStride, uint8_t* dstCb,
                                      uint8_t* dstCr, ptrdiff_t dstStride, int width, int height,
                                      int dx, int dy);
} // namespace NmReference

} // namespace NmPrimitives
