#include <algorithm>
#include <cstdlib>

#include "Codecs/Primitives/DeinterlaceFilter.h"

namespace NmPrimitives::NmReference {

int32_t DeinterlaceCAVT(const uint8_t* src, size_t srcStride, uint8_t* dst, size_t dstStride,
                        size_t width, size_t height, uint16_t threshold) {
  if (src == nullptr || dst == nullptr) {
    return -8;
  }
  if (width == 0 || height % 2 != 0 || height < 8) {
    return -6;
  }
  const int32_t limit = threshold;
  for (size_t r = 0; r < height; ++r) {
    uint8_t* out = dst + r * dstStride;
    if (r % 2 == 0) {
      std::copy(src + r * srcStride, src + r * srcStride + width, out);
      continue;
    }
    for (size_t x = 0; x < width; ++x) {
      const auto s = [&](size_t row) { return static_cast<int32_t>(src[row * srcStride + x]); };
      int32_t value = 0;
      if (r == height - 1) {
        const int32_t d = 4 * (s(r) - s(r - 2));
        if (limit > std::abs(d)) {
          value = s(r - 1);
        } else {
          value = std::clamp((15 * s(r - 1) + s(r - 3) + d + 8) >> 4, 0, 255);
        }
      } else {
        const int32_t d = r == 1 ? 4 * (s(1) - s(3)) : 8 * s(r) - 4 * s(r - 2) - 4 * s(r + 2);
        const int32_t above = r == 1 ? s(0) : s(r - 3);
        const int32_t below = r == height - 3 ? s(height - 2) : s(r + 3);
        int32_t f = (7 * (s(r - 1) + s(r + 1)) + above + below + d + 8) >> 4;
        if (limit > std::abs(d)) {
          f = std::clamp(f, std::min(s(r - 1), s(r + 1)), std::max(s(r - 1), s(r + 1)));
        }
        value = std::clamp(f, 0, 255);
      }
      out[x] = static_cast<uint8_t>(value);
    }
  }
  return 0;
}

} // namespace NmPrimitives::NmReference
