// Vector colour conversion, compiled once per Highway target. Each vector
// holds a whole number of chroma samples; a row's last columns take one more
// vector that overlaps the one before, and rows narrower than a vector take
// the plain loop.
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
// Vectors as wide as the target has them: the work per pixel is all
// arithmetic and shuffles within 128-bit blocks.
using D8 = hn::CappedTag<uint8_t, 64>;
using D16 = hn::Repartition<int16_t, D8>;
using DU16 = hn::Repartition<uint16_t, D8>;
using DH8 = hn::Rebind<uint8_t, D16>;
using V16 = hn::Vec<D16>;
using V8 = hn::Vec<D8>;
using D32 = hn::Repartition<int32_t, D8>;
using V32 = hn::Vec<D32>;
using D128 = hn::Full128<uint8_t>;
constexpr size_t BlocksPerVector = hn::MaxLanes(D8()) / 16;

// Signed 16-bit lanes to bytes, clamped to 0..255, the first argument's
// lanes before the second's within each 128-bit block.
template <class D8>
HWY_INLINE hn::Vec<D8> PackWithinBlocks(D8 d, hn::Vec<hn::Repartition<int16_t, D8>> first,
                                        hn::Vec<hn::Repartition<int16_t, D8>> second) {
#if HWY_ARCH_X86 && HWY_TARGET <= HWY_SSSE3
  if constexpr (hn::MaxLanes(d) == 64) {
#if HWY_TARGET <= HWY_AVX3
    return hn::Vec<D8>{_mm512_packus_epi16(first.raw, second.raw)};
#endif
  } else if constexpr (hn::MaxLanes(d) == 32) {
#if HWY_TARGET <= HWY_AVX2
    return hn::Vec<D8>{_mm256_packus_epi16(first.raw, second.raw)};
#endif
  } else {
    return hn::Vec<D8>{_mm_packus_epi16(first.raw, second.raw)};
  }
#else
  static_assert(hn::MaxLanes(d) <= 16, "the generic form packs a single block only");
  const hn::Repartition<int16_t, D8> d16;
  const auto clamp = [&](hn::Vec<decltype(d16)> v) {
    return hn::BitCast(d, hn::Min(hn::Max(v, hn::Zero(d16)), hn::Set(d16, 255)));
  };
  return hn::ConcatEven(d, clamp(second), clamp(first));
#endif
}

// Where the vectors of a row of `width` (at least a vector) start: 0, n,
// 2n, ... and, for the columns that do not fill a vector, one more that
// overlaps the one before and computes the same pixels again. That one
// starts on a chroma sample; with chroma of two columns an odd column can be
// left over.
struct SmVectorStarts {
  SmVectorStarts(size_t width, SmChromaLayout chroma) {
    const size_t step = chroma == Chroma444 ? 1 : 2;
    last = (width - n) / step * step;
    count = (last + n - 1) / n + 1;
  }
  size_t operator[](size_t i) const { return std::min(i * n, last); }
  size_t n = hn::Lanes(D8());
  size_t last = 0;
  size_t count = 0;
};

// The columns of a row that the vector code does, 0 for a row narrower than
// a vector; the plain loop does the rest.
HWY_INLINE size_t VectorColumns(size_t width, SmChromaLayout chroma) {
  const size_t n = hn::Lanes(D8());
  return width < n ? 0 : SmVectorStarts(width, chroma).last + n;
}

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

// The vector code adds instead of multiplying where the whole part of a
// coefficient is fixed by the equations; the comparison with the plain
// version on every target would show it if that ever changed.
constexpr bool HasFixedWholeParts(SmYCbCrMatrix m) {
  const F::SmToRgbConstants to = F::GetToRgbConstants(m);
  return to.luma.whole == 1 && to.crToR.whole == 1 && to.cbToG.whole == 0 && to.crToG.whole == 0;
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

HWY_INLINE V16 EvenBytes(V8 v) {
  return hn::BitCast(D16(), hn::And(hn::BitCast(DU16(), v), hn::Set(DU16(), 0xFF)));
}
HWY_INLINE V16 OddBytes(V8 v) {
  return hn::BitCast(D16(), hn::ShiftRight<8>(hn::BitCast(DU16(), v)));
}

// One channel in 16-bit lanes, from the luma and colour terms with six
// fraction bits; the byte packing clamps it to 0..255. Only blue of video
// range can pass the 16-bit range, and then only where the result clamps to
// 255 anyway, so the saturating sum changes nothing.
HWY_INLINE V16 Channel(V16 luma, V16 term) {
  return hn::ShiftRight<6>(hn::SaturatedAdd(luma, term));
}

// The channels of a row of pixels in their byte order in memory.
struct SmChannels {
  V16 first, second, third;
};

template <bool BlueFirst>
HWY_INLINE SmChannels ToChannels(const SmToRgbVectors& k, V16 y, const SmChromaTerms& c) {
  const V16 a = hn::ShiftLeft<6>(hn::Sub(y, k.lumaOffset));
  const V16 luma = hn::Add(a, hn::MulFixedPoint15(a, k.luma));
  const V16 r = Channel(luma, c.r);
  const V16 g = Channel(luma, c.g);
  const V16 b = Channel(luma, c.b);
  return {BlueFirst ? b : r, g, BlueFirst ? r : b};
}

// Bytes of the even pixels in the lower half of each block, of the odd ones
// in the upper half, into pixel order.
alignas(16) constexpr uint8_t EvenOddToOrder[16] = {0, 8,  1, 9,  2, 10, 3, 11,
                                                    4, 12, 5, 13, 6, 14, 7, 15};

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

// Block `block` of a vector of one, two or four 128-bit blocks.
template <class V> HWY_INLINE hn::Vec<D128> GetBlock(V v, size_t block) {
#if HWY_ARCH_X86 && HWY_TARGET <= HWY_AVX3
  switch (block) {
  case 0:
    return hn::Vec<D128>{_mm512_castsi512_si128(v.raw)};
  case 1:
    return hn::Vec<D128>{_mm512_extracti32x4_epi32(v.raw, 1)};
  case 2:
    return hn::Vec<D128>{_mm512_extracti32x4_epi32(v.raw, 2)};
  default:
    return hn::Vec<D128>{_mm512_extracti32x4_epi32(v.raw, 3)};
  }
#else
  if constexpr (BlocksPerVector == 1) {
    return v;
  } else {
    return block == 0 ? hn::LowerHalf(D128(), v) : hn::UpperHalf(D128(), v);
  }
#endif
}

template <size_t PixelBytes, bool BlueFirst>
HWY_INLINE void StorePixels(const SmToRgbVectors& k, const SmChromaTerms& even,
                            const SmChromaTerms& odd, const uint8_t* luma, uint8_t* out,
                            bool lastInRow) {
  const D8 d;
  const V8 yv = hn::LoadU(d, luma);
  const SmChannels e = ToChannels<BlueFirst>(k, EvenBytes(yv), even);
  const SmChannels o = ToChannels<BlueFirst>(k, OddBytes(yv), odd);
  // The saturating packs clamp; interleaving the even and odd pixels' bytes
  // then gives each channel in pixel order, 16 pixels per block.
  const V8 firstSecondEven = PackWithinBlocks(d, e.first, e.second);
  const V8 firstSecondOdd = PackWithinBlocks(d, o.first, o.second);
  const V8 first = hn::InterleaveLower(d, firstSecondEven, firstSecondOdd);
  const V8 second = hn::InterleaveUpper(d, firstSecondEven, firstSecondOdd);
  const V8 third = hn::TableLookupBytes(PackWithinBlocks(d, e.third, o.third),
                                        hn::LoadDup128(d, EvenOddToOrder));
  const V8 fourth = hn::Set(d, PixelBytes == 4 ? 0xFF : 0);
  const V8 pairsLow = hn::InterleaveLower(d, first, second);
  const V8 pairsHigh = hn::InterleaveUpper(d, first, second);
  const V8 restLow = hn::InterleaveLower(d, third, fourth);
  const V8 restHigh = hn::InterleaveUpper(d, third, fourth);
  // Per block: pixels 0..3, 4..7, 8..11, 12..15 of the block.
  const V8 q0 = hn::BitCast(
      d, hn::InterleaveLower(DU16(), hn::BitCast(DU16(), pairsLow), hn::BitCast(DU16(), restLow)));
  const V8 q1 = hn::BitCast(
      d, hn::InterleaveUpper(DU16(), hn::BitCast(DU16(), pairsLow), hn::BitCast(DU16(), restLow)));
  const V8 q2 = hn::BitCast(d, hn::InterleaveLower(DU16(), hn::BitCast(DU16(), pairsHigh),
                                                   hn::BitCast(DU16(), restHigh)));
  const V8 q3 = hn::BitCast(d, hn::InterleaveUpper(DU16(), hn::BitCast(DU16(), pairsHigh),
                                                   hn::BitCast(DU16(), restHigh)));
  if constexpr (PixelBytes == 4) {
#if HWY_ARCH_X86 && HWY_TARGET <= HWY_AVX3
    // Whole vectors of sixteen pixels: block b of the four results, which a
    // transposition of the blocks gathers.
    const __m512i t0 = _mm512_shuffle_i64x2(q0.raw, q1.raw, _MM_SHUFFLE(1, 0, 1, 0));
    const __m512i t1 = _mm512_shuffle_i64x2(q0.raw, q1.raw, _MM_SHUFFLE(3, 2, 3, 2));
    const __m512i t2 = _mm512_shuffle_i64x2(q2.raw, q3.raw, _MM_SHUFFLE(1, 0, 1, 0));
    const __m512i t3 = _mm512_shuffle_i64x2(q2.raw, q3.raw, _MM_SHUFFLE(3, 2, 3, 2));
    hn::StoreU(V8{_mm512_shuffle_i64x2(t0, t2, _MM_SHUFFLE(2, 0, 2, 0))}, d, out);
    hn::StoreU(V8{_mm512_shuffle_i64x2(t0, t2, _MM_SHUFFLE(3, 1, 3, 1))}, d, out + 64);
    hn::StoreU(V8{_mm512_shuffle_i64x2(t1, t3, _MM_SHUFFLE(2, 0, 2, 0))}, d, out + 128);
    hn::StoreU(V8{_mm512_shuffle_i64x2(t1, t3, _MM_SHUFFLE(3, 1, 3, 1))}, d, out + 192);
    return;
#else
    if constexpr (BlocksPerVector == 2) {
      // Whole vectors of eight pixels: one block swap each instead of
      // extracting the upper blocks one by one.
      hn::StoreU(hn::ConcatLowerLower(d, q1, q0), d, out);
      hn::StoreU(hn::ConcatLowerLower(d, q3, q2), d, out + 32);
      hn::StoreU(hn::ConcatUpperUpper(d, q1, q0), d, out + 64);
      hn::StoreU(hn::ConcatUpperUpper(d, q3, q2), d, out + 96);
      return;
    }
#endif
  }
  for (size_t block = 0; block < BlocksPerVector; ++block) {
    uint8_t* at = out + PixelBytes * 16 * block;
    StoreBlock<PixelBytes>(GetBlock(q0, block), at, false);
    StoreBlock<PixelBytes>(GetBlock(q1, block), at + PixelBytes * 4, false);
    StoreBlock<PixelBytes>(GetBlock(q2, block), at + PixelBytes * 8, false);
    StoreBlock<PixelBytes>(GetBlock(q3, block), at + PixelBytes * 12,
                           lastInRow && block + 1 == BlocksPerVector);
  }
}

// Rows at least one vector wide.
template <size_t PixelBytes, bool BlueFirst>
void YCbCrToRgbRows(const SmYCbCrSource& s, SmChromaLayout chroma, uint8_t* dst, size_t dstStride,
                    size_t width, size_t height, const SmToRgbVectors& k) {
  const D8 d;
  const size_t n = hn::Lanes(d);
  const SmVectorStarts starts(width, chroma);
  // 4:2:0 takes two rows per chroma row, so the colour terms are computed once for both.
  const size_t rowsPerChromaRow = chroma == Chroma420 ? 2 : 1;
  for (size_t y = 0; y < height; y += rowsPerChromaRow) {
    const size_t rows = std::min(rowsPerChromaRow, height - y);
    const size_t cy = y / rowsPerChromaRow;
    const uint8_t* cbRow = s.cb + cy * s.cbStride;
    const uint8_t* crRow = s.cr + cy * s.crStride;
    for (size_t i = 0; i < starts.count; ++i) {
      const size_t x = starts[i];
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

// From RGB a vector is read in parts of 128 bits.

// A vector of pixels is read as four parts of four pixels per 128-bit block.
// Part q of block b starts at this pixel, so that the packs within blocks of
// the x86 instructions, parts 0 and 1 with 2 and 3 and then the two results,
// give the bytes in pixel order without moving anything across blocks.
constexpr size_t PartStart(size_t part, size_t block) {
  return block * 16 + part / 2 * 8 + part % 2 * 4;
}

// Byte shuffles that widen four pixels of a block into 32-bit lanes holding
// the 16-bit pairs red, green and blue, 0. Three-byte pixels are read from four
// bytes before their start, except at the start of a vector, so that no read
// passes the last pixel.
struct SmRgbShuffles {
  explicit SmRgbShuffles(SmPackedLayout layout) {
    for (size_t first = 0; first < 2; ++first) {
      alignas(64) uint8_t rg[16 * BlocksPerVector], b[16 * BlocksPerVector];
      for (size_t block = 0; block < BlocksPerVector; ++block) {
        const size_t skip = ReadBack(layout.pixelBytes, first == 1 && block == 0 ? 0 : 4);
        for (size_t j = 0; j < 4; ++j) {
          uint8_t* pair = rg + 16 * block + 4 * j;
          uint8_t* single = b + 16 * block + 4 * j;
          const size_t at = skip + layout.pixelBytes * j;
          pair[0] = static_cast<uint8_t>(at + (layout.blueFirst ? 2 : 0));
          pair[2] = static_cast<uint8_t>(at + 1);
          single[0] = static_cast<uint8_t>(at + (layout.blueFirst ? 0 : 2));
          pair[1] = pair[3] = single[1] = single[2] = single[3] = 0x80;
        }
      }
      redGreen[first] = hn::LoadU(D8(), rg);
      blueZero[first] = hn::LoadU(D8(), b);
    }
  }
  static constexpr size_t ReadBack(size_t pixelBytes, size_t start) {
    return pixelBytes == 3 && start > 0 ? 4 : 0;
  }
  V8 redGreen[2], blueZero[2]; // [0]: any part, [1]: the vector's first part
};

// Each output is one multiply-add of two 16-bit pairs: red and green, and blue
// and a constant. Every pixel carries the constant 1 << 8, so that a sum of
// pixels carries it once per pixel, as the bias of the sum needs; the bias
// multiple times 1 << 6 is then its weight, which fits 16 bits.
constexpr int BiasConstantBits = 8;
struct SmFromRgbVectors {
  explicit SmFromRgbVectors(const F::SmFromRgbConstants& c) {
    const D16 d;
    for (int i = 0; i < 3; ++i) {
      const auto weight = static_cast<int16_t>(F::BiasMultiple(c.offset[i], 0)
                                               << (F::BiasUnitBits - BiasConstantBits));
      redGreen[i] = hn::InterleaveLower(d, hn::Set(d, c.rgb[i][0]), hn::Set(d, c.rgb[i][1]));
      blueBias[i] = hn::InterleaveLower(d, hn::Set(d, c.rgb[i][2]), hn::Set(d, weight));
    }
    biasConstant = hn::BitCast(D8(), hn::Set(D32(), int32_t{1} << (16 + BiasConstantBits)));
  }
  V16 redGreen[3], blueBias[3];
  V8 biasConstant; // in the second half of each blue pair
};

static_assert(F::BiasMultiple(128, 0) << (F::BiasUnitBits - BiasConstantBits) < 32768,
              "the bias weight must fit a 16-bit lane");

// Lane i: the dot product of pair i of each input with its coefficients.
HWY_INLINE V32 DotPairs(V16 redGreen, V16 blueBias, V16 kRedGreen, V16 kBlueBias) {
  const D32 d;
  // Targets without a pairwise multiply-add split the products into even and
  // odd lanes; the final rearrangement adds them in the order of the pairs.
  V32 odd = hn::Zero(d);
  const V32 even = hn::ReorderWidenMulAccumulate(d, redGreen, kRedGreen, hn::Zero(d), odd);
  return hn::RearrangeToOddPlusEven(
      hn::ReorderWidenMulAccumulate(d, blueBias, kBlueBias, even, odd), odd);
}

// The pixel pairs of one row: four parts of a vector of pixels.
struct SmRowPairs {
  V16 redGreen[4], blueBias[4];
};

template <class D>
HWY_INLINE hn::Vec<D> LoadPart(D d, const uint8_t* row, size_t pixelBytes, size_t part) {
  const D128 d128;
  const auto at = [&](size_t block) {
    const size_t start = PartStart(part, block);
    return row + pixelBytes * start - SmRgbShuffles::ReadBack(pixelBytes, start);
  };
  if constexpr (hn::MaxLanes(d) == 16) {
    return hn::LoadU(d, at(0));
  } else if constexpr (hn::MaxLanes(d) == 32) {
    return hn::Combine(d, hn::LoadU(d128, at(1)), hn::LoadU(d128, at(0)));
  } else {
    const hn::Half<D> dh;
    return hn::Combine(d, hn::Combine(dh, hn::LoadU(d128, at(3)), hn::LoadU(d128, at(2))),
                       hn::Combine(dh, hn::LoadU(d128, at(1)), hn::LoadU(d128, at(0))));
  }
}

HWY_INLINE SmRowPairs LoadPairs(const SmRgbShuffles& s, const SmFromRgbVectors& k,
                                const uint8_t* row, size_t pixelBytes) {
  SmRowPairs p;
// Unrolled, so that the parts stay in registers.
#pragma GCC unroll 4
  for (size_t q = 0; q < 4; ++q) {
    const V8 bytes = LoadPart(D8(), row, pixelBytes, q);
    p.redGreen[q] = hn::BitCast(D16(), hn::TableLookupBytesOr0(bytes, s.redGreen[q == 0]));
    p.blueBias[q] = hn::BitCast(
        D16(), hn::Or(hn::TableLookupBytesOr0(bytes, s.blueZero[q == 0]), k.biasConstant));
  }
  return p;
}

// Four parts of results as bytes in pixel order, clamped by the saturating
// packs.
HWY_INLINE V8 PackParts(const V32 parts[4]) {
  const D16 d;
  return PackWithinBlocks(D8(), hn::ReorderDemote2To(d, parts[0], parts[1]),
                          hn::ReorderDemote2To(d, parts[2], parts[3]));
}

// One channel of every pixel: luma, or chroma of the full layout.
HWY_INLINE void StoreChannel(const SmFromRgbVectors& k, int c, const SmRowPairs& p, uint8_t* out) {
  V32 sums[4];
// Unrolled, so that the parts stay in registers.
#pragma GCC unroll 4
  for (size_t q = 0; q < 4; ++q) {
    sums[q] =
        hn::ShiftRight<15>(DotPairs(p.redGreen[q], p.blueBias[q], k.redGreen[c], k.blueBias[c]));
  }
  hn::StoreU(PackParts(sums), D8(), out);
}

// Pairs of neighbouring pixels summed: two parts become one whose even lanes
// come from the first and odd lanes from the second.
HWY_INLINE V16 JoinPixelPairs(V16 first, V16 second) {
  const D32 d;
  const auto a = hn::BitCast(d, first);
  const auto b = hn::BitCast(d, second);
  return hn::Add(hn::BitCast(D16(), hn::OddEven(b, a)),
                 hn::BitCast(D16(), hn::Shuffle2301(hn::OddEven(a, b))));
}

// Per block the joined parts hold the chroma samples 0, 2, 1, 3, 4, 6, 5, 7
// of the block's eight; the table puts them back in order.
alignas(16) constexpr uint8_t ChromaOrder[16] = {0, 2,  1, 3,  4,  6,  5,  7,
                                                 8, 10, 9, 11, 12, 14, 13, 15};

HWY_INLINE V32 ChromaHalf(const SmFromRgbVectors& k, int c, const SmRowPairs& p, size_t h,
                          int log2Pixels) {
  const V32 sum = DotPairs(p.redGreen[h], p.blueBias[h], k.redGreen[c], k.blueBias[c]);
  return log2Pixels == 1 ? hn::ShiftRight<16>(sum) : hn::ShiftRight<17>(sum);
}

// Both chroma samples of the subsampled layouts: the parts hold sums of
// neighbouring pixels, joined in pairs. Blue and red difference are packed
// into one vector, which then holds each in order in one half.
HWY_INLINE void StoreSubsampledChroma(const SmFromRgbVectors& k, const SmRowPairs& p,
                                      int log2Pixels, uint8_t* cbOut, uint8_t* crOut) {
  const D16 d;
  const V16 cb = hn::ReorderDemote2To(d, ChromaHalf(k, 1, p, 0, log2Pixels),
                                      ChromaHalf(k, 1, p, 1, log2Pixels));
  const V16 cr = hn::ReorderDemote2To(d, ChromaHalf(k, 2, p, 0, log2Pixels),
                                      ChromaHalf(k, 2, p, 1, log2Pixels));
  V8 both = PackWithinBlocks(D8(), cb, cr);
  // The eight bytes of each channel per block, gathered into one half each.
#if HWY_ARCH_X86 && HWY_TARGET <= HWY_AVX3
  both = V8{_mm512_permutexvar_epi64(_mm512_setr_epi64(0, 2, 4, 6, 1, 3, 5, 7), both.raw)};
#elif HWY_ARCH_X86 && HWY_TARGET <= HWY_AVX2
  both = V8{_mm256_permute4x64_epi64(both.raw, _MM_SHUFFLE(3, 1, 2, 0))};
#endif
  both = hn::TableLookupBytes(both, hn::LoadDup128(D8(), ChromaOrder));
#if HWY_ARCH_X86 && HWY_TARGET <= HWY_AVX2
  const hn::Half<D8> dh;
  hn::StoreU(hn::LowerHalf(dh, both), dh, cbOut);
  hn::StoreU(hn::UpperHalf(dh, both), dh, crOut);
#else
  alignas(16) uint8_t buffer[16];
  hn::Store(both, D8(), buffer);
  std::copy(buffer, buffer + 8, cbOut);
  std::copy(buffer + 8, buffer + 16, crOut);
#endif
}

void RgbToYCbCrColumns(const uint8_t* src, size_t srcStride, SmPackedLayout layout,
                       const SmYCbCrDestination& destination, SmChromaLayout chroma, size_t width,
                       size_t height, const SmFromRgbVectors& constants) {
  // Local copies: the byte stores could alias the originals, which would
  // make the compiler load them again after every store.
  const SmFromRgbVectors k = constants;
  const SmYCbCrDestination t = destination;
  const size_t pixelBytes = layout.pixelBytes;
  const SmVectorStarts starts(width, chroma);
  const SmRgbShuffles shuffles(layout);
  const size_t rowsPerChromaRow = chroma == Chroma420 ? 2 : 1;
  for (size_t y = 0; y < height; y += rowsPerChromaRow) {
    const uint8_t* row0 = src + y * srcStride;
    // An odd last row of 4:2:0 is its own partner: twice its sum over four.
    const bool pair = rowsPerChromaRow == 2 && y + 1 < height;
    const uint8_t* row1 = pair ? row0 + srcStride : row0;
    uint8_t* luma0 = t.y + y * t.yStride;
    uint8_t* luma1 = luma0 + t.yStride;
    const size_t cy = y / rowsPerChromaRow;
    uint8_t* cbOut = t.cb == nullptr ? nullptr : t.cb + cy * t.cbStride;
    uint8_t* crOut = t.cb == nullptr ? nullptr : t.cr + cy * t.crStride;
    for (size_t i = 0; i < starts.count; ++i) {
      const size_t x = starts[i];
      SmRowPairs p = LoadPairs(shuffles, k, row0 + x * pixelBytes, pixelBytes);
      StoreChannel(k, 0, p, luma0 + x);
      if (rowsPerChromaRow == 2) {
        const SmRowPairs p1 = pair ? LoadPairs(shuffles, k, row1 + x * pixelBytes, pixelBytes) : p;
        if (pair) {
          StoreChannel(k, 0, p1, luma1 + x);
        }
// Unrolled, so that the parts stay in registers.
#pragma GCC unroll 4
        for (size_t q = 0; q < 4; ++q) {
          p.redGreen[q] = hn::Add(p.redGreen[q], p1.redGreen[q]);
          p.blueBias[q] = hn::Add(p.blueBias[q], p1.blueBias[q]);
        }
      }
      if (cbOut == nullptr) {
        continue;
      }
      if (chroma == Chroma444) {
        StoreChannel(k, 1, p, cbOut + x);
        StoreChannel(k, 2, p, crOut + x);
        continue;
      }
#pragma GCC unroll 2
      for (size_t h = 0; h < 2; ++h) {
        p.redGreen[h] = JoinPixelPairs(p.redGreen[2 * h], p.redGreen[2 * h + 1]);
        p.blueBias[h] = JoinPixelPairs(p.blueBias[2 * h], p.blueBias[2 * h + 1]);
      }
      StoreSubsampledChroma(k, p, chroma == Chroma422 ? 1 : 2, cbOut + x / 2, crOut + x / 2);
    }
  }
}
#endif

void YCbCrToRgbImpl(const SmYCbCrSource& source, SmChromaLayout chroma, uint8_t* dst,
                    size_t dstStride, SmPackedLayout layout, size_t width, size_t height,
                    SmYCbCrMatrix matrix) {
  size_t done = 0;
#if HWY_TARGET != HWY_SCALAR
  done = VectorColumns(width, chroma);
  if (done > 0) {
    const SmToRgbVectors k(F::GetToRgbConstants(matrix));
    using Rows = void (*)(const SmYCbCrSource&, SmChromaLayout, uint8_t*, size_t, size_t, size_t,
                          const SmToRgbVectors&);
    const Rows rows =
        layout.pixelBytes == 3
            ? (layout.blueFirst ? &YCbCrToRgbRows<3, true> : &YCbCrToRgbRows<3, false>)
            : (layout.blueFirst ? &YCbCrToRgbRows<4, true> : &YCbCrToRgbRows<4, false>);
    rows(source, chroma, dst, dstStride, width, height, k);
  }
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
  done = VectorColumns(width, chroma);
  if (done > 0) {
    RgbToYCbCrColumns(src, srcStride, layout, destination, chroma, width, height,
                      SmFromRgbVectors(F::GetFromRgbConstants(matrix)));
  }
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
