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
      const auto s0 = hn::BitCast(
          d16, hn::PromoteTo(hn::RebindToUnsigned<decltype(d16)>(), hn::LoadU(d8h, top + b)));
      const auto s1 = hn::BitCast(d16, hn::PromoteTo(hn::RebindToUnsigned<decltype(d16)>(),
                                                     hn::LoadU(d8h, top + srcStride + b)));
      const auto sum =
          hn::Add(hn::ShiftLeft<6>(s0), hn::MulFixedPoint15(hn::ShiftLeft<7>(hn::Sub(s1, s0)), w1));
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
// Filters in 16-bit lanes. Every product of an 8-bit sample or of a
// 16-bit intermediate with a 14-bit weight is exact in the 32-bit pair sums
// of a widening multiply-add, so the results are those of the plain 32-bit
// passes to the bit, at half the lane width and without gathers.

// Whether the intermediate of the vertical pass, six fraction bits over the
// sample, fits 16 bits for every output row: it does unless the weights
// overshoot far beyond what any of the filters have.
bool FitsSixteenBits(const T::SmAxis& vertical, size_t rows) {
  for (size_t y = 0; y < rows; ++y) {
    int64_t positive = 0, negative = 0;
    for (size_t k = 0; k < vertical.taps; ++k) {
      const int32_t w = vertical.weights[y * vertical.taps + k];
      (w > 0 ? positive : negative) += w;
    }
    const int64_t half = 1 << (MiddleShift - 1);
    if (((255 * positive + half) >> MiddleShift) > INT16_MAX ||
        ((255 * negative + half) >> MiddleShift) < INT16_MIN) {
      return false;
    }
  }
  return true;
}

// Up to four taps, two outputs share a 128-bit vector of 16-bit lanes.
constexpr size_t ShortTaps = 4;

size_t GetPackedStride(size_t taps) {
  return taps <= ShortTaps ? ShortTaps : T::GetPackedTapCount(taps);
}

// The horizontal weights, output by output, each row of taps padded with
// zeros to four taps or to whole 128-bit vectors.
void PackHorizontalWeights(const T::SmAxis& axis, size_t outputs, int16_t* packed) {
  const size_t stride = GetPackedStride(axis.taps);
  for (size_t o = 0; o < outputs; ++o) {
    int16_t* row = packed + o * stride;
    for (size_t k = 0; k < stride; ++k) {
      row[k] = k < axis.taps ? static_cast<int16_t>(axis.weights[k * outputs + o]) : 0;
    }
  }
}

// Taps are taken two rows at a time: the bytes of both rows widened and
// interleaved, then multiplied by the weight pair and summed in one step.
// Interleaving and packing both stay within 128-bit blocks, so the results
// come out in order.
void VerticalPassNarrow(const uint8_t* top, size_t srcStride, const int32_t* weights, size_t taps,
                        int16_t* row, size_t rowBytes) {
  const hn::CappedTag<int16_t, 32> d16;
  const hn::RebindToUnsigned<decltype(d16)> du16;
  const hn::Rebind<uint8_t, decltype(d16)> d8;
  const hn::Repartition<int32_t, decltype(d16)> d32;
  const size_t n = hn::Lanes(d16);
  const auto rounding = hn::Set(d32, 1 << (MiddleShift - 1));
  // The pairs of rows with any weight, listed once for the whole row: a lone
  // last tap is paired with itself at weight 0.
  struct SmRowPair {
    const uint8_t* upper;
    const uint8_t* lower;
    int32_t weights;
  };
  constexpr size_t MostPairs = 64;
  SmRowPair pairs[MostPairs];
  size_t count = 0;
  for (size_t k = 0; k < taps && count < MostPairs; k += 2) {
    const int32_t w0 = weights[k];
    const int32_t w1 = k + 1 < taps ? weights[k + 1] : 0;
    if (w0 != 0 || w1 != 0) {
      const uint8_t* upper = top + k * srcStride;
      pairs[count++] = {upper, k + 1 < taps ? upper + srcStride : upper,
                        static_cast<int32_t>((static_cast<uint32_t>(w0) & 0xFFFFu) |
                                             (static_cast<uint32_t>(w1) << 16))};
    }
  }
  // Filters of very many taps, as shrinking to a few rows gives, do not fit
  // the list and form each pair as they go.
  const bool listed = (taps + 1) / 2 <= MostPairs;
  size_t b = 0;
  for (; b + n <= rowBytes; b += n) {
    auto lower0 = rounding, lower1 = hn::Zero(d32);
    auto upper0 = rounding, upper1 = hn::Zero(d32);
    for (size_t p = 0, k = 0; listed ? p < count : k < taps; ++p, k += 2) {
      SmRowPair computed;
      if (!listed) {
        const uint8_t* upper = top + k * srcStride;
        computed = {
            upper, k + 1 < taps ? upper + srcStride : upper,
            static_cast<int32_t>((static_cast<uint32_t>(weights[k]) & 0xFFFFu) |
                                 (static_cast<uint32_t>(k + 1 < taps ? weights[k + 1] : 0) << 16))};
      }
      const SmRowPair& at = listed ? pairs[p] : computed;
      const auto a = hn::PromoteTo(du16, hn::LoadU(d8, at.upper + b));
      const auto c = hn::PromoteTo(du16, hn::LoadU(d8, at.lower + b));
      const auto pair = hn::BitCast(d16, hn::Set(d32, at.weights));
      const auto lo = hn::BitCast(d16, hn::InterleaveLower(du16, a, c));
      const auto hi = hn::BitCast(d16, hn::InterleaveUpper(du16, a, c));
      lower0 = hn::ReorderWidenMulAccumulate(d32, lo, pair, lower0, lower1);
      upper0 = hn::ReorderWidenMulAccumulate(d32, hi, pair, upper0, upper1);
    }
    const auto lower = hn::ShiftRight<MiddleShift>(hn::RearrangeToOddPlusEven(lower0, lower1));
    const auto upper = hn::ShiftRight<MiddleShift>(hn::RearrangeToOddPlusEven(upper0, upper1));
    hn::StoreU(hn::ReorderDemote2To(d16, lower, upper), d16, row + b);
  }
  for (; b < rowBytes; ++b) {
    int32_t sum = 0;
    for (size_t k = 0; k < taps; ++k) {
      sum += weights[k] * top[k * srcStride + b];
    }
    row[b] = static_cast<int16_t>((sum + (1 << (MiddleShift - 1))) >> MiddleShift);
  }
}

// Each output's taps are one contiguous stretch of the row, so they are
// plain vector loads against the output's own padded weights; four outputs'
// partial sums are then folded together into one vector. Returns the
// outputs done.
size_t HorizontalPassLong(const int16_t* HWY_RESTRICT row, const int32_t* HWY_RESTRICT first,
                          const int16_t* HWY_RESTRICT packed, size_t stride, uint8_t* out,
                          size_t outputs) {
  const hn::Full128<int16_t> d16;
  const hn::Full128<int32_t> d32;
  const hn::Full128<int64_t> d64;
  const hn::Full32<uint8_t> d8;
  const auto rounding = hn::Set(d32, 1 << (FinalShift - 1));
  const auto dot = [&](size_t o) {
    const int16_t* at = row + first[o];
    const int16_t* w = packed + o * stride;
    auto sum0 = hn::Zero(d32), sum1 = hn::Zero(d32);
    for (size_t k = 0; k < stride; k += 8) {
      sum0 = hn::ReorderWidenMulAccumulate(d32, hn::LoadU(d16, at + k), hn::Load(d16, w + k), sum0,
                                           sum1);
    }
    return hn::RearrangeToOddPlusEven(sum0, sum1);
  };
  // Lane i of the result: the sum of the lanes of vector i.
  const auto fold = [&](auto v0, auto v1, auto v2, auto v3) {
    const auto s01 = hn::Add(hn::InterleaveLower(d32, v0, v1), hn::InterleaveUpper(d32, v0, v1));
    const auto s23 = hn::Add(hn::InterleaveLower(d32, v2, v3), hn::InterleaveUpper(d32, v2, v3));
    const auto a = hn::BitCast(d64, s01), b = hn::BitCast(d64, s23);
    return hn::Add(hn::BitCast(d32, hn::InterleaveLower(d64, a, b)),
                   hn::BitCast(d32, hn::InterleaveUpper(d64, a, b)));
  };
  size_t o = 0;
  for (; o + 4 <= outputs; o += 4) {
    const auto sum = hn::Add(fold(dot(o), dot(o + 1), dot(o + 2), dot(o + 3)), rounding);
    hn::StoreU(hn::DemoteTo(d8, hn::ShiftRight<FinalShift>(sum)), d8, out + o);
  }
  return o;
}

// Two outputs a vector, four taps each; the two halves of each vector's pair
// sums are then added across by taking even and odd lanes apart. Returns the
// outputs done.
size_t HorizontalPassShort(const int16_t* HWY_RESTRICT row, const int32_t* HWY_RESTRICT first,
                           const int16_t* HWY_RESTRICT packed, uint8_t* out, size_t outputs) {
  const hn::Full128<int16_t> d16;
  const hn::Full64<int16_t> d16h;
  const hn::Full128<int32_t> d32;
  const hn::Full32<uint8_t> d8;
  const auto rounding = hn::Set(d32, 1 << (FinalShift - 1));
  const auto pair = [&](size_t o) {
    const auto taps =
        hn::Combine(d16, hn::LoadU(d16h, row + first[o + 1]), hn::LoadU(d16h, row + first[o]));
    auto sum1 = hn::Zero(d32);
    const auto sum0 = hn::ReorderWidenMulAccumulate(
        d32, taps, hn::Load(d16, packed + o * ShortTaps), hn::Zero(d32), sum1);
    return hn::RearrangeToOddPlusEven(sum0, sum1);
  };
  size_t o = 0;
  for (; o + 4 <= outputs; o += 4) {
    const auto a = pair(o), b = pair(o + 2);
    const auto sum =
        hn::Add(hn::Add(hn::ConcatEven(d32, b, a), hn::ConcatOdd(d32, b, a)), rounding);
    hn::StoreU(hn::DemoteTo(d8, hn::ShiftRight<FinalShift>(sum)), d8, out + o);
  }
  return o;
}

void HorizontalPassNarrow(const int16_t* HWY_RESTRICT row, const int32_t* HWY_RESTRICT first,
                          const int16_t* HWY_RESTRICT packed, size_t taps, uint8_t* out,
                          size_t outputs) {
  const size_t stride = GetPackedStride(taps);
  size_t o = 0;
  if (taps <= ShortTaps) {
    o = HorizontalPassShort(row, first, packed, out, outputs);
  } else {
    o = HorizontalPassLong(row, first, packed, stride, out, outputs);
  }
  for (; o < outputs; ++o) {
    int32_t sum = 1 << (FinalShift - 1);
    for (size_t k = 0; k < taps; ++k) {
      sum += packed[o * stride + k] * row[first[o] + k];
    }
    out[o] = static_cast<uint8_t>(std::clamp(sum >> FinalShift, 0, 255));
  }
}
#endif

#if HWY_TARGET != HWY_SCALAR
// Three- and four-byte pixels: per output pixel all its channels at once.
// Pair j of a pixel's weights holds taps 2j and 2j + 1 as the low and high
// halves of 32 bits.
void PackPixelWeightPairs(const T::SmAxis& axis, size_t pixels, size_t pixelBytes, int32_t* pairs) {
  const size_t outputs = pixels * pixelBytes;
  const size_t count = (axis.taps + 1) / 2;
  for (size_t x = 0; x < pixels; ++x) {
    for (size_t j = 0; j < count; ++j) {
      const size_t k = 2 * j;
      const int32_t w0 = axis.weights[k * outputs + x * pixelBytes];
      const int32_t w1 = k + 1 < axis.taps ? axis.weights[(k + 1) * outputs + x * pixelBytes] : 0;
      pairs[x * count + j] = static_cast<int32_t>((static_cast<uint32_t>(w0) & 0xFFFFu) |
                                                  (static_cast<uint32_t>(w1) << 16));
    }
  }
}

// Pairs each channel of a four-byte pixel with the same channel of the
// next, as 16-bit lanes.
alignas(16) constexpr uint8_t PairFour[16] = {0, 1, 8, 9, 2, 3, 10, 11, 4, 5, 12, 13, 6, 7, 14, 15};

#if HWY_ARCH_X86 && HWY_TARGET <= HWY_AVX3
// Four-byte pixels four at a time, as below with one pixel in each 128-bit
// block of a 512-bit vector: its two taps, its weight pair spread over the
// block's four lanes. Returns the pixels done.
size_t HorizontalPassFourPixels(const int16_t* HWY_RESTRICT row, const int32_t* HWY_RESTRICT first,
                                const int32_t* HWY_RESTRICT pairs, size_t taps, uint8_t* out,
                                size_t pixels) {
  const __m512i shuffle =
      _mm512_broadcast_i32x4(_mm_load_si128(reinterpret_cast<const __m128i*>(PairFour)));
  const __m512i spread = _mm512_setr_epi32(0, 0, 0, 0, 1, 1, 1, 1, 2, 2, 2, 2, 3, 3, 3, 3);
  const __m512i rounding = _mm512_set1_epi32(1 << (FinalShift - 1));
  const size_t count = (taps + 1) / 2;
  const auto load = [](const int16_t* p) {
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
  };
  size_t x = 0;
  for (; x + 4 <= pixels; x += 4) {
    const int16_t* at[4];
    for (size_t k = 0; k < 4; ++k) {
      at[k] = row + first[(x + k) * 4];
    }
    __m512i sum = rounding;
    for (size_t j = 0; j < count; ++j) {
      __m512i lanes = _mm512_castsi128_si512(load(at[0] + 8 * j));
      lanes = _mm512_inserti32x4(lanes, load(at[1] + 8 * j), 1);
      lanes = _mm512_inserti32x4(lanes, load(at[2] + 8 * j), 2);
      lanes = _mm512_inserti32x4(lanes, load(at[3] + 8 * j), 3);
      const __m128i w = _mm_setr_epi32(pairs[x * count + j], pairs[(x + 1) * count + j],
                                       pairs[(x + 2) * count + j], pairs[(x + 3) * count + j]);
      const __m512i weights = _mm512_permutexvar_epi32(spread, _mm512_castsi128_si512(w));
      sum = _mm512_add_epi32(sum, _mm512_madd_epi16(_mm512_shuffle_epi8(lanes, shuffle), weights));
    }
    sum = _mm512_max_epi32(_mm512_srai_epi32(sum, FinalShift), _mm512_setzero_si512());
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out + 4 * x), _mm512_cvtusepi32_epi8(sum));
  }
  return x;
}
#endif

// Two neighbouring taps are eight 16-bit lanes of the row from the first
// tap's pixel on; a byte shuffle pairs each channel of one tap with the same
// channel of the next, and one widening multiply-add then sums both taps of
// every channel.
template <size_t PixelBytes>
void HorizontalPassPixels(const int16_t* HWY_RESTRICT row, const int32_t* HWY_RESTRICT first,
                          const int32_t* HWY_RESTRICT pairs, size_t taps, uint8_t* out,
                          size_t pixels) {
  const hn::Full128<int16_t> d16;
  const hn::Full128<int32_t> d32;
  const hn::Full128<uint8_t> d8;
  const hn::Full32<uint8_t> d8q;
  constexpr uint8_t Z = 0x80;
  alignas(16) static constexpr uint8_t PairThree[16] = {0, 1, 6,  7,  2, 3, 8, 9,
                                                        4, 5, 10, 11, Z, Z, Z, Z};
  const auto shuffle = hn::Load(d8, PixelBytes == 4 ? PairFour : PairThree);
  const auto rounding = hn::Set(d32, 1 << (FinalShift - 1));
  const size_t count = (taps + 1) / 2;
  size_t x = 0;
#if HWY_ARCH_X86 && HWY_TARGET <= HWY_AVX3
  if constexpr (PixelBytes == 4) {
    x = HorizontalPassFourPixels(row, first, pairs, taps, out, pixels);
  }
#endif
  for (; x < pixels; ++x) {
    const int16_t* at = row + first[x * PixelBytes];
    const int32_t* w = pairs + x * count;
    auto sum0 = hn::Zero(d32), sum1 = hn::Zero(d32);
    for (size_t j = 0; j < count; ++j) {
      const auto lanes = hn::LoadU(d16, at + 2 * j * PixelBytes);
      const auto paired =
          hn::BitCast(d16, hn::TableLookupBytesOr0(hn::BitCast(d8, lanes), shuffle));
      sum0 = hn::ReorderWidenMulAccumulate(d32, paired, hn::BitCast(d16, hn::Set(d32, w[j])), sum0,
                                           sum1);
    }
    const auto sum = hn::Add(hn::RearrangeToOddPlusEven(sum0, sum1), rounding);
    const auto bytes = hn::DemoteTo(d8q, hn::ShiftRight<FinalShift>(sum));
    if (PixelBytes == 4 || x + 1 < pixels) {
      // A three-byte pixel's spare fourth byte lands on the next pixel's first.
      hn::StoreU(bytes, d8q, out + x * PixelBytes);
    } else {
      alignas(16) uint8_t last[4];
      hn::Store(bytes, d8q, last);
      std::copy(last, last + PixelBytes, out + x * PixelBytes);
    }
  }
}

#endif

#if HWY_TARGET != HWY_SCALAR
// A copy by index in blocks of 16 output bytes: each block's sources lie
// within a few 16-byte chunks of the source row, and a byte shuffle per chunk
// picks them out. Plan: per block the chunks' start in the row (negative for
// a block too near the row's end to load whole chunks, copied byte by byte),
// and per chunk the shuffle lanes, 0x80 for bytes of other chunks.
constexpr size_t ShuffleBlock = 16;
constexpr size_t MostShuffleChunks = 4;

struct SmShufflePlan {
  size_t chunks = 0;
  size_t blocks = 0;
  const uint8_t* lanes = nullptr;
  const int32_t* bases = nullptr;
};

// Space must hold outputs * (MostShuffleChunks + 1) bytes; false when the
// sources spread too far for a few chunks to cover a block.
bool BuildShufflePlan(const int32_t* first, size_t outputs, size_t rowBytes, uint8_t* space,
                      SmShufflePlan& plan) {
  const size_t blocks = outputs / ShuffleBlock;
  size_t chunks = 1;
  for (size_t b = 0; b < blocks; ++b) {
    const auto [lo, hi] =
        std::minmax_element(first + b * ShuffleBlock, first + (b + 1) * ShuffleBlock);
    chunks = std::max(chunks, static_cast<size_t>(*hi - *lo) / ShuffleBlock + 1);
  }
  if (chunks > MostShuffleChunks) {
    return false;
  }
  uint8_t* lanes = space;
  int32_t* bases = reinterpret_cast<int32_t*>(space + outputs * MostShuffleChunks);
  for (size_t b = 0; b < blocks; ++b) {
    const int32_t base =
        *std::min_element(first + b * ShuffleBlock, first + (b + 1) * ShuffleBlock);
    bases[b] = static_cast<size_t>(base) + chunks * ShuffleBlock <= rowBytes ? base : -1;
    for (size_t j = 0; j < chunks; ++j) {
      for (size_t i = 0; i < ShuffleBlock; ++i) {
        const int32_t at =
            first[b * ShuffleBlock + i] - base - static_cast<int32_t>(j * ShuffleBlock);
        lanes[(b * chunks + j) * ShuffleBlock + i] =
            at >= 0 && at < static_cast<int32_t>(ShuffleBlock) ? static_cast<uint8_t>(at) : 0x80;
      }
    }
  }
  plan = {chunks, blocks, lanes, bases};
  return true;
}

template <size_t Chunks>
void ShuffleCopyRow(const uint8_t* HWY_RESTRICT row, const int32_t* HWY_RESTRICT first,
                    const SmShufflePlan& plan, uint8_t* HWY_RESTRICT out, size_t outputs) {
  const hn::Full128<uint8_t> d8;
  for (size_t b = 0; b < plan.blocks; ++b) {
    const size_t o = b * ShuffleBlock;
    const int32_t base = plan.bases[b];
    if (base < 0) {
      for (size_t i = 0; i < ShuffleBlock; ++i) {
        out[o + i] = row[first[o + i]];
      }
      continue;
    }
    const uint8_t* lanes = plan.lanes + b * Chunks * ShuffleBlock;
    auto v = hn::TableLookupBytesOr0(hn::LoadU(d8, row + base), hn::Load(d8, lanes));
    for (size_t j = 1; j < Chunks; ++j) {
      v = hn::Or(v, hn::TableLookupBytesOr0(hn::LoadU(d8, row + base + j * ShuffleBlock),
                                            hn::Load(d8, lanes + j * ShuffleBlock)));
    }
    hn::StoreU(v, d8, out + o);
  }
  for (size_t o = plan.blocks * ShuffleBlock; o < outputs; ++o) {
    out[o] = row[first[o]];
  }
}

void ShuffleCopyRow(const uint8_t* row, const int32_t* first, const SmShufflePlan& plan,
                    uint8_t* out, size_t outputs) {
  switch (plan.chunks) {
  case 1:
    return ShuffleCopyRow<1>(row, first, plan, out, outputs);
  case 2:
    return ShuffleCopyRow<2>(row, first, plan, out, outputs);
  case 3:
    return ShuffleCopyRow<3>(row, first, plan, out, outputs);
  default:
    return ShuffleCopyRow<4>(row, first, plan, out, outputs);
  }
}
#endif

int32_t ResizePlaneImpl(const uint8_t* src, size_t srcStride, size_t srcWidth, size_t srcHeight,
                        uint8_t* dst, size_t dstStride, size_t dstWidth, size_t dstHeight,
                        size_t pixelBytes, SmResizeMode mode, uint8_t* scratch, size_t scratchSize,
                        const SmResizeWindow& window) {
  const int32_t status = T::Check(src, srcWidth, srcHeight, dst, dstWidth, dstHeight, pixelBytes,
                                  mode, scratch, window);
  if (status != ResizeOk) {
    return status;
  }
  T::SmLayout layout;
  if (!T::Build(srcWidth, srcHeight, dstWidth, dstHeight, pixelBytes, mode, window, scratch,
                scratchSize, layout)) {
    return ResizeScratchTooSmall;
  }
  // Source rows are read from the first byte that the window needs.
  src += layout.rowOrigin;
  const size_t rowBytes = layout.rowBytes;
  const size_t outputBytes = layout.outputBytes;
  // One tap of full weight each way reproduces the source sample exactly, so
  // such a filter is a copy by index: nearest neighbour always, and linear
  // interpolation by an odd whole factor, whose output centres fall on source
  // centres. The vector units have no byte gather that would do it faster.
  int32_t* copyIndex = nullptr;
  if (mode == ResizeNearest) {
    copyIndex = layout.horizontal.first;
  } else if (outputBytes <= rowBytes + 64 && FindCopyIndex(layout.vertical, dstHeight, nullptr) &&
             FindCopyIndex(layout.horizontal, outputBytes, layout.row, pixelBytes)) {
    copyIndex = layout.row;
  }
  if (copyIndex != nullptr) {
    const int32_t* HWY_RESTRICT first = copyIndex;
#if HWY_TARGET != HWY_SCALAR
    SmShufflePlan plan;
    if (BuildShufflePlan(first, outputBytes, rowBytes, reinterpret_cast<uint8_t*>(layout.packed),
                         plan)) {
      for (size_t y = window.top; y < window.bottom; ++y) {
        ShuffleCopyRow(src + CopyRow(layout.vertical, y) * srcStride, first, plan,
                       dst + (y - window.top) * dstStride, outputBytes);
      }
      return ResizeOk;
    }
#endif
    for (size_t y = window.top; y < window.bottom; ++y) {
      const uint8_t* HWY_RESTRICT row = src + CopyRow(layout.vertical, y) * srcStride;
      uint8_t* HWY_RESTRICT out = dst + (y - window.top) * dstStride;
      for (size_t o = 0; o < outputBytes; ++o) {
        out[o] = row[first[o]];
      }
    }
    return ResizeOk;
  }
#if HWY_TARGET != HWY_SCALAR
  // Two taps take this way too: a 16-bit row of the vertical pass and whole
  // outputs a vector cost less than gathering the four source bytes of every
  // output one by one.
  if (FitsSixteenBits(layout.vertical, dstHeight)) {
    // The intermediate row takes the row buffer's space as 16-bit values;
    // the last output's padded taps may read a vector's length past it.
    int16_t* row = reinterpret_cast<int16_t*>(layout.row);
    std::fill(row + rowBytes, row + rowBytes + 16, int16_t{0});
    int32_t* pairs = reinterpret_cast<int32_t*>(layout.packed);
    const size_t pixels = window.right - window.left;
    if (pixelBytes == 1) {
      PackHorizontalWeights(layout.horizontal, outputBytes, layout.packed);
    } else {
      PackPixelWeightPairs(layout.horizontal, pixels, pixelBytes, pairs);
    }
    for (size_t y = window.top; y < window.bottom; ++y) {
      const uint8_t* top = src + static_cast<size_t>(layout.vertical.first[y]) * srcStride;
      uint8_t* out = dst + (y - window.top) * dstStride;
      VerticalPassNarrow(top, srcStride, layout.vertical.weights + y * layout.vertical.taps,
                         layout.vertical.taps, row, rowBytes);
      if (pixelBytes == 1) {
        HorizontalPassNarrow(row, layout.horizontal.first, layout.packed, layout.horizontal.taps,
                             out, outputBytes);
      } else if (pixelBytes == 3) {
        HorizontalPassPixels<3>(row, layout.horizontal.first, pairs, layout.horizontal.taps, out,
                                pixels);
      } else {
        HorizontalPassPixels<4>(row, layout.horizontal.first, pairs, layout.horizontal.taps, out,
                                pixels);
      }
    }
    return ResizeOk;
  }
#endif
  for (size_t y = window.top; y < window.bottom; ++y) {
    const uint8_t* top = src + static_cast<size_t>(layout.vertical.first[y]) * srcStride;
    VerticalPass(top, srcStride, layout.vertical.weights + y * layout.vertical.taps,
                 layout.vertical.taps, layout.row, rowBytes);
    HorizontalPass(layout.row, layout.horizontal, pixelBytes, dst + (y - window.top) * dstStride,
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
  return NmResizeTables::GetScratchSize(srcWidth, srcHeight, dstWidth, dstHeight, pixelBytes, mode);
}

int32_t ResizePlane(const uint8_t* src, size_t srcStride, size_t srcWidth, size_t srcHeight,
                    uint8_t* dst, size_t dstStride, size_t dstWidth, size_t dstHeight,
                    size_t pixelBytes, SmResizeMode mode, uint8_t* scratch, size_t scratchSize,
                    const SmResizeWindow& window) {
  return HWY_DYNAMIC_DISPATCH(ResizePlaneImpl)(src, srcStride, srcWidth, srcHeight, dst, dstStride,
                                               dstWidth, dstHeight, pixelBytes, mode, scratch,
                                               scratchSize, window);
}

} // namespace NmPrimitives
#endif
