#include "Codecs/H264/ParameterSets.h"

#include <algorithm>

namespace NmH264 {

const std::array<uint8_t, 16> DefaultScaling4x4Intra = {6,  13, 13, 20, 20, 20, 28, 28,
                                                        28, 28, 32, 32, 32, 37, 37, 42};
const std::array<uint8_t, 16> DefaultScaling4x4Inter = {10, 14, 14, 20, 20, 20, 24, 24,
                                                        24, 24, 27, 27, 27, 30, 30, 34};
const std::array<uint8_t, 64> DefaultScaling8x8Intra = {
    6,  10, 10, 13, 11, 13, 16, 16, 16, 16, 18, 18, 18, 18, 18, 23, 23, 23, 23, 23, 23, 25,
    25, 25, 25, 25, 25, 25, 27, 27, 27, 27, 27, 27, 27, 27, 29, 29, 29, 29, 29, 29, 29, 31,
    31, 31, 31, 31, 31, 33, 33, 33, 33, 33, 36, 36, 36, 36, 38, 38, 38, 40, 40, 42};
const std::array<uint8_t, 64> DefaultScaling8x8Inter = {
    9,  13, 13, 15, 13, 15, 17, 17, 17, 17, 19, 19, 19, 19, 19, 21, 21, 21, 21, 21, 21, 22,
    22, 22, 22, 22, 22, 22, 24, 24, 24, 24, 24, 24, 24, 24, 25, 25, 25, 25, 25, 25, 25, 27,
    27, 27, 27, 27, 27, 28, 28, 28, 28, 28, 30, 30, 30, 30, 32, 32, 32, 33, 33, 35};

SmScalingMatrices::SmScalingMatrices() {
  for (auto& list : list4x4) {
    list.fill(16);
  }
  for (auto& list : list8x8) {
    list.fill(16);
  }
}

namespace {

// Profiles whose SPS carries chroma format, bit depths and scaling lists.
bool HasHighProfileFields(uint32_t profileIdc) {
  switch (profileIdc) {
  case 100:
  case 110:
  case 122:
  case 244:
  case 44:
  case 83:
  case 86:
  case 118:
  case 128:
  case 138:
  case 139:
  case 134:
  case 135:
    return true;
  default:
    return false;
  }
}

// scaling_list() of clause 7.3.2.1.1.1 into list; true in useDefault when
// the first delta asks for the default list.
template <size_t N>
void ReadScalingList(CmBitReader& reader, std::array<uint8_t, N>& list, bool& useDefault) {
  int32_t last = 8;
  int32_t next = 8;
  useDefault = false;
  for (size_t j = 0; j < N; ++j) {
    if (next != 0) {
      const int32_t delta = reader.ReadSE();
      if (delta < -128 || delta > 127) {
        // Out of range: read on, the caller sees the damage by the result.
        next = 0;
        useDefault = true;
        reader.Skip(reader.GetSizeInBits() + 1);
        return;
      }
      next = (last + delta + 256) % 256;
      useDefault = j == 0 && next == 0;
    }
    list[j] = static_cast<uint8_t>(next == 0 ? last : next);
    last = list[j];
  }
}

void ReadScalingLists(CmBitReader& reader, size_t count, SmCodedScalingLists& coded) {
  coded.present = true;
  for (size_t i = 0; i < count; ++i) {
    coded.listPresent[i] = reader.ReadFlag();
    if (!coded.listPresent[i]) {
      continue;
    }
    if (i < 6) {
      ReadScalingList(reader, coded.lists.list4x4[i], coded.useDefault[i]);
    } else {
      ReadScalingList(reader, coded.lists.list8x8[i - 6], coded.useDefault[i]);
    }
  }
}

void ReadHrd(CmBitReader& reader, SmHrdParameters& hrd) {
  hrd.cpbCount = reader.ReadUE() + 1;
  if (hrd.cpbCount > 32) {
    reader.Skip(reader.GetSizeInBits() + 1);
    return;
  }
  reader.Skip(8); // bit_rate_scale, cpb_size_scale
  for (uint32_t i = 0; i < hrd.cpbCount; ++i) {
    reader.ReadUE(); // bit_rate_value_minus1
    reader.ReadUE(); // cpb_size_value_minus1
    reader.Skip(1);  // cbr_flag
  }
  hrd.initialCpbRemovalDelayLength = reader.ReadBits(5) + 1;
  hrd.cpbRemovalDelayLength = reader.ReadBits(5) + 1;
  hrd.dpbOutputDelayLength = reader.ReadBits(5) + 1;
  hrd.timeOffsetLength = reader.ReadBits(5);
}

struct SmRatio {
  uint16_t width, height;
};
constexpr SmRatio SampleAspectRatios[17] = {
    {0, 0},   {1, 1},   {12, 11}, {10, 11}, {16, 11},  {40, 33}, {24, 11}, {20, 11}, {32, 11},
    {80, 33}, {18, 11}, {15, 11}, {64, 33}, {160, 99}, {4, 3},   {3, 2},   {2, 1}};

void ReadVui(CmBitReader& reader, SmVideoUsability& vui) {
  vui.aspectRatioPresent = reader.ReadFlag();
  if (vui.aspectRatioPresent) {
    const uint32_t idc = reader.ReadBits(8);
    if (idc == 255) {
      vui.sarWidth = reader.ReadBits(16);
      vui.sarHeight = reader.ReadBits(16);
    } else if (idc < 17) {
      vui.sarWidth = SampleAspectRatios[idc].width;
      vui.sarHeight = SampleAspectRatios[idc].height;
    }
  }
  if (reader.ReadFlag()) { // overscan_info_present_flag
    reader.Skip(1);
  }
  if (reader.ReadFlag()) { // video_signal_type_present_flag
    reader.Skip(3);        // video_format
    vui.videoFullRange = reader.ReadFlag();
    if (reader.ReadFlag()) {
      vui.colourPrimaries = reader.ReadBits(8);
      vui.transferCharacteristics = reader.ReadBits(8);
      vui.matrixCoefficients = reader.ReadBits(8);
    }
  }
  if (reader.ReadFlag()) { // chroma_loc_info_present_flag
    reader.ReadUE();
    reader.ReadUE();
  }
  vui.timingPresent = reader.ReadFlag();
  if (vui.timingPresent) {
    vui.unitsInTick = reader.ReadBits(32);
    vui.timeScale = reader.ReadBits(32);
    vui.fixedFrameRate = reader.ReadFlag();
  }
  vui.nalHrdPresent = reader.ReadFlag();
  if (vui.nalHrdPresent) {
    ReadHrd(reader, vui.nalHrd);
  }
  vui.vclHrdPresent = reader.ReadFlag();
  if (vui.vclHrdPresent) {
    ReadHrd(reader, vui.vclHrd);
  }
  if (vui.nalHrdPresent || vui.vclHrdPresent) {
    reader.Skip(1); // low_delay_hrd_flag
  }
  vui.picStructPresent = reader.ReadFlag();
  vui.bitstreamRestriction = reader.ReadFlag();
  if (vui.bitstreamRestriction) {
    reader.Skip(1);  // motion_vectors_over_pic_boundaries_flag
    reader.ReadUE(); // max_bytes_per_pic_denom
    reader.ReadUE(); // max_bits_per_mb_denom
    reader.ReadUE(); // log2_max_mv_length_horizontal
    reader.ReadUE(); // log2_max_mv_length_vertical
    vui.numReorderFrames = reader.ReadUE();
    vui.maxDecFrameBuffering = reader.ReadUE();
  }
}

// MaxDpbMbs of Table A-1; 0 for a level the table does not know.
uint32_t GetMaxDpbMbs(const SmSequenceParameterSet& sps) {
  const bool level1b =
      sps.levelIdc == 9 || (sps.levelIdc == 11 && (sps.constraintFlags & 0x10) != 0 &&
                            (sps.profileIdc == 66 || sps.profileIdc == 77 || sps.profileIdc == 88));
  if (level1b) {
    return 396;
  }
  switch (sps.levelIdc) {
  case 10:
    return 396;
  case 11:
    return 900;
  case 12:
  case 13:
  case 20:
    return 2376;
  case 21:
    return 4752;
  case 22:
  case 30:
    return 8100;
  case 31:
    return 18000;
  case 32:
    return 20480;
  case 40:
  case 41:
    return 32768;
  case 42:
    return 34816;
  case 50:
    return 110400;
  case 51:
  case 52:
    return 184320;
  case 60:
  case 61:
  case 62:
    return 696320;
  default:
    return 0;
  }
}

} // namespace

uint32_t SmSequenceParameterSet::GetDpbFrames() const {
  const uint32_t mbs = widthInMbs * GetFrameHeightInMbs();
  const uint32_t maxDpbMbs = GetMaxDpbMbs(*this);
  uint32_t frames = maxDpbMbs == 0 || mbs == 0 ? 16 : std::min(maxDpbMbs / mbs, 16u);
  if (vuiPresent && vui.bitstreamRestriction) {
    frames = vui.maxDecFrameBuffering;
  }
  // A stream that keeps more references than its level allows still needs
  // room for them.
  return std::clamp(std::max(frames, maxNumRefFrames), 1u, 16u);
}

uint32_t SmSequenceParameterSet::GetReorderFrames() const {
  if (vuiPresent && vui.bitstreamRestriction) {
    return std::min(vui.numReorderFrames, GetDpbFrames());
  }
  // Baseline has no B slices, and the intra profiles (set3 in High ones)
  // no references: their pictures come in display order.
  const bool intraOnly =
      profileIdc == 44 ||
      ((constraintFlags & 0x10) != 0 &&
       (profileIdc == 100 || profileIdc == 110 || profileIdc == 122 || profileIdc == 244));
  if (profileIdc == 66 || intraOnly) {
    return 0;
  }
  return GetDpbFrames();
}

SmParseResult ParseSequenceParameterSet(CmBitReader& reader, SmSequenceParameterSet& sps) {
  sps = SmSequenceParameterSet();
  sps.profileIdc = reader.ReadBits(8);
  sps.constraintFlags = reader.ReadBits(8) & 0xFC;
  sps.levelIdc = reader.ReadBits(8);
  sps.id = reader.ReadUE();
  if (sps.id > 31) {
    return ParseDamaged;
  }
  if (HasHighProfileFields(sps.profileIdc)) {
    sps.chromaFormatIdc = reader.ReadUE();
    if (sps.chromaFormatIdc > 3) {
      return ParseDamaged;
    }
    if (sps.chromaFormatIdc == 3) {
      sps.separateColourPlane = reader.ReadFlag();
    }
    sps.bitDepthLuma = reader.ReadUE() + 8;
    sps.bitDepthChroma = reader.ReadUE() + 8;
    if (sps.bitDepthLuma > 14 || sps.bitDepthChroma > 14) {
      return ParseDamaged;
    }
    sps.transformBypass = reader.ReadFlag();
    if (reader.ReadFlag()) {
      ReadScalingLists(reader, sps.chromaFormatIdc != 3 ? 8 : 12, sps.scaling);
    }
  }
  sps.log2MaxFrameNum = reader.ReadUE() + 4;
  if (sps.log2MaxFrameNum > 16) {
    return ParseDamaged;
  }
  sps.picOrderCntType = reader.ReadUE();
  if (sps.picOrderCntType == 0) {
    sps.log2MaxPicOrderCntLsb = reader.ReadUE() + 4;
    if (sps.log2MaxPicOrderCntLsb > 16) {
      return ParseDamaged;
    }
  } else if (sps.picOrderCntType == 1) {
    sps.deltaPicOrderAlwaysZero = reader.ReadFlag();
    sps.offsetForNonRefPic = reader.ReadSE();
    sps.offsetForTopToBottomField = reader.ReadSE();
    sps.numRefFramesInPicOrderCntCycle = reader.ReadUE();
    if (sps.numRefFramesInPicOrderCntCycle > 255) {
      return ParseDamaged;
    }
    for (uint32_t i = 0; i < sps.numRefFramesInPicOrderCntCycle; ++i) {
      sps.offsetForRefFrame[i] = reader.ReadSE();
      sps.expectedDeltaPerPicOrderCntCycle += sps.offsetForRefFrame[i];
    }
  } else if (sps.picOrderCntType != 2) {
    return ParseDamaged;
  }
  sps.maxNumRefFrames = reader.ReadUE();
  if (sps.maxNumRefFrames > 16) {
    return ParseDamaged;
  }
  sps.gapsInFrameNumAllowed = reader.ReadFlag();
  const uint32_t widthMinus1 = reader.ReadUE();
  const uint32_t heightMinus1 = reader.ReadUE();
  // 8192 macroblock columns or rows is far beyond any level.
  if (widthMinus1 >= 8192 || heightMinus1 >= 8192) {
    return ParseDamaged;
  }
  sps.widthInMbs = widthMinus1 + 1;
  sps.heightInMapUnits = heightMinus1 + 1;
  sps.frameMbsOnly = reader.ReadFlag();
  if (!sps.frameMbsOnly) {
    sps.mbAdaptiveFrameField = reader.ReadFlag();
  }
  sps.direct8x8Inference = reader.ReadFlag();
  if (reader.ReadFlag()) {
    const uint32_t chroma = sps.GetChromaArrayType();
    const uint32_t unitX = chroma == 0 || chroma == 3 ? 1 : 2;
    const uint32_t unitY = (sps.frameMbsOnly ? 1 : 2) * (chroma == 1 ? 2 : 1);
    const uint64_t left = uint64_t{reader.ReadUE()} * unitX;
    const uint64_t right = uint64_t{reader.ReadUE()} * unitX;
    const uint64_t top = uint64_t{reader.ReadUE()} * unitY;
    const uint64_t bottom = uint64_t{reader.ReadUE()} * unitY;
    if (left + right >= sps.GetWidth() || top + bottom >= sps.GetHeight()) {
      return ParseDamaged;
    }
    sps.cropLeft = static_cast<uint32_t>(left);
    sps.cropRight = static_cast<uint32_t>(right);
    sps.cropTop = static_cast<uint32_t>(top);
    sps.cropBottom = static_cast<uint32_t>(bottom);
  }
  if (reader.IsOverrun()) {
    return ParseDamaged;
  }
  sps.vuiPresent = reader.ReadFlag();
  if (sps.vuiPresent) {
    const size_t start = reader.GetPosition();
    ReadVui(reader, sps.vui);
    if (reader.IsOverrun()) {
      // Some encoders cut the VUI short. What precedes it is sound; of the
      // VUI only what was read before the end is kept.
      CmBitReader again(reader.GetData(), reader.GetSizeInBits() / 8);
      again.Skip(start);
      sps.vui = SmVideoUsability();
      SmVideoUsability partial;
      ReadVui(again, partial);
      sps.vui.aspectRatioPresent = partial.aspectRatioPresent;
      sps.vui.sarWidth = partial.sarWidth;
      sps.vui.sarHeight = partial.sarHeight;
      return ParseOk;
    }
  }
  if (sps.bitDepthLuma != 8 || sps.bitDepthChroma != 8 || sps.chromaFormatIdc == 2 ||
      sps.chromaFormatIdc == 3 || sps.transformBypass) {
    return ParseUnsupported;
  }
  return ParseOk;
}

SmParseResult ParsePictureParameterSet(CmBitReader& reader,
                                       const SmSequenceParameterSet* const* spsTable,
                                       SmPictureParameterSet& pps) {
  pps = SmPictureParameterSet();
  pps.id = reader.ReadUE();
  pps.spsId = reader.ReadUE();
  if (pps.id > 255 || pps.spsId > 31) {
    return ParseDamaged;
  }
  const SmSequenceParameterSet* sps = spsTable[pps.spsId];
  if (sps == nullptr) {
    return ParseMissingReference;
  }
  pps.entropyCodingMode = reader.ReadFlag();
  pps.bottomFieldPicOrderInFramePresent = reader.ReadFlag();
  pps.numSliceGroups = reader.ReadUE() + 1;
  if (pps.numSliceGroups > 8) {
    return ParseDamaged;
  }
  if (pps.numSliceGroups > 1) {
    pps.sliceGroupMapType = reader.ReadUE();
    const uint32_t mapUnits = sps->widthInMbs * sps->heightInMapUnits;
    switch (pps.sliceGroupMapType) {
    case 0:
      for (uint32_t group = 0; group < pps.numSliceGroups; ++group) {
        pps.runLengthMinus1[group] = reader.ReadUE();
      }
      break;
    case 1:
      break;
    case 2:
      for (uint32_t group = 0; group + 1 < pps.numSliceGroups; ++group) {
        pps.topLeft[group] = reader.ReadUE();
        pps.bottomRight[group] = reader.ReadUE();
        if (pps.topLeft[group] > pps.bottomRight[group] || pps.bottomRight[group] >= mapUnits ||
            pps.topLeft[group] % sps->widthInMbs > pps.bottomRight[group] % sps->widthInMbs) {
          return ParseDamaged;
        }
      }
      break;
    case 3:
    case 4:
    case 5:
      pps.sliceGroupChangeDirection = reader.ReadFlag();
      pps.sliceGroupChangeRate = reader.ReadUE() + 1;
      if (pps.sliceGroupChangeRate > mapUnits) {
        return ParseDamaged;
      }
      break;
    case 6: {
      if (reader.ReadUE() + uint64_t{1} != mapUnits) { // pic_size_in_map_units_minus1
        return ParseDamaged;
      }
      unsigned bits = 0;
      while ((1u << bits) < pps.numSliceGroups) {
        ++bits;
      }
      pps.sliceGroupId.resize(mapUnits);
      for (uint8_t& id : pps.sliceGroupId) {
        id = static_cast<uint8_t>(reader.ReadBits(bits));
        if (id >= pps.numSliceGroups) {
          return ParseDamaged;
        }
      }
      break;
    }
    default:
      return ParseDamaged;
    }
  }
  pps.numRefIdxActive[0] = reader.ReadUE() + 1;
  pps.numRefIdxActive[1] = reader.ReadUE() + 1;
  if (pps.numRefIdxActive[0] > 32 || pps.numRefIdxActive[1] > 32) {
    return ParseDamaged;
  }
  pps.weightedPred = reader.ReadFlag();
  pps.weightedBipredIdc = reader.ReadBits(2);
  pps.picInitQp = 26 + reader.ReadSE();
  pps.picInitQs = 26 + reader.ReadSE();
  pps.chromaQpIndexOffset = reader.ReadSE();
  if (pps.weightedBipredIdc > 2 || pps.picInitQp < 0 || pps.picInitQp > 51 || pps.picInitQs < 0 ||
      pps.picInitQs > 51 || pps.chromaQpIndexOffset < -12 || pps.chromaQpIndexOffset > 12) {
    return ParseDamaged;
  }
  pps.deblockingFilterControlPresent = reader.ReadFlag();
  pps.constrainedIntraPred = reader.ReadFlag();
  pps.redundantPicCntPresent = reader.ReadFlag();
  pps.secondChromaQpIndexOffset = pps.chromaQpIndexOffset;
  if (reader.HasMoreData()) {
    pps.transform8x8Mode = reader.ReadFlag();
    if (reader.ReadFlag()) {
      const size_t lists8x8 = pps.transform8x8Mode ? (sps->chromaFormatIdc != 3 ? 2 : 6) : 0;
      ReadScalingLists(reader, 6 + lists8x8, pps.scaling);
    }
    pps.secondChromaQpIndexOffset = reader.ReadSE();
    if (pps.secondChromaQpIndexOffset < -12 || pps.secondChromaQpIndexOffset > 12) {
      return ParseDamaged;
    }
  }
  if (reader.IsOverrun()) {
    return ParseDamaged;
  }
  return ParseOk;
}

namespace {

// One list by Table 7-2: its own when present (or the default it asks for),
// else by fall-back rule A (default or the list before) or, for the first
// list of each kind in a PPS under an SPS with lists, rule B (the SPS's).
template <size_t N>
void ResolveList(const SmCodedScalingLists& coded, size_t index,
                 const std::array<uint8_t, N>& fallBack, const std::array<uint8_t, N>& defaultList,
                 std::array<uint8_t, N>& out, const std::array<uint8_t, N>& own) {
  if (coded.listPresent[index]) {
    out = coded.useDefault[index] ? defaultList : own;
  } else {
    out = fallBack;
  }
}

// The lists of one parameter set, given what its first lists fall back on.
void ResolveLists(const SmCodedScalingLists& coded, const SmScalingMatrices& firstFallBack,
                  SmScalingMatrices& out) {
  for (size_t i = 0; i < 6; ++i) {
    const bool intra = i < 3;
    const auto& defaultList = intra ? DefaultScaling4x4Intra : DefaultScaling4x4Inter;
    const auto& fallBack = i == 0 || i == 3 ? firstFallBack.list4x4[i] : out.list4x4[i - 1];
    ResolveList(coded, i, fallBack, defaultList, out.list4x4[i], coded.lists.list4x4[i]);
  }
  for (size_t i = 0; i < 6; ++i) {
    const bool intra = i % 2 == 0;
    const auto& defaultList = intra ? DefaultScaling8x8Intra : DefaultScaling8x8Inter;
    const auto& fallBack = i < 2 ? firstFallBack.list8x8[i] : out.list8x8[i - 2];
    ResolveList(coded, 6 + i, fallBack, defaultList, out.list8x8[i], coded.lists.list8x8[i]);
  }
}

SmScalingMatrices DefaultMatrices() {
  SmScalingMatrices defaults;
  defaults.list4x4[0] = DefaultScaling4x4Intra;
  defaults.list4x4[3] = DefaultScaling4x4Inter;
  defaults.list8x8[0] = DefaultScaling8x8Intra;
  defaults.list8x8[1] = DefaultScaling8x8Inter;
  return defaults;
}

} // namespace

void DeriveScalingMatrices(const SmSequenceParameterSet& sps, const SmPictureParameterSet& pps,
                           SmScalingMatrices& matrices) {
  SmScalingMatrices sequence;
  if (sps.scaling.present) {
    ResolveLists(sps.scaling, DefaultMatrices(), sequence);
  }
  if (!pps.scaling.present) {
    matrices = sequence;
    return;
  }
  ResolveLists(pps.scaling, sps.scaling.present ? sequence : DefaultMatrices(), matrices);
}

} // namespace NmH264
