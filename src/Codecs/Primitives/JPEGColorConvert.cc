// Vector JFIF colour transform, compiled once per Highway target.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "Codecs/Primitives/JPEGColorConvert.cc"
#include <hwy/foreach_target.h> // IWYU pragma: keep
#include <hwy/highway.h>

#include "Codecs/Primitives/JPEGColorConvert.h"

HWY_BEFORE_NAMESPACE();
namespace NmPrimitives {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

void YCbCrToRGBRowImpl(const uint8_t* y, const uint8_t* cb, const uint8_t* cr, uint8_t* out,
                       size_t width, bool bgr) {
  const hn::ScalableTag<int32_t> d32;
  const hn::Rebind<uint8_t, decltype(d32)> d8;
  const size_t n = hn::Lanes(d32);
  const auto bias = hn::Set(d32, 128);
  const auto half = hn::Set(d32, 32768);
  const auto crToR = hn::Set(d32, kJFIFCrToR);
  const auto cbToG = hn::Set(d32, -kJFIFCbToG);
  const auto crToG = hn::Set(d32, -kJFIFCrToG);
  const auto cbToB = hn::Set(d32, kJFIFCbToB);
  size_t x = 0;
  for (; x + n <= width; x += n) {
    const auto luma = hn::PromoteTo(d32, hn::LoadU(d8, y + x));
    const auto blue = hn::Sub(hn::PromoteTo(d32, hn::LoadU(d8, cb + x)), bias);
    const auto red = hn::Sub(hn::PromoteTo(d32, hn::LoadU(d8, cr + x)), bias);
    const auto r = hn::Add(luma, hn::ShiftRight<16>(hn::Add(hn::Mul(crToR, red), half)));
    const auto g = hn::Add(luma, hn::ShiftRight<16>(hn::Add(hn::Mul(cbToG, blue),
                                                            hn::Add(hn::Mul(crToG, red), half))));
    const auto b = hn::Add(luma, hn::ShiftRight<16>(hn::Add(hn::Mul(cbToB, blue), half)));
    const auto r8 = hn::DemoteTo(d8, r);
    const auto g8 = hn::DemoteTo(d8, g);
    const auto b8 = hn::DemoteTo(d8, b);
    if (bgr) {
      hn::StoreInterleaved3(b8, g8, r8, d8, out + 3 * x);
    } else {
      hn::StoreInterleaved3(r8, g8, b8, d8, out + 3 * x);
    }
  }
  if (x < width) {
    NmReference::JPEGYCbCrToRGBRow(y + x, cb + x, cr + x, out + 3 * x, width - x, bgr);
  }
}

} // namespace HWY_NAMESPACE
} // namespace NmPrimitives
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace NmPrimitives {

HWY_EXPORT(YCbCrToRGBRowImpl);

void JPEGYCbCrToRGBRow(const uint8_t* y, const uint8_t* cb, const uint8_t* cr, uint8_t* out,
                       size_t width, bool bgr) {
  HWY_DYNAMIC_DISPATCH(YCbCrToRGBRowImpl)(y, cb, cr, out, width, bgr);
}

} // namespace NmPrimitives
#endif
