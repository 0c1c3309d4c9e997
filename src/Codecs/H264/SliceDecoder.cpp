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

} // namespace

bool CmSliceDecoder::IsAvailable(const SmMacroblockInfo* info) const {
  return info != nullptr && info->slice == m_Slice;
}

CmSliceDecoder::SmNeighbours CmSliceDecoder::GetNeighbours(uint32_t address) const {
  const uint32_t width = m_Picture->GetWidthInMbs();
  const uint32_t x = address % width;
  const uint32_t y = address / width;
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

int CmSliceDecoder::GetLumaNc(uint32_t address, int x, int y) const {
  const SmMacroblockInfo* mbs = m_Picture->GetMacroblocks();
  const SmNeighbours n = GetNeighbours(address);
  const SmMacroblockInfo* left = x > 0 ? mbs + address : n.left;
  const SmMacroblockInfo* top = y > 0 ? mbs + address : n.top;
  const auto count = [](const SmMacroblockInfo* info, int bx, int by) {
    return info->kind == MbIPcm ? 16 : static_cast<int>(info->totalCoeff[bx + 4 * by]);
  };
  if (left != nullptr && top != nullptr) {
    return (count(left, (x + 3) % 4, y) + count(top, x, (y + 3) % 4) + 1) >> 1;
  }
  if (left != nullptr) {
    return count(left, (x + 3) % 4, y);
  }
  if (top != nullptr) {
    return count(top, x, (y + 3) % 4);
  }
  return 0;
}

int CmSliceDecoder::GetChromaNc(uint32_t address, int component, int x, int y) const {
  const SmMacroblockInfo* mbs = m_Picture->GetMacroblocks();
  const SmNeighbours n = GetNeighbours(address);
  const SmMacroblockInfo* left = x > 0 ? mbs + address : n.left;
  const SmMacroblockInfo* top = y > 0 ? mbs + address : n.top;
  const auto count = [component](const SmMacroblockInfo* info, int bx, int by) {
    return info->kind == MbIPcm ? 16
                                : static_cast<int>(info->totalCoeffChroma[component][bx + 2 * by]);
  };
  if (left != nullptr && top != nullptr) {
    return (count(left, 1 - x, y) + count(top, x, 1 - y) + 1) >> 1;
  }
  if (left != nullptr) {
    return count(left, 1 - x, y);
  }
  if (top != nullptr) {
    return count(top, x, 1 - y);
  }
  return 0;
}

int CmSliceDecoder::PredictIntraMode(uint32_t address, int x, int y) const {
  const SmMacroblockInfo* mbs = m_Picture->GetMacroblocks();
  const SmNeighbours n = GetNeighbours(address);
  const SmMacroblockInfo* left = x > 0 ? mbs + address : n.left;
  const SmMacroblockInfo* top = y > 0 ? mbs + address : n.top;
  const auto unusable = [this](const SmMacroblockInfo* info) {
    return info == nullptr || (!IsIntra(info->kind) && m_Pps->constrainedIntraPred);
  };
  if (unusable(left) || unusable(top)) {
    return 2;
  }
  const auto mode = [](const SmMacroblockInfo* info, int bx, int by) {
    return info->kind == MbI4x4 || info->kind == MbI8x8 ? info->intraModes[bx + 4 * by] : 2;
  };
  return std::min(mode(left, (x + 3) % 4, y), mode(top, x, (y + 3) % 4));
}

bool CmSliceDecoder::ReadPcm(CmBitReader& reader, uint32_t address) {
  SmMacroblockInfo& mb = m_Picture->GetMacroblocks()[address];
  mb.kind = MbIPcm;
  reader.AlignToByte();
  const uint32_t width = m_Picture->GetWidthInMbs();
  const uint32_t mbx = address % width;
  const uint32_t mby = address / width;
  uint8_t* luma = m_Picture->GetPlane(0) + mby * 16 * m_Picture->GetStride(0) + mbx * 16;
  for (int y = 0; y < 16; ++y) {
    for (int x = 0; x < 16; ++x) {
      luma[y * m_Picture->GetStride(0) + x] = static_cast<uint8_t>(reader.ReadBits(8));
    }
  }
  if (!m_Picture->IsMonochrome()) {
    for (int c = 1; c < 3; ++c) {
      uint8_t* chroma = m_Picture->GetPlane(c) + mby * 8 * m_Picture->GetStride(c) + mbx * 8;
      for (int y = 0; y < 8; ++y) {
        for (int x = 0; x < 8; ++x) {
          chroma[y * m_Picture->GetStride(c) + x] = static_cast<uint8_t>(reader.ReadBits(8));
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

bool CmSliceDecoder::ReadResidual(CmBitReader& reader, uint32_t address, bool intra16x16,
                                  uint8_t cbp) {
  SmMacroblockInfo& mb = m_Picture->GetMacroblocks()[address];
  if (intra16x16) {
    if (ReadResidualBlockCavlc(reader, GetLumaNc(address, 0, 0), 0, 15, 16, m_DcLevels) < 0) {
      return false;
    }
  }
  for (int blk = 0; blk < 16; ++blk) {
    const int x = BlockX[blk];
    const int y = BlockY[blk];
    int16_t* levels = m_Levels[blk];
    if ((cbp & (1 << (blk / 4))) == 0) {
      mb.totalCoeff[x + 4 * y] = 0;
      std::fill(levels, levels + 16, int16_t{0});
      continue;
    }
    const int nC = GetLumaNc(address, x, y);
    const int total = intra16x16 ? ReadResidualBlockCavlc(reader, nC, 0, 14, 15, levels)
                                 : ReadResidualBlockCavlc(reader, nC, 0, 15, 16, levels);
    if (total < 0) {
      return false;
    }
    mb.totalCoeff[x + 4 * y] = static_cast<uint8_t>(total);
  }
  if (mb.transform8x8) {
    // CAVLC carries an 8x8 block as four interleaved 4x4 blocks.
    for (int b8 = 0; b8 < 4; ++b8) {
      for (int sub = 0; sub < 4; ++sub) {
        for (int i = 0; i < 16; ++i) {
          m_Levels8x8[b8][4 * i + sub] = m_Levels[b8 * 4 + sub][i];
        }
      }
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
      if (ReadResidualBlockCavlc(reader, -1, 0, 3, 4, m_ChromaDcLevels[c]) < 0) {
        return false;
      }
    }
  }
  if ((chromaCbp & 2) != 0) {
    for (int c = 0; c < 2; ++c) {
      for (int b = 0; b < 4; ++b) {
        const int total = ReadResidualBlockCavlc(reader, GetChromaNc(address, c, b % 2, b / 2), 0,
                                                 14, 15, m_ChromaAcLevels[c][b]);
        if (total < 0) {
          return false;
        }
        mb.totalCoeffChroma[c][b] = static_cast<uint8_t>(total);
      }
    }
  }
  return true;
}

bool CmSliceDecoder::DecodeIntraMacroblock(CmBitReader& reader, uint32_t mbType, uint32_t address) {
  SmMacroblockInfo& mb = m_Picture->GetMacroblocks()[address];
  mb = SmMacroblockInfo();
  mb.slice = m_Slice;
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
    for (int blk = 0; blk < 16; blk += step) {
      const int x = BlockX[blk];
      const int y = BlockY[blk];
      const int predicted = PredictIntraMode(address, x, y);
      int mode = predicted;
      if (!ReadPrevIntraPredFlag(reader)) {
        const int remaining = ReadRemIntraPred(reader);
        mode = remaining < predicted ? remaining : remaining + 1;
      }
      for (int sub = 0; sub < step; ++sub) {
        mb.intraModes[BlockX[blk + sub] + 4 * BlockY[blk + sub]] = static_cast<int8_t>(mode);
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
  const bool a = usable(n.left), b = usable(n.top), c = usable(n.topRight), d = usable(n.topLeft);
  const uint32_t width = m_Picture->GetWidthInMbs();
  const ptrdiff_t stride = m_Picture->GetStride(0);
  uint8_t* luma = m_Picture->GetPlane(0) + (address / width) * 16 * stride + (address % width) * 16;
  const int qp = mb.qp;

  if (mb.kind == MbI4x4) {
    for (int blk = 0; blk < 16; ++blk) {
      const int x = BlockX[blk], y = BlockY[blk];
      SmIntraNeighbours edge{};
      edge.hasLeft = x > 0 || a;
      edge.hasTop = y > 0 || b;
      edge.hasCorner = x > 0 && y > 0 ? true : (y > 0 ? a : (x > 0 ? b : d));
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
      edge.hasLeft = x > 0 || a;
      edge.hasTop = y > 0 || b;
      edge.hasCorner = b8 == 3 ? true : (b8 == 2 ? a : (b8 == 1 ? b : d));
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
      int32_t coefficients[16] = {};
      coefficients[0] = dc[x + 4 * y];
      bool ac = false;
      for (int k = 0; k < 15; ++k) {
        coefficients[m_Scan4x4[k + 1]] = m_Levels[blk][k];
        ac = ac || m_Levels[blk][k] != 0;
      }
      uint8_t* dst = luma + 4 * y * stride + 4 * x;
      if (ac) {
        Scale4x4(coefficients, m_LevelScale.scale4x4[0][qp % 6], qp, false);
        NmPrimitives::H264AddInverseTransform4x4(coefficients, dst, stride);
      } else if (coefficients[0] != 0) {
        NmPrimitives::H264AddDc4x4(coefficients[0], dst, stride);
      }
    }
  }

  if (m_Sps->GetChromaArrayType() != 1) {
    return;
  }
  for (int plane = 1; plane < 3; ++plane) {
    const ptrdiff_t cstride = m_Picture->GetStride(plane);
    NmPrimitives::H264PredictIntraChroma8x8(
        m_Picture->GetPlane(plane) + (address / width) * 8 * cstride + (address % width) * 8,
        cstride, chromaMode, SmIntraNeighbours{a, b, false, d});
  }
  AddChromaResidual(address, true);
}

void CmSliceDecoder::AddChromaResidual(uint32_t address, bool intra) {
  const SmMacroblockInfo& mb = m_Picture->GetMacroblocks()[address];
  const uint32_t width = m_Picture->GetWidthInMbs();
  const int qp = mb.qp;
  for (int component = 0; component < 2; ++component) {
    const int plane = component + 1;
    const ptrdiff_t cstride = m_Picture->GetStride(plane);
    uint8_t* chroma =
        m_Picture->GetPlane(plane) + (address / width) * 8 * cstride + (address % width) * 8;
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
      int32_t coefficients[16] = {};
      coefficients[0] = dc[blk];
      bool ac = false;
      for (int k = 0; k < 15; ++k) {
        coefficients[m_Scan4x4[k + 1]] = m_ChromaAcLevels[component][blk][k];
        ac = ac || m_ChromaAcLevels[component][blk][k] != 0;
      }
      uint8_t* dst = chroma + 4 * (blk / 2) * cstride + 4 * (blk % 2);
      if (ac) {
        Scale4x4(coefficients, scale, qpc, false);
        NmPrimitives::H264AddInverseTransform4x4(coefficients, dst, cstride);
      } else if (coefficients[0] != 0) {
        // The DC was scaled with the others of its plane already.
        NmPrimitives::H264AddDc4x4(coefficients[0], dst, cstride);
      }
    }
  }
}

void CmSliceDecoder::AddLumaResidual4x4(int blk, uint8_t* dst, ptrdiff_t stride, int list, int qp) {
  int32_t coefficients[16];
  for (int k = 0; k < 16; ++k) {
    coefficients[m_Scan4x4[k]] = m_Levels[blk][k];
  }
  Scale4x4(coefficients, m_LevelScale.scale4x4[list][qp % 6], qp, true);
  NmPrimitives::H264AddInverseTransform4x4(coefficients, dst, stride);
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
  m_Scan4x4 = header.fieldPic ? FieldScan4x4.data() : ZigZag4x4.data();
  m_Scan8x8 = header.fieldPic ? FieldScan8x8.data() : ZigZag8x8.data();
  m_Slice = sliceNumber;
  m_Lists = lists;
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
  uint32_t address = header.firstMbInSlice;
  for (;;) {
    if (p || b) {
      const uint32_t skipRun = reader.ReadUE();
      if (reader.IsOverrun() || skipRun > count - address) {
        return Damaged;
      }
      for (uint32_t i = 0; i < skipRun; ++i) {
        if (address >= count) {
          return Damaged;
        }
        if (p) {
          DecodeSkippedMacroblock(address);
        } else if (!DecodeBSkippedMacroblock(address)) {
          return Damaged;
        }
        address = next(address);
      }
      if (skipRun > 0 && !reader.HasMoreData()) {
        return Decoded;
      }
    }
    if (address >= count) {
      return Damaged;
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
    if (!reader.HasMoreData()) {
      return Decoded;
    }
    address = next(address);
  }
}

} // namespace NmH264
