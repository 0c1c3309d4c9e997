#include "support/H264StreamWriter.h"

namespace NmTestSupport {

namespace {

unsigned CeilLog2(uint64_t value) {
  unsigned bits = 0;
  while ((uint64_t{1} << bits) < value) {
    ++bits;
  }
  return bits;
}

} // namespace

void CmBitWriter::Put(uint64_t value, unsigned count) {
  for (unsigned i = count; i-- > 0;) {
    if (m_Bits % 8 == 0) {
      m_Bytes.push_back(0);
    }
    if ((value >> i & 1) != 0) {
      m_Bytes.back() |= static_cast<uint8_t>(0x80 >> (m_Bits % 8));
    }
    ++m_Bits;
  }
}

void CmBitWriter::PutUE(uint64_t value) {
  const uint64_t code = value + 1;
  unsigned length = 0;
  while ((code >> length) > 1) {
    ++length;
  }
  Put(0, length);
  Put(code, length + 1);
}

void CmBitWriter::PutSE(int64_t value) {
  PutUE(value > 0 ? 2 * static_cast<uint64_t>(value) - 1 : 2 * static_cast<uint64_t>(-value));
}

void CmBitWriter::AlignWithZeros() {
  while (!IsAligned()) {
    Put(0, 1);
  }
}

void CmBitWriter::PutTrailingBits() {
  Put(1, 1);
  AlignWithZeros();
}

SmWriterMacroblock SmWriterMacroblock::Filled(uint8_t luma, uint8_t cb, uint8_t cr) {
  SmWriterMacroblock mb;
  mb.kind = Pcm;
  mb.samples.assign(256, luma);
  mb.samples.insert(mb.samples.end(), 64, cb);
  mb.samples.insert(mb.samples.end(), 64, cr);
  return mb;
}

SmWriterMacroblock SmWriterMacroblock::Predicted(SmKind kind, uint32_t ref0, int32_t mvx,
                                                 int32_t mvy, uint32_t ref1, int32_t mvx1,
                                                 int32_t mvy1) {
  SmWriterMacroblock mb;
  mb.kind = kind;
  // One list alone takes the first reference and motion given.
  const int list = kind == L1 ? 1 : 0;
  mb.refIdx[list] = ref0;
  mb.mvd[list][0] = mvx;
  mb.mvd[list][1] = mvy;
  if (kind == Bi) {
    mb.refIdx[1] = ref1;
    mb.mvd[1][0] = mvx1;
    mb.mvd[1][1] = mvy1;
  }
  return mb;
}

void CmH264StreamWriter::WriteUnit(uint8_t header, const std::vector<uint8_t>& rbsp) {
  // Emulation prevention: no two zeros may be followed by a byte below 4.
  std::vector<uint8_t> unit{header};
  int zeros = 0;
  for (const uint8_t byte : rbsp) {
    if (zeros == 2 && byte <= 3) {
      unit.push_back(3);
      zeros = 0;
    }
    unit.push_back(byte);
    zeros = byte == 0 ? zeros + 1 : 0;
  }
  m_Units.push_back(std::move(unit));
}

void CmH264StreamWriter::WriteSps(const SmWriterSps& sps) {
  m_Sps[sps.id] = sps;
  CmBitWriter w;
  w.Put(sps.profileIdc, 8);
  w.Put(0, 8); // constraint flags
  w.Put(sps.levelIdc, 8);
  w.PutUE(sps.id);
  if (sps.profileIdc == 100) {
    w.PutUE(1);       // chroma_format_idc: 4:2:0
    w.PutUE(0);       // bit_depth_luma_minus8
    w.PutUE(0);       // bit_depth_chroma_minus8
    w.PutFlag(false); // qpprime_y_zero_transform_bypass_flag
    w.PutFlag(false); // seq_scaling_matrix_present_flag
  }
  w.PutUE(sps.log2MaxFrameNum - 4);
  w.PutUE(sps.pocType);
  if (sps.pocType == 0) {
    w.PutUE(sps.log2MaxPocLsb - 4);
  } else if (sps.pocType == 1) {
    w.PutFlag(false); // delta_pic_order_always_zero_flag
    w.PutSE(sps.offsetForNonRefPic);
    w.PutSE(0); // offset_for_top_to_bottom_field
    w.PutUE(sps.offsetForRefFrame.size());
    for (const int32_t offset : sps.offsetForRefFrame) {
      w.PutSE(offset);
    }
  }
  w.PutUE(sps.maxNumRefFrames);
  w.PutFlag(sps.gapsAllowed);
  w.PutUE(sps.widthInMbs - 1);
  w.PutUE((sps.frameMbsOnly ? sps.heightInMbs : sps.heightInMbs / 2) - 1);
  w.PutFlag(sps.frameMbsOnly);
  if (!sps.frameMbsOnly) {
    w.PutFlag(false); // mb_adaptive_frame_field_flag
  }
  w.PutFlag(true); // direct_8x8_inference_flag
  const bool crop = sps.cropLeft + sps.cropRight + sps.cropTop + sps.cropBottom != 0;
  w.PutFlag(crop);
  if (crop) {
    // Offsets count chroma samples: two luma samples each in 4:2:0.
    w.PutUE(sps.cropLeft / 2);
    w.PutUE(sps.cropRight / 2);
    w.PutUE(sps.cropTop / 2);
    w.PutUE(sps.cropBottom / 2);
  }
  w.PutFlag(sps.vui);
  if (sps.vui) {
    w.Put(0, 8); // aspect ratio, overscan, signal type, chroma location, timing, HRDs, pic_struct
    w.PutFlag(true); // bitstream_restriction_flag
    w.PutFlag(true); // motion_vectors_over_pic_boundaries_flag
    w.PutUE(0);
    w.PutUE(0);
    w.PutUE(16);
    w.PutUE(16);
    w.PutUE(sps.numReorderFrames);
    w.PutUE(sps.maxDecFrameBuffering);
  }
  w.PutTrailingBits();
  WriteUnit(0x67, w.Bytes());
}

void CmH264StreamWriter::WritePps(const SmWriterPps& pps) {
  m_Pps[pps.id] = pps;
  CmBitWriter w;
  w.PutUE(pps.id);
  w.PutUE(pps.spsId);
  w.PutFlag(false); // entropy_coding_mode_flag: CAVLC
  w.PutFlag(pps.bottomFieldPicOrderInFramePresent);
  w.PutUE(pps.numSliceGroups - 1);
  if (pps.numSliceGroups > 1) {
    w.PutUE(pps.mapType);
    if (pps.mapType == 0) {
      for (uint32_t i = 0; i < pps.numSliceGroups; ++i) {
        w.PutUE(pps.runLengthMinus1[i]);
      }
    } else if (pps.mapType == 2) {
      for (uint32_t i = 0; i + 1 < pps.numSliceGroups; ++i) {
        w.PutUE(pps.topLeft[i]);
        w.PutUE(pps.bottomRight[i]);
      }
    } else if (pps.mapType >= 3 && pps.mapType <= 5) {
      w.PutFlag(pps.changeDirection);
      w.PutUE(0); // slice_group_change_rate_minus1
    } else if (pps.mapType == 6) {
      w.PutUE(pps.sliceGroupId.size() - 1);
      for (const uint32_t group : pps.sliceGroupId) {
        w.Put(group, CeilLog2(pps.numSliceGroups));
      }
    }
  }
  w.PutUE(pps.numRefIdxActive[0] - 1);
  w.PutUE(pps.numRefIdxActive[1] - 1);
  w.PutFlag(pps.weightedPred);
  w.Put(pps.weightedBipredIdc, 2);
  w.PutSE(pps.picInitQp - 26);
  w.PutSE(0); // pic_init_qs_minus26
  w.PutSE(pps.chromaQpIndexOffset);
  w.PutFlag(pps.deblockingControl);
  w.PutFlag(pps.constrainedIntraPred);
  w.PutFlag(false); // redundant_pic_cnt_present_flag
  if (pps.transform8x8) {
    w.PutFlag(true);  // transform_8x8_mode_flag
    w.PutFlag(false); // pic_scaling_matrix_present_flag
    w.PutSE(pps.chromaQpIndexOffset);
  }
  w.PutTrailingBits();
  WriteUnit(0x68, w.Bytes());
}

void CmH264StreamWriter::WriteSlice(const SmWriterSlice& s,
                                    const std::vector<SmWriterMacroblock>& macroblocks) {
  const SmWriterPps& pps = m_Pps[s.ppsId];
  const SmWriterSps& sps = m_Sps[pps.spsId];
  const bool p = s.type == SmWriterSlice::P, b = s.type == SmWriterSlice::B;
  uint32_t active[2] = {pps.numRefIdxActive[0], pps.numRefIdxActive[1]};
  if (s.overrideRefIdx) {
    active[0] = s.numRefIdxActive[0];
    active[1] = s.numRefIdxActive[1];
  }
  CmBitWriter w;
  w.PutUE(s.firstMb);
  w.PutUE(s.type);
  w.PutUE(s.ppsId);
  w.Put(s.frameNum, sps.log2MaxFrameNum);
  if (!sps.frameMbsOnly) {
    w.PutFlag(s.field);
    if (s.field) {
      w.PutFlag(s.bottom);
    }
  }
  if (s.idr) {
    w.PutUE(s.idrPicId);
  }
  if (sps.pocType == 0) {
    w.Put(s.pocLsb, sps.log2MaxPocLsb);
    if (pps.bottomFieldPicOrderInFramePresent && !s.field) {
      w.PutSE(s.deltaPocBottom);
    }
  } else if (sps.pocType == 1) {
    w.PutSE(s.deltaPoc[0]);
    if (pps.bottomFieldPicOrderInFramePresent && !s.field) {
      w.PutSE(s.deltaPoc[1]);
    }
  }
  if (b) {
    w.PutFlag(s.directSpatial);
  }
  if (p || b) {
    w.PutFlag(s.overrideRefIdx);
    if (s.overrideRefIdx) {
      w.PutUE(active[0] - 1);
      if (b) {
        w.PutUE(active[1] - 1);
      }
    }
    for (int list = 0; list < (b ? 2 : 1); ++list) {
      w.PutFlag(!s.modifications[list].empty());
      if (!s.modifications[list].empty()) {
        for (const auto& [idc, value] : s.modifications[list]) {
          w.PutUE(idc);
          w.PutUE(value);
        }
        w.PutUE(3);
      }
    }
  }
  if ((pps.weightedPred && p) || (pps.weightedBipredIdc == 1 && b)) {
    w.PutUE(s.lumaLog2Denom);
    w.PutUE(s.chromaLog2Denom);
    for (int list = 0; list < (b ? 2 : 1); ++list) {
      for (uint32_t i = 0; i < active[list]; ++i) {
        const SmWriterWeight weight =
            i < s.weights[list].size() ? s.weights[list][i] : SmWriterWeight();
        w.PutFlag(weight.luma);
        if (weight.luma) {
          w.PutSE(weight.lumaWeight);
          w.PutSE(weight.lumaOffset);
        }
        w.PutFlag(weight.chroma);
        if (weight.chroma) {
          for (int c = 0; c < 2; ++c) {
            w.PutSE(weight.chromaWeight[c]);
            w.PutSE(weight.chromaOffset[c]);
          }
        }
      }
    }
  }
  if (s.nalRefIdc != 0) {
    if (s.idr) {
      w.PutFlag(false); // no_output_of_prior_pics_flag
      w.PutFlag(s.longTermReference);
    } else {
      w.PutFlag(s.adaptiveMarking);
      if (s.adaptiveMarking) {
        for (const SmWriterMmco& op : s.mmcos) {
          w.PutUE(op.operation);
          if (op.operation >= 1 && op.operation <= 4) {
            w.PutUE(op.value);
          }
          if (op.operation == 3 || op.operation == 6) {
            w.PutUE(op.index);
          }
        }
        w.PutUE(0);
      }
    }
  }
  w.PutSE(s.qpDelta);
  if (pps.deblockingControl) {
    w.PutUE(s.disableDeblocking);
    if (s.disableDeblocking != 1) {
      w.PutSE(s.alphaOffsetDiv2);
      w.PutSE(s.betaOffsetDiv2);
    }
  }
  if (pps.numSliceGroups > 1 && pps.mapType >= 3 && pps.mapType <= 5) {
    const uint64_t units = uint64_t{sps.widthInMbs} * sps.heightInMbs;
    w.Put(s.sliceGroupChangeCycle, CeilLog2(units + 1));
  }

  // slice_data: a run of skipped macroblocks is counted before the next
  // coded one, and at the end of the slice.
  uint32_t skipRun = 0;
  const uint32_t width = sps.widthInMbs;
  // What the coefficient counts of neighbouring 4x4 blocks read: 16 for
  // I_PCM, 1 for the first block of a macroblock with a coefficient, else 0.
  std::vector<int> coded(macroblocks.size(), 0);
  const auto total = [&](size_t index, int x, int y) {
    const SmWriterMacroblock& n = macroblocks[index];
    return n.kind == SmWriterMacroblock::Pcm ? 16 : (x == 0 && y == 0 && coded[index]) ? 1 : 0;
  };
  for (size_t index = 0; index < macroblocks.size(); ++index) {
    const SmWriterMacroblock& mb = macroblocks[index];
    if (mb.kind == SmWriterMacroblock::Skip) {
      ++skipRun;
      continue;
    }
    if (p || b) {
      w.PutUE(skipRun);
      skipRun = 0;
    }
    if (mb.kind == SmWriterMacroblock::Pcm) {
      w.PutUE(p ? 30 : b ? 48 : 25);
      w.AlignWithZeros();
      for (const uint8_t sample : mb.samples) {
        w.Put(sample, 8);
      }
      continue;
    }
    const bool uses[2] = {mb.kind != SmWriterMacroblock::L1, mb.kind != SmWriterMacroblock::L0};
    w.PutUE(p                                   ? 0
            : mb.kind == SmWriterMacroblock::L0 ? 1
            : mb.kind == SmWriterMacroblock::L1 ? 2
                                                : 3);
    for (int list = 0; list < 2; ++list) {
      if (uses[list] && active[list] > 1) {
        // te(v): one inverted bit when the range is 1, else ue(v)
        active[list] == 2 ? w.PutFlag(mb.refIdx[list] == 0) : w.PutUE(mb.refIdx[list]);
      }
    }
    for (int list = 0; list < 2; ++list) {
      if (uses[list]) {
        w.PutSE(mb.mvd[list][0]);
        w.PutSE(mb.mvd[list][1]);
      }
    }
    if (mb.level == 0) {
      w.PutUE(0); // coded_block_pattern 0: no residual, so no mb_qp_delta
      continue;
    }
    coded[index] = 1;
    w.PutUE(2); // coded_block_pattern 1: the first 8x8 luma block
    if (pps.transform8x8) {
      // The 8x8 block's scan interleaves the four 4x4 blocks written below:
      // the coefficient lands at four times its position.
      w.PutFlag(mb.transform8x8);
    }
    w.PutSE(0); // mb_qp_delta
    const uint32_t address = s.firstMb + static_cast<uint32_t>(index);
    const bool hasLeft = address % width != 0 && index >= 1;
    const bool hasTop = index >= width;
    // nC of 4x4 blocks 0 to 3, from the blocks left of and above each.
    for (int block = 0; block < 4; ++block) {
      const int x = block % 2, y = block / 2;
      const bool leftIn = x > 0, topIn = y > 0;
      const bool a = leftIn || hasLeft, b = topIn || hasTop;
      const int nA = !a ? 0 : leftIn ? (block == 1 ? 1 : 0) : total(index - 1, 3, y);
      const int nB = !b ? 0 : topIn ? (block == 2 ? 1 : 0) : total(index - width, x, 3);
      const int nC = a && b ? (nA + nB + 1) >> 1 : a ? nA : nB;
      const int table = nC < 2 ? 0 : nC < 4 ? 1 : nC < 8 ? 2 : 3;
      // coeff_token of no coefficient, and of one trailing one in block 0
      static constexpr uint8_t NoneCode[4] = {1, 3, 15, 3}, NoneLength[4] = {1, 2, 4, 6};
      static constexpr uint8_t OneCode[4] = {1, 2, 14, 1}, OneLength[4] = {2, 2, 4, 6};
      if (block != 0) {
        w.Put(NoneCode[table], NoneLength[table]);
        continue;
      }
      // Then its sign, and total_zeros for one coefficient (the scanning
      // position).
      w.Put(OneCode[table], OneLength[table]);
      w.PutFlag(mb.level < 0);
      static constexpr uint8_t Code[16] = {1, 3, 2, 3, 2, 3, 2, 3, 2, 3, 2, 3, 2, 3, 2, 1};
      static constexpr uint8_t Length[16] = {1, 3, 3, 4, 4, 5, 5, 6, 6, 7, 7, 8, 8, 9, 9, 9};
      w.Put(Code[mb.scanPosition], Length[mb.scanPosition]);
    }
  }
  if (skipRun > 0) {
    w.PutUE(skipRun);
  }
  w.PutTrailingBits();
  WriteUnit(static_cast<uint8_t>(s.nalRefIdc << 5 | (s.idr ? 5 : 1)), w.Bytes());
}

std::vector<uint8_t> CmH264StreamWriter::AnnexB() const {
  std::vector<uint8_t> stream;
  for (const auto& unit : m_Units) {
    stream.insert(stream.end(), {0, 0, 0, 1});
    stream.insert(stream.end(), unit.begin(), unit.end());
  }
  return stream;
}

} // namespace NmTestSupport
