#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

// A small H.264 writer for tests: parameter sets and slices with every
// header field that decides which reference a picture uses, over the
// simplest macroblocks that make that choice visible (I_PCM samples, one
// 16x16 motion vector, skips), in CAVLC. No encoder at hand writes these
// features.
namespace NmTestSupport {

// Writes bits most significant first, the way the decoder reads them.
class CmBitWriter {
public:
  void Put(uint64_t value, unsigned count);
  void PutFlag(bool value) { Put(value ? 1 : 0, 1); }
  void PutUE(uint64_t value);
  void PutSE(int64_t value);
  void AlignWithZeros();
  // rbsp_trailing_bits: the stop bit and zeros up to the byte.
  void PutTrailingBits();
  bool IsAligned() const { return m_Bits % 8 == 0; }
  const std::vector<uint8_t>& Bytes() const { return m_Bytes; }

private:
  std::vector<uint8_t> m_Bytes;
  size_t m_Bits = 0;
};

struct SmWriterSps {
  uint32_t profileIdc = 77; // Main: B slices; slice groups ask for Baseline
  uint32_t levelIdc = 30;
  uint32_t id = 0;
  uint32_t log2MaxFrameNum = 4;
  uint32_t pocType = 0;
  uint32_t log2MaxPocLsb = 6;
  // Order count type 1, with delta_pic_order_always_zero_flag 0.
  int32_t offsetForNonRefPic = 0;
  std::vector<int32_t> offsetForRefFrame;
  uint32_t maxNumRefFrames = 1;
  bool gapsAllowed = false;
  uint32_t widthInMbs = 4, heightInMbs = 3; // of the frame
  // Off: an interlaced sequence, whose pictures are frames or fields
  // (heightInMbs then even).
  bool frameMbsOnly = true;
  // In luma samples; even numbers for 4:2:0.
  uint32_t cropLeft = 0, cropRight = 0, cropTop = 0, cropBottom = 0;
  bool vui = false; // with bitstream_restriction and the two numbers below
  uint32_t numReorderFrames = 0;
  uint32_t maxDecFrameBuffering = 1;
};

struct SmWriterPps {
  uint32_t id = 0;
  uint32_t spsId = 0;
  bool bottomFieldPicOrderInFramePresent = false;
  uint32_t numSliceGroups = 1;
  uint32_t mapType = 0;
  std::array<uint32_t, 8> runLengthMinus1{};
  std::array<uint32_t, 8> topLeft{}, bottomRight{};
  bool changeDirection = false;       // and a change rate of one map unit
  std::vector<uint32_t> sliceGroupId; // map type 6, one per map unit
  uint32_t numRefIdxActive[2] = {1, 1};
  bool weightedPred = false;
  uint32_t weightedBipredIdc = 0;
  int32_t picInitQp = 26;
  int32_t chromaQpIndexOffset = 0;
  bool deblockingControl = true;
  bool constrainedIntraPred = false;
  // transform_8x8_mode_flag, with the rest of the High profile's fields
  // (which the SPS writes with profileIdc 100).
  bool transform8x8 = false;
};

// One entry of pred_weight_table for a reference index; absent weights
// are the defaults.
struct SmWriterWeight {
  bool luma = false;
  int32_t lumaWeight = 0, lumaOffset = 0;
  bool chroma = false;
  int32_t chromaWeight[2] = {0, 0}, chromaOffset[2] = {0, 0};
};

// One memory_management_control_operation with its arguments.
struct SmWriterMmco {
  uint32_t operation = 0;
  uint32_t value =
      0; // difference_of_pic_nums_minus1, long_term_pic_num or max_long_term_frame_idx_plus1
  uint32_t index = 0; // long_term_frame_idx for 3 and 6
};

struct SmWriterSlice {
  enum : uint32_t { P = 0, B = 1, I = 2 };
  uint32_t nalRefIdc = 1;
  bool idr = false;
  uint32_t firstMb = 0;
  uint32_t type = I;
  uint32_t ppsId = 0;
  uint32_t frameNum = 0;
  bool field = false; // field_pic_flag, in interlaced sequences
  bool bottom = false;
  uint32_t idrPicId = 0;
  uint32_t pocLsb = 0;
  int32_t deltaPocBottom = 0;
  int32_t deltaPoc[2] = {0, 0};
  bool directSpatial = true;
  bool overrideRefIdx = false;
  uint32_t numRefIdxActive[2] = {1, 1};
  // ref_pic_list_modification: pairs of modification_of_pic_nums_idc and
  // abs_diff_pic_num_minus1 or long_term_pic_num.
  std::vector<std::array<uint32_t, 2>> modifications[2];
  uint32_t lumaLog2Denom = 0, chromaLog2Denom = 0;
  std::vector<SmWriterWeight> weights[2]; // one per active reference when weighted
  bool longTermReference = false;
  bool adaptiveMarking = false;
  std::vector<SmWriterMmco> mmcos;
  int32_t qpDelta = 0;
  uint32_t disableDeblocking = 1;
  int32_t alphaOffsetDiv2 = 0, betaOffsetDiv2 = 0;
  uint32_t sliceGroupChangeCycle = 0;
};

// A macroblock as written: I_PCM with its samples (256 luma, then 64 Cb,
// 64 Cr), one 16x16 partition predicted from chosen references with
// motion vector differences, or skipped. A predicted macroblock may carry
// one luma coefficient of +1 or -1 at a scanning position of its first 4x4
// block: where it lands shows which scan the decoder used.
struct SmWriterMacroblock {
  enum SmKind { Skip, Pcm, L0, L1, Bi };
  SmKind kind = Skip;
  uint32_t refIdx[2] = {0, 0};
  int32_t mvd[2][2] = {{0, 0}, {0, 0}};
  int32_t level = 0; // 0 for no residual
  uint32_t scanPosition = 0;
  bool transform8x8 = false; // transform_size_8x8_flag, where the PPS allows it
  std::vector<uint8_t> samples;

  static SmWriterMacroblock Filled(uint8_t luma, uint8_t cb, uint8_t cr);
  static SmWriterMacroblock Predicted(SmKind kind, uint32_t ref0, int32_t mvx, int32_t mvy,
                                      uint32_t ref1 = 0, int32_t mvx1 = 0, int32_t mvy1 = 0);
};

// Gathers NAL units and hands them out as Annex B, or as units to frame.
class CmH264StreamWriter {
public:
  void WriteSps(const SmWriterSps& sps);
  void WritePps(const SmWriterPps& pps);
  // The slice's macroblocks in the order the slice carries them; runs of
  // Skip become mb_skip_run. The parameter sets named are those written
  // last with their ids.
  void WriteSlice(const SmWriterSlice& slice, const std::vector<SmWriterMacroblock>& macroblocks);
  void WriteUnit(uint8_t header, const std::vector<uint8_t>& rbsp);

  std::vector<uint8_t> AnnexB() const;
  const std::vector<std::vector<uint8_t>>& Units() const { return m_Units; }

private:
  std::vector<std::vector<uint8_t>> m_Units; // header byte and escaped payload
  SmWriterSps m_Sps[32];
  SmWriterPps m_Pps[256];
};

} // namespace NmTestSupport
