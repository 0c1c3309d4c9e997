// Vector chroma resampling, compiled once per Highway target.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "Codecs/Primitives/ChromaResample.cc"
#include <hwy/foreach_target.h> // IWYU pragma: keep
#include <hwy/highway.h>

#include "Codecs/Primitives/ChromaResample.h"

HWY_BEFORE_NAMESPACE();
namespace NmPrimitives {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

HWY_INLINE void CopyRow(const uint8_t* src, uint8_t* dst, size_t width) {
  const hn::ScalableTag<uint8_t> d;
  const size_t n = hn::Lanes(d);
  size_t x = 0;
  for (; x + n <= width; x += n) {
    hn::StoreU(hn::LoadU(d, src + x), d, dst + x);
  }
  for (; x < width; ++x) {
    dst[x] = src[x];
  }
}

HWY_INLINE void AverageRows(const uint8_t* a, const uint8_t* b, uint8_t* dst, size_t width) {
  const hn::ScalableTag<uint8_t> d;
  const size_t n = hn::Lanes(d);
  size_t x = 0;
  for (; x + n <= width; x += n) {
    hn::StoreU(hn::AverageRound(hn::LoadU(d, a + x), hn::LoadU(d, b + x)), d, dst + x);
  }
  for (; x < width; ++x) {
    dst[x] = static_cast<uint8_t>((a[x] + b[x] + 1) >> 1);
  }
}

void Chroma420To422Impl(const uint8_t* src, size_t srcStride, uint8_t* dst, size_t dstStride,
                        size_t width, size_t dstHeight, bool interleaved) {
  for (size_t r = 0; r < dstHeight; ++r) {
    const size_t sourceRow = interleaved ? 2 * (r / 4) + r % 2 : r / 2;
    CopyRow(src + sourceRow * srcStride, dst + r * dstStride, width);
  }
}

void Chroma422To420Impl(const uint8_t* src, size_t srcStride, uint8_t* dst, size_t dstStride,
                        size_t width, size_t srcHeight, bool interleaved) {
  if (interleaved) {
    for (size_t q = 0; q < srcHeight / 2; ++q) {
      const uint8_t* upper = src + (4 * (q / 2) + q % 2) * srcStride;
      AverageRows(upper, upper + 2 * srcStride, dst + q * dstStride, width);
    }
    return;
  }
  for (size_t q = 0; q < (srcHeight + 1) / 2; ++q) {
    const uint8_t* upper = src + 2 * q * srcStride;
    if (2 * q + 1 < srcHeight) {
      AverageRows(upper, upper + srcStride, dst + q * dstStride, width);
    } else {
      CopyRow(upper, dst + q * dstStride, width);
    }
  }
}

void ChromaHalveColumnsImpl(const uint8_t* src, size_t srcStride, uint8_t* dst, size_t dstStride,
                            size_t dstWidth, size_t height) {
  const hn::ScalableTag<uint8_t> d;
  const size_t n = hn::Lanes(d);
  for (size_t y = 0; y < height; ++y) {
    const uint8_t* s = src + y * srcStride;
    uint8_t* t = dst + y * dstStride;
    size_t x = 0;
    // 2 * n source bytes must exist: the last even column may be the last one.
    for (; x + n < dstWidth; x += n) {
      hn::Vec<decltype(d)> even, odd;
      hn::LoadInterleaved2(d, s + 2 * x, even, odd);
      hn::StoreU(even, d, t + x);
    }
    for (; x < dstWidth; ++x) {
      t[x] = s[2 * x];
    }
  }
}

void ChromaDoubleColumnsImpl(const uint8_t* src, size_t srcStride, uint8_t* dst, size_t dstStride,
                             size_t dstWidth, size_t height) {
  const hn::ScalableTag<uint8_t> d;
  const size_t n = hn::Lanes(d);
  for (size_t y = 0; y < height; ++y) {
    const uint8_t* s = src + y * srcStride;
    uint8_t* t = dst + y * dstStride;
    size_t x = 0;
    for (; x + 2 * n <= dstWidth; x += 2 * n) {
      const auto v = hn::LoadU(d, s + x / 2);
      hn::StoreInterleaved2(v, v, d, t + x);
    }
    for (; x < dstWidth; ++x) {
      t[x] = s[x / 2];
    }
  }
}

} // namespace HWY_NAMESPACE
} // namespace NmPrimitives
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace NmPrimitives {

HWY_EXPORT(Chroma420To422Impl);
HWY_EXPORT(Chroma422To420Impl);
HWY_EXPORT(ChromaHalveColumnsImpl);
HWY_EXPORT(ChromaDoubleColumnsImpl);

void ChromaHalveColumns(const uint8_t* src, size_t srcStride, uint8_t* dst, size_t dstStride,
                        size_t dstWidth, size_t height) {
  HWY_DYNAMIC_DISPATCH(ChromaHalveColumnsImpl)(src, srcStride, dst, dstStride, dstWidth, height);
}
void ChromaDoubleColumns(const uint8_t* src, size_t srcStride, uint8_t* dst, size_t dstStride,
                         size_t dstWidth, size_t height) {
  HWY_DYNAMIC_DISPATCH(ChromaDoubleColumnsImpl)(src, srcStride, dst, dstStride, dstWidth, height);
}

void Chroma420To422(const uint8_t* src, size_t srcStride, uint8_t* dst, size_t dstStride,
                    size_t width, size_t dstHeight) {
  HWY_DYNAMIC_DISPATCH(Chroma420To422Impl)(src, srcStride, dst, dstStride, width, dstHeight, false);
}
void Chroma420To422Interleaved(const uint8_t* src, size_t srcStride, uint8_t* dst, size_t dstStride,
                               size_t width, size_t dstHeight) {
  HWY_DYNAMIC_DISPATCH(Chroma420To422Impl)(src, srcStride, dst, dstStride, width, dstHeight, true);
}
void Chroma422To420(const uint8_t* src, size_t srcStride, uint8_t* dst, size_t dstStride,
                    size_t width, size_t srcHeight) {
  HWY_DYNAMIC_DISPATCH(Chroma422To420Impl)(src, srcStride, dst, dstStride, width, srcHeight, false);
}
void Chroma422To420Interleaved(const uint8_t* src, size_t srcStride, uint8_t* dst, size_t dstStride,
                               size_t width, size_t srcHeight) {
  HWY_DYNAMIC_DISPATCH(Chroma422To420Impl)(src, srcStride, dst, dstStride, width, srcHeight, true);
}

} // namespace NmPrimitives
#endif
