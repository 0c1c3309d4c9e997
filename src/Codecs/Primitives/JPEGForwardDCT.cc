// Vector forms, compiled once per Highway target. The encoder's fused
// transform and quantisation works in 16-bit fixed point on groups of blocks.
// The float transform: where a vector holds a whole row of 8 floats, the DCT
// runs on the rows of a block as vectors: the column pass is a butterfly
// across them, a transposition turns the block, the row pass is the same
// butterfly, and a second transposition restores the order. Narrower targets
// use the matrix form, whose passes are sums of vectors scaled by broadcast
// scalars and need no transposition.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "Codecs/Primitives/JPEGForwardDCT.cc"
#include <hwy/foreach_target.h> // IWYU pragma: keep
#include <hwy/highway.h>

#include "Codecs/Primitives/JPEGDCT-inl.h"
#include "Codecs/Primitives/JPEGForwardDCT.h"

HWY_BEFORE_NAMESPACE();
namespace NmPrimitives {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

// The matrix form: any vector width.
void ForwardDCT8x8BlocksMatrix(const uint8_t* samples, size_t stride, size_t blocks,
                               float* coefficients) {
  const hn::CappedTag<float, 8> df;
  const hn::Rebind<int32_t, decltype(df)> di;
  const hn::Rebind<uint8_t, decltype(df)> du8;
  const size_t n = hn::Lanes(df);
  // The basis transposed, for the row pass: T[x][u] = M[u][x].
  HWY_ALIGN float transposed[64];
  for (int x = 0; x < 8; ++x) {
    for (int u = 0; u < 8; ++u) {
      transposed[x * 8 + u] = kForwardDCTMatrix[u * 8 + x];
    }
  }
  const auto shift = hn::Set(df, 128.0f);
  for (size_t b = 0; b < blocks; ++b) {
    HWY_ALIGN float columns[64];
    const uint8_t* block = samples + b * 8;
    for (size_t x0 = 0; x0 < 8; x0 += n) {
      hn::Vec<decltype(df)> rows[8];
      for (int y = 0; y < 8; ++y) {
        const auto wide = hn::PromoteTo(di, hn::LoadU(du8, block + y * stride + x0));
        rows[y] = hn::Sub(hn::ConvertTo(df, wide), shift);
      }
      for (int k = 0; k < 8; ++k) {
        auto sum = hn::Mul(hn::Set(df, kForwardDCTMatrix[k * 8]), rows[0]);
        for (int y = 1; y < 8; ++y) {
          sum = hn::MulAdd(hn::Set(df, kForwardDCTMatrix[k * 8 + y]), rows[y], sum);
        }
        hn::Store(sum, df, columns + k * 8 + x0);
      }
    }
    float* out = coefficients + b * 64;
    for (size_t u0 = 0; u0 < 8; u0 += n) {
      hn::Vec<decltype(df)> basis[8];
      for (int x = 0; x < 8; ++x) {
        basis[x] = hn::Load(df, transposed + x * 8 + u0);
      }
      for (int k = 0; k < 8; ++k) {
        auto sum = hn::Mul(hn::Set(df, columns[k * 8]), basis[0]);
        for (int x = 1; x < 8; ++x) {
          sum = hn::MulAdd(hn::Set(df, columns[k * 8 + x]), basis[x], sum);
        }
        hn::StoreU(sum, df, out + k * 8 + u0);
      }
    }
  }
}

#if HWY_TARGET == HWY_AVX2 || HWY_TARGET == HWY_AVX3 || HWY_TARGET == HWY_AVX3_DL
#define VZK_DCT_EIGHT_LANES 1
using D8 = hn::CappedTag<float, 8>;
using V8 = hn::Vec<D8>;

// Rows become columns. Interleaving works within 128-bit halves, so the
// last step swaps halves between vectors.
HWY_INLINE void Transpose8x8(V8 (&r)[8]) {
  const D8 d;
  const hn::Repartition<double, D8> dd;
  V8 t[8];
  HWY_UNROLL(8)
  for (int i = 0; i < 4; ++i) {
    t[2 * i] = hn::InterleaveLower(d, r[2 * i], r[2 * i + 1]);
    t[2 * i + 1] = hn::InterleaveUpper(d, r[2 * i], r[2 * i + 1]);
  }
  V8 s[8];
  HWY_UNROLL(8)
  for (int i = 0; i < 2; ++i) {
    const V8 a = t[4 * i];
    const V8 b = t[4 * i + 1];
    const V8 c = t[4 * i + 2];
    const V8 e = t[4 * i + 3];
    s[4 * i] = hn::BitCast(d, hn::InterleaveLower(dd, hn::BitCast(dd, a), hn::BitCast(dd, c)));
    s[4 * i + 1] = hn::BitCast(d, hn::InterleaveUpper(dd, hn::BitCast(dd, a), hn::BitCast(dd, c)));
    s[4 * i + 2] = hn::BitCast(d, hn::InterleaveLower(dd, hn::BitCast(dd, b), hn::BitCast(dd, e)));
    s[4 * i + 3] = hn::BitCast(d, hn::InterleaveUpper(dd, hn::BitCast(dd, b), hn::BitCast(dd, e)));
  }
  HWY_UNROLL(8)
  for (int i = 0; i < 4; ++i) {
    r[i] = hn::ConcatLowerLower(d, s[4 + i], s[i]);
    r[i + 4] = hn::ConcatUpperUpper(d, s[4 + i], s[i]);
  }
}

// One 8-point DCT across the eight vectors, lane by lane: sums and
// differences of mirrored inputs split it into an even and an odd half.
HWY_INLINE void DCT8(V8 (&x)[8]) {
  const D8 d;
  const float* m = kForwardDCTMatrix;
  const V8 s0 = hn::Add(x[0], x[7]), d0 = hn::Sub(x[0], x[7]);
  const V8 s1 = hn::Add(x[1], x[6]), d1 = hn::Sub(x[1], x[6]);
  const V8 s2 = hn::Add(x[2], x[5]), d2 = hn::Sub(x[2], x[5]);
  const V8 s3 = hn::Add(x[3], x[4]), d3 = hn::Sub(x[3], x[4]);
  const V8 e0 = hn::Add(s0, s3), e1 = hn::Add(s1, s2);
  const V8 e2 = hn::Sub(s0, s3), e3 = hn::Sub(s1, s2);
  x[0] = hn::Mul(hn::Add(e0, e1), hn::Set(d, m[0]));
  x[4] = hn::Mul(hn::Sub(e0, e1), hn::Set(d, m[32]));
  x[2] = hn::MulAdd(e3, hn::Set(d, m[17]), hn::Mul(e2, hn::Set(d, m[16])));
  x[6] = hn::MulAdd(e3, hn::Set(d, m[49]), hn::Mul(e2, hn::Set(d, m[48])));
  HWY_UNROLL(8)
  for (int k = 1; k < 8; k += 2) {
    V8 sum = hn::Mul(d0, hn::Set(d, m[k * 8]));
    sum = hn::MulAdd(d1, hn::Set(d, m[k * 8 + 1]), sum);
    sum = hn::MulAdd(d2, hn::Set(d, m[k * 8 + 2]), sum);
    x[k] = hn::MulAdd(d3, hn::Set(d, m[k * 8 + 3]), sum);
  }
}

void ForwardDCT8x8BlocksEight(const uint8_t* samples, size_t stride, size_t blocks,
                              float* coefficients) {
  const D8 df;
  const hn::Rebind<int32_t, D8> di;
  const hn::Rebind<uint8_t, D8> du8;
  const V8 shift = hn::Set(df, 128.0f);
  for (size_t b = 0; b < blocks; ++b) {
    V8 rows[8];
    HWY_UNROLL(8)
    for (int y = 0; y < 8; ++y) {
      const auto wide = hn::PromoteTo(di, hn::LoadU(du8, samples + y * stride + b * 8));
      rows[y] = hn::Sub(hn::ConvertTo(df, wide), shift);
    }
    DCT8(rows);
    Transpose8x8(rows);
    DCT8(rows);
    Transpose8x8(rows);
    HWY_UNROLL(8)
    for (int k = 0; k < 8; ++k) {
      hn::StoreU(rows[k], df, coefficients + b * 64 + k * 8);
    }
  }
}
#endif

#if HWY_TARGET != HWY_SCALAR
// Transform and quantisation in 16-bit fixed point, one block per 128 bits:
// the inverse transform's scheme run backwards. Sums and differences of
// mirrored inputs split each 1-D transform into an even and an odd half, and
// pairwise multiply-adds give every output from pairs of those. The first
// pass keeps 2 fraction bits in 16 bits; the second leaves 32-bit results of
// 2^18 times the coefficient, which quantisation scales in float, where
// rounding to nearest is one instruction.
namespace NmFixed {
using namespace NmDCT;
constexpr int kMiddleBits = 2;
constexpr int kFirstShift = kConstantBits - kMiddleBits;
constexpr int kResultBits = kConstantBits + kMiddleBits + 3;

// The 1-D transform across x[0..7], lane by lane, as 32-bit halves: lower[u]
// holds lanes 0..3 of each block, upper[u] lanes 4..7.
template <class D16, class D32>
HWY_INLINE void Transform(D16 d16, D32 d32, const hn::Vec<D16>* x, hn::Vec<D32>* lower,
                          hn::Vec<D32>* upper) {
  const auto s07 = hn::Add(x[0], x[7]);
  const auto s16 = hn::Add(x[1], x[6]);
  const auto s25 = hn::Add(x[2], x[5]);
  const auto s34 = hn::Add(x[3], x[4]);
  const auto d07 = hn::Sub(x[0], x[7]);
  const auto d16v = hn::Sub(x[1], x[6]);
  const auto d25 = hn::Sub(x[2], x[5]);
  const auto d34 = hn::Sub(x[3], x[4]);
  const auto a03 = hn::Add(s07, s34);
  const auto a12 = hn::Add(s16, s25);
  const auto e03 = hn::Sub(s07, s34);
  const auto e12 = hn::Sub(s16, s25);
  auto half = [&](hn::Vec<D16> pa, hn::Vec<D16> pe, hn::Vec<D16> p01, hn::Vec<D16> p23,
                  hn::Vec<D32>* out) HWY_ATTR {
    out[0] = MulPairs(d32, pa, PairConstant(d16, kK4, kK4));
    out[4] = MulPairs(d32, pa, PairConstant(d16, kK4, -kK4));
    out[2] = MulPairs(d32, pe, PairConstant(d16, kK2, kK6));
    out[6] = MulPairs(d32, pe, PairConstant(d16, kK6, -kK2));
    out[1] = hn::Add(MulPairs(d32, p01, PairConstant(d16, kK1, kK3)),
                     MulPairs(d32, p23, PairConstant(d16, kK5, kK7)));
    out[3] = hn::Add(MulPairs(d32, p01, PairConstant(d16, kK3, -kK7)),
                     MulPairs(d32, p23, PairConstant(d16, -kK1, -kK5)));
    out[5] = hn::Add(MulPairs(d32, p01, PairConstant(d16, kK5, -kK1)),
                     MulPairs(d32, p23, PairConstant(d16, kK7, kK3)));
    out[7] = hn::Add(MulPairs(d32, p01, PairConstant(d16, kK7, -kK5)),
                     MulPairs(d32, p23, PairConstant(d16, kK3, -kK1)));
  };
  half(hn::InterleaveLower(d16, a03, a12), hn::InterleaveLower(d16, e03, e12),
       hn::InterleaveLower(d16, d07, d16v), hn::InterleaveLower(d16, d25, d34), lower);
  half(hn::InterleaveUpper(d16, a03, a12), hn::InterleaveUpper(d16, e03, e12),
       hn::InterleaveUpper(d16, d07, d16v), hn::InterleaveUpper(d16, d25, d34), upper);
}

template <size_t kGroup>
HWY_INLINE void ForwardGroup(const uint8_t* HWY_RESTRICT samples, size_t stride,
                             const float* HWY_RESTRICT scales, int16_t* HWY_RESTRICT out) {
  const hn::FixedTag<int16_t, 8 * kGroup> d16;
  const hn::Repartition<int32_t, decltype(d16)> d32;
  const hn::Repartition<float, decltype(d16)> df;
  const hn::Rebind<uint8_t, decltype(d16)> d8;
  const size_t n32 = hn::Lanes(d32);
  hn::Vec<decltype(d16)> x[8];
  const auto level = hn::Set(d16, 128);
  Repeat<8>([&](auto y) HWY_ATTR {
    x[y] = hn::Sub(hn::BitCast(d16, hn::PromoteTo(hn::RebindToUnsigned<decltype(d16)>(),
                                                  hn::LoadU(d8, samples + y * stride))),
                   level);
  });
  hn::Vec<decltype(d32)> lower[8];
  hn::Vec<decltype(d32)> upper[8];
  // Down the columns, back to 16 bits with the fraction bits kept.
  Transform(d16, d32, x, lower, upper);
  const auto bias = hn::Set(d32, 1 << (kFirstShift - 1));
  Repeat<8>([&](auto i) HWY_ATTR {
    x[i] = hn::ReorderDemote2To(d16, hn::ShiftRight<kFirstShift>(hn::Add(lower[i], bias)),
                                hn::ShiftRight<kFirstShift>(hn::Add(upper[i], bias)));
  });
  Transpose8x8(d16, x);
  // Along the rows; vector u now holds coefficients (v, u) in lanes v.
  Transform(d16, d32, x, lower, upper);
  Repeat<8>([&](auto u) HWY_ATTR {
    const auto low =
        hn::NearestInt(hn::Mul(hn::ConvertTo(df, lower[u]), hn::Load(df, scales + (2 * u) * n32)));
    const auto high = hn::NearestInt(
        hn::Mul(hn::ConvertTo(df, upper[u]), hn::Load(df, scales + (2 * u + 1) * n32)));
    x[u] = hn::ReorderDemote2To(d16, low, high);
  });
  Transpose8x8(d16, x);
  Repeat<8>([&](auto v) HWY_ATTR {
    if constexpr (kGroup == 1) {
      hn::StoreU(x[v], d16, out + v * 8);
    } else if constexpr (kGroup == 2) {
      const hn::Half<decltype(d16)> dh;
      hn::StoreU(hn::LowerHalf(dh, x[v]), dh, out + v * 8);
      hn::StoreU(hn::UpperHalf(dh, x[v]), dh, out + 64 + v * 8);
    } else {
      const hn::Half<decltype(d16)> dh;
      const hn::Half<decltype(dh)> dq;
      const auto lower = hn::LowerHalf(dh, x[v]);
      const auto upper = hn::UpperHalf(dh, x[v]);
      hn::StoreU(hn::LowerHalf(dq, lower), dq, out + v * 8);
      hn::StoreU(hn::UpperHalf(dq, lower), dq, out + 64 + v * 8);
      hn::StoreU(hn::LowerHalf(dq, upper), dq, out + 128 + v * 8);
      hn::StoreU(hn::UpperHalf(dq, upper), dq, out + 192 + v * 8);
    }
  });
}

// The reciprocals in the order of the second pass's halves, with the 2^-18
// of its results folded in.
template <size_t kGroup> void MakeScales(const float reciprocals[64], float* scales) {
  constexpr size_t kLanes = 4 * kGroup;
  for (int u = 0; u < 8; ++u) {
    for (int h = 0; h < 2; ++h) {
      for (size_t g = 0; g < kGroup; ++g) {
        for (int j = 0; j < 4; ++j) {
          scales[(2 * u + h) * kLanes + g * 4 + j] =
              reciprocals[(4 * h + j) * 8 + u] / static_cast<float>(1 << kResultBits);
        }
      }
    }
  }
}

void ForwardDCTQuantizeFixed(const uint8_t* samples, size_t stride, size_t blocks,
                             const float reciprocals[64], int16_t* quantized) {
  // As many blocks side by side as 128-bit blocks fit a vector.
  constexpr size_t kGroup = HWY_MAX_BYTES >= 64 ? 4 : HWY_MAX_BYTES >= 32 ? 2 : 1;
  HWY_ALIGN float scales[64 * kGroup];
  MakeScales<kGroup>(reciprocals, scales);
  size_t b = 0;
  for (; b + kGroup <= blocks; b += kGroup) {
    ForwardGroup<kGroup>(samples + 8 * b, stride, scales, quantized + 64 * b);
  }
  if constexpr (kGroup > 1) {
    if (b < blocks) {
      HWY_ALIGN float single[64];
      MakeScales<1>(reciprocals, single);
      for (; b < blocks; ++b) {
        ForwardGroup<1>(samples + 8 * b, stride, single, quantized + 64 * b);
      }
    }
  }
}
} // namespace NmFixed
#endif

void QuantizeBlocksImpl(const float* coefficients, size_t blocks, const float reciprocals[64],
                        int16_t* quantized);

void ForwardDCTQuantizeBlocksImpl(const uint8_t* samples, size_t stride, size_t blocks,
                                  const float reciprocals[64], int16_t* quantized) {
#if HWY_TARGET != HWY_SCALAR
  NmFixed::ForwardDCTQuantizeFixed(samples, stride, blocks, reciprocals, quantized);
#else
  for (size_t b = 0; b < blocks; ++b) {
    HWY_ALIGN float coefficients[64];
    ForwardDCT8x8BlocksMatrix(samples + b * 8, stride, 1, coefficients);
    QuantizeBlocksImpl(coefficients, 1, reciprocals, quantized + b * 64);
  }
#endif
}

void ForwardDCT8x8BlocksImpl(const uint8_t* samples, size_t stride, size_t blocks,
                             float* coefficients) {
#ifdef VZK_DCT_EIGHT_LANES
  ForwardDCT8x8BlocksEight(samples, stride, blocks, coefficients);
#else
  ForwardDCT8x8BlocksMatrix(samples, stride, blocks, coefficients);
#endif
}

void QuantizeBlocksImpl(const float* coefficients, size_t blocks, const float reciprocals[64],
                        int16_t* quantized) {
  const hn::CappedTag<float, 16> df;
  const hn::Rebind<int16_t, decltype(df)> d16;
  const size_t n = hn::Lanes(df);
  const auto low = hn::Set(df, -32768.0f);
  const auto high = hn::Set(df, 32767.0f);
  for (size_t b = 0; b < blocks; ++b) {
    const float* in = coefficients + b * 64;
    int16_t* out = quantized + b * 64;
    for (size_t i = 0; i < 64; i += n) {
      auto v = hn::Mul(hn::LoadU(df, in + i), hn::LoadU(df, reciprocals + i));
      v = hn::Min(hn::Max(v, low), high);
      hn::StoreU(hn::DemoteTo(d16, hn::NearestInt(v)), d16, out + i);
    }
  }
}

#undef VZK_DCT_EIGHT_LANES
} // namespace HWY_NAMESPACE
} // namespace NmPrimitives
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace NmPrimitives {
HWY_EXPORT(ForwardDCT8x8BlocksImpl);
HWY_EXPORT(QuantizeBlocksImpl);
HWY_EXPORT(ForwardDCTQuantizeBlocksImpl);

void ForwardDCTQuantizeBlocks(const uint8_t* samples, size_t stride, size_t blocks,
                              const float reciprocals[64], int16_t* quantized) {
  HWY_DYNAMIC_DISPATCH(ForwardDCTQuantizeBlocksImpl)
  (samples, stride, blocks, reciprocals, quantized);
}

void ForwardDCT8x8Blocks(const uint8_t* samples, size_t stride, size_t blocks,
                         float* coefficients) {
  HWY_DYNAMIC_DISPATCH(ForwardDCT8x8BlocksImpl)(samples, stride, blocks, coefficients);
}

void QuantizeBlocks(const float* coefficients, size_t blocks, const float reciprocals[64],
                    int16_t* quantized) {
  HWY_DYNAMIC_DISPATCH(QuantizeBlocksImpl)(coefficients, blocks, reciprocals, quantized);
}

} // namespace NmPrimitives
#endif
