// Averaging and weighting of predictions, compiled once per Highway target.
// One weighted prediction fits 16-bit lanes (|255 * 128| + 64 < 32768); the
// sum of two does for the weights of conforming streams only.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "Codecs/Primitives/H264Prediction.cc"
#include <hwy/foreach_target.h> // IWYU pragma: keep
#include <hwy/highway.h>

#include <algorithm>

#include "Codecs/Primitives/H264Prediction.h"

HWY_BEFORE_NAMESPACE();
namespace NmPrimitives {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

#if HWY_TARGET != HWY_SCALAR
// Runs body(tag, x) over each row in vectors as wide as the block allows,
// down to two lanes, so that no store passes the block's right edge.
template <typename T, typename Body> HWY_INLINE void ForEachRow(int width, int height, Body body) {
  const hn::CappedTag<T, 16> full;
  const hn::CappedTag<T, 8> eight;
  const hn::CappedTag<T, 4> four;
  const hn::CappedTag<T, 2> two;
  for (int y = 0; y < height; ++y) {
    int x = 0;
    for (; x + static_cast<int>(hn::Lanes(full)) <= width; x += static_cast<int>(hn::Lanes(full))) {
      body(full, y, x);
    }
    for (; x + static_cast<int>(hn::Lanes(eight)) <= width;
         x += static_cast<int>(hn::Lanes(eight))) {
      body(eight, y, x);
    }
    for (; x + static_cast<int>(hn::Lanes(four)) <= width; x += static_cast<int>(hn::Lanes(four))) {
      body(four, y, x);
    }
    for (; x + static_cast<int>(hn::Lanes(two)) <= width; x += static_cast<int>(hn::Lanes(two))) {
      body(two, y, x);
    }
  }
}

void AverageImpl(const uint8_t* a, ptrdiff_t aStride, const uint8_t* b, ptrdiff_t bStride,
                 uint8_t* dst, ptrdiff_t dstStride, int width, int height) {
  if (width == 16) {
    // The common block: one vector a row, without the narrower tails that
    // cost a macroblock's average more than the averaging itself.
    const hn::CappedTag<uint8_t, 16> d;
    if (hn::Lanes(d) == 16) {
      for (int y = 0; y < height; ++y) {
        hn::StoreU(hn::AverageRound(hn::LoadU(d, a + y * aStride), hn::LoadU(d, b + y * bStride)),
                   d, dst + y * dstStride);
      }
      return;
    }
  }
  ForEachRow<uint8_t>(width, height, [&](auto d, int y, int x) {
    const auto sum =
        hn::AverageRound(hn::LoadU(d, a + y * aStride + x), hn::LoadU(d, b + y * bStride + x));
    hn::StoreU(sum, d, dst + y * dstStride + x);
  });
}

void WeightImpl(const uint8_t* a, ptrdiff_t aStride, uint8_t* dst, ptrdiff_t dstStride, int width,
                int height, int logWD, int weight, int offset) {
  const int round = logWD >= 1 ? 1 << (logWD - 1) : 0;
  ForEachRow<int16_t>(width, height, [&](auto d, int y, int x) {
    const hn::Rebind<uint8_t, decltype(d)> d8;
    const auto sample = hn::BitCast(
        d, hn::PromoteTo(hn::RebindToUnsigned<decltype(d)>(), hn::LoadU(d8, a + y * aStride + x)));
    auto value = hn::Add(hn::Mul(sample, hn::Set(d, static_cast<int16_t>(weight))),
                         hn::Set(d, static_cast<int16_t>(round)));
    value = hn::Add(hn::ShiftRightSame(value, logWD), hn::Set(d, static_cast<int16_t>(offset)));
    hn::StoreU(hn::DemoteTo(d8, value), d8, dst + y * dstStride + x);
  });
}

// Samples widened to the lanes of d.
template <class D> HWY_INLINE hn::Vec<D> LoadSamples(D d, const uint8_t* p) {
  const hn::Rebind<uint8_t, D> d8;
  return hn::BitCast(d, hn::PromoteTo(hn::RebindToUnsigned<D>(), hn::LoadU(d8, p)));
}

// One row's vector of lanes of d: both predictions weighted and summed.
template <class D>
HWY_INLINE void WeightBiRow(D d, const uint8_t* a, const uint8_t* b, uint8_t* dst, int logWD,
                            int weightA, int weightB, int offset) {
  using T = hn::TFromD<D>;
  const hn::Rebind<uint8_t, D> d8;
  auto value = hn::Add(hn::Mul(LoadSamples(d, a), hn::Set(d, static_cast<T>(weightA))),
                       hn::Mul(LoadSamples(d, b), hn::Set(d, static_cast<T>(weightB))));
  value = hn::ShiftRightSame(hn::Add(value, hn::Set(d, static_cast<T>(1 << logWD))), logWD + 1);
  value = hn::Add(value, hn::Set(d, static_cast<T>(offset)));
  hn::StoreU(hn::DemoteTo(d8, value), d8, dst);
}

// Weighting of two predictions of Width samples a row, one vector a row
// as wide as the block: the width is fixed, so that no row runs through
// the loops of the narrower tails.
template <typename T, int Width>
void WeightBiIn(const uint8_t* a, ptrdiff_t aStride, const uint8_t* b, ptrdiff_t bStride,
                uint8_t* dst, ptrdiff_t dstStride, int height, int logWD, int weightA, int weightB,
                int offset) {
  const hn::CappedTag<T, Width> d;
  if (static_cast<int>(hn::Lanes(d)) < Width) {
    ForEachRow<T>(Width, height, [&](auto dt, int y, int x) {
      WeightBiRow(dt, a + y * aStride + x, b + y * bStride + x, dst + y * dstStride + x, logWD,
                  weightA, weightB, offset);
    });
    return;
  }
  for (int y = 0; y < height; ++y) {
    WeightBiRow(d, a + y * aStride, b + y * bStride, dst + y * dstStride, logWD, weightA, weightB,
                offset);
  }
}

template <typename T>
void WeightBiOfWidth(const uint8_t* a, ptrdiff_t aStride, const uint8_t* b, ptrdiff_t bStride,
                     uint8_t* dst, ptrdiff_t dstStride, int width, int height, int logWD,
                     int weightA, int weightB, int offset) {
  switch (width) {
  case 16:
    return WeightBiIn<T, 16>(a, aStride, b, bStride, dst, dstStride, height, logWD, weightA,
                             weightB, offset);
  case 8:
    return WeightBiIn<T, 8>(a, aStride, b, bStride, dst, dstStride, height, logWD, weightA, weightB,
                            offset);
  case 4:
    return WeightBiIn<T, 4>(a, aStride, b, bStride, dst, dstStride, height, logWD, weightA, weightB,
                            offset);
  default:
    ForEachRow<T>(width, height, [&](auto d, int y, int x) {
      WeightBiRow(d, a + y * aStride + x, b + y * bStride + x, dst + y * dstStride + x, logWD,
                  weightA, weightB, offset);
    });
  }
}

void WeightBiImpl(const uint8_t* a, ptrdiff_t aStride, const uint8_t* b, ptrdiff_t bStride,
                  uint8_t* dst, ptrdiff_t dstStride, int width, int height, int logWD, int weightA,
                  int weightB, int offset) {
  // The weights that streams may carry (implicit ones, and explicit ones
  // whose sum the standard bounds) keep every sum within 16 bits, which
  // doubles the lanes; any others take 32.
  const int most = 255 * (std::max(weightA, 0) + std::max(weightB, 0)) + (1 << logWD);
  const int least = -255 * (std::max(-weightA, 0) + std::max(-weightB, 0));
  if (most <= 32767 && least >= -32768) {
    WeightBiOfWidth<int16_t>(a, aStride, b, bStride, dst, dstStride, width, height, logWD, weightA,
                             weightB, offset);
  } else {
    WeightBiOfWidth<int32_t>(a, aStride, b, bStride, dst, dstStride, width, height, logWD, weightA,
                             weightB, offset);
  }
}

#else
// One lane a vector gains nothing: the scalar target runs the plain loops.
void AverageImpl(const uint8_t* a, ptrdiff_t aStride, const uint8_t* b, ptrdiff_t bStride,
                 uint8_t* dst, ptrdiff_t dstStride, int width, int height) {
  NmReference::H264Average(a, aStride, b, bStride, dst, dstStride, width, height);
}
void WeightImpl(const uint8_t* a, ptrdiff_t aStride, uint8_t* dst, ptrdiff_t dstStride, int width,
                int height, int logWD, int weight, int offset) {
  NmReference::H264Weight(a, aStride, dst, dstStride, width, height, logWD, weight, offset);
}
void WeightBiImpl(const uint8_t* a, ptrdiff_t aStride, const uint8_t* b, ptrdiff_t bStride,
                  uint8_t* dst, ptrdiff_t dstStride, int width, int height, int logWD, int weightA,
                  int weightB, int offset) {
  NmReference::H264WeightBi(a, aStride, b, bStride, dst, dstStride, width, height, logWD, weightA,
                            weightB, offset);
}
#endif

} // namespace HWY_NAMESPACE
} // namespace NmPrimitives
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace NmPrimitives {

HWY_EXPORT(AverageImpl);
HWY_EXPORT(WeightImpl);
HWY_EXPORT(WeightBiImpl);

void H264Average(const uint8_t* a, ptrdiff_t aStride, const uint8_t* b, ptrdiff_t bStride,
                 uint8_t* dst, ptrdiff_t dstStride, int width, int height) {
  HWY_DYNAMIC_DISPATCH(AverageImpl)(a, aStride, b, bStride, dst, dstStride, width, height);
}

void H264Weight(const uint8_t* a, ptrdiff_t aStride, uint8_t* dst, ptrdiff_t dstStride, int width,
                int height, int logWD, int weight, int offset) {
  HWY_DYNAMIC_DISPATCH(WeightImpl)
  (a, aStride, dst, dstStride, width, height, logWD, weight, offset);
}

void H264WeightBi(const uint8_t* a, ptrdiff_t aStride, const uint8_t* b, ptrdiff_t bStride,
                  uint8_t* dst, ptrdiff_t dstStride, int width, int height, int logWD, int weightA,
                  int weightB, int offset) {
  HWY_DYNAMIC_DISPATCH(WeightBiImpl)
  (a, aStride, b, bStride, dst, dstStride, width, height, logWD, weightA, weightB, offset);
}

} // namespace NmPrimitives
#endif
