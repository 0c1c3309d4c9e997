#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "Codecs/H264/BitReader.h"

namespace NmH264 {

// Scaling lists in zig-zag (frame) scan order, as the syntax carries them:
// six 4x4 lists (intra Y, Cb, Cr, inter Y, Cb, Cr) and six 8x8 lists (intra
// Y, inter Y, intra Cb, inter Cb, intra Cr, inter Cr; only the first two
// outside 4:4:4). Flat 16 unless a stream says otherwise.
struct SmScalingMatrices {
  std::array<std::array<uint8_t, 16>, 6> list4x4;
  std::array<std::array<uint8_t, 64>, 6> list8x8;

  SmScalingMatrices();

  bool operator==(const SmScalingMatrices&) const = default;
};

// The lists as a parameter set carries them, before the fall-back rules:
// which are present, and which of those ask for the default list.
struct SmCodedScalingLists {
  bool present = false; // seq_ or pic_scaling_matrix_present_flag
  std::array<bool, 12> listPresent{};
  std::array<bool, 12> useDefault{};
  SmScalingMatrices lists;

  bool operator==(const SmCodedScalingLists&) const = default;
};

struct SmHrdParameters {
  uint32_t cpbCount = 0;
  uint32_t initialCpbRemovalDelayLength = 24;
  uint32_t cpbRemovalDelayLength = 24;
  uint32_t dpbOutputDelayLength = 24;
  uint32_t timeOffsetLength = 24;

  bool operator==(const SmHrdParameters&) const = default;
};

struct SmVideoUsability {
  bool aspectRatioPresent = false;
  uint32_t sarWidth = 0; // 0 when unknown
  uint32_t sarHeight = 0;
  bool videoFullRange = false;
  uint32_t colourPrimaries = 2, transferCharacteristics = 2, matrixCoefficients = 2;
  bool timingPresent = false;
  uint32_t unitsInTick = 0, timeScale = 0;
  bool fixedFrameRate = false;
  bool nalHrdPresent = false, vclHrdPresent = false;
  SmHrdParameters nalHrd, vclHrd;
  bool picStructPresent = false;
  bool bitstreamRestriction = false;
  uint32_t numReorderFrames = 0;
  uint32_t maxDecFrameBuffering = 0;

  bool operator==(const SmVideoUsability&) const = default;
};

struct SmSequenceParameterSet {
  uint32_t profileIdc = 0;
  uint32_t constraintFlags = 0; // constraint_set0_flag in bit 7 down to set5 in bit 2
  uint32_t levelIdc = 0;
  uint32_t id = 0;
  uint32_t chromaFormatIdc = 1;
  bool separateColourPlane = false;
  uint32_t bitDepthLuma = 8, bitDepthChroma = 8;
  bool transformBypass = false;
  SmCodedScalingLists scaling;
  uint32_t log2MaxFrameNum = 4;
  uint32_t picOrderCntType = 0;
  uint32_t log2MaxPicOrderCntLsb = 4;
  bool deltaPicOrderAlwaysZero = false;
  int32_t offsetForNonRefPic = 0;
  int32_t offsetForTopToBottomField = 0;
  uint32_t numRefFramesInPicOrderCntCycle = 0;
  std::array<int32_t, 255> offsetForRefFrame{};
  int32_t expectedDeltaPerPicOrderCntCycle = 0;
  uint32_t maxNumRefFrames = 0;
  bool gapsInFrameNumAllowed = false;
  uint32_t widthInMbs = 0;
  uint32_t heightInMapUnits = 0;
  bool frameMbsOnly = true;
  bool mbAdaptiveFrameField = false;
  bool direct8x8Inference = false;
  // The picture's visible part in luma samples, cropping applied.
  uint32_t cropLeft = 0, cropRight = 0, cropTop = 0, cropBottom = 0;
  bool vuiPresent = false;
  SmVideoUsability vui;

  uint32_t GetFrameHeightInMbs() const { return (frameMbsOnly ? 1 : 2) * heightInMapUnits; }
  uint32_t GetWidth() const { return widthInMbs * 16; }
  uint32_t GetHeight() const { return GetFrameHeightInMbs() * 16; }
  uint32_t GetVisibleWidth() const { return GetWidth() - cropLeft - cropRight; }
  uint32_t GetVisibleHeight() const { return GetHeight() - cropTop - cropBottom; }
  uint32_t GetMaxFrameNum() const { return 1u << log2MaxFrameNum; }
  // ChromaArrayType: 0 for monochrome and separately coded colour planes.
  uint32_t GetChromaArrayType() const { return separateColourPlane ? 0 : chromaFormatIdc; }
  // Frames the decoded picture buffer holds at this level (Table A-1),
  // narrowed by max_dec_frame_buffering where the stream says so.
  uint32_t GetDpbFrames() const;
  // Frames that output must wait for so that pictures leave in display
  // order: num_reorder_frames where given, none for profiles without B
  // slices, else the whole buffer.
  uint32_t GetReorderFrames() const;

  bool operator==(const SmSequenceParameterSet&) const = default;
};

struct SmPictureParameterSet {
  uint32_t id = 0;
  uint32_t spsId = 0;
  bool entropyCodingMode = false; // CABAC
  bool bottomFieldPicOrderInFramePresent = false;
  uint32_t numSliceGroups = 1;
  uint32_t sliceGroupMapType = 0;
  std::array<uint32_t, 8> runLengthMinus1{};
  std::array<uint32_t, 8> topLeft{}, bottomRight{};
  bool sliceGroupChangeDirection = false;
  uint32_t sliceGroupChangeRate = 1;
  std::vector<uint8_t> sliceGroupId; // map type 6: one per map unit
  uint32_t numRefIdxActive[2] = {1, 1};
  bool weightedPred = false;
  uint32_t weightedBipredIdc = 0;
  int32_t picInitQp = 26;
  int32_t picInitQs = 26;
  int32_t chromaQpIndexOffset = 0;
  int32_t secondChromaQpIndexOffset = 0;
  bool deblockingFilterControlPresent = false;
  bool constrainedIntraPred = false;
  bool redundantPicCntPresent = false;
  bool transform8x8Mode = false;
  SmCodedScalingLists scaling;

  bool operator==(const SmPictureParameterSet&) const = default;
};

enum SmParseResult {
  ParseOk = 0,
  ParseDamaged,          // the bits do not form a valid structure
  ParseUnsupported,      // valid, but beyond what this decoder decodes
  ParseMissingReference, // names a parameter set that is not there
};

SmParseResult ParseSequenceParameterSet(CmBitReader& reader, SmSequenceParameterSet& sps);
// The number of 8x8 scaling lists and the picture size come from the SPS
// that the PPS names; spsTable holds the 32 known ones, null where unknown.
SmParseResult ParsePictureParameterSet(CmBitReader& reader,
                                       const SmSequenceParameterSet* const* spsTable,
                                       SmPictureParameterSet& pps);

// The lists a picture uses, by the fall-back rules of Table 7-2: the
// picture's own where present, else the sequence's, else flat.
void DeriveScalingMatrices(const SmSequenceParameterSet& sps, const SmPictureParameterSet& pps,
                           SmScalingMatrices& matrices);

// The default lists of Table 7-3 and 7-4, in zig-zag order.
extern const std::array<uint8_t, 16> DefaultScaling4x4Intra, DefaultScaling4x4Inter;
extern const std::array<uint8_t, 64> DefaultScaling8x8Intra, DefaultScaling8x8Inter;

} // namespace NmH264
