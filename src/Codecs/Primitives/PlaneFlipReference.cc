#include "Codecs/Primitives/PlaneFlip.h"

namespace NmPrimitives::NmReference {

void FlipPlane(const uint8_t* src, size_t srcStride, uint8_t* dst, size_t dstStride, size_t width,
               size_t height, size_t pixelBytes, SmFlipAxis axis) {
  const bool rows = axis == FlipRows || axis == FlipBoth;
  const bool columns = axis == FlipColumns || axis == FlipBoth;
  for (size_t y = 0; y < height; ++y) {
    const size_t sy = rows ? height - 1 - y : y;
    for (size_t x = 0; x < width; ++x) {
      const size_t sx = columns ? width - 1 - x : x;
      for (size_t c = 0; c < pixelBytes; ++c) {
        dst[y * dstStride + x * pixelBytes + c] = src[sy * srcStride + sx * pixelBytes + c];
      }
    }
  }
}

} // namespace NmPrimitives::NmReference
