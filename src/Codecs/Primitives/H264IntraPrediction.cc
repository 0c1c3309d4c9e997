// Intra prediction in vectors, compiled once per Highway target. The large
// blocks (16x16 luma, 8x8 chroma) fill rows from a vector each. The 4x4 and
// 8x8 luma blocks lay their neighbours out on one line and smooth it once with
// both filters of the directional modes; every row of every mode is then a
// window of a smoothed line, so a block costs a handful of vector operations
// and one copy a row instead of a formula per sample.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "Codecs/Primitives/H264IntraPrediction.cc"
#include <hwy/foreach_target.h> // IWYU pragma: keep
#include <hwy/highway.h>

#include <cstring>

#include "Codecs/Primitives/H264IntraPrediction.h"

HWY_BEFORE_NAMESPACE();
namespace NmPrimitives {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

#if HWY_TARGET != HWY_SCALAR

// The neighbours of a Size x Size block on one line, from the bottom of the
// left column up through the corner and along the row above to its right
// end: at(Size - 1 - y) is p(-1, y), at(Size) is p(-1, -1), at(Size + 1 + x)
// is p(x, -1). Samples that are not available read as 0, and the top right
// ones repeat the last sample above when only they are missing. Both ends
// repeat their last sample for a few places, which is what the modes that
// reach past the neighbours use.
class CmIntraLine {
public:
  static constexpr int kPad = 16; // room below the left column's end

  uint8_t* at(int position) { return m_Samples + kPad + position; }
  const uint8_t* at(int position) const { return m_Samples + kPad + position; }

  template <int Size>
  void Read(const uint8_t* dst, ptrdiff_t stride, const SmH264IntraNeighbours& n) {
    uint8_t* top = at(Size + 1);
    *at(Size) = n.hasCorner ? dst[-stride - 1] : 0;
    if (n.hasTop) {
      std::memcpy(top, dst - stride, Size);
      if (n.hasTopRight) {
        std::memcpy(top + Size, dst - stride + Size, Size);
      } else {
        std::memset(top + Size, dst[-stride + Size - 1], Size);
      }
    } else {
      std::memset(top, 0, 2 * Size);
    }
    for (int y = 0; y < Size; ++y) {
      *at(Size - 1 - y) = n.hasLeft ? dst[y * stride - 1] : 0;
    }
  }

  // Repeats the ends: the last sample above to the end of the line, p(-1,
  // Size - 1) down the padding below.
  template <int Size> void Extend() {
    std::memset(at(3 * Size + 1), *at(3 * Size), sizeof m_Samples - kPad - 3 * Size - 1);
    std::memset(m_Samples, *at(0), kPad);
  }

  // The two filters of the directional modes at every position p of the
  // line: half[p] = (at(p) + at(p + 1) + 1) >> 1 and
  // third[p] = (at(p - 1) + 2 at(p) + at(p + 1) + 2) >> 2. The three-tap
  // filter is the rounded mean of at(p) and the floored mean of its two
  // neighbours, exactly, which keeps it in 8-bit lanes.
  template <int Size> void Smooth(CmIntraLine& half, CmIntraLine& third) const {
    const hn::CappedTag<uint8_t, 16> d8;
    const auto one = hn::Set(d8, uint8_t{1});
    for (int p = -8; p < 3 * Size + 2; p += static_cast<int>(hn::Lanes(d8))) {
      const auto before = hn::LoadU(d8, at(p - 1));
      const auto here = hn::LoadU(d8, at(p));
      const auto after = hn::LoadU(d8, at(p + 1));
      const auto flooredMean =
          hn::Sub(hn::AverageRound(before, after), hn::And(hn::Xor(before, after), one));
      hn::StoreU(hn::AverageRound(here, after), d8, half.at(p));
      hn::StoreU(hn::AverageRound(here, flooredMean), d8, third.at(p));
    }
  }

private:
  // Left uninitialised: Read and Extend write every sample that is read.
  uint8_t m_Samples[kPad + 64];
};

// 8x8 luma predicts from its neighbours filtered with [1 2 1]; the ends of
// each run of available samples weigh themselves three times instead of a
// missing neighbour.
void FilterNeighbours8x8(CmIntraLine& line, const SmH264IntraNeighbours& n) {
  CmIntraLine half, third;
  line.Smooth<8>(half, third);
  const int corner = *line.at(8);
  const auto t = [&line](int x) { return int{*line.at(9 + x)}; };
  const auto l = [&line](int y) { return int{*line.at(7 - y)}; };
  uint8_t ends[5] = {};
  if (n.hasTop) {
    ends[0] = static_cast<uint8_t>(n.hasCorner ? (corner + 2 * t(0) + t(1) + 2) >> 2
                                               : (3 * t(0) + t(1) + 2) >> 2);
    ends[1] = static_cast<uint8_t>((t(14) + 3 * t(15) + 2) >> 2);
  }
  if (n.hasLeft) {
    ends[2] = static_cast<uint8_t>(n.hasCorner ? (corner + 2 * l(0) + l(1) + 2) >> 2
                                               : (3 * l(0) + l(1) + 2) >> 2);
    ends[3] = static_cast<uint8_t>((l(6) + 3 * l(7) + 2) >> 2);
  }
  ends[4] = static_cast<uint8_t>(corner);
  if (n.hasCorner && (n.hasTop || n.hasLeft)) {
    ends[4] = static_cast<uint8_t>(n.hasTop && n.hasLeft ? (t(0) + 2 * corner + l(0) + 2) >> 2
                                   : n.hasTop            ? (3 * corner + t(0) + 2) >> 2
                                                         : (3 * corner + l(0) + 2) >> 2);
  }
  if (n.hasTop) {
    std::memcpy(line.at(10), third.at(10), 14);
    *line.at(9) = ends[0];
    *line.at(24) = ends[1];
  }
  if (n.hasLeft) {
    std::memcpy(line.at(1), third.at(1), 6);
    *line.at(7) = ends[2];
    *line.at(0) = ends[3];
  }
  *line.at(8) = ends[4];
}

template <int Size, int Log2> int LineDc(const CmIntraLine& line, const SmH264IntraNeighbours& n) {
  int top = 0, left = 0;
  for (int i = 0; i < Size; ++i) {
    top += *line.at(Size + 1 + i);
    left += *line.at(i);
  }
  if (n.hasTop && n.hasLeft) {
    return (top + left + Size) >> (Log2 + 1);
  }
  if (n.hasTop || n.hasLeft) {
    return ((n.hasLeft ? left : top) + Size / 2) >> Log2;
  }
  return 128;
}

// Predicts a 4x4 or 8x8 block from its (filtered) line. With x and y the
// sample's place, each directional mode reads one of the two smoothed lines
// at a position that moves by one per sample along a row, so a row is a
// window: for the modes that alternate the two filters along a row or down
// the rows, the window is taken from the two lines woven together.
template <int Size, int Log2>
void PredictFromLine(uint8_t* dst, ptrdiff_t stride, int mode, const SmH264IntraNeighbours& n,
                     const CmIntraLine& line) {
  const auto put = [&](int y, const uint8_t* row) { std::memcpy(dst + y * stride, row, Size); };
  switch (mode) {
  case 0:
    for (int y = 0; y < Size; ++y) {
      put(y, line.at(Size + 1));
    }
    return;
  case 1:
    for (int y = 0; y < Size; ++y) {
      std::memset(dst + y * stride, *line.at(Size - 1 - y), Size);
    }
    return;
  case 2: {
    const int dc = LineDc<Size, Log2>(line, n);
    for (int y = 0; y < Size; ++y) {
      std::memset(dst + y * stride, dc, Size);
    }
    return;
  }
  default:
    break;
  }
  CmIntraLine half, third;
  line.Smooth<Size>(half, third);
  uint8_t woven[4 * Size];
  switch (mode) {
  case 3: // diagonal down left: third at Size + 2 + x + y
    for (int y = 0; y < Size; ++y) {
      put(y, third.at(Size + 2 + y));
    }
    return;
  case 4: // diagonal down right: third at Size + x - y
    for (int y = 0; y < Size; ++y) {
      put(y, third.at(Size - y));
    }
    return;
  case 5: { // vertical right
    // Row 2k: half at Size + x - k where x >= k, third at Size + 1 + 2 (x - k)
    // before; row 2k + 1: third at Size + x - k, and Size + 2 (x - k) before.
    constexpr int Base = Size / 2;
    uint8_t odd[2 * Size];
    for (int m = 0; m < Size; ++m) {
      woven[Base + m] = *half.at(Size + m);
      odd[Base + m] = *third.at(Size + m);
    }
    for (int d = 1; d <= Base; ++d) {
      woven[Base - d] = *third.at(Size + 1 - 2 * d);
      odd[Base - d] = *third.at(Size - 2 * d);
    }
    for (int y = 0; y < Size; ++y) {
      put(y, (y % 2 == 0 ? woven : odd) + Base - y / 2);
    }
    return;
  }
  case 6: // horizontal down: half and third alternate up the left column,
          // then third runs on along the row above
    for (int i = 0; i < Size; ++i) {
      woven[2 * i] = *half.at(i);
      woven[2 * i + 1] = *third.at(i + 1);
    }
    for (int m = 0; m < Size - 2; ++m) {
      woven[2 * Size + m] = *third.at(Size + 1 + m);
    }
    for (int y = 0; y < Size; ++y) {
      put(y, woven + 2 * (Size - 1 - y));
    }
    return;
  case 7: // vertical left: half at Size + 1 + x + y / 2 on even rows, third one further on odd
    for (int y = 0; y < Size; ++y) {
      put(y, y % 2 == 0 ? half.at(Size + 1 + y / 2) : third.at(Size + 2 + y / 2));
    }
    return;
  default: // 8, horizontal up: half and third alternate down the left column
           // and past its end, where the repeated last sample finishes the rows
    for (int j = 0; j < 3 * Size / 2; ++j) {
      woven[2 * j] = *half.at(Size - 2 - j);
      woven[2 * j + 1] = *third.at(Size - 2 - j);
    }
    for (int y = 0; y < Size; ++y) {
      put(y, woven + 2 * y);
    }
    return;
  }
}

void PredictIntra4x4Impl(uint8_t* dst, ptrdiff_t stride, int mode, const SmH264IntraNeighbours& n) {
  CmIntraLine line;
  line.Read<4>(dst, stride, n);
  line.Extend<4>();
  PredictFromLine<4, 2>(dst, stride, mode, n, line);
}

void PredictIntra8x8Impl(uint8_t* dst, ptrdiff_t stride, int mode, const SmH264IntraNeighbours& n) {
  CmIntraLine line;
  line.Read<8>(dst, stride, n);
  line.Extend<8>();
  FilterNeighbours8x8(line, n);
  line.Extend<8>();
  PredictFromLine<8, 3>(dst, stride, mode, n, line);
}

// Fills a Size x Size block with one value.
template <int Size> HWY_INLINE void FillFlat(uint8_t* dst, ptrdiff_t stride, int value) {
  const hn::FixedTag<uint8_t, Size> d8;
  const auto v = hn::Set(d8, static_cast<uint8_t>(value));
  for (int y = 0; y < Size; ++y) {
    hn::StoreU(v, d8, dst + y * stride);
  }
}

// The plane mode: (a + b (x - centre) + c (y - centre) + 16) >> 5 per sample,
// in 16-bit lanes, which hold every value for 8-bit samples (below 2^15 in
// magnitude for both block sizes).
template <int Size> HWY_INLINE void FillPlane(uint8_t* dst, ptrdiff_t stride, int a, int b, int c) {
  const hn::CappedTag<int16_t, Size> d16;
  const hn::Rebind<uint8_t, decltype(d16)> d8;
  const size_t n = hn::Lanes(d16);
  constexpr int Centre = Size / 2 - 1;
  for (size_t x = 0; x < Size; x += n) {
    const auto slope =
        hn::Mul(hn::Set(d16, static_cast<int16_t>(b)),
                hn::Sub(hn::Iota(d16, static_cast<int16_t>(x)), hn::Set(d16, int16_t{Centre})));
    for (int y = 0; y < Size; ++y) {
      const auto row =
          hn::Add(slope, hn::Set(d16, static_cast<int16_t>(a + c * (y - Centre) + 16)));
      hn::StoreU(hn::DemoteTo(d8, hn::ShiftRight<5>(row)), d8, dst + y * stride + x);
    }
  }
}

template <int Size> HWY_INLINE void FillVertical(uint8_t* dst, ptrdiff_t stride) {
  const hn::FixedTag<uint8_t, Size> d8;
  const auto above = hn::LoadU(d8, dst - stride);
  for (int y = 0; y < Size; ++y) {
    hn::StoreU(above, d8, dst + y * stride);
  }
}

template <int Size> HWY_INLINE void FillHorizontal(uint8_t* dst, ptrdiff_t stride) {
  const hn::FixedTag<uint8_t, Size> d8;
  for (int y = 0; y < Size; ++y) {
    hn::StoreU(hn::Set(d8, dst[y * stride - 1]), d8, dst + y * stride);
  }
}

int SumAbove(const uint8_t* dst, ptrdiff_t stride, int count) {
  int sum = 0;
  for (int i = 0; i < count; ++i) {
    sum += dst[i - stride];
  }
  return sum;
}

int SumLeft(const uint8_t* dst, ptrdiff_t stride, int count) {
  int sum = 0;
  for (int i = 0; i < count; ++i) {
    sum += dst[i * stride - 1];
  }
  return sum;
}

void PredictIntra16x16Impl(uint8_t* dst, ptrdiff_t stride, int mode,
                           const SmH264IntraNeighbours& n) {
  switch (mode) {
  case 0:
    if (n.hasTop) {
      FillVertical<16>(dst, stride);
    } else {
      // Without the row above, the plain loops decide what an unusable mode gives.
      NmReference::H264PredictIntra16x16(dst, stride, mode, n);
    }
    return;
  case 1:
    if (n.hasLeft) {
      FillHorizontal<16>(dst, stride);
    } else {
      NmReference::H264PredictIntra16x16(dst, stride, mode, n);
    }
    return;
  case 2: {
    int dc = 128;
    if (n.hasTop && n.hasLeft) {
      dc = (SumAbove(dst, stride, 16) + SumLeft(dst, stride, 16) + 16) >> 5;
    } else if (n.hasTop) {
      dc = (SumAbove(dst, stride, 16) + 8) >> 4;
    } else if (n.hasLeft) {
      dc = (SumLeft(dst, stride, 16) + 8) >> 4;
    }
    FillFlat<16>(dst, stride, dc);
    return;
  }
  default: {
    if (!(n.hasTop && n.hasLeft && n.hasCorner)) {
      NmReference::H264PredictIntra16x16(dst, stride, mode, n);
      return;
    }
    const uint8_t* above = dst - stride;
    int h = 0, v = 0;
    for (int i = 0; i < 8; ++i) {
      h += (i + 1) * (above[8 + i] - above[6 - i]);
      v += (i + 1) * (dst[(8 + i) * stride - 1] - dst[(6 - i) * stride - 1]);
    }
    const int a = 16 * (dst[15 * stride - 1] + above[15]);
    FillPlane<16>(dst, stride, a, (5 * h + 32) >> 6, (5 * v + 32) >> 6);
    return;
  }
  }
}

void PredictIntraChroma8x8Impl(uint8_t* dst, ptrdiff_t stride, int mode,
                               const SmH264IntraNeighbours& n) {
  switch (mode) {
  case 0: {
    // A DC per 4x4 quarter: the corner quarters from both sides, the others
    // from the side they touch first.
    const int top[2] = {n.hasTop ? SumAbove(dst, stride, 4) : 0,
                        n.hasTop ? SumAbove(dst + 4, stride, 4) : 0};
    const int left[2] = {n.hasLeft ? SumLeft(dst, stride, 4) : 0,
                         n.hasLeft ? SumLeft(dst + 4 * stride, stride, 4) : 0};
    const auto one = [&](int sum) { return (sum + 2) >> 2; };
    uint8_t dc[2][8];
    for (int by = 0; by < 2; ++by) {
      for (int bx = 0; bx < 2; ++bx) {
        int value = 128;
        if ((bx == 0) == (by == 0)) {
          value = n.hasTop && n.hasLeft ? (top[bx] + left[by] + 4) >> 3
                  : n.hasLeft           ? one(left[by])
                  : n.hasTop            ? one(top[bx])
                                        : 128;
        } else if (bx > 0) {
          value = n.hasTop ? one(top[bx]) : n.hasLeft ? one(left[by]) : 128;
        } else {
          value = n.hasLeft ? one(left[by]) : n.hasTop ? one(top[bx]) : 128;
        }
        std::memset(dc[by] + 4 * bx, value, 4);
      }
    }
    const hn::FixedTag<uint8_t, 8> d8;
    for (int y = 0; y < 8; ++y) {
      hn::StoreU(hn::LoadU(d8, dc[y / 4]), d8, dst + y * stride);
    }
    return;
  }
  case 1:
    if (n.hasLeft) {
      FillHorizontal<8>(dst, stride);
    } else {
      NmReference::H264PredictIntraChroma8x8(dst, stride, mode, n);
    }
    return;
  case 2:
    if (n.hasTop) {
      FillVertical<8>(dst, stride);
    } else {
      NmReference::H264PredictIntraChroma8x8(dst, stride, mode, n);
    }
    return;
  default: {
    if (!(n.hasTop && n.hasLeft && n.hasCorner)) {
      NmReference::H264PredictIntraChroma8x8(dst, stride, mode, n);
      return;
    }
    const uint8_t* above = dst - stride;
    int h = 0, v = 0;
    for (int i = 0; i < 4; ++i) {
      h += (i + 1) * (above[4 + i] - above[2 - i]);
      v += (i + 1) * (dst[(4 + i) * stride - 1] - dst[(2 - i) * stride - 1]);
    }
    const int a = 16 * (dst[7 * stride - 1] + above[7]);
    FillPlane<8>(dst, stride, a, (34 * h + 32) >> 6, (34 * v + 32) >> 6);
    return;
  }
  }
}

#else

// One lane a vector gains nothing: the scalar target runs the plain loops.
void PredictIntra4x4Impl(uint8_t* dst, ptrdiff_t stride, int mode, const SmH264IntraNeighbours& n) {
  NmReference::H264PredictIntra4x4(dst, stride, mode, n);
}

void PredictIntra8x8Impl(uint8_t* dst, ptrdiff_t stride, int mode, const SmH264IntraNeighbours& n) {
  NmReference::H264PredictIntra8x8(dst, stride, mode, n);
}

void PredictIntra16x16Impl(uint8_t* dst, ptrdiff_t stride, int mode,
                           const SmH264IntraNeighbours& n) {
  NmReference::H264PredictIntra16x16(dst, stride, mode, n);
}

void PredictIntraChroma8x8Impl(uint8_t* dst, ptrdiff_t stride, int mode,
                               const SmH264IntraNeighbours& n) {
  NmReference::H264PredictIntraChroma8x8(dst, stride, mode, n);
}

#endif

} // namespace HWY_NAMESPACE
} // namespace NmPrimitives
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace NmPrimitives {

HWY_EXPORT(PredictIntra4x4Impl);
HWY_EXPORT(PredictIntra8x8Impl);
HWY_EXPORT(PredictIntra16x16Impl);
HWY_EXPORT(PredictIntraChroma8x8Impl);

void H264PredictIntra4x4(uint8_t* dst, ptrdiff_t stride, int mode, const SmH264IntraNeighbours& n) {
  HWY_DYNAMIC_DISPATCH(PredictIntra4x4Impl)(dst, stride, mode, n);
}

void H264PredictIntra8x8(uint8_t* dst, ptrdiff_t stride, int mode, const SmH264IntraNeighbours& n) {
  HWY_DYNAMIC_DISPATCH(PredictIntra8x8Impl)(dst, stride, mode, n);
}

void H264PredictIntra16x16(uint8_t* dst, ptrdiff_t stride, int mode,
                           const SmH264IntraNeighbours& n) {
  HWY_DYNAMIC_DISPATCH(PredictIntra16x16Impl)(dst, stride, mode, n);
}

void H264PredictIntraChroma8x8(uint8_t* dst, ptrdiff_t stride, int mode,
                               const SmH264IntraNeighbours& n) {
  HWY_DYNAMIC_DISPATCH(PredictIntraChroma8x8Impl)(dst, stride, mode, n);
}

} // namespace NmPrimitives
#endif
