#include "Codecs/Primitives/PlaneTranspose.h"

namespace NmPrimitives::NmReference {

void TransposePlane(const uint8_t* src, size_t srcStride, uint8_t* dst, size_t dstStride,
                    size_t width, size_t height, size_t pixelBytes, bool flipColumns,
                    bool flipRows) {
  // Destination pixel (x, y) is source column y, row x, before the mirrors.
  for (size_t y = 0; y < width; ++y) {
    const size_t column = flipRows ? width - 1 - y : y;
    for (size_t x = 0; x < height; ++x) {
      const size_t row = flipColumns ? height - 1 - x : x;
      for (size_t c = 0; c < pixelBytes; ++c) {
        dst[y * dstStride + x * pixelBytes + c] = src[row * srcStride + column * pixelBytes + c];
      }
    }
  }
}

} // namespace NmPrimitives::NmReference
