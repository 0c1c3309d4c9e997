// Vector resizing, compiled once per Highway target: the vertical pass runs
// along the source row in vector lanes, the horizontal pass then combines the
// taps of each output from that row.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "Codecs/Primitives/Resize.cc"
#include <hwy/foreach_target.h> // IWYU pragma: keep
#include <hwy/highway.h>

#include <algorithm>

#include "Codecs/Primitives/Resize.h"

HWY_BEFORE_NAMESPACE();
namespace NmPrimitives {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;
namespace T = NmResizeTables;

constexpr int32_t MiddleShift = T::WeightBits - 6;
constexpr int32_t FinalShift = T::WeightBits + 6;

void VerticalPass(const uint8_t* top, size_t srcStride, const int32_t* weights, size_t taps,
                  int32_t* row, size_t rowBytes) {
  const hn::ScalableTag<int32_t> d;
  const hn::Rebind<uint8_t, decltype(d)> d8;
  const size_t n = hn::Lanes(d);
  size_t b = 0;
  if (taps == 1) {
    // One tap of full weight: the sample with six fraction bits.
    for (; b + n <= rowBytes; b += n) {
      hn::StoreU(hn::ShiftLeft<6>(hn::PromoteTo(d, hn::LoadU(d8, top + b))), d, row + b);
    }
#if HWY_TARGET != HWY_SCALAR
  } else if (taps == 2) {
    // With w0 = 2^14 - w1 the sum is 64 * s0 + round(w1 * (s1 - s0) / 256),
    // and that rounding is exactly what a 15-bit fixed-point multiply of
    // (s1 - s0) * 128 by w1 does: the same result in lanes half as wide.
    const hn::ScalableTag<int16_t> d16;
    const hn::Rebind<uint8_t, decltype(d16)> d8h;
    const hn::Half<decltype(d16)> half;
    const hn::Repartition<int32_t, decltype(d16)> d32;
    const size_t n16 = hn::Lanes(d16);
    const auto w1 = hn::Set(d16, static_cast<int16_t>(weights[1]));
    for (; b + n16 <= rowBytes; b += n16) {
      const auto s0 = hn::BitCast(d16, hn::PromoteTo(hn::RebindToUnsigned<decltype(d16)>(),
                                                       hn::LoadU(d8h, top + b)));
      const auto s1 = hn::BitCast(d16, hn::PromoteTo(hn::RebindToUnsigned<decltype(d16)>(),
                                                       hn::LoadU(d8h, top + srcStride + b)));
      const auto sum = hn::Add(hn::ShiftLeft<6>(s0),
                               hn::MulFixedPoint15(hn::ShiftLeft<7>(hn::Sub(s1, s0)), w1));
      hn::StoreU(hn::PromoteTo(d32, hn::LowerHalf(half, sum)), d32, row + b);
      hn::StoreU(hn::PromoteTo(d32, hn::UpperHalf(half, sum)), d32, row + b + n16 / 2);
    }
#endif
  } else {
    const auto rounding = hn::Set(d, 1 << (MiddleShift - 1));
    for (; b + n <= rowBytes; b += n) {
      auto sum = rounding;
      for (size_t k = 0; k < taps; ++k) {
        if (weights[k] != 0) {
          const auto sample = hn::PromoteTo(d, hn::LoadU(d8, top + k * srcStride + b));
          sum = hn::Add(sum, hn::Mul(sample, hn::Set(d, weights[k])));
        }
      }
      hn::StoreU(hn::ShiftRight<MiddleShift>(sum), d, row + b);
    }
  }
  for (; b < rowBytes; ++b) {
    int32_t sum = 0;
    for (size_t k = 0; k < taps; ++k) {
      sum += weights[k] * top[k * srcStride + b];
    }
    row[b] = (sum + (1 << (MiddleShift - 1))) >> MiddleShift;
  }
}

// Each output's taps are read one by one. Vector gathers would do the same
// work, but on the processors measured (AMD EPYC) a gather of eight lanes
// costs more than eight plain loads: the plain loop is four times faster for
// two taps and twice for Lanczos.
void HorizontalPass(const int32_t* HWY_RESTRICT row, const T::SmAxis& axis, size_t pixelBytes,
                    uint8_t* HWY_RESTRICT out, size_t outputBytes) {
  const int32_t rounding = 1 << (FinalShift - 1);
  const int32_t* HWY_RESTRICT first = axis.first;
  if (axis.taps == 2) {
    const int32_t* HWY_RESTRICT w0 = axis.weights;
    const int32_t* HWY_RESTRICT w1 = axis.weights + outputBytes;
    for (size_t o = 0; o < outputBytes; ++o) {
      const int32_t* at = row + first[o];
      const int32_t sum = w0[o] * at[0] + w1[o] * at[pixelBytes] + rounding;
      out[o] = static_cast<uint8_t>(std::clamp(sum >> FinalShift, 0, 255));
    }
    return;
  }
  const int32_t* HWY_RESTRICT weights = axis.weights;
  for (size_t o = 0; o < outputBytes; ++o) {
    const int32_t* at = row + first[o];
    int32_t sum = rounding;
    for (size_t k = 0; k < axis.taps; ++k) {
      sum += weights[k * outputBytes + o] * at[k * pixelBytes];
    }
    out[o] = static_cast<uint8_t>(std::clamp(sum >> FinalShift, 0, 255));
  }
}

// Whether every output of an axis takes one tap of full weight; if so and
// index is given, the source index of each output goes there.
bool FindCopyIndex(const T::SmAxis& axis, size_t outputs, int32_t* index, size_t step = 1) {
  for (size_t o = 0; o < outputs; ++o) {
    size_t full = axis.taps;
    for (size_t k = 0; k < axis.taps; ++k) {
      // Tap-major for the horizontal axis (step = bytes a pixel), row-major
      // for the vertical one.
      const int32_t w = index ? axis.weights[k * outputs + o] : axis.weights[o * axis.taps + k];
      if (w == (1 << T::WeightBits)) {
        full = k;
      } else if (w != 0) {
        return false;
      }
    }
    if (full == axis.taps) {
      return false;
    }
    if (index != nullptr) {
      index[o] = axis.first[o] + static_cast<int32_t>(full * step);
    }
  }
  return true;
}

// The source row of output row y of a copying filter.
size_t CopyRow(const T::SmAxis& vertical, size_t y) {
  size_t k = 0;
  while (k + 1 < vertical.taps && vertical.weights[y * vertical.taps + k] == 0) {
    ++k;
  }
  return static_cast<size_t>(vertical.first[y]) + k;
}

#if HWY_TARGET != HWY_SCALAR
// Two taps each way, as linear interpolation has: the four source bytes of
// every output are gathered first by plain loads, then both passes run in
// vector lanes over the outputs alone. The integers are those of the two
// passes above, only computed in another order.
void TwoByTwoRow(const uint8_t* top, const uint8_t* bottom, int32_t lowerWeight,
                 const T::SmAxis& axis, size_t pixelBytes, uint8_t* gathered, uint8_t* out,
                 size_t outputBytes) {
  uint8_t* HWY_RESTRICT a0 = gathered;
  uint8_t* HWY_RESTRICT b0 = a0 + outputBytes;
  uint8_t* HWY_RESTRICT a1 = b0 + outputBytes;
  uint8_t* HWY_RESTRICT b1 = a1 + outputBytes;
  const int32_t* HWY_RESTRICT first = axis.first;
  for (size_t o = 0; o < outputBytes; ++o) {
    const size_t f = static_cast<size_t>(first[o]);
    a0[o] = top[f];
    b0[o] = top[f + pixelBytes];
    a1[o] = bottom[f];
    b1[o] = bottom[f + pixelBytes];
  }
  const int32_t* HWY_RESTRICT w0 = axis.weights;
  const int32_t* HWY_RESTRICT w1 = axis.weights + outputBytes;
  const hn::ScalableTag<int16_t> d16;
  const hn::RebindToUnsigned<decltype(d16)> du16;
  const hn::Rebind<uint8_t, decltype(d16)> d8;
  const hn::Half<decltype(d16)> half;
  const hn::Repartition<int32_t, decltype(d16)> d32;
  const hn::Rebind<uint8_t, decltype(d32)> d8q;
  const size_t n = hn::Lanes(d16);
  const size_t m = hn::Lanes(d32);
  const auto lower = hn::Set(d16, static_cast<int16_t>(lowerWeight));
  const auto rounding = hn::Set(d32, 1 << (FinalShift - 1));
  const auto vertical = [&](const uint8_t* upper, const uint8_t* under) {
    const auto s0 = hn::BitCast(d16, hn::PromoteTo(du16, hn::LoadU(d8, upper)));
    const auto s1 = hn::BitCast(d16, hn::PromoteTo(du16, hn::LoadU(d8, under)));
    return hn::Add(hn::ShiftLeft<6>(s0), hn::MulFixedPoint15(hn::ShiftLeft<7>(hn::Sub(s1, s0)), lower));
  };
  size_t o = 0;
  for (; o + n <= outputBytes; o += n) {
    const auto left = vertical(a0 + o, a1 + o);
    const auto right = vertical(b0 + o, b1 + o);
    const auto combine = [&](auto l, auto r, size_t at) {
      const auto sum = hn::Add(hn::Add(hn::Mul(hn::PromoteTo(d32, l), hn::LoadU(d32, w0 + at)),
                                       hn::Mul(hn::PromoteTo(d32, r), hn::LoadU(d32, w1 + at))),
                               rounding);
      hn::StoreU(hn::DemoteTo(d8q, hn::ShiftRight<FinalShift>(sum)), d8q, out + at);
    };
    combine(hn::LowerHalf(half, left), hn::LowerHalf(half, right), o);
    combine(hn::UpperHalf(half, left), hn::UpperHalf(half, right), o + m);
  }
  const int32_t upperWeight = (1 << T::WeightBits) - lowerWeight;
  for (; o < outputBytes; ++o) {
    const int32_t left = (upperWeight * a0[o] + lowerWeight * a1[o] + (1 << (MiddleShift - 1))) >>
                         MiddleShift;
    const int32_t right = (upperWeight * b0[o] + lowerWeight * b1[o] + (1 << (MiddleShift - 1))) >>
                          MiddleShift;
    const int32_t sum = w0[o] * left + w1[o] * right + (1 << (FinalShift - 1));
    out[o] = static_cast<uint8_t>(std::clamp(sum >> FinalShift, 0, 255));
  }
}
#endif

int32_t ResizePlaneImpl(const uint8_t* src, size_t srcStride, size_t srcWidth, size_t srcHeight,
                        uint8_t* dst, size_t dstStride, size_t dstWidth, size_t dstHeight,
                        size_t pixelBytes, SmResizeMode mode, uint8_t* scratch,
                        size_t scratchSize, size_t firstRow, size_t endRow) {
  const int32_t status = T::Check(src, srcWidth, srcHeight, dst, dstWidth, dstHeight, pixelBytes,
                                  mode, scratch, firstRow, endRow);
  if (status != ResizeOk) {
    return status;
  }
  T::SmLayout layout;
  if (!T::Build(srcWidth, srcHeight, dstWidth, dstHeight, pixelBytes, mode, scratch, scratchSize,
                layout)) {
    return ResizeScratchTooSmall;
  }
  const size_t rowBytes = srcWidth * pixelBytes;
  const size_t outputBytes = dstWidth * pixelBytes;
  // One tap of full weight each way reproduces the source sample exactly, so
  // such a filter is a copy by index: nearest neighbour always, and linear
  // interpolation by an odd whole factor, whose output centres fall on source
  // centres. The vector units have no byte gather that would do it faster.
  int32_t* copyIndex = nullptr;
  if (mode == ResizeNearest) {
    copyIndex = layout.horizontal.first;
  } else if (outputBytes <= rowBytes + 64 &&
             FindCopyIndex(layout.vertical, dstHeight, nullptr) &&
             FindCopyIndex(layout.horizontal, outputBytes, layout.row, pixelBytes)) {
    copyIndex = layout.row;
  }
  if (copyIndex != nullptr) {
    const int32_t* HWY_RESTRICT first = copyIndex;
    for (size_t y = firstRow; y < endRow; ++y) {
      const uint8_t* HWY_RESTRICT row = src + CopyRow(layout.vertical, y) * srcStride;
      uint8_t* HWY_RESTRICT out = dst + (y - firstRow) * dstStride;
      for (size_t o = 0; o < outputBytes; ++o) {
        out[o] = row[first[o]];
      }
    }
    return ResizeOk;
  }
#if HWY_TARGET != HWY_SCALAR
  // The gathered bytes take four per output in the row buffer's space.
  if (layout.horizontal.taps == 2 && layout.vertical.taps <= 2 &&
      4 * outputBytes <= (rowBytes + 64) * sizeof(int32_t)) {
    for (size_t y = firstRow; y < endRow; ++y) {
      const uint8_t* top = src + static_cast<size_t>(layout.vertical.first[y]) * srcStride;
      const bool two = layout.vertical.taps == 2;
      TwoByTwoRow(top, two ? top + srcStride : top, two ? layout.vertical.weights[2 * y + 1] : 0,
                  layout.horizontal, pixelBytes, reinterpret_cast<uint8_t*>(layout.row),
                  dst + (y - firstRow) * dstStride, outputBytes);
    }
    return ResizeOk;
  }
#endif
  for (size_t y = firstRow; y < endRow; ++y) {
    const uint8_t* top = src + static_cast<size_t>(layout.vertical.first[y]) * srcStride;
    VerticalPass(top, srcStride, layout.vertical.weights + y * layout.vertical.taps,
                 layout.vertical.taps, layout.row, rowBytes);
    HorizontalPass(layout.row, layout.horizontal, pixelBytes, dst + (y - firstRow) * dstStride,
                   outputBytes);
  }
  return ResizeOk;
}

} // namespace HWY_NAMESPACE
} // namespace NmPrimitives
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace NmPrimitives {

HWY_EXPORT(ResizePlaneImpl);

size_t GetResizeScratchSize(size_t srcWidth, size_t srcHeight, size_t dstWidth, size_t dstHeight,
                            size_t pixelBytes, SmResizeMode mode) {
  if (mode != ResizeNearest && mode != ResizeLinear && mode != ResizeSuperSample &&
      mode != ResizeLanczos) {
    return 0;
  }
  if (srcWidth == 0 || srcHeight == 0 || dstWidth == 0 || dstHeight == 0) {
    return 0;
  }
  return NmResizeTables::GetScratchSize(srcWidth, srcHeight, dstWidth, dstHeight, pixelBytes,
                                        mode);
}

int32_t ResizePlane(const uint8_t* src, size_t srcStride, size_t srcWidth, size_t srcHeight,
                    uint8_t* dst, size_t dstStride, size_t dstWidth, size_t dstHeight,
                    size_t pixelBytes, SmResizeMode mode, uint8_t* scratch, size_t scratchSize,
                    size_t firstRow, size_t endRow) {
  return HWY_DYNAMIC_DISPATCH(ResizePlaneImpl)(src, srcStride, srcWidth, srcHeight, dst,
                                               dstStride, dstWidth, dstHeight, pixelBytes, mode,
                                               scratch, scratchSize, firstRow, endRow);
}

} // namespace NmPrimitives
#endif
