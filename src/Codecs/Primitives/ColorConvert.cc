// Vector colour conversion, compiled once per Highway target. Each vector
// holds a whole number of chroma samples; the columns that do not fill a
// vector at the right edge take the plain loop.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "Codecs/Primitives/ColorConvert.cc"
#include <hwy/foreach_target.h> // IWYU pragma: keep
#include <hwy/highway.h>

#include <algorithm>
#include <utility>

#include "Codecs/Primitives/ColorConvert.h"
#include "Codecs/Primitives/ColorConvertFixedPoint.h"

HWY_BEFORE_NAMESPACE();
namespace NmPrimitives {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;
namespace F = NmColorFixedPoint;

#if HWY_TARGET != HWY_SCALAR
using D8 = hn::CappedTag<uint8_t, 32>;
using D16 = hn::Repartition<int16_t, D8>;
using DU16 = hn::Repartition<uint16_t, D8>;
using DH8 = hn::Rebind<uint8_t, D16>;
using V16 = hn::Vec<D16>;
using V8 = hn::Vec<D8>;

struct SmVectorCoefficient {
  V16 whole;
  V16 fraction;
};

HWY_INLINE SmVectorCoefficient Broadcast(F::SmCoefficient c) {
  const D16 d;
  return {hn::Set(d, c.whole), hn::Set(d, c.fraction)};
}

HWY_INLINE V16 Apply(V16 a, const SmVectorCoefficient& c) {
  return hn::Add(hn::Mul(a, c.whole), hn::MulFixedPoint15(a, c.fraction));
}

// From six fraction bits to samples; the demotion saturates, which clamps.
HWY_INLINE hn::Vec<DH8> ToSamples(V16 v) {
  const D16 d;
  return hn::DemoteTo(DH8(), hn::ShiftRight<6>(hn::SaturatedAdd(v, hn::Set(d, 32))));
}

HWY_INLINE V16 LowerWide(V8 v) {
  return hn::BitCast(D16(), hn::PromoteTo(DU16(), hn::LowerHalf(DH8(), v)));
}
HWY_INLINE V16 UpperWide(V8 v) {
  return hn::BitCast(D16(), hn::PromoteTo(DU16(), hn::UpperHalf(DH8(), v)));
}

// The vector code adds instead of multiplying where the whole part of a
// coefficient is fixed by the equations; the comparison with the plain
// version on every target would show it if that ever changed.
constexpr bool HasFixedWholeParts(SmYCbCrMatrix m) {
  const F::SmToRgbConstants to = F::GetToRgbConstants(m);
  const F::SmFromRgbConstants from = F::GetFromRgbConstants(m);
  bool forwardBelowOne = true;
  for (const auto& row : from.rgb) {
    for (const auto& c : row) {
      forwardBelowOne = forwardBelowOne && c.whole == 0;
    }
  }
  return to.luma.whole == 1 && to.crToR.whole == 1 && to.cbToG.whole == 0 && to.crToG.whole == 0 &&
         forwardBelowOne;
}
static_assert(HasFixedWholeParts(YCbCrJfif) && HasFixedWholeParts(YCbCrVideoRange) &&
              HasFixedWholeParts(YCbCrBt601Full));

struct SmToRgbVectors {
  explicit SmToRgbVectors(const F::SmToRgbConstants& k)
      : lumaOffset(hn::Set(D16(), k.lumaOffset)), chromaOffset(hn::Set(D16(), 128)),
        rounding(hn::Set(D16(), 32)), luma(hn::Set(D16(), k.luma.fraction)),
        crToR(hn::Set(D16(), k.crToR.fraction)), cbToG(hn::Set(D16(), k.cbToG.fraction)),
        crToG(hn::Set(D16(), k.crToG.fraction)), cbToB(Broadcast(k.cbToB)) {}
  V16 lumaOffset, chromaOffset, rounding;
  V16 luma, crToR, cbToG, crToG;
  SmVectorCoefficient cbToB;
};

// The colour part of each output for one half of a vector of pixels,
// rounding included; shared by the two rows that 4:2:0 chroma covers.
struct SmChromaTerms {
  V16 r, g, b;
};

HWY_INLINE SmChromaTerms GetChromaTerms(const SmToRgbVectors& k, V16 cb, V16 cr) {
  const V16 u = hn::ShiftLeft<6>(hn::Sub(cb, k.chromaOffset));
  const V16 v = hn::ShiftLeft<6>(hn::Sub(cr, k.chromaOffset));
  return {hn::Add(hn::Add(v, hn::MulFixedPoint15(v, k.crToR)), k.rounding),
          hn::Add(hn::Add(hn::MulFixedPoint15(u, k.cbToG), hn::MulFixedPoint15(v, k.crToG)),
                  k.rounding),
          hn::Add(Apply(u, k.cbToB), k.rounding)};
}

// The pixels of a vector are split into even and odd ones, each in 16-bit
// lanes in order: the chroma sample of 4:2:2 and 4:2:0 is then one and the
// same lane for both, its colour terms are computed once, and the results
// join into bytes by shifts instead of demotions across blocks.
using VU16 = hn::Vec<DU16>;

HWY_INLINE V16 EvenBytes(V8 v) {
  return hn::BitCast(D16(), hn::And(hn::BitCast(DU16(), v), hn::Set(DU16(), 0xFF)));
}
HWY_INLINE V16 OddBytes(V8 v) {
  return hn::BitCast(D16(), hn::ShiftRight<8>(hn::BitCast(DU16(), v)));
}

// One channel as samples 0..255 in 16-bit lanes, from the luma and colour
// terms with six fraction bits. Only blue of video range can pass the 16-bit
// range, and then only where the result clamps to 255 anyway, so the
// saturating sum changes nothing.
HWY_INLINE VU16 Channel(V16 luma, V16 term) {
  const D16 d;
  const V16 v = hn::ShiftRight<6>(hn::SaturatedAdd(luma, term));
  return hn::BitCast(DU16(), hn::Min(hn::Max(v, hn::Zero(d)), hn::Set(d, 255)));
}

// The first two and the last two bytes of each pixel, as 16-bit lanes.
struct SmPixelHalves {
  VU16 low, high;
};

template <size_t PixelBytes, bool BlueFirst>
HWY_INLINE SmPixelHalves ToPixels(const SmToRgbVectors& k, V16 y, const SmChromaTerms& c) {
  const V16 a = hn::ShiftLeft<6>(hn::Sub(y, k.lumaOffset));
  const V16 luma = hn::Add(a, hn::MulFixedPoint15(a, k.luma));
  const VU16 r = Channel(luma, c.r);
  const VU16 g = Channel(luma, c.g);
  const VU16 b = Channel(luma, c.b);
  const VU16 first = BlueFirst ? b : r;
  const VU16 third = BlueFirst ? r : b;
  const VU16 fourth = hn::Set(DU16(), PixelBytes == 4 ? 0xFF00 : 0);
  return {hn::Or(first, hn::ShiftLeft<8>(g)), hn::Or(third, fourth)};
}

// Each 128-bit block of a result holds four whole pixels; the shuffle drops
// the fourth byte of each for three-byte pixels.
template <size_t PixelBytes>
HWY_ATTR HWY_INLINE void StoreBlock(hn::Vec<hn::Full128<uint8_t>> block, uint8_t* out, bool last) {
  const hn::Full128<uint8_t> d;
  if constexpr (PixelBytes == 4) {
    hn::StoreU(block, d, out);
  } else {
    alignas(16) static constexpr uint8_t Packed[16] = {0,  1,  2,  4,  5,    6,    8,    9,
                                                       10, 12, 13, 14, 0x80, 0x80, 0x80, 0x80};
    const auto bytes = hn::TableLookupBytesOr0(block, hn::Load(d, Packed));
    if (!last) {
      // The four spare bytes land where the next block's pixels go.
      hn::StoreU(bytes, d, out);
    } else {
      alignas(16) uint8_t buffer[16];
      hn::Store(bytes, d, buffer);
      std::copy(buffer, buffer + 12, out);
    }
  }
}

// Block 0 or 1 of a vector of one or two 128-bit blocks.
template <class D>
HWY_INLINE hn::Vec<hn::Full128<uint8_t>> GetBlock(D, hn::Vec<D> v, size_t block) {
  if constexpr (hn::MaxLanes(D()) == 16) {
    return v;
  } else {
    const hn::Full128<uint8_t> d128;
    return block == 0 ? hn::LowerHalf(d128, v) : hn::UpperHalf(d128, v);
  }
}

template <size_t PixelBytes, bool BlueFirst>
HWY_INLINE void StorePixels(const SmToRgbVectors& k, const SmChromaTerms& even,
                            const SmChromaTerms& odd, const uint8_t* luma, uint8_t* out,
                            bool lastInRow) {
  const D8 d;
  const hn::RepartitionToWide<DU16> d32;
  const V8 yv = hn::LoadU(d, luma);
  const SmPixelHalves e = ToPixels<PixelBytes, BlueFirst>(k, EvenBytes(yv), even);
  const SmPixelHalves o = ToPixels<PixelBytes, BlueFirst>(k, OddBytes(yv), odd);
  // Per block: even pixels 0, 2, 4, 6 and 8, 10, 12, 14, the odd ones
  // between, then pixels 0..3, 4..7, 8..11, 12..15 of the block.
  const auto evenLow = hn::BitCast(d32, hn::InterleaveLower(DU16(), e.low, e.high));
  const auto evenHigh = hn::BitCast(d32, hn::InterleaveUpper(DU16(), e.low, e.high));
  const auto oddLow = hn::BitCast(d32, hn::InterleaveLower(DU16(), o.low, o.high));
  const auto oddHigh = hn::BitCast(d32, hn::InterleaveUpper(DU16(), o.low, o.high));
  const V8 q0 = hn::BitCast(d, hn::InterleaveLower(d32, evenLow, oddLow));
  const V8 q1 = hn::BitCast(d, hn::InterleaveUpper(d32, evenLow, oddLow));
  const V8 q2 = hn::BitCast(d, hn::InterleaveLower(d32, evenHigh, oddHigh));
  const V8 q3 = hn::BitCast(d, hn::InterleaveUpper(d32, evenHigh, oddHigh));
  constexpr size_t Blocks = hn::MaxLanes(D8()) / 16;
  if constexpr (PixelBytes == 4 && Blocks == 2) {
    // Whole vectors of eight pixels: one block swap each instead of
    // extracting the upper blocks one by one.
    hn::StoreU(hn::ConcatLowerLower(d, q1, q0), d, out);
    hn::StoreU(hn::ConcatLowerLower(d, q3, q2), d, out + 32);
    hn::StoreU(hn::ConcatUpperUpper(d, q1, q0), d, out + 64);
    hn::StoreU(hn::ConcatUpperUpper(d, q3, q2), d, out + 96);
    return;
  }
  for (size_t block = 0; block < Blocks; ++block) {
    uint8_t* at = out + PixelBytes * 16 * block;
    StoreBlock<PixelBytes>(GetBlock(d, q0, block), at, false);
    StoreBlock<PixelBytes>(GetBlock(d, q1, block), at + PixelBytes * 4, false);
    StoreBlock<PixelBytes>(GetBlock(d, q2, block), at + PixelBytes * 8, false);
    StoreBlock<PixelBytes>(GetBlock(d, q3, block), at + PixelBytes * 12,
                           lastInRow && block + 1 == Blocks);
  }
}

template <size_t PixelBytes, bool BlueFirst>
void YCbCrToRgbRows(const SmYCbCrSource& s, SmChromaLayout chroma, uint8_t* dst, size_t dstStride,
                    size_t width, size_t height, const SmToRgbVectors& k) {
  const D8 d;
  const size_t n = hn::Lanes(d);
  // 4:2:0 takes two rows per chroma row, so the colour terms are computed once for both.
  const size_t rowsPerChromaRow = chroma == Chroma420 ? 2 : 1;
  for (size_t y = 0; y < height; y += rowsPerChromaRow) {
    const size_t rows = std::min(rowsPerChromaRow, height - y);
    const size_t cy = y / rowsPerChromaRow;
    const uint8_t* cbRow = s.cb + cy * s.cbStride;
    const uint8_t* crRow = s.cr + cy * s.crStride;
    for (size_t x = 0; x + n <= width; x += n) {
      SmChromaTerms even, odd;
      if (chroma == Chroma444) {
        const V8 cbv = hn::LoadU(d, cbRow + x);
        const V8 crv = hn::LoadU(d, crRow + x);
        even = GetChromaTerms(k, EvenBytes(cbv), EvenBytes(crv));
        odd = GetChromaTerms(k, OddBytes(cbv), OddBytes(crv));
      } else {
        even = GetChromaTerms(
            k, hn::BitCast(D16(), hn::PromoteTo(DU16(), hn::LoadU(DH8(), cbRow + x / 2))),
            hn::BitCast(D16(), hn::PromoteTo(DU16(), hn::LoadU(DH8(), crRow + x / 2))));
        odd = even;
      }
      for (size_t r = 0; r < rows; ++r) {
        StorePixels<PixelBytes, BlueFirst>(k, even, odd, s.y + (y + r) * s.yStride + x,
                                           dst + (y + r) * dstStride + PixelBytes * x,
                                           x + n > width - n);
      }
    }
  }
}

struct SmFromRgbVectors {
  explicit SmFromRgbVectors(const F::SmFromRgbConstants& c) {
    for (int i = 0; i < 3; ++i) {
      offset[i] = hn::Set(D16(), static_cast<int16_t>(c.offset[i] * 64));
      for (int j = 0; j < 3; ++j) {
        k[i][j] = Broadcast(c.rgb[i][j]);
      }
    }
  }
  V16 offset[3];
  SmVectorCoefficient k[3][3];
};

HWY_INLINE hn::Vec<DH8> FromRgbHalf(const SmFromRgbVectors& k, int c, V16 r, V16 g, V16 b) {
  return ToSamples(hn::Add(hn::Add(hn::MulFixedPoint15(r, k.k[c][0].fraction),
                                   hn::MulFixedPoint15(g, k.k[c][1].fraction)),
                           hn::Add(hn::MulFixedPoint15(b, k.k[c][2].fraction), k.offset[c])));
}

HWY_INLINE void LoadRgb(const uint8_t* p, size_t pixelBytes, bool blueFirst, V8& r, V8& g, V8& b) {
  const D8 d;
  if (pixelBytes == 3) {
    hn::LoadInterleaved3(d, p, r, g, b);
  } else {
    V8 fourth;
    hn::LoadInterleaved4(d, p, r, g, b, fourth);
  }
  if (blueFirst) {
    std::swap(r, b);
  }
}

HWY_INLINE void StoreLuma(const SmFromRgbVectors& k, V8 r, V8 g, V8 b, uint8_t* out) {
  const D8 d;
  const auto lower = FromRgbHalf(k, 0, hn::ShiftLeft<6>(LowerWide(r)),
                                 hn::ShiftLeft<6>(LowerWide(g)), hn::ShiftLeft<6>(LowerWide(b)));
  const auto upper = FromRgbHalf(k, 0, hn::ShiftLeft<6>(UpperWide(r)),
                                 hn::ShiftLeft<6>(UpperWide(g)), hn::ShiftLeft<6>(UpperWide(b)));
  hn::StoreU(hn::Combine(d, upper, lower), d, out);
}

// Sums of neighbouring samples: lane i holds v[2i] + v[2i + 1].
HWY_INLINE V16 PairSums(V8 v) {
  const DU16 du;
  const auto w = hn::BitCast(du, v);
  return hn::BitCast(D16(), hn::Add(hn::And(w, hn::Set(du, 0xFF)), hn::ShiftRight<8>(w)));
}

void RgbToYCbCrColumns(const uint8_t* src, size_t srcStride, SmPackedLayout layout,
                       const SmYCbCrDestination& t, SmChromaLayout chroma, size_t width,
                       size_t height, const SmFromRgbVectors& k) {
  const D8 d;
  const size_t n = hn::Lanes(d);
  const size_t rowsPerChromaRow = chroma == Chroma420 ? 2 : 1;
  for (size_t y = 0; y < height; y += rowsPerChromaRow) {
    const uint8_t* row0 = src + y * srcStride;
    // An odd last row of 4:2:0 is its own partner: twice its sum over four.
    const bool pair = rowsPerChromaRow == 2 && y + 1 < height;
    const uint8_t* row1 = pair ? row0 + srcStride : row0;
    const size_t cy = y / rowsPerChromaRow;
    for (size_t x = 0; x + n <= width; x += n) {
      V8 r0, g0, b0;
      LoadRgb(row0 + x * layout.pixelBytes, layout.pixelBytes, layout.blueFirst, r0, g0, b0);
      StoreLuma(k, r0, g0, b0, t.y + y * t.yStride + x);
      V8 r1 = r0, g1 = g0, b1 = b0;
      if (pair) {
        LoadRgb(row1 + x * layout.pixelBytes, layout.pixelBytes, layout.blueFirst, r1, g1, b1);
        StoreLuma(k, r1, g1, b1, t.y + (y + 1) * t.yStride + x);
      }
      if (t.cb == nullptr) {
        continue;
      }
      uint8_t* cbOut = t.cb + cy * t.cbStride;
      uint8_t* crOut = t.cr + cy * t.crStride;
      if (chroma == Chroma444) {
        const V16 rl = hn::ShiftLeft<6>(LowerWide(r0)), ru = hn::ShiftLeft<6>(UpperWide(r0));
        const V16 gl = hn::ShiftLeft<6>(LowerWide(g0)), gu = hn::ShiftLeft<6>(UpperWide(g0));
        const V16 bl = hn::ShiftLeft<6>(LowerWide(b0)), bu = hn::ShiftLeft<6>(UpperWide(b0));
        hn::StoreU(hn::Combine(d, FromRgbHalf(k, 1, ru, gu, bu), FromRgbHalf(k, 1, rl, gl, bl)), d,
                   cbOut + x);
        hn::StoreU(hn::Combine(d, FromRgbHalf(k, 2, ru, gu, bu), FromRgbHalf(k, 2, rl, gl, bl)), d,
                   crOut + x);
        continue;
      }
      V16 r, g, b;
      if (chroma == Chroma422) {
        r = hn::ShiftLeft<5>(PairSums(r0));
        g = hn::ShiftLeft<5>(PairSums(g0));
        b = hn::ShiftLeft<5>(PairSums(b0));
      } else {
        r = hn::ShiftLeft<4>(hn::Add(PairSums(r0), PairSums(r1)));
        g = hn::ShiftLeft<4>(hn::Add(PairSums(g0), PairSums(g1)));
        b = hn::ShiftLeft<4>(hn::Add(PairSums(b0), PairSums(b1)));
      }
      hn::StoreU(FromRgbHalf(k, 1, r, g, b), DH8(), cbOut + x / 2);
      hn::StoreU(FromRgbHalf(k, 2, r, g, b), DH8(), crOut + x / 2);
    }
  }
}
#endif

void YCbCrToRgbImpl(const SmYCbCrSource& source, SmChromaLayout chroma, uint8_t* dst,
                    size_t dstStride, SmPackedLayout layout, size_t width, size_t height,
                    SmYCbCrMatrix matrix) {
  size_t done = 0;
#if HWY_TARGET != HWY_SCALAR
  const size_t n = hn::Lanes(D8());
  done = width - width % n;
  const SmToRgbVectors k(F::GetToRgbConstants(matrix));
  using Rows = void (*)(const SmYCbCrSource&, SmChromaLayout, uint8_t*, size_t, size_t, size_t,
                        const SmToRgbVectors&);
  const Rows rows = layout.pixelBytes == 3
                        ? (layout.blueFirst ? &YCbCrToRgbRows<3, true> : &YCbCrToRgbRows<3, false>)
                        : (layout.blueFirst ? &YCbCrToRgbRows<4, true> : &YCbCrToRgbRows<4, false>);
  rows(source, chroma, dst, dstStride, done, height, k);
#endif
  if (done < width) {
    const size_t chromaDone = chroma == Chroma444 ? done : done / 2;
    const SmYCbCrSource rest{source.y + done, source.yStride,         source.cb + chromaDone,
                             source.cbStride, source.cr + chromaDone, source.crStride};
    NmReference::YCbCrToRgb(rest, chroma, dst + done * layout.pixelBytes, dstStride, layout,
                            width - done, height, matrix);
  }
}

void RgbToYCbCrImpl(const uint8_t* src, size_t srcStride, SmPackedLayout layout,
                    const SmYCbCrDestination& destination, SmChromaLayout chroma, size_t width,
                    size_t height, SmYCbCrMatrix matrix) {
  size_t done = 0;
#if HWY_TARGET != HWY_SCALAR
  const size_t n = hn::Lanes(D8());
  done = width - width % n;
  const SmFromRgbVectors k(F::GetFromRgbConstants(matrix));
  RgbToYCbCrColumns(src, srcStride, layout, destination, chroma, done, height, k);
#endif
  if (done < width) {
    const size_t chromaDone = chroma == Chroma444 ? done : done / 2;
    SmYCbCrDestination rest = destination;
    rest.y += done;
    if (rest.cb != nullptr) {
      rest.cb += chromaDone;
      rest.cr += chromaDone;
    }
    NmReference::RgbToYCbCr(src + done * layout.pixelBytes, srcStride, layout, rest, chroma,
                            width - done, height, matrix);
  }
}

} // namespace HWY_NAMESPACE
} // namespace NmPrimitives
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace NmPrimitives {

HWY_EXPORT(YCbCrToRgbImpl);
HWY_EXPORT(RgbToYCbCrImpl);

void YCbCrToRgb(const SmYCbCrSource& source, SmChromaLayout chroma, uint8_t* dst, size_t dstStride,
                SmPackedLayout layout, size_t width, size_t height, SmYCbCrMatrix matrix) {
  HWY_DYNAMIC_DISPATCH(YCbCrToRgbImpl)
  (source, chroma, dst, dstStride, layout, width, height, matrix);
}

void RgbToYCbCr(const uint8_t* src, size_t srcStride, SmPackedLayout layout,
                const SmYCbCrDestination& destination, SmChromaLayout chroma, size_t width,
                size_t height, SmYCbCrMatrix matrix) {
  HWY_DYNAMIC_DISPATCH(RgbToYCbCrImpl)
  (src, srcStride, layout, destination, chroma, width, height, matrix);
}

} // namespace NmPrimitives
#endif
