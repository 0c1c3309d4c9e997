// The loop filters in 16-bit lanes, compiled once per Highway target. Along a
// horizontal edge each of the rows around it is one vector; a vertical edge
// is turned into that shape by transposing the rows around it, and back.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "Codecs/Primitives/H264Deblock.cc"
#include <hwy/foreach_target.h> // IWYU pragma: keep
#include <hwy/highway.h>

#include <cstring>
#include <utility>

#include "Codecs/Primitives/H264Deblock.h"

HWY_BEFORE_NAMESPACE();
namespace NmPrimitives {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

#if HWY_TARGET != HWY_SCALAR
template <class D> HWY_INLINE hn::Vec<D> LoadRow(D d, const uint8_t* p) {
  const hn::Rebind<uint8_t, D> d8;
  return hn::BitCast(d, hn::PromoteTo(hn::RebindToUnsigned<D>(), hn::LoadU(d8, p)));
}

template <class D> HWY_INLINE void StoreRow(D, hn::Vec<D> v, uint8_t* p) {
  const hn::Rebind<uint8_t, D> d8;
  hn::StoreU(hn::DemoteTo(d8, v), d8, p);
}

// Where the edge is to be filtered at all: the sample differences across it
// stay below alpha and beta.
template <class D, class V = hn::Vec<D>>
HWY_INLINE auto EdgeMask(D d, V p1, V p0, V q0, V q1, int alpha, int beta) {
  const auto b = hn::Set(d, static_cast<int16_t>(beta));
  return hn::And(hn::And(hn::Lt(hn::Abs(hn::Sub(p0, q0)), hn::Set(d, static_cast<int16_t>(alpha))),
                         hn::Lt(hn::Abs(hn::Sub(p1, p0)), b)),
                 hn::Lt(hn::Abs(hn::Sub(q1, q0)), b));
}

// The clipped difference that moves p0 and q0 towards each other.
template <class V> HWY_INLINE V Delta(V p1, V p0, V q0, V q1, V tc) {
  const hn::DFromV<V> d;
  const V delta = hn::ShiftRight<3>(
      hn::Add(hn::Add(hn::ShiftLeft<2>(hn::Sub(q0, p0)), hn::Sub(p1, q1)), hn::Set(d, 4)));
  return hn::Min(hn::Max(delta, hn::Neg(tc)), tc);
}

// Lengths 16 (luma) or 8 (chroma): one vector of up to that many lanes.
template <int Length> using Tag = hn::CappedTag<int16_t, Length>;

// The tc0 of each sample along the edge, from the four segments' values,
// as bytes of one vector store: lanes spread by scalar stores and read
// back by one wide load would wait for the stores to complete.
template <int Length> HWY_INLINE void SpreadTc0(const int8_t* tc0, int8_t* lanes) {
  const hn::FixedTag<int8_t, 16> d8;
  uint32_t segments;
  std::memcpy(&segments, tc0, 4);
  auto spread = hn::BitCast(d8, hn::Set(hn::FixedTag<uint32_t, 4>(), segments));
  for (int repeat = 1; repeat < Length / 4; repeat *= 2) {
    spread = hn::InterleaveLower(d8, spread, spread);
  }
  hn::Store(spread, d8, lanes);
}

template <class D> HWY_INLINE hn::Vec<D> LoadTc0(D d, const int8_t* lanes) {
  return hn::PromoteTo(d, hn::LoadU(hn::Rebind<int8_t, D>(), lanes));
}

using D8 = hn::FixedTag<uint8_t, 16>;
using V8 = hn::Vec<D8>;

// The normal filter on 16 samples along the edge in 16-bit lanes: v holds
// p2, p1, p0, q0, q1, q2 as bytes, of which p1 .. q1 change. False where
// no sample changes.
template <class D>
HWY_INLINE bool LumaNormalLanes(D d, hn::Vec<hn::Rebind<uint8_t, D>>* v, int alpha, int beta,
                                const int8_t* tcLanes) {
  const hn::Rebind<uint8_t, D> d8;
  const hn::RebindToUnsigned<D> du;
  const auto widen = [&](auto bytes) { return hn::BitCast(d, hn::PromoteTo(du, bytes)); };
  const auto p2 = widen(v[0]), p1 = widen(v[1]), p0 = widen(v[2]), q0 = widen(v[3]),
             q1 = widen(v[4]), q2 = widen(v[5]);
  const auto t0 = LoadTc0(d, tcLanes);
  const auto filter = hn::And(EdgeMask(d, p1, p0, q0, q1, alpha, beta), hn::Gt(t0, hn::Set(d, -1)));
  if (hn::AllFalse(d, filter)) {
    return false;
  }
  const auto b = hn::Set(d, static_cast<int16_t>(beta));
  const auto one = hn::Set(d, 1);
  const auto ap = hn::Lt(hn::Abs(hn::Sub(p2, p0)), b);
  const auto aq = hn::Lt(hn::Abs(hn::Sub(q2, q0)), b);
  const auto tc = hn::Add(hn::Add(t0, hn::IfThenElseZero(ap, one)), hn::IfThenElseZero(aq, one));
  const auto delta = Delta(p1, p0, q0, q1, tc);
  const auto mean = hn::ShiftRight<1>(hn::Add(hn::Add(p0, q0), one));
  const auto clipTc0 = [&](auto x) { return hn::Min(hn::Max(x, hn::Neg(t0)), t0); };
  const auto p1New =
      hn::Add(p1, clipTc0(hn::ShiftRight<1>(hn::Sub(hn::Add(p2, mean), hn::ShiftLeft<1>(p1)))));
  const auto q1New =
      hn::Add(q1, clipTc0(hn::ShiftRight<1>(hn::Sub(hn::Add(q2, mean), hn::ShiftLeft<1>(q1)))));
  const auto narrow = [&](auto x) { return hn::DemoteTo(d8, x); };
  v[1] = narrow(hn::IfThenElse(hn::And(filter, ap), p1New, p1));
  v[2] = narrow(hn::IfThenElse(filter, hn::Add(p0, delta), p0));
  v[3] = narrow(hn::IfThenElse(filter, hn::Sub(q0, delta), q0));
  v[4] = narrow(hn::IfThenElse(hn::And(filter, aq), q1New, q1));
  return true;
}

// What the strong filter of strength 4 makes of p2 .. q2 in 16-bit lanes,
// and the p0 and q0 a side takes where its far sample is not flat enough.
template <class V> struct SmStrongSides {
  V p0Strong, p1Strong, p2Strong, p0Weak, q0Strong, q1Strong, q2Strong, q0Weak;
};

template <class D, class V>
HWY_INLINE SmStrongSides<V> StrongSides(D d, V p3, V p2, V p1, V p0, V q0, V q1, V q2, V q3) {
  const auto two = hn::Set(d, 2), four = hn::Set(d, 4);
  const auto pq0 = hn::Add(p0, q0);
  const auto p0Strong = hn::ShiftRight<3>(
      hn::Add(hn::Add(hn::Add(p2, hn::ShiftLeft<1>(hn::Add(p1, pq0))), q1), four));
  const auto p1Strong = hn::ShiftRight<2>(hn::Add(hn::Add(hn::Add(p2, p1), pq0), two));
  const auto p2Strong = hn::ShiftRight<3>(hn::Add(
      hn::Add(hn::Add(hn::ShiftLeft<1>(p3), hn::Mul(p2, hn::Set(d, 3))), hn::Add(p1, pq0)), four));
  const auto p0Weak =
      hn::ShiftRight<2>(hn::Add(hn::Add(hn::ShiftLeft<1>(p1), p0), hn::Add(q1, two)));
  const auto q0Strong = hn::ShiftRight<3>(
      hn::Add(hn::Add(hn::Add(p1, hn::ShiftLeft<1>(hn::Add(q1, pq0))), q2), four));
  const auto q1Strong = hn::ShiftRight<2>(hn::Add(hn::Add(hn::Add(q2, q1), pq0), two));
  const auto q2Strong = hn::ShiftRight<3>(hn::Add(
      hn::Add(hn::Add(hn::ShiftLeft<1>(q3), hn::Mul(q2, hn::Set(d, 3))), hn::Add(q1, pq0)), four));
  const auto q0Weak =
      hn::ShiftRight<2>(hn::Add(hn::Add(hn::ShiftLeft<1>(q1), q0), hn::Add(p1, two)));
  return {p0Strong, p1Strong, p2Strong, p0Weak, q0Strong, q1Strong, q2Strong, q0Weak};
}

// The strong filter of strength 4 in 16-bit lanes: v holds p3 .. q3, of
// which p2 .. q2 change.
template <class D>
HWY_INLINE bool LumaIntraLanes(D d, hn::Vec<hn::Rebind<uint8_t, D>>* v, int alpha, int beta) {
  const hn::Rebind<uint8_t, D> d8;
  const hn::RebindToUnsigned<D> du;
  const auto widen = [&](auto bytes) { return hn::BitCast(d, hn::PromoteTo(du, bytes)); };
  const auto p3 = widen(v[0]), p2 = widen(v[1]), p1 = widen(v[2]), p0 = widen(v[3]),
             q0 = widen(v[4]), q1 = widen(v[5]), q2 = widen(v[6]), q3 = widen(v[7]);
  const auto filter = EdgeMask(d, p1, p0, q0, q1, alpha, beta);
  if (hn::AllFalse(d, filter)) {
    return false;
  }
  const auto b = hn::Set(d, static_cast<int16_t>(beta));
  const auto strong =
      hn::Lt(hn::Abs(hn::Sub(p0, q0)), hn::Set(d, static_cast<int16_t>((alpha >> 2) + 2)));
  const auto pStrong = hn::And(hn::And(filter, strong), hn::Lt(hn::Abs(hn::Sub(p2, p0)), b));
  const auto qStrong = hn::And(hn::And(filter, strong), hn::Lt(hn::Abs(hn::Sub(q2, q0)), b));
  const auto [p0Strong, p1Strong, p2Strong, p0Weak, q0Strong, q1Strong, q2Strong, q0Weak] =
      StrongSides(d, p3, p2, p1, p0, q0, q1, q2, q3);
  const auto narrow = [&](auto x) { return hn::DemoteTo(d8, x); };
  v[1] = narrow(hn::IfThenElse(pStrong, p2Strong, p2));
  v[2] = narrow(hn::IfThenElse(pStrong, p1Strong, p1));
  v[3] = narrow(hn::IfThenElse(pStrong, p0Strong, hn::IfThenElse(filter, p0Weak, p0)));
  v[4] = narrow(hn::IfThenElse(qStrong, q0Strong, hn::IfThenElse(filter, q0Weak, q0)));
  v[5] = narrow(hn::IfThenElse(qStrong, q1Strong, q1));
  v[6] = narrow(hn::IfThenElse(qStrong, q2Strong, q2));
  return true;
}

// Runs a filter on Count vectors of 16 bytes: at once where a vector holds
// 16 lanes of 16 bits, else in two halves.
template <int Count, typename Filter> HWY_INLINE bool OnSixteenLanes(V8* v, const Filter& filter) {
  constexpr size_t kLanes = hn::MaxLanes(Tag<16>());
  if constexpr (kLanes >= 16) {
    return filter(Tag<16>(), v, 0);
  } else {
    const D8 d8;
    const hn::Half<D8> d8h;
    hn::Vec<hn::Half<D8>> lower[Count], upper[Count];
#pragma GCC unroll 16
    for (int i = 0; i < Count; ++i) {
      lower[i] = hn::LowerHalf(d8h, v[i]);
      upper[i] = hn::UpperHalf(d8h, v[i]);
    }
    const bool changedLower = filter(Tag<8>(), lower, 0);
    const bool changedUpper = filter(Tag<8>(), upper, 8);
#pragma GCC unroll 16
    for (int i = 0; i < Count; ++i) {
      v[i] = hn::Combine(d8, upper[i], lower[i]);
    }
    return changedLower || changedUpper;
  }
}

// The filters as arguments of OnSixteenLanes: a lambda there would not be
// inlined, and the vectors would go through memory.
struct SmNormalFilter {
  int alpha, beta;
  const int8_t* tcLanes;
  template <class D, class V> HWY_INLINE bool operator()(D d, V* v, int offset) const {
    return LumaNormalLanes(d, v, alpha, beta, tcLanes + offset);
  }
};

struct SmIntraFilter {
  int alpha, beta;
  template <class D, class V> HWY_INLINE bool operator()(D d, V* v, int) const {
    return LumaIntraLanes(d, v, alpha, beta);
  }
};

HWY_INLINE bool LumaNormalVectors(V8* v, int alpha, int beta, const int8_t* tc0) {
  HWY_ALIGN int8_t tcLanes[16];
  SpreadTc0<16>(tc0, tcLanes);
  return OnSixteenLanes<6>(v, SmNormalFilter{alpha, beta, tcLanes});
}

HWY_INLINE bool LumaIntraVectors(V8* v, int alpha, int beta) {
  return OnSixteenLanes<8>(v, SmIntraFilter{alpha, beta});
}

void LumaNormal(uint8_t* q, ptrdiff_t stride, int alpha, int beta, const int8_t* tc0) {
  const D8 d8;
  V8 v[6];
#pragma GCC unroll 16
  for (int i = 0; i < 6; ++i) {
    v[i] = hn::LoadU(d8, q + (i - 3) * stride);
  }
  if (LumaNormalVectors(v, alpha, beta, tc0)) {
#pragma GCC unroll 16
    for (int i = 1; i < 5; ++i) {
      hn::StoreU(v[i], d8, q + (i - 3) * stride);
    }
  }
}

void LumaIntra(uint8_t* q, ptrdiff_t stride, int alpha, int beta) {
  const D8 d8;
  V8 v[8];
#pragma GCC unroll 16
  for (int i = 0; i < 8; ++i) {
    v[i] = hn::LoadU(d8, q + (i - 4) * stride);
  }
  if (LumaIntraVectors(v, alpha, beta)) {
#pragma GCC unroll 16
    for (int i = 1; i < 7; ++i) {
      hn::StoreU(v[i], d8, q + (i - 4) * stride);
    }
  }
}

void ChromaNormal(uint8_t* q, ptrdiff_t stride, int alpha, int beta, const int8_t* tc0) {
  const Tag<8> d;
  HWY_ALIGN int8_t tcLanes[16];
  SpreadTc0<8>(tc0, tcLanes);
#pragma GCC unroll 16
  for (size_t x = 0; x < 8; x += hn::Lanes(d)) {
    uint8_t* c = q + x;
    const auto p1 = LoadRow(d, c - 2 * stride), p0 = LoadRow(d, c - stride), q0 = LoadRow(d, c),
               q1 = LoadRow(d, c + stride);
    const auto t0 = LoadTc0(d, tcLanes + x);
    const auto filter =
        hn::And(EdgeMask(d, p1, p0, q0, q1, alpha, beta), hn::Gt(t0, hn::Set(d, -1)));
    const auto delta = Delta(p1, p0, q0, q1, hn::Add(t0, hn::Set(d, 1)));
    StoreRow(d, hn::IfThenElse(filter, hn::Add(p0, delta), p0), c - stride);
    StoreRow(d, hn::IfThenElse(filter, hn::Sub(q0, delta), q0), c);
  }
}

void ChromaIntra(uint8_t* q, ptrdiff_t stride, int alpha, int beta) {
  const Tag<8> d;
  const auto two = hn::Set(d, 2);
#pragma GCC unroll 16
  for (size_t x = 0; x < 8; x += hn::Lanes(d)) {
    uint8_t* c = q + x;
    const auto p1 = LoadRow(d, c - 2 * stride), p0 = LoadRow(d, c - stride), q0 = LoadRow(d, c),
               q1 = LoadRow(d, c + stride);
    const auto filter = EdgeMask(d, p1, p0, q0, q1, alpha, beta);
    const auto p0New =
        hn::ShiftRight<2>(hn::Add(hn::Add(hn::ShiftLeft<1>(p1), p0), hn::Add(q1, two)));
    const auto q0New =
        hn::ShiftRight<2>(hn::Add(hn::Add(hn::ShiftLeft<1>(q1), q0), hn::Add(p1, two)));
    StoreRow(d, hn::IfThenElse(filter, p0New, p0), c - stride);
    StoreRow(d, hn::IfThenElse(filter, q0New, q0), c);
  }
}

using D16x8 = hn::FixedTag<uint16_t, 8>;
using D32x4 = hn::FixedTag<uint32_t, 4>;
using D64x2 = hn::FixedTag<uint64_t, 2>;

// Interleaves the lanes of a and b taken as T: the steps of a transpose.
template <typename T> HWY_INLINE hn::Vec<D8> ZipLower(hn::Vec<D8> a, hn::Vec<D8> b) {
  const D8 d8;
  const hn::Repartition<T, D8> d;
  return hn::BitCast(d8, hn::InterleaveLower(d, hn::BitCast(d, a), hn::BitCast(d, b)));
}
template <typename T> HWY_INLINE hn::Vec<D8> ZipUpper(hn::Vec<D8> a, hn::Vec<D8> b) {
  const D8 d8;
  const hn::Repartition<T, D8> d;
  return hn::BitCast(d8, hn::InterleaveUpper(d, hn::BitCast(d, a), hn::BitCast(d, b)));
}

// A vertical luma edge: the 16 rows of p3 .. q3 around it become eight
// vectors of 16 lanes (one per distance from the edge) through byte, word,
// double-word and quad-word interleaves, all in registers, so that the
// filter runs on them as on a horizontal edge.
HWY_INLINE void LoadColumns(const uint8_t* q, ptrdiff_t stride, V8* columns) {
  const D8 d8;
  const hn::Half<D8> d8h;
  V8 a[8];
#pragma GCC unroll 16
  for (int j = 0; j < 8; ++j) {
    const V8 r0 = hn::ZeroExtendVector(d8, hn::LoadU(d8h, q + 2 * j * stride - 4));
    const V8 r1 = hn::ZeroExtendVector(d8, hn::LoadU(d8h, q + (2 * j + 1) * stride - 4));
    a[j] = hn::InterleaveLower(d8, r0, r1); // column k of rows 2j, 2j + 1 in word k
  }
  V8 b[4], c[4];
#pragma GCC unroll 16
  for (int m = 0; m < 4; ++m) {
    b[m] = ZipLower<uint16_t>(a[2 * m], a[2 * m + 1]); // columns 0..3 of rows 4m..4m+3
    c[m] = ZipUpper<uint16_t>(a[2 * m], a[2 * m + 1]); // columns 4..7
  }
#pragma GCC unroll 16
  for (int half = 0; half < 2; ++half) {
    const V8* v = half == 0 ? b : c;
    // Two columns of rows 0..7, and of rows 8..15, per vector.
    const V8 low0 = ZipLower<uint32_t>(v[0], v[1]), low1 = ZipUpper<uint32_t>(v[0], v[1]);
    const V8 high0 = ZipLower<uint32_t>(v[2], v[3]), high1 = ZipUpper<uint32_t>(v[2], v[3]);
    V8* out = columns + 4 * half;
    out[0] = ZipLower<uint64_t>(low0, high0);
    out[1] = ZipUpper<uint64_t>(low0, high0);
    out[2] = ZipLower<uint64_t>(low1, high1);
    out[3] = ZipUpper<uint64_t>(low1, high1);
  }
}

// The rows of `count` vectors of 16 lanes, `count` bytes each (4 or 8).
template <int Count>
HWY_INLINE void StoreColumns(const V8* columns, uint8_t* first, ptrdiff_t stride) {
  const D8 d8;
  HWY_ALIGN uint8_t rows[16 * Count];
  if constexpr (Count == 4) {
    const V8 lower01 = hn::InterleaveLower(d8, columns[0], columns[1]);
    const V8 upper01 = hn::InterleaveUpper(d8, columns[0], columns[1]);
    const V8 lower23 = hn::InterleaveLower(d8, columns[2], columns[3]);
    const V8 upper23 = hn::InterleaveUpper(d8, columns[2], columns[3]);
    hn::Store(ZipLower<uint16_t>(lower01, lower23), d8, rows);
    hn::Store(ZipUpper<uint16_t>(lower01, lower23), d8, rows + 16);
    hn::Store(ZipLower<uint16_t>(upper01, upper23), d8, rows + 32);
    hn::Store(ZipUpper<uint16_t>(upper01, upper23), d8, rows + 48);
  } else {
    V8 lower[4], upper[4];
#pragma GCC unroll 16
    for (int p = 0; p < 4; ++p) {
      lower[p] = hn::InterleaveLower(d8, columns[2 * p], columns[2 * p + 1]); // rows 0..7
      upper[p] = hn::InterleaveUpper(d8, columns[2 * p], columns[2 * p + 1]); // rows 8..15
    }
#pragma GCC unroll 16
    for (int half = 0; half < 2; ++half) {
      const V8* v = half == 0 ? lower : upper;
      const V8 left0 = ZipLower<uint16_t>(v[0], v[1]), left1 = ZipUpper<uint16_t>(v[0], v[1]);
      const V8 right0 = ZipLower<uint16_t>(v[2], v[3]), right1 = ZipUpper<uint16_t>(v[2], v[3]);
      uint8_t* out = rows + half * 64;
      hn::Store(ZipLower<uint32_t>(left0, right0), d8, out);
      hn::Store(ZipUpper<uint32_t>(left0, right0), d8, out + 16);
      hn::Store(ZipLower<uint32_t>(left1, right1), d8, out + 32);
      hn::Store(ZipUpper<uint32_t>(left1, right1), d8, out + 48);
    }
  }
#pragma GCC unroll 16
  for (int i = 0; i < 16; ++i) {
    std::memcpy(first + i * stride, rows + Count * i, Count);
  }
}

// A vertical chroma edge: 8 rows of p1 .. q1 to four rows of eight, and back.
template <typename Filter>
HWY_INLINE void ChromaAcrossVerticalEdge(uint8_t* q, ptrdiff_t stride, Filter filter) {
  const D8 d8;
  HWY_ALIGN uint8_t copy[4 * 8];
  hn::Vec<D8> a[4];
  for (int j = 0; j < 4; ++j) {
    uint32_t r0, r1;
    std::memcpy(&r0, q + 2 * j * stride - 2, 4);
    std::memcpy(&r1, q + (2 * j + 1) * stride - 2, 4);
    a[j] = hn::InterleaveLower(d8, hn::BitCast(d8, hn::Set(D32x4(), r0)),
                               hn::BitCast(d8, hn::Set(D32x4(), r1)));
  }
  const hn::Vec<D8> b0 = ZipLower<uint16_t>(a[0], a[1]), b1 = ZipLower<uint16_t>(a[2], a[3]);
  hn::Store(ZipLower<uint32_t>(b0, b1), d8, copy);
  hn::Store(ZipUpper<uint32_t>(b0, b1), d8, copy + 16);
  filter(copy + 2 * 8, 8);
  const hn::Vec<D8> v0 = hn::Load(d8, copy), v1 = hn::Load(d8, copy + 16);
  const hn::Vec<D8> t0 = hn::InterleaveLower(d8, v0, hn::ShiftRightBytes<8>(d8, v0));
  const hn::Vec<D8> t1 = hn::InterleaveLower(d8, v1, hn::ShiftRightBytes<8>(d8, v1));
  HWY_ALIGN uint8_t rows[8 * 4];
  hn::Store(ZipLower<uint16_t>(t0, t1), d8, rows);
  hn::Store(ZipUpper<uint16_t>(t0, t1), d8, rows + 16);
  for (int i = 0; i < 8; ++i) {
    std::memcpy(q + i * stride - 2, rows + 4 * i, 4);
  }
}

void LumaVerticalImpl(uint8_t* q, ptrdiff_t stride, int alpha, int beta, const int8_t* tc0) {
  V8 columns[8];
  LoadColumns(q, stride, columns);
  // p3 and q3 are only read by the strong filter; p2 and q2 stay too.
  if (LumaNormalVectors(columns + 1, alpha, beta, tc0)) {
    StoreColumns<4>(columns + 2, q - 2, stride);
  }
}

void LumaHorizontalImpl(uint8_t* q, ptrdiff_t stride, int alpha, int beta, const int8_t* tc0) {
  LumaNormal(q, stride, alpha, beta, tc0);
}

void LumaVerticalIntraImpl(uint8_t* q, ptrdiff_t stride, int alpha, int beta) {
  V8 columns[8];
  LoadColumns(q, stride, columns);
  if (LumaIntraVectors(columns, alpha, beta)) {
    StoreColumns<8>(columns, q - 4, stride);
  }
}

void LumaHorizontalIntraImpl(uint8_t* q, ptrdiff_t stride, int alpha, int beta) {
  LumaIntra(q, stride, alpha, beta);
}

void ChromaVerticalImpl(uint8_t* q, ptrdiff_t stride, int alpha, int beta, const int8_t* tc0) {
  ChromaAcrossVerticalEdge(q, stride,
                           [&](uint8_t* c, ptrdiff_t s) { ChromaNormal(c, s, alpha, beta, tc0); });
}

void ChromaHorizontalImpl(uint8_t* q, ptrdiff_t stride, int alpha, int beta, const int8_t* tc0) {
  ChromaNormal(q, stride, alpha, beta, tc0);
}

void ChromaVerticalIntraImpl(uint8_t* q, ptrdiff_t stride, int alpha, int beta) {
  ChromaAcrossVerticalEdge(q, stride,
                           [&](uint8_t* c, ptrdiff_t s) { ChromaIntra(c, s, alpha, beta); });
}

void ChromaHorizontalIntraImpl(uint8_t* q, ptrdiff_t stride, int alpha, int beta) {
  ChromaIntra(q, stride, alpha, beta);
}

// Both planes of a vertical chroma edge in one vector of 16 lanes of 16
// bits, each half with its own thresholds: p0All and q0All take the new p0
// and q0, Cb's in the lower half.
template <bool Intra, class D>
HWY_INLINE void ChromaPairSixteenLanes(D d, V8 p1, V8 p0, V8 q0, V8 q1, const int* alpha,
                                       const int* beta, const int8_t* tc0, V8& p0All, V8& q0All) {
  const D8 d8;
  const hn::Half<D> dh;
  const auto widen = [&](V8 v) {
    return hn::BitCast(d, hn::PromoteTo(hn::RebindToUnsigned<D>(), v));
  };
  const auto perPlane = [&](const int* values) {
    return hn::Combine(d, hn::Set(dh, static_cast<int16_t>(values[1])),
                       hn::Set(dh, static_cast<int16_t>(values[0])));
  };
  const auto sp1 = widen(p1), sp0 = widen(p0), sq0 = widen(q0), sq1 = widen(q1);
  const auto b = perPlane(beta);
  auto filter = hn::And(hn::And(hn::Lt(hn::Abs(hn::Sub(sp0, sq0)), perPlane(alpha)),
                                hn::Lt(hn::Abs(hn::Sub(sp1, sp0)), b)),
                        hn::Lt(hn::Abs(hn::Sub(sq1, sq0)), b));
  hn::Vec<D> newP0, newQ0;
  if constexpr (Intra) {
    const auto two = hn::Set(d, 2);
    newP0 = hn::ShiftRight<2>(hn::Add(hn::Add(hn::ShiftLeft<1>(sp1), sp0), hn::Add(sq1, two)));
    newQ0 = hn::ShiftRight<2>(hn::Add(hn::Add(hn::ShiftLeft<1>(sq1), sq0), hn::Add(sp1, two)));
  } else {
    // Each segment's tc0 twice: a segment is two rows of chroma.
    const hn::FixedTag<int8_t, 16> di8;
    uint64_t segments;
    std::memcpy(&segments, tc0, 8);
    const auto bytes = hn::BitCast(di8, hn::Set(D64x2(), segments));
    const auto t0 = hn::PromoteTo(d, hn::InterleaveLower(di8, bytes, bytes));
    filter = hn::And(filter, hn::Gt(t0, hn::Set(d, -1)));
    const auto delta = Delta(sp1, sp0, sq0, sq1, hn::Add(t0, hn::Set(d, 1)));
    newP0 = hn::Add(sp0, delta);
    newQ0 = hn::Sub(sq0, delta);
  }
  p0All = hn::DemoteTo(d8, hn::IfThenElse(filter, newP0, sp0));
  q0All = hn::DemoteTo(d8, hn::IfThenElse(filter, newQ0, sq0));
}

// Eight lines of p1 .. q1 of each chroma plane as four vectors of 16 lanes,
// one per distance from the edge, Cb's lines first; all in registers.
HWY_INLINE void LoadChromaPairColumns(const uint8_t* qCb, const uint8_t* qCr, ptrdiff_t stride,
                                      V8* columns) {
  const D8 d8;
  const D64x2 d64;
  const auto rows = [&](const uint8_t* q, int i) {
    const auto word = [&](int r) {
      uint32_t value;
      std::memcpy(&value, q + r * stride - 2, 4);
      return uint64_t{value};
    };
    return hn::BitCast(d8, hn::InterleaveLower(d64, hn::Set(d64, word(i) | word(i + 1) << 32),
                                               hn::Set(d64, word(i + 2) | word(i + 3) << 32)));
  };
  const V8 v0 = rows(qCb, 0), v1 = rows(qCb, 4), v2 = rows(qCr, 0), v3 = rows(qCr, 4);
  const V8 a0 = hn::InterleaveLower(d8, v0, v1), a1 = hn::InterleaveUpper(d8, v0, v1);
  const V8 a2 = hn::InterleaveLower(d8, v2, v3), a3 = hn::InterleaveUpper(d8, v2, v3);
  const V8 b0 = hn::InterleaveLower(d8, a0, a1), b1 = hn::InterleaveUpper(d8, a0, a1);
  const V8 b2 = hn::InterleaveLower(d8, a2, a3), b3 = hn::InterleaveUpper(d8, a2, a3);
  const V8 c0 = hn::InterleaveLower(d8, b0, b1), c1 = hn::InterleaveUpper(d8, b0, b1);
  const V8 c2 = hn::InterleaveLower(d8, b2, b3), c3 = hn::InterleaveUpper(d8, b2, b3);
  columns[0] = ZipLower<uint64_t>(c0, c2);
  columns[1] = ZipUpper<uint64_t>(c0, c2);
  columns[2] = ZipLower<uint64_t>(c1, c3);
  columns[3] = ZipUpper<uint64_t>(c1, c3);
}

// The new p0 and q0 of eight lines of each plane back in place: rows 0 .. 7
// of Cb in the lower lanes, of Cr in the upper.
HWY_INLINE void StoreChromaPairP0Q0(uint8_t* qCb, uint8_t* qCr, ptrdiff_t stride, V8 p0All,
                                    V8 q0All) {
  const D8 d8;
  HWY_ALIGN uint8_t pairs[16 * 2];
  hn::Store(hn::InterleaveLower(d8, p0All, q0All), d8, pairs);
  hn::Store(hn::InterleaveUpper(d8, p0All, q0All), d8, pairs + 16);
  for (int i = 0; i < 8; ++i) {
    std::memcpy(qCb + i * stride - 1, pairs + 2 * i, 2);
    std::memcpy(qCr + i * stride - 1, pairs + 16 + 2 * i, 2);
  }
}

// The vertical edge of both chroma planes: eight rows of p1 .. q1 of each
// are 16 rows of four bytes, which three rounds of byte interleaves turn
// into four vectors of 16 lanes, one per distance from the edge: Cb in the
// lower half, Cr in the upper. Each half filters with its own plane's
// alpha, beta and tc0; p0 and q0 go back. Alone, a chroma edge fills half a
// vector and costs its transposes all the same. Everything stays in
// registers: rows gathered by small stores and read back by wide loads
// would wait for each store to complete, which cost more than the filter.
template <bool Intra>
HWY_INLINE void ChromaPairAcrossVerticalEdge(uint8_t* qCb, uint8_t* qCr, ptrdiff_t stride,
                                             const int* alpha, const int* beta, const int8_t* tc0) {
  const D8 d8;
  V8 c[4];
  LoadChromaPairColumns(qCb, qCr, stride, c);
  const V8 p1 = c[0], p0 = c[1], q0 = c[2], q1 = c[3];
  hn::Vec<D8> p0All, q0All;
  if constexpr (hn::MaxLanes(Tag<16>()) >= 16) {
    ChromaPairSixteenLanes<Intra>(Tag<16>(), p1, p0, q0, q1, alpha, beta, tc0, p0All, q0All);
  } else {
    const hn::Half<D8> d8h;
    const hn::FixedTag<int16_t, 8> d;
    const auto widen = [&](hn::Vec<D8> v, int plane) {
      const auto half = plane == 0 ? hn::LowerHalf(d8h, v) : hn::UpperHalf(d8h, v);
      return hn::BitCast(d, hn::PromoteTo(hn::RebindToUnsigned<decltype(d)>(), half));
    };
    hn::Vec<decltype(d8h)> p0New[2], q0New[2];
    for (int plane = 0; plane < 2; ++plane) {
      const auto sp1 = widen(p1, plane), sp0 = widen(p0, plane), sq0 = widen(q0, plane),
                 sq1 = widen(q1, plane);
      auto filter = EdgeMask(d, sp1, sp0, sq0, sq1, alpha[plane], beta[plane]);
      hn::Vec<decltype(d)> newP0, newQ0;
      if constexpr (Intra) {
        const auto two = hn::Set(d, 2);
        newP0 = hn::ShiftRight<2>(hn::Add(hn::Add(hn::ShiftLeft<1>(sp1), sp0), hn::Add(sq1, two)));
        newQ0 = hn::ShiftRight<2>(hn::Add(hn::Add(hn::ShiftLeft<1>(sq1), sq0), hn::Add(sp1, two)));
      } else {
        // Each segment's tc0 twice: a segment is two rows of chroma.
        uint32_t segments;
        std::memcpy(&segments, tc0 + 4 * plane, 4);
        const hn::FixedTag<int8_t, 16> di8;
        const auto bytes = hn::BitCast(di8, hn::Set(D32x4(), segments));
        const auto t0 = hn::PromoteTo(d, hn::LowerHalf(hn::InterleaveLower(di8, bytes, bytes)));
        filter = hn::And(filter, hn::Gt(t0, hn::Set(d, -1)));
        const auto delta = Delta(sp1, sp0, sq0, sq1, hn::Add(t0, hn::Set(d, 1)));
        newP0 = hn::Add(sp0, delta);
        newQ0 = hn::Sub(sq0, delta);
      }
      p0New[plane] = hn::DemoteTo(d8h, hn::IfThenElse(filter, newP0, sp0));
      q0New[plane] = hn::DemoteTo(d8h, hn::IfThenElse(filter, newQ0, sq0));
    }
    // p0 and q0 side by side per row: rows 0 .. 7 (Cb), then 8 .. 15 (Cr).
    p0All = hn::Combine(d8, p0New[1], p0New[0]);
    q0All = hn::Combine(d8, q0New[1], q0New[0]);
  }
  StoreChromaPairP0Q0(qCb, qCr, stride, p0All, q0All);
}

void ChromaVerticalPairImpl(uint8_t* qCb, uint8_t* qCr, ptrdiff_t stride, const int* alpha,
                            const int* beta, const int8_t* tc0) {
  ChromaPairAcrossVerticalEdge<false>(qCb, qCr, stride, alpha, beta, tc0);
}

void ChromaVerticalPairIntraImpl(uint8_t* qCb, uint8_t* qCr, ptrdiff_t stride, const int* alpha,
                                 const int* beta) {
  ChromaPairAcrossVerticalEdge<true>(qCb, qCr, stride, alpha, beta, nullptr);
}

// The thresholds of an edge whose lines differ, one lane per line, from
// `offset` on.
template <class D> HWY_INLINE hn::Vec<D> LineValues(D d, const uint8_t* values) {
  return hn::BitCast(
      d, hn::PromoteTo(hn::RebindToUnsigned<D>(), hn::LoadU(hn::Rebind<uint8_t, D>(), values)));
}

// Where a line is filtered at all, and of those the lines of strength 4.
template <class D, class V = hn::Vec<D>>
HWY_INLINE auto LineMasks(D d, V p1, V p0, V q0, V q1, const SmH264EdgeLines& lines, int offset,
                          V& alpha, V& beta) {
  alpha = LineValues(d, lines.alpha + offset);
  beta = LineValues(d, lines.beta + offset);
  const V strength = LineValues(d, lines.strength + offset);
  const auto filter = hn::And(
      hn::And(hn::Lt(hn::Abs(hn::Sub(p0, q0)), alpha), hn::Lt(hn::Abs(hn::Sub(p1, p0)), beta)),
      hn::And(hn::Lt(hn::Abs(hn::Sub(q1, q0)), beta), hn::Gt(strength, hn::Zero(d))));
  return std::pair{filter, hn::And(filter, hn::Eq(strength, hn::Set(d, 4)))};
}

// Both luma filters at once, each line taking the one its strength asks
// for: v holds p3 .. q3, of which p2 .. q2 may change.
template <class D>
HWY_INLINE bool LumaLinesLanes(D d, hn::Vec<hn::Rebind<uint8_t, D>>* v,
                               const SmH264EdgeLines& lines, int offset) {
  const hn::Rebind<uint8_t, D> d8;
  const hn::RebindToUnsigned<D> du;
  const auto widen = [&](auto bytes) { return hn::BitCast(d, hn::PromoteTo(du, bytes)); };
  const auto p3 = widen(v[0]), p2 = widen(v[1]), p1 = widen(v[2]), p0 = widen(v[3]),
             q0 = widen(v[4]), q1 = widen(v[5]), q2 = widen(v[6]), q3 = widen(v[7]);
  hn::Vec<D> alpha, b;
  const auto [filter, intra] = LineMasks(d, p1, p0, q0, q1, lines, offset, alpha, b);
  if (hn::AllFalse(d, filter)) {
    return false;
  }
  const auto normal = hn::AndNot(intra, filter);
  const auto one = hn::Set(d, 1), two = hn::Set(d, 2);
  const auto ap = hn::Lt(hn::Abs(hn::Sub(p2, p0)), b);
  const auto aq = hn::Lt(hn::Abs(hn::Sub(q2, q0)), b);
  // Normal filter.
  const auto t0 = LoadTc0(d, lines.tc0 + offset);
  const auto tc = hn::Add(hn::Add(t0, hn::IfThenElseZero(ap, one)), hn::IfThenElseZero(aq, one));
  const auto delta = Delta(p1, p0, q0, q1, tc);
  const auto mean = hn::ShiftRight<1>(hn::Add(hn::Add(p0, q0), one));
  const auto clipTc0 = [&](auto x) { return hn::Min(hn::Max(x, hn::Neg(t0)), t0); };
  const auto p1Normal =
      hn::Add(p1, clipTc0(hn::ShiftRight<1>(hn::Sub(hn::Add(p2, mean), hn::ShiftLeft<1>(p1)))));
  const auto q1Normal =
      hn::Add(q1, clipTc0(hn::ShiftRight<1>(hn::Sub(hn::Add(q2, mean), hn::ShiftLeft<1>(q1)))));
  // Strong filter.
  const auto close = hn::Lt(hn::Abs(hn::Sub(p0, q0)), hn::Add(hn::ShiftRight<2>(alpha), two));
  const auto pStrong = hn::And(hn::And(intra, close), ap);
  const auto qStrong = hn::And(hn::And(intra, close), aq);
  const auto [p0Strong, p1Strong, p2Strong, p0Weak, q0Strong, q1Strong, q2Strong, q0Weak] =
      StrongSides(d, p3, p2, p1, p0, q0, q1, q2, q3);
  const auto narrow = [&](auto x) { return hn::DemoteTo(d8, x); };
  v[1] = narrow(hn::IfThenElse(pStrong, p2Strong, p2));
  v[2] =
      narrow(hn::IfThenElse(pStrong, p1Strong, hn::IfThenElse(hn::And(normal, ap), p1Normal, p1)));
  v[3] = narrow(hn::IfThenElse(
      pStrong, p0Strong,
      hn::IfThenElse(intra, p0Weak, hn::IfThenElse(normal, hn::Add(p0, delta), p0))));
  v[4] = narrow(hn::IfThenElse(
      qStrong, q0Strong,
      hn::IfThenElse(intra, q0Weak, hn::IfThenElse(normal, hn::Sub(q0, delta), q0))));
  v[5] =
      narrow(hn::IfThenElse(qStrong, q1Strong, hn::IfThenElse(hn::And(normal, aq), q1Normal, q1)));
  v[6] = narrow(hn::IfThenElse(qStrong, q2Strong, q2));
  return true;
}

struct SmLinesFilter {
  const SmH264EdgeLines* lines;
  template <class D, class V> HWY_INLINE bool operator()(D d, V* v, int offset) const {
    return LumaLinesLanes(d, v, *lines, offset);
  }
};

void LumaVerticalLinesImpl(uint8_t* q, ptrdiff_t stride, const SmH264EdgeLines& lines) {
  V8 columns[8];
  LoadColumns(q, stride, columns);
  if (OnSixteenLanes<8>(columns, SmLinesFilter{&lines})) {
    StoreColumns<8>(columns, q - 4, stride);
  }
}

// New p0 and q0 of chroma lines, each by its strength.
template <class D, class V8x>
HWY_INLINE void ChromaLinesLanes(D d, V8x p1, V8x p0, V8x q0, V8x q1, const SmH264EdgeLines& lines,
                                 int offset, V8x& p0Out, V8x& q0Out) {
  const hn::Rebind<uint8_t, D> d8;
  const hn::RebindToUnsigned<D> du;
  const auto widen = [&](auto bytes) { return hn::BitCast(d, hn::PromoteTo(du, bytes)); };
  const auto sp1 = widen(p1), sp0 = widen(p0), sq0 = widen(q0), sq1 = widen(q1);
  hn::Vec<D> alpha, beta;
  const auto [filter, intra] = LineMasks(d, sp1, sp0, sq0, sq1, lines, offset, alpha, beta);
  const auto normal = hn::AndNot(intra, filter);
  const auto two = hn::Set(d, 2);
  const auto t0 = LoadTc0(d, lines.tc0 + offset);
  const auto delta = Delta(sp1, sp0, sq0, sq1, hn::Add(t0, hn::Set(d, 1)));
  const auto p0Weak =
      hn::ShiftRight<2>(hn::Add(hn::Add(hn::ShiftLeft<1>(sp1), sp0), hn::Add(sq1, two)));
  const auto q0Weak =
      hn::ShiftRight<2>(hn::Add(hn::Add(hn::ShiftLeft<1>(sq1), sq0), hn::Add(sp1, two)));
  p0Out = hn::DemoteTo(
      d8, hn::IfThenElse(intra, p0Weak, hn::IfThenElse(normal, hn::Add(sp0, delta), sp0)));
  q0Out = hn::DemoteTo(
      d8, hn::IfThenElse(intra, q0Weak, hn::IfThenElse(normal, hn::Sub(sq0, delta), sq0)));
}

void ChromaVerticalLinesImpl(uint8_t* qCb, uint8_t* qCr, ptrdiff_t stride,
                             const SmH264EdgeLines& lines) {
  const D8 d8;
  V8 c[4];
  LoadChromaPairColumns(qCb, qCr, stride, c);
  V8 p0All, q0All;
  if constexpr (hn::MaxLanes(Tag<16>()) >= 16) {
    ChromaLinesLanes(Tag<16>(), c[0], c[1], c[2], c[3], lines, 0, p0All, q0All);
  } else {
    const hn::Half<D8> d8h;
    hn::Vec<hn::Half<D8>> p0New[2], q0New[2];
    for (int half = 0; half < 2; ++half) {
      const auto part = [&](V8 v) {
        return half == 0 ? hn::LowerHalf(d8h, v) : hn::UpperHalf(d8h, v);
      };
      ChromaLinesLanes(Tag<8>(), part(c[0]), part(c[1]), part(c[2]), part(c[3]), lines, 8 * half,
                       p0New[half], q0New[half]);
    }
    p0All = hn::Combine(d8, p0New[1], p0New[0]);
    q0All = hn::Combine(d8, q0New[1], q0New[0]);
  }
  StoreChromaPairP0Q0(qCb, qCr, stride, p0All, q0All);
}

#else
// One lane a vector gains nothing: the scalar target runs the plain loops.
void LumaVerticalLinesImpl(uint8_t* q, ptrdiff_t stride, const SmH264EdgeLines& lines) {
  NmReference::H264FilterLumaVerticalEdgeLines(q, stride, lines);
}
void ChromaVerticalLinesImpl(uint8_t* qCb, uint8_t* qCr, ptrdiff_t stride,
                             const SmH264EdgeLines& lines) {
  NmReference::H264FilterChromaVerticalEdgesLines(qCb, qCr, stride, lines);
}
void ChromaVerticalPairImpl(uint8_t* qCb, uint8_t* qCr, ptrdiff_t stride, const int* alpha,
                            const int* beta, const int8_t* tc0) {
  NmReference::H264FilterChromaVerticalEdges(qCb, qCr, stride, alpha, beta, tc0);
}
void ChromaVerticalPairIntraImpl(uint8_t* qCb, uint8_t* qCr, ptrdiff_t stride, const int* alpha,
                                 const int* beta) {
  NmReference::H264FilterChromaVerticalEdgesIntra(qCb, qCr, stride, alpha, beta);
}

void LumaVerticalImpl(uint8_t* q, ptrdiff_t stride, int alpha, int beta, const int8_t* tc0) {
  NmReference::H264FilterLumaVerticalEdge(q, stride, alpha, beta, tc0);
}
void LumaVerticalIntraImpl(uint8_t* q, ptrdiff_t stride, int alpha, int beta) {
  NmReference::H264FilterLumaVerticalEdgeIntra(q, stride, alpha, beta);
}
void LumaHorizontalImpl(uint8_t* q, ptrdiff_t stride, int alpha, int beta, const int8_t* tc0) {
  NmReference::H264FilterLumaHorizontalEdge(q, stride, alpha, beta, tc0);
}
void LumaHorizontalIntraImpl(uint8_t* q, ptrdiff_t stride, int alpha, int beta) {
  NmReference::H264FilterLumaHorizontalEdgeIntra(q, stride, alpha, beta);
}
void ChromaVerticalImpl(uint8_t* q, ptrdiff_t stride, int alpha, int beta, const int8_t* tc0) {
  NmReference::H264FilterChromaVerticalEdge(q, stride, alpha, beta, tc0);
}
void ChromaVerticalIntraImpl(uint8_t* q, ptrdiff_t stride, int alpha, int beta) {
  NmReference::H264FilterChromaVerticalEdgeIntra(q, stride, alpha, beta);
}
void ChromaHorizontalImpl(uint8_t* q, ptrdiff_t stride, int alpha, int beta, const int8_t* tc0) {
  NmReference::H264FilterChromaHorizontalEdge(q, stride, alpha, beta, tc0);
}
void ChromaHorizontalIntraImpl(uint8_t* q, ptrdiff_t stride, int alpha, int beta) {
  NmReference::H264FilterChromaHorizontalEdgeIntra(q, stride, alpha, beta);
}
#endif

#if HWY_TARGET != HWY_SCALAR
// One row of four 4x4 blocks per vector: the picture identity and whether
// the list is used in 32-bit lanes, the vectors as x, y pairs of 16-bit
// lanes. The row to the left of a row is the row shifted by one block with
// the left macroblock's last block in front; the row above is the row
// before, or the top macroblock's last.
using DBlocks = hn::FixedTag<uint32_t, 4>;
using DVectors = hn::FixedTag<int16_t, 8>;
using VBlocks = hn::Vec<DBlocks>;
using VVectors = hn::Vec<DVectors>;
using MBlocks = hn::Mask<DBlocks>;

struct SmListRows {
  VBlocks picture[4], used[4];
  VVectors mv[4];
};

// Rows of one list; the picture is 0 and the vectors are 0 where the list
// is unused, so that two unused blocks compare equal. With `all` only the
// last row.
HWY_INLINE void LoadRows(const SmH264Motion& m, int list, bool all, SmListRows& rows) {
  const DBlocks d;
  const hn::Rebind<int32_t, DBlocks> di;
  const hn::Rebind<int8_t, DBlocks> d8;
  const DVectors dv;
  const VBlocks used =
      hn::BitCast(d, hn::VecFromMask(di, hn::Gt(hn::PromoteTo(di, hn::LoadU(d8, m.refIdx[list])),
                                                hn::Set(di, -1))));
  const VBlocks picture = hn::And(hn::LoadU(d, m.refPicture[list]), used);
  // The 8x8 blocks 0, 0, 1, 1 along rows 0 and 1, 2, 2, 3, 3 along 2 and 3.
  const VBlocks usedUpper = hn::InterleaveUpper(d, used, used);
  const VBlocks pictureUpper = hn::InterleaveUpper(d, picture, picture);
  const VBlocks usedLower = hn::InterleaveLower(d, used, used);
  const VBlocks pictureLower = hn::InterleaveLower(d, picture, picture);
  for (int y = all ? 0 : 3; y < 4; ++y) {
    rows.used[y] = y < 2 ? usedLower : usedUpper;
    rows.picture[y] = y < 2 ? pictureLower : pictureUpper;
    rows.mv[y] = hn::And(hn::LoadU(dv, m.mv[list][4 * y]), hn::BitCast(dv, rows.used[y]));
  }
}

HWY_INLINE MBlocks AnyHalf(hn::Mask<DVectors> far) {
  const DBlocks d;
  return hn::Ne(hn::BitCast(d, hn::VecFromMask(DVectors(), far)), hn::Zero(d));
}

// Vectors a whole sample or more apart, beyond limits - 1; saturating, so
// exact for any pair.
HWY_INLINE hn::Mask<DVectors> Far(VVectors a, VVectors b, VVectors belowLimits) {
  return hn::Gt(hn::Max(hn::SaturatedSub(a, b), hn::SaturatedSub(b, a)), belowLimits);
}

template <int Lists> struct SmBlockRow {
  VBlocks picture[Lists], used[Lists];
  VVectors mv[Lists];
};

template <int Lists> HWY_INLINE SmBlockRow<Lists> RowOf(const SmListRows* rows, int y) {
  SmBlockRow<Lists> row;
  for (int l = 0; l < Lists; ++l) {
    row.picture[l] = rows[l].picture[y];
    row.used[l] = rows[l].used[y];
    row.mv[l] = rows[l].mv[y];
  }
  return row;
}

// The row shifted right by one block, the last block of `left` in front.
template <int Lists>
HWY_INLINE SmBlockRow<Lists> ShiftIn(const SmBlockRow<Lists>& row, const SmBlockRow<Lists>& left) {
  const DBlocks d;
  const DVectors dv;
  SmBlockRow<Lists> shifted;
  for (int l = 0; l < Lists; ++l) {
    shifted.picture[l] = hn::CombineShiftRightBytes<12>(d, row.picture[l], left.picture[l]);
    shifted.used[l] = hn::CombineShiftRightBytes<12>(d, row.used[l], left.used[l]);
    shifted.mv[l] = hn::CombineShiftRightBytes<12>(dv, row.mv[l], left.mv[l]);
  }
  return shifted;
}

HWY_INLINE VBlocks SameReference(VBlocks pictureA, VBlocks usedA, VBlocks pictureB, VBlocks usedB) {
  const DBlocks d;
  return hn::VecFromMask(
      d, hn::Eq(hn::Or(hn::Xor(pictureA, pictureB), hn::Xor(usedA, usedB)), hn::Zero(d)));
}

template <int Lists>
HWY_INLINE MBlocks Differ(const SmBlockRow<Lists>& p, const SmBlockRow<Lists>& q, VVectors limits) {
  const DBlocks d;
  if constexpr (Lists == 1) {
    return hn::Or(hn::Ne(p.picture[0], q.picture[0]), AnyHalf(Far(p.mv[0], q.mv[0], limits)));
  } else {
    // Paired straight (list with list) or crossed: the pairing whose
    // pictures agree decides by its vectors; where both agree (one picture
    // twice), both must find a far pair; where neither does, the blocks
    // differ.
    const VBlocks straight =
        hn::And(SameReference(p.picture[0], p.used[0], q.picture[0], q.used[0]),
                SameReference(p.picture[1], p.used[1], q.picture[1], q.used[1]));
    const VBlocks crossed =
        hn::And(SameReference(p.picture[0], p.used[0], q.picture[1], q.used[1]),
                SameReference(p.picture[1], p.used[1], q.picture[0], q.used[0]));
    const VBlocks farStraight = hn::VecFromMask(
        d, AnyHalf(hn::Or(Far(p.mv[0], q.mv[0], limits), Far(p.mv[1], q.mv[1], limits))));
    const VBlocks farCrossed = hn::VecFromMask(
        d, AnyHalf(hn::Or(Far(p.mv[0], q.mv[1], limits), Far(p.mv[1], q.mv[0], limits))));
    const VBlocks close =
        hn::Or(hn::AndNot(farStraight, straight), hn::AndNot(farCrossed, crossed));
    return hn::Eq(close, hn::Zero(d));
  }
}

template <int Lists>
HWY_INLINE void MotionEdges(const SmH264Motion& q, const SmH264Motion& left,
                            const SmH264Motion& top, int list, int verticalLimit, uint16_t* edges) {
  const DBlocks d;
  const DVectors dv;
  SmListRows own[Lists], leftRows[Lists], topRows[Lists];
  for (int l = 0; l < Lists; ++l) {
    const int which = Lists == 1 ? list : l;
    LoadRows(q, which, true, own[l]);
    LoadRows(left, which, true, leftRows[l]);
    LoadRows(top, which, false, topRows[l]);
  }
  // One below the x limit in even lanes, the y limit in odd ones.
  const VVectors limits = hn::BitCast(
      dv, hn::Set(d, 3u | static_cast<uint32_t>(static_cast<uint16_t>(verticalLimit - 1)) << 16));
  uint8_t bits[2][4];
  SmBlockRow<Lists> above = RowOf<Lists>(topRows, 3);
  for (int y = 0; y < 4; ++y) {
    const SmBlockRow<Lists> row = RowOf<Lists>(own, y);
    const SmBlockRow<Lists> beside = ShiftIn(row, RowOf<Lists>(leftRows, y));
    hn::StoreMaskBits(d, Differ(beside, row, limits), bits[0] + y);
    hn::StoreMaskBits(d, Differ(above, row, limits), bits[1] + y);
    above = row;
  }
  for (int direction = 0; direction < 2; ++direction) {
    edges[direction] = static_cast<uint16_t>(bits[direction][0] | bits[direction][1] << 4 |
                                             bits[direction][2] << 8 | bits[direction][3] << 12);
  }
}

void MotionEdgesImpl(const SmH264Motion& q, const SmH264Motion& left, const SmH264Motion& top,
                     int list, int verticalLimit, uint16_t* edges) {
  if (list >= 0) {
    MotionEdges<1>(q, left, top, list, verticalLimit, edges);
  } else {
    MotionEdges<2>(q, left, top, list, verticalLimit, edges);
  }
}
#else
void MotionEdgesImpl(const SmH264Motion& q, const SmH264Motion& left, const SmH264Motion& top,
                     int list, int verticalLimit, uint16_t* edges) {
  NmReference::H264GetMotionEdges(q, left, top, list, verticalLimit, edges);
}
#endif

} // namespace HWY_NAMESPACE
} // namespace NmPrimitives
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace NmPrimitives {

HWY_EXPORT(LumaVerticalImpl);
HWY_EXPORT(LumaHorizontalImpl);
HWY_EXPORT(LumaVerticalIntraImpl);
HWY_EXPORT(LumaHorizontalIntraImpl);
HWY_EXPORT(ChromaVerticalImpl);
HWY_EXPORT(ChromaHorizontalImpl);
HWY_EXPORT(ChromaVerticalIntraImpl);
HWY_EXPORT(ChromaHorizontalIntraImpl);
HWY_EXPORT(ChromaVerticalPairImpl);
HWY_EXPORT(ChromaVerticalPairIntraImpl);
HWY_EXPORT(MotionEdgesImpl);

void H264GetMotionEdges(const SmH264Motion& q, const SmH264Motion& left, const SmH264Motion& top,
                        int list, int verticalLimit, uint16_t* edges) {
  HWY_DYNAMIC_DISPATCH(MotionEdgesImpl)(q, left, top, list, verticalLimit, edges);
}

HWY_EXPORT(LumaVerticalLinesImpl);
HWY_EXPORT(ChromaVerticalLinesImpl);

void H264FilterLumaVerticalEdgeLines(uint8_t* q, ptrdiff_t stride, const SmH264EdgeLines& lines) {
  HWY_DYNAMIC_DISPATCH(LumaVerticalLinesImpl)(q, stride, lines);
}

void H264FilterChromaVerticalEdgesLines(uint8_t* qCb, uint8_t* qCr, ptrdiff_t stride,
                                        const SmH264EdgeLines& lines) {
  HWY_DYNAMIC_DISPATCH(ChromaVerticalLinesImpl)(qCb, qCr, stride, lines);
}

void H264FilterChromaVerticalEdges(uint8_t* qCb, uint8_t* qCr, ptrdiff_t stride, const int* alpha,
                                   const int* beta, const int8_t* tc0) {
  HWY_DYNAMIC_DISPATCH(ChromaVerticalPairImpl)(qCb, qCr, stride, alpha, beta, tc0);
}

void H264FilterChromaVerticalEdgesIntra(uint8_t* qCb, uint8_t* qCr, ptrdiff_t stride,
                                        const int* alpha, const int* beta) {
  HWY_DYNAMIC_DISPATCH(ChromaVerticalPairIntraImpl)(qCb, qCr, stride, alpha, beta);
}

void H264FilterLumaVerticalEdge(uint8_t* q, ptrdiff_t stride, int alpha, int beta,
                                const int8_t* tc0) {
  HWY_DYNAMIC_DISPATCH(LumaVerticalImpl)(q, stride, alpha, beta, tc0);
}

void H264FilterLumaHorizontalEdge(uint8_t* q, ptrdiff_t stride, int alpha, int beta,
                                  const int8_t* tc0) {
  HWY_DYNAMIC_DISPATCH(LumaHorizontalImpl)(q, stride, alpha, beta, tc0);
}

void H264FilterLumaVerticalEdgeIntra(uint8_t* q, ptrdiff_t stride, int alpha, int beta) {
  HWY_DYNAMIC_DISPATCH(LumaVerticalIntraImpl)(q, stride, alpha, beta);
}

void H264FilterLumaHorizontalEdgeIntra(uint8_t* q, ptrdiff_t stride, int alpha, int beta) {
  HWY_DYNAMIC_DISPATCH(LumaHorizontalIntraImpl)(q, stride, alpha, beta);
}

void H264FilterChromaVerticalEdge(uint8_t* q, ptrdiff_t stride, int alpha, int beta,
                                  const int8_t* tc0) {
  HWY_DYNAMIC_DISPATCH(ChromaVerticalImpl)(q, stride, alpha, beta, tc0);
}

void H264FilterChromaHorizontalEdge(uint8_t* q, ptrdiff_t stride, int alpha, int beta,
                                    const int8_t* tc0) {
  HWY_DYNAMIC_DISPATCH(ChromaHorizontalImpl)(q, stride, alpha, beta, tc0);
}

void H264FilterChromaVerticalEdgeIntra(uint8_t* q, ptrdiff_t stride, int alpha, int beta) {
  HWY_DYNAMIC_DISPATCH(ChromaVerticalIntraImpl)(q, stride, alpha, beta);
}

void H264FilterChromaHorizontalEdgeIntra(uint8_t* q, ptrdiff_t stride, int alpha, int beta) {
  HWY_DYNAMIC_DISPATCH(ChromaHorizontalIntraImpl)(q, stride, alpha, beta);
}

} // namespace NmPrimitives
#endif
