// The vertical deinterlacing filter in 16-bit lanes, compiled once per
// Highway target. Every intermediate fits: 7 * 510 + 510 + 2040 + 8 < 32768.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "Codecs/Primitives/DeinterlaceFilter.cc"
#include <hwy/foreach_target.h> // IWYU pragma: keep
#include <hwy/highway.h>

#include <algorithm>
#include <cstring>

#include "Codecs/Primitives/DeinterlaceFilter.h"

HWY_BEFORE_NAMESPACE();
namespace NmPrimitives {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

int32_t DeinterlaceCAVTImpl(const uint8_t* src, size_t srcStride, uint8_t* dst, size_t dstStride,
                            size_t width, size_t height, uint16_t threshold) {
  if (src == nullptr || dst == nullptr) {
    return -8;
  }
  if (width == 0 || height % 2 != 0 || height < 8) {
    return -6;
  }
  const hn::ScalableTag<int16_t> d16;
  const hn::Rebind<uint8_t, decltype(d16)> d8;
  const size_t n = hn::Lanes(d16);
  // |d| never exceeds 2040, so a threshold beyond the 16-bit signed range
  // compares the same once it is capped.
  const auto limit = hn::Set(d16, static_cast<int16_t>(std::min<uint32_t>(threshold, 32767)));
  const auto rounding = hn::Set(d16, 8);
  const auto seven = hn::Set(d16, 7);
  const auto four = hn::Set(d16, 4);
  const auto fifteen = hn::Set(d16, 15);

  for (size_t r = 0; r < height; ++r) {
    uint8_t* out = dst + r * dstStride;
    if (r % 2 == 0) {
      std::memcpy(out, src + r * srcStride, width);
      continue;
    }
    const auto row = [&](size_t index) { return src + index * srcStride; };
    const bool last = r == height - 1;
    size_t x = 0;
    for (; x + n <= width; x += n) {
      const auto load = [&](size_t index) {
        return hn::BitCast(d16, hn::PromoteTo(hn::Rebind<uint16_t, decltype(d16)>(),
                                              hn::LoadU(d8, row(index) + x)));
      };
      const auto up = load(r - 1);
      if (last) {
        const auto dv = hn::Mul(four, hn::Sub(load(r), load(r - 2)));
        const auto f = hn::ShiftRight<4>(
            hn::Add(hn::Add(hn::Mul(fifteen, up), load(r - 3)), hn::Add(dv, rounding)));
        const auto keep = hn::Gt(limit, hn::Abs(dv));
        hn::StoreU(hn::DemoteTo(d8, hn::IfThenElse(keep, up, f)), d8, out + x);
        continue;
      }
      const auto down = load(r + 1);
      const auto dv = r == 1 ? hn::Mul(four, hn::Sub(load(1), load(3)))
                             : hn::Sub(hn::Mul(hn::Set(d16, 8), load(r)),
                                       hn::Mul(four, hn::Add(load(r - 2), load(r + 2))));
      const auto above = load(r == 1 ? 0 : r - 3);
      const auto below = load(r == height - 3 ? height - 2 : r + 3);
      auto f = hn::ShiftRight<4>(hn::Add(hn::Add(hn::Mul(seven, hn::Add(up, down)), above),
                                         hn::Add(hn::Add(below, dv), rounding)));
      const auto clamped = hn::Min(hn::Max(f, hn::Min(up, down)), hn::Max(up, down));
      f = hn::IfThenElse(hn::Gt(limit, hn::Abs(dv)), clamped, f);
      // DemoteTo saturates, which is the clamp to 0..255.
      hn::StoreU(hn::DemoteTo(d8, f), d8, out + x);
    }
    if (x < width) {
      // The columns after the last whole vector, one sample at a time.
      for (; x < width; ++x) {
        const auto s = [&](size_t index) { return static_cast<int32_t>(row(index)[x]); };
        int32_t value = 0;
        if (last) {
          const int32_t dv = 4 * (s(r) - s(r - 2));
          value = threshold > std::abs(dv)
                      ? s(r - 1)
                      : std::clamp((15 * s(r - 1) + s(r - 3) + dv + 8) >> 4, 0, 255);
        } else {
          const int32_t dv = r == 1 ? 4 * (s(1) - s(3)) : 8 * s(r) - 4 * s(r - 2) - 4 * s(r + 2);
          const int32_t above = r == 1 ? s(0) : s(r - 3);
          const int32_t below = r == height - 3 ? s(height - 2) : s(r + 3);
          int32_t f = (7 * (s(r - 1) + s(r + 1)) + above + below + dv + 8) >> 4;
          if (threshold > std::abs(dv)) {
            f = std::clamp(f, std::min(s(r - 1), s(r + 1)), std::max(s(r - 1), s(r + 1)));
          }
          value = std::clamp(f, 0, 255);
        }
        out[x] = static_cast<uint8_t>(value);
      }
    }
  }
  return 0;
}

} // namespace HWY_NAMESPACE
} // namespace NmPrimitives
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace NmPrimitives {

HWY_EXPORT(DeinterlaceCAVTImpl);

int32_t DeinterlaceCAVT(const uint8_t* src, size_t srcStride, uint8_t* dst, size_t dstStride,
                        size_t width, size_t height, uint16_t threshold) {
  return HWY_DYNAMIC_DISPATCH(DeinterlaceCAVTImpl)(src, srcStride, dst, dstStride, width, height,
                                                   threshold);
}

} // namespace NmPrimitives
#endif
