#pragma once

#include <array>
#include <cstdint>

#include "Codecs/H264/BitReader.h"
#include "Codecs/H264/ParameterSets.h"

namespace NmH264 {

enum SmSliceType : uint8_t { SliceP = 0, SliceB = 1, SliceI = 2, SliceSP = 3, SliceSI = 4 };

// One command of ref_pic_list_modification.
struct SmListModification {
  uint8_t idc = 3;    // modification_of_pic_nums_idc: 0 and 1 short-term, 2 long-term, 3 end
  uint32_t value = 0; // abs_diff_pic_num_minus1 or long_term_pic_num
};

// One command of dec_ref_pic_marking.
struct SmMarkingOperation {
  uint8_t operation = 0;                 // memory_management_control_operation, 1 to 6
  uint32_t differenceOfPicNums = 0;      // minus 1 as coded, for 1 and 3
  uint32_t longTermPicNum = 0;           // for 2
  uint32_t longTermFrameIdx = 0;         // for 3 and 6
  uint32_t maxLongTermFrameIdxPlus1 = 0; // for 4
};

// Explicit weights per reference index: luma, then Cb and Cr.
struct SmPredictionWeight {
  int16_t weight[3];
  int16_t offset[3];
  bool present[2]; // luma, chroma flags as coded
};

struct SmSliceHeader {
  uint8_t nalUnitType = 0;
  uint8_t nalRefIdc = 0;
  uint32_t firstMbInSlice = 0;
  SmSliceType sliceType = SliceI;
  bool allSameType = false; // slice_type 5 to 9
  uint32_t ppsId = 0;
  uint32_t frameNum = 0;
  bool fieldPic = false;
  bool bottomField = false;
  uint32_t idrPicId = 0;
  uint32_t picOrderCntLsb = 0;
  int32_t deltaPicOrderCntBottom = 0;
  int32_t deltaPicOrderCnt[2] = {0, 0};
  uint32_t redundantPicCnt = 0;
  bool directSpatialMvPred = false;
  uint32_t numRefIdxActive[2] = {0, 0};

  bool listModification[2] = {false, false};
  uint8_t modificationCount[2] = {0, 0};
  std::array<SmListModification, 33> modifications[2];

  uint32_t lumaLog2WeightDenom = 0;
  uint32_t chromaLog2WeightDenom = 0;
  bool hasExplicitWeights = false;
  std::array<SmPredictionWeight, 32> weights[2];

  bool noOutputOfPriorPics = false;
  bool longTermReference = false;
  bool adaptiveMarking = false;
  uint8_t markingCount = 0;
  std::array<SmMarkingOperation, 66> marking;

  uint32_t cabacInitIdc = 0;
  int32_t sliceQp = 26;
  uint32_t disableDeblockingFilterIdc = 0;
  int32_t sliceAlphaC0Offset = 0; // already doubled
  int32_t sliceBetaOffset = 0;
  uint32_t sliceGroupChangeCycle = 0;

  // Where slice_data() begins in the RBSP, in bits.
  size_t dataBitOffset = 0;

  bool IsIdr() const { return nalUnitType == 5; }
  bool IsReference() const { return nalRefIdc != 0; }
  bool HasMemoryManagement5() const;
};

// Looks up the PPS and SPS that a slice names before the rest is read.
struct SmParameterSetTables {
  const SmSequenceParameterSet* const* sps; // 32 entries, null where unknown
  const SmPictureParameterSet* const* pps;  // 256 entries
};

// Reads slice_header() of a unit of type 1, 5 (or 19) whose header byte was
// nalHeader, from the unit's RBSP behind its header byte. The PPS and SPS
// must be known; their pointers come back for the caller.
SmParseResult ParseSliceHeader(CmBitReader& reader, uint8_t nalHeader,
                               const SmParameterSetTables& tables, SmSliceHeader& header,
                               const SmSequenceParameterSet*& sps,
                               const SmPictureParameterSet*& pps);

} // namespace NmH264
