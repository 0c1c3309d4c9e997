// Vector versions of the copy family, compiled once per Highway target and
// chosen at run time.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "Codecs/Primitives/PlaneCopy.cc"
#include <hwy/foreach_target.h> // IWYU pragma: keep
#include <hwy/highway.h>

#include <cstring>

#include "Codecs/Primitives/PlaneCopy.h"

#if HWY_ARCH_X86_64
#include <cpuid.h>
#endif

#ifndef VZK_PLANE_COPY_ONCE
#define VZK_PLANE_COPY_ONCE
namespace NmPrimitives {
namespace {

constexpr size_t LargeCopyBytes = 4096;

bool HasEnhancedStringCopy() {
#if HWY_ARCH_X86_64
  static const bool has = [] {
    unsigned a = 0, b = 0, c = 0, d = 0;
    return __get_cpuid_count(7, 0, &a, &b, &c, &d) != 0 && (b & (1u << 9)) != 0;
  }();
  return has;
#else
  return false;
#endif
}

inline void CopyWithString(const uint8_t* s, uint8_t* t, size_t count) {
#if HWY_ARCH_X86_64
  asm volatile("rep movsb" : "+D"(t), "+S"(s), "+c"(count) : : "memory");
#else
  std::memcpy(t, s, count);
#endif
}

} // namespace
} // namespace NmPrimitives
#endif

HWY_BEFORE_NAMESPACE();
namespace NmPrimitives {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

// Whole rows go to the C library, whose copy and fill pick the widest
// stores, and a plane without gaps between its rows is one block. Large
// blocks copy fastest with the string instruction on processors that mark
// it as enhanced (ERMS), as the C library's copy does not always choose it.
void CopyPlaneImpl(const uint8_t* src, size_t srcStride, uint8_t* dst, size_t dstStride,
                   size_t rowBytes, size_t height) {
  if (srcStride == rowBytes && dstStride == rowBytes) {
    rowBytes *= height;
    height = 1;
  }
  const bool string = rowBytes >= LargeCopyBytes && HasEnhancedStringCopy();
  for (size_t y = 0; y < height; ++y) {
    const uint8_t* s = src + y * srcStride;
    uint8_t* t = dst + y * dstStride;
    if (string) {
      CopyWithString(s, t, rowBytes);
    } else {
      std::memcpy(t, s, rowBytes);
    }
  }
}

void SetPlaneImpl(uint8_t value, uint8_t* dst, size_t dstStride, size_t width, size_t height) {
  if (dstStride == width) {
    width *= height;
    height = 1;
  }
  for (size_t y = 0; y < height; ++y) {
    std::memset(dst + y * dstStride, value, width);
  }
}

void SetChannel4Impl(uint8_t value, size_t channel, uint8_t* dst, size_t dstStride, size_t width,
                     size_t height) {
  const hn::ScalableTag<uint8_t> d;
  const size_t n = hn::Lanes(d);
  // A vector must hold whole pixels and whole 16-byte blocks; the one-lane
  // scalar target takes the plain path.
  const bool wholePixels = n >= 16;
  const auto mask =
      hn::Eq(hn::And(hn::Iota(d, 0), hn::Set(d, 3)), hn::Set(d, static_cast<uint8_t>(channel)));
  const auto v = hn::Set(d, value);
  const size_t rowBytes = 4 * width;
  for (size_t y = 0; y < height; ++y) {
    uint8_t* t = dst + y * dstStride;
    size_t x = 0;
    for (; wholePixels && x + n <= rowBytes; x += n) {
      hn::StoreU(hn::IfThenElse(mask, v, hn::LoadU(d, t + x)), d, t + x);
    }
    for (; x < rowBytes; x += 4) {
      t[x + channel] = value;
    }
  }
}

void Copy3To4Impl(const uint8_t* src, size_t srcStride, uint8_t* dst, size_t dstStride,
                  size_t width, size_t height, uint8_t fourth) {
  const hn::ScalableTag<uint8_t> d;
  const size_t n = hn::Lanes(d);
  const auto a = hn::Set(d, fourth);
  for (size_t y = 0; y < height; ++y) {
    const uint8_t* s = src + y * srcStride;
    uint8_t* t = dst + y * dstStride;
    size_t x = 0;
    for (; x + n <= width; x += n) {
      hn::Vec<decltype(d)> c0, c1, c2;
      hn::LoadInterleaved3(d, s + 3 * x, c0, c1, c2);
      hn::StoreInterleaved4(c0, c1, c2, a, d, t + 4 * x);
    }
    for (; x < width; ++x) {
      t[4 * x] = s[3 * x];
      t[4 * x + 1] = s[3 * x + 1];
      t[4 * x + 2] = s[3 * x + 2];
      t[4 * x + 3] = fourth;
    }
  }
}

// Four-byte pixels to three: a byte shuffle drops the fourth byte of each
// pixel within every 128-bit block, a permutation of 32-bit lanes closes the
// gaps between the blocks, and the whole vector is stored; its last quarter
// lands on the next pixels, which the next step writes again.
void Copy4To3Impl(const uint8_t* src, size_t srcStride, uint8_t* dst, size_t dstStride,
                  size_t width, size_t height) {
#if HWY_TARGET != HWY_SCALAR
  const hn::ScalableTag<uint32_t> d32;
  const hn::Repartition<uint8_t, decltype(d32)> d8;
  const size_t pixels = hn::Lanes(d32);
  constexpr uint8_t Z = 0x80;
  alignas(16) static constexpr uint8_t DropFourth[16] = {0,  1,  2,  4,  5, 6, 8, 9,
                                                         10, 12, 13, 14, Z, Z, Z, Z};
  const auto drop = hn::LoadDup128(d8, DropFourth);
  HWY_ALIGN uint32_t order[hn::MaxLanes(d32)];
  for (size_t i = 0; i < pixels; ++i) {
    order[i] = static_cast<uint32_t>(i < pixels / 4 * 3 ? i / 3 * 4 + i % 3 : 0);
  }
  const auto close = hn::SetTableIndices(d32, order);
  // A step writes `pixels` bytes beyond its own, which must stay in the row.
  const size_t vectorWidth = width >= pixels + pixels / 3 + 1 ? width - pixels / 3 - 1 : 0;
#endif
  for (size_t y = 0; y < height; ++y) {
    const uint8_t* s = src + y * srcStride;
    uint8_t* t = dst + y * dstStride;
    size_t x = 0;
#if HWY_TARGET != HWY_SCALAR
    for (; x + pixels <= vectorWidth; x += pixels) {
      const auto packed = hn::BitCast(d32, hn::TableLookupBytesOr0(hn::LoadU(d8, s + 4 * x), drop));
      hn::StoreU(hn::BitCast(d8, hn::TableLookupLanes(packed, close)), d8, t + 3 * x);
    }
#endif
    for (; x < width; ++x) {
      t[3 * x] = s[4 * x];
      t[3 * x + 1] = s[4 * x + 1];
      t[3 * x + 2] = s[4 * x + 2];
    }
  }
}

void SwapChannels3Impl(const uint8_t* src, size_t srcStride, uint8_t* dst, size_t dstStride,
                       size_t width, size_t height) {
  const hn::ScalableTag<uint8_t> d;
  const size_t n = hn::Lanes(d);
  for (size_t y = 0; y < height; ++y) {
    const uint8_t* s = src + y * srcStride;
    uint8_t* t = dst + y * dstStride;
    size_t x = 0;
    for (; x + n <= width; x += n) {
      hn::Vec<decltype(d)> c0, c1, c2;
      hn::LoadInterleaved3(d, s + 3 * x, c0, c1, c2);
      hn::StoreInterleaved3(c2, c1, c0, d, t + 3 * x);
    }
    for (; x < width; ++x) {
      const uint8_t first = s[3 * x];
      const uint8_t third = s[3 * x + 2];
      t[3 * x] = third;
      t[3 * x + 1] = s[3 * x + 1];
      t[3 * x + 2] = first;
    }
  }
}

void SwapChannels4Impl(const uint8_t* src, size_t srcStride, uint8_t* dst, size_t dstStride,
                       size_t width, size_t height) {
  const hn::ScalableTag<uint8_t> d;
  const size_t n = hn::Lanes(d);
  // Byte shuffle within each 16-byte block: even bytes trade places with the
  // byte two away (2 1 0 3, 6 5 4 7, ...), odd bytes stay.
  const auto lane = hn::And(hn::Iota(d, 0), hn::Set(d, 15));
  const auto isEven = hn::Eq(hn::And(lane, hn::Set(d, 1)), hn::Zero(d));
  const auto indices = hn::IfThenElse(isEven, hn::Xor(lane, hn::Set(d, 2)), lane);
  // The one-lane scalar target has no blocks to shuffle in.
  const bool wholePixels = n >= 16;
  const size_t rowBytes = 4 * width;
  for (size_t y = 0; y < height; ++y) {
    const uint8_t* s = src + y * srcStride;
    uint8_t* t = dst + y * dstStride;
    size_t x = 0;
    for (; wholePixels && x + n <= rowBytes; x += n) {
      hn::StoreU(hn::TableLookupBytes(hn::LoadU(d, s + x), indices), d, t + x);
    }
    for (; x < rowBytes; x += 4) {
      const uint8_t first = s[x];
      const uint8_t third = s[x + 2];
      t[x] = third;
      t[x + 1] = s[x + 1];
      t[x + 2] = first;
      t[x + 3] = s[x + 3];
    }
  }
}

} // namespace HWY_NAMESPACE
} // namespace NmPrimitives
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace NmPrimitives {

HWY_EXPORT(CopyPlaneImpl);
HWY_EXPORT(SetPlaneImpl);
HWY_EXPORT(SetChannel4Impl);
HWY_EXPORT(Copy3To4Impl);
HWY_EXPORT(Copy4To3Impl);
HWY_EXPORT(SwapChannels3Impl);
HWY_EXPORT(SwapChannels4Impl);

void CopyPlane(const uint8_t* src, size_t srcStride, uint8_t* dst, size_t dstStride,
               size_t rowBytes, size_t height) {
  HWY_DYNAMIC_DISPATCH(CopyPlaneImpl)(src, srcStride, dst, dstStride, rowBytes, height);
}
void SetPlane(uint8_t value, uint8_t* dst, size_t dstStride, size_t width, size_t height) {
  HWY_DYNAMIC_DISPATCH(SetPlaneImpl)(value, dst, dstStride, width, height);
}
void SetChannel4(uint8_t value, size_t channel, uint8_t* dst, size_t dstStride, size_t width,
                 size_t height) {
  HWY_DYNAMIC_DISPATCH(SetChannel4Impl)(value, channel, dst, dstStride, width, height);
}
void Copy3To4(const uint8_t* src, size_t srcStride, uint8_t* dst, size_t dstStride, size_t width,
              size_t height, uint8_t fourth) {
  HWY_DYNAMIC_DISPATCH(Copy3To4Impl)(src, srcStride, dst, dstStride, width, height, fourth);
}
void Copy4To3(const uint8_t* src, size_t srcStride, uint8_t* dst, size_t dstStride, size_t width,
              size_t height) {
  HWY_DYNAMIC_DISPATCH(Copy4To3Impl)(src, srcStride, dst, dstStride, width, height);
}
void SwapChannels3(const uint8_t* src, size_t srcStride, uint8_t* dst, size_t dstStride,
                   size_t width, size_t height) {
  HWY_DYNAMIC_DISPATCH(SwapChannels3Impl)(src, srcStride, dst, dstStride, width, height);
}
void SwapChannels4(const uint8_t* src, size_t srcStride, uint8_t* dst, size_t dstStride,
                   size_t width, size_t height) {
  HWY_DYNAMIC_DISPATCH(SwapChannels4Impl)(src, srcStride, dst, dstStride, width, height);
}

} // namespace NmPrimitives
#endif
