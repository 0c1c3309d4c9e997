// Vector forms, compiled once per Highway target. Both passes of the DCT are
// sums of vectors scaled by broadcast scalars, so no transposition is needed:
// the column pass scales sample rows by basis entries, the row pass scales
// basis rows by the column pass's results. Vectors hold up to 8 floats; wider
// targets are capped and narrower ones take a row in pieces.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "Codecs/Primitives/JPEGForwardDCT.cc"
#include <hwy/foreach_target.h> // IWYU pragma: keep
#include <hwy/highway.h>

#include "Codecs/Primitives/JPEGForwardDCT.h"

HWY_BEFORE_NAMESPACE();
namespace NmPrimitives {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

void ForwardDCT8x8BlocksImpl(const uint8_t* samples, size_t stride, size_t blocks,
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

} // namespace HWY_NAMESPACE
} // namespace NmPrimitives
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace NmPrimitives {
HWY_EXPORT(ForwardDCT8x8BlocksImpl);
HWY_EXPORT(QuantizeBlocksImpl);

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
