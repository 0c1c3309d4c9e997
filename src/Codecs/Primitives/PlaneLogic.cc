// Vector per-pixel logic, compiled once per Highway target. Each row runs
// whole vectors of pixels and leaves the remainder to the plain loops.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "Codecs/Primitives/PlaneLogic.cc"
#include <hwy/foreach_target.h> // IWYU pragma: keep
#include <hwy/highway.h>

#include "Codecs/Primitives/PlaneLogic.h"

HWY_BEFORE_NAMESPACE();
namespace NmPrimitives {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

using D = hn::ScalableTag<uint8_t>;
using V = hn::Vec<D>;

// Splits n pixels of S bytes into one vector per byte position.
template <size_t S> HWY_INLINE void LoadPixels(D d, const uint8_t* p, V (&c)[4]) {
  if constexpr (S == 1) {
    c[0] = hn::LoadU(d, p);
  } else if constexpr (S == 3) {
    hn::LoadInterleaved3(d, p, c[0], c[1], c[2]);
  } else {
    hn::LoadInterleaved4(d, p, c[0], c[1], c[2], c[3]);
  }
}

template <size_t S> HWY_INLINE void StorePixels(D d, const V (&c)[4], uint8_t* p) {
  if constexpr (S == 1) {
    hn::StoreU(c[0], d, p);
  } else if constexpr (S == 3) {
    hn::StoreInterleaved3(c[0], c[1], c[2], d, p);
  } else {
    hn::StoreInterleaved4(c[0], c[1], c[2], c[3], d, p);
  }
}

template <class Op>
HWY_INLINE void BytewiseRows(const uint8_t* src, size_t srcStride, uint8_t* dst, size_t dstStride,
                             size_t rowBytes, size_t height, Op op) {
  const D d;
  const size_t n = hn::Lanes(d);
  for (size_t y = 0; y < height; ++y) {
    const uint8_t* s = src + y * srcStride;
    uint8_t* t = dst + y * dstStride;
    size_t x = 0;
    for (; x + n <= rowBytes; x += n) {
      hn::StoreU(op(hn::LoadU(d, s + x), hn::LoadU(d, t + x)), d, t + x);
    }
    for (; x < rowBytes; ++x) {
      t[x] = hn::GetLane(op(hn::Set(d, s[x]), hn::Set(d, t[x])));
    }
  }
}

void BitwiseOrImpl(const uint8_t* src, size_t srcStride, uint8_t* dst, size_t dstStride,
                   size_t rowBytes, size_t height) {
  BytewiseRows(src, srcStride, dst, dstStride, rowBytes, height,
               [](V s, V t) { return hn::Or(s, t); });
}

void BitwiseAndImpl(const uint8_t* src, size_t srcStride, uint8_t* dst, size_t dstStride,
                    size_t rowBytes, size_t height) {
  BytewiseRows(src, srcStride, dst, dstStride, rowBytes, height,
               [](V s, V t) { return hn::And(s, t); });
}

void BitwiseNotImpl(uint8_t* dst, size_t dstStride, size_t rowBytes, size_t height) {
  BytewiseRows(dst, dstStride, dst, dstStride, rowBytes, height, [](V, V t) { return hn::Not(t); });
}

template <size_t S>
void CopyMaskedRows(const uint8_t* src, size_t srcStride, uint8_t* dst, size_t dstStride,
                    const uint8_t* mask, size_t maskStride, size_t maskPixelStride, size_t width,
                    size_t height, size_t channels) {
  const D d;
  const size_t n = hn::Lanes(d);
  const bool composite = maskPixelStride == S && S != 1;
  for (size_t y = 0; y < height; ++y) {
    const uint8_t* s = src + y * srcStride;
    uint8_t* t = dst + y * dstStride;
    const uint8_t* m = mask + y * maskStride;
    size_t x = 0;
    for (; x + n <= width; x += n) {
      V from[4], to[4], selector[4];
      LoadPixels<S>(d, s + S * x, from);
      LoadPixels<S>(d, t + S * x, to);
      if (composite) {
        LoadPixels<S>(d, m + S * x, selector);
      } else {
        selector[0] = selector[1] = selector[2] = selector[3] = hn::LoadU(d, m + x);
      }
      for (size_t c = 0; c < channels; ++c) {
        to[c] = hn::IfThenElse(hn::Eq(selector[c], hn::Zero(d)), to[c], from[c]);
      }
      StorePixels<S>(d, to, t + S * x);
    }
    NmReference::CopyMasked(s + S * x, srcStride, t + S * x, dstStride, m + maskPixelStride * x,
                            maskStride, maskPixelStride, width - x, 1, S, channels);
  }
}

void CopyMaskedImpl(const uint8_t* src, size_t srcStride, uint8_t* dst, size_t dstStride,
                    const uint8_t* mask, size_t maskStride, size_t maskPixelStride, size_t width,
                    size_t height, size_t pixelStride, size_t channels) {
  switch (pixelStride) {
  case 1:
    return CopyMaskedRows<1>(src, srcStride, dst, dstStride, mask, maskStride, maskPixelStride,
                             width, height, channels);
  case 3:
    return CopyMaskedRows<3>(src, srcStride, dst, dstStride, mask, maskStride, maskPixelStride,
                             width, height, channels);
  default:
    return CopyMaskedRows<4>(src, srcStride, dst, dstStride, mask, maskStride, maskPixelStride,
                             width, height, channels);
  }
}

template <size_t S>
void SetMaskedRows(const uint8_t value[4], const uint8_t* mask, size_t maskStride, uint8_t* dst,
                   size_t dstStride, size_t width, size_t height, size_t channels) {
  const D d;
  const size_t n = hn::Lanes(d);
  V values[4];
  for (size_t c = 0; c < 4; ++c) {
    values[c] = hn::Set(d, value[c]);
  }
  for (size_t y = 0; y < height; ++y) {
    uint8_t* t = dst + y * dstStride;
    const uint8_t* m = mask + y * maskStride;
    size_t x = 0;
    for (; x + n <= width; x += n) {
      V to[4];
      LoadPixels<S>(d, t + S * x, to);
      const auto keep = hn::Eq(hn::LoadU(d, m + x), hn::Zero(d));
      for (size_t c = 0; c < channels; ++c) {
        to[c] = hn::IfThenElse(keep, to[c], values[c]);
      }
      StorePixels<S>(d, to, t + S * x);
    }
    NmReference::SetMaskedPixels(value, m + x, maskStride, t + S * x, dstStride, width - x, 1, S,
                                 channels);
  }
}

void SetMaskedPixelsImpl(const uint8_t value[4], const uint8_t* mask, size_t maskStride,
                         uint8_t* dst, size_t dstStride, size_t width, size_t height,
                         size_t pixelStride, size_t channels) {
  switch (pixelStride) {
  case 1:
    return SetMaskedRows<1>(value, mask, maskStride, dst, dstStride, width, height, channels);
  case 3:
    return SetMaskedRows<3>(value, mask, maskStride, dst, dstStride, width, height, channels);
  default:
    return SetMaskedRows<4>(value, mask, maskStride, dst, dstStride, width, height, channels);
  }
}

template <size_t S>
void CompareRows(const uint8_t* src, size_t srcStride, const uint8_t value[4], uint8_t* dst,
                 size_t dstStride, size_t width, size_t height, size_t channels) {
  const D d;
  const size_t n = hn::Lanes(d);
  for (size_t y = 0; y < height; ++y) {
    const uint8_t* s = src + y * srcStride;
    uint8_t* t = dst + y * dstStride;
    size_t x = 0;
    for (; x + n <= width; x += n) {
      V from[4];
      LoadPixels<S>(d, s + S * x, from);
      auto equal = hn::Eq(from[0], hn::Set(d, value[0]));
      for (size_t c = 1; c < channels; ++c) {
        equal = hn::And(equal, hn::Eq(from[c], hn::Set(d, value[c])));
      }
      hn::StoreU(hn::VecFromMask(d, equal), d, t + x);
    }
    NmReference::CompareEqual(s + S * x, srcStride, value, t + x, dstStride, width - x, 1, S,
                              channels);
  }
}

void CompareEqualImpl(const uint8_t* src, size_t srcStride, const uint8_t value[4], uint8_t* dst,
                      size_t dstStride, size_t width, size_t height, size_t pixelStride,
                      size_t channels) {
  switch (pixelStride) {
  case 1:
    return CompareRows<1>(src, srcStride, value, dst, dstStride, width, height, channels);
  case 3:
    return CompareRows<3>(src, srcStride, value, dst, dstStride, width, height, channels);
  default:
    return CompareRows<4>(src, srcStride, value, dst, dstStride, width, height, channels);
  }
}

template <size_t S>
void ColorKeyRows(const uint8_t* overlay, size_t overlayStride, const uint8_t key[4],
                  const uint8_t* background, size_t backgroundStride, uint8_t* dst,
                  size_t dstStride, size_t width, size_t height, size_t channels) {
  const D d;
  const size_t n = hn::Lanes(d);
  for (size_t y = 0; y < height; ++y) {
    const uint8_t* o = overlay + y * overlayStride;
    const uint8_t* b = background + y * backgroundStride;
    uint8_t* t = dst + y * dstStride;
    size_t x = 0;
    for (; x + n <= width; x += n) {
      V top[4], back[4], to[4];
      LoadPixels<S>(d, o + S * x, top);
      LoadPixels<S>(d, b + S * x, back);
      LoadPixels<S>(d, t + S * x, to);
      auto keyed = hn::Eq(top[0], hn::Set(d, key[0]));
      for (size_t c = 1; c < channels; ++c) {
        keyed = hn::And(keyed, hn::Eq(top[c], hn::Set(d, key[c])));
      }
      for (size_t c = 0; c < channels; ++c) {
        to[c] = hn::IfThenElse(keyed, back[c], top[c]);
      }
      StorePixels<S>(d, to, t + S * x);
    }
    NmReference::ColorKeyOverlay(o + S * x, overlayStride, key, b + S * x, backgroundStride,
                                 t + S * x, dstStride, width - x, 1, S, channels);
  }
}

void ColorKeyOverlayImpl(const uint8_t* overlay, size_t overlayStride, const uint8_t key[4],
                         const uint8_t* background, size_t backgroundStride, uint8_t* dst,
                         size_t dstStride, size_t width, size_t height, size_t pixelStride,
                         size_t channels) {
  switch (pixelStride) {
  case 1:
    return ColorKeyRows<1>(overlay, overlayStride, key, background, backgroundStride, dst,
                           dstStride, width, height, channels);
  case 3:
    return ColorKeyRows<3>(overlay, overlayStride, key, background, backgroundStride, dst,
                           dstStride, width, height, channels);
  default:
    return ColorKeyRows<4>(overlay, overlayStride, key, background, backgroundStride, dst,
                           dstStride, width, height, channels);
  }
}

} // namespace HWY_NAMESPACE
} // namespace NmPrimitives
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace NmPrimitives {

HWY_EXPORT(BitwiseOrImpl);
HWY_EXPORT(BitwiseAndImpl);
HWY_EXPORT(BitwiseNotImpl);
HWY_EXPORT(CopyMaskedImpl);
HWY_EXPORT(SetMaskedPixelsImpl);
HWY_EXPORT(CompareEqualImpl);
HWY_EXPORT(ColorKeyOverlayImpl);

void BitwiseOr(const uint8_t* src, size_t srcStride, uint8_t* dst, size_t dstStride,
               size_t rowBytes, size_t height) {
  HWY_DYNAMIC_DISPATCH(BitwiseOrImpl)(src, srcStride, dst, dstStride, rowBytes, height);
}
void BitwiseAnd(const uint8_t* src, size_t srcStride, uint8_t* dst, size_t dstStride,
                size_t rowBytes, size_t height) {
  HWY_DYNAMIC_DISPATCH(BitwiseAndImpl)(src, srcStride, dst, dstStride, rowBytes, height);
}
void BitwiseNot(uint8_t* dst, size_t dstStride, size_t rowBytes, size_t height) {
  HWY_DYNAMIC_DISPATCH(BitwiseNotImpl)(dst, dstStride, rowBytes, height);
}
void CopyMasked(const uint8_t* src, size_t srcStride, uint8_t* dst, size_t dstStride,
                const uint8_t* mask, size_t maskStride, size_t maskPixelStride, size_t width,
                size_t height, size_t pixelStride, size_t channels) {
  HWY_DYNAMIC_DISPATCH(CopyMaskedImpl)
  (src, srcStride, dst, dstStride, mask, maskStride, maskPixelStride, width, height, pixelStride,
   channels);
}
void SetMaskedPixels(const uint8_t value[4], const uint8_t* mask, size_t maskStride, uint8_t* dst,
                     size_t dstStride, size_t width, size_t height, size_t pixelStride,
                     size_t channels) {
  HWY_DYNAMIC_DISPATCH(SetMaskedPixelsImpl)
  (value, mask, maskStride, dst, dstStride, width, height, pixelStride, channels);
}
void CompareEqual(const uint8_t* src, size_t srcStride, const uint8_t value[4], uint8_t* dst,
                  size_t dstStride, size_t width, size_t height, size_t pixelStride,
                  size_t channels) {
  HWY_DYNAMIC_DISPATCH(CompareEqualImpl)
  (src, srcStride, value, dst, dstStride, width, height, pixelStride, channels);
}
void ColorKeyOverlay(const uint8_t* overlay, size_t overlayStride, const uint8_t key[4],
                     const uint8_t* background, size_t backgroundStride, uint8_t* dst,
                     size_t dstStride, size_t width, size_t height, size_t pixelStride,
                     size_t channels) {
  HWY_DYNAMIC_DISPATCH(ColorKeyOverlayImpl)
  (overlay, overlayStride, key, background, backgroundStride, dst, dstStride, width, height,
   pixelStride, channels);
}

} // namespace NmPrimitives
#endif
