// Macroblocks of P slices: their syntax, motion vector prediction and
// motion-compensated prediction.
#include <algorithm>
#include <cstring>

#include "Codecs/H264/InterPrediction.h"
#include "Codecs/H264/SliceDecoder.h"

namespace NmH264 {

namespace {

// coded_block_pattern of inter macroblocks by codeNum (Table 9-4).
constexpr uint8_t InterCbp[48] = {0,  16, 1,  2,  4,  8,  32, 3,  5,  10, 12, 15, 47, 7,  11, 13,
                                  14, 6,  9,  31, 35, 37, 42, 44, 33, 34, 36, 40, 39, 43, 45, 46,
                                  17, 18, 20, 24, 19, 21, 26, 28, 23, 27, 29, 30, 22, 25, 38, 41};
constexpr uint8_t InterCbpMonochrome[16] = {0, 1, 2, 4, 8, 3, 5, 10, 12, 15, 7, 11, 13, 14, 6, 9};

// Partition shapes for the directional predictions of 16x8 and 8x16.
constexpr int ShapeOther = 0, Shape16x8 = 1, Shape8x16 = 2;

int Median(int a, int b, int c) {
  return std::max(std::min(a, b), std::min(std::max(a, b), c));
}

} // namespace

bool CmSliceDecoder::GetNeighbourMotion(uint32_t address, int list, int x, int y, int& refIdx,
                                        int16_t* mv) const {
  const uint32_t width = m_Picture->GetWidthInMbs();
  const SmMacroblockInfo* mbs = m_Picture->GetMacroblocks();
  const SmMacroblockInfo* info = nullptr;
  int bx = x, by = y;
  if (x >= 0 && x < 4 && y >= 0) {
    if ((m_KnownBlocks & (1u << (x + 4 * y))) == 0) {
      return false; // later in decoding order
    }
    info = mbs + address;
  } else {
    const int64_t mbx = static_cast<int64_t>(address % width) + (x < 0 ? -1 : (x >= 4 ? 1 : 0));
    const int64_t mby = static_cast<int64_t>(address / width) + (y < 0 ? -1 : 0);
    if (mbx < 0 || mbx >= static_cast<int64_t>(width) || mby < 0) {
      return false;
    }
    const SmMacroblockInfo* candidate = mbs + mby * width + mbx;
    if (!IsAvailable(candidate)) {
      return false;
    }
    info = candidate;
    bx = (x + 4) % 4;
    by = (y + 4) % 4;
  }
  refIdx = info->refIdx[list][(bx / 2) + 2 * (by / 2)];
  if (refIdx < 0) {
    mv[0] = mv[1] = 0;
  } else {
    mv[0] = info->mv[list][bx + 4 * by][0];
    mv[1] = info->mv[list][bx + 4 * by][1];
  }
  return true;
}

void CmSliceDecoder::PredictMotionVector(uint32_t address, int list, int x, int y, int width,
                                         int /*height*/, int refIdx, int shape,
                                         int16_t* mvp) const {
  int refA = -1, refB = -1, refC = -1;
  int16_t mvA[2] = {}, mvB[2] = {}, mvC[2] = {};
  const bool hasA = GetNeighbourMotion(address, list, x - 1, y, refA, mvA);
  const bool hasB = GetNeighbourMotion(address, list, x, y - 1, refB, mvB);
  bool hasC = GetNeighbourMotion(address, list, x + width, y - 1, refC, mvC);
  if (!hasC) {
    hasC = GetNeighbourMotion(address, list, x - 1, y - 1, refC, mvC);
  }
  if (shape == Shape16x8) {
    if (y == 0 && refB == refIdx) {
      mvp[0] = mvB[0], mvp[1] = mvB[1];
      return;
    }
    if (y != 0 && refA == refIdx) {
      mvp[0] = mvA[0], mvp[1] = mvA[1];
      return;
    }
  } else if (shape == Shape8x16) {
    if (x == 0 && refA == refIdx) {
      mvp[0] = mvA[0], mvp[1] = mvA[1];
      return;
    }
    if (x != 0 && refC == refIdx) {
      mvp[0] = mvC[0], mvp[1] = mvC[1];
      return;
    }
  }
  if (!hasB && !hasC && hasA) {
    refB = refC = refA;
    mvB[0] = mvC[0] = mvA[0];
    mvB[1] = mvC[1] = mvA[1];
  }
  const int matches = (refA == refIdx) + (refB == refIdx) + (refC == refIdx);
  if (matches == 1) {
    const int16_t* one = refA == refIdx ? mvA : (refB == refIdx ? mvB : mvC);
    mvp[0] = one[0], mvp[1] = one[1];
    return;
  }
  mvp[0] = static_cast<int16_t>(Median(mvA[0], mvB[0], mvC[0]));
  mvp[1] = static_cast<int16_t>(Median(mvA[1], mvB[1], mvC[1]));
}

void CmSliceDecoder::SetMotion(uint32_t address, int list, int x, int y, int width, int height,
                               int refIdx, const int16_t* mv) {
  SmMacroblockInfo& mb = m_Picture->GetMacroblocks()[address];
  for (int j = y; j < y + height; ++j) {
    for (int i = x; i < x + width; ++i) {
      mb.mv[list][i + 4 * j][0] = mv[0];
      mb.mv[list][i + 4 * j][1] = mv[1];
      mb.refIdx[list][(i / 2) + 2 * (j / 2)] = static_cast<int8_t>(refIdx);
      mb.refPicture[list][(i / 2) + 2 * (j / 2)] =
          refIdx >= 0 ? m_References[list][refIdx]->GetId() : 0;
      m_KnownBlocks = static_cast<uint16_t>(m_KnownBlocks | (1u << (i + 4 * j)));
    }
  }
}

void CmSliceDecoder::DecodeSkippedMacroblock(uint32_t address) {
  SmMacroblockInfo& mb = m_Picture->GetMacroblocks()[address];
  mb = SmMacroblockInfo();
  mb.slice = m_Slice;
  mb.kind = MbSkip;
  mb.qp = static_cast<int8_t>(m_Qp);
  std::fill(std::begin(mb.intraModes), std::end(mb.intraModes), int8_t{2});
  m_KnownBlocks = 0;
  // P_Skip: reference 0 and a zero vector when a neighbour above or to the
  // left is missing or stands still on reference 0, else the prediction.
  int refA = -1, refB = -1;
  int16_t mvA[2] = {}, mvB[2] = {};
  const bool hasA = GetNeighbourMotion(address, 0, -1, 0, refA, mvA);
  const bool hasB = GetNeighbourMotion(address, 0, 0, -1, refB, mvB);
  int16_t mv[2] = {0, 0};
  if (hasA && hasB && !(refA == 0 && mvA[0] == 0 && mvA[1] == 0) &&
      !(refB == 0 && mvB[0] == 0 && mvB[1] == 0)) {
    PredictMotionVector(address, 0, 0, 0, 4, 4, 0, ShapeOther, mv);
  }
  SetMotion(address, 0, 0, 0, 4, 4, 0, mv);
  PredictInter(address);
}

bool CmSliceDecoder::DecodeInterMacroblock(CmBitReader& reader, uint32_t mbType, uint32_t address) {
  SmMacroblockInfo& mb = m_Picture->GetMacroblocks()[address];
  mb = SmMacroblockInfo();
  mb.slice = m_Slice;
  mb.kind = MbInter;
  std::fill(std::begin(mb.intraModes), std::end(mb.intraModes), int8_t{2});
  m_KnownBlocks = 0;
  const uint32_t references = m_Header->numRefIdxActive[0];
  const CmPicture* const* list = m_References[0];
  // An index beyond the list, or to an entry that no picture fills, is
  // damage.
  const auto readRef = [&reader, references, list]() -> int {
    const uint32_t value = references <= 1 ? 0 : reader.ReadTE(references - 1);
    return value < references && list[value] != nullptr ? static_cast<int>(value) : -1;
  };
  bool allSubBlocks8x8 = true;
  if (mbType <= 2) {
    // 16x16, 16x8 or 8x16: all reference indices, then all differences.
    const int parts = mbType == 0 ? 1 : 2;
    const int w = mbType == 2 ? 2 : 4, h = mbType == 1 ? 2 : 4;
    int refs[2];
    for (int p = 0; p < parts; ++p) {
      refs[p] = readRef();
      if (refs[p] < 0) {
        return false;
      }
    }
    for (int p = 0; p < parts; ++p) {
      const int x = mbType == 2 ? 2 * p : 0, y = mbType == 1 ? 2 * p : 0;
      int16_t mvp[2];
      PredictMotionVector(address, 0, x, y, w, h, refs[p],
                          mbType == 1 ? Shape16x8 : (mbType == 2 ? Shape8x16 : ShapeOther), mvp);
      const int32_t dx = reader.ReadSE(), dy = reader.ReadSE();
      const int16_t mv[2] = {static_cast<int16_t>(mvp[0] + dx), static_cast<int16_t>(mvp[1] + dy)};
      SetMotion(address, 0, x, y, w, h, refs[p], mv);
    }
  } else {
    // P_8x8 and P_8x8ref0: a sub-type per 8x8 block, then its reference,
    // then the differences of its partitions.
    uint32_t subTypes[4];
    for (uint32_t& type : subTypes) {
      type = reader.ReadUE();
      if (type > 3) {
        return false;
      }
      allSubBlocks8x8 = allSubBlocks8x8 && type == 0;
    }
    int refs[4] = {0, 0, 0, 0};
    for (int& ref : refs) {
      // P_8x8ref0 takes reference 0 without saying so.
      ref = mbType == 3 ? readRef() : 0;
      if (ref < 0) {
        return false;
      }
    }
    for (int b8 = 0; b8 < 4; ++b8) {
      const int x0 = 2 * (b8 % 2), y0 = 2 * (b8 / 2);
      const int w = subTypes[b8] == 0 || subTypes[b8] == 1 ? 2 : 1;
      const int h = subTypes[b8] == 0 || subTypes[b8] == 2 ? 2 : 1;
      for (int y = y0; y < y0 + 2; y += h) {
        for (int x = x0; x < x0 + 2; x += w) {
          int16_t mvp[2];
          PredictMotionVector(address, 0, x, y, w, h, refs[b8], ShapeOther, mvp);
          const int32_t dx = reader.ReadSE(), dy = reader.ReadSE();
          const int16_t mv[2] = {static_cast<int16_t>(mvp[0] + dx),
                                 static_cast<int16_t>(mvp[1] + dy)};
          SetMotion(address, 0, x, y, w, h, refs[b8], mv);
        }
      }
    }
  }
  const uint32_t codeNum = reader.ReadUE();
  const bool monochrome = m_Sps->GetChromaArrayType() == 0;
  if (codeNum >= (monochrome ? 16u : 48u)) {
    return false;
  }
  const uint8_t cbp = monochrome ? InterCbpMonochrome[codeNum] : InterCbp[codeNum];
  mb.cbp = cbp;
  if ((cbp & 15) != 0 && m_Pps->transform8x8Mode && allSubBlocks8x8) {
    mb.transform8x8 = reader.ReadFlag();
  }
  if (cbp != 0) {
    const int32_t delta = reader.ReadSE();
    if (delta < -26 || delta > 25) {
      return false;
    }
    m_Qp = (m_Qp + delta + 52) % 52;
  }
  mb.qp = static_cast<int8_t>(m_Qp);
  if (!ReadResidual(reader, address, false, cbp) || reader.IsOverrun()) {
    return false;
  }
  PredictInter(address);
  const uint32_t width = m_Picture->GetWidthInMbs();
  const ptrdiff_t stride = m_Picture->GetStride(0);
  uint8_t* luma = m_Picture->GetPlane(0) + (address / width) * 16 * stride + (address % width) * 16;
  if (mb.transform8x8) {
    for (int b8 = 0; b8 < 4; ++b8) {
      if ((cbp & (1 << b8)) != 0) {
        AddLumaResidual8x8(b8, luma + 8 * (b8 / 2) * stride + 8 * (b8 % 2), stride, 1, mb.qp);
      }
    }
  } else {
    static constexpr uint8_t BlockX[16] = {0, 1, 0, 1, 2, 3, 2, 3, 0, 1, 0, 1, 2, 3, 2, 3};
    static constexpr uint8_t BlockY[16] = {0, 0, 1, 1, 0, 0, 1, 1, 2, 2, 3, 3, 2, 2, 3, 3};
    for (int blk = 0; blk < 16; ++blk) {
      if (mb.totalCoeff[BlockX[blk] + 4 * BlockY[blk]] != 0) {
        AddLumaResidual4x4(blk, luma + 4 * BlockY[blk] * stride + 4 * BlockX[blk], stride, 3,
                           mb.qp);
      }
    }
  }
  if (m_Sps->GetChromaArrayType() == 1) {
    AddChromaResidual(address, false);
  }
  return true;
}

void CmSliceDecoder::PredictInter(uint32_t address) {
  const SmMacroblockInfo& mb = m_Picture->GetMacroblocks()[address];
  const uint32_t width = m_Picture->GetWidthInMbs();
  const int mbx = static_cast<int>(address % width) * 16;
  const int mby = static_cast<int>(address / width) * 16;
  const ptrdiff_t stride = m_Picture->GetStride(0);
  uint8_t* luma = m_Picture->GetPlane(0) + mby * stride + mbx;
  // Each 4x4 block on its own gives the same samples as its partition:
  // the filters read only the reference.
  for (int j = 0; j < 4; ++j) {
    for (int i = 0; i < 4; ++i) {
      const int ref = mb.refIdx[0][(i / 2) + 2 * (j / 2)];
      const CmPicture& reference = *m_References[0][ref];
      const int16_t* mv = mb.mv[0][i + 4 * j];
      PredictLuma(reference, mbx + 4 * i, mby + 4 * j, mv[0], mv[1], 4, 4,
                  luma + 4 * j * stride + 4 * i, stride);
      if (m_Sps->GetChromaArrayType() == 1) {
        for (int c = 1; c < 3; ++c) {
          const ptrdiff_t cstride = m_Picture->GetStride(c);
          PredictChroma(reference, c, mbx / 2 + 2 * i, mby / 2 + 2 * j, mv[0], mv[1], 2, 2,
                        m_Picture->GetPlane(c) + (mby / 2 + 2 * j) * cstride + mbx / 2 + 2 * i,
                        cstride);
        }
      }
    }
  }
}

} // namespace NmH264
