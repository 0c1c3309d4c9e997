// Intra prediction of the large blocks, 16x16 luma and 8x8 chroma, in vectors
// of a row, compiled once per Highway target. The 4x4 and 8x8 luma modes
// stay the plain loops on every target: their cost is in gathering and
// filtering a handful of neighbours, not in filling the block.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "Codecs/Primitives/H264IntraPrediction.cc"
#include <hwy/foreach_target.h> // IWYU pragma: keep
#include <hwy/highway.h>

#include <cstring>

#include "Codecs/Primitives/H264IntraPrediction.h"

HWY_BEFORE_NAMESPACE();
namespace NmPrimitives {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

void PredictIntra4x4Impl(uint8_t* dst, ptrdiff_t stride, int mode, const SmH264IntraNeighbours& n) {
  NmReference::H264PredictIntra4x4(dst, stride, mode, n);
}

void PredictIntra8x8Impl(uint8_t* dst, ptrdiff_t stride, int mode, const SmH264IntraNeighbours& n) {
  NmReference::H264PredictIntra8x8(dst, stride, mode, n);
}

#if HWY_TARGET != HWY_SCALAR

// Fills a Size x Size block with one value.
template <int Size> HWY_INLINE void FillFlat(uint8_t* dst, ptrdiff_t stride, int value) {
  const hn::FixedTag<uint8_t, Size> d8;
  const auto v = hn::Set(d8, static_cast<uint8_t>(value));
  for (int y = 0; y < Size; ++y) {
    hn::StoreU(v, d8, dst + y * stride);
  }
}

// The plane mode: (a + b (x - centre) + c (y - centre) + 16) >> 5 per sample,
// in 16-bit lanes, which hold every value for 8-bit samples (below 2^15 in
// magnitude for both block sizes).
template <int Size> HWY_INLINE void FillPlane(uint8_t* dst, ptrdiff_t stride, int a, int b, int c) {
  const hn::CappedTag<int16_t, Size> d16;
  const hn::Rebind<uint8_t, decltype(d16)> d8;
  const size_t n = hn::Lanes(d16);
  constexpr int Centre = Size / 2 - 1;
  for (size_t x = 0; x < Size; x += n) {
    const auto slope =
        hn::Mul(hn::Set(d16, static_cast<int16_t>(b)),
                hn::Sub(hn::Iota(d16, static_cast<int16_t>(x)), hn::Set(d16, int16_t{Centre})));
    for (int y = 0; y < Size; ++y) {
      const auto row =
          hn::Add(slope, hn::Set(d16, static_cast<int16_t>(a + c * (y - Centre) + 16)));
      hn::StoreU(hn::DemoteTo(d8, hn::ShiftRight<5>(row)), d8, dst + y * stride + x);
    }
  }
}

template <int Size> HWY_INLINE void FillVertical(uint8_t* dst, ptrdiff_t stride) {
  const hn::FixedTag<uint8_t, Size> d8;
  const auto above = hn::LoadU(d8, dst - stride);
  for (int y = 0; y < Size; ++y) {
    hn::StoreU(above, d8, dst + y * stride);
  }
}

template <int Size> HWY_INLINE void FillHorizontal(uint8_t* dst, ptrdiff_t stride) {
  const hn::FixedTag<uint8_t, Size> d8;
  for (int y = 0; y < Size; ++y) {
    hn::StoreU(hn::Set(d8, dst[y * stride - 1]), d8, dst + y * stride);
  }
}

int SumAbove(const uint8_t* dst, ptrdiff_t stride, int count) {
  int sum = 0;
  for (int i = 0; i < count; ++i) {
    sum += dst[i - stride];
  }
  return sum;
}

int SumLeft(const uint8_t* dst, ptrdiff_t stride, int count) {
  int sum = 0;
  for (int i = 0; i < count; ++i) {
    sum += dst[i * stride - 1];
  }
  return sum;
}

void PredictIntra16x16Impl(uint8_t* dst, ptrdiff_t stride, int mode,
                           const SmH264IntraNeighbours& n) {
  switch (mode) {
  case 0:
    if (n.hasTop) {
      FillVertical<16>(dst, stride);
    } else {
      // Without the row above, the plain loops decide what an unusable mode gives.
      NmReference::H264PredictIntra16x16(dst, stride, mode, n);
    }
    return;
  case 1:
    if (n.hasLeft) {
      FillHorizontal<16>(dst, stride);
    } else {
      NmReference::H264PredictIntra16x16(dst, stride, mode, n);
    }
    return;
  case 2: {
    int dc = 128;
    if (n.hasTop && n.hasLeft) {
      dc = (SumAbove(dst, stride, 16) + SumLeft(dst, stride, 16) + 16) >> 5;
    } else if (n.hasTop) {
      dc = (SumAbove(dst, stride, 16) + 8) >> 4;
    } else if (n.hasLeft) {
      dc = (SumLeft(dst, stride, 16) + 8) >> 4;
    }
    FillFlat<16>(dst, stride, dc);
    return;
  }
  default: {
    if (!(n.hasTop && n.hasLeft && n.hasCorner)) {
      NmReference::H264PredictIntra16x16(dst, stride, mode, n);
      return;
    }
    const uint8_t* above = dst - stride;
    int h = 0, v = 0;
    for (int i = 0; i < 8; ++i) {
      h += (i + 1) * (above[8 + i] - above[6 - i]);
      v += (i + 1) * (dst[(8 + i) * stride - 1] - dst[(6 - i) * stride - 1]);
    }
    const int a = 16 * (dst[15 * stride - 1] + above[15]);
    FillPlane<16>(dst, stride, a, (5 * h + 32) >> 6, (5 * v + 32) >> 6);
    return;
  }
  }
}

void PredictIntraChroma8x8Impl(uint8_t* dst, ptrdiff_t stride, int mode,
                               const SmH264IntraNeighbours& n) {
  switch (mode) {
  case 0: {
    // A DC per 4x4 quarter: the corner quarters from both sides, the others
    // from the side they touch first.
    const int top[2] = {n.hasTop ? SumAbove(dst, stride, 4) : 0,
                        n.hasTop ? SumAbove(dst + 4, stride, 4) : 0};
    const int left[2] = {n.hasLeft ? SumLeft(dst, stride, 4) : 0,
                         n.hasLeft ? SumLeft(dst + 4 * stride, stride, 4) : 0};
    const auto one = [&](int sum) { return (sum + 2) >> 2; };
    uint8_t dc[2][8];
    for (int by = 0; by < 2; ++by) {
      for (int bx = 0; bx < 2; ++bx) {
        int value = 128;
        if ((bx == 0) == (by == 0)) {
          value = n.hasTop && n.hasLeft ? (top[bx] + left[by] + 4) >> 3
                  : n.hasLeft           ? one(left[by])
                  : n.hasTop            ? one(top[bx])
                                        : 128;
        } else if (bx > 0) {
          value = n.hasTop ? one(top[bx]) : n.hasLeft ? one(left[by]) : 128;
        } else {
          value = n.hasLeft ? one(left[by]) : n.hasTop ? one(top[bx]) : 128;
        }
        std::memset(dc[by] + 4 * bx, value, 4);
      }
    }
    const hn::FixedTag<uint8_t, 8> d8;
    for (int y = 0; y < 8; ++y) {
      hn::StoreU(hn::LoadU(d8, dc[y / 4]), d8, dst + y * stride);
    }
    return;
  }
  case 1:
    if (n.hasLeft) {
      FillHorizontal<8>(dst, stride);
    } else {
      NmReference::H264PredictIntraChroma8x8(dst, stride, mode, n);
    }
    return;
  case 2:
    if (n.hasTop) {
      FillVertical<8>(dst, stride);
    } else {
      NmReference::H264PredictIntraChroma8x8(dst, stride, mode, n);
    }
    return;
  default: {
    if (!(n.hasTop && n.hasLeft && n.hasCorner)) {
      NmReference::H264PredictIntraChroma8x8(dst, stride, mode, n);
      return;
    }
    const uint8_t* above = dst - stride;
    int h = 0, v = 0;
    for (int i = 0; i < 4; ++i) {
      h += (i + 1) * (above[4 + i] - above[2 - i]);
      v += (i + 1) * (dst[(4 + i) * stride - 1] - dst[(2 - i) * stride - 1]);
    }
    const int a = 16 * (dst[7 * stride - 1] + above[7]);
    FillPlane<8>(dst, stride, a, (34 * h + 32) >> 6, (34 * v + 32) >> 6);
    return;
  }
  }
}

#else

// One lane a vector gains nothing: the scalar target runs the plain loops.
void PredictIntra16x16Impl(uint8_t* dst, ptrdiff_t stride, int mode,
                           const SmH264IntraNeighbours& n) {
  NmReference::H264PredictIntra16x16(dst, stride, mode, n);
}

void PredictIntraChroma8x8Impl(uint8_t* dst, ptrdiff_t stride, int mode,
                               const SmH264IntraNeighbours& n) {
  NmReference::H264PredictIntraChroma8x8(dst, stride, mode, n);
}

#endif

} // namespace HWY_NAMESPACE
} // namespace NmPrimitives
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace NmPrimitives {

HWY_EXPORT(PredictIntra4x4Impl);
HWY_EXPORT(PredictIntra8x8Impl);
HWY_EXPORT(PredictIntra16x16Impl);
HWY_EXPORT(PredictIntraChroma8x8Impl);

void H264PredictIntra4x4(uint8_t* dst, ptrdiff_t stride, int mode, const SmH264IntraNeighbours& n) {
  HWY_DYNAMIC_DISPATCH(PredictIntra4x4Impl)(dst, stride, mode, n);
}

void H264PredictIntra8x8(uint8_t* dst, ptrdiff_t stride, int mode, const SmH264IntraNeighbours& n) {
  HWY_DYNAMIC_DISPATCH(PredictIntra8x8Impl)(dst, stride, mode, n);
}

void H264PredictIntra16x16(uint8_t* dst, ptrdiff_t stride, int mode,
                           const SmH264IntraNeighbours& n) {
  HWY_DYNAMIC_DISPATCH(PredictIntra16x16Impl)(dst, stride, mode, n);
}

void H264PredictIntraChroma8x8(uint8_t* dst, ptrdiff_t stride, int mode,
                               const SmH264IntraNeighbours& n) {
  HWY_DYNAMIC_DISPATCH(PredictIntraChroma8x8Impl)(dst, stride, mode, n);
}

} // namespace NmPrimitives
#endif
