#include <algorithm>
#include <cstdlib>

#include "Codecs/Primitives/H264Deblock.h"

namespace NmPrimitives::NmReference {

namespace {

uint8_t Clip(int value) {
  return static_cast<uint8_t>(std::clamp(value, 0, 255));
}

// Filters the samples across the edge at one position: p[-k * step] and
// q[k * step] for k from 0. A tc0 below 0 asks for the strong filter.
void FilterLuma(uint8_t* q, ptrdiff_t step, int alpha, int beta, int tc0) {
  const int p0 = q[-step], p1 = q[-2 * step], p2 = q[-3 * step];
  const int q0 = q[0], q1 = q[step], q2 = q[2 * step];
  if (std::abs(p0 - q0) >= alpha || std::abs(p1 - p0) >= beta || std::abs(q1 - q0) >= beta) {
    return;
  }
  const int ap = std::abs(p2 - p0);
  const int aq = std::abs(q2 - q0);
  if (tc0 >= 0) {
    const int tc = tc0 + (ap < beta) + (aq < beta);
    const int delta = std::clamp((((q0 - p0) * 4) + (p1 - q1) + 4) >> 3, -tc, tc);
    q[-step] = Clip(p0 + delta);
    q[0] = Clip(q0 - delta);
    if (ap < beta) {
      q[-2 * step] = static_cast<uint8_t>(
          p1 + std::clamp((p2 + ((p0 + q0 + 1) >> 1) - 2 * p1) >> 1, -tc0, tc0));
    }
    if (aq < beta) {
      q[step] = static_cast<uint8_t>(
          q1 + std::clamp((q2 + ((p0 + q0 + 1) >> 1) - 2 * q1) >> 1, -tc0, tc0));
    }
    return;
  }
  const bool strong = std::abs(p0 - q0) < ((alpha >> 2) + 2);
  if (ap < beta && strong) {
    const int p3 = q[-4 * step];
    q[-step] = static_cast<uint8_t>((p2 + 2 * p1 + 2 * p0 + 2 * q0 + q1 + 4) >> 3);
    q[-2 * step] = static_cast<uint8_t>((p2 + p1 + p0 + q0 + 2) >> 2);
    q[-3 * step] = static_cast<uint8_t>((2 * p3 + 3 * p2 + p1 + p0 + q0 + 4) >> 3);
  } else {
    q[-step] = static_cast<uint8_t>((2 * p1 + p0 + q1 + 2) >> 2);
  }
  if (aq < beta && strong) {
    const int q3 = q[3 * step];
    q[0] = static_cast<uint8_t>((p1 + 2 * p0 + 2 * q0 + 2 * q1 + q2 + 4) >> 3);
    q[step] = static_cast<uint8_t>((p0 + q0 + q1 + q2 + 2) >> 2);
    q[2 * step] = static_cast<uint8_t>((2 * q3 + 3 * q2 + q1 + q0 + p0 + 4) >> 3);
  } else {
    q[0] = static_cast<uint8_t>((2 * q1 + q0 + p1 + 2) >> 2);
  }
}

void FilterChroma(uint8_t* q, ptrdiff_t step, int alpha, int beta, int tc0) {
  const int p0 = q[-step], p1 = q[-2 * step];
  const int q0 = q[0], q1 = q[step];
  if (std::abs(p0 - q0) >= alpha || std::abs(p1 - p0) >= beta || std::abs(q1 - q0) >= beta) {
    return;
  }
  if (tc0 >= 0) {
    const int tc = tc0 + 1;
    const int delta = std::clamp((((q0 - p0) * 4) + (p1 - q1) + 4) >> 3, -tc, tc);
    q[-step] = Clip(p0 + delta);
    q[0] = Clip(q0 - delta);
    return;
  }
  q[-step] = static_cast<uint8_t>((2 * p1 + p0 + q1 + 2) >> 2);
  q[0] = static_cast<uint8_t>((2 * q1 + q0 + p1 + 2) >> 2);
}

// Runs `filter` at each position of an edge `length` samples long, with the
// segment's tc0, or -1 throughout for the strong filters.
template <typename Filter>
void FilterEdge(uint8_t* q, ptrdiff_t across, ptrdiff_t along, int length, int alpha, int beta,
                const int8_t* tc0, Filter filter) {
  const int perSegment = length / 4;
  for (int i = 0; i < length; ++i) {
    if (tc0 == nullptr) {
      filter(q + i * along, across, alpha, beta, -1);
    } else if (tc0[i / perSegment] >= 0) {
      filter(q + i * along, across, alpha, beta, tc0[i / perSegment]);
    }
  }
}

} // namespace

void H264FilterLumaVerticalEdge(uint8_t* q, ptrdiff_t stride, int alpha, int beta,
                                const int8_t* tc0) {
  FilterEdge(q, 1, stride, 16, alpha, beta, tc0, FilterLuma);
}

void H264FilterLumaHorizontalEdge(uint8_t* q, ptrdiff_t stride, int alpha, int beta,
                                  const int8_t* tc0) {
  FilterEdge(q, stride, 1, 16, alpha, beta, tc0, FilterLuma);
}

void H264FilterLumaVerticalEdgeIntra(uint8_t* q, ptrdiff_t stride, int alpha, int beta) {
  FilterEdge(q, 1, stride, 16, alpha, beta, nullptr, FilterLuma);
}

void H264FilterLumaHorizontalEdgeIntra(uint8_t* q, ptrdiff_t stride, int alpha, int beta) {
  FilterEdge(q, stride, 1, 16, alpha, beta, nullptr, FilterLuma);
}

void H264FilterChromaVerticalEdge(uint8_t* q, ptrdiff_t stride, int alpha, int beta,
                                  const int8_t* tc0) {
  FilterEdge(q, 1, stride, 8, alpha, beta, tc0, FilterChroma);
}

void H264FilterChromaHorizontalEdge(uint8_t* q, ptrdiff_t stride, int alpha, int beta,
                                    const int8_t* tc0) {
  FilterEdge(q, stride, 1, 8, alpha, beta, tc0, FilterChroma);
}

void H264FilterChromaVerticalEdgeIntra(uint8_t* q, ptrdiff_t stride, int alpha, int beta) {
  FilterEdge(q, 1, stride, 8, alpha, beta, nullptr, FilterChroma);
}

void H264FilterChromaHorizontalEdgeIntra(uint8_t* q, ptrdiff_t stride, int alpha, int beta) {
  FilterEdge(q, stride, 1, 8, alpha, beta, nullptr, FilterChroma);
}

// Both planes are simply filtered one after the other.
void H264FilterChromaVerticalEdges(uint8_t* qCb, uint8_t* qCr, ptrdiff_t stride, const int* alpha,
                                   const int* beta, const int8_t* tc0) {
  H264FilterChromaVerticalEdge(qCb, stride, alpha[0], beta[0], tc0);
  H264FilterChromaVerticalEdge(qCr, stride, alpha[1], beta[1], tc0 + 4);
}

void H264FilterChromaVerticalEdgesIntra(uint8_t* qCb, uint8_t* qCr, ptrdiff_t stride,
                                        const int* alpha, const int* beta) {
  H264FilterChromaVerticalEdgeIntra(qCb, stride, alpha[0], beta[0]);
  H264FilterChromaVerticalEdgeIntra(qCr, stride, alpha[1], beta[1]);
}

namespace {

// Whether block bp of p and block bq of q differ in motion.
bool DifferInMotion(const SmH264Motion& p, int bp, const SmH264Motion& q, int bq, int list,
                    int verticalLimit) {
  const int p8 = (bp & 3) / 2 + 2 * (bp / 8), q8 = (bq & 3) / 2 + 2 * (bq / 8);
  const auto far = [&](int lp, int lq) {
    const int16_t* a = p.mv[lp][bp];
    const int16_t* b = q.mv[lq][bq];
    return std::abs(a[0] - b[0]) >= 4 || std::abs(a[1] - b[1]) >= verticalLimit;
  };
  if (list >= 0) {
    return p.refPicture[list][p8] != q.refPicture[list][q8] || far(list, list);
  }
  const bool p0 = p.refIdx[0][p8] >= 0, p1 = p.refIdx[1][p8] >= 0;
  const bool q0 = q.refIdx[0][q8] >= 0, q1 = q.refIdx[1][q8] >= 0;
  if (p0 + p1 != q0 + q1) {
    return true;
  }
  if (!p0 && !p1) {
    return false;
  }
  if (!(p0 && p1)) {
    const int lp = p0 ? 0 : 1, lq = q0 ? 0 : 1;
    return p.refPicture[lp][p8] != q.refPicture[lq][q8] || far(lp, lq);
  }
  const uint32_t a0 = p.refPicture[0][p8], a1 = p.refPicture[1][p8];
  const uint32_t b0 = q.refPicture[0][q8], b1 = q.refPicture[1][q8];
  const bool straight = a0 == b0 && a1 == b1, crossed = a0 == b1 && a1 == b0;
  if (straight && crossed) {
    // One picture twice on both sides.
    return (far(0, 0) || far(1, 1)) && (far(0, 1) || far(1, 0));
  }
  if (straight) {
    return far(0, 0) || far(1, 1);
  }
  if (crossed) {
    return far(0, 1) || far(1, 0);
  }
  return true;
}

} // namespace

void H264GetMotionEdges(const SmH264Motion& q, const SmH264Motion& left, const SmH264Motion& top,
                        int list, int verticalLimit, uint16_t* edges) {
  unsigned vertical = 0, horizontal = 0;
  for (int b = 0; b < 16; ++b) {
    const int x = b & 3, y = b / 4;
    if (x > 0 ? DifferInMotion(q, b - 1, q, b, list, verticalLimit)
              : DifferInMotion(left, b + 3, q, b, list, verticalLimit)) {
      vertical |= 1u << b;
    }
    if (y > 0 ? DifferInMotion(q, b - 4, q, b, list, verticalLimit)
              : DifferInMotion(top, b + 12, q, b, list, verticalLimit)) {
      horizontal |= 1u << b;
    }
  }
  edges[0] = static_cast<uint16_t>(vertical);
  edges[1] = static_cast<uint16_t>(horizontal);
}

void H264FilterLumaVerticalEdgeLines(uint8_t* q, ptrdiff_t stride, const SmH264EdgeLines& lines) {
  for (int i = 0; i < 16; ++i) {
    const int strength = lines.strength[i];
    if (strength != 0) {
      FilterLuma(q + i * stride, 1, lines.alpha[i], lines.beta[i],
                 strength == 4 ? -1 : lines.tc0[i]);
    }
  }
}

void H264FilterChromaVerticalEdgesLines(uint8_t* qCb, uint8_t* qCr, ptrdiff_t stride,
                                        const SmH264EdgeLines& lines) {
  for (int i = 0; i < 16; ++i) {
    const int strength = lines.strength[i];
    if (strength != 0) {
      FilterChroma((i < 8 ? qCb : qCr) + (i % 8) * stride, 1, lines.alpha[i], lines.beta[i],
                   strength == 4 ? -1 : lines.tc0[i]);
    }
  }
}

} // namespace NmPrimitives::NmReference
