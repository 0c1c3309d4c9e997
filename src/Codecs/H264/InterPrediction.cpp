#include "Codecs/H264/InterPrediction.h"

#include <algorithm>
#include <cstring>

namespace NmH264 {

namespace {

constexpr int MostBlock = 16;
// The samples a luma block's filters read around it: two before, three after.
constexpr int Span = MostBlock + 5;

// A copy of the block's samples with the filters' margins and the edges
// repeated per sample.
const uint8_t* CopyWithEdges(const uint8_t* plane, ptrdiff_t stride, int pictureWidth,
                             int pictureHeight, int x0, int y0, int width, int height,
                             uint8_t* copy) {
  for (int j = -2; j < height + 3; ++j) {
    const int sy = std::clamp(y0 + j, 0, pictureHeight - 1);
    for (int i = -2; i < width + 3; ++i) {
      const int sx = std::clamp(x0 + i, 0, pictureWidth - 1);
      copy[(j + 2) * Span + i + 2] = plane[sy * stride + sx];
    }
  }
  return copy + 2 * Span + 2;
}

} // namespace

namespace NmInterDetail {

void PredictLumaAtEdge(const CmPicture& reference, int x0, int y0, int position, int width,
                       int height, uint8_t* dst, ptrdiff_t dstStride, const uint8_t* other,
                       ptrdiff_t otherStride) {
  uint8_t copy[Span * Span];
  const uint8_t* src =
      CopyWithEdges(reference.GetPlane(0), reference.GetStride(0),
                    static_cast<int>(reference.GetWidthInMbs() * 16),
                    static_cast<int>(reference.GetHeightInMbs() * 16), x0, y0, width, height, copy);
  Kernels().luma[other != nullptr][NmPrimitives::H264LumaWidthIndex(width)][position](
      src, Span, other, otherStride, dst, dstStride, height);
}

void PredictChromaPairAtEdge(const CmPicture& reference, int x0, int y0, int dx, int dy, int width,
                             int height, uint8_t* dstCb, uint8_t* dstCr, ptrdiff_t dstStride,
                             const uint8_t* otherCb, const uint8_t* otherCr,
                             ptrdiff_t otherStride) {
  uint8_t copies[2][Span * Span];
  const int pictureWidth = static_cast<int>(reference.GetWidthInMbs() * 8);
  const int pictureHeight = static_cast<int>(reference.GetHeightInMbs() * 8);
  const ptrdiff_t stride = reference.GetStride(1);
  const uint8_t* cb = CopyWithEdges(reference.GetPlane(1), stride, pictureWidth, pictureHeight, x0,
                                    y0, width, height, copies[0]);
  const uint8_t* cr = CopyWithEdges(reference.GetPlane(2), stride, pictureWidth, pictureHeight, x0,
                                    y0, width, height, copies[1]);
  Kernels()
      .chromaPair[otherCb != nullptr][NmPrimitives::H264ChromaWidthIndex(width)][(dx | dy) == 0](
          cb, cr, Span, otherCb, otherCr, otherStride, dstCb, dstCr, dstStride, height, dx, dy);
}

} // namespace NmInterDetail

void PrefetchAhead(const CmPicture& reference, int x, int y, int mvx, int mvy) {
  // Four neighbouring macroblocks moving alike share the rows that the four
  // after them will read, the filters' margins included: each asks for a
  // quarter of those rows, at both ends of the 64 samples (32 of chroma)
  // the four read, which span two cache lines as often as one. Near the
  // top or bottom the rows move inside the plane as a whole: asking for a
  // few others there costs less than a clamp per row.
  const int step = (x / 16) & 3;
  const int group = (x & ~63) + 64;
  const int width = static_cast<int>(reference.GetWidthInMbs() * 16);
  const int height = static_cast<int>(reference.GetHeightInMbs() * 16);
  constexpr int Border = CmPicture::LumaBorder;
  {
    constexpr int Rows = 6;
    const int first = group + (mvx >> 2) - 2;
    const int left = std::clamp(first, -Border, width + Border - 1);
    const int right = std::clamp(first + 68, -Border, width + Border - 1);
    const int top = std::clamp(y + (mvy >> 2) + step * Rows - 2, -Border, height + Border - Rows);
    const ptrdiff_t stride = reference.GetStride(0);
    const uint8_t* line = reference.GetPlane(0) + top * stride;
    for (int j = 0; j < Rows; ++j, line += stride) {
      __builtin_prefetch(line + left);
      __builtin_prefetch(line + right);
    }
  }
  if (reference.IsMonochrome()) {
    return;
  }
  // Both chroma planes have the same size and stride: one set of rows
  // serves them.
  constexpr int Rows = 3;
  const int first = (group >> 1) + (mvx >> 3);
  const int left = std::clamp(first, -Border / 2, width / 2 + Border / 2 - 1);
  const int right = std::clamp(first + 32, -Border / 2, width / 2 + Border / 2 - 1);
  const int top =
      std::clamp((y >> 1) + (mvy >> 3) + step * Rows, -Border / 2, height / 2 + Border / 2 - Rows);
  const ptrdiff_t stride = reference.GetStride(1);
  const uint8_t* cb = reference.GetPlane(1) + top * stride;
  const uint8_t* cr = reference.GetPlane(2) + top * stride;
  for (int j = 0; j < Rows; ++j, cb += stride, cr += stride) {
    __builtin_prefetch(cb + left);
    __builtin_prefetch(cb + right);
    __builtin_prefetch(cr + left);
    __builtin_prefetch(cr + right);
  }
}

void PrefetchForWriting(const CmPicture& picture, int x, int y) {
  // A prediction's stores to lines not yet in the cache wait there for
  // them, and once enough wait, every later store does too. As in
  // PrefetchAhead, four neighbouring macroblocks each take a quarter of the
  // rows of the four after them, at both ends of the samples those fill.
  const int step = (x / 16) & 3;
  const int group = (x & ~63) + 64;
  {
    constexpr int Rows = 4;
    const ptrdiff_t stride = picture.GetStride(0);
    const uint8_t* line = picture.GetPlane(0) + (y + step * Rows) * stride + group;
    for (int j = 0; j < Rows; ++j, line += stride) {
      __builtin_prefetch(line, 1);
      __builtin_prefetch(line + 63, 1);
    }
  }
  if (picture.IsMonochrome()) {
    return;
  }
  constexpr int Rows = 2;
  const ptrdiff_t stride = picture.GetStride(1);
  const ptrdiff_t offset = ((y >> 1) + step * Rows) * stride + (group >> 1);
  const uint8_t* cb = picture.GetPlane(1) + offset;
  const uint8_t* cr = picture.GetPlane(2) + offset;
  for (int j = 0; j < Rows; ++j, cb += stride, cr += stride) {
    __builtin_prefetch(cb, 1);
    __builtin_prefetch(cb + 31, 1);
    __builtin_prefetch(cr, 1);
    __builtin_prefetch(cr + 31, 1);
  }
}

} // namespace NmH264
