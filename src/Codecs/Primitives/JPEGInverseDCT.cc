// Vector inverse DCT, compiled once per Highway target, in 16-bit fixed point
// on groups of blocks. The reduced sizes run the full transform and sum runs
// of its 32-bit results in each pass, which is exactly the mean over each
// area that the reference takes; 1 x 1 is the DC term alone.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "Codecs/Primitives/JPEGInverseDCT.cc"
#include <hwy/foreach_target.h> // IWYU pragma: keep
#include <hwy/highway.h>

#include <cstring>

#include "Codecs/Primitives/JPEGDCT-inl.h"
#include "Codecs/Primitives/JPEGInverseDCT.h"

HWY_BEFORE_NAMESPACE();
namespace NmPrimitives {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

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
// (1, 3) and (5, 7). A reduced transform sums each run of 2^kReduction
// outputs before the shift, which makes it their mean: the bias must be
// divided by that count.
template <int kShift, int kReduction, class D16, class D32>
HWY_INLINE void TransformHalf(D16 d16, D32 d32, hn::Vec<D16> p04, hn::Vec<D16> p26,
                              hn::Vec<D16> p13, hn::Vec<D16> p57, hn::Vec<D32> bias,
                              hn::Vec<D32>* out) {
  if constexpr (kReduction > 0) {
    // Sums of neighbouring outputs straight from the inputs, with the
    // constants summed as the full form would sum the products: the same
    // numbers at half the work. The 4 term cancels out.
    const auto a = hn::Add(MulPairs(d32, p04, PairConstant(d16, 2 * kK4, 0)), hn::Add(bias, bias));
    const auto b = MulPairs(d32, p26, PairConstant(d16, kK2 + kK6, kK6 - kK2));
    const auto o01 = hn::Add(MulPairs(d32, p13, PairConstant(d16, kK1 + kK3, kK3 - kK7)),
                             MulPairs(d32, p57, PairConstant(d16, kK5 - kK1, kK7 - kK5)));
    const auto o23 = hn::Add(MulPairs(d32, p13, PairConstant(d16, kK5 + kK7, -kK1 - kK5)),
                             MulPairs(d32, p57, PairConstant(d16, kK7 + kK3, kK3 - kK1)));
    if constexpr (kReduction == 1) {
      const auto e01 = hn::Add(a, b);
      const auto e23 = hn::Sub(a, b);
      out[0] = hn::ShiftRight<kShift>(hn::Add(e01, o01));
      out[1] = hn::ShiftRight<kShift>(hn::Add(e23, o23));
      out[2] = hn::ShiftRight<kShift>(hn::Sub(e23, o23));
      out[3] = hn::ShiftRight<kShift>(hn::Sub(e01, o01));
    } else {
      const auto e = hn::Add(a, a);
      const auto o = hn::Add(o01, o23);
      out[0] = hn::ShiftRight<kShift>(hn::Add(e, o));
      out[1] = hn::ShiftRight<kShift>(hn::Sub(e, o));
    }
    return;
  }
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
// rounded (the bias holds the half) and saturated to 16 bits. A reduced
// transform leaves 8 >> kReduction results and zeros after them.
template <int kShift, int kReduction, class D16>
HWY_INLINE void Transform(D16 d16, hn::Vec<D16>* x, int32_t bias) {
  const hn::Repartition<int32_t, D16> d32;
  const auto biasV = hn::Set(d32, bias >> kReduction);
  hn::Vec<decltype(d32)> lower[8];
  hn::Vec<decltype(d32)> upper[8];
  TransformHalf<kShift, kReduction>(
      d16, d32, hn::InterleaveLower(d16, x[0], x[4]), hn::InterleaveLower(d16, x[2], x[6]),
      hn::InterleaveLower(d16, x[1], x[3]), hn::InterleaveLower(d16, x[5], x[7]), biasV, lower);
  TransformHalf<kShift, kReduction>(
      d16, d32, hn::InterleaveUpper(d16, x[0], x[4]), hn::InterleaveUpper(d16, x[2], x[6]),
      hn::InterleaveUpper(d16, x[1], x[3]), hn::InterleaveUpper(d16, x[5], x[7]), biasV, upper);
  Repeat<8>([&](auto i) HWY_ATTR {
    if constexpr (i < (8 >> kReduction)) {
      x[i] = hn::ReorderDemote2To(d16, lower[i], upper[i]);
    } else {
      x[i] = hn::Zero(d16);
    }
  });
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

// kGroup blocks side by side, each giving 8 >> kReduction rows and columns.
template <int kReduction, size_t kGroup>
HWY_INLINE void InverseDCTGroup(const int16_t* HWY_RESTRICT blocks,
                                const int16_t* HWY_RESTRICT quantRows, uint8_t* out,
                                size_t stride) {
  constexpr int kSize = 8 >> kReduction;
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
      for (int y = 0; y < kSize; ++y) {
        std::memset(out + y * stride + kSize * g, level, kSize);
      }
    }
    return;
  }
  Repeat<8>([&](auto v)
                HWY_ATTR { x[v] = hn::Mul(x[v], hn::LoadU(d16, quantRows + v * 8 * kGroup)); });
  constexpr int kShift1 = kFirstShift + kReduction;
  constexpr int kShift2 = kSecondShift + kReduction;
  Transform<kShift1, kReduction>(d16, x, 1 << (kShift1 - 1));
  Transpose8x8(d16, x);
  // The level shift of 128 rides on the rounding bias.
  Transform<kShift2, kReduction>(d16, x, (128 << kShift2) + (1 << (kShift2 - 1)));
  Transpose8x8(d16, x);
  Repeat<kSize>([&](auto y) HWY_ATTR {
    if constexpr (kReduction == 0) {
      hn::StoreU(hn::DemoteTo(d8, x[y]), d8, out + y * stride);
    } else {
      // Each block's samples lead its 8 lanes.
      alignas(16) uint8_t row[8 * kGroup];
      hn::StoreU(hn::DemoteTo(d8, x[y]), d8, row);
      for (size_t g = 0; g < kGroup; ++g) {
        std::memcpy(out + y * stride + kSize * g, row + 8 * g, kSize);
      }
    }
  });
}

// The quarter size needs neither transposition: its 2 x 2 samples depend on
// the DC term and the odd terms of row and column 0 and of the odd rows, so
// the first pass gives two rows and the second sums each row's lanes. The
// constants are those the general form sums, so the numbers are the same.
template <size_t kGroup>
HWY_INLINE void InverseDCTQuarterGroup(const int16_t* HWY_RESTRICT blocks,
                                       const int16_t* HWY_RESTRICT quantRows, uint8_t* out,
                                       size_t stride) {
  const hn::FixedTag<int16_t, 8 * kGroup> d16;
  const hn::Repartition<int32_t, decltype(d16)> d32;
  const hn::Rebind<uint8_t, decltype(d16)> d8;
  auto row = [&](int v) HWY_ATTR {
    return hn::Mul(LoadRows<kGroup>(d16, blocks, v), hn::LoadU(d16, quantRows + v * 8 * kGroup));
  };
  const auto x0 = row(0);
  const auto x1 = row(1);
  const auto x3 = row(3);
  const auto x5 = row(5);
  const auto x7 = row(7);
  constexpr int16_t kW1 = kK1 + kK3 + kK5 + kK7;
  constexpr int16_t kW3 = kK3 - kK7 - kK1 - kK5;
  constexpr int16_t kW5 = kK5 - kK1 + kK7 + kK3;
  constexpr int16_t kW7 = kK7 - kK5 + kK3 - kK1;
  constexpr int kShift1 = kFirstShift + 2;
  constexpr int kShift2 = kSecondShift + 2;
  // Down the columns: the DC row times 4 K4 = 2^15, plus or minus the odd rows.
  const auto bias1 = hn::Set(d32, 1 << (kShift1 - 1));
  const auto dcPair = PairConstant(d16, 2 * kK4, 2 * kK4);
  const auto w13 = PairConstant(d16, kW1, kW3);
  const auto w57 = PairConstant(d16, kW5, kW7);
  const auto dcLow = hn::Add(MulPairs(d32, hn::InterleaveLower(d16, x0, x0), dcPair), bias1);
  const auto dcHigh = hn::Add(MulPairs(d32, hn::InterleaveUpper(d16, x0, x0), dcPair), bias1);
  const auto oddLow = hn::Add(MulPairs(d32, hn::InterleaveLower(d16, x1, x3), w13),
                              MulPairs(d32, hn::InterleaveLower(d16, x5, x7), w57));
  const auto oddHigh = hn::Add(MulPairs(d32, hn::InterleaveUpper(d16, x1, x3), w13),
                               MulPairs(d32, hn::InterleaveUpper(d16, x5, x7), w57));
  const auto top = hn::ReorderDemote2To(d16, hn::ShiftRight<kShift1>(hn::Add(dcLow, oddLow)),
                                        hn::ShiftRight<kShift1>(hn::Add(dcHigh, oddHigh)));
  const auto bottom = hn::ReorderDemote2To(d16, hn::ShiftRight<kShift1>(hn::Sub(dcLow, oddLow)),
                                           hn::ShiftRight<kShift1>(hn::Sub(dcHigh, oddHigh)));
  // Along each row: lane 0 times 2^15 and the odd lanes weighted, summed
  // over the four 32-bit lanes of each block.
  // Per block: the pair (2 K4, 0) on lanes (0, 1) for the DC lane with the
  // rounding bias beside it, and pairs (0, w) on lanes (2i, 2i + 1) for the
  // odd lanes.
  alignas(32) int32_t dcWeights[4 * kGroup] = {};
  alignas(32) int32_t biases[4 * kGroup] = {};
  alignas(32) int32_t oddWeights[4 * kGroup];
  for (size_t g = 0; g < kGroup; ++g) {
    dcWeights[4 * g] = 2 * kK4;
    biases[4 * g] = (128 << kShift2) + (1 << (kShift2 - 1));
    const int16_t weights[4] = {kW1, kW3, kW5, kW7};
    for (int i = 0; i < 4; ++i) {
      oddWeights[4 * g + i] =
          static_cast<int32_t>(static_cast<uint32_t>(static_cast<uint16_t>(weights[i])) << 16);
    }
  }
  const auto dcLane = hn::BitCast(d16, hn::Load(d32, dcWeights));
  const auto oddLanes = hn::BitCast(d16, hn::Load(d32, oddWeights));
  const auto bias2 = hn::Load(d32, biases);
  auto sums = [&](hn::Vec<decltype(d16)> p, hn::Vec<decltype(d32)>& left,
                  hn::Vec<decltype(d32)>& right) HWY_ATTR {
    const auto dc = MulPairs(d32, p, dcLane);
    const auto twice = hn::Add(hn::Add(dc, dc), bias2);
    auto l = hn::Add(twice, MulPairs(d32, p, oddLanes));
    auto r = hn::Sub(twice, MulPairs(d32, p, oddLanes));
    l = hn::Add(l, hn::Shuffle2301(l));
    r = hn::Add(r, hn::Shuffle2301(r));
    left = hn::ShiftRight<kShift2>(hn::Add(l, hn::Shuffle1032(l)));
    right = hn::ShiftRight<kShift2>(hn::Add(r, hn::Shuffle1032(r)));
  };
  hn::Vec<decltype(d32)> topLeft, topRight, bottomLeft, bottomRight;
  sums(top, topLeft, topRight);
  sums(bottom, bottomLeft, bottomRight);
  const auto samples = hn::ReorderDemote2To(d16, hn::InterleaveLower(d32, topLeft, topRight),
                                            hn::InterleaveLower(d32, bottomLeft, bottomRight));
  alignas(16) uint8_t bytes[8 * kGroup];
  hn::StoreU(hn::DemoteTo(d8, samples), d8, bytes);
  for (size_t g = 0; g < kGroup; ++g) {
    std::memcpy(out + 2 * g, bytes + 8 * g, 2);
    std::memcpy(out + stride + 2 * g, bytes + 8 * g + 4, 2);
  }
}

template <int kReduction>
void InverseDCTFixed(const int16_t* blocks, size_t count, const int16_t* quant, uint8_t* out,
                     size_t stride) {
  constexpr size_t kGroup = HWY_MAX_BYTES >= 32 ? 2 : 1;
  constexpr size_t kSize = 8 >> kReduction;
  // The table row by row, repeated for each block of a group.
  alignas(64) int16_t quantRows[64 * kGroup];
  for (int v = 0; v < 8; ++v) {
    for (size_t g = 0; g < kGroup; ++g) {
      std::memcpy(quantRows + (v * kGroup + g) * 8, quant + v * 8, 8 * sizeof(int16_t));
    }
  }
  size_t b = 0;
  for (; b + kGroup <= count; b += kGroup) {
    if constexpr (kReduction == 2) {
      InverseDCTQuarterGroup<kGroup>(blocks + 64 * b, quantRows, out + kSize * b, stride);
    } else {
      InverseDCTGroup<kReduction, kGroup>(blocks + 64 * b, quantRows, out + kSize * b, stride);
    }
  }
  if constexpr (kGroup > 1) {
    if (b < count) {
      alignas(16) int16_t single[64];
      for (int v = 0; v < 8; ++v) {
        std::memcpy(single + v * 8, quant + v * 8, 8 * sizeof(int16_t));
      }
      InverseDCTGroup<kReduction, 1>(blocks + 64 * b, single, out + kSize * b, stride);
    }
  }
}
#endif

void InverseDCTBlocksImpl(int reduction, const int16_t* blocks, size_t count, const int16_t* quant,
                          uint8_t* out, size_t stride) {
  if (reduction >= 3) {
    for (size_t b = 0; b < count; ++b) {
      out[b] = FlatSample(blocks[64 * b], quant[0]);
    }
    return;
  }
#if HWY_TARGET != HWY_SCALAR
  switch (reduction) {
  case 0:
    InverseDCTFixed<0>(blocks, count, quant, out, stride);
    break;
  case 1:
    InverseDCTFixed<1>(blocks, count, quant, out, stride);
    break;
  default:
    InverseDCTFixed<2>(blocks, count, quant, out, stride);
    break;
  }
#else
  NmReference::JPEGInverseDCTBlocks(reduction, blocks, count, quant, out, stride);
#endif
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
