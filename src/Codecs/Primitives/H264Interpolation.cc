// Luma and chroma interpolation in 16-bit lanes, compiled once per Highway
// target. A six-tap sum of 8-bit samples lies in -2550 .. 10710 and fits;
// the centre position filters such sums again and needs 32 bits.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "Codecs/Primitives/H264Interpolation.cc"
#include <hwy/foreach_target.h> // IWYU pragma: keep
#include <hwy/highway.h>

#include <cstring>
#include <utility>

#include "Codecs/Primitives/H264Interpolation.h"

HWY_BEFORE_NAMESPACE();
namespace NmPrimitives {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

#if HWY_TARGET != HWY_SCALAR
// What a quarter-sample position averages: whole samples, the horizontal or
// vertical half-sample values, or the centre; each at an offset of a column
// or a row.
enum SmPlane { Whole, Horizontal, Vertical, Centre, Nothing };

template <class D16> HWY_INLINE hn::Vec<D16> LoadWide(D16 d16, const uint8_t* p) {
  const hn::Rebind<uint8_t, D16> d8;
  return hn::BitCast(d16, hn::PromoteTo(hn::RebindToUnsigned<D16>(), hn::LoadU(d8, p)));
}

// (a + f) - 5 (b + e) + 20 (c + d) over six samples `step` apart from p - 2 step.
template <class D16> HWY_INLINE hn::Vec<D16> SixTap(D16 d16, const uint8_t* p, ptrdiff_t step) {
  const auto outer = hn::Add(LoadWide(d16, p - 2 * step), LoadWide(d16, p + 3 * step));
  const auto inner = hn::Add(LoadWide(d16, p - step), LoadWide(d16, p + 2 * step));
  const auto centre = hn::Add(LoadWide(d16, p), LoadWide(d16, p + step));
  return hn::Add(hn::Sub(outer, hn::Mul(inner, hn::Set(d16, 5))),
                 hn::Mul(centre, hn::Set(d16, 20)));
}

// The half-sample value: (sum + 16) >> 5, clipped by the saturating narrowing.
template <class D16> HWY_INLINE auto HalfSample(D16 d16, const uint8_t* p, ptrdiff_t step) {
  const hn::Rebind<uint8_t, D16> d8;
  return hn::DemoteTo(d8, hn::ShiftRight<5>(hn::Add(SixTap(d16, p, step), hn::Set(d16, 16))));
}

constexpr int MostBlock = 16;

// The centre values j of the whole block into `out` (MostBlock a row): six-tap
// sums of rows -2 .. height + 2 kept whole, then filtered down the columns.
template <int Width> void ComputeCentre(const uint8_t* src, ptrdiff_t s, int height, uint8_t* out) {
  const hn::CappedTag<int16_t, Width> d16;
  const size_t n16 = hn::Lanes(d16);
  HWY_ALIGN int16_t sums[(MostBlock + 5) * MostBlock];
  for (int j = 0; j < height + 5; ++j) {
    for (size_t x = 0; x < Width; x += n16) {
      hn::StoreU(SixTap(d16, src + (j - 2) * s + x, 1), d16, sums + j * MostBlock + x);
    }
  }
  const hn::CappedTag<int32_t, Width> d32;
  const hn::Rebind<int16_t, decltype(d32)> d16h;
  const hn::Rebind<uint8_t, decltype(d32)> d8;
  const size_t n32 = hn::Lanes(d32);
  const auto load = [&](int row, size_t x) {
    return hn::PromoteTo(d32, hn::LoadU(d16h, sums + row * MostBlock + x));
  };
  for (int j = 0; j < height; ++j) {
    for (size_t x = 0; x < Width; x += n32) {
      const auto outer = hn::Add(load(j, x), load(j + 5, x));
      const auto inner = hn::Add(load(j + 1, x), load(j + 4, x));
      const auto centre = hn::Add(load(j + 2, x), load(j + 3, x));
      const auto sum = hn::Add(hn::Sub(outer, hn::Mul(inner, hn::Set(d32, 5))),
                               hn::Mul(centre, hn::Set(d32, 20)));
      const auto value = hn::ShiftRight<10>(hn::Add(sum, hn::Set(d32, 512)));
      hn::StoreU(hn::DemoteTo(d8, value), d8, out + j * MostBlock + x);
    }
  }
}

// Rows of a known width, four a step: a copy of a width known only at run
// time is a library call, and one row a step spends more on the loop than
// on the copy.
template <int Width>
HWY_INLINE void CopyRows(const uint8_t* src, ptrdiff_t s, uint8_t* dst, ptrdiff_t ds, int height) {
  int j = 0;
  for (; j + 4 <= height; j += 4, src += 4 * s, dst += 4 * ds) {
    std::memcpy(dst, src, Width);
    std::memcpy(dst + ds, src + s, Width);
    std::memcpy(dst + 2 * ds, src + 2 * s, Width);
    std::memcpy(dst + 3 * ds, src + 3 * s, Width);
  }
  for (; j < height; ++j, src += s, dst += ds) {
    std::memcpy(dst, src, Width);
  }
}

template <int Width, SmPlane Kind> struct SmSource {
  static HWY_INLINE auto Get(const uint8_t* src, ptrdiff_t s, const uint8_t* centre, int j,
                             size_t x) {
    const hn::CappedTag<int16_t, Width> d16;
    const hn::Rebind<uint8_t, decltype(d16)> d8;
    if constexpr (Kind == Whole) {
      return hn::LoadU(d8, src + j * s + x);
    } else if constexpr (Kind == Horizontal) {
      return HalfSample(d16, src + j * s + x, 1);
    } else if constexpr (Kind == Vertical) {
      return HalfSample(d16, src + j * s + x, s);
    } else {
      return hn::LoadU(d8, centre + j * MostBlock + x);
    }
  }
};

// The block from plane A at (offset column, offset row) averaged with plane B,
// and with the block at `other` too where Average is set.
template <int Width, bool Average, SmPlane A, int ColumnA, int RowA, SmPlane B, int ColumnB,
          int RowB>
void Combine(const uint8_t* src, ptrdiff_t s, const uint8_t* other, ptrdiff_t otherStride,
             uint8_t* dst, ptrdiff_t dstStride, int height) {
  HWY_ALIGN uint8_t centre[MostBlock * MostBlock];
  if constexpr (A == Centre || B == Centre) {
    ComputeCentre<Width>(src, s, height, centre);
  }
  const hn::CappedTag<int16_t, Width> d16;
  const hn::Rebind<uint8_t, decltype(d16)> d8;
  const size_t n = hn::Lanes(d16);
  for (int j = 0; j < height; ++j) {
    for (size_t x = 0; x < Width; x += n) {
      auto value = SmSource<Width, A>::Get(src + ColumnA + RowA * s, s, centre, j, x);
      if constexpr (B != Nothing) {
        value = hn::AverageRound(
            value, SmSource<Width, B>::Get(src + ColumnB + RowB * s, s, centre, j, x));
      }
      if constexpr (Average) {
        value = hn::AverageRound(value, hn::LoadU(d8, other + j * otherStride + x));
      }
      hn::StoreU(value, d8, dst + j * dstStride + x);
    }
  }
}

template <int Width, bool Average>
HWY_INLINE void InterpolateLuma(const uint8_t* src, ptrdiff_t s, const uint8_t* other,
                                ptrdiff_t otherStride, uint8_t* dst, ptrdiff_t dstStride,
                                int height, int position) {
  switch (position) {
  case 0:
    if constexpr (Average) {
      return Combine<Width, true, Whole, 0, 0, Nothing, 0, 0>(src, s, other, otherStride, dst,
                                                              dstStride, height);
    }
    // Whole-sample vectors of a still scene, the most frequent case: a
    // straight copy, four rows a step.
    CopyRows<Width>(src, s, dst, dstStride, height);
    return;
  case 1:
    return Combine<Width, Average, Whole, 0, 0, Horizontal, 0, 0>(src, s, other, otherStride, dst,
                                                                  dstStride, height);
  case 2:
    return Combine<Width, Average, Horizontal, 0, 0, Nothing, 0, 0>(src, s, other, otherStride, dst,
                                                                    dstStride, height);
  case 3:
    return Combine<Width, Average, Whole, 1, 0, Horizontal, 0, 0>(src, s, other, otherStride, dst,
                                                                  dstStride, height);
  case 4:
    return Combine<Width, Average, Whole, 0, 0, Vertical, 0, 0>(src, s, other, otherStride, dst,
                                                                dstStride, height);
  case 5:
    return Combine<Width, Average, Horizontal, 0, 0, Vertical, 0, 0>(src, s, other, otherStride,
                                                                     dst, dstStride, height);
  case 6:
    return Combine<Width, Average, Horizontal, 0, 0, Centre, 0, 0>(src, s, other, otherStride, dst,
                                                                   dstStride, height);
  case 7:
    return Combine<Width, Average, Horizontal, 0, 0, Vertical, 1, 0>(src, s, other, otherStride,
                                                                     dst, dstStride, height);
  case 8:
    return Combine<Width, Average, Vertical, 0, 0, Nothing, 0, 0>(src, s, other, otherStride, dst,
                                                                  dstStride, height);
  case 9:
    return Combine<Width, Average, Vertical, 0, 0, Centre, 0, 0>(src, s, other, otherStride, dst,
                                                                 dstStride, height);
  case 10:
    return Combine<Width, Average, Centre, 0, 0, Nothing, 0, 0>(src, s, other, otherStride, dst,
                                                                dstStride, height);
  case 11:
    return Combine<Width, Average, Centre, 0, 0, Vertical, 1, 0>(src, s, other, otherStride, dst,
                                                                 dstStride, height);
  case 12:
    return Combine<Width, Average, Whole, 0, 1, Vertical, 0, 0>(src, s, other, otherStride, dst,
                                                                dstStride, height);
  case 13:
    return Combine<Width, Average, Vertical, 0, 0, Horizontal, 0, 1>(src, s, other, otherStride,
                                                                     dst, dstStride, height);
  case 14:
    return Combine<Width, Average, Centre, 0, 0, Horizontal, 0, 1>(src, s, other, otherStride, dst,
                                                                   dstStride, height);
  default:
    return Combine<Width, Average, Vertical, 1, 0, Horizontal, 0, 1>(src, s, other, otherStride,
                                                                     dst, dstStride, height);
  }
}

// One entry of the table: the position is a constant, so the switch above
// folds away.
template <int Width, bool Average, int Position>
void LumaAt(const uint8_t* src, ptrdiff_t s, const uint8_t* other, ptrdiff_t otherStride,
            uint8_t* dst, ptrdiff_t dstStride, int height) {
  InterpolateLuma<Width, Average>(src, s, other, otherStride, dst, dstStride, height, Position);
}

template <int Width>
void InterpolateChroma(const uint8_t* src, ptrdiff_t s, uint8_t* dst, ptrdiff_t dstStride,
                       int height, int dx, int dy) {
  // Every weighted sum is at most 64 * 255 + 32, within 16 bits.
  const hn::CappedTag<uint16_t, Width> d16;
  const hn::Rebind<uint8_t, decltype(d16)> d8;
  const size_t n = hn::Lanes(d16);
  const auto a = hn::Set(d16, static_cast<uint16_t>((8 - dx) * (8 - dy)));
  const auto b = hn::Set(d16, static_cast<uint16_t>(dx * (8 - dy)));
  const auto c = hn::Set(d16, static_cast<uint16_t>((8 - dx) * dy));
  const auto d = hn::Set(d16, static_cast<uint16_t>(dx * dy));
  const auto load = [&](const uint8_t* p) { return hn::PromoteTo(d16, hn::LoadU(d8, p)); };
  for (int j = 0; j < height; ++j) {
    const uint8_t* row = src + j * s;
    for (size_t x = 0; x < Width; x += n) {
      auto sum = hn::Add(hn::Mul(a, load(row + x)), hn::Mul(b, load(row + x + 1)));
      sum = hn::Add(sum, hn::Add(hn::Mul(c, load(row + s + x)), hn::Mul(d, load(row + s + x + 1))));
      sum = hn::ShiftRight<6>(hn::Add(sum, hn::Set(d16, 32)));
      hn::StoreU(hn::DemoteTo(d8, hn::BitCast(hn::RebindToSigned<decltype(d16)>(), sum)), d8,
                 dst + j * dstStride + x);
    }
  }
}

void InterpolateChromaImpl(const uint8_t* src, ptrdiff_t s, uint8_t* dst, ptrdiff_t dstStride,
                           int width, int height, int dx, int dy) {
  if (width == 8) {
    InterpolateChroma<8>(src, s, dst, dstStride, height, dx, dy);
  } else if (width == 4) {
    InterpolateChroma<4>(src, s, dst, dstStride, height, dx, dy);
  } else {
    InterpolateChroma<2>(src, s, dst, dstStride, height, dx, dy);
  }
}

// Both chroma planes at once, in two passes per row: the horizontal pair
// (8 - dx) a + dx b first, which the row above and the row below share,
// then the vertical one between two such rows. The nesting gives the same
// four weights as the direct form, and the largest sum, 8 * 8 * 255 + 32,
// still fits 16 bits. Halving the loads matters more than the arithmetic:
// these rows often come from memory.
using D16x8 = hn::FixedTag<uint16_t, 8>;
using D8x8 = hn::FixedTag<uint8_t, 8>;
using D64x1 = hn::FixedTag<uint64_t, 1>;

struct SmChromaWeights {
  SmChromaWeights(int dx, int dy)
      : left(hn::Set(D16x8(), static_cast<uint16_t>(8 - dx))),
        right(hn::Set(D16x8(), static_cast<uint16_t>(dx))),
        top(hn::Set(D16x8(), static_cast<uint16_t>(8 - dy))),
        bottom(hn::Set(D16x8(), static_cast<uint16_t>(dy))) {}
  hn::Vec<D16x8> left, right, top, bottom;

  HWY_INLINE hn::Vec<D16x8> Across(hn::Vec<D8x8> a, hn::Vec<D8x8> b) const {
    const D16x8 d16;
    return hn::Add(hn::Mul(left, hn::PromoteTo(d16, a)), hn::Mul(right, hn::PromoteTo(d16, b)));
  }
  HWY_INLINE hn::Vec<D8x8> Down(hn::Vec<D16x8> upper, hn::Vec<D16x8> lower) const {
    const D16x8 d16;
    const auto sum =
        hn::Add(hn::Add(hn::Mul(top, upper), hn::Mul(bottom, lower)), hn::Set(d16, 32));
    return hn::DemoteTo(D8x8(), hn::BitCast(hn::RebindToSigned<D16x8>(), hn::ShiftRight<6>(sum)));
  }
};

template <typename T> HWY_INLINE uint64_t Load(const uint8_t* p) {
  T value;
  std::memcpy(&value, p, sizeof(T));
  return value;
}

HWY_INLINE hn::Vec<D8x8> FromBits(uint64_t bits) {
  return hn::BitCast(D8x8(), hn::Set(D64x1(), bits));
}

HWY_INLINE uint64_t ToBits(hn::Vec<D8x8> v) {
  return hn::GetLane(hn::BitCast(D64x1(), v));
}

// The blocks a bi-prediction's second list averages with on store, (a + b +
// 1) >> 1, so that its own block is never written out and read back.
struct SmOtherPair {
  const uint8_t* cb;
  const uint8_t* cr;
  ptrdiff_t stride;
};

template <bool Average, class D8>
HWY_INLINE void Put(D8 d8, hn::Vec<D8> value, uint8_t* dst, const uint8_t* other,
                    ptrdiff_t otherOffset) {
  // Without averaging `other` is null, and not even an offset may be added.
  if constexpr (Average) {
    value = hn::AverageRound(value, hn::LoadU(d8, other + otherOffset));
  }
  hn::StoreU(value, d8, dst);
}

// Eight wide: a vector per plane and row.
template <bool Average>
void ChromaPair8(const uint8_t* cb, const uint8_t* cr, ptrdiff_t s, const SmOtherPair& o,
                 uint8_t* dCb, uint8_t* dCr, ptrdiff_t ds, int height, const SmChromaWeights& w) {
  const D8x8 d8;
  const auto across = [&](const uint8_t* p) {
    return w.Across(hn::LoadU(d8, p), hn::LoadU(d8, p + 1));
  };
  auto upperCb = across(cb), upperCr = across(cr);
  for (int j = 0; j < height; ++j) {
    const auto lowerCb = across(cb + (j + 1) * s), lowerCr = across(cr + (j + 1) * s);
    Put<Average>(d8, w.Down(upperCb, lowerCb), dCb + j * ds, o.cb, j * o.stride);
    Put<Average>(d8, w.Down(upperCr, lowerCr), dCr + j * ds, o.cr, j * o.stride);
    upperCb = lowerCb;
    upperCr = lowerCr;
  }
}

// Eight wide where a vector holds 16 lanes of 16 bits: Cb's row in the
// lower half, Cr's in the upper.
template <bool Average, class D16>
void ChromaPair8Wide(D16 d16, const uint8_t* cb, const uint8_t* cr, ptrdiff_t s,
                     const SmOtherPair& o, uint8_t* dCb, uint8_t* dCr, ptrdiff_t ds, int height,
                     int dx, int dy) {
  const hn::FixedTag<uint8_t, 16> d8;
  const D8x8 d8h;
  const auto left = hn::Set(d16, static_cast<uint16_t>(8 - dx));
  const auto right = hn::Set(d16, static_cast<uint16_t>(dx));
  const auto top = hn::Set(d16, static_cast<uint16_t>(8 - dy));
  const auto bottom = hn::Set(d16, static_cast<uint16_t>(dy));
  const auto across = [&](ptrdiff_t offset) {
    const auto a = hn::Combine(d8, hn::LoadU(d8h, cr + offset), hn::LoadU(d8h, cb + offset));
    const auto b =
        hn::Combine(d8, hn::LoadU(d8h, cr + offset + 1), hn::LoadU(d8h, cb + offset + 1));
    return hn::Add(hn::Mul(left, hn::PromoteTo(d16, a)), hn::Mul(right, hn::PromoteTo(d16, b)));
  };
  auto upper = across(0);
  for (int j = 0; j < height; ++j) {
    const auto lower = across((j + 1) * s);
    const auto sum =
        hn::Add(hn::Add(hn::Mul(top, upper), hn::Mul(bottom, lower)), hn::Set(d16, 32));
    auto out = hn::DemoteTo(d8, hn::BitCast(hn::RebindToSigned<D16>(), hn::ShiftRight<6>(sum)));
    if constexpr (Average) {
      const ptrdiff_t at = j * o.stride;
      out = hn::AverageRound(out,
                             hn::Combine(d8, hn::LoadU(d8h, o.cr + at), hn::LoadU(d8h, o.cb + at)));
    }
    hn::StoreU(hn::LowerHalf(d8h, out), d8h, dCb + j * ds);
    hn::StoreU(hn::UpperHalf(d8h, out), d8h, dCr + j * ds);
    upper = lower;
  }
}

// Four wide: a vector of four lanes per plane and row, whose loads widen
// as they read; joining both planes in one vector costs more than it saves.
template <bool Average>
void ChromaPair4(const uint8_t* cb, const uint8_t* cr, ptrdiff_t s, const SmOtherPair& o,
                 uint8_t* dCb, uint8_t* dCr, ptrdiff_t ds, int height, int dx, int dy) {
  const hn::FixedTag<uint16_t, 4> d16;
  const hn::FixedTag<uint8_t, 4> d8;
  const auto left = hn::Set(d16, static_cast<uint16_t>(8 - dx));
  const auto right = hn::Set(d16, static_cast<uint16_t>(dx));
  const auto top = hn::Set(d16, static_cast<uint16_t>(8 - dy));
  const auto bottom = hn::Set(d16, static_cast<uint16_t>(dy));
  const auto across = [&](const uint8_t* p) {
    return hn::Add(hn::Mul(left, hn::PromoteTo(d16, hn::LoadU(d8, p))),
                   hn::Mul(right, hn::PromoteTo(d16, hn::LoadU(d8, p + 1))));
  };
  const auto down = [&](hn::Vec<decltype(d16)> upper, hn::Vec<decltype(d16)> lower) {
    const auto sum =
        hn::Add(hn::Add(hn::Mul(top, upper), hn::Mul(bottom, lower)), hn::Set(d16, 32));
    return hn::DemoteTo(d8,
                        hn::BitCast(hn::RebindToSigned<decltype(d16)>(), hn::ShiftRight<6>(sum)));
  };
  auto upperCb = across(cb), upperCr = across(cr);
  for (int j = 0; j < height; ++j) {
    const auto lowerCb = across(cb + (j + 1) * s), lowerCr = across(cr + (j + 1) * s);
    Put<Average>(d8, down(upperCb, lowerCb), dCb + j * ds, o.cb, j * o.stride);
    Put<Average>(d8, down(upperCr, lowerCr), dCr + j * ds, o.cr, j * o.stride);
    upperCb = lowerCb;
    upperCr = lowerCr;
  }
}

// Two wide: two rows of both planes per vector. An odd last row, which no
// partition of 4:2:0 makes, takes the plain sums.
template <bool Average>
void ChromaPair2(const uint8_t* cb, const uint8_t* cr, ptrdiff_t s, const SmOtherPair& o,
                 uint8_t* dCb, uint8_t* dCr, ptrdiff_t ds, int height, int dx, int dy,
                 const SmChromaWeights& w) {
  const auto gather = [](const uint8_t* pCb, const uint8_t* pCr, ptrdiff_t offset,
                         ptrdiff_t stride) {
    return FromBits(Load<uint16_t>(pCb + offset) | Load<uint16_t>(pCr + offset) << 16 |
                    Load<uint16_t>(pCb + offset + stride) << 32 |
                    Load<uint16_t>(pCr + offset + stride) << 48);
  };
  int j = 0;
  for (; j + 2 <= height; j += 2) {
    const auto upper = w.Across(gather(cb, cr, j * s, s), gather(cb, cr, j * s + 1, s));
    const auto lower = w.Across(gather(cb, cr, (j + 1) * s, s), gather(cb, cr, (j + 1) * s + 1, s));
    auto value = w.Down(upper, lower);
    if constexpr (Average) {
      value = hn::AverageRound(value, gather(o.cb, o.cr, j * o.stride, o.stride));
    }
    const uint64_t out = ToBits(value);
    const uint16_t parts[4] = {static_cast<uint16_t>(out), static_cast<uint16_t>(out >> 16),
                               static_cast<uint16_t>(out >> 32), static_cast<uint16_t>(out >> 48)};
    std::memcpy(dCb + j * ds, &parts[0], 2);
    std::memcpy(dCr + j * ds, &parts[1], 2);
    std::memcpy(dCb + (j + 1) * ds, &parts[2], 2);
    std::memcpy(dCr + (j + 1) * ds, &parts[3], 2);
  }
  if (j < height) {
    if constexpr (Average) {
      NmReference::H264InterpolateChromaPairAverage(cb + j * s, cr + j * s, s, o.cb + j * o.stride,
                                                    o.cr + j * o.stride, o.stride, dCb + j * ds,
                                                    dCr + j * ds, ds, 2, 1, dx, dy);
    } else {
      NmReference::H264InterpolateChromaPair(cb + j * s, cr + j * s, s, dCb + j * ds, dCr + j * ds,
                                             ds, 2, 1, dx, dy);
    }
  }
}

template <bool Average, int Width>
void CopyPair(const uint8_t* cb, const uint8_t* cr, ptrdiff_t s, const SmOtherPair& o, uint8_t* dCb,
              uint8_t* dCr, ptrdiff_t ds, int height) {
  const hn::CappedTag<uint8_t, Width> d8;
  if constexpr (Average) {
    for (int j = 0; j < height; ++j) {
      Put<true>(d8, hn::LoadU(d8, cb + j * s), dCb + j * ds, o.cb, j * o.stride);
      Put<true>(d8, hn::LoadU(d8, cr + j * s), dCr + j * ds, o.cr, j * o.stride);
    }
  } else {
    for (int j = 0; j < height; ++j) {
      std::memcpy(dCb + j * ds, cb + j * s, Width);
      std::memcpy(dCr + j * ds, cr + j * s, Width);
    }
  }
}

template <bool Average, int Width, bool WholeSample>
void ChromaPairAt(const uint8_t* cb, const uint8_t* cr, ptrdiff_t s, const uint8_t* oCb,
                  const uint8_t* oCr, ptrdiff_t os, uint8_t* dCb, uint8_t* dCr, ptrdiff_t ds,
                  int height, int dx, int dy) {
  const SmOtherPair o{oCb, oCr, os};
  if constexpr (WholeSample) {
    // Whole-sample vectors, frequent where the scene stands still.
    CopyPair<Average, Width>(cb, cr, s, o, dCb, dCr, ds, height);
  } else if constexpr (Width == 8 && hn::MaxLanes(hn::CappedTag<uint16_t, 16>()) == 16) {
    ChromaPair8Wide<Average>(hn::CappedTag<uint16_t, 16>(), cb, cr, s, o, dCb, dCr, ds, height, dx,
                             dy);
  } else if constexpr (Width == 8) {
    ChromaPair8<Average>(cb, cr, s, o, dCb, dCr, ds, height, SmChromaWeights(dx, dy));
  } else if constexpr (Width == 4) {
    ChromaPair4<Average>(cb, cr, s, o, dCb, dCr, ds, height, dx, dy);
  } else {
    ChromaPair2<Average>(cb, cr, s, o, dCb, dCr, ds, height, dx, dy, SmChromaWeights(dx, dy));
  }
}

#else
// One lane a vector gains nothing: the scalar target's table holds the
// plain loops.
template <int Width, bool Average, int Position>
void LumaAt(const uint8_t* src, ptrdiff_t s, const uint8_t* other, ptrdiff_t otherStride,
            uint8_t* dst, ptrdiff_t dstStride, int height) {
  if constexpr (Average) {
    NmReference::H264InterpolateLumaAverage(src, s, other, otherStride, dst, dstStride, Width,
                                            height, Position % 4, Position / 4);
  } else {
    NmReference::H264InterpolateLuma(src, s, dst, dstStride, Width, height, Position % 4,
                                     Position / 4);
  }
}

template <bool Average, int Width, bool WholeSample>
void ChromaPairAt(const uint8_t* cb, const uint8_t* cr, ptrdiff_t s, const uint8_t* oCb,
                  const uint8_t* oCr, ptrdiff_t os, uint8_t* dCb, uint8_t* dCr, ptrdiff_t ds,
                  int height, int dx, int dy) {
  if constexpr (Average) {
    NmReference::H264InterpolateChromaPairAverage(cb, cr, s, oCb, oCr, os, dCb, dCr, ds, Width,
                                                  height, dx, dy);
  } else {
    NmReference::H264InterpolateChromaPair(cb, cr, s, dCb, dCr, ds, Width, height, dx, dy);
  }
}

void InterpolateChromaImpl(const uint8_t* src, ptrdiff_t s, uint8_t* dst, ptrdiff_t dstStride,
                           int width, int height, int dx, int dy) {
  NmReference::H264InterpolateChroma(src, s, dst, dstStride, width, height, dx, dy);
}
#endif

template <int Width, bool Average, size_t... Position>
void FillLuma(H264LumaKernel* row, std::index_sequence<Position...>) {
  ((row[Position] = &LumaAt<Width, Average, static_cast<int>(Position)>), ...);
}

template <bool Average> void FillChroma(H264ChromaPairKernel (*rows)[2]) {
  rows[0][0] = &ChromaPairAt<Average, 2, false>;
  rows[0][1] = &ChromaPairAt<Average, 2, true>;
  rows[1][0] = &ChromaPairAt<Average, 4, false>;
  rows[1][1] = &ChromaPairAt<Average, 4, true>;
  rows[2][0] = &ChromaPairAt<Average, 8, false>;
  rows[2][1] = &ChromaPairAt<Average, 8, true>;
}

const SmH264InterpolationKernels* KernelsImpl() {
  static const SmH264InterpolationKernels kernels = [] {
    SmH264InterpolationKernels k{};
    constexpr auto positions = std::make_index_sequence<16>();
    FillLuma<4, false>(k.luma[0][0], positions);
    FillLuma<8, false>(k.luma[0][1], positions);
    FillLuma<16, false>(k.luma[0][2], positions);
    FillLuma<4, true>(k.luma[1][0], positions);
    FillLuma<8, true>(k.luma[1][1], positions);
    FillLuma<16, true>(k.luma[1][2], positions);
    FillChroma<false>(k.chromaPair[0]);
    FillChroma<true>(k.chromaPair[1]);
    return k;
  }();
  return &kernels;
}

} // namespace HWY_NAMESPACE
} // namespace NmPrimitives
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace NmPrimitives {

HWY_EXPORT(KernelsImpl);
HWY_EXPORT(InterpolateChromaImpl);

const SmH264InterpolationKernels& H264InterpolationKernels() {
  return *HWY_DYNAMIC_DISPATCH(KernelsImpl)();
}

void H264InterpolateLuma(const uint8_t* src, ptrdiff_t srcStride, uint8_t* dst, ptrdiff_t dstStride,
                         int width, int height, int dx, int dy) {
  H264InterpolationKernels().luma[0][H264LumaWidthIndex(width)][dy * 4 + dx](
      src, srcStride, nullptr, 0, dst, dstStride, height);
}

void H264InterpolateLumaAverage(const uint8_t* src, ptrdiff_t srcStride, const uint8_t* other,
                                ptrdiff_t otherStride, uint8_t* dst, ptrdiff_t dstStride, int width,
                                int height, int dx, int dy) {
  H264InterpolationKernels().luma[1][H264LumaWidthIndex(width)][dy * 4 + dx](
      src, srcStride, other, otherStride, dst, dstStride, height);
}

void H264InterpolateChroma(const uint8_t* src, ptrdiff_t srcStride, uint8_t* dst,
                           ptrdiff_t dstStride, int width, int height, int dx, int dy) {
  HWY_DYNAMIC_DISPATCH(InterpolateChromaImpl)
  (src, srcStride, dst, dstStride, width, height, dx, dy);
}

void H264InterpolateChromaPair(const uint8_t* srcCb, const uint8_t* srcCr, ptrdiff_t srcStride,
                               uint8_t* dstCb, uint8_t* dstCr, ptrdiff_t dstStride, int width,
                               int height, int dx, int dy) {
  H264InterpolationKernels().chromaPair[0][H264ChromaWidthIndex(width)][(dx | dy) == 0](
      srcCb, srcCr, srcStride, nullptr, nullptr, 0, dstCb, dstCr, dstStride, height, dx, dy);
}

void H264InterpolateChromaPairAverage(const uint8_t* srcCb, const uint8_t* srcCr,
                                      ptrdiff_t srcStride, const uint8_t* otherCb,
                                      const uint8_t* otherCr, ptrdiff_t otherStride, uint8_t* dstCb,
                                      uint8_t* dstCr, ptrdiff_t dstStride, int width, int height,
                                      int dx, int dy) {
  H264InterpolationKernels().chromaPair[1][H264ChromaWidthIndex(width)][(dx | dy) == 0](
      srcCb, srcCr, srcStride, otherCb, otherCr, otherStride, dstCb, dstCr, dstStride, height, dx,
      dy);
}

} // namespace NmPrimitives
#endif
