#pragma once

#include <cstdint>
#include <vector>

#include "Codecs/H264/BitReader.h"
#include "Codecs/H264/ParameterSets.h"
#include "Codecs/H264/Picture.h"
#include "Codecs/H264/Reconstruction.h"
#include "Codecs/H264/SliceHeader.h"

namespace NmH264 {

// Decodes the macroblocks of one slice into its picture: parsing (CAVLC
// for now) and reconstruction, macroblock by macroblock.
class CmSliceDecoder {
public:
  enum SmResult { Decoded, Damaged, Unsupported };

  // reader stands at the slice data; sliceNumber is unique within the
  // picture and above 0. lists holds the slice's two reference picture
  // lists, each as long as its number of active references.
  // sliceGroups gives each macroblock's slice group where the picture has
  // several; null for one.
  SmResult Decode(CmBitReader& reader, const SmSliceHeader& header,
                  const SmSequenceParameterSet& sps, const SmPictureParameterSet& pps,
                  uint32_t sliceNumber, CmPicture& picture, const SmReferenceList* lists = nullptr,
                  const std::vector<uint8_t>* sliceGroups = nullptr);

private:
  struct SmNeighbours {
    const SmMacroblockInfo* left;     // A
    const SmMacroblockInfo* top;      // B
    const SmMacroblockInfo* topRight; // C
    const SmMacroblockInfo* topLeft;  // D
  };

  bool DecodeIntraMacroblock(CmBitReader& reader, uint32_t mbType, uint32_t address);
  bool DecodeInterMacroblock(CmBitReader& reader, uint32_t mbType, uint32_t address);
  bool DecodeBMacroblock(CmBitReader& reader, uint32_t mbType, uint32_t address);
  bool ReadInterResidualAndReconstruct(CmBitReader& reader, uint32_t address,
                                       bool allowTransform8x8);
  void DecodeSkippedMacroblock(uint32_t address);
  bool DecodeBSkippedMacroblock(uint32_t address);
  // Direct prediction of the 8x8 blocks whose bits are set in mask
  // (8.4.1.2), spatial or temporal as the slice says.
  bool PredictDirect(uint32_t address, unsigned mask);
  void GetWeights(int refIdx0, int refIdx1, int component, int& w0, int& w1, int& o0, int& o1,
                  int& logWD, bool& weighted) const;
  // The motion vector prediction of 8.4.1.3 for the partition of the
  // current macroblock at (x, y) and of the given size, in 4x4 blocks.
  void PredictMotionVector(uint32_t address, int list, int x, int y, int width, int height,
                           int refIdx, int shape, int16_t* mvp) const;
  // The motion of a neighbouring 4x4 block at (x, y) relative to the
  // current macroblock; false when that block is not available.
  bool GetNeighbourMotion(uint32_t address, int list, int x, int y, int& refIdx, int16_t* mv) const;
  void SetMotion(uint32_t address, int list, int x, int y, int width, int height, int refIdx,
                 const int16_t* mv);
  // The 4x4 blocks of a partition whose motion is now known to the
  // predictions of the partitions after it.
  void MarkKnown(int x, int y, int width, int height);
  // A macroblock's record, cleared for inter or skipped decoding.
  void StartInterMacroblock(uint32_t address, uint8_t kind);
  void PredictInter(uint32_t address);
  // One block of width x height samples at 4x4 block (bx, by) whose motion
  // is uniform.
  void PredictBlock(uint32_t address, int mbx, int mby, int bx, int by, int width, int height);
  void AddChromaResidual(uint32_t address, bool intra);
  void AddLumaResidual4x4(int blk, uint8_t* dst, ptrdiff_t stride, int list, int qp);
  void AddLumaResidual8x8(int b8, uint8_t* dst, ptrdiff_t stride, int list, int qp);
  bool ReadPcm(CmBitReader& reader, uint32_t address);
  bool ReadResidual(CmBitReader& reader, uint32_t address, bool intra16x16, uint8_t cbp);
  void ReconstructIntra(uint32_t address, int intra16x16Mode, int chromaMode);
  SmNeighbours GetNeighbours(uint32_t address) const;
  bool IsAvailable(const SmMacroblockInfo* info) const;
  int GetLumaNc(uint32_t address, int x, int y) const;
  int GetChromaNc(uint32_t address, int component, int x, int y) const;
  int PredictIntraMode(uint32_t address, int x, int y) const;

  const SmSliceHeader* m_Header = nullptr;
  const SmSequenceParameterSet* m_Sps = nullptr;
  const SmPictureParameterSet* m_Pps = nullptr;
  CmPicture* m_Picture = nullptr;
  uint32_t m_Slice = 0;
  const SmReferenceList* m_Lists = nullptr;
  // 4x4 blocks of the current macroblock whose motion is known, raster bits.
  uint16_t m_KnownBlocks = 0;
  int m_Qp = 0;
  SmLevelScale m_LevelScale;

  // The current macroblock's coefficients in raster order per block.
  int16_t m_Levels[16][16]; // luma levels as read, in scan order, by block index
  int16_t m_Levels8x8[4][64];
  int16_t m_DcLevels[16];
  int16_t m_ChromaDcLevels[2][4];
  int16_t m_ChromaAcLevels[2][4][15];
  int32_t m_Luma[16][16];
  int32_t m_Luma8x8[4][64];
  int32_t m_LumaDc[16];
  int32_t m_Chroma[2][4][16];
  int32_t m_ChromaDc[2][4];
};

} // namespace NmH264
