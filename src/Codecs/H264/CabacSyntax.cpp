// The syntax elements of macroblocks as CABAC codes them: binarisations and
// the choice of context from the neighbours; the slice loop of CABAC.
#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cstring>

#include "Codecs/H264/SliceDecoder.h"
#include "Codecs/H264/SliceGroupMap.h"

namespace NmH264 {

namespace {

// Context index offsets of the syntax elements.
constexpr int CtxMbTypeI = 3, CtxSkipP = 11, CtxMbTypeP = 14, CtxMbTypeIntraP = 17,
              CtxSubTypeP = 21, CtxSkipB = 24, CtxMbTypeB = 27, CtxMbTypeIntraB = 32,
              CtxSubTypeB = 36, CtxMvdX = 40, CtxMvdY = 47, CtxRefIdx = 54, CtxQpDelta = 60,
              CtxChromaMode = 64, CtxPrevIntraMode = 68, CtxRemIntraMode = 69, CtxCbpLuma = 73,
              CtxCbpChroma = 77, CtxTransform8x8 = 399, CtxFieldDecoding = 70;

// Per block category (luma DC, luma AC, luma 4x4, chroma DC, chroma AC,
// luma 8x8): where its coded_block_flag, significance maps and levels
// start among the contexts.
constexpr int CtxCodedBlock[5] = {85, 89, 93, 97, 101};
constexpr int CtxSignificant[6] = {105, 120, 134, 149, 152, 402};
constexpr int CtxLast[6] = {166, 181, 195, 210, 213, 417};
constexpr int CtxLevel[6] = {227, 237, 247, 257, 266, 426};
// Field macroblocks, of field pictures or of pairs, have significance maps
// of their own: their coefficients cluster differently along the scan.
constexpr int CtxSignificantField[6] = {277, 292, 306, 321, 324, 436};
constexpr int CtxLastField[6] = {338, 353, 367, 382, 385, 451};

// ctxIdxInc of significant_coeff_flag and last_significant_coeff_flag in
// the 8x8 blocks of frame macroblocks, by scanning position; the
// significance maps have an entry beyond the last position, read ahead and
// never used.
constexpr uint8_t Significant8x8[64] = {
    0, 1, 2, 3,  4,  5,  5,  4, 4, 3,  3,  4, 4,  4,  5,  5,  4,  4,  4,  4, 3,  3,
    6, 7, 7, 7,  8,  9,  10, 9, 8, 7,  7,  6, 11, 12, 13, 11, 6,  7,  8,  9, 14, 10,
    9, 8, 6, 11, 12, 13, 11, 6, 9, 14, 10, 9, 11, 12, 13, 11, 14, 10, 12, 0};
constexpr uint8_t Significant8x8Field[64] = {
    0,  1,  1,  2, 2,  3,  3,  4,  5,  6,  7, 7, 7,  8,  4,  5,  6,  9,  10, 10, 8,  11,
    12, 11, 9,  9, 10, 10, 8,  11, 12, 11, 9, 9, 10, 10, 8,  11, 12, 11, 9,  9,  10, 10,
    8,  13, 13, 9, 9,  10, 10, 8,  13, 13, 9, 9, 10, 10, 14, 14, 14, 14, 14, 0};
constexpr uint8_t Last8x8[63] = {0, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 2, 2, 2, 2, 2,
                                 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 3, 3, 3, 3, 3, 3, 3, 3, 4, 4,
                                 4, 4, 4, 4, 4, 4, 5, 5, 5, 5, 6, 6, 6, 6, 7, 7, 7, 7, 8, 8, 8};

constexpr uint8_t BlockX[16] = {0, 1, 0, 1, 2, 3, 2, 3, 0, 1, 0, 1, 2, 3, 2, 3};
constexpr uint8_t BlockY[16] = {0, 0, 1, 1, 0, 0, 1, 1, 2, 2, 3, 3, 2, 2, 3, 3};

} // namespace

const SmMacroblockInfo* CmSliceDecoder::LocateBlock(int x, int y, int& bx, int& by) const {
  if (m_Mbaff && (x < 0 || y < 0)) {
    // Pairs of either kind: the neighbouring line may lie in either
    // macroblock of the neighbouring pair.
    const SmLocation location = Locate(m_Address, x < 0 ? -1 : 4 * x, y < 0 ? -1 : 4 * y, 16, 16);
    bx = location.x / 4;
    by = location.y / 4;
    return location.mb;
  }
  bx = (x + 4) % 4;
  by = (y + 4) % 4;
  if (x >= 0 && y >= 0) {
    return m_Picture->GetMacroblocks() + m_Address;
  }
  return x < 0 ? m_MbA : m_MbB;
}

namespace {
std::atomic<ImCabacObserver*> Observer{nullptr};
} // namespace

void CmSliceDecoder::SetCabacObserver(ImCabacObserver* observer) {
  Observer.store(observer);
}

uint32_t CmSliceDecoder::ReadIntraMbTypeCabac(bool intraSlice) {
  // I slices choose the first bin's context by the neighbours and have
  // contexts of their own for the rest; P and B slices use one context
  // per bin position.
  int first = CtxMbTypeIntraP, luma = 0, chroma = 0, chroma2 = 0, mode = 0, mode2 = 0;
  if (intraSlice) {
    const auto notNxN = [](const SmMacroblockInfo* n) {
      return n != nullptr && n->kind != MbI4x4 && n->kind != MbI8x8 ? 1 : 0;
    };
    first = CtxMbTypeI + notNxN(m_MbA) + notNxN(m_MbB);
    luma = CtxMbTypeI + 3, chroma = CtxMbTypeI + 4, chroma2 = CtxMbTypeI + 5;
    mode = CtxMbTypeI + 6, mode2 = CtxMbTypeI + 7;
  } else {
    const int base = m_Header->sliceType == SliceB ? CtxMbTypeIntraB : CtxMbTypeIntraP;
    first = base;
    luma = base + 1, chroma = base + 2, chroma2 = base + 2, mode = base + 3, mode2 = base + 3;
  }
  if (Decision(first) == 0) {
    return 0; // I_NxN
  }
  if (Terminate() != 0) {
    return 25; // I_PCM
  }
  const uint32_t codedLuma = static_cast<uint32_t>(Decision(luma));
  uint32_t codedChroma = static_cast<uint32_t>(Decision(chroma));
  if (codedChroma != 0) {
    codedChroma += static_cast<uint32_t>(Decision(chroma2));
  }
  uint32_t predMode = static_cast<uint32_t>(Decision(mode)) << 1;
  predMode |= static_cast<uint32_t>(Decision(mode2));
  return 1 + predMode + 4 * codedChroma + 12 * codedLuma;
}

uint32_t CmSliceDecoder::ReadMbTypeCabac() {
  if (m_Header->sliceType == SliceI) {
    return ReadIntraMbTypeCabac(true);
  }
  if (m_Header->sliceType == SliceP) {
    if (Decision(CtxMbTypeP) != 0) {
      return 5 + ReadIntraMbTypeCabac(false);
    }
    if (Decision(CtxMbTypeP + 1) == 0) {
      return Decision(CtxMbTypeP + 2) != 0 ? 3 : 0; // P_8x8 or P_L0_16x16
    }
    return Decision(CtxMbTypeP + 3) != 0 ? 1 : 2; // 16x8 or 8x16
  }
  const auto notDirect = [](const SmMacroblockInfo* n) {
    return n != nullptr && n->kind != MbSkip && !n->direct16x16 ? 1 : 0;
  };
  if (Decision(CtxMbTypeB + notDirect(m_MbA) + notDirect(m_MbB)) == 0) {
    return 0; // B_Direct_16x16
  }
  if (Decision(CtxMbTypeB + 3) == 0) {
    return 1 + static_cast<uint32_t>(Decision(CtxMbTypeB + 5));
  }
  uint32_t bits = static_cast<uint32_t>(Decision(CtxMbTypeB + 4)) << 3;
  bits |= static_cast<uint32_t>(Decision(CtxMbTypeB + 5)) << 2;
  bits |= static_cast<uint32_t>(Decision(CtxMbTypeB + 5)) << 1;
  bits |= static_cast<uint32_t>(Decision(CtxMbTypeB + 5));
  if (bits < 8) {
    return bits + 3;
  }
  if (bits == 13) {
    return 23 + ReadIntraMbTypeCabac(false);
  }
  if (bits == 14) {
    return 11;
  }
  if (bits == 15) {
    return 22; // B_8x8
  }
  bits = bits << 1 | static_cast<uint32_t>(Decision(CtxMbTypeB + 5));
  return bits - 4;
}

uint32_t CmSliceDecoder::ReadSubMbType(CmBitReader& reader) {
  if (!m_UseCabac) {
    return reader.ReadUE();
  }
  if (m_Header->sliceType == SliceP) {
    if (Decision(CtxSubTypeP) != 0) {
      return 0;
    }
    if (Decision(CtxSubTypeP + 1) == 0) {
      return 1;
    }
    return Decision(CtxSubTypeP + 2) != 0 ? 2 : 3;
  }
  if (Decision(CtxSubTypeB) == 0) {
    return 0;
  }
  if (Decision(CtxSubTypeB + 1) == 0) {
    return 1 + static_cast<uint32_t>(Decision(CtxSubTypeB + 3));
  }
  uint32_t type = 3;
  if (Decision(CtxSubTypeB + 2) != 0) {
    if (Decision(CtxSubTypeB + 3) != 0) {
      return 11 + static_cast<uint32_t>(Decision(CtxSubTypeB + 3));
    }
    type += 4;
  }
  type += 2 * static_cast<uint32_t>(Decision(CtxSubTypeB + 3));
  type += static_cast<uint32_t>(Decision(CtxSubTypeB + 3));
  return type;
}

uint32_t CmSliceDecoder::ReadRefIdx(CmBitReader& reader, int list, int x, int y) {
  const uint32_t references = GetActiveReferences(list);
  if (references <= 1) {
    return 0;
  }
  if (!m_UseCabac) {
    return reader.ReadTE(references - 1);
  }
  // A neighbour counts when it refers beyond the first picture of the list
  // by an index of its own, not one that direct prediction derived.
  const auto beyondFirst = [this, list](int nx, int ny) {
    int bx = 0, by = 0;
    const SmMacroblockInfo* n = LocateBlock(nx, ny, bx, by);
    if (n == nullptr || n->kind == MbSkip || IsIntra(n->kind)) {
      return 0;
    }
    const int b8 = bx / 2 + 2 * (by / 2);
    // A field neighbour of a frame macroblock counts its indices in fields.
    const int first = m_Mbaff && !m_MbField && n->field ? 1 : 0;
    return (n->directBlocks >> b8 & 1) == 0 && n->refIdx[list][b8] > first ? 1 : 0;
  };
  const int increment = beyondFirst(x - 1, y) + 2 * beyondFirst(x, y - 1);
  if (Decision(CtxRefIdx + increment) == 0) {
    return 0;
  }
  uint32_t value = 1;
  while (Decision(CtxRefIdx + (value == 1 ? 4 : 5)) != 0) {
    if (++value >= references) {
      return value; // beyond the list: the caller refuses it
    }
  }
  return value;
}

int32_t CmSliceDecoder::ReadMvd(CmBitReader& reader, int list, int component, int x, int y) {
  if (!m_UseCabac) {
    return reader.ReadSE();
  }
  const auto size = [this, list, component](int nx, int ny) {
    int bx = 0, by = 0;
    const SmMacroblockInfo* n = LocateBlock(nx, ny, bx, by);
    if (n == nullptr || n->kind == MbSkip || IsIntra(n->kind)) {
      return 0;
    }
    const int value = n->mvd[list][bx + 4 * by][component];
    // Vertical differences of field and frame macroblocks count different
    // lines.
    if (component == 1 && m_Mbaff && n->field != m_MbField) {
      return m_MbField ? value / 2 : value * 2;
    }
    return value;
  };
  const int sum = size(x - 1, y) + size(x, y - 1);
  const int base = component == 0 ? CtxMvdX : CtxMvdY;
  if (Decision(base + (sum < 3 ? 0 : (sum > 32 ? 2 : 1))) == 0) {
    return 0;
  }
  int32_t value = 1;
  while (value < 9 && Decision(base + std::min(value + 2, 6)) != 0) {
    ++value;
  }
  if (value >= 9) {
    // Exp-Golomb suffix of order 3, in bypass bins.
    int k = 3;
    while (Bypass() != 0) {
      value += 1 << k;
      if (++k > 24) {
        m_Damaged = true;
        return 0;
      }
    }
    while (k-- > 0) {
      value += Bypass() << k;
    }
  }
  return Bypass() != 0 ? -value : value;
}

void CmSliceDecoder::SetMvd(int list, int x, int y, int width, int height, int32_t dx, int32_t dy) {
  if (!m_UseCabac) {
    return; // only the contexts of CABAC read them
  }
  SmMacroblockInfo& mb = m_Picture->GetMacroblocks()[m_Address];
  const uint8_t sizes[2] = {static_cast<uint8_t>(std::min(std::abs(dx), 127)),
                            static_cast<uint8_t>(std::min(std::abs(dy), 127))};
  for (int j = y; j < y + height; ++j) {
    for (int i = x; i < x + width; ++i) {
      mb.mvd[list][i + 4 * j][0] = sizes[0];
      mb.mvd[list][i + 4 * j][1] = sizes[1];
    }
  }
}

bool CmSliceDecoder::ReadTransform8x8Flag(CmBitReader& reader) {
  if (!m_UseCabac) {
    return reader.ReadFlag();
  }
  const auto with8x8 = [](const SmMacroblockInfo* n) { return n != nullptr && n->transform8x8; };
  return Decision(CtxTransform8x8 + with8x8(m_MbA) + with8x8(m_MbB)) != 0;
}

bool CmSliceDecoder::ReadPrevIntraPredFlag(CmBitReader& reader) {
  return m_UseCabac ? Decision(CtxPrevIntraMode) != 0 : reader.ReadFlag();
}

int CmSliceDecoder::ReadRemIntraPred(CmBitReader& reader) {
  if (!m_UseCabac) {
    return static_cast<int>(reader.ReadBits(3));
  }
  // Least significant bin first.
  int mode = Decision(CtxRemIntraMode);
  mode |= Decision(CtxRemIntraMode) << 1;
  mode |= Decision(CtxRemIntraMode) << 2;
  return mode;
}

uint32_t CmSliceDecoder::ReadChromaPredMode(CmBitReader& reader) {
  if (!m_UseCabac) {
    return reader.ReadUE();
  }
  const auto predicted = [](const SmMacroblockInfo* n) {
    return n != nullptr && IsIntra(n->kind) && n->kind != MbIPcm && n->chromaPredMode != 0 ? 1 : 0;
  };
  if (Decision(CtxChromaMode + predicted(m_MbA) + predicted(m_MbB)) == 0) {
    return 0;
  }
  if (Decision(CtxChromaMode + 3) == 0) {
    return 1;
  }
  return Decision(CtxChromaMode + 3) != 0 ? 3 : 2;
}

int CmSliceDecoder::ReadCbpCabac() {
  // Luma: a bin per 8x8 block, whose context counts the neighbouring 8x8
  // blocks without coefficients. Missing neighbours and I_PCM count as
  // coded, skipped ones as not.
  int luma = 0;
  for (int b8 = 0; b8 < 4; ++b8) {
    const auto uncoded = [&](const SmMacroblockInfo* other, int inside, int otherB8) {
      if (inside >= 0) {
        return (luma >> inside & 1) == 0 ? 1 : 0;
      }
      return other != nullptr && (other->cbp >> otherB8 & 1) == 0 ? 1 : 0;
    };
    int a = 0, b = 0;
    if (m_Mbaff) {
      // The neighbouring 8x8 block depends on both pairs' kinds.
      const auto outside = [&](int xN, int yN) {
        const SmLocation l = Locate(m_Address, xN, yN, 16, 16);
        return uncoded(l.mb, -1, l.x / 8 + 2 * (l.y / 8));
      };
      a = b8 % 2 == 1 ? uncoded(nullptr, b8 - 1, 0) : outside(-1, 8 * (b8 / 2));
      b = b8 >= 2 ? uncoded(nullptr, b8 - 2, 0) : outside(8 * (b8 % 2), -1);
    } else {
      a = uncoded(m_MbA, b8 % 2 == 1 ? b8 - 1 : -1, b8 + 1);
      b = uncoded(m_MbB, b8 >= 2 ? b8 - 2 : -1, b8 + 2);
    }
    luma |= Decision(CtxCbpLuma + a + 2 * b) << b8;
  }
  if (m_Sps->GetChromaArrayType() != 1 && m_Sps->GetChromaArrayType() != 2) {
    return luma;
  }
  const auto chromaAtLeast = [](const SmMacroblockInfo* n, int value) {
    return n != nullptr && (n->cbp >> 4) >= value ? 1 : 0;
  };
  int chroma = 0;
  if (Decision(CtxCbpChroma + chromaAtLeast(m_MbA, 1) + 2 * chromaAtLeast(m_MbB, 1)) != 0) {
    chroma = 1 + Decision(CtxCbpChroma + 4 + chromaAtLeast(m_MbA, 2) + 2 * chromaAtLeast(m_MbB, 2));
  }
  return luma | chroma << 4;
}

bool CmSliceDecoder::ReadQpDelta(CmBitReader& reader, int32_t& delta) {
  if (!m_UseCabac) {
    delta = reader.ReadSE();
  } else {
    delta = 0;
    if (Decision(CtxQpDelta + (m_PrevQpDeltaNonZero ? 1 : 0)) != 0) {
      uint32_t k = 1;
      while (Decision(CtxQpDelta + (k == 1 ? 2 : 3)) != 0) {
        if (++k > 52) {
          return false;
        }
      }
      delta = (k & 1) != 0 ? static_cast<int32_t>((k + 1) / 2) : -static_cast<int32_t>(k / 2);
    }
    m_QpDeltaNonZero = delta != 0;
  }
  return delta >= -26 && delta <= 25;
}

int CmSliceDecoder::ReadBlockCabac(int category, int codedInc, int maxNumCoeff, int16_t* levels) {
  std::fill(levels, levels + maxNumCoeff, int16_t{0});
  return m_Observer != nullptr ? ReadLevelsCabac<true>(category, codedInc, maxNumCoeff, levels)
                               : ReadLevelsCabac<false>(category, codedInc, maxNumCoeff, levels);
}

template <bool Observed>
int CmSliceDecoder::ReadLevelsCabac(int category, int codedInc, int maxNumCoeff, int16_t* levels) {
  // The engine works on a copy of its own: contexts are bytes, which may
  // alias anything, so with the member's state every context update would
  // store the engine's state and load it again.
  CmCabacDecoder engine = m_Cabac;
  uint8_t* const contexts = m_Contexts;
  const auto decision = [&](int ctxIdx) {
    uint8_t state = contexts[ctxIdx];
    const int bin = engine.DecodeDecision(state);
    contexts[ctxIdx] = state;
    if constexpr (Observed) {
      m_Observer->OnDecision(ctxIdx, bin);
    }
    return bin;
  };
  const auto bypass = [&] {
    const int bin = engine.DecodeBypass();
    if constexpr (Observed) {
      m_Observer->OnBypass(bin);
    }
    return bin;
  };
  if (codedInc >= 0 && decision(CtxCodedBlock[category] + codedInc) == 0) {
    m_Cabac = engine;
    return 0;
  }
  const bool field = m_Header->fieldPic || m_MbField;
  // The initial values of the 8x8 significance maps of field macroblocks
  // for cabac_init_idc 1 and 2 are not in this decoder yet: refused, never
  // guessed.
  if (category == 5 && field && m_Header->sliceType != SliceI && m_Header->cabacInitIdc != 0) {
    m_NeedsUnknownContexts = true;
    m_Cabac = engine;
    return -1;
  }
  const int sigBase = field ? CtxSignificantField[category] : CtxSignificant[category];
  const int lastBase = field ? CtxLastField[category] : CtxLast[category];
  const int lastIndex = maxNumCoeff - 1;

  // The significance map as one bin after the other, without a branch on
  // any of them: whether a significance flag or a last flag comes next is
  // a selection, as each is as hard to foresee as its probability says.
  // Both candidate contexts are read while the current bin is decoded: the
  // last flag's before the current context is written back (where they
  // are the same, the last flag is not the one chosen), the next
  // significance flag's after it, as neighbouring positions of 8x8 blocks
  // may share one.
  uint8_t positions[64];
  int count = 0;
  bool ended = false;
  const auto readMap = [&](const auto& significantInc, const auto& lastInc) {
    int i = 0;
    unsigned phase = 0; // 1 while the current bin is a last flag
    int ctxIdx = sigBase + significantInc(0);
    uint8_t state = contexts[ctxIdx];
    for (;;) {
      const int lastIdx = lastBase + lastInc(i);
      const int nextIdx = sigBase + significantInc(i + 1);
      const uint8_t lastState = contexts[lastIdx];
      const unsigned bin = static_cast<unsigned>(engine.DecodeDecision(state));
      contexts[ctxIdx] = state;
      if constexpr (Observed) {
        m_Observer->OnDecision(ctxIdx, static_cast<int>(bin));
      }
      const uint8_t nextState = contexts[nextIdx];
      if ((bin & phase) != 0) {
        ended = true;
        return;
      }
      const unsigned significant = bin & (phase ^ 1);
      positions[count] = static_cast<uint8_t>(i);
      count += static_cast<int>(significant);
      i += static_cast<int>(significant ^ 1);
      if (i == lastIndex) {
        return;
      }
      phase = significant;
      const unsigned mask = 0 - significant;
      state = static_cast<uint8_t>(nextState ^ ((nextState ^ lastState) & mask));
      ctxIdx = nextIdx ^ ((nextIdx ^ lastIdx) & static_cast<int>(mask));
    }
  };
  if (category == 5) {
    const uint8_t* significant8x8 = field ? Significant8x8Field : Significant8x8;
    readMap([significant8x8](int i) { return static_cast<int>(significant8x8[i]); },
            [](int i) { return static_cast<int>(Last8x8[i]); });
  } else {
    // Blocks of at most 16 coefficients use the position itself (the 2x2
    // chroma DC of 4:2:0 has positions 0 to 2 only, where Min(i, 2) is i).
    const auto byPosition = [](int i) { return i; };
    readMap(byPosition, byPosition);
  }
  if (!ended) {
    positions[count++] = static_cast<uint8_t>(lastIndex);
  }

  // Levels in reverse scanning order. The first bin's context counts the
  // levels of 1 so far until one above 1 comes, then stays at 0; the
  // others' count those above 1.
  const int levelBase = CtxLevel[category];
  const int gt1Limit = category == 3 ? 3 : 4;
  static constexpr uint8_t AfterOne[5] = {0, 2, 3, 4, 4};
  int firstInc = 1, greater = 0;
  for (int k = count - 1; k >= 0; --k) {
    int32_t level = 1;
    if (decision(levelBase + firstInc) != 0) [[unlikely]] {
      const int context = levelBase + 5 + std::min(gt1Limit, greater);
      int32_t prefix = 1;
      while (prefix < 14 && decision(context) != 0) {
        ++prefix;
      }
      if (prefix >= 14) {
        // Exp-Golomb suffix of order 0.
        int bits = 0;
        while (bypass() != 0) {
          prefix += 1 << bits;
          if (++bits > 20) {
            m_Cabac = engine;
            return -1;
          }
        }
        while (bits-- > 0) {
          prefix += bypass() << bits;
        }
      }
      level = std::min<int32_t>(prefix + 1, 32767);
      ++greater;
      firstInc = 0;
    } else {
      firstInc = AfterOne[firstInc];
    }
    const int32_t sign = -bypass();
    levels[positions[k]] = static_cast<int16_t>((level ^ sign) - sign);
  }
  m_Cabac = engine;
  return count;
}

template <typename Coded>
int CmSliceDecoder::CodedBlockIncrement(const SmMacroblockInfo* a, const SmMacroblockInfo* b,
                                        const Coded& coded) const {
  const bool intra = IsIntra(m_Picture->GetMacroblocks()[m_Address].kind);
  const auto term = [&](const SmMacroblockInfo* n, int which) {
    if (n == nullptr) {
      return intra ? 1 : 0;
    }
    if (n->kind == MbIPcm) {
      return 1;
    }
    if (n->kind == MbSkip) {
      return 0;
    }
    return coded(n, which) ? 1 : 0;
  };
  return term(a, 0) + 2 * term(b, 1);
}

bool CmSliceDecoder::ReadResidualCabac(bool intra16x16, uint8_t cbp) {
  SmMacroblockInfo& mb = m_Picture->GetMacroblocks()[m_Address];
  const SmMacroblockInfo* self = &mb;
  mb.codedDc = 0;
  if (intra16x16) {
    const int inc = CodedBlockIncrement(m_MbA, m_MbB, [](const SmMacroblockInfo* n, int) {
      return n->kind == MbI16x16 && (n->codedDc & 1) != 0;
    });
    const int count = ReadBlockCabac(0, inc, 16, m_DcLevels);
    if (count < 0) {
      return false;
    }
    mb.codedDc = count > 0 ? 1 : 0;
  }
  if (mb.transform8x8) {
    for (int b8 = 0; b8 < 4; ++b8) {
      int count = 0;
      if ((cbp >> b8 & 1) != 0) {
        count = ReadBlockCabac(5, -1, 64, m_Levels8x8[b8]);
        if (count < 0) {
          return false;
        }
      }
      for (int sub = 0; sub < 4; ++sub) {
        mb.totalCoeff[BlockX[4 * b8 + sub] + 4 * BlockY[4 * b8 + sub]] =
            static_cast<uint8_t>(std::min(count, 16));
      }
    }
  } else {
    for (int blk = 0; blk < 16; ++blk) {
      const int x = BlockX[blk], y = BlockY[blk];
      if ((cbp >> (blk / 4) & 1) == 0) {
        mb.totalCoeff[x + 4 * y] = 0;
        std::fill(m_Levels[blk], m_Levels[blk] + 16, int16_t{0});
        continue;
      }
      // The neighbouring 4x4 blocks, or the 8x8 blocks that hold them, with
      // coefficients; an 8x8 block of a coded 8x8 quarter always has them.
      int ax = 0, ay = 0, bx = 0, by = 0;
      const SmMacroblockInfo* a = LocateBlock(x - 1, y, ax, ay);
      const SmMacroblockInfo* b = LocateBlock(x, y - 1, bx, by);
      const auto coded = [&](const SmMacroblockInfo* n, int which) {
        const int nx = which == 0 ? ax : bx, ny = which == 0 ? ay : by;
        if (n != self) {
          if ((n->cbp >> (nx / 2 + 2 * (ny / 2)) & 1) == 0) {
            return false;
          }
          if (n->transform8x8) {
            return true;
          }
        }
        return n->totalCoeff[nx + 4 * ny] != 0;
      };
      const int inc = CodedBlockIncrement(a, b, coded);
      const int count = intra16x16 ? ReadBlockCabac(1, inc, 15, m_Levels[blk])
                                   : ReadBlockCabac(2, inc, 16, m_Levels[blk]);
      if (count < 0) {
        return false;
      }
      mb.totalCoeff[x + 4 * y] = static_cast<uint8_t>(count);
    }
  }
  std::memset(mb.totalCoeffChroma, 0, sizeof mb.totalCoeffChroma);
  std::memset(m_ChromaDcLevels, 0, sizeof m_ChromaDcLevels);
  std::memset(m_ChromaAcLevels, 0, sizeof m_ChromaAcLevels);
  if (m_Sps->GetChromaArrayType() != 1) {
    return true;
  }
  const int chromaCbp = cbp >> 4;
  if (chromaCbp != 0) {
    for (int c = 0; c < 2; ++c) {
      const int inc = CodedBlockIncrement(m_MbA, m_MbB, [c](const SmMacroblockInfo* n, int) {
        return (n->cbp >> 4) != 0 && (n->codedDc >> (1 + c) & 1) != 0;
      });
      int16_t dc[4];
      const int count = ReadBlockCabac(3, inc, 4, dc);
      if (count < 0) {
        return false;
      }
      std::copy(dc, dc + 4, m_ChromaDcLevels[c]);
      mb.codedDc = static_cast<uint8_t>(mb.codedDc | (count > 0 ? 2 << c : 0));
    }
  }
  if (chromaCbp == 2) {
    for (int c = 0; c < 2; ++c) {
      for (int blk = 0; blk < 4; ++blk) {
        const int x = blk % 2, y = blk / 2;
        const SmMacroblockInfo* a = x > 0 ? self : m_MbA;
        const SmMacroblockInfo* b = y > 0 ? self : m_MbB;
        int blockA = 1 - x + 2 * y, blockB = x + 2 * (1 - y);
        if (m_Mbaff) {
          // Which block row of a neighbouring pair lies beside this one
          // depends on both pairs' kinds.
          if (x == 0) {
            const SmLocation l = Locate(m_Address, -1, 4 * y, 8, 8);
            a = l.mb;
            blockA = l.x / 4 + 2 * (l.y / 4);
          }
          if (y == 0) {
            const SmLocation l = Locate(m_Address, 4 * x, -1, 8, 8);
            b = l.mb;
            blockB = l.x / 4 + 2 * (l.y / 4);
          }
        }
        const auto coded = [&](const SmMacroblockInfo* n, int which) {
          return (n->cbp >> 4) == 2 && n->totalCoeffChroma[c][which == 0 ? blockA : blockB] != 0;
        };
        const int inc = CodedBlockIncrement(a, b, coded);
        const int count = ReadBlockCabac(4, inc, 15, m_ChromaAcLevels[c][blk]);
        if (count < 0) {
          return false;
        }
        mb.totalCoeffChroma[c][blk] = static_cast<uint8_t>(count);
      }
    }
  }
  return true;
}

bool CmSliceDecoder::ReadPcmCabac(CmBitReader& reader) {
  // The samples start at the byte boundary after the bits the arithmetic
  // decoder has read; it starts anew behind them.
  const size_t position = m_Cabac.GetBitPosition();
  if (position < reader.GetPosition() || position > reader.GetSizeInBits()) {
    return false;
  }
  reader.Skip(position - reader.GetPosition());
  if (!ReadPcm(reader, m_Address) || reader.IsOverrun()) {
    return false;
  }
  if (m_Observer != nullptr) {
    const size_t size = m_Picture->IsMonochrome() ? 256 : 384;
    m_Observer->OnPcm(reader.GetData() + reader.GetPosition() / 8 - size, size);
  }
  m_Cabac.Start(reader.GetData(), reader.GetSizeInBits() / 8, reader.GetPosition() / 8);
  return true;
}

bool CmSliceDecoder::ReadSkipFlagCabac(const SmNeighbours& neighbours) {
  const auto notSkipped = [](const SmMacroblockInfo* n) {
    return n != nullptr && n->kind != MbSkip ? 1 : 0;
  };
  const int base = m_Header->sliceType == SliceP ? CtxSkipP : CtxSkipB;
  return Decision(base + notSkipped(neighbours.left) + notSkipped(neighbours.top)) != 0;
}

bool CmSliceDecoder::ReadFieldFlagCabac(uint32_t address) {
  // The context counts the field pairs to the left and above.
  const uint32_t width = m_Picture->GetWidthInMbs();
  const uint32_t top = address - (address / width % 2) * width;
  const SmMacroblockInfo* mbs = m_Picture->GetMacroblocks();
  const auto fieldPair = [this](const SmMacroblockInfo* n) {
    return IsAvailable(n) && n->field ? 1 : 0;
  };
  const int left = top % width > 0 ? fieldPair(mbs + top - 1) : 0;
  const int above = top >= 2 * width ? fieldPair(mbs + top - 2 * width) : 0;
  return Decision(CtxFieldDecoding + left + above) != 0;
}

CmSliceDecoder::SmResult CmSliceDecoder::DecodeCabacSlice(CmBitReader& reader, uint32_t count,
                                                          const std::vector<uint8_t>* sliceGroups) {
  const bool p = m_Header->sliceType == SliceP;
  const bool b = m_Header->sliceType == SliceB;
  m_Observer = Observer.load();
  if (m_Observer != nullptr) {
    m_Observer->OnSliceData(*m_Header, *m_Pps, reader);
  }
  reader.AlignToByte(); // cabac_alignment_one_bit
  if (reader.IsOverrun()) {
    return Damaged;
  }
  InitialiseCabacContexts(m_Contexts, p || b ? static_cast<int>(m_Header->cabacInitIdc) : 3,
                          m_Header->sliceQp);
  m_Cabac.Start(reader.GetData(), reader.GetSizeInBits() / 8, reader.GetPosition() / 8);
  m_PrevQpDeltaNonZero = m_QpDeltaNonZero = false;
  m_Damaged = false;
  m_NeedsUnknownContexts = false;
  const uint32_t width = m_Picture->GetWidthInMbs();
  // In a frame of macroblock pairs mbAddr counts pair by pair, top before
  // bottom; address is always the raster record.
  uint32_t mbAddr = m_Header->firstMbInSlice * (m_Mbaff ? 2 : 1);
  // A pair's mb_field_decoding_flag comes with its first coded macroblock.
  // A skipped top needs its bottom's mb_skip_flag, and the flag that may
  // follow it, before its own motion can be derived.
  bool fieldKnown = false;
  int bottomSkipped = -1;
  for (;;) {
    if (mbAddr >= count) {
      return Damaged;
    }
    const uint32_t address = ToRaster(mbAddr);
    const bool pairTop = m_Mbaff && mbAddr % 2 == 0;
    m_Address = address;
    if (pairTop) {
      // Until the pair says otherwise, the contexts see the inferred kind.
      m_MbField = InferMbField(address);
      SelectScans();
      fieldKnown = false;
      bottomSkipped = -1;
    }
    m_PrevQpDeltaNonZero = m_QpDeltaNonZero;
    m_QpDeltaNonZero = false;
    SmNeighbours neighbours = GetNeighbours(address);
    bool skipped = false;
    if (p || b) {
      skipped = !pairTop && bottomSkipped >= 0 ? bottomSkipped != 0 : ReadSkipFlagCabac(neighbours);
    }
    if (skipped && pairTop) {
      // The bottom's neighbour above may be this top: it is skipped.
      SmMacroblockInfo& mb = m_Picture->GetMacroblocks()[address];
      mb.slice = m_Slice;
      mb.kind = MbSkip;
      mb.field = m_MbField;
      m_Address = address + width;
      bottomSkipped = ReadSkipFlagCabac(GetNeighbours(address + width)) ? 1 : 0;
      if (bottomSkipped == 0) {
        m_MbField = ReadFieldFlagCabac(address);
        SelectScans();
        fieldKnown = true;
        neighbours = GetNeighbours(address);
      }
      m_Address = address;
    }
    m_MbA = neighbours.left;
    m_MbB = neighbours.top;
    bool ok = true;
    if (skipped) {
      if (p) {
        DecodeSkippedMacroblock(address);
      } else {
        ok = DecodeBSkippedMacroblock(address);
      }
    } else {
      if (m_Mbaff && !fieldKnown) {
        m_MbField = ReadFieldFlagCabac(address);
        SelectScans();
        fieldKnown = true;
        neighbours = GetNeighbours(address);
        m_MbA = neighbours.left;
        m_MbB = neighbours.top;
      }
      const uint32_t mbType = ReadMbTypeCabac();
      if (p && mbType < 5) {
        ok = DecodeInterMacroblock(reader, mbType, address);
      } else if (b && mbType < 23) {
        ok = DecodeBMacroblock(reader, mbType, address);
      } else {
        const uint32_t intraType = p ? mbType - 5 : (b ? mbType - 23 : mbType);
        ok = intraType <= 25 && DecodeIntraMacroblock(reader, intraType, address);
      }
    }
    if (m_NeedsUnknownContexts) {
      return Unsupported;
    }
    if (!ok || m_Damaged || m_Cabac.IsOverrun()) {
      return Damaged;
    }
    TellDone(mbAddr);
    // A pair ends a slice only after its bottom.
    if (!pairTop && Terminate() != 0) {
      return Decoded;
    }
    mbAddr = sliceGroups != nullptr ? NextMacroblockAddress(*sliceGroups, mbAddr) : mbAddr + 1;
  }
}

} // namespace NmH264
