// Vector resizing, compiled once per Highway target: the vertical pass runs
// along the source row in 32-bit lanes, the horizontal pass gathers each
// output's taps from that row.
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

void HorizontalPass(const int32_t* row, const T::SmAxis& axis, size_t pixelBytes, uint8_t* out,
                    size_t outputBytes) {
  const hn::ScalableTag<int32_t> d;
  const hn::Rebind<uint8_t, decltype(d)> d8;
  const size_t n = hn::Lanes(d);
  const auto rounding = hn::Set(d, 1 << (FinalShift - 1));
  size_t o = 0;
  for (; o + n <= outputBytes; o += n) {
    const auto first = hn::LoadU(d, axis.first + o);
    auto sum = rounding;
    for (size_t k = 0; k < axis.taps; ++k) {
      const auto index = hn::Add(first, hn::Set(d, static_cast<int32_t>(k * pixelBytes)));
      const auto weight = hn::LoadU(d, axis.weights + k * outputBytes + o);
      sum = hn::Add(sum, hn::Mul(hn::GatherIndex(d, row, index), weight));
    }
    // Demotion saturates, which is the clamp to 0..255.
    hn::StoreU(hn::DemoteTo(d8, hn::ShiftRight<FinalShift>(sum)), d8, out + o);
  }
  for (; o < outputBytes; ++o) {
    int32_t sum = 0;
    for (size_t k = 0; k < axis.taps; ++k) {
      sum += axis.weights[k * outputBytes + o] * row[axis.first[o] + k * pixelBytes];
    }
    out[o] = static_cast<uint8_t>(std::clamp((sum + (1 << (FinalShift - 1))) >> FinalShift, 0, 255));
  }
}

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
