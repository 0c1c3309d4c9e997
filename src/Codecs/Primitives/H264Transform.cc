// The inverse transforms in 32-bit lanes, four at a time, compiled once per
// Highway target. The row pass needs the coefficients of a column side by
// side, so blocks are transposed in registers before each pass.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "Codecs/Primitives/H264Transform.cc"
#include <hwy/foreach_target.h> // IWYU pragma: keep
#include <hwy/highway.h>

#include "Codecs/Primitives/H264Transform.h"

HWY_BEFORE_NAMESPACE();
namespace NmPrimitives {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

#if HWY_TARGET != HWY_SCALAR
using D32 = hn::FixedTag<int32_t, 4>;
using V32 = hn::Vec<D32>;

// In place: v[k] lane l becomes the old v[l] lane k.
HWY_INLINE void Transpose4x4(V32& v0, V32& v1, V32& v2, V32& v3) {
  const D32 d;
  const hn::Repartition<int64_t, D32> d64;
  const V32 t0 = hn::InterleaveLower(d, v0, v1);
  const V32 t1 = hn::InterleaveLower(d, v2, v3);
  const V32 t2 = hn::InterleaveUpper(d, v0, v1);
  const V32 t3 = hn::InterleaveUpper(d, v2, v3);
  v0 = hn::BitCast(d, hn::InterleaveLower(d64, hn::BitCast(d64, t0), hn::BitCast(d64, t1)));
  v1 = hn::BitCast(d, hn::InterleaveUpper(d64, hn::BitCast(d64, t0), hn::BitCast(d64, t1)));
  v2 = hn::BitCast(d, hn::InterleaveLower(d64, hn::BitCast(d64, t2), hn::BitCast(d64, t3)));
  v3 = hn::BitCast(d, hn::InterleaveUpper(d64, hn::BitCast(d64, t2), hn::BitCast(d64, t3)));
}

// Adds (residual + 32) >> 6 to four samples, saturating to 0..255.
HWY_INLINE void AddRow(V32 residual, uint8_t* dst) {
  const D32 d;
  const hn::Rebind<uint8_t, D32> d8;
  const V32 rounded = hn::ShiftRight<6>(hn::Add(residual, hn::Set(d, 32)));
  const V32 sum = hn::Add(hn::PromoteTo(d, hn::LoadU(d8, dst)), rounded);
  hn::StoreU(hn::DemoteTo(d8, sum), d8, dst);
}

// One dimension of the 4x4 transform on four vectors.
HWY_INLINE void Transform4(V32& x0, V32& x1, V32& x2, V32& x3) {
  const V32 e = hn::Add(x0, x2), f = hn::Sub(x0, x2);
  const V32 g = hn::Sub(hn::ShiftRight<1>(x1), x3), k = hn::Add(x1, hn::ShiftRight<1>(x3));
  x0 = hn::Add(e, k);
  x1 = hn::Add(f, g);
  x2 = hn::Sub(f, g);
  x3 = hn::Sub(e, k);
}

// Both passes and the add, on the rows of a block.
HWY_INLINE void TransformAndAdd4x4(V32 r0, V32 r1, V32 r2, V32 r3, uint8_t* dst, ptrdiff_t stride) {
  // Rows: lanes hold the rows, vectors the columns.
  Transpose4x4(r0, r1, r2, r3);
  Transform4(r0, r1, r2, r3);
  // Columns: lanes hold the columns again.
  Transpose4x4(r0, r1, r2, r3);
  Transform4(r0, r1, r2, r3);
  AddRow(r0, dst);
  AddRow(r1, dst + stride);
  AddRow(r2, dst + 2 * stride);
  AddRow(r3, dst + 3 * stride);
}

void AddInverseTransform4x4Impl(const int32_t* c, uint8_t* dst, ptrdiff_t stride) {
  const D32 d;
  TransformAndAdd4x4(hn::LoadU(d, c), hn::LoadU(d, c + 4), hn::LoadU(d, c + 8),
                     hn::LoadU(d, c + 12), dst, stride);
}

// Byte shuffles that gather the sixteen 16-bit levels, two vectors in scan
// order, into raster order: [raster half][source half], 0x80 where the
// other half or nothing supplies the lane.
struct SmLevelGather {
  uint8_t bytes[2][2][16];
};

constexpr SmLevelGather MakeLevelGather(const uint8_t* scan, int first) {
  SmLevelGather gather{};
  for (auto& half : gather.bytes) {
    for (auto& source : half) {
      for (uint8_t& byte : source) {
        byte = 0x80;
      }
    }
  }
  for (int k = first; k < 16; ++k) {
    const int position = scan[k], source = k - first;
    uint8_t* bytes = gather.bytes[position / 8][source / 8] + 2 * (position % 8);
    bytes[0] = static_cast<uint8_t>(2 * (source % 8));
    bytes[1] = static_cast<uint8_t>(2 * (source % 8) + 1);
  }
  return gather;
}

// [field][AC only]
constexpr SmLevelGather LevelGathers[2][2] = {
    {MakeLevelGather(H264ZigZag4x4, 0), MakeLevelGather(H264ZigZag4x4, 1)},
    {MakeLevelGather(H264FieldScan4x4, 0), MakeLevelGather(H264FieldScan4x4, 1)}};

template <bool AcOnly>
HWY_INLINE void AddLevels(const int16_t* levels, int32_t dc, bool field, const int32_t* levelScale,
                          int qp, uint8_t* dst, ptrdiff_t stride) {
  const hn::FixedTag<int16_t, 8> d16;
  const hn::Repartition<uint8_t, decltype(d16)> d8;
  const hn::Half<decltype(d16)> d16h;
  const D32 d;
  const auto low = hn::LoadU(d16, levels), high = hn::LoadU(d16, levels + 8);
  const SmLevelGather& gather = LevelGathers[field ? 1 : 0][AcOnly ? 1 : 0];
  V32 rows[4];
  for (int half = 0; half < 2; ++half) {
    const auto fromLow = hn::BitCast(d16, hn::LoadU(d8, gather.bytes[half][0]));
    const auto fromHigh = hn::BitCast(d16, hn::LoadU(d8, gather.bytes[half][1]));
    const auto raster =
        hn::Or(hn::TableLookupBytesOr0(low, fromLow), hn::TableLookupBytesOr0(high, fromHigh));
    rows[2 * half] = hn::PromoteTo(d, hn::LowerHalf(d16h, raster));
    rows[2 * half + 1] = hn::PromoteTo(d, hn::UpperHalf(d16h, raster));
  }
  for (int i = 0; i < 4; ++i) {
    rows[i] = hn::Mul(rows[i], hn::LoadU(d, levelScale + 4 * i));
  }
  if (qp >= 24) {
    for (V32& row : rows) {
      row = hn::ShiftLeftSame(row, qp / 6 - 4);
    }
  } else {
    const V32 round = hn::Set(d, 1 << (3 - qp / 6));
    for (V32& row : rows) {
      row = hn::ShiftRightSame(hn::Add(row, round), 4 - qp / 6);
    }
  }
  if (AcOnly) {
    rows[0] = hn::IfThenElse(hn::FirstN(d, 1), hn::Set(d, dc), rows[0]);
  }
  TransformAndAdd4x4(rows[0], rows[1], rows[2], rows[3], dst, stride);
}

void AddLevels4x4Impl(const int16_t* levels, bool field, const int32_t* levelScale, int qp,
                      uint8_t* dst, ptrdiff_t stride) {
  AddLevels<false>(levels, 0, field, levelScale, qp, dst, stride);
}

void AddAcLevels4x4Impl(const int16_t* levels, int32_t dc, bool field, const int32_t* levelScale,
                        int qp, uint8_t* dst, ptrdiff_t stride) {
  AddLevels<true>(levels, dc, field, levelScale, qp, dst, stride);
}

// One dimension of the 8x8 transform on eight vectors.
HWY_INLINE void Transform8(V32* x) {
  const V32 a0 = hn::Add(x[0], x[4]), a4 = hn::Sub(x[0], x[4]);
  const V32 a2 = hn::Sub(hn::ShiftRight<1>(x[2]), x[6]);
  const V32 a6 = hn::Add(x[2], hn::ShiftRight<1>(x[6]));
  const V32 b0 = hn::Add(a0, a6), b2 = hn::Add(a4, a2), b4 = hn::Sub(a4, a2), b6 = hn::Sub(a0, a6);
  const V32 d1 = x[1], d3 = x[3], d5 = x[5], d7 = x[7];
  const V32 a1 = hn::Sub(hn::Sub(hn::Sub(d5, d3), d7), hn::ShiftRight<1>(d7));
  const V32 a3 = hn::Sub(hn::Sub(hn::Add(d1, d7), d3), hn::ShiftRight<1>(d3));
  const V32 a5 = hn::Add(hn::Add(hn::Sub(d7, d1), d5), hn::ShiftRight<1>(d5));
  const V32 a7 = hn::Add(hn::Add(hn::Add(d3, d5), d1), hn::ShiftRight<1>(d1));
  const V32 b1 = hn::Add(a1, hn::ShiftRight<2>(a7)), b7 = hn::Sub(a7, hn::ShiftRight<2>(a1));
  const V32 b3 = hn::Add(a3, hn::ShiftRight<2>(a5)), b5 = hn::Sub(hn::ShiftRight<2>(a3), a5);
  x[0] = hn::Add(b0, b7);
  x[1] = hn::Add(b2, b5);
  x[2] = hn::Add(b4, b3);
  x[3] = hn::Add(b6, b1);
  x[4] = hn::Sub(b6, b1);
  x[5] = hn::Sub(b4, b3);
  x[6] = hn::Sub(b2, b5);
  x[7] = hn::Sub(b0, b7);
}

// An 8x8 block as two halves of four lanes: v[half][k]. Transposing swaps the
// off-diagonal 4x4 quarters and transposes each.
HWY_INLINE void Transpose8x8(V32 (&v)[2][8]) {
  Transpose4x4(v[0][0], v[0][1], v[0][2], v[0][3]);
  Transpose4x4(v[1][4], v[1][5], v[1][6], v[1][7]);
  Transpose4x4(v[1][0], v[1][1], v[1][2], v[1][3]);
  Transpose4x4(v[0][4], v[0][5], v[0][6], v[0][7]);
  for (int k = 0; k < 4; ++k) {
    const V32 t = v[1][k];
    v[1][k] = v[0][4 + k];
    v[0][4 + k] = t;
  }
}

void AddInverseTransform8x8Impl(const int32_t* c, uint8_t* dst, ptrdiff_t stride) {
  const D32 d;
  // v[h][i]: row i, columns 4h .. 4h + 3.
  V32 v[2][8];
  for (int i = 0; i < 8; ++i) {
    v[0][i] = hn::LoadU(d, c + 8 * i);
    v[1][i] = hn::LoadU(d, c + 8 * i + 4);
  }
  // Now v[h][j]: column j, rows 4h .. 4h + 3, so the row pass is lane-wise.
  Transpose8x8(v);
  Transform8(v[0]);
  Transform8(v[1]);
  Transpose8x8(v);
  Transform8(v[0]);
  Transform8(v[1]);
  for (int i = 0; i < 8; ++i) {
    AddRow(v[0][i], dst + i * stride);
    AddRow(v[1][i], dst + i * stride + 4);
  }
}

template <int Size> void AddDc(int32_t dc, uint8_t* dst, ptrdiff_t stride) {
  const hn::FixedTag<int16_t, Size> d16;
  const hn::Rebind<uint8_t, decltype(d16)> d8;
  // The clip makes any value beyond +-255 act like +-255, which also fits
  // the 16-bit lanes.
  const int32_t add = (dc + 32) >> 6;
  const auto offset = hn::Set(d16, static_cast<int16_t>(add < -255 ? -255 : add > 255 ? 255 : add));
  for (int i = 0; i < Size; ++i) {
    uint8_t* row = dst + i * stride;
    const auto sum = hn::Add(
        hn::BitCast(d16, hn::PromoteTo(hn::RebindToUnsigned<decltype(d16)>(), hn::LoadU(d8, row))),
        offset);
    hn::StoreU(hn::DemoteTo(d8, sum), d8, row);
  }
}

void AddDc4x4Impl(int32_t dc, uint8_t* dst, ptrdiff_t stride) {
  AddDc<4>(dc, dst, stride);
}

void AddDc8x8Impl(int32_t dc, uint8_t* dst, ptrdiff_t stride) {
  AddDc<8>(dc, dst, stride);
}

#else
// One lane a vector gains nothing: the scalar target runs the plain loops.
void AddInverseTransform4x4Impl(const int32_t* c, uint8_t* dst, ptrdiff_t stride) {
  NmReference::H264AddInverseTransform4x4(c, dst, stride);
}
void AddInverseTransform8x8Impl(const int32_t* c, uint8_t* dst, ptrdiff_t stride) {
  NmReference::H264AddInverseTransform8x8(c, dst, stride);
}
void AddDc4x4Impl(int32_t dc, uint8_t* dst, ptrdiff_t stride) {
  NmReference::H264AddDc4x4(dc, dst, stride);
}
void AddLevels4x4Impl(const int16_t* levels, bool field, const int32_t* levelScale, int qp,
                      uint8_t* dst, ptrdiff_t stride) {
  NmReference::H264AddLevels4x4(levels, field, levelScale, qp, dst, stride);
}
void AddAcLevels4x4Impl(const int16_t* levels, int32_t dc, bool field, const int32_t* levelScale,
                        int qp, uint8_t* dst, ptrdiff_t stride) {
  NmReference::H264AddAcLevels4x4(levels, dc, field, levelScale, qp, dst, stride);
}
void AddDc8x8Impl(int32_t dc, uint8_t* dst, ptrdiff_t stride) {
  NmReference::H264AddDc8x8(dc, dst, stride);
}
#endif

} // namespace HWY_NAMESPACE
} // namespace NmPrimitives
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace NmPrimitives {

HWY_EXPORT(AddInverseTransform4x4Impl);
HWY_EXPORT(AddInverseTransform8x8Impl);
HWY_EXPORT(AddDc4x4Impl);
HWY_EXPORT(AddDc8x8Impl);
HWY_EXPORT(AddLevels4x4Impl);
HWY_EXPORT(AddAcLevels4x4Impl);

void H264AddLevels4x4(const int16_t* levels, bool field, const int32_t* levelScale, int qp,
                      uint8_t* dst, ptrdiff_t stride) {
  HWY_DYNAMIC_DISPATCH(AddLevels4x4Impl)(levels, field, levelScale, qp, dst, stride);
}

void H264AddAcLevels4x4(const int16_t* levels, int32_t dc, bool field, const int32_t* levelScale,
                        int qp, uint8_t* dst, ptrdiff_t stride) {
  HWY_DYNAMIC_DISPATCH(AddAcLevels4x4Impl)(levels, dc, field, levelScale, qp, dst, stride);
}

void H264AddInverseTransform4x4(const int32_t* coefficients, uint8_t* dst, ptrdiff_t stride) {
  HWY_DYNAMIC_DISPATCH(AddInverseTransform4x4Impl)(coefficients, dst, stride);
}

void H264AddInverseTransform8x8(const int32_t* coefficients, uint8_t* dst, ptrdiff_t stride) {
  HWY_DYNAMIC_DISPATCH(AddInverseTransform8x8Impl)(coefficients, dst, stride);
}

void H264AddDc4x4(int32_t dc, uint8_t* dst, ptrdiff_t stride) {
  HWY_DYNAMIC_DISPATCH(AddDc4x4Impl)(dc, dst, stride);
}

void H264AddDc8x8(int32_t dc, uint8_t* dst, ptrdiff_t stride) {
  HWY_DYNAMIC_DISPATCH(AddDc8x8Impl)(dc, dst, stride);
}

} // namespace NmPrimitives
#endif
