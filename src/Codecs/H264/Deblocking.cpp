#include "Codecs/H264/Deblocking.h"

#include <algorithm>
#include <cstdlib>

#include "Codecs/H264/Reconstruction.h"
#include "Codecs/Primitives/H264Deblock.h"

namespace NmH264 {

namespace {

// Table 8-16 and 8-17, by indexA or indexB from 0 to 51.
constexpr uint8_t Alpha[52] = {0,  0,  0,  0,   0,   0,   0,   0,   0,   0,   0,   0,   0,
                               0,  0,  0,  4,   4,   5,   6,   7,   8,   9,   10,  12,  13,
                               15, 17, 20, 22,  25,  28,  32,  36,  40,  45,  50,  56,  63,
                               71, 80, 90, 101, 113, 127, 144, 162, 182, 203, 226, 255, 255};
constexpr uint8_t Beta[52] = {0,  0,  0,  0,  0,  0,  0,  0,  0,  0,  0,  0,  0,  0,  0,  0, 2,  2,
                              2,  3,  3,  3,  3,  4,  4,  4,  6,  6,  7,  7,  8,  8,  9,  9, 10, 10,
                              11, 11, 12, 12, 13, 13, 14, 14, 15, 15, 16, 16, 17, 17, 18, 18};
constexpr uint8_t Tc0[52][3] = {
    {0, 0, 0},    {0, 0, 0},    {0, 0, 0},   {0, 0, 0},  {0, 0, 0},   {0, 0, 0},   {0, 0, 0},
    {0, 0, 0},    {0, 0, 0},    {0, 0, 0},   {0, 0, 0},  {0, 0, 0},   {0, 0, 0},   {0, 0, 0},
    {0, 0, 0},    {0, 0, 0},    {0, 0, 0},   {0, 0, 1},  {0, 0, 1},   {0, 0, 1},   {0, 0, 1},
    {0, 1, 1},    {0, 1, 1},    {1, 1, 1},   {1, 1, 1},  {1, 1, 1},   {1, 1, 1},   {1, 1, 2},
    {1, 1, 2},    {1, 1, 2},    {1, 1, 2},   {1, 2, 3},  {1, 2, 3},   {2, 2, 3},   {2, 2, 4},
    {2, 3, 4},    {2, 3, 4},    {3, 3, 5},   {3, 4, 6},  {3, 4, 6},   {4, 5, 7},   {4, 5, 8},
    {4, 6, 9},    {5, 7, 10},   {6, 8, 11},  {6, 8, 13}, {7, 10, 14}, {8, 11, 16}, {9, 12, 18},
    {10, 13, 20}, {11, 15, 23}, {13, 17, 25}};

struct SmEdgeParameters {
  int alpha, beta, indexA;
};

SmEdgeParameters GetParameters(int qpAverage, const SmSliceFilterParameters& slice) {
  const int indexA = std::clamp(qpAverage + slice.alphaOffset, 0, 51);
  const int indexB = std::clamp(qpAverage + slice.betaOffset, 0, 51);
  return {Alpha[indexA], Beta[indexB], indexA};
}

using FilterFunction = void (*)(uint8_t*, ptrdiff_t, int, int, const int8_t*);
using IntraFilterFunction = void (*)(uint8_t*, ptrdiff_t, int, int);

// Filters one edge with the kernel for its direction. Strength 4 arises only
// where either macroblock is intra and the edge is theirs, so it holds along
// the whole edge; the other strengths may differ from segment to segment.
void FilterEdge(uint8_t* q, ptrdiff_t stride, bool vertical, const int* strengths,
                const SmEdgeParameters& e, FilterFunction verticalFilter,
                FilterFunction horizontalFilter, IntraFilterFunction verticalIntraFilter,
                IntraFilterFunction horizontalIntraFilter) {
  if (strengths[0] == 4) {
    (vertical ? verticalIntraFilter : horizontalIntraFilter)(q, stride, e.alpha, e.beta);
    return;
  }
  int8_t tc0[4];
  for (int k = 0; k < 4; ++k) {
    tc0[k] = strengths[k] == 0 ? int8_t{-1} : static_cast<int8_t>(Tc0[e.indexA][strengths[k] - 1]);
  }
  (vertical ? verticalFilter : horizontalFilter)(q, stride, e.alpha, e.beta, tc0);
}

bool HasCoefficients(const SmMacroblockInfo& mb, int x, int y) {
  if (mb.transform8x8) {
    const int bx = x & ~1, by = y & ~1;
    return mb.totalCoeff[bx + 4 * by] != 0 || mb.totalCoeff[bx + 1 + 4 * by] != 0 ||
           mb.totalCoeff[bx + 4 * (by + 1)] != 0 || mb.totalCoeff[bx + 1 + 4 * (by + 1)] != 0;
  }
  return mb.totalCoeff[x + 4 * y] != 0;
}

// HasCoefficients of all sixteen blocks, bit x + 4 y.
uint16_t GetCodedBlocks(const SmMacroblockInfo& mb) {
  unsigned bits = 0;
  for (int k = 0; k < 16; ++k) {
    bits |= mb.totalCoeff[k] != 0 ? 1u << k : 0u;
  }
  if (mb.transform8x8) {
    // An 8x8 block counts as coded in all its four 4x4 blocks.
    for (const unsigned quarter : {0x0033u, 0x00CCu, 0x3300u, 0xCC00u}) {
      bits |= (bits & quarter) != 0 ? quarter : 0u;
    }
  }
  return static_cast<uint16_t>(bits);
}

// Column x of raster block bits as four bits, one per row.
unsigned ColumnBits(unsigned bits, int x) {
  bits >>= x;
  return (bits & 1u) | ((bits >> 3) & 2u) | ((bits >> 6) & 4u) | ((bits >> 9) & 8u);
}

int GetMotionStrength(const SmMacroblockInfo& mbP, int px, int py, const SmMacroblockInfo& mbQ,
                      int qx, int qy, int verticalLimit);

// Boundary strength between the 4x4 blocks p (in mbP at px, py) and q (in
// mbQ at qx, qy), 8.7.2.1, for the macroblocks of a frame or of a field.
// In a field the lines across a horizontal edge lie two frame lines apart,
// so an intra edge there is filtered as an inner one, and vertical motion
// counts in field lines.
int GetStrength(const SmMacroblockInfo& mbP, int px, int py, const SmMacroblockInfo& mbQ, int qx,
                int qy, bool macroblockEdge, bool field, bool verticalEdge) {
  if (IsIntra(mbP.kind) || IsIntra(mbQ.kind)) {
    return macroblockEdge && (!field || verticalEdge) ? 4 : 3;
  }
  if (HasCoefficients(mbP, px, py) || HasCoefficients(mbQ, qx, qy)) {
    return 2;
  }
  return GetMotionStrength(mbP, px, py, mbQ, qx, qy, field ? 2 : 4);
}

// Strength 1 where the blocks predict from different pictures, or from
// the same by vectors a whole sample or more apart; else 0.
int GetMotionStrength(const SmMacroblockInfo& mbP, int px, int py, const SmMacroblockInfo& mbQ,
                      int qx, int qy, int verticalLimit) {
  const int bp = (px / 2) + 2 * (py / 2), bq = (qx / 2) + 2 * (qy / 2);
  const auto uses = [](const SmMacroblockInfo& m, int list, int b8) {
    return m.refIdx[list][b8] >= 0;
  };
  const int countP = uses(mbP, 0, bp) + uses(mbP, 1, bp);
  const int countQ = uses(mbQ, 0, bq) + uses(mbQ, 1, bq);
  if (countP != countQ) {
    return 1;
  }
  const auto far = [verticalLimit](const int16_t* a, const int16_t* b) {
    return std::abs(a[0] - b[0]) >= 4 || std::abs(a[1] - b[1]) >= verticalLimit;
  };
  if (countP == 1) {
    const int lp = uses(mbP, 0, bp) ? 0 : 1, lq = uses(mbQ, 0, bq) ? 0 : 1;
    if (mbP.refPicture[lp][bp] != mbQ.refPicture[lq][bq]) {
      return 1;
    }
    return far(mbP.mv[lp][px + 4 * py], mbQ.mv[lq][qx + 4 * qy]) ? 1 : 0;
  }
  // Two vectors each: the same two pictures, paired either way.
  const uint32_t p0 = mbP.refPicture[0][bp], p1 = mbP.refPicture[1][bp];
  const uint32_t q0 = mbQ.refPicture[0][bq], q1 = mbQ.refPicture[1][bq];
  if (!((p0 == q0 && p1 == q1) || (p0 == q1 && p1 == q0))) {
    return 1;
  }
  const int16_t* mp0 = mbP.mv[0][px + 4 * py];
  const int16_t* mp1 = mbP.mv[1][px + 4 * py];
  const int16_t* mq0 = mbQ.mv[0][qx + 4 * qy];
  const int16_t* mq1 = mbQ.mv[1][qx + 4 * qy];
  if (p0 != p1) {
    return (p0 == q0 ? (far(mp0, mq0) || far(mp1, mq1)) : (far(mp0, mq1) || far(mp1, mq0))) ? 1 : 0;
  }
  return (far(mp0, mq0) || far(mp1, mq1)) && (far(mp0, mq1) || far(mp1, mq0)) ? 1 : 0;
}

// An inter macroblock that moves as one piece (one reference per list, one
// vector per list) has no motion edges inside: its inner strengths depend on
// coefficients alone. Most macroblocks are such, and the per-block
// comparisons they save are the bulk of the filter's branching.
bool HasUniformMotion(const SmMacroblockInfo& mb) {
  if (IsIntra(mb.kind) || (mb.refIdx[0][0] < 0 && mb.refIdx[1][0] < 0)) {
    return false;
  }
  for (int list = 0; list < 2; ++list) {
    const int8_t* refIdx = mb.refIdx[list];
    if (refIdx[1] != refIdx[0] || refIdx[2] != refIdx[0] || refIdx[3] != refIdx[0]) {
      return false;
    }
    if (refIdx[0] < 0) {
      continue;
    }
    for (int k = 1; k < 16; ++k) {
      if (mb.mv[list][k][0] != mb.mv[list][0][0] || mb.mv[list][k][1] != mb.mv[list][0][1]) {
        return false;
      }
    }
  }
  return true;
}

// Frames of macroblock pairs filter line by line: beside a pair of the
// other kind, the neighbour, its quantiser and the strength change from one
// line to the next.

int Clip1(int value) {
  return std::clamp(value, 0, 255);
}

// One line of samples across an edge: q points at q0, and p_i lies
// (i + 1) steps before it, q_i i steps after.
void FilterLumaLine(uint8_t* q, ptrdiff_t step, int strength, const SmEdgeParameters& e) {
  const int p0 = q[-step], p1 = q[-2 * step], p2 = q[-3 * step];
  const int q0 = q[0], q1 = q[step], q2 = q[2 * step];
  if (std::abs(p0 - q0) >= e.alpha || std::abs(p1 - p0) >= e.beta || std::abs(q1 - q0) >= e.beta) {
    return;
  }
  const bool ap = std::abs(p2 - p0) < e.beta, aq = std::abs(q2 - q0) < e.beta;
  if (strength < 4) {
    const int tc0 = Tc0[e.indexA][strength - 1];
    const int tc = tc0 + (ap ? 1 : 0) + (aq ? 1 : 0);
    const int delta = std::clamp(((q0 - p0) * 4 + (p1 - q1) + 4) >> 3, -tc, tc);
    q[-step] = static_cast<uint8_t>(Clip1(p0 + delta));
    q[0] = static_cast<uint8_t>(Clip1(q0 - delta));
    if (ap) {
      q[-2 * step] = static_cast<uint8_t>(
          p1 + std::clamp((p2 + ((p0 + q0 + 1) >> 1) - (p1 << 1)) >> 1, -tc0, tc0));
    }
    if (aq) {
      q[step] = static_cast<uint8_t>(
          q1 + std::clamp((q2 + ((p0 + q0 + 1) >> 1) - (q1 << 1)) >> 1, -tc0, tc0));
    }
    return;
  }
  const int p3 = q[-4 * step], q3 = q[3 * step];
  const bool close = std::abs(p0 - q0) < ((e.alpha >> 2) + 2);
  if (ap && close) {
    q[-step] = static_cast<uint8_t>((p2 + 2 * p1 + 2 * p0 + 2 * q0 + q1 + 4) >> 3);
    q[-2 * step] = static_cast<uint8_t>((p2 + p1 + p0 + q0 + 2) >> 2);
    q[-3 * step] = static_cast<uint8_t>((2 * p3 + 3 * p2 + p1 + p0 + q0 + 4) >> 3);
  } else {
    q[-step] = static_cast<uint8_t>((2 * p1 + p0 + q1 + 2) >> 2);
  }
  if (aq && close) {
    q[0] = static_cast<uint8_t>((p1 + 2 * p0 + 2 * q0 + 2 * q1 + q2 + 4) >> 3);
    q[step] = static_cast<uint8_t>((p0 + q0 + q1 + q2 + 2) >> 2);
    q[2 * step] = static_cast<uint8_t>((2 * q3 + 3 * q2 + q1 + q0 + p0 + 4) >> 3);
  } else {
    q[0] = static_cast<uint8_t>((2 * q1 + q0 + p1 + 2) >> 2);
  }
}

void FilterChromaLine(uint8_t* q, ptrdiff_t step, int strength, const SmEdgeParameters& e) {
  const int p0 = q[-step], p1 = q[-2 * step], q0 = q[0], q1 = q[step];
  if (std::abs(p0 - q0) >= e.alpha || std::abs(p1 - p0) >= e.beta || std::abs(q1 - q0) >= e.beta) {
    return;
  }
  if (strength < 4) {
    const int tc = Tc0[e.indexA][strength - 1] + 1;
    const int delta = std::clamp(((q0 - p0) * 4 + (p1 - q1) + 4) >> 3, -tc, tc);
    q[-step] = static_cast<uint8_t>(Clip1(p0 + delta));
    q[0] = static_cast<uint8_t>(Clip1(q0 - delta));
    return;
  }
  q[-step] = static_cast<uint8_t>((2 * p1 + p0 + q1 + 2) >> 2);
  q[0] = static_cast<uint8_t>((2 * q1 + q0 + p1 + 2) >> 2);
}

// Strength between blocks of a frame of macroblock pairs. An edge between
// a field and a frame macroblock (mixed) is an edge of motion whatever the
// vectors; an intra macroblock edge is strongest only where the lines on
// both sides are neighbours, which across a horizontal edge holds between
// frame macroblocks alone.
int GetPairStrength(const SmMacroblockInfo& mbP, int px, int py, const SmMacroblockInfo& mbQ,
                    int qx, int qy, bool macroblockEdge, bool verticalEdge) {
  const bool mixed = mbP.field != mbQ.field;
  if (IsIntra(mbP.kind) || IsIntra(mbQ.kind)) {
    return macroblockEdge && (verticalEdge || (!mbP.field && !mbQ.field)) ? 4 : 3;
  }
  if (HasCoefficients(mbP, px, py) || HasCoefficients(mbQ, qx, qy)) {
    return 2;
  }
  if (mixed) {
    return 1;
  }
  return GetMotionStrength(mbP, px, py, mbQ, qx, qy, mbQ.field ? 2 : 4);
}

int QpOf(const SmMacroblockInfo& m) {
  return m.kind == MbIPcm ? 0 : int{m.qp};
}

class CmPairDeblocker {
public:
  CmPairDeblocker(CmPicture& picture, const std::vector<SmSliceFilterParameters>& slices)
      : m_Picture(picture), m_Slices(slices), m_Width(picture.GetWidthInMbs()),
        m_Mbs(picture.GetMacroblocks()), m_Planes(picture.IsMonochrome() ? 1 : 3) {}

  // Pair rows from first up to end.
  void Run(uint32_t firstRow, uint32_t endRow) {
    for (uint32_t pair = firstRow * m_Width; pair < endRow * m_Width; ++pair) {
      for (uint32_t bottom = 0; bottom < 2; ++bottom) {
        const uint32_t mbx = pair % m_Width, mby = 2 * (pair / m_Width) + bottom;
        Filter(mbx, mby);
      }
    }
  }

private:
  // A horizontal macroblock edge as filtered: the macroblock above, which
  // frame line of the current macroblock holds q0, and how many frame lines
  // lie between the lines of the edge.
  struct SmPass {
    const SmMacroblockInfo* p;
    int firstLine;
    int lineStep;
  };

  uint8_t* Origin(uint32_t mbx, uint32_t mby, bool field, int plane) const {
    const int size = plane == 0 ? 16 : 8;
    const ptrdiff_t line = field ? (mby & ~1u) * size + (mby & 1u) : mby * size;
    return m_Picture.GetPlane(plane) + line * m_Picture.GetStride(plane) + mbx * size;
  }

  SmEdgeParameters Parameters(const SmMacroblockInfo& p, const SmMacroblockInfo& q, int plane,
                              const SmSliceFilterParameters& slice) const {
    if (plane == 0) {
      return GetParameters((QpOf(p) + QpOf(q) + 1) >> 1, slice);
    }
    const int offset = slice.chromaQpOffset[plane - 1];
    const int qpp = ChromaQp(std::clamp(QpOf(p) + offset, 0, 51));
    const int qpq = ChromaQp(std::clamp(QpOf(q) + offset, 0, 51));
    return GetParameters((qpp + qpq + 1) >> 1, slice);
  }

  void Filter(uint32_t mbx, uint32_t mby) {
    const uint32_t address = mby * m_Width + mbx;
    const SmMacroblockInfo& mb = m_Mbs[address];
    if (mb.slice == 0 || mb.slice >= m_Slices.size()) {
      return;
    }
    const SmSliceFilterParameters& slice = m_Slices[mb.slice];
    if (slice.disableIdc == 1) {
      return;
    }
    const bool top = mby % 2 == 0;
    const uint32_t pairTop = address - (top ? 0 : m_Width);
    int strengths[16];
    // Left edge, line by line.
    if (mbx > 0 && (slice.disableIdc != 2 || m_Mbs[pairTop - 1].slice == mb.slice)) {
      const SmMacroblockInfo* left = m_Mbs + pairTop - 1;
      for (int k = 0; k < 16; ++k) {
        bool bottom = false;
        int yM = 0;
        LocateLeftInPair(mb.field, top, left->field, k, 16, bottom, yM);
        const SmMacroblockInfo& p = left[bottom ? m_Width : 0];
        strengths[k] = GetPairStrength(p, 3, yM / 4, mb, 0, k / 4, true, true);
      }
      for (int plane = 0; plane < m_Planes; ++plane) {
        const int lines = plane == 0 ? 16 : 8;
        const ptrdiff_t stride = m_Picture.GetStride(plane) * (mb.field ? 2 : 1);
        uint8_t* origin = Origin(mbx, mby, mb.field, plane);
        for (int k = 0; k < lines; ++k) {
          // A frame macroblock's chroma line beside a field pair takes the
          // strength of a luma line whose neighbour lies in the same field
          // as the chroma line's.
          const int lumaLine = plane == 0 ? k : 2 * k + (!mb.field && left->field ? k % 2 : 0);
          const int strength = strengths[lumaLine];
          if (strength == 0) {
            continue;
          }
          bool bottom = false;
          int yM = 0;
          LocateLeftInPair(mb.field, top, left->field, k, lines, bottom, yM);
          const SmMacroblockInfo& p = left[bottom ? m_Width : 0];
          FilterLine(plane, origin + k * stride, 1, strength, Parameters(p, mb, plane, slice));
        }
      }
    }
    // Inner vertical edges.
    for (int edge = 1; edge < 4; ++edge) {
      for (int k = 0; k < 16; ++k) {
        strengths[k] = GetPairStrength(mb, edge - 1, k / 4, mb, edge, k / 4, false, true);
      }
      FilterInnerEdge(mbx, mby, mb, slice, edge, true, strengths);
    }
    // Top edge: one pass, or, for a frame macroblock below a field pair,
    // one per field of the pair above.
    SmPass passes[2];
    int count = 0;
    const uint32_t pairRow = mby / 2;
    if (!top && !mb.field) {
      passes[count++] = {m_Mbs + address - m_Width, 0, 1};
    } else if (pairRow > 0) {
      const SmMacroblockInfo* aboveTop = m_Mbs + pairTop - 2 * m_Width;
      const SmMacroblockInfo* aboveBottom = aboveTop + m_Width;
      if (slice.disableIdc != 2 || aboveTop->slice == mb.slice) {
        if (!mb.field && aboveTop->field) {
          passes[count++] = {aboveTop, 0, 2};
          passes[count++] = {aboveBottom, 1, 2};
        } else if (!mb.field) {
          passes[count++] = {aboveBottom, 0, 1};
        } else {
          passes[count++] = {top && aboveTop->field ? aboveTop : aboveBottom, 0, 2};
        }
      }
    }
    for (int n = 0; n < count; ++n) {
      const SmPass& pass = passes[n];
      for (int k = 0; k < 16; ++k) {
        strengths[k] = GetPairStrength(*pass.p, k / 4, 3, mb, k / 4, 0, true, false);
      }
      for (int plane = 0; plane < m_Planes; ++plane) {
        const int samples = plane == 0 ? 16 : 8;
        const ptrdiff_t stride = m_Picture.GetStride(plane);
        uint8_t* q = Origin(mbx, mby, mb.field, plane) + pass.firstLine * stride;
        const SmEdgeParameters e = Parameters(*pass.p, mb, plane, slice);
        for (int k = 0; k < samples; ++k) {
          const int strength = strengths[plane == 0 ? k : 2 * k];
          if (strength != 0) {
            FilterLine(plane, q + k, pass.lineStep * stride, strength, e);
          }
        }
      }
    }
    // Inner horizontal edges.
    for (int edge = 1; edge < 4; ++edge) {
      for (int k = 0; k < 16; ++k) {
        strengths[k] = GetPairStrength(mb, k / 4, edge - 1, mb, k / 4, edge, false, false);
      }
      FilterInnerEdge(mbx, mby, mb, slice, edge, false, strengths);
    }
  }

  void FilterInnerEdge(uint32_t mbx, uint32_t mby, const SmMacroblockInfo& mb,
                       const SmSliceFilterParameters& slice, int edge, bool vertical,
                       const int* strengths) {
    for (int plane = 0; plane < m_Planes; ++plane) {
      // The 8x8 transform leaves no luma edges inside its blocks; 4:2:0
      // chroma has one inner edge, on luma edge 2.
      if (plane == 0 ? (mb.transform8x8 && edge % 2 == 1) : edge != 2) {
        continue;
      }
      const int samples = plane == 0 ? 16 : 8;
      const ptrdiff_t stride = m_Picture.GetStride(plane) * (mb.field ? 2 : 1);
      const int offset = plane == 0 ? 4 * edge : 4;
      uint8_t* q = Origin(mbx, mby, mb.field, plane) + (vertical ? offset : offset * stride);
      const SmEdgeParameters e = Parameters(mb, mb, plane, slice);
      for (int k = 0; k < samples; ++k) {
        const int strength = strengths[plane == 0 ? k : 2 * k];
        if (strength != 0) {
          FilterLine(plane, vertical ? q + k * stride : q + k, vertical ? 1 : stride, strength, e);
        }
      }
    }
  }

  static void FilterLine(int plane, uint8_t* q, ptrdiff_t step, int strength,
                         const SmEdgeParameters& e) {
    if (plane == 0) {
      FilterLumaLine(q, step, strength, e);
    } else {
      FilterChromaLine(q, step, strength, e);
    }
  }

  CmPicture& m_Picture;
  const std::vector<SmSliceFilterParameters>& m_Slices;
  const uint32_t m_Width;
  const SmMacroblockInfo* m_Mbs;
  const int m_Planes;
};

} // namespace

void DeblockPicture(CmPicture& picture, const std::vector<SmSliceFilterParameters>& slices) {
  DeblockRows(picture, slices, 0, GetDeblockingRowCount(picture));
}

uint32_t GetDeblockingRowCount(const CmPicture& picture) {
  return picture.GetHeightInMbs() / (picture.IsMbaff() ? 2 : 1);
}

void DeblockRows(CmPicture& picture, const std::vector<SmSliceFilterParameters>& slices,
                 uint32_t firstRow, uint32_t endRow) {
  endRow = std::min(endRow, GetDeblockingRowCount(picture));
  if (firstRow >= endRow) {
    return;
  }
  if (picture.IsMbaff()) {
    CmPairDeblocker(picture, slices).Run(firstRow, endRow);
    return;
  }
  const uint32_t width = picture.GetWidthInMbs();
  const SmMacroblockInfo* mbs = picture.GetMacroblocks();
  const int planes = picture.IsMonochrome() ? 1 : 3;
  const bool field = picture.GetParity() >= 0;
  // Whether each macroblock moves as one piece, and which of its 4x4 blocks
  // have coefficients as raster bits: the strengths of all its edges and of
  // the edges of the macroblocks right of and below it test them, so they
  // are gathered once, as each macroblock comes up (its left and top
  // neighbours came up before it; those of the row above the first are
  // gathered first). The records are large; one pass over them instead of
  // two saves reading them all again.
  // Indexed from the first macroblock gathered, so that a few rows cost a
  // few rows.
  const uint32_t base = (firstRow > 0 ? firstRow - 1 : 0) * width;
  std::vector<uint8_t> movingRows(endRow * width - base);
  std::vector<uint16_t> codedRows(endRow * width - base);
  const auto moving = [&](uint32_t address) -> uint8_t& { return movingRows[address - base]; };
  const auto coded = [&](uint32_t address) -> uint16_t& { return codedRows[address - base]; };
  for (uint32_t address = base; address < firstRow * width; ++address) {
    moving(address) = HasUniformMotion(mbs[address]) ? 1 : 0;
    coded(address) = GetCodedBlocks(mbs[address]);
  }
  for (uint32_t address = firstRow * width; address < endRow * width; ++address) {
    const SmMacroblockInfo& mb = mbs[address];
    moving(address) = HasUniformMotion(mb) ? 1 : 0;
    coded(address) = GetCodedBlocks(mb);
    if (mb.slice == 0 || mb.slice >= slices.size()) {
      continue;
    }
    const SmSliceFilterParameters& slice = slices[mb.slice];
    if (slice.disableIdc == 1) {
      continue;
    }
    const uint32_t mbx = address % width, mby = address / width;
    const SmMacroblockInfo* left = mbx > 0 ? &mbs[address - 1] : nullptr;
    const SmMacroblockInfo* top = mby > 0 ? &mbs[address - width] : nullptr;
    if (slice.disableIdc == 2) {
      left = left != nullptr && left->slice == mb.slice ? left : nullptr;
      top = top != nullptr && top->slice == mb.slice ? top : nullptr;
    }
    const auto qpOf = [](const SmMacroblockInfo& m) { return m.kind == MbIPcm ? 0 : int{m.qp}; };
    const bool uniform = moving(address) != 0;
    for (int direction = 0; direction < 2; ++direction) {
      const SmMacroblockInfo* neighbour = direction == 0 ? left : top;
      for (int edge = 0; edge < 4; ++edge) {
        if (edge == 0 && neighbour == nullptr) {
          continue;
        }
        const SmMacroblockInfo& p = edge == 0 ? *neighbour : mb;
        const unsigned codedP =
            edge > 0 ? coded(address) : coded(direction == 0 ? address - 1 : address - width);
        const unsigned codedQ = coded(address);
        // Between two macroblocks that each move as one piece, the motion
        // part of the strength is the same along the whole edge; inside one,
        // it is 0.
        const bool neighbourUniform =
            edge == 0 && moving(direction == 0 ? address - 1 : address - width) != 0;
        const int motion = !uniform   ? -1
                           : edge > 0 ? 0
                           : neighbourUniform
                               ? GetMotionStrength(p, direction == 0 ? 3 : 0,
                                                   direction == 0 ? 0 : 3, mb, 0, 0, field ? 2 : 4)
                               : -1;
        int strengths[4];
        bool any = false;
        if (motion >= 0) {
          // The coded blocks on both sides of the edge as four bits, bit k
          // for the k-th block along it: 2 where either is coded, else the
          // motion strength.
          const int pLine = (edge + 3) % 4;
          const unsigned coded4 = direction == 0
                                      ? ColumnBits(codedP, pLine) | ColumnBits(codedQ, edge)
                                      : ((codedP >> (4 * pLine)) | (codedQ >> (4 * edge))) & 15u;
          if (coded4 == 0 && motion == 0) {
            continue;
          }
          for (int k = 0; k < 4; ++k) {
            strengths[k] = ((coded4 >> k) & 1) != 0 ? 2 : motion;
          }
          any = true;
        } else {
          for (int k = 0; k < 4; ++k) {
            // Block q at (edge, k) for vertical edges, (k, edge) for horizontal.
            const int qx = direction == 0 ? edge : k, qy = direction == 0 ? k : edge;
            const int px = direction == 0 ? (qx + 3) % 4 : qx,
                      py = direction == 0 ? qy : (qy + 3) % 4;
            strengths[k] = GetStrength(p, px, py, mb, qx, qy, edge == 0, field, direction == 0);
            any = any || strengths[k] != 0;
          }
        }
        if (!any) {
          continue;
        }
        // Luma: the 8x8 transform leaves no edges inside its blocks.
        if (!(mb.transform8x8 && edge % 2 == 1)) {
          const ptrdiff_t stride = picture.GetStride(0);
          uint8_t* origin = picture.GetPlane(0) + mby * 16 * stride + mbx * 16;
          const SmEdgeParameters e = GetParameters((qpOf(p) + qpOf(mb) + 1) >> 1, slice);
          uint8_t* q = origin + (direction == 0 ? 4 * edge : 4 * edge * stride);
          FilterEdge(q, stride, direction == 0, strengths, e,
                     NmPrimitives::H264FilterLumaVerticalEdge,
                     NmPrimitives::H264FilterLumaHorizontalEdge,
                     NmPrimitives::H264FilterLumaVerticalEdgeIntra,
                     NmPrimitives::H264FilterLumaHorizontalEdgeIntra);
        }
        // Chroma of 4:2:0: the edges that fall on luma edges 0 and 2.
        if (edge % 2 == 1) {
          continue;
        }
        if (planes == 3 && direction == 0) {
          // The vertical edge of both planes in one pass: alone, each fills
          // only half of the kernel's vectors.
          const ptrdiff_t stride = picture.GetStride(1);
          const ptrdiff_t at = mby * 8 * stride + mbx * 8 + 2 * edge;
          int alpha[2], beta[2];
          int8_t tc0[8];
          for (int c = 0; c < 2; ++c) {
            const int offset = slice.chromaQpOffset[c];
            const int qpp = ChromaQp(std::clamp(qpOf(p) + offset, 0, 51));
            const int qpq = ChromaQp(std::clamp(qpOf(mb) + offset, 0, 51));
            const SmEdgeParameters e = GetParameters((qpp + qpq + 1) >> 1, slice);
            alpha[c] = e.alpha;
            beta[c] = e.beta;
            for (int k = 0; k < 4; ++k) {
              tc0[4 * c + k] = strengths[k] == 0 || strengths[k] == 4
                                   ? int8_t{-1}
                                   : static_cast<int8_t>(Tc0[e.indexA][strengths[k] - 1]);
            }
          }
          uint8_t* cb = picture.GetPlane(1) + at;
          uint8_t* cr = picture.GetPlane(2) + at;
          if (strengths[0] == 4) {
            NmPrimitives::H264FilterChromaVerticalEdgesIntra(cb, cr, stride, alpha, beta);
          } else {
            NmPrimitives::H264FilterChromaVerticalEdges(cb, cr, stride, alpha, beta, tc0);
          }
          continue;
        }
        for (int c = 1; c < planes; ++c) {
          const ptrdiff_t stride = picture.GetStride(c);
          uint8_t* origin = picture.GetPlane(c) + mby * 8 * stride + mbx * 8;
          const int offset = slice.chromaQpOffset[c - 1];
          const int qpp = ChromaQp(std::clamp(qpOf(p) + offset, 0, 51));
          const int qpq = ChromaQp(std::clamp(qpOf(mb) + offset, 0, 51));
          const SmEdgeParameters e = GetParameters((qpp + qpq + 1) >> 1, slice);
          uint8_t* q = origin + (direction == 0 ? 2 * edge : 2 * edge * stride);
          FilterEdge(q, stride, direction == 0, strengths, e,
                     NmPrimitives::H264FilterChromaVerticalEdge,
                     NmPrimitives::H264FilterChromaHorizontalEdge,
                     NmPrimitives::H264FilterChromaVerticalEdgeIntra,
                     NmPrimitives::H264FilterChromaHorizontalEdgeIntra);
        }
      }
    }
  }
}

} // namespace NmH264
