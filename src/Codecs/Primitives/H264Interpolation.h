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

// The kernels above as tables, so that a caller predicting many blocks
// picks one with an index instead of passing through the dispatch and the
// branches on size and position for each. A luma kernel serves one width
// and one quarter-sample position; `other` is read by the averaging ones
// only. A chroma pair kernel serves one width, at whole-sample positions
// or at any other.
using H264LumaKernel = void (*)(const uint8_t* src, ptrdiff_t srcStride, const uint8_t* other,
                                ptrdiff_t otherStride, uint8_t* dst, ptrdiff_t dstStride,
                                int height);
using H264ChromaPairKernel = void (*)(const uint8_t* srcCb, const uint8_t* srcCr,
                                      ptrdiff_t srcStride, const uint8_t* otherCb,
                                      const uint8_t* otherCr, ptrdiff_t otherStride, uint8_t* dstCb,
                                      uint8_t* dstCr, ptrdiff_t dstStride, int height, int dx,
                                      int dy);
struct SmH264InterpolationKernels {
  // [averaged][H264LumaWidthIndex][dy * 4 + dx]
  H264LumaKernel luma[2][3][16];
  // [averaged][H264ChromaWidthIndex][dx == 0 && dy == 0]
  H264ChromaPairKernel chromaPair[2][3][2];
};
constexpr int H264LumaWidthIndex(int width) {
  return width >> 3; // 4, 8, 16
}
constexpr int H264ChromaWidthIndex(int width) {
  return width >> 2; // 2, 4, 8
}
// Those of the best target the processor runs.
const SmH264InterpolationKernels& H264InterpolationKernels();

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
