// The loop filters in 16-bit lanes, compiled once per Highway target. Along a
// horizontal edge each of the rows around it is one vector; a vertical edge
// is turned into that shape through a small transposed copy and back.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "Codecs/Primitives/H264Deblock.cc"
#include <hwy/foreach_target.h> // IWYU pragma: keep
#include <hwy/highway.h>

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

template <class D> HWY_INLINE void StoreRow(D d, hn::Vec<D> v, uint8_t* p) {
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

// The tc0 of each sample along the edge, from the four segments' values.
template <int Length> HWY_INLINE void SpreadTc0(const int8_t* tc0, int16_t* lanes) {
  for (int i = 0; i < Length; ++i) {
    lanes[i] = tc0[i / (Length / 4)];
  }
}

void LumaNormal(uint8_t* q, ptrdiff_t stride, int alpha, int beta, const int8_t* tc0) {
  const Tag<16> d;
  int16_t tcLanes[16];
  SpreadTc0<16>(tc0, tcLanes);
  const auto b = hn::Set(d, static_cast<int16_t>(beta));
  const auto one = hn::Set(d, 1);
  for (size_t x = 0; x < 16; x += hn::Lanes(d)) {
    uint8_t* c = q + x;
    const auto p2 = LoadRow(d, c - 3 * stride), p1 = LoadRow(d, c - 2 * stride),
               p0 = LoadRow(d, c - stride), q0 = LoadRow(d, c), q1 = LoadRow(d, c + stride),
               q2 = LoadRow(d, c + 2 * stride);
    const auto t0 = hn::LoadU(d, tcLanes + x);
    const auto filter =
        hn::And(EdgeMask(d, p1, p0, q0, q1, alpha, beta), hn::Gt(t0, hn::Set(d, -1)));
    if (hn::AllFalse(d, filter)) {
      continue;
    }
    const auto ap = hn::Lt(hn::Abs(hn::Sub(p2, p0)), b);
    const auto aq = hn::Lt(hn::Abs(hn::Sub(q2, q0)), b);
    const auto tc = hn::Add(hn::Add(t0, hn::IfThenElseZero(ap, one)), hn::IfThenElseZero(aq, one));
    const auto delta = Delta(p1, p0, q0, q1, tc);
    const auto mean = hn::ShiftRight<1>(hn::Add(hn::Add(p0, q0), one));
    const auto clipTc0 = [&](auto v) { return hn::Min(hn::Max(v, hn::Neg(t0)), t0); };
    const auto p1New =
        hn::Add(p1, clipTc0(hn::ShiftRight<1>(hn::Sub(hn::Add(p2, mean), hn::ShiftLeft<1>(p1)))));
    const auto q1New =
        hn::Add(q1, clipTc0(hn::ShiftRight<1>(hn::Sub(hn::Add(q2, mean), hn::ShiftLeft<1>(q1)))));
    StoreRow(d, hn::IfThenElse(hn::And(filter, ap), p1New, p1), c - 2 * stride);
    StoreRow(d, hn::IfThenElse(filter, hn::Add(p0, delta), p0), c - stride);
    StoreRow(d, hn::IfThenElse(filter, hn::Sub(q0, delta), q0), c);
    StoreRow(d, hn::IfThenElse(hn::And(filter, aq), q1New, q1), c + stride);
  }
}

void LumaIntra(uint8_t* q, ptrdiff_t stride, int alpha, int beta) {
  const Tag<16> d;
  const auto b = hn::Set(d, static_cast<int16_t>(beta));
  const auto two = hn::Set(d, 2), four = hn::Set(d, 4);
  for (size_t x = 0; x < 16; x += hn::Lanes(d)) {
    uint8_t* c = q + x;
    const auto p3 = LoadRow(d, c - 4 * stride), p2 = LoadRow(d, c - 3 * stride),
               p1 = LoadRow(d, c - 2 * stride), p0 = LoadRow(d, c - stride), q0 = LoadRow(d, c),
               q1 = LoadRow(d, c + stride), q2 = LoadRow(d, c + 2 * stride),
               q3 = LoadRow(d, c + 3 * stride);
    const auto filter = EdgeMask(d, p1, p0, q0, q1, alpha, beta);
    if (hn::AllFalse(d, filter)) {
      continue;
    }
    const auto strong =
        hn::Lt(hn::Abs(hn::Sub(p0, q0)), hn::Set(d, static_cast<int16_t>((alpha >> 2) + 2)));
    const auto pStrong = hn::And(hn::And(filter, strong), hn::Lt(hn::Abs(hn::Sub(p2, p0)), b));
    const auto qStrong = hn::And(hn::And(filter, strong), hn::Lt(hn::Abs(hn::Sub(q2, q0)), b));
    const auto pq0 = hn::Add(p0, q0);
    // p side: three samples where strong, else p0 alone.
    const auto p0Strong = hn::ShiftRight<3>(
        hn::Add(hn::Add(hn::Add(p2, hn::ShiftLeft<1>(hn::Add(p1, pq0))), q1), four));
    const auto p1Strong = hn::ShiftRight<2>(hn::Add(hn::Add(hn::Add(p2, p1), pq0), two));
    const auto p2Strong = hn::ShiftRight<3>(hn::Add(
        hn::Add(hn::Add(hn::ShiftLeft<1>(p3), hn::Mul(p2, hn::Set(d, 3))), hn::Add(p1, pq0)),
        four));
    const auto p0Weak =
        hn::ShiftRight<2>(hn::Add(hn::Add(hn::ShiftLeft<1>(p1), p0), hn::Add(q1, two)));
    const auto q0Strong = hn::ShiftRight<3>(
        hn::Add(hn::Add(hn::Add(p1, hn::ShiftLeft<1>(hn::Add(q1, pq0))), q2), four));
    const auto q1Strong = hn::ShiftRight<2>(hn::Add(hn::Add(hn::Add(q2, q1), pq0), two));
    const auto q2Strong = hn::ShiftRight<3>(hn::Add(
        hn::Add(hn::Add(hn::ShiftLeft<1>(q3), hn::Mul(q2, hn::Set(d, 3))), hn::Add(q1, pq0)),
        four));
    const auto q0Weak =
        hn::ShiftRight<2>(hn::Add(hn::Add(hn::ShiftLeft<1>(q1), q0), hn::Add(p1, two)));
    StoreRow(d, hn::IfThenElse(pStrong, p2Strong, p2), c - 3 * stride);
    StoreRow(d, hn::IfThenElse(pStrong, p1Strong, p1), c - 2 * stride);
    StoreRow(d, hn::IfThenElse(pStrong, p0Strong, hn::IfThenElse(filter, p0Weak, p0)), c - stride);
    StoreRow(d, hn::IfThenElse(qStrong, q0Strong, hn::IfThenElse(filter, q0Weak, q0)), c);
    StoreRow(d, hn::IfThenElse(qStrong, q1Strong, q1), c + stride);
    StoreRow(d, hn::IfThenElse(qStrong, q2Strong, q2), c + 2 * stride);
  }
}

void ChromaNormal(uint8_t* q, ptrdiff_t stride, int alpha, int beta, const int8_t* tc0) {
  const Tag<8> d;
  int16_t tcLanes[8];
  SpreadTc0<8>(tc0, tcLanes);
  for (size_t x = 0; x < 8; x += hn::Lanes(d)) {
    uint8_t* c = q + x;
    const auto p1 = LoadRow(d, c - 2 * stride), p0 = LoadRow(d, c - stride), q0 = LoadRow(d, c),
               q1 = LoadRow(d, c + stride);
    const auto t0 = hn::LoadU(d, tcLanes + x);
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

// A vertical edge of `Length` rows with `Reach` samples on either side,
// copied so that each column across the edge becomes a row of Length bytes;
// `filter` runs on the copy, and the rows it may change (all but the outer
// ones it only reads) go back.
template <int Length, int Reach, typename Filter>
HWY_INLINE void AcrossVerticalEdge(uint8_t* q, ptrdiff_t stride, Filter filter) {
  uint8_t copy[2 * Reach * Length];
  for (int i = 0; i < Length; ++i) {
    const uint8_t* row = q + i * stride - Reach;
    for (int k = 0; k < 2 * Reach; ++k) {
      copy[k * Length + i] = row[k];
    }
  }
  filter(copy + Reach * Length, Length);
  const int changed = Reach == 4 ? 3 : 1;
  for (int i = 0; i < Length; ++i) {
    uint8_t* row = q + i * stride - Reach;
    for (int k = Reach - changed; k < Reach + changed; ++k) {
      row[k] = copy[k * Length + i];
    }
  }
}

void LumaVerticalImpl(uint8_t* q, ptrdiff_t stride, int alpha, int beta, const int8_t* tc0) {
  AcrossVerticalEdge<16, 4>(q, stride,
                            [&](uint8_t* c, ptrdiff_t s) { LumaNormal(c, s, alpha, beta, tc0); });
}

void LumaHorizontalImpl(uint8_t* q, ptrdiff_t stride, int alpha, int beta, const int8_t* tc0) {
  LumaNormal(q, stride, alpha, beta, tc0);
}

void LumaVerticalIntraImpl(uint8_t* q, ptrdiff_t stride, int alpha, int beta) {
  AcrossVerticalEdge<16, 4>(q, stride,
                            [&](uint8_t* c, ptrdiff_t s) { LumaIntra(c, s, alpha, beta); });
}

void LumaHorizontalIntraImpl(uint8_t* q, ptrdiff_t stride, int alpha, int beta) {
  LumaIntra(q, stride, alpha, beta);
}

void ChromaVerticalImpl(uint8_t* q, ptrdiff_t stride, int alpha, int beta, const int8_t* tc0) {
  AcrossVerticalEdge<8, 2>(q, stride,
                           [&](uint8_t* c, ptrdiff_t s) { ChromaNormal(c, s, alpha, beta, tc0); });
}

void ChromaHorizontalImpl(uint8_t* q, ptrdiff_t stride, int alpha, int beta, const int8_t* tc0) {
  ChromaNormal(q, stride, alpha, beta, tc0);
}

void ChromaVerticalIntraImpl(uint8_t* q, ptrdiff_t stride, int alpha, int beta) {
  AcrossVerticalEdge<8, 2>(q, stride,
                           [&](uint8_t* c, ptrdiff_t s) { ChromaIntra(c, s, alpha, beta); });
}

void ChromaHorizontalIntraImpl(uint8_t* q, ptrdiff_t stride, int alpha, int beta) {
  ChromaIntra(q, stride, alpha, beta);
}

#else
// One lane a vector gains nothing: the scalar target runs the plain loops.
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
