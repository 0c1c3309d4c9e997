#pragma once

#include <cstddef>
#include <cstdint>

#include "Codecs/H264/Picture.h"
#include "Codecs/Primitives/H264Interpolation.h"

namespace NmH264 {

namespace NmInterDetail {

// The kernel tables of the processor's best target, looked up once.
inline const NmPrimitives::SmH264InterpolationKernels& Kernels() {
  static const NmPrimitives::SmH264InterpolationKernels& kernels =
      NmPrimitives::H264InterpolationKernels();
  return kernels;
}

// Whether a block at (x0, y0), with the filters' margins (two samples
// before, three after, none for chroma), lies inside the plane's border,
// where the edges are repeated after decoding and it is read in place.
// One unsigned comparison per axis.
inline bool IsInside(int planeWidth, int planeHeight, int border, int x0, int y0, int width,
                     int height, int before, int after) {
  const int margin = before + after;
  return static_cast<unsigned>(x0 - before + border) <=
             static_cast<unsigned>(planeWidth + 2 * border - width - margin) &&
         static_cast<unsigned>(y0 - before + border) <=
             static_cast<unsigned>(planeHeight + 2 * border - height - margin);
}

// The rare blocks reaching beyond the border, from copies with the edges
// repeated per sample; kept out of the way of the common path.
void PredictLumaAtEdge(const CmPicture& reference, int x0, int y0, int position, int width,
                       int height, uint8_t* dst, ptrdiff_t dstStride, const uint8_t* other,
                       ptrdiff_t otherStride);
void PredictChromaPairAtEdge(const CmPicture& reference, int x0, int y0, int dx, int dy, int width,
                             int height, uint8_t* dstCb, uint8_t* dstCr, ptrdiff_t dstStride,
                             const uint8_t* otherCb, const uint8_t* otherCr, ptrdiff_t otherStride);

} // namespace NmInterDetail

// Luma sample prediction of clause 8.4.2.2.1: a width x height block whose
// top left lies at (x, y) + mv / 4 in the reference, quarter-sample
// positions by the six-tap filter and averages. Samples outside the picture
// repeat its edge. dst holds 8-bit results; where `other` is given, the
// rounded average with the block there (bi-prediction).
inline void PredictLuma(const CmPicture& reference, int x, int y, int mvx, int mvy, int width,
                        int height, uint8_t* dst, ptrdiff_t dstStride,
                        const uint8_t* other = nullptr, ptrdiff_t otherStride = 0) {
  const int x0 = x + (mvx >> 2), y0 = y + (mvy >> 2);
  const int position = (mvy & 3) * 4 + (mvx & 3);
  if (!NmInterDetail::IsInside(static_cast<int>(reference.GetWidthInMbs() * 16),
                               static_cast<int>(reference.GetHeightInMbs() * 16),
                               CmPicture::LumaBorder, x0, y0, width, height, 2, 3)) [[unlikely]] {
    NmInterDetail::PredictLumaAtEdge(reference, x0, y0, position, width, height, dst, dstStride,
                                     other, otherStride);
    return;
  }
  const ptrdiff_t stride = reference.GetStride(0);
  NmInterDetail::Kernels().luma[other != nullptr][NmPrimitives::H264LumaWidthIndex(width)]
                               [position](reference.GetPlane(0) + y0 * stride + x0, stride, other,
                                          otherStride, dst, dstStride, height);
}

// Chroma of 4:2:0 (8.4.2.2.2) in both planes, which share a stride:
// eighth-sample bilinear interpolation; x, y and the block size in chroma
// samples, mv in luma quarter samples. Where otherCb is given, the rounded
// average with the blocks at otherCb and otherCr.
inline void PredictChromaPair(const CmPicture& reference, int x, int y, int mvx, int mvy, int width,
                              int height, uint8_t* dstCb, uint8_t* dstCr, ptrdiff_t dstStride,
                              const uint8_t* otherCb = nullptr, const uint8_t* otherCr = nullptr,
                              ptrdiff_t otherStride = 0) {
  const int x0 = x + (mvx >> 3), y0 = y + (mvy >> 3);
  const int dx = mvx & 7, dy = mvy & 7;
  // Both planes have the same size and stride, so both are read in place
  // or both from edge-extended copies.
  if (!NmInterDetail::IsInside(static_cast<int>(reference.GetWidthInMbs() * 8),
                               static_cast<int>(reference.GetHeightInMbs() * 8),
                               CmPicture::LumaBorder / 2, x0, y0, width, height, 0, 1))
      [[unlikely]] {
    NmInterDetail::PredictChromaPairAtEdge(reference, x0, y0, dx, dy, width, height, dstCb, dstCr,
                                           dstStride, otherCb, otherCr, otherStride);
    return;
  }
  const ptrdiff_t stride = reference.GetStride(1);
  const ptrdiff_t offset = y0 * stride + x0;
  NmInterDetail::Kernels()
      .chromaPair[otherCb != nullptr][NmPrimitives::H264ChromaWidthIndex(width)][(dx | dy) == 0](
          reference.GetPlane(1) + offset, reference.GetPlane(2) + offset, stride, otherCb, otherCr,
          otherStride, dstCb, dstCr, dstStride, height, dx, dy);
}

// Asks for reference rows that the macroblocks a little further along the
// row will probably read, if they move like the one at (x, y).
void PrefetchAhead(const CmPicture& reference, int x, int y, int mvx, int mvy);

// Asks, with the intent to write, for the lines of the picture being decoded
// that the macroblocks a little further along the row will fill.
void PrefetchForWriting(const CmPicture& picture, int x, int y);

} // namespace NmH264
