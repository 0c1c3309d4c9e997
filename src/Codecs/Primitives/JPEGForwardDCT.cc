// Vector forms, compiled once per Highway target. Where a vector holds a
// whole row of 8 floats, the DCT runs on the rows of a block as vectors: the
// column pass is a butterfly across them, a transposition turns the block,
// the row pass is the same butterfly, and a second transposition restores the
// order. Narrower targets use the matrix form, whose passes are sums of
// vectors scaled by broadcast scalars and need no transposition.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "Codecs/Primitives/JPEGForwardDCT.cc"
#include <hwy/foreach_target.h> // IWYU pragma: keep
#include <hwy/highway.h>

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
void ForwardDCTQuantizeBlocksEight(const uint8_t* samples, size_t stride, size_t blocks,
                                   const float reciprocals[64], int16_t* quantized) {
  const D8 df;
  const hn::Rebind<int32_t, D8> di;
  const hn::Rebind<uint8_t, D8> du8;
  const hn::Rebind<int16_t, D8> d16;
  const V8 shift = hn::Set(df, 128.0f);
  const V8 low = hn::Set(df, -32768.0f);
  const V8 high = hn::Set(df, 32767.0f);
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
      V8 v = hn::Mul(rows[k], hn::LoadU(df, reciprocals + k * 8));
      v = hn::Min(hn::Max(v, low), high);
      hn::StoreU(hn::DemoteTo(d16, hn::NearestInt(v)), d16, quantized + b * 64 + k * 8);
    }
  }
}
#endif

void QuantizeBlocksImpl(const float* coefficients, size_t blocks, const float reciprocals[64],
                        int16_t* quantized);

void ForwardDCTQuantizeBlocksImpl(const uint8_t* samples, size_t stride, size_t blocks,
                                  const float reciprocals[64], int16_t* quantized) {
#ifdef VZK_DCT_EIGHT_LANES
  ForwardDCTQuantizeBlocksEight(samples, stride, blocks, reciprocals, quantized);
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
