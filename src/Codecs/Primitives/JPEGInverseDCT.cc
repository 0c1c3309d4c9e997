// Vector inverse DCT, compiled once per Highway target. Both passes are
// products with the basis matrix: the first runs down the columns with whole
// coefficient rows as vectors, the second multiplies each intermediate row
// with broadcast values, so no transposition is needed. Rows and columns
// that are all zero, the common case after quantisation, are skipped.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "Codecs/Primitives/JPEGInverseDCT.cc"
#include <hwy/foreach_target.h> // IWYU pragma: keep
#include <hwy/highway.h>

#include <cmath>

#include "Codecs/Primitives/JPEGInverseDCT.h"

#ifndef VZK_JPEG_INVERSE_DCT_BASIS
#define VZK_JPEG_INVERSE_DCT_BASIS
namespace NmPrimitives::NmInverseDCTDetail {
// basis[r][u][x] = c(u) / 2 times the mean of cos((2i + 1) u pi / 16) over the
// full-size columns i that reduced column x covers, size = 8 >> r.
struct SmBasis {
  alignas(64) float table[4][8][8];
  // Arai, Agui and Nakajima's factorisation wants its input scaled by
  // s(u) s(v) / 8 with s(0) = 1 and s(k) = sqrt(2) cos(k pi / 16).
  alignas(64) float aanScale[64];
  SmBasis() {
    const double pi = std::acos(-1.0);
    for (int v = 0; v < 8; ++v) {
      for (int u = 0; u < 8; ++u) {
        const double su = u == 0 ? 1.0 : std::sqrt(2.0) * std::cos(u * pi / 16);
        const double sv = v == 0 ? 1.0 : std::sqrt(2.0) * std::cos(v * pi / 16);
        aanScale[v * 8 + u] = static_cast<float>(su * sv / 8.0);
      }
    }
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

#if HWY_ARCH_X86 && HWY_TARGET <= HWY_AVX2
// The one-dimensional transform of eight vectors at once (each lane its own
// column), by the factorisation of Arai, Agui and Nakajima: 5 products and
// 29 sums instead of 64 products.
template <class V> HWY_INLINE void Butterfly(V* x) {
  using D = hn::DFromV<V>;
  const D d;
  const V sqrt2 = hn::Set(d, 1.414213562f);
  const V k1847 = hn::Set(d, 1.847759065f);
  const V k1082 = hn::Set(d, 1.082392200f);
  const V k2613 = hn::Set(d, 2.613125930f);
  // Even part.
  const V t10 = hn::Add(x[0], x[4]);
  const V t11 = hn::Sub(x[0], x[4]);
  const V t13 = hn::Add(x[2], x[6]);
  const V t12 = hn::Sub(hn::Mul(hn::Sub(x[2], x[6]), sqrt2), t13);
  const V e0 = hn::Add(t10, t13);
  const V e3 = hn::Sub(t10, t13);
  const V e1 = hn::Add(t11, t12);
  const V e2 = hn::Sub(t11, t12);
  // Odd part.
  const V z13 = hn::Add(x[5], x[3]);
  const V z10 = hn::Sub(x[5], x[3]);
  const V z11 = hn::Add(x[1], x[7]);
  const V z12 = hn::Sub(x[1], x[7]);
  const V o7 = hn::Add(z11, z13);
  const V o11 = hn::Mul(hn::Sub(z11, z13), sqrt2);
  const V z5 = hn::Mul(hn::Add(z10, z12), k1847);
  const V o10 = hn::NegMulAdd(z12, k1082, z5);
  const V o12 = hn::NegMulAdd(z10, k2613, z5);
  const V o6 = hn::Sub(o12, o7);
  const V o5 = hn::Sub(o11, o6);
  const V o4 = hn::Sub(o10, o5);
  x[0] = hn::Add(e0, o7);
  x[7] = hn::Sub(e0, o7);
  x[1] = hn::Add(e1, o6);
  x[6] = hn::Sub(e1, o6);
  x[2] = hn::Add(e2, o5);
  x[5] = hn::Sub(e2, o5);
  x[3] = hn::Add(e3, o4);
  x[4] = hn::Sub(e3, o4);
}

// 8 x 8 transposition of 256-bit vectors.
template <class D> HWY_INLINE void Transpose(D d, hn::Vec<D>* x) {
  const hn::Repartition<double, D> dd;
  hn::Vec<D> t[8];
  for (int i = 0; i < 8; i += 2) {
    t[i] = hn::InterleaveLower(d, x[i], x[i + 1]);
    t[i + 1] = hn::InterleaveUpper(d, x[i], x[i + 1]);
  }
  hn::Vec<D> u[8];
  for (int h = 0; h < 8; h += 4) {
    u[h + 0] =
        hn::BitCast(d, hn::InterleaveLower(dd, hn::BitCast(dd, t[h]), hn::BitCast(dd, t[h + 2])));
    u[h + 1] =
        hn::BitCast(d, hn::InterleaveUpper(dd, hn::BitCast(dd, t[h]), hn::BitCast(dd, t[h + 2])));
    u[h + 2] = hn::BitCast(
        d, hn::InterleaveLower(dd, hn::BitCast(dd, t[h + 1]), hn::BitCast(dd, t[h + 3])));
    u[h + 3] = hn::BitCast(
        d, hn::InterleaveUpper(dd, hn::BitCast(dd, t[h + 1]), hn::BitCast(dd, t[h + 3])));
  }
  for (int i = 0; i < 4; ++i) {
    x[i] = hn::ConcatLowerLower(d, u[i + 4], u[i]);
    x[i + 4] = hn::ConcatUpperUpper(d, u[i + 4], u[i]);
  }
}

HWY_INLINE void InverseDCTButterfly(const int16_t* coefficients, const float* quant, uint8_t* out,
                                    size_t stride) {
  const hn::FixedTag<float, 8> df;
  const hn::Rebind<int32_t, decltype(df)> di32;
  const hn::Rebind<int16_t, decltype(df)> di16;
  const hn::Rebind<uint8_t, decltype(df)> du8;
  const float* scale = NmInverseDCTDetail::Basis().aanScale;
  hn::Vec<decltype(df)> x[8];
  for (int v = 0; v < 8; ++v) {
    const auto raw = hn::LoadU(di16, coefficients + v * 8);
    x[v] = hn::Mul(hn::ConvertTo(df, hn::PromoteTo(di32, raw)),
                   hn::Mul(hn::LoadU(df, quant + v * 8), hn::Load(df, scale + v * 8)));
  }
  Butterfly(x); // down the columns
  Transpose(df, x);
  Butterfly(x); // along the rows, now lanes of the columns
  Transpose(df, x);
  const auto level = hn::Set(df, 128.5f);
  for (int y = 0; y < 8; ++y) {
    const auto rounded = hn::ConvertTo(di32, hn::Floor(hn::Add(x[y], level)));
    hn::StoreU(hn::DemoteTo(du8, rounded), du8, out + y * stride);
  }
}
#endif

void InverseDCTImpl(int reduction, const int16_t* coefficients, const float* quant, uint8_t* out,
                    size_t stride) {
  const auto& basis = NmInverseDCTDetail::Basis().table;
  switch (reduction) {
  case 0:
#if HWY_ARCH_X86 && HWY_TARGET <= HWY_AVX2
    InverseDCTButterfly(coefficients, quant, out, stride);
#else
    InverseDCT<8>(coefficients, quant, out, stride, basis[0]);
#endif
    break;
  case 1:
    InverseDCT<4>(coefficients, quant, out, stride, basis[1]);
    break;
  case 2:
    InverseDCT<2>(coefficients, quant, out, stride, basis[2]);
    break;
  default: {
    const float sum = std::floor(static_cast<float>(coefficients[0]) * quant[0] / 8.0f + 128.5f);
    out[0] = static_cast<uint8_t>(sum < 0 ? 0 : sum > 255 ? 255 : sum);
    break;
  }
  }
}

} // namespace HWY_NAMESPACE
} // namespace NmPrimitives
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace NmPrimitives {

HWY_EXPORT(InverseDCTImpl);

void JPEGInverseDCT(int reduction, const int16_t* coefficients, const float* quant, uint8_t* out,
                    size_t stride) {
  HWY_DYNAMIC_DISPATCH(InverseDCTImpl)(reduction, coefficients, quant, out, stride);
}

} // namespace NmPrimitives
#endif
