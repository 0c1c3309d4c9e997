#include "Codecs/H264/SliceHeader.h"

namespace NmH264 {

namespace {

// The bits of slice_group_change_cycle: Ceil(Log2(PicSizeInMapUnits ÷
// SliceGroupChangeRate + 1)), where ÷ rounds up.
unsigned GetChangeCycleBits(uint32_t mapUnits, uint32_t rate) {
  const uint32_t value = (mapUnits + rate - 1) / rate + 1;
  unsigned bits = 0;
  while ((uint64_t{1} << bits) < value) {
    ++bits;
  }
  return bits;
}

bool ReadListModifications(CmBitReader& reader, SmSliceHeader& header, int list) {
  header.listModification[list] = reader.ReadFlag();
  if (!header.listModification[list]) {
    return true;
  }
  for (uint8_t count = 0;; ++count) {
    // At most one command per reference index and the closing 3.
    if (count >= header.modifications[list].size()) {
      return false;
    }
    SmListModification& command = header.modifications[list][count];
    const uint32_t idc = reader.ReadUE();
    if (idc > 3 || reader.IsOverrun()) {
      return false;
    }
    command.idc = static_cast<uint8_t>(idc);
    if (idc == 3) {
      header.modificationCount[list] = count;
      return true;
    }
    command.value = reader.ReadUE();
  }
}

bool ReadWeights(CmBitReader& reader, SmSliceHeader& header, int list, uint32_t chromaArrayType) {
  for (uint32_t i = 0; i < header.numRefIdxActive[list]; ++i) {
    SmPredictionWeight& weight = header.weights[list][i];
    weight.weight[0] = static_cast<int16_t>(1 << header.lumaLog2WeightDenom);
    weight.offset[0] = 0;
    weight.present[0] = reader.ReadFlag();
    if (weight.present[0]) {
      const int32_t w = reader.ReadSE();
      const int32_t o = reader.ReadSE();
      if (w < -128 || w > 127 || o < -128 || o > 127) {
        return false;
      }
      weight.weight[0] = static_cast<int16_t>(w);
      weight.offset[0] = static_cast<int16_t>(o);
    }
    for (int c = 1; c < 3; ++c) {
      weight.weight[c] = static_cast<int16_t>(1 << header.chromaLog2WeightDenom);
      weight.offset[c] = 0;
    }
    weight.present[1] = chromaArrayType != 0 && reader.ReadFlag();
    if (weight.present[1]) {
      for (int c = 1; c < 3; ++c) {
        const int32_t w = reader.ReadSE();
        const int32_t o = reader.ReadSE();
        if (w < -128 || w > 127 || o < -128 || o > 127) {
          return false;
        }
        weight.weight[c] = static_cast<int16_t>(w);
        weight.offset[c] = static_cast<int16_t>(o);
      }
    }
  }
  return true;
}

bool ReadMarking(CmBitReader& reader, SmSliceHeader& header) {
  if (header.IsIdr()) {
    header.noOutputOfPriorPics = reader.ReadFlag();
    header.longTermReference = reader.ReadFlag();
    return true;
  }
  header.adaptiveMarking = reader.ReadFlag();
  if (!header.adaptiveMarking) {
    return true;
  }
  for (uint8_t count = 0;; ++count) {
    if (count >= header.marking.size()) {
      return false;
    }
    const uint32_t operation = reader.ReadUE();
    if (operation > 6 || reader.IsOverrun()) {
      return false;
    }
    if (operation == 0) {
      header.markingCount = count;
      return true;
    }
    SmMarkingOperation& command = header.marking[count];
    command = SmMarkingOperation();
    command.operation = static_cast<uint8_t>(operation);
    if (operation == 1 || operation == 3) {
      command.differenceOfPicNums = reader.ReadUE();
    }
    if (operation == 2) {
      command.longTermPicNum = reader.ReadUE();
    }
    if (operation == 3 || operation == 6) {
      command.longTermFrameIdx = reader.ReadUE();
    }
    if (operation == 4) {
      command.maxLongTermFrameIdxPlus1 = reader.ReadUE();
    }
  }
}

} // namespace

bool SmSliceHeader::HasMemoryManagement5() const {
  for (uint8_t i = 0; i < markingCount; ++i) {
    if (marking[i].operation == 5) {
      return true;
    }
  }
  return false;
}

SmParseResult ParseSliceHeader(CmBitReader& reader, uint8_t nalHeader,
                               const SmParameterSetTables& tables, SmSliceHeader& header,
                               const SmSequenceParameterSet*& sps,
                               const SmPictureParameterSet*& pps) {
  header.nalUnitType = nalHeader & 0x1F;
  header.nalRefIdc = (nalHeader >> 5) & 3;
  header.firstMbInSlice = reader.ReadUE();
  const uint32_t sliceType = reader.ReadUE();
  if (sliceType > 9) {
    return ParseDamaged;
  }
  header.sliceType = static_cast<SmSliceType>(sliceType % 5);
  header.allSameType = sliceType >= 5;
  header.ppsId = reader.ReadUE();
  if (header.ppsId > 255) {
    return ParseDamaged;
  }
  pps = tables.pps[header.ppsId];
  sps = pps == nullptr ? nullptr : tables.sps[pps->spsId];
  if (pps == nullptr || sps == nullptr) {
    return ParseMissingReference;
  }
  if (header.IsIdr() && header.sliceType != SliceI && header.sliceType != SliceSI) {
    return ParseDamaged;
  }
  if (header.firstMbInSlice >= sps->widthInMbs * sps->GetFrameHeightInMbs()) {
    return ParseDamaged;
  }
  if (sps->separateColourPlane) {
    reader.Skip(2); // colour_plane_id
  }
  header.frameNum = reader.ReadBits(sps->log2MaxFrameNum);
  header.fieldPic = false;
  header.bottomField = false;
  if (!sps->frameMbsOnly) {
    header.fieldPic = reader.ReadFlag();
    if (header.fieldPic) {
      header.bottomField = reader.ReadFlag();
    }
  }
  header.idrPicId = header.IsIdr() ? reader.ReadUE() : 0;
  header.picOrderCntLsb = 0;
  header.deltaPicOrderCntBottom = 0;
  header.deltaPicOrderCnt[0] = header.deltaPicOrderCnt[1] = 0;
  if (sps->picOrderCntType == 0) {
    header.picOrderCntLsb = reader.ReadBits(sps->log2MaxPicOrderCntLsb);
    if (pps->bottomFieldPicOrderInFramePresent && !header.fieldPic) {
      header.deltaPicOrderCntBottom = reader.ReadSE();
    }
  } else if (sps->picOrderCntType == 1 && !sps->deltaPicOrderAlwaysZero) {
    header.deltaPicOrderCnt[0] = reader.ReadSE();
    if (pps->bottomFieldPicOrderInFramePresent && !header.fieldPic) {
      header.deltaPicOrderCnt[1] = reader.ReadSE();
    }
  }
  header.redundantPicCnt = pps->redundantPicCntPresent ? reader.ReadUE() : 0;
  const bool b = header.sliceType == SliceB;
  const bool p = header.sliceType == SliceP || header.sliceType == SliceSP;
  header.directSpatialMvPred = b && reader.ReadFlag();
  header.numRefIdxActive[0] = p || b ? pps->numRefIdxActive[0] : 0;
  header.numRefIdxActive[1] = b ? pps->numRefIdxActive[1] : 0;
  if ((p || b) && reader.ReadFlag()) {
    header.numRefIdxActive[0] = reader.ReadUE() + 1;
    if (b) {
      header.numRefIdxActive[1] = reader.ReadUE() + 1;
    }
  }
  // A field picture may name twice as many references as a frame.
  const uint32_t mostReferences = header.fieldPic ? 32 : 16;
  if (header.numRefIdxActive[0] > mostReferences || header.numRefIdxActive[1] > mostReferences) {
    return ParseDamaged;
  }
  header.listModification[0] = header.listModification[1] = false;
  header.modificationCount[0] = header.modificationCount[1] = 0;
  if (header.sliceType != SliceI && header.sliceType != SliceSI) {
    if (!ReadListModifications(reader, header, 0) ||
        (b && !ReadListModifications(reader, header, 1))) {
      return ParseDamaged;
    }
  }
  const uint32_t chromaArrayType = sps->GetChromaArrayType();
  header.hasExplicitWeights = (pps->weightedPred && p) || (pps->weightedBipredIdc == 1 && b);
  if (header.hasExplicitWeights) {
    header.lumaLog2WeightDenom = reader.ReadUE();
    header.chromaLog2WeightDenom = chromaArrayType != 0 ? reader.ReadUE() : 0;
    if (header.lumaLog2WeightDenom > 7 || header.chromaLog2WeightDenom > 7) {
      return ParseDamaged;
    }
    if (!ReadWeights(reader, header, 0, chromaArrayType) ||
        (b && !ReadWeights(reader, header, 1, chromaArrayType))) {
      return ParseDamaged;
    }
  }
  header.noOutputOfPriorPics = false;
  header.longTermReference = false;
  header.adaptiveMarking = false;
  header.markingCount = 0;
  if (header.IsReference() && !ReadMarking(reader, header)) {
    return ParseDamaged;
  }
  header.cabacInitIdc = 0;
  if (pps->entropyCodingMode && header.sliceType != SliceI && header.sliceType != SliceSI) {
    header.cabacInitIdc = reader.ReadUE();
    if (header.cabacInitIdc > 2) {
      return ParseDamaged;
    }
  }
  header.sliceQp = pps->picInitQp + reader.ReadSE();
  if (header.sliceQp < 0 || header.sliceQp > 51) {
    return ParseDamaged;
  }
  if (header.sliceType == SliceSP || header.sliceType == SliceSI) {
    if (header.sliceType == SliceSP) {
      reader.Skip(1); // sp_for_switch_flag
    }
    reader.ReadSE(); // slice_qs_delta
  }
  header.disableDeblockingFilterIdc = 0;
  header.sliceAlphaC0Offset = header.sliceBetaOffset = 0;
  if (pps->deblockingFilterControlPresent) {
    header.disableDeblockingFilterIdc = reader.ReadUE();
    if (header.disableDeblockingFilterIdc > 2) {
      return ParseDamaged;
    }
    if (header.disableDeblockingFilterIdc != 1) {
      const int32_t alpha = reader.ReadSE();
      const int32_t beta = reader.ReadSE();
      if (alpha < -6 || alpha > 6 || beta < -6 || beta > 6) {
        return ParseDamaged;
      }
      header.sliceAlphaC0Offset = 2 * alpha;
      header.sliceBetaOffset = 2 * beta;
    }
  }
  header.sliceGroupChangeCycle = 0;
  if (pps->numSliceGroups > 1 && pps->sliceGroupMapType >= 3 && pps->sliceGroupMapType <= 5) {
    const uint32_t mapUnits = sps->widthInMbs * sps->heightInMapUnits;
    header.sliceGroupChangeCycle =
        reader.ReadBits(GetChangeCycleBits(mapUnits, pps->sliceGroupChangeRate));
  }
  if (reader.IsOverrun()) {
    return ParseDamaged;
  }
  header.dataBitOffset = reader.GetPosition();
  // Fields, and frames coded in macroblock pairs, count their first
  // macroblock in pairs of lines.
  const bool mbaff = sps->mbAdaptiveFrameField && !header.fieldPic;
  if ((header.fieldPic || mbaff) &&
      header.firstMbInSlice >= sps->widthInMbs * sps->GetFrameHeightInMbs() / 2) {
    return ParseDamaged;
  }
  if (header.sliceType == SliceSP || header.sliceType == SliceSI) {
    return ParseUnsupported;
  }
  return ParseOk;
}

} // namespace NmH264
