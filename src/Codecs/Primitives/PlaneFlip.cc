// Vector mirroring, compiled once per Highway target and chosen at run time.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "Codecs/Primitives/PlaneFlip.cc"
#include <hwy/foreach_target.h> // IWYU pragma: keep
#include <hwy/highway.h>

#include <cstring>
#include <vector>

#include "Codecs/Primitives/PlaneFlip.h"

HWY_BEFORE_NAMESPACE();
namespace NmPrimitives {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

#if HWY_TARGET != HWY_SCALAR
// Highway has no byte reversal: reverse the 32-bit lanes, then the bytes
// inside each lane with a shuffle that stays within 16-byte blocks.
template <class D> HWY_INLINE hn::Vec<D> ReverseBytes(D d, hn::Vec<D> v) {
  const hn::Repartition<uint32_t, D> d32;
  const auto words = hn::BitCast(d, hn::Reverse(d32, hn::BitCast(d32, v)));
  const auto lane = hn::And(hn::Iota(d, 0), hn::Set(d, 15));
  return hn::TableLookupBytes(words, hn::Xor(lane, hn::Set(d, 3)));
}
#endif

// dst[x] = src[width - 1 - x] for one row.
void MirrorRow(const uint8_t* src, uint8_t* dst, size_t width, size_t pixelBytes) {
  size_t x = 0;
#if HWY_TARGET != HWY_SCALAR
  const hn::ScalableTag<uint8_t> d;
  const size_t n = hn::Lanes(d);
  if (pixelBytes == 1) {
    for (; x + n <= width; x += n) {
      hn::StoreU(ReverseBytes(d, hn::LoadU(d, src + width - x - n)), d, dst + x);
    }
  } else if (pixelBytes == 4) {
    const hn::ScalableTag<uint32_t> d32;
    const size_t n32 = hn::Lanes(d32);
    for (; x + n32 <= width; x += n32) {
      const auto pixels = hn::BitCast(d32, hn::LoadU(d, src + 4 * (width - x - n32)));
      hn::StoreU(hn::BitCast(d, hn::Reverse(d32, pixels)), d, dst + 4 * x);
    }
  } else if (pixelBytes == 3) {
    for (; x + n <= width; x += n) {
      hn::Vec<decltype(d)> c0, c1, c2;
      hn::LoadInterleaved3(d, src + 3 * (width - x - n), c0, c1, c2);
      hn::StoreInterleaved3(ReverseBytes(d, c0), ReverseBytes(d, c1), ReverseBytes(d, c2), d,
                            dst + 3 * x);
    }
  }
#endif
  for (; x < width; ++x) {
    std::memcpy(dst + x * pixelBytes, src + (width - 1 - x) * pixelBytes, pixelBytes);
  }
}

void FlipPlaneImpl(const uint8_t* src, size_t srcStride, uint8_t* dst, size_t dstStride,
                   size_t width, size_t height, size_t pixelBytes, SmFlipAxis axis) {
  const bool rows = axis == FlipRows || axis == FlipBoth;
  const bool columns = axis == FlipColumns || axis == FlipBoth;
  for (size_t y = 0; y < height; ++y) {
    const uint8_t* s = src + (rows ? height - 1 - y : y) * srcStride;
    uint8_t* t = dst + y * dstStride;
    if (columns) {
      MirrorRow(s, t, width, pixelBytes);
    } else {
      std::memcpy(t, s, width * pixelBytes);
    }
  }
}

} // namespace HWY_NAMESPACE
} // namespace NmPrimitives
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace NmPrimitives {

HWY_EXPORT(FlipPlaneImpl);
HWY_EXPORT(MirrorRow);

void FlipPlane(const uint8_t* src, size_t srcStride, uint8_t* dst, size_t dstStride, size_t width,
               size_t height, size_t pixelBytes, SmFlipAxis axis) {
  HWY_DYNAMIC_DISPATCH(FlipPlaneImpl)
  (src, srcStride, dst, dstStride, width, height, pixelBytes, axis);
}

void FlipPlaneInPlace(uint8_t* data, size_t stride, size_t width, size_t height, size_t pixelBytes,
                      SmFlipAxis axis) {
  if (width == 0 || height == 0) {
    return;
  }
  const size_t rowBytes = width * pixelBytes;
  std::vector<uint8_t> scratch(rowBytes);
  if (axis == FlipColumns) {
    for (size_t y = 0; y < height; ++y) {
      uint8_t* row = data + y * stride;
      std::memcpy(scratch.data(), row, rowBytes);
      HWY_DYNAMIC_DISPATCH(MirrorRow)(scratch.data(), row, width, pixelBytes);
    }
    return;
  }
  // Rows trade places pairwise; with both axes each is mirrored on the way.
  for (size_t top = 0, bottom = height - 1; top < bottom; ++top, --bottom) {
    uint8_t* upper = data + top * stride;
    uint8_t* lower = data + bottom * stride;
    std::memcpy(scratch.data(), upper, rowBytes);
    if (axis == FlipBoth) {
      HWY_DYNAMIC_DISPATCH(MirrorRow)(lower, upper, width, pixelBytes);
      HWY_DYNAMIC_DISPATCH(MirrorRow)(scratch.data(), lower, width, pixelBytes);
    } else {
      std::memcpy(upper, lower, rowBytes);
      std::memcpy(lower, scratch.data(), rowBytes);
    }
  }
  if (axis == FlipBoth && height % 2 == 1) {
    uint8_t* middle = data + (height / 2) * stride;
    std::memcpy(scratch.data(), middle, rowBytes);
    HWY_DYNAMIC_DISPATCH(MirrorRow)(scratch.data(), middle, width, pixelBytes);
  }
}

} // namespace NmPrimitives
#endif
