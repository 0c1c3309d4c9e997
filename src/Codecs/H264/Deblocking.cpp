#include "Codecs/H264/Deblocking.h"

#include <algorithm>
#include <bit>
#include <cstdlib>
#include <cstring>

#include "Codecs/H264/Reconstruction.h"
#include "Codecs/Primitives/H264Deblock.h"

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

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
#if defined(__SSE2__)
  const __m128i counts = _mm_loadu_si128(reinterpret_cast<const __m128i*>(mb.totalCoeff));
  unsigned bits =
      ~static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi8(counts, _mm_setzero_si128()))) &
      0xFFFFu;
#else
  // The high bit of each byte that is not zero, then those eight bits
  // gathered into the top byte by one multiplication (no two partial
  // products meet, so nothing carries).
  const auto nonZero = [](const uint8_t* bytes) {
    uint64_t v;
    std::memcpy(&v, bytes, 8);
    constexpr uint64_t Low7 = 0x7F7F7F7F7F7F7F7Full;
    const uint64_t high = (((v & Low7) + Low7) | v) & ~Low7;
    return static_cast<unsigned>(((high >> 7) * 0x0102040810204080ull) >> 56);
  };
  unsigned bits = nonZero(mb.totalCoeff) | nonZero(mb.totalCoeff + 8) << 8;
#endif
  if (mb.transform8x8) {
    // An 8x8 block counts as coded in all its four 4x4 blocks: each
    // quarter's bits folded into its top left bit, then spread back.
    unsigned quarters = (bits | (bits >> 1)) & 0x5555u;
    quarters = (quarters | (quarters >> 4)) & 0x0505u;
    quarters |= quarters << 1;
    bits = quarters | (quarters << 4);
  }
  return static_cast<uint16_t>(bits);
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

// Whether an inter macroblock moves as one piece: one reference and one
// vector per list in all its blocks. Inside it no edge is one of motion,
// and between two such macroblocks every block pair has the same motion.
bool MovesAsOne(const SmMacroblockInfo& m) {
  for (int list = 0; list < 2; ++list) {
    uint32_t references;
    std::memcpy(&references, m.refIdx[list], 4);
    if (references != (references & 0xFFu) * 0x01010101u) {
      return false;
    }
    if (m.refIdx[list][0] < 0) {
      continue;
    }
    if (!HasOneVector(m.mv[list])) {
      return false;
    }
  }
  return true;
}

// The filter over a frame of macroblock pairs. A field macroblock's lines
// lie every other frame line, so its edges are frame edges over doubled
// strides, and so are the top edges of a frame macroblock below a field
// pair, one per field. Only beside a left pair of the other kind does the
// neighbour, with its quantiser and strength, change from line to line.
class CmPairDeblocker {
public:
  CmPairDeblocker(CmPicture& picture, const std::vector<SmSliceFilterParameters>& slices)
      : m_Picture(picture), m_Slices(slices), m_Width(picture.GetWidthInMbs()),
        m_Mbs(picture.GetMacroblocks()), m_Chroma(!picture.IsMonochrome()) {}

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

  // What the strengths of a macroblock's edges ask of it, once.
  struct SmBlocks {
    uint16_t coded; // GetCodedBlocks
    bool movesAsOne;
  };

  static SmBlocks Summarise(const SmMacroblockInfo& m) {
    return {GetCodedBlocks(m), !IsIntra(m.kind) && MovesAsOne(m)};
  }

  // GetPairStrength of the four quarters of an edge where lines meet lines
  // of one macroblock on each side: edge 0 between p and q, or edge 1 to 3
  // inside q (p is q). Motion is compared only where no coefficients
  // decide, and once for an edge between macroblocks that move as one.
  static void GetEdgeStrengths(const SmMacroblockInfo& p, SmBlocks pBlocks,
                               const SmMacroblockInfo& q, SmBlocks qBlocks, int edge, bool vertical,
                               int* strengths) {
    if (IsIntra(p.kind) || IsIntra(q.kind)) {
      const int strength = edge == 0 && (vertical || (!p.field && !q.field)) ? 4 : 3;
      std::fill_n(strengths, 4, strength);
      return;
    }
    const int pEdge = edge == 0 ? 3 : edge - 1;
    int motion = -1;
    for (int k = 0; k < 4; ++k) {
      const int pBit = vertical ? pEdge + 4 * k : k + 4 * pEdge;
      const int qBit = vertical ? edge + 4 * k : k + 4 * edge;
      if ((((pBlocks.coded >> pBit) | (qBlocks.coded >> qBit)) & 1) != 0) {
        strengths[k] = 2;
      } else if (p.field != q.field) {
        strengths[k] = 1;
      } else if (pBlocks.movesAsOne && qBlocks.movesAsOne) {
        if (motion < 0) {
          motion = edge == 0 ? GetMotionStrength(p, pBit & 3, pBit / 4, q, qBit & 3, qBit / 4,
                                                 q.field ? 2 : 4)
                             : 0;
        }
        strengths[k] = motion;
      } else {
        strengths[k] =
            GetMotionStrength(p, pBit & 3, pBit / 4, q, qBit & 3, qBit / 4, q.field ? 2 : 4);
      }
    }
  }

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
    const int ownStep = mb.field ? 2 : 1;
    const SmBlocks own = Summarise(mb);
    int strengths[4];
    if (mbx > 0 && (slice.disableIdc != 2 || m_Mbs[pairTop - 1].slice == mb.slice)) {
      const SmMacroblockInfo* left = m_Mbs + pairTop - 1;
      if (left->field == mb.field) {
        // Line beside line: the macroblock at the same place of the left pair.
        const SmMacroblockInfo& p = left[top ? 0 : m_Width];
        GetEdgeStrengths(p, Summarise(p), mb, own, 0, true, strengths);
        FilterEdge(mbx, mby, p, mb, slice, 0, true, strengths, 0, ownStep);
      } else {
        FilterMixedLeftEdge(mbx, mby, left, mb, slice, top);
      }
    }
    for (int edge = 1; edge < 4; ++edge) {
      GetEdgeStrengths(mb, own, mb, own, edge, true, strengths);
      FilterEdge(mbx, mby, mb, mb, slice, edge, true, strengths, 0, ownStep);
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
      GetEdgeStrengths(*pass.p, Summarise(*pass.p), mb, own, 0, false, strengths);
      FilterEdge(mbx, mby, *pass.p, mb, slice, 0, false, strengths, pass.firstLine, pass.lineStep);
    }
    for (int edge = 1; edge < 4; ++edge) {
      GetEdgeStrengths(mb, own, mb, own, edge, false, strengths);
      FilterEdge(mbx, mby, mb, mb, slice, edge, false, strengths, 0, ownStep);
    }
  }

  // An edge with one macroblock on each side and a strength per quarter:
  // 4 holds along a whole edge or nowhere. Its q0 samples lie from frame
  // line firstLine of the macroblock on, lineStep frame lines apart.
  void FilterEdge(uint32_t mbx, uint32_t mby, const SmMacroblockInfo& p, const SmMacroblockInfo& mb,
                  const SmSliceFilterParameters& slice, int edge, bool vertical,
                  const int* strengths, int firstLine, int lineStep) {
    if ((strengths[0] | strengths[1] | strengths[2] | strengths[3]) == 0) {
      return;
    }
    const bool strongest = strengths[0] == 4;
    const auto segments = [&](const SmEdgeParameters& e, int8_t* tc0) {
      for (int k = 0; k < 4; ++k) {
        tc0[k] = static_cast<int8_t>(strengths[k] == 0 ? -1 : Tc0[e.indexA][strengths[k] - 1]);
      }
    };
    // The 8x8 transform leaves no luma edges inside its blocks.
    if (!(mb.transform8x8 && edge % 2 == 1)) {
      const ptrdiff_t stride = m_Picture.GetStride(0);
      uint8_t* q = Origin(mbx, mby, mb.field, 0) + firstLine * stride +
                   (vertical ? 4 * edge : 4 * edge * lineStep * stride);
      const SmEdgeParameters e = Parameters(p, mb, 0, slice);
      if (strongest) {
        (vertical ? NmPrimitives::H264FilterLumaVerticalEdgeIntra
                  : NmPrimitives::H264FilterLumaHorizontalEdgeIntra)(q, lineStep * stride, e.alpha,
                                                                     e.beta);
      } else {
        int8_t tc0[4];
        segments(e, tc0);
        (vertical ? NmPrimitives::H264FilterLumaVerticalEdge
                  : NmPrimitives::H264FilterLumaHorizontalEdge)(q, lineStep * stride, e.alpha,
                                                                e.beta, tc0);
      }
    }
    // 4:2:0 chroma has the edges on luma edges 0 and 2.
    if (!m_Chroma || edge % 2 == 1) {
      return;
    }
    const ptrdiff_t stride = m_Picture.GetStride(1);
    const ptrdiff_t at = firstLine * stride + (vertical ? 2 * edge : 2 * edge * lineStep * stride);
    uint8_t* cb = Origin(mbx, mby, mb.field, 1) + at;
    uint8_t* cr = Origin(mbx, mby, mb.field, 2) + at;
    int alpha[2], beta[2];
    int8_t tc0[8];
    for (int c = 0; c < 2; ++c) {
      const SmEdgeParameters e = Parameters(p, mb, c + 1, slice);
      alpha[c] = e.alpha;
      beta[c] = e.beta;
      if (!strongest) {
        segments(e, tc0 + 4 * c);
      }
    }
    if (vertical) {
      if (strongest) {
        NmPrimitives::H264FilterChromaVerticalEdgesIntra(cb, cr, lineStep * stride, alpha, beta);
      } else {
        NmPrimitives::H264FilterChromaVerticalEdges(cb, cr, lineStep * stride, alpha, beta, tc0);
      }
      return;
    }
    for (int c = 0; c < 2; ++c) {
      uint8_t* q = c == 0 ? cb : cr;
      if (strongest) {
        NmPrimitives::H264FilterChromaHorizontalEdgeIntra(q, lineStep * stride, alpha[c], beta[c]);
      } else {
        NmPrimitives::H264FilterChromaHorizontalEdge(q, lineStep * stride, alpha[c], beta[c],
                                                     tc0 + 4 * c);
      }
    }
  }

  // The left edge beside a pair of the other kind: the neighbour of each
  // line is either macroblock of that pair, by turns beside a field pair,
  // by halves beside a frame pair. Every line is filtered: such an edge is
  // an edge of motion at least.
  void FilterMixedLeftEdge(uint32_t mbx, uint32_t mby, const SmMacroblockInfo* left,
                           const SmMacroblockInfo& mb, const SmSliceFilterParameters& slice,
                           bool top) {
    const int planes = m_Chroma ? 3 : 1;
    SmEdgeParameters parameters[2][3]; // by macroblock of the left pair and plane
    for (int bottom = 0; bottom < 2; ++bottom) {
      for (int plane = 0; plane < planes; ++plane) {
        parameters[bottom][plane] = Parameters(left[bottom * m_Width], mb, plane, slice);
      }
    }
    NmPrimitives::SmH264EdgeLines lines;
    const auto set = [&lines](int i, int strength, const SmEdgeParameters& e) {
      lines.alpha[i] = static_cast<uint8_t>(e.alpha);
      lines.beta[i] = static_cast<uint8_t>(e.beta);
      lines.strength[i] = static_cast<uint8_t>(strength);
      lines.tc0[i] = static_cast<int8_t>(strength % 4 != 0 ? Tc0[e.indexA][strength - 1] : 0);
    };
    int strengths[16];
    for (int k = 0; k < 16; ++k) {
      bool bottom = false;
      int yM = 0;
      LocateLeftInPair(mb.field, top, left->field, k, 16, bottom, yM);
      strengths[k] =
          GetPairStrength(left[bottom ? m_Width : 0], 3, yM / 4, mb, 0, k / 4, true, true);
      set(k, strengths[k], parameters[bottom][0]);
    }
    const int step = mb.field ? 2 : 1;
    NmPrimitives::H264FilterLumaVerticalEdgeLines(Origin(mbx, mby, mb.field, 0),
                                                  step * m_Picture.GetStride(0), lines);
    if (!m_Chroma) {
      return;
    }
    for (int k = 0; k < 8; ++k) {
      bool bottom = false;
      int yM = 0;
      LocateLeftInPair(mb.field, top, left->field, k, 8, bottom, yM);
      // A frame macroblock's chroma line beside a field pair takes the
      // strength of a luma line whose neighbour lies in the same field as
      // the chroma line's.
      const int strength = strengths[2 * k + (mb.field ? 0 : k % 2)];
      set(k, strength, parameters[bottom][1]);
      set(8 + k, strength, parameters[bottom][2]);
    }
    NmPrimitives::H264FilterChromaVerticalEdgesLines(Origin(mbx, mby, mb.field, 1),
                                                     Origin(mbx, mby, mb.field, 2),
                                                     step * m_Picture.GetStride(1), lines);
  }

  CmPicture& m_Picture;
  const std::vector<SmSliceFilterParameters>& m_Slices;
  const uint32_t m_Width;
  const SmMacroblockInfo* m_Mbs;
  const bool m_Chroma;
};

// The filter's thresholds for one slice by the average quantiser of the
// two macroblocks at an edge: looked up once per edge, not per segment.
struct SmFilterLevel {
  uint8_t alpha = 0, beta = 0;
  int8_t tc0[3] = {}; // by boundary strength 1 to 3
};

class CmFilterLevels {
public:
  void Build(const SmSliceFilterParameters& slice) {
    for (int c = 0; c < 2; ++c) {
      for (int qp = 0; qp < 52; ++qp) {
        m_ChromaQp[c][qp] =
            static_cast<uint8_t>(ChromaQp(std::clamp(qp + slice.chromaQpOffset[c], 0, 51)));
      }
    }
    for (int qp = 0; qp < 52; ++qp) {
      const SmEdgeParameters e = GetParameters(qp, slice);
      SmFilterLevel& level = m_Levels[qp];
      level.alpha = static_cast<uint8_t>(e.alpha);
      level.beta = static_cast<uint8_t>(e.beta);
      for (int strength = 0; strength < 3; ++strength) {
        level.tc0[strength] = static_cast<int8_t>(Tc0[e.indexA][strength]);
      }
    }
  }
  const SmFilterLevel& operator[](int qpAverage) const { return m_Levels[qpAverage]; }
  // The quantiser of chroma component c (0 for Cb) for a luma quantiser.
  int GetChromaQp(int c, int qp) const { return m_ChromaQp[c][qp]; }

private:
  SmFilterLevel m_Levels[52];
  uint8_t m_ChromaQp[2][52];
};

// How a macroblock predicts: from list 0 alone in every block, from list 1
// alone, or anything else; and whether it moves as one piece (one
// reference and one vector per list), which leaves no motion edges inside.
enum SmMotionShape : uint8_t {
  ShapeNone = 0, // intra
  ShapeList0 = 1,
  ShapeList1 = 2,
  ShapeMixed = 3,
  ShapeUniform = 4, // flag beside the others
  // Never a macroblock's own: where a neighbour is missing or intra.
  ShapeAbsent = ShapeUniform | ShapeNone,
};

uint8_t GetMotionShape(const SmMacroblockInfo& mb) {
  if (IsIntra(mb.kind)) {
    return ShapeNone;
  }
  // A skipped macroblock without direct prediction is P_Skip: one vector
  // on reference 0 of list 0.
  if (mb.kind == MbSkip && mb.directBlocks == 0) {
    return ShapeList0 | ShapeUniform;
  }
  uint32_t refIdx[2];
  std::memcpy(&refIdx[0], mb.refIdx[0], 4);
  std::memcpy(&refIdx[1], mb.refIdx[1], 4);
  constexpr uint32_t Unused = 0x80808080u; // the sign bits of the four indices
  const uint32_t unused0 = refIdx[0] & Unused, unused1 = refIdx[1] & Unused;
  const uint8_t shape = unused0 == 0 && unused1 == Unused   ? ShapeList0
                        : unused0 == Unused && unused1 == 0 ? ShapeList1
                                                            : ShapeMixed;
  if (unused0 == Unused && unused1 == Unused) {
    return shape;
  }
  for (int list = 0; list < 2; ++list) {
    if (refIdx[list] != (refIdx[list] & 0xFFu) * 0x01010101u) {
      return shape;
    }
    if (mb.refIdx[list][0] >= 0 && !HasOneVector(mb.mv[list])) {
      return shape;
    }
  }
  return shape | ShapeUniform;
}

// Whether two vectors lie a whole sample or more apart, without branches:
// |d| >= limit exactly where d + limit - 1 falls outside [0, 2 limit - 2].
unsigned IsFar(const int16_t* a, const int16_t* b, int verticalLimit) {
  const unsigned dx = static_cast<unsigned>(a[0] - b[0] + 3);
  const unsigned dy = static_cast<unsigned>(a[1] - b[1] + verticalLimit - 1);
  return static_cast<unsigned>(dx > 6u) | static_cast<unsigned>(dy > 2u * verticalLimit - 2u);
}

// Bits 0 to 3 as the lowest bits of bytes 0 to 3 of a little-endian word.
uint32_t SpreadToBytes(unsigned bits) {
  static_assert(std::endian::native == std::endian::little);
  return ((bits & 15u) * 0x00204081u) & 0x01010101u;
}

// Raster bits turned into edge order (bit 4 x + y for block x, y), which
// the vertical edges use.
unsigned Transpose4x4(unsigned bits) {
  unsigned t = (bits ^ (bits >> 3)) & 0x0A0Au;
  bits ^= t ^ (t << 3);
  t = (bits ^ (bits >> 6)) & 0x00CCu;
  bits ^= t ^ (t << 6);
  return bits;
}

// The filter over the macroblocks of a frame or a field. The strengths of a
// macroblock's 32 edge segments are found as bit masks, one bit per block
// of each direction: coded blocks from the blocks' coefficient bits and
// their shifted copies, motion edges only where the macroblock does not
// move as one piece. Edges without a bit cost no setup at all.
class CmFrameDeblocker {
public:
  CmFrameDeblocker(CmPicture& picture, const std::vector<SmSliceFilterParameters>& slices)
      : m_Picture(picture), m_Slices(slices), m_Width(picture.GetWidthInMbs()),
        m_Mbs(picture.GetMacroblocks()), m_Chroma(!picture.IsMonochrome()),
        m_Field(picture.GetParity() >= 0), m_VerticalLimit(m_Field ? 2 : 4) {}

  void Run(uint32_t firstRow, uint32_t endRow) {
    // The coded blocks and the shape of motion of each macroblock, which its
    // own edges and those of the macroblocks right of and below it test,
    // are gathered once, as each macroblock comes up; those of the row above
    // the first, first. Indexed from the first macroblock gathered, so that
    // a few rows cost a few rows.
    // Rows that follow those of the last run keep what it gathered.
    if (m_Summaries.empty() || firstRow * m_Width != m_SummarisedEnd) {
      m_Base = m_SummarisedEnd = (firstRow > 0 ? firstRow - 1 : 0) * m_Width;
    }
    m_Summaries.resize(endRow * m_Width - m_Base);
    for (uint32_t address = m_SummarisedEnd; address < firstRow * m_Width; ++address) {
      Summarise(address);
    }
    m_SummarisedEnd = endRow * m_Width;
    // The slice's validity and levels are looked at when the slice changes,
    // not per macroblock.
    const SmSliceFilterParameters* const slices = m_Slices.data();
    const size_t sliceCount = m_Slices.size();
    uint32_t currentSlice = 0;
    bool filtered = false;
    for (uint32_t mby = firstRow; mby < endRow; ++mby) {
      const uint32_t first = mby * m_Width;
      const SmMacroblockInfo* mb = m_Mbs + first;
      SmSummary* summary = &Summary(first);
      // The macroblock above, none in the first row, kept beside the
      // current one rather than found again by the width.
      const SmMacroblockInfo* above = mby > 0 ? mb - m_Width : nullptr;
      const SmSummary* aboveSummary = mby > 0 ? summary - m_Width : nullptr;
      const ptrdiff_t step = mby > 0 ? 1 : 0;
      for (uint32_t mbx = 0; mbx < m_Width;
           ++mbx, ++mb, ++summary, above += step, aboveSummary += step) {
        const SmSummary own = Summarise(*mb, *summary);
        if (mb->slice != currentSlice) {
          currentSlice = mb->slice;
          filtered = currentSlice != 0 && currentSlice < sliceCount &&
                     slices[currentSlice].disableIdc != 1;
          if (filtered) {
            m_Levels.Build(slices[currentSlice]);
          }
        }
        if (filtered) {
          Filter(mb, summary, above, aboveSummary, own, mbx, mby, slices[currentSlice]);
        }
      }
    }
  }

private:
  // What the edges of a macroblock and of its neighbours right and below
  // read of its coded blocks, spread to edge masks once as it is gathered.
  struct SmSummary {
    uint16_t vertical;   // vertical edges, edge order, edge 0 by this side alone
    uint16_t horizontal; // horizontal edges, likewise in raster order
    uint8_t right;       // the blocks of column 3 by row, edge 0 of the next
    uint8_t bottom;      // the blocks of row 3 by column, edge 0 of the one below
    uint8_t shape;       // SmMotionShape
  };

  // The strengths of one direction's four edges: bits 4 e + k for segment
  // k of edge e.
  struct SmEdgeBits {
    unsigned coded = 0;       // strength 2
    unsigned motion = 0;      // strength 1, where not 2
    bool intraEdge = false;   // edge 0 beside or of an intra macroblock
    bool intraInside = false; // the inner edges of an intra macroblock
    bool available = false;   // edge 0 is filtered at all
  };

  SmSummary& Summary(uint32_t address) { return m_Summaries[address - m_Base]; }

  void Summarise(uint32_t address) { Summarise(m_Mbs[address], Summary(address)); }

  // The summary goes back to the caller too: read back at once, it would
  // wait for its parts' stores.
  static SmSummary Summarise(const SmMacroblockInfo& mb, SmSummary& stored) {
    // The records come up one after another, but a few hundred cycles
    // apart and larger than a line: fetched ahead, their first reads
    // find them in the first level cache.
    const uintptr_t ahead = reinterpret_cast<uintptr_t>(&mb) + 2 * sizeof(SmMacroblockInfo);
    for (size_t offset = 0; offset < sizeof(SmMacroblockInfo); offset += 64) {
      __builtin_prefetch(reinterpret_cast<const void*>(ahead + offset));
    }
    const unsigned coded = GetCodedBlocks(mb);
    const unsigned transposed = Transpose4x4(coded);
    const SmSummary summary{static_cast<uint16_t>(transposed | (transposed << 4)),
                            static_cast<uint16_t>(coded | (coded << 4)),
                            static_cast<uint8_t>(transposed >> 12),
                            static_cast<uint8_t>(coded >> 12), GetMotionShape(mb)};
    stored = summary;
    return summary;
  }

  // Strength 1 of the four block pairs across edge 0 between two
  // macroblocks that each move as one piece: one comparison for all four,
  // whose bits are those of edge 0 in edge order in either direction.
  unsigned UniformMotion(const SmMacroblockInfo& p, uint8_t pShape, const SmMacroblockInfo& q,
                         uint8_t qShape) const {
    const uint8_t list = pShape & 3;
    if (list == (qShape & 3) && list != ShapeMixed) {
      const int l = list - 1;
      return p.refPicture[l][0] != q.refPicture[l][0] ||
                     IsFar(p.mv[l][0], q.mv[l][0], m_VerticalLimit)
                 ? 0x000Fu
                 : 0u;
    }
    // B macroblocks beside each other often share their direct motion:
    // the same indices, pictures and vectors in both lists never differ.
    uint32_t pv[2], qv[2];
    std::memcpy(pv, p.mv[0][0], 4);
    std::memcpy(pv + 1, p.mv[1][0], 4);
    std::memcpy(qv, q.mv[0][0], 4);
    std::memcpy(qv + 1, q.mv[1][0], 4);
    if (((pv[0] ^ qv[0]) | (pv[1] ^ qv[1]) | (p.refPicture[0][0] ^ q.refPicture[0][0]) |
         (p.refPicture[1][0] ^ q.refPicture[1][0])) == 0 &&
        p.refIdx[0][0] == q.refIdx[0][0] && p.refIdx[1][0] == q.refIdx[1][0]) {
      return 0u;
    }
    return GetMotionStrength(p, 0, 0, q, 0, 0, m_VerticalLimit) != 0 ? 0x000Fu : 0u;
  }

  // Motion bits of the 4x4 blocks of an inter macroblock, in edge order,
  // for the vertical (motion[0]) and horizontal edges; those of edge 0
  // only where the neighbour is there and not intra (ShapeAbsent for
  // either).
  void Motion(const SmMacroblockInfo& mb, uint8_t shape, const SmMacroblockInfo* const* neighbours,
              const uint8_t* neighbourShapes, unsigned* motion) const {
    const unsigned all = shape & neighbourShapes[0] & neighbourShapes[1];
    if ((all & ShapeUniform) != 0) {
      // Most macroblocks of a picture that predicts from others: no motion
      // inside, one comparison per neighbour.
      for (int direction = 0; direction < 2; ++direction) {
        const uint8_t nShape = neighbourShapes[direction];
        motion[direction] =
            nShape != ShapeAbsent ? UniformMotion(*neighbours[direction], nShape, mb, shape) : 0u;
      }
      return;
    }
    int list = (shape & 3) == ShapeMixed ? -1 : (shape & 3) - 1;
    const bool there[2] = {neighbourShapes[0] != ShapeAbsent, neighbourShapes[1] != ShapeAbsent};
    for (int direction = 0; direction < 2; ++direction) {
      list = !there[direction] || (neighbourShapes[direction] & 3) == (shape & 3) ? list : -1;
    }
    const auto view = [](const SmMacroblockInfo* m) {
      return NmPrimitives::SmH264Motion{m->mv, m->refIdx, m->refPicture};
    };
    // A missing neighbour stands in by the macroblock itself; its bits go.
    uint16_t edges[2];
    NmPrimitives::H264GetMotionEdges(view(&mb), view(there[0] ? neighbours[0] : &mb),
                                     view(there[1] ? neighbours[1] : &mb), list, m_VerticalLimit,
                                     edges);
    motion[0] = Transpose4x4(edges[0] & (there[0] ? 0xFFFFu : 0xEEEEu));
    motion[1] = edges[1] & (there[1] ? 0xFFFFu : 0xFFF0u);
  }

  void Filter(const SmMacroblockInfo* mb, const SmSummary* summary, const SmMacroblockInfo* above,
              const SmSummary* aboveSummary, SmSummary own, uint32_t mbx, uint32_t mby,
              const SmSliceFilterParameters& slice) {
    const SmMacroblockInfo* neighbours[2] = {mbx > 0 ? mb - 1 : nullptr, above};
    if (slice.disableIdc == 2) {
      for (const SmMacroblockInfo*& n : neighbours) {
        n = n != nullptr && n->slice == mb->slice ? n : nullptr;
      }
    }
    if (own.shape == ShapeNone) {
      for (int direction = 0; direction < 2; ++direction) {
        const SmEdgeBits b{0u, 0u, true, true, neighbours[direction] != nullptr};
        FilterDirection(*mb, neighbours[direction], mbx, mby, direction == 0, b);
      }
      return;
    }
    // Intra neighbours take strength 3 or 4 whatever the motion and the
    // coefficients; for both they count as absent.
    uint8_t shapes[2];
    bool intraEdge[2];
    unsigned coded[2] = {own.vertical, own.horizontal};
    for (int direction = 0; direction < 2; ++direction) {
      const SmSummary* other = nullptr;
      if (neighbours[direction] != nullptr) {
        other = direction == 0 ? summary - 1 : aboveSummary;
      }
      intraEdge[direction] = other != nullptr && other->shape == ShapeNone;
      if (other != nullptr && other->shape != ShapeNone) {
        shapes[direction] = other->shape;
        coded[direction] |= direction == 0 ? other->right : other->bottom;
      } else {
        shapes[direction] = ShapeAbsent;
        coded[direction] &= 0xFFF0u;
      }
    }
    unsigned motion[2];
    Motion(*mb, own.shape, neighbours, shapes, motion);
    for (int direction = 0; direction < 2; ++direction) {
      const SmEdgeBits b{coded[direction], motion[direction] & ~coded[direction],
                         intraEdge[direction], false, neighbours[direction] != nullptr};
      // Most macroblocks of a picture that predicts from others have no
      // edge to filter at all.
      if ((b.coded | b.motion) != 0 || b.intraEdge) {
        FilterDirection(*mb, neighbours[direction], mbx, mby, direction == 0, b);
      }
    }
  }

  void FilterDirection(const SmMacroblockInfo& mb, const SmMacroblockInfo* n, uint32_t mbx,
                       uint32_t mby, bool vertical, SmEdgeBits bits) {
    const int qpq = QpOf(mb);
    const ptrdiff_t lumaStride = m_Picture.GetStride(0);
    uint8_t* const luma = m_Picture.GetPlane(0) + mby * 16 * lumaStride + mbx * 16;
    const ptrdiff_t chromaStride = m_Chroma ? m_Picture.GetStride(1) : 0;
    const ptrdiff_t chromaAt = mby * 8 * chromaStride + mbx * 8;
    // Bit 4 e for each edge e that is filtered: one with a segment of
    // strength 1 or 2, or of an intra macroblock; the 8x8 transform leaves
    // odd edges to neither luma nor chroma.
    unsigned any = bits.coded | bits.motion;
    any |= any >> 2;
    any |= any >> 1;
    unsigned edges =
        (any & 0x1111u) | (bits.intraInside ? 0x1110u : 0u) | (bits.intraEdge ? 1u : 0u);
    edges &= (bits.available ? 0xFFFFu : 0xFFF0u) & (mb.transform8x8 ? 0x0101u : 0xFFFFu);
    for (; edges != 0; edges &= edges - 1) {
      const int edge = std::countr_zero(edges) / 4;
      // Strength 4 along the whole edge, 3 along the whole edge, or the
      // segments' own.
      const bool intraEdge = edge == 0 ? bits.intraEdge : bits.intraInside;
      const bool strongest = intraEdge && edge == 0 && (vertical || !m_Field);
      const unsigned coded = (bits.coded >> (4 * edge)) & 15u;
      const unsigned motion = (bits.motion >> (4 * edge)) & 15u;
      const SmMacroblockInfo& p = edge == 0 ? *n : mb;
      const int qpp = QpOf(p);
      // Byte k of each word for segment k: a segment's tc0 by its strength
      // in a few multiplications (no byte carries into the next), -1 where
      // it has none.
      const uint32_t codedBytes = SpreadToBytes(coded), motionBytes = SpreadToBytes(motion);
      const uint32_t noneBytes = 0x01010101u ^ codedBytes ^ motionBytes;
      const auto segments = [&](const SmFilterLevel& level, int8_t* tc0) {
        const auto byte = [](int8_t value) { return static_cast<uint32_t>(value) & 0xFFu; };
        const uint32_t word = intraEdge ? 0x01010101u * byte(level.tc0[2])
                                        : codedBytes * byte(level.tc0[1]) +
                                              motionBytes * byte(level.tc0[0]) + noneBytes * 0xFFu;
        std::memcpy(tc0, &word, sizeof word);
      };
      {
        const ptrdiff_t stride = lumaStride;
        uint8_t* q = luma + (vertical ? 4 * edge : 4 * edge * stride);
        const SmFilterLevel& level = m_Levels[(qpp + qpq + 1) >> 1];
        if (strongest) {
          (vertical ? NmPrimitives::H264FilterLumaVerticalEdgeIntra
                    : NmPrimitives::H264FilterLumaHorizontalEdgeIntra)(q, stride, level.alpha,
                                                                       level.beta);
        } else {
          int8_t tc0[4];
          segments(level, tc0);
          (vertical ? NmPrimitives::H264FilterLumaVerticalEdge
                    : NmPrimitives::H264FilterLumaHorizontalEdge)(q, stride, level.alpha,
                                                                  level.beta, tc0);
        }
      }
      // Chroma of 4:2:0: the edges that fall on luma edges 0 and 2.
      if (!m_Chroma || edge % 2 == 1) {
        continue;
      }
      const ptrdiff_t stride = chromaStride;
      const ptrdiff_t at = chromaAt + (vertical ? 2 * edge : 2 * edge * stride);
      uint8_t* cb = m_Picture.GetPlane(1) + at;
      uint8_t* cr = m_Picture.GetPlane(2) + at;
      int alpha[2], beta[2];
      int8_t tc0[8];
      for (int c = 0; c < 2; ++c) {
        const int cqpp = m_Levels.GetChromaQp(c, qpp);
        const int cqpq = edge == 0 ? m_Levels.GetChromaQp(c, qpq) : cqpp;
        const SmFilterLevel& level = m_Levels[(cqpp + cqpq + 1) >> 1];
        alpha[c] = level.alpha;
        beta[c] = level.beta;
        segments(level, tc0 + 4 * c);
      }
      if (vertical) {
        // Both planes in one pass: alone, each fills only half of the
        // kernel's vectors.
        if (strongest) {
          NmPrimitives::H264FilterChromaVerticalEdgesIntra(cb, cr, stride, alpha, beta);
        } else {
          NmPrimitives::H264FilterChromaVerticalEdges(cb, cr, stride, alpha, beta, tc0);
        }
        continue;
      }
      for (int c = 0; c < 2; ++c) {
        uint8_t* q = c == 0 ? cb : cr;
        if (strongest) {
          NmPrimitives::H264FilterChromaHorizontalEdgeIntra(q, stride, alpha[c], beta[c]);
        } else {
          NmPrimitives::H264FilterChromaHorizontalEdge(q, stride, alpha[c], beta[c], tc0 + 4 * c);
        }
      }
    }
  }

  CmPicture& m_Picture;
  const std::vector<SmSliceFilterParameters>& m_Slices;
  const uint32_t m_Width;
  const SmMacroblockInfo* m_Mbs;
  const bool m_Chroma;
  const bool m_Field;
  const int m_VerticalLimit;
  uint32_t m_Base = 0;
  uint32_t m_SummarisedEnd = 0;
  std::vector<SmSummary> m_Summaries;
  CmFilterLevels m_Levels;
};

} // namespace

struct CmRowDeblocker::SmState {
  CmFrameDeblocker frame;
};

CmRowDeblocker::CmRowDeblocker(CmPicture& picture,
                               const std::vector<SmSliceFilterParameters>& slices)
    : m_Picture(picture), m_Slices(slices) {
  if (!picture.IsMbaff()) {
    m_State = std::make_unique<SmState>(SmState{CmFrameDeblocker(picture, slices)});
  }
}

CmRowDeblocker::~CmRowDeblocker() = default;

void CmRowDeblocker::FilterUpTo(uint32_t endRow) {
  endRow = std::min(endRow, GetDeblockingRowCount(m_Picture));
  if (m_FilteredRows >= endRow) {
    return;
  }
  if (m_State != nullptr) {
    m_State->frame.Run(m_FilteredRows, endRow);
  } else {
    CmPairDeblocker(m_Picture, m_Slices).Run(m_FilteredRows, endRow);
  }
  m_FilteredRows = endRow;
}

uint32_t GetDeblockingRowCount(const CmPicture& picture) {
  return picture.GetHeightInMbs() / (picture.IsMbaff() ? 2 : 1);
}

} // namespace NmH264
