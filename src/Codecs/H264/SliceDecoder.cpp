#include "Codecs/H264/SliceDecoder.h"

#include <algorithm>
#include <cstring>

#include "Codecs/H264/Cavlc.h"
#include "Codecs/H264/SliceGroupMap.h"
#include "Codecs/Primitives/H264Transform.h"

namespace NmH264 {

namespace {

// The position of 4x4 block luma4x4BlkIdx in the macroblock, in 4x4 units.
constexpr uint8_t BlockX[16] = {0, 1, 0, 1, 2, 3, 2, 3, 0, 1, 0, 1, 2, 3, 2, 3};
constexpr uint8_t BlockY[16] = {0, 0, 1, 1, 0, 0, 1, 1, 2, 2, 3, 3, 2, 2, 3, 3};
// And back: the block index at raster position x + 4y.
constexpr uint8_t BlockIndex[16] = {0, 1, 4, 5, 2, 3, 6, 7, 8, 9, 12, 13, 10, 11, 14, 15};

// coded_block_pattern of intra macroblocks by codeNum (Table 9-4), for
// ChromaArrayType 1 or 2, and for 0 or 3.
constexpr uint8_t IntraCbp[48] = {47, 31, 15, 0,  23, 27, 29, 30, 7,  11, 13, 14, 39, 43, 45, 46,
                                  16, 3,  5,  10, 12, 19, 21, 26, 28, 35, 37, 42, 44, 1,  2,  4,
                                  8,  17, 18, 20, 24, 6,  9,  22, 25, 32, 33, 34, 36, 40, 38, 41};
constexpr uint8_t IntraCbpMonochrome[16] = {15, 0, 7, 11, 13, 14, 3, 5, 10, 12, 1, 2, 4, 8, 6, 9};
// And of inter macroblocks.
constexpr uint8_t InterCbp[48] = {0,  16, 1,  2,  4,  8,  32, 3,  5,  10, 12, 15, 47, 7,  11, 13,
                                  14, 6,  9,  31, 35, 37, 42, 44, 33, 34, 36, 40, 39, 43, 45, 46,
                                  17, 18, 20, 24, 19, 21, 26, 28, 23, 27, 29, 30, 22, 25, 38, 41};
constexpr uint8_t InterCbpMonochrome[16] = {0, 1, 2, 4, 8, 3, 5, 10, 12, 15, 7, 11, 13, 14, 6, 9};

// Chroma DC prediction of 4:2:0 where only one half of the left samples may
// be used (a field macroblock beside a frame pair under constrained intra
// prediction): each 4x4 block averages the neighbours of its own rows.
void PredictChromaDcByHalves(uint8_t* dst, ptrdiff_t stride, bool upperLeft, bool lowerLeft,
                             bool top) {
  for (int by = 0; by < 2; ++by) {
    const bool hasLeft = by == 0 ? upperLeft : lowerLeft;
    for (int bx = 0; bx < 2; ++bx) {
      int topSum = 0, leftSum = 0;
      for (int k = 0; k < 4; ++k) {
        topSum += top ? dst[-stride + 4 * bx + k] : 0;
        leftSum += hasLeft ? dst[(4 * by + k) * stride - 1] : 0;
      }
      // The corner blocks use both sides; the others prefer the side they
      // touch (top for the upper right, left for the lower left).
      int value = 128;
      const bool corner = bx == by;
      const bool preferTop = bx == 1 && by == 0;
      if (corner && top && hasLeft) {
        value = (topSum + leftSum + 4) >> 3;
      } else if (preferTop ? top : hasLeft) {
        value = ((preferTop ? topSum : leftSum) + 2) >> 2;
      } else if (preferTop ? hasLeft : top) {
        value = ((preferTop ? leftSum : topSum) + 2) >> 2;
      }
      for (int y = 0; y < 4; ++y) {
        std::memset(dst + (4 * by + y) * stride + 4 * bx, value, 4);
      }
    }
  }
}

} // namespace

bool CmSliceDecoder::IsAvailable(const SmMacroblockInfo* info) const {
  return info != nullptr && info->slice == m_Slice;
}

CmSliceDecoder::SmNeighbours CmSliceDecoder::GetNeighbours(uint32_t address) const {
  if (m_Mbaff) {
    return SmNeighbours{Locate(address, -1, 0, 16, 16).mb, Locate(address, 0, -1, 16, 16).mb,
                        Locate(address, 16, -1, 16, 16).mb, Locate(address, -1, -1, 16, 16).mb};
  }
  const uint32_t width = m_Picture->GetWidthInMbs();
  uint32_t x = 0, y = 0;
  GetPosition(address, x, y);
  const SmMacroblockInfo* mbs = m_Picture->GetMacroblocks();
  const auto pick = [this](const SmMacroblockInfo* info) {
    return IsAvailable(info) ? info : nullptr;
  };
  SmNeighbours n{};
  n.left = x > 0 ? pick(mbs + address - 1) : nullptr;
  n.top = y > 0 ? pick(mbs + address - width) : nullptr;
  n.topRight = y > 0 && x + 1 < width ? pick(mbs + address - width + 1) : nullptr;
  n.topLeft = y > 0 && x > 0 ? pick(mbs + address - width - 1) : nullptr;
  return n;
}

uint32_t CmSliceDecoder::ToRaster(uint32_t mbAddr) const {
  if (!m_Mbaff) {
    return mbAddr;
  }
  const uint32_t width = m_Picture->GetWidthInMbs();
  const uint32_t pair = mbAddr / 2;
  return (2 * (pair / width) + mbAddr % 2) * width + pair % width;
}

uint8_t* CmSliceDecoder::GetSamples(uint32_t address, int plane) const {
  const int size = plane == 0 ? 16 : 8;
  const ptrdiff_t stride = m_Picture->GetStride(plane);
  uint32_t mbx = 0, mby = 0;
  GetPosition(address, mbx, mby);
  // A field macroblock starts on the first or second line of its pair.
  const ptrdiff_t line = m_MbField ? (mby & ~1u) * size + (mby & 1u) : mby * size;
  return m_Picture->GetPlane(plane) + line * stride + mbx * size;
}

bool CmSliceDecoder::InferMbField(uint32_t address) const {
  const uint32_t width = m_Picture->GetWidthInMbs();
  const uint32_t mbx = address % width, top = address - (address / width % 2) * width;
  const SmMacroblockInfo* mbs = m_Picture->GetMacroblocks();
  if (mbx > 0 && IsAvailable(mbs + top - 1)) {
    return mbs[top - 1].field;
  }
  if (top >= 2 * width && IsAvailable(mbs + top - 2 * width)) {
    return mbs[top - 2 * width].field;
  }
  return false;
}

const CmPicture* CmSliceDecoder::GetFieldReference(int list, int refIdx) const {
  if (refIdx < 0) {
    return nullptr;
  }
  const std::vector<const CmPicture*>& pictures = m_Lists[list].pictures;
  const size_t entry = static_cast<size_t>(refIdx >> 1);
  if (entry >= pictures.size() || pictures[entry] == nullptr) {
    return nullptr;
  }
  return pictures[entry]->FindField(GetCurrentParity() ^ (refIdx & 1));
}

void CmSliceDecoder::SelectScans() {
  const bool field = m_Header->fieldPic || m_MbField;
  m_Scan4x4 = field ? FieldScan4x4.data() : ZigZag4x4.data();
  m_Scan8x8 = field ? FieldScan8x8.data() : ZigZag8x8.data();
  m_FieldScan = field;
}

CmSliceDecoder::SmLocation CmSliceDecoder::Locate(uint32_t address, int xN, int yN, int maxW,
                                                  int maxH) const {
  const SmMacroblockInfo* mbs = m_Picture->GetMacroblocks();
  if (xN >= 0 && xN < maxW && yN >= 0 && yN < maxH) {
    return {mbs + address, xN, yN};
  }
  const SmLocation none{nullptr, 0, 0};
  if (yN >= maxH || (xN >= maxW && yN >= 0)) {
    return none;
  }
  const int width = static_cast<int>(m_Picture->GetWidthInMbs());
  uint32_t column = 0, row = 0;
  GetPosition(address, column, row);
  const int mbx = static_cast<int>(column), mby = static_cast<int>(row);
  const int dx = xN < 0 ? -1 : (xN >= maxW ? 1 : 0);
  const int xW = xN - dx * maxW;
  if (mbx + dx < 0 || mbx + dx >= width) {
    return none;
  }
  if (!m_Mbaff) {
    const int dy = yN < 0 ? -1 : 0;
    const SmMacroblockInfo* info = mbs + address + dx + dy * width;
    if (mby + dy < 0 || !IsAvailable(info)) {
      return none;
    }
    return {info, xW, yN - dy * maxH};
  }
  // Pairs: the neighbouring pair X, then which of its macroblocks holds the
  // line, counted in that macroblock's own lines (yM).
  const bool currentTop = mby % 2 == 0;
  const int pairRow = mby / 2;
  const auto pairTop = [&](int px, int pairY) -> const SmMacroblockInfo* {
    if (pairY < 0) {
      return nullptr;
    }
    const SmMacroblockInfo* info = mbs + (2 * pairY) * width + px;
    return IsAvailable(info) ? info : nullptr;
  };
  const SmMacroblockInfo* pair = nullptr;
  bool bottom = false;
  int yM = 0;
  if (xN >= 0 && xN < maxW && currentTop == false && !m_MbField) {
    // Above a frame macroblock at the bottom of its pair lies its top.
    return {mbs + address - width, xW, yN + maxH};
  }
  if (yN < 0) {
    if (xN < 0 && !m_MbField && !currentTop) {
      // Top left of a bottom frame macroblock: in the pair to the left, the
      // line just above, which of a field pair is the bottom field's middle.
      pair = pairTop(mbx - 1, pairRow);
      bottom = pair != nullptr && pair->field;
      yM = bottom ? (yN + maxH) >> 1 : yN + maxH;
    } else if (xN >= maxW && !m_MbField && !currentTop) {
      return none;
    } else {
      pair = pairTop(mbx + dx, pairRow - 1);
      if (pair != nullptr && m_MbField && currentTop) {
        bottom = !pair->field;
        yM = pair->field ? yN : 2 * yN;
      } else {
        bottom = true;
        yM = yN;
      }
    }
  } else {
    pair = pairTop(mbx - 1, pairRow);
    if (pair == nullptr) {
      return none;
    }
    LocateLeftInPair(m_MbField, currentTop, pair->field, yN, maxH, bottom, yM);
  }
  if (pair == nullptr) {
    return none;
  }
  return {pair + (bottom ? width : 0), xW, (yM + maxH) % maxH};
}

int CmSliceDecoder::PredictIntraMode(uint32_t address, int x, int y) const {
  const SmLocation left = Locate(address, 4 * x - 1, 4 * y, 16, 16);
  const SmLocation top = Locate(address, 4 * x, 4 * y - 1, 16, 16);
  const auto unusable = [this](const SmMacroblockInfo* info) {
    return info == nullptr || (!IsIntra(info->kind) && m_Pps->constrainedIntraPred);
  };
  if (unusable(left.mb) || unusable(top.mb)) {
    return 2;
  }
  const auto mode = [](const SmLocation& l) {
    return l.mb->kind == MbI4x4 || l.mb->kind == MbI8x8 ? l.mb->intraModes[l.x / 4 + l.y / 4 * 4]
                                                        : 2;
  };
  return std::min(mode(left), mode(top));
}

bool CmSliceDecoder::ReadPcm(CmBitReader& reader, uint32_t address) {
  SmMacroblockInfo& mb = m_Picture->GetMacroblocks()[address];
  mb.kind = MbIPcm;
  reader.AlignToByte();
  uint8_t* luma = GetSamples(address, 0);
  for (int y = 0; y < 16; ++y) {
    for (int x = 0; x < 16; ++x) {
      luma[y * GetMbStride(0) + x] = static_cast<uint8_t>(reader.ReadBits(8));
    }
  }
  if (!m_Picture->IsMonochrome()) {
    for (int c = 1; c < 3; ++c) {
      uint8_t* chroma = GetSamples(address, c);
      for (int y = 0; y < 8; ++y) {
        for (int x = 0; x < 8; ++x) {
          chroma[y * GetMbStride(c) + x] = static_cast<uint8_t>(reader.ReadBits(8));
        }
      }
    }
  }
  // Neighbours count a PCM macroblock's blocks as full (nC 16); QP stays.
  std::fill(std::begin(mb.totalCoeff), std::end(mb.totalCoeff), uint8_t{16});
  // The quantiser carries over to the next macroblock; deblocking counts a
  // PCM macroblock's as 0 itself.
  mb.qp = static_cast<int8_t>(m_Qp);
  mb.cbp = 0x2F;
  std::fill(std::begin(mb.intraModes), std::end(mb.intraModes), int8_t{2});
  return !reader.IsOverrun();
}

int CmSliceDecoder::ReadCbp(CmBitReader& reader, bool intra) {
  if (m_UseCabac) {
    return ReadCbpCabac();
  }
  const uint32_t codeNum = reader.ReadUE();
  const bool monochrome = m_Sps->GetChromaArrayType() == 0;
  if (codeNum >= (monochrome ? 16u : 48u)) {
    return -1;
  }
  if (intra) {
    return monochrome ? IntraCbpMonochrome[codeNum] : IntraCbp[codeNum];
  }
  return monochrome ? InterCbpMonochrome[codeNum] : InterCbp[codeNum];
}

bool CmSliceDecoder::ReadResidualAny(CmBitReader& reader, uint32_t address, bool intra16x16,
                                     uint8_t cbp) {
  return m_UseCabac ? ReadResidualCabac(intra16x16, cbp)
                    : ReadResidual(reader, address, intra16x16, cbp);
}

namespace {

// The count of a neighbour outside the slice or the picture, in the grids
// that nC is predicted from: a sum with it stays apart from any sum of two
// real counts (at most 32), so that one addition tells which are there.
constexpr int NoCount = 64;

// nC of a block from the coefficient counts of the blocks to its left and
// above: their rounded mean where both are there, else the one that is.
inline int PredictNc(int left, int top) {
  const int sum = left + top;
  return sum < NoCount ? (sum + 1) >> 1 : sum & (NoCount - 1);
}

// One block of the macroblock's residual; -1 for damage, bits beyond the
// end included.
template <int MaxNumCoeff> int ReadBlock(CmBitCursor& cursor, int nC, int16_t* levels) {
  const int total = ReadResidualBlockCavlc<MaxNumCoeff>(cursor, nC, levels);
  return cursor.IsOverrun() ? -1 : total;
}

} // namespace

bool CmSliceDecoder::ReadResidual(CmBitReader& reader, uint32_t address, bool intra16x16,
                                  uint8_t cbp) {
  SmMacroblockInfo& mb = m_Picture->GetMacroblocks()[address];
  // One window for all blocks of the macroblock; it hands the bits taken
  // back to the reader when it goes.
  CmBitWindow window(reader);
  CmBitCursor& cursor = window.GetCursor();
  // The coefficient counts of the macroblock's blocks with those of the
  // blocks beside it on the left (column 0) and above (row 0), which are
  // located once per macroblock rather than once per block. size: the
  // plane's width of the macroblock in samples; grid: (size / 4 + 1)^2.
  // Outside pairs the neighbours are the macroblocks beside and above,
  // found once for luma and chroma alike; in a frame of pairs each row on
  // the left may lie in another macroblock or field line.
  const SmMacroblockInfo* topMb = nullptr;
  const SmMacroblockInfo* leftMb = nullptr;
  if (!m_Mbaff) {
    uint32_t x = 0, y = 0;
    GetPosition(address, x, y);
    const SmMacroblockInfo* mbs = m_Picture->GetMacroblocks();
    const uint32_t width = m_Picture->GetWidthInMbs();
    topMb = y > 0 && IsAvailable(mbs + address - width) ? mbs + address - width : nullptr;
    leftMb = x > 0 && IsAvailable(mbs + address - 1) ? mbs + address - 1 : nullptr;
  }
  const auto loadBorders = [&](int size, uint8_t* grid, const auto& count) {
    const int stride = size / 4 + 1;
    const int last = size / 4 - 1;
    if (!m_Mbaff) {
      for (int i = 0; i <= last; ++i) {
        grid[i + 1] = static_cast<uint8_t>(topMb != nullptr ? count(*topMb, i, last) : NoCount);
        grid[(i + 1) * stride] =
            static_cast<uint8_t>(leftMb != nullptr ? count(*leftMb, last, i) : NoCount);
      }
      return;
    }
    const SmLocation top = Locate(address, 0, -1, size, size);
    for (int x = 0; x <= last; ++x) {
      grid[x + 1] =
          static_cast<uint8_t>(top.mb != nullptr ? count(*top.mb, x, top.y / 4) : NoCount);
    }
    for (int y = 0; y <= last; ++y) {
      const SmLocation left = Locate(address, -1, 4 * y, size, size);
      grid[(y + 1) * stride] =
          static_cast<uint8_t>(left.mb != nullptr ? count(*left.mb, last, left.y / 4) : NoCount);
    }
  };
  uint8_t luma[5 * 5];
  if (intra16x16 || (cbp & 15) != 0) {
    loadBorders(16, luma, [](const SmMacroblockInfo& n, int x, int y) {
      return n.kind == MbIPcm ? 16 : int{n.totalCoeff[x + 4 * y]};
    });
  }
  if (intra16x16) {
    if (ReadBlock<16>(cursor, PredictNc(luma[5], luma[1]), m_DcLevels) < 0) {
      return false;
    }
  }
  // The reconstruction reads the levels of blocks with a count only.
  // The loops are unrolled: their branches would take a slot each in the
  // predictor beside the data-dependent ones.
  if ((cbp & 15) == 0) {
    std::memset(mb.totalCoeff, 0, sizeof mb.totalCoeff);
  } else {
#pragma GCC unroll 4
    for (int b8 = 0; b8 < 4; ++b8) {
      if ((cbp & (1 << b8)) == 0) {
        // A quadrant without coefficients at once.
#pragma GCC unroll 4
        for (int sub = 0; sub < 4; ++sub) {
          const int x = BlockX[4 * b8 + sub], y = BlockY[4 * b8 + sub];
          mb.totalCoeff[x + 4 * y] = 0;
          luma[(y + 1) * 5 + x + 1] = 0;
        }
        continue;
      }
#pragma GCC unroll 4
      for (int sub = 0; sub < 4; ++sub) {
        const int blk = 4 * b8 + sub;
        const int x = BlockX[blk], y = BlockY[blk];
        const int nC = PredictNc(luma[(y + 1) * 5 + x], luma[y * 5 + x + 1]);
        const int total = intra16x16 ? ReadBlock<15>(cursor, nC, m_Levels[blk])
                                     : ReadBlock<16>(cursor, nC, m_Levels[blk]);
        if (total < 0) {
          return false;
        }
        mb.totalCoeff[x + 4 * y] = static_cast<uint8_t>(total);
        luma[(y + 1) * 5 + x + 1] = static_cast<uint8_t>(total);
      }
      if (mb.transform8x8) {
        // CAVLC carries an 8x8 block as four interleaved 4x4 blocks.
        for (int sub = 0; sub < 4; ++sub) {
          for (int i = 0; i < 16; ++i) {
            m_Levels8x8[b8][4 * i + sub] = m_Levels[b8 * 4 + sub][i];
          }
        }
      }
    }
  }
  std::memset(mb.totalCoeffChroma, 0, sizeof mb.totalCoeffChroma);
  // Without chroma coefficients the reconstruction reads no chroma levels;
  // with DC only, no AC levels.
  const int chromaCbp = cbp >> 4;
  if (m_Sps->GetChromaArrayType() != 1 || chromaCbp == 0) {
    return true;
  }
  for (int c = 0; c < 2; ++c) {
    if (ReadBlock<4>(cursor, -1, m_ChromaDcLevels[c]) < 0) {
      return false;
    }
  }
  if ((chromaCbp & 2) == 0) {
    return true;
  }
#pragma GCC unroll 2
  for (int c = 0; c < 2; ++c) {
    uint8_t chroma[3 * 3];
    loadBorders(8, chroma, [c](const SmMacroblockInfo& n, int x, int y) {
      return n.kind == MbIPcm ? 16 : int{n.totalCoeffChroma[c][x + 2 * y]};
    });
#pragma GCC unroll 4
    for (int b = 0; b < 4; ++b) {
      const int x = b % 2, y = b / 2;
      const int nC = PredictNc(chroma[(y + 1) * 3 + x], chroma[y * 3 + x + 1]);
      const int total = ReadBlock<15>(cursor, nC, m_ChromaAcLevels[c][b]);
      if (total < 0) {
        return false;
      }
      mb.totalCoeffChroma[c][b] = static_cast<uint8_t>(total);
      chroma[(y + 1) * 3 + x + 1] = static_cast<uint8_t>(total);
    }
  }
  return true;
}

bool CmSliceDecoder::DecodeIntraMacroblock(CmBitReader& reader, uint32_t mbType, uint32_t address) {
  SmMacroblockInfo& mb = m_Picture->GetMacroblocks()[address];
  mb = SmMacroblockInfo();
  mb.slice = m_Slice;
  mb.field = m_MbField;
  if (mbType == 25) {
    return m_UseCabac ? ReadPcmCabac(reader) : ReadPcm(reader, address);
  }
  const bool intra16x16 = mbType >= 1;
  int intra16x16Mode = 0;
  uint8_t cbp = 0;
  if (intra16x16) {
    mb.kind = MbI16x16;
    intra16x16Mode = static_cast<int>((mbType - 1) % 4);
    cbp = static_cast<uint8_t>(((mbType - 1) / 4 % 3) << 4 | (mbType >= 13 ? 15 : 0));
    std::fill(std::begin(mb.intraModes), std::end(mb.intraModes), int8_t{2});
  } else {
    mb.transform8x8 = m_Pps->transform8x8Mode && ReadTransform8x8Flag(reader);
    mb.kind = mb.transform8x8 ? MbI8x8 : MbI4x4;
    const int step = mb.transform8x8 ? 4 : 1;
    // Outside pairs the modes of the blocks left of and above each block
    // come from a grid whose border holds the neighbours' (-1 where a
    // neighbour cannot be used), filled once per macroblock; in a frame of
    // pairs Locate finds them block by block.
    int8_t modes[5 * 5] = {};
    if (!m_Mbaff) {
      const SmNeighbours n = GetNeighbours(address);
      const auto border = [this](const SmMacroblockInfo* info, int x, int y) -> int8_t {
        if (info == nullptr || (!IsIntra(info->kind) && m_Pps->constrainedIntraPred)) {
          return -1;
        }
        return info->kind == MbI4x4 || info->kind == MbI8x8 ? info->intraModes[x + 4 * y] : 2;
      };
      for (int i = 0; i < 4; ++i) {
        modes[i + 1] = border(n.top, i, 3);
        modes[(i + 1) * 5] = border(n.left, 3, i);
      }
    }
    for (int blk = 0; blk < 16; blk += step) {
      const int x = BlockX[blk];
      const int y = BlockY[blk];
      int predicted = 0;
      if (m_Mbaff) {
        predicted = PredictIntraMode(address, x, y);
      } else {
        const int left = modes[(y + 1) * 5 + x], top = modes[y * 5 + x + 1];
        predicted = left < 0 || top < 0 ? 2 : std::min(left, top);
      }
      int mode = predicted;
      if (!ReadPrevIntraPredFlag(reader)) {
        const int remaining = ReadRemIntraPred(reader);
        mode = remaining < predicted ? remaining : remaining + 1;
      }
      for (int sub = 0; sub < step; ++sub) {
        const int sx = BlockX[blk + sub], sy = BlockY[blk + sub];
        mb.intraModes[sx + 4 * sy] = static_cast<int8_t>(mode);
        modes[(sy + 1) * 5 + sx + 1] = static_cast<int8_t>(mode);
      }
    }
  }
  int chromaMode = 0;
  if (m_Sps->GetChromaArrayType() == 1) {
    const uint32_t value = ReadChromaPredMode(reader);
    if (value > 3) {
      return false;
    }
    chromaMode = static_cast<int>(value);
    mb.chromaPredMode = static_cast<uint8_t>(value);
  }
  if (!intra16x16) {
    const int coded = ReadCbp(reader, true);
    if (coded < 0) {
      return false;
    }
    cbp = static_cast<uint8_t>(coded);
  }
  mb.cbp = cbp;
  if (cbp != 0 || intra16x16) {
    int32_t delta = 0;
    if (!ReadQpDelta(reader, delta)) {
      return false;
    }
    m_Qp = (m_Qp + delta + 52) % 52;
  }
  mb.qp = static_cast<int8_t>(m_Qp);
  if (!ReadResidualAny(reader, address, intra16x16, cbp) || IsOverrun(reader)) {
    return false;
  }
  ReconstructIntra(address, intra16x16Mode, chromaMode);
  return true;
}

void CmSliceDecoder::ReconstructIntra(uint32_t address, int intra16x16Mode, int chromaMode) {
  const SmMacroblockInfo& mb = m_Picture->GetMacroblocks()[address];
  const SmNeighbours n = GetNeighbours(address);
  const auto usable = [this](const SmMacroblockInfo* info) {
    return info != nullptr && (IsIntra(info->kind) || !m_Pps->constrainedIntraPred);
  };
  // Beside a pair of the other kind, the left samples of a block may come
  // from both macroblocks of that pair, which constrained intra prediction
  // may find of different kinds: a block has its left samples when all are
  // usable, and its top left one when the left samples of the block above
  // are. lines: of 16 for luma, of 8 for chroma.
  const auto leftOfLines = [&](int first, int last, int lines) {
    return usable(Locate(address, -1, first, lines, lines).mb) &&
           usable(Locate(address, -1, last, lines, lines).mb);
  };
  const bool a = leftOfLines(0, 15, 16);
  // Outside pairs one macroblock lies left of every line.
  const auto left = [&](int first, int last, int lines) {
    return m_Mbaff ? leftOfLines(first, last, lines) : a;
  };
  const bool b = usable(n.top), c = usable(n.topRight), d = usable(n.topLeft);
  const ptrdiff_t stride = GetMbStride(0);
  uint8_t* luma = GetSamples(address, 0);
  const int qp = mb.qp;

  if (mb.kind == MbI4x4) {
    for (int blk = 0; blk < 16; ++blk) {
      const int x = BlockX[blk], y = BlockY[blk];
      SmIntraNeighbours edge{};
      edge.hasLeft = x > 0 || left(4 * y, 4 * y + 3, 16);
      edge.hasTop = y > 0 || b;
      edge.hasCorner =
          x > 0 && y > 0 ? true : (y > 0 ? left(4 * y - 4, 4 * y - 1, 16) : (x > 0 ? b : d));
      edge.hasTopRight =
          y == 0 ? (x < 3 ? b : c) : (x < 3 && BlockIndex[x + 1 + 4 * (y - 1)] < blk);
      uint8_t* dst = luma + 4 * y * stride + 4 * x;
      NmPrimitives::H264PredictIntra4x4(dst, stride, mb.intraModes[x + 4 * y], edge);
      if (mb.totalCoeff[x + 4 * y] != 0) {
        AddLumaResidual4x4(blk, dst, stride, 0, qp);
      }
    }
  } else if (mb.kind == MbI8x8) {
    for (int b8 = 0; b8 < 4; ++b8) {
      const int x = 2 * (b8 % 2), y = 2 * (b8 / 2);
      SmIntraNeighbours edge{};
      edge.hasLeft = x > 0 || left(4 * y, 4 * y + 7, 16);
      edge.hasTop = y > 0 || b;
      edge.hasCorner = b8 == 3 ? true : (b8 == 2 ? left(0, 7, 16) : (b8 == 1 ? b : d));
      edge.hasTopRight = b8 == 0 ? b : (b8 == 1 ? c : b8 == 2);
      uint8_t* dst = luma + 4 * y * stride + 4 * x;
      NmPrimitives::H264PredictIntra8x8(dst, stride, mb.intraModes[x + 4 * y], edge);
      bool coded = false;
      for (int sub = 0; sub < 4; ++sub) {
        coded = coded || mb.totalCoeff[BlockX[4 * b8 + sub] + 4 * BlockY[4 * b8 + sub]] != 0;
      }
      if (coded) {
        AddLumaResidual8x8(b8, dst, stride, 0, qp);
      }
    }
  } else {
    SmIntraNeighbours edge{a, b, false, d};
    NmPrimitives::H264PredictIntra16x16(luma, stride, intra16x16Mode, edge);
    int32_t dc[16];
    for (int k = 0; k < 16; ++k) {
      dc[m_Scan4x4[k]] = m_DcLevels[k];
    }
    TransformLumaDc(dc, m_LevelScale.scale4x4[0][qp % 6][0], qp);
    for (int blk = 0; blk < 16; ++blk) {
      const int x = BlockX[blk], y = BlockY[blk];
      uint8_t* dst = luma + 4 * y * stride + 4 * x;
      // The counts tell the blocks with AC levels, so that the others take
      // the DC alone without a look at their levels.
      if (mb.totalCoeff[x + 4 * y] != 0) {
        NmPrimitives::H264AddAcLevels4x4(m_Levels[blk], dc[x + 4 * y], m_FieldScan,
                                         m_LevelScale.scale4x4[0][qp % 6], qp, dst, stride);
      } else if (dc[x + 4 * y] != 0) {
        NmPrimitives::H264AddDc4x4(dc[x + 4 * y], dst, stride);
      }
    }
  }

  if (m_Sps->GetChromaArrayType() != 1) {
    return;
  }
  const bool upperLeft = left(0, 3, 8), lowerLeft = left(4, 7, 8);
  for (int plane = 1; plane < 3; ++plane) {
    if (chromaMode == 0 && upperLeft != lowerLeft) {
      PredictChromaDcByHalves(GetSamples(address, plane), GetMbStride(plane), upperLeft, lowerLeft,
                              b);
      continue;
    }
    NmPrimitives::H264PredictIntraChroma8x8(GetSamples(address, plane), GetMbStride(plane),
                                            chromaMode, SmIntraNeighbours{a, b, false, d});
  }
  AddChromaResidual(address, true);
}

void CmSliceDecoder::AddChromaResidual(uint32_t address, bool intra) {
  const SmMacroblockInfo& mb = m_Picture->GetMacroblocks()[address];
  // Without chroma coefficients every level is zero and adds nothing.
  if ((mb.cbp >> 4) == 0) {
    return;
  }
  const bool hasAc = (mb.cbp >> 4) == 2;
  const int qp = mb.qp;
  for (int component = 0; component < 2; ++component) {
    const int plane = component + 1;
    const ptrdiff_t cstride = GetMbStride(plane);
    uint8_t* chroma = GetSamples(address, plane);
    const int offset =
        component == 0 ? m_Pps->chromaQpIndexOffset : m_Pps->secondChromaQpIndexOffset;
    const int qpc = ChromaQp(std::clamp(qp + offset, 0, 51));
    const int32_t* scale = m_LevelScale.scale4x4[(intra ? 1 : 4) + component][qpc % 6];
    int32_t dc[4];
    for (int k = 0; k < 4; ++k) {
      dc[k] = m_ChromaDcLevels[component][k];
    }
    TransformChromaDc2x2(dc, scale[0], qpc);
    for (int blk = 0; blk < 4; ++blk) {
      uint8_t* dst = chroma + 4 * (blk / 2) * cstride + 4 * (blk % 2);
      // AC levels only where the pattern has them and the block counts
      // some; the rest take the DC, which was scaled with the others of its
      // plane already.
      if (hasAc && mb.totalCoeffChroma[component][blk] != 0) {
        NmPrimitives::H264AddAcLevels4x4(m_ChromaAcLevels[component][blk], dc[blk], m_FieldScan,
                                         scale, qpc, dst, cstride);
      } else if (dc[blk] != 0) {
        NmPrimitives::H264AddDc4x4(dc[blk], dst, cstride);
      }
    }
  }
}

void CmSliceDecoder::AddLumaResidual4x4(int blk, uint8_t* dst, ptrdiff_t stride, int list, int qp) {
  const int16_t* levels = m_Levels[blk];
  const int32_t* scale = m_LevelScale.scale4x4[list][qp % 6];
  // A block with the DC alone adds one value to all its samples; whether
  // the AC levels are all zero is a test of four words.
  uint64_t words[4];
  std::memcpy(words, levels, sizeof words);
  if (((words[0] & ~uint64_t{0xFFFF}) | words[1] | words[2] | words[3]) == 0) {
    NmPrimitives::H264AddDc4x4(ScaleLevel4x4(levels[0], scale[0], qp), dst, stride);
    return;
  }
  NmPrimitives::H264AddLevels4x4(levels, m_FieldScan, scale, qp, dst, stride);
}

void CmSliceDecoder::AddLumaResidual8x8(int b8, uint8_t* dst, ptrdiff_t stride, int list, int qp) {
  int32_t coefficients[64];
  for (int k = 0; k < 64; ++k) {
    coefficients[m_Scan8x8[k]] = m_Levels8x8[b8][k];
  }
  Scale8x8(coefficients, m_LevelScale.scale8x8[list][qp % 6], qp);
  NmPrimitives::H264AddInverseTransform8x8(coefficients, dst, stride);
}

CmSliceDecoder::SmResult CmSliceDecoder::Decode(CmBitReader& reader, const SmSliceHeader& header,
                                                const SmSequenceParameterSet& sps,
                                                const SmPictureParameterSet& pps,
                                                uint32_t sliceNumber, CmPicture& picture,
                                                const SmReferenceList* lists,
                                                const std::vector<uint8_t>* sliceGroups) {
  // Switching slices are not decoded yet.
  if (header.sliceType == SliceSP || header.sliceType == SliceSI ||
      !IsEntropyCodingDecoded(header, pps)) {
    return Unsupported;
  }
  const bool p = header.sliceType == SliceP;
  const bool b = header.sliceType == SliceB;
  // Inter slices need at least the pictures that skipped macroblocks use.
  if (p || b) {
    for (int list = 0; list < (b ? 2 : 1); ++list) {
      if (lists == nullptr || lists[list].pictures.size() < header.numRefIdxActive[list] ||
          lists[list].longTerm.size() < header.numRefIdxActive[list] ||
          lists[list].pictures.empty() || lists[list].pictures[0] == nullptr) {
        return Damaged;
      }
    }
  }
  m_Header = &header;
  m_Sps = &sps;
  m_Pps = &pps;
  m_Picture = &picture;
  m_PositionAddress = ~0u;
  m_Mbaff = picture.IsMbaff();
  m_MbField = false;
  // Field macroblocks predict from the fields of the frames in the lists.
  for (int list = 0; m_Mbaff && list < (b ? 2 : (p ? 1 : 0)); ++list) {
    for (const CmPicture* reference : lists[list].pictures) {
      if (reference != nullptr &&
          (reference->FindField(0) == nullptr || reference->FindField(1) == nullptr)) {
        return Damaged;
      }
    }
  }
  SelectScans();
  m_Slice = sliceNumber;
  m_Lists = lists;
  PrepareWeights();
  m_Qp = header.sliceQp;
  SmScalingMatrices matrices;
  DeriveScalingMatrices(sps, pps, matrices);
  m_LevelScale.Build(matrices);
  const uint32_t count = picture.GetWidthInMbs() * picture.GetHeightInMbs();
  if (sliceGroups != nullptr && sliceGroups->size() != count) {
    return Damaged;
  }
  // Macroblocks follow each other within the slice's slice group.
  m_UseCabac = pps.entropyCodingMode;
  if (m_UseCabac) {
    return DecodeCabacSlice(reader, count, sliceGroups);
  }
  const auto next = [sliceGroups](uint32_t address) {
    return sliceGroups != nullptr ? NextMacroblockAddress(*sliceGroups, address) : address + 1;
  };
  // In a frame of macroblock pairs, mbAddr counts pair by pair; address is
  // always the raster record.
  uint32_t mbAddr = header.firstMbInSlice * (m_Mbaff ? 2 : 1);
  for (;;) {
    if (p || b) {
      const uint32_t skipRun = reader.ReadUE();
      if (reader.IsOverrun() || skipRun > count - mbAddr) {
        return Damaged;
      }
      for (uint32_t i = 0; i < skipRun; ++i) {
        if (mbAddr >= count) {
          return Damaged;
        }
        const uint32_t address = ToRaster(mbAddr);
        m_Address = address;
        if (m_Mbaff && mbAddr % 2 == 0) {
          // A skipped top takes the flag its coded bottom carries, which
          // follows the run at once; a pair skipped whole infers it.
          const bool bottomCoded = i + 1 == skipRun && reader.HasMoreData();
          m_MbField = bottomCoded ? reader.ReadFlag() : InferMbField(address);
          SelectScans();
        }
        if (p) {
          DecodeSkippedMacroblock(address);
        } else if (!DecodeBSkippedMacroblock(address)) {
          return Damaged;
        }
        TellDone(mbAddr);
        mbAddr = next(mbAddr);
      }
      if (skipRun > 0 && !reader.HasMoreData()) {
        return Decoded;
      }
    }
    if (mbAddr >= count) {
      return Damaged;
    }
    const uint32_t address = ToRaster(mbAddr);
    m_Address = address;
    if (m_Mbaff) {
      // A coded bottom follows either a coded top, which carried the flag,
      // or a skipped one, which took it already.
      if (mbAddr % 2 == 0) {
        m_MbField = reader.ReadFlag();
      }
      SelectScans();
    }
    const uint32_t mbType = reader.ReadUE();
    bool ok = false;
    if (p && mbType < 5) {
      ok = DecodeInterMacroblock(reader, mbType, address);
    } else if (b && mbType < 23) {
      ok = DecodeBMacroblock(reader, mbType, address);
    } else {
      const uint32_t intraType = p ? mbType - 5 : (b ? mbType - 23 : mbType);
      ok = intraType <= 25 && DecodeIntraMacroblock(reader, intraType, address);
    }
    if (!ok) {
      return Damaged;
    }
    TellDone(mbAddr);
    if (!reader.HasMoreData()) {
      return Decoded;
    }
    mbAddr = next(mbAddr);
  }
}

} // namespace NmH264
