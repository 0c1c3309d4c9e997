// Vector inverse DCT, compiled once per Highway target. The full size works in
// 16-bit fixed point on whole groups of blocks; the reduced sizes, which only
// scaled decoding uses, are products with a basis matrix in float: the first
// pass runs down the columns with whole coefficient rows as vectors, the
// second multiplies each intermediate row with broadcast values.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "Codecs/Primitives/JPEGInverseDCT.cc"
#include <hwy/foreach_target.h> // IWYU pragma: keep
#include <hwy/highway.h>

#include <cmath>
#include <cstring>

#include "Codecs/Primitives/JPEGDCT-inl.h"
#include "Codecs/Primitives/JPEGInverseDCT.h"

#ifndef VZK_JPEG_INVERSE_DCT_BASIS
#define VZK_JPEG_INVERSE_DCT_BASIS
namespace NmPrimitives::NmInverseDCTDetail {
// basis[r][u][x] = c(u) / 2 times the mean of cos((2i + 1) u pi / 16) over the
// full-size columns i that reduced column x covers, size = 8 >> r.
struct SmBasis {
  alignas(64) float table[4][8][8];
  SmBasis() {
    const double pi = std::acos(-1.0);
    for (int r = 0; r < 4; ++r) {
      const int size = 8 >> r;
      for (int u = 0; u < 8; ++u) {
        for (int x = 0; x < 8; ++x) {
          const double c = u == 0 ? std::sqrt(0.5) : 1.0;
          const int area = 8 / size;
          double mean = 0;
          for (int j = 0; j < area && x < size; ++j) {
            mean += std::cos((2 * (x * area + j) + 1) * u * pi / 16) / area;
          }
          table[r][u][x] = static_cast<float>(c / 2.0 * mean);
        }
      }
    }
  }
};
inline const SmBasis& Basis() {
  static const SmBasis basis;
  return basis;
}
} // namespace NmPrimitives::NmInverseDCTDetail
#endif

HWY_BEFORE_NAMESPACE();
namespace NmPrimitives {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

template <int kOut>
HWY_INLINE void InverseDCT(const int16_t* coefficients, const float* quant, uint8_t* out,
                           size_t stride, const float (*basis)[8]) {
  const hn::CappedTag<float, 8> df;
  const hn::Rebind<int32_t, decltype(df)> di32;
  const hn::Rebind<int16_t, decltype(df)> di16;
  const hn::CappedTag<float, kOut> dOut;
  const hn::Rebind<int32_t, decltype(dOut)> dOut32;
  const hn::Rebind<uint8_t, decltype(dOut)> dOut8;
  const size_t n = hn::Lanes(df);
  const size_t nOut = hn::Lanes(dOut);
  alignas(64) float middle[kOut * 8];
  alignas(64) float columnUsed[8] = {};
  // The DC term adds the same exact value to every sample; kept out of the
  // passes, where the irrational basis would blur the halves that decide
  // rounding of flat blocks.
  const float level = 128.5f + static_cast<float>(coefficients[0]) * quant[0] * 0.125f;
  // First pass: middle[y][u] = sum over v of basis[v][y] * F[v][u].
  for (size_t u0 = 0; u0 < 8; u0 += n) {
    hn::Vec<decltype(df)> rows[kOut];
    for (int y = 0; y < kOut; ++y) {
      rows[y] = hn::Zero(df);
    }
    auto used = hn::Zero(df);
    for (int v = 0; v < 8; ++v) {
      auto raw = hn::LoadU(di16, coefficients + v * 8 + u0);
      if (v == 0 && u0 == 0) {
        raw = hn::IfThenZeroElse(hn::FirstN(di16, 1), raw);
      }
      if (hn::AllTrue(di16, hn::Eq(raw, hn::Zero(di16)))) {
        continue;
      }
      const auto value =
          hn::Mul(hn::ConvertTo(df, hn::PromoteTo(di32, raw)), hn::LoadU(df, quant + v * 8 + u0));
      used = hn::Or(used, hn::Abs(value));
      for (int y = 0; y < kOut; ++y) {
        rows[y] = hn::MulAdd(hn::Set(df, basis[v][y]), value, rows[y]);
      }
    }
    for (int y = 0; y < kOut; ++y) {
      hn::StoreU(rows[y], df, middle + y * 8 + u0);
    }
    hn::StoreU(used, df, columnUsed + u0);
  }
  int lastColumn = -1;
  for (int u = 7; u >= 0; --u) {
    if (columnUsed[u] != 0.0f) {
      lastColumn = u;
      break;
    }
  }
  // Second pass: out[y][x] = sum over u of middle[y][u] * basis[u][x] + 128,
  // rounded half up like the reference (halves are common: DC terms are
  // multiples of 1/8).
  for (int y = 0; y < kOut; ++y) {
    for (size_t x0 = 0; x0 < static_cast<size_t>(kOut); x0 += nOut) {
      auto sum = hn::Set(dOut, level);
      for (int u = 0; u <= lastColumn; ++u) {
        sum = hn::MulAdd(hn::Set(dOut, middle[y * 8 + u]), hn::LoadU(dOut, basis[u] + x0), sum);
      }
      const auto rounded = hn::ConvertTo(dOut32, hn::Floor(sum));
      hn::StoreU(hn::DemoteTo(dOut8, rounded), dOut8, out + y * stride + x0);
    }
  }
}

HWY_INLINE uint8_t FlatSample(int16_t dc, int16_t quant) {
  // floor(dc q / 8 + 1/2) + 128, exactly.
  const int32_t level = (static_cast<int32_t>(dc) * quant + 4 + 8 * 128) >> 3;
  return static_cast<uint8_t>(level < 0 ? 0 : level > 255 ? 255 : level);
}

#if HWY_TARGET != HWY_SCALAR
// The full-size transform in 16-bit lanes, one block per 128 bits: rows of
// the block in the lanes of eight vectors. Products with the cosines go
// through pairwise multiply-adds into 32 bits (one instruction on x86), so
// each output of the one-dimensional transform costs two of them per pair of
// inputs. The 1-D transform is scaled by 2 sqrt(2), which gives the DC term
// weight 1: flat blocks stay exact, and the 2-D result is 8 times the sample.
// Constants carry 13 fraction bits; the first pass keeps 2 of them in its
// 16-bit results, which leaves room for every coefficient of a valid stream.
using namespace NmDCT;
constexpr int kMiddleBits = 2;
constexpr int kFirstShift = kConstantBits - kMiddleBits;
constexpr int kSecondShift = kConstantBits + kMiddleBits + 3;

// One half (lanes 0..3 or 4..7 of each block) of the 1-D transform of the
// vectors x[0..7], from the inputs interleaved in pairs (0, 4), (2, 6),
// (1, 3) and (5, 7).
template <int kShift, class D16, class D32>
HWY_INLINE void TransformHalf(D16 d16, D32 d32, hn::Vec<D16> p04, hn::Vec<D16> p26,
                              hn::Vec<D16> p13, hn::Vec<D16> p57, hn::Vec<D32> bias,
                              hn::Vec<D32>* out) {
  // Even part: the DC and 4 terms need no rotation, the 2 and 6 terms one.
  const auto a0 = hn::Add(MulPairs(d32, p04, PairConstant(d16, kK4, kK4)), bias);
  const auto a1 = hn::Add(MulPairs(d32, p04, PairConstant(d16, kK4, -kK4)), bias);
  const auto b0 = MulPairs(d32, p26, PairConstant(d16, kK2, kK6));
  const auto b1 = MulPairs(d32, p26, PairConstant(d16, kK6, -kK2));
  const auto e0 = hn::Add(a0, b0);
  const auto e3 = hn::Sub(a0, b0);
  const auto e1 = hn::Add(a1, b1);
  const auto e2 = hn::Sub(a1, b1);
  // Odd part: cos((2x + 1) u pi / 16) for odd u, folded onto k = 1, 3, 5, 7.
  const auto o0 = hn::Add(MulPairs(d32, p13, PairConstant(d16, kK1, kK3)),
                          MulPairs(d32, p57, PairConstant(d16, kK5, kK7)));
  const auto o1 = hn::Add(MulPairs(d32, p13, PairConstant(d16, kK3, -kK7)),
                          MulPairs(d32, p57, PairConstant(d16, -kK1, -kK5)));
  const auto o2 = hn::Add(MulPairs(d32, p13, PairConstant(d16, kK5, -kK1)),
                          MulPairs(d32, p57, PairConstant(d16, kK7, kK3)));
  const auto o3 = hn::Add(MulPairs(d32, p13, PairConstant(d16, kK7, -kK5)),
                          MulPairs(d32, p57, PairConstant(d16, kK3, -kK1)));
  out[0] = hn::ShiftRight<kShift>(hn::Add(e0, o0));
  out[7] = hn::ShiftRight<kShift>(hn::Sub(e0, o0));
  out[1] = hn::ShiftRight<kShift>(hn::Add(e1, o1));
  out[6] = hn::ShiftRight<kShift>(hn::Sub(e1, o1));
  out[2] = hn::ShiftRight<kShift>(hn::Add(e2, o2));
  out[5] = hn::ShiftRight<kShift>(hn::Sub(e2, o2));
  out[3] = hn::ShiftRight<kShift>(hn::Add(e3, o3));
  out[4] = hn::ShiftRight<kShift>(hn::Sub(e3, o3));
}

// The 1-D transform across the eight vectors, lane by lane; results are
// rounded (the bias holds the half) and saturated to 16 bits.
template <int kShift, class D16> HWY_INLINE void Transform(D16 d16, hn::Vec<D16>* x, int32_t bias) {
  const hn::Repartition<int32_t, D16> d32;
  const auto biasV = hn::Set(d32, bias);
  hn::Vec<decltype(d32)> lower[8];
  hn::Vec<decltype(d32)> upper[8];
  TransformHalf<kShift>(d16, d32, hn::InterleaveLower(d16, x[0], x[4]),
                        hn::InterleaveLower(d16, x[2], x[6]), hn::InterleaveLower(d16, x[1], x[3]),
                        hn::InterleaveLower(d16, x[5], x[7]), biasV, lower);
  TransformHalf<kShift>(d16, d32, hn::InterleaveUpper(d16, x[0], x[4]),
                        hn::InterleaveUpper(d16, x[2], x[6]), hn::InterleaveUpper(d16, x[1], x[3]),
                        hn::InterleaveUpper(d16, x[5], x[7]), biasV, upper);
  Repeat<8>([&](auto i) HWY_ATTR { x[i] = hn::ReorderDemote2To(d16, lower[i], upper[i]); });
}

// Row v of kGroup consecutive blocks, one block per 128 bits.
template <size_t kGroup, class D16>
HWY_INLINE hn::Vec<D16> LoadRows(D16 d16, const int16_t* HWY_RESTRICT blocks, int v) {
  if constexpr (kGroup == 1) {
    return hn::LoadU(d16, blocks + v * 8);
  } else {
    const hn::Half<D16> dh;
    return hn::Combine(d16, hn::LoadU(dh, blocks + 64 + v * 8), hn::LoadU(dh, blocks + v * 8));
  }
}

// kGroup blocks side by side.
template <size_t kGroup>
HWY_INLINE void InverseDCTGroup(const int16_t* HWY_RESTRICT blocks,
                                const int16_t* HWY_RESTRICT quantRows, uint8_t* out,
                                size_t stride) {
  const hn::FixedTag<int16_t, 8 * kGroup> d16;
  const hn::Rebind<uint8_t, decltype(d16)> d8;
  hn::Vec<decltype(d16)> x[8];
  Repeat<8>([&](auto v) HWY_ATTR { x[v] = LoadRows<kGroup>(d16, blocks, v); });
  // Blocks with nothing but a DC term, common after coarse quantisation,
  // are flat.
  const auto notDC = hn::Ne(hn::And(hn::Iota(d16, 0), hn::Set(d16, 7)), hn::Zero(d16));
  auto ac = hn::IfThenElseZero(notDC, x[0]);
  ac = hn::Or(hn::Or(hn::Or(ac, x[1]), hn::Or(x[2], x[3])),
              hn::Or(hn::Or(x[4], x[5]), hn::Or(x[6], x[7])));
  if (hn::AllTrue(d16, hn::Eq(ac, hn::Zero(d16)))) {
    for (size_t g = 0; g < kGroup; ++g) {
      const uint8_t level = FlatSample(blocks[64 * g], quantRows[0]);
      for (int y = 0; y < 8; ++y) {
        std::memset(out + y * stride + 8 * g, level, 8);
      }
    }
    return;
  }
  Repeat<8>([&](auto v)
                HWY_ATTR { x[v] = hn::Mul(x[v], hn::LoadU(d16, quantRows + v * 8 * kGroup)); });
  Transform<kFirstShift>(d16, x, 1 << (kFirstShift - 1));
  Transpose8x8(d16, x);
  // The level shift of 128 rides on the rounding bias.
  Transform<kSecondShift>(d16, x, (128 << kSecondShift) + (1 << (kSecondShift - 1)));
  Transpose8x8(d16, x);
  Repeat<8>([&](auto y) HWY_ATTR { hn::StoreU(hn::DemoteTo(d8, x[y]), d8, out + y * stride); });
}

void InverseDCTFullSize(const int16_t* blocks, size_t count, const int16_t* quant, uint8_t* out,
                        size_t stride) {
  constexpr size_t kGroup = HWY_MAX_BYTES >= 32 ? 2 : 1;
  // The table row by row, repeated for each block of a group.
  alignas(64) int16_t quantRows[64 * kGroup];
  for (int v = 0; v < 8; ++v) {
    for (size_t g = 0; g < kGroup; ++g) {
      std::memcpy(quantRows + (v * kGroup + g) * 8, quant + v * 8, 8 * sizeof(int16_t));
    }
  }
  size_t b = 0;
  for (; b + kGroup <= count; b += kGroup) {
    InverseDCTGroup<kGroup>(blocks + 64 * b, quantRows, out + 8 * b, stride);
  }
  if constexpr (kGroup > 1) {
    if (b < count) {
      alignas(16) int16_t single[64];
      for (int v = 0; v < 8; ++v) {
        std::memcpy(single + v * 8, quant + v * 8, 8 * sizeof(int16_t));
      }
      InverseDCTGroup<1>(blocks + 64 * b, single, out + 8 * b, stride);
    }
  }
}
#endif

void InverseDCTBlocksImpl(int reduction, const int16_t* blocks, size_t count, const int16_t* quant,
                          uint8_t* out, size_t stride) {
  if (reduction == 0) {
#if HWY_TARGET != HWY_SCALAR
    InverseDCTFullSize(blocks, count, quant, out, stride);
#else
    NmReference::JPEGInverseDCTBlocks(0, blocks, count, quant, out, stride);
#endif
    return;
  }
  if (reduction >= 3) {
    for (size_t b = 0; b < count; ++b) {
      out[b] = FlatSample(blocks[64 * b], quant[0]);
    }
    return;
  }
  alignas(64) float quantFloat[64];
  for (int i = 0; i < 64; ++i) {
    quantFloat[i] = quant[i];
  }
  const auto& basis = NmInverseDCTDetail::Basis().table;
  const size_t size = static_cast<size_t>(8 >> reduction);
  for (size_t b = 0; b < count; ++b) {
    if (reduction == 1) {
      InverseDCT<4>(blocks + 64 * b, quantFloat, out + size * b, stride, basis[1]);
    } else {
      InverseDCT<2>(blocks + 64 * b, quantFloat, out + size * b, stride, basis[2]);
    }
  }
}

} // namespace HWY_NAMESPACE
} // namespace NmPrimitives
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace NmPrimitives {

HWY_EXPORT(InverseDCTBlocksImpl);

void JPEGInverseDCTBlocks(int reduction, const int16_t* blocks, size_t count, const int16_t* quant,
                          uint8_t* out, size_t stride) {
  HWY_DYNAMIC_DISPATCH(InverseDCTBlocksImpl)(reduction, blocks, count, quant, out, stride);
}

} // namespace NmPrimitives
#endif
