#include <algorithm>

#include "Codecs/Primitives/Resize.h"

namespace NmPrimitives::NmReference {

namespace T = NmResizeTables;

int32_t ResizePlane(const uint8_t* src, size_t srcStride, size_t srcWidth, size_t srcHeight,
                    uint8_t* dst, size_t dstStride, size_t dstWidth, size_t dstHeight,
                    size_t pixelBytes, SmResizeMode mode, uint8_t* scratch, size_t scratchSize,
                    const SmResizeWindow& window) {
  const int32_t status = T::Check(src, srcWidth, srcHeight, dst, dstWidth, dstHeight, pixelBytes,
                                  mode, scratch, window);
  if (status != ResizeOk) {
    return status;
  }
  T::SmLayout layout;
  if (!T::Build(srcWidth, srcHeight, dstWidth, dstHeight, pixelBytes, mode, window, scratch,
                scratchSize, layout)) {
    return ResizeScratchTooSmall;
  }
  const size_t rowBytes = layout.rowBytes;
  const size_t outputBytes = layout.outputBytes;
  const size_t verticalTaps = layout.vertical.taps;
  const size_t horizontalTaps = layout.horizontal.taps;
  for (size_t y = window.top; y < window.bottom; ++y) {
    const int32_t* weights = layout.vertical.weights + y * verticalTaps;
    const uint8_t* top =
        src + static_cast<size_t>(layout.vertical.first[y]) * srcStride + layout.rowOrigin;
    for (size_t b = 0; b < rowBytes; ++b) {
      int32_t sum = 0;
      for (size_t k = 0; k < verticalTaps; ++k) {
        sum += weights[k] * top[k * srcStride + b];
      }
      // Six fraction bits are kept between the passes.
      layout.row[b] = (sum + (1 << (T::WeightBits - 7))) >> (T::WeightBits - 6);
    }
    uint8_t* out = dst + (y - window.top) * dstStride;
    for (size_t o = 0; o < outputBytes; ++o) {
      int32_t sum = 0;
      for (size_t k = 0; k < horizontalTaps; ++k) {
        sum += layout.horizontal.weights[k * outputBytes + o] *
               layout.row[layout.horizontal.first[o] + k * pixelBytes];
      }
      const int32_t shift = T::WeightBits + 6;
      out[o] = static_cast<uint8_t>(std::clamp((sum + (1 << (shift - 1))) >> shift, 0, 255));
    }
  }
  return ResizeOk;
}

} // namespace NmPrimitives::NmReference
