#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "Codecs/H264/NalUnits.h"
#include "Codecs/H264/ParameterSets.h"
#include "H264/ReferenceDecoding.h"
#include "support/H264StreamWriter.h"

using namespace NmH264;
using namespace NmH264Test;

namespace {

struct SmClip {
  const char* size;
  const char* options; // x264's, besides interlaced and the field order
  int frames;
  bool topFieldFirst = true;
};

// A clip of field and frame macroblock pairs: x264 codes the field order
// that its input frames carry.
SmEncoded EncodePairs(const std::string& size, const std::string& options, int frames,
                      const std::string& order = "tff", const std::string& filter = Combing) {
  return EncodeWithX264({size, "yuv420p", "interlaced=1:" + order + "=1:" + options, frames,
                         "medium", filter + ",setfield=" + order});
}

} // namespace

// Frames of pairs in CAVLC and in CABAC (without the 8x8 transform there),
// every picture equal to ffmpeg's decode, sample for sample, with one, two
// and three threads (the loop filter on a second thread follows rows of
// pairs), and leaving as an interlaced frame of the coded field order.
// Intra pictures and macroblocks: pair addressing, the field flag,
// neighbours across pairs of either kind for prediction, coefficient counts
// and CABAC contexts, field scans, and the loop filter over mixed edges;
// heights of two and a half pairs, which x264 pads to whole pairs and crops.
// P pictures: vectors predicted from neighbours of the other kind (scaled,
// and so are the sizes of differences and indices that CABAC's contexts
// read), P_Skip, a skipped top whose bottom carries the pair's kind,
// reference fields of frame entries for field macroblocks, explicit weights
// by frame entry, and the loop filter's strengths between field and frame
// motion. B pictures: spatial and temporal direct prediction with the
// co-located macroblock chosen by the kinds of both pairs, implicit weights
// by the distances of fields for field macroblocks, and b-pyramid.
TEST(H264Mbaff, PairsEqualTheReferenceDecoder) {
  REQUIRE_FFMPEG();
  const SmClip clips[] = {
      {"64x64", "bframes=0", 6},
      {"96x80", "bframes=0:ref=3:8x8dct=0", 6, false},
      {"96x80", "bframes=0:weightp=2:slices=3", 6},
      {"64x64", "bframes=0:ref=2:no-deblock=1:subme=7", 5, false},
      {"80x96", "bframes=0:qp=10", 4},
      // Intra macroblocks that may not predict from inter ones, beside
      // pairs of the other kind.
      {"96x80", "bframes=0:constrained-intra=1:keyint=4", 6},
      // Coarse: pairs skipped whole infer their kind, a skipped top takes
      // its coded bottom's.
      {"96x64", "bframes=0:qp=42", 8, false},
      {"64x64", "bframes=2:direct=spatial", 7},
      {"64x64", "bframes=2:direct=temporal", 7, false},
      {"96x80", "bframes=3:b-pyramid=normal:weightb=1:ref=3", 9},
      {"96x80", "bframes=2:direct=temporal:weightb=1:8x8dct=0:slices=3", 7, false},
      {"80x96", "bframes=2:qp=38:direct=spatial", 8},
  };
  for (const SmClip& clip : clips) {
    for (const std::string entropy : {"cabac=0:", "cabac=1:8x8dct=0:"}) {
      const std::string order = clip.topFieldFirst ? "tff" : "bff";
      SCOPED_TRACE(std::string(clip.size) + " " + entropy + clip.options + " " + order);
      const SmEncoded encoded = EncodePairs(clip.size, entropy + clip.options, clip.frames, order);
      ASSERT_EQ(encoded.pictures.size(), static_cast<size_t>(clip.frames));
      for (const int32_t threads : {1, 2, 3}) {
        SCOPED_TRACE(std::to_string(threads) + " threads");
        const CmPictureCollector ours = CollectWithShell({encoded.stream}, threads);
        ExpectSameFrames(ours.pictures, encoded.pictures);
        EXPECT_EQ(ours.structures,
                  std::vector<int32_t>(ours.pictures.size(), clip.topFieldFirst
                                                                 ? MCL::FrameTopFieldFirst
                                                                 : MCL::FrameBottomFieldFirst));
      }
    }
  }
}

// Slice groups in a frame of pairs: a map unit is a pair. x264's slices of
// three pairs each (pairs 0-2, 3-5, 6-7 of a 4x2 frame) go into two slice
// groups, the middle slice into the second, through a picture parameter set
// written anew with an explicit map; the slices stay as they are and decode
// to ffmpeg's pictures of the original (ffmpeg has no slice groups of its
// own).
TEST(H264Mbaff, SliceGroupsOfPairsDecodeAsThePlainSlices) {
  REQUIRE_FFMPEG();
  const SmEncoded encoded =
      EncodePairs("64x64", "cabac=0:8x8dct=0:slice-max-mbs=6:bframes=0:weightp=0", 4);
  ASSERT_EQ(encoded.pictures.size(), 4u);
  Frames grouped;
  const SmSequenceParameterSet* table[32] = {};
  SmSequenceParameterSet sps;
  for (const Bytes& unit : AnnexBUnits(encoded.stream)) {
    std::vector<uint8_t> rbsp;
    ExtractPayload(unit.data() + 4, unit.size() - 4, rbsp);
    CmBitReader reader(rbsp.data(), rbsp.size());
    const int type = unit[3] & 0x1F;
    if (type == 7) {
      ASSERT_EQ(ParseSequenceParameterSet(reader, sps), ParseOk);
      table[sps.id] = &sps;
    }
    if (type != 8) {
      grouped.push_back(unit);
      continue;
    }
    SmPictureParameterSet pps;
    ASSERT_EQ(ParsePictureParameterSet(reader, table, pps), ParseOk);
    ASSERT_FALSE(pps.transform8x8Mode || pps.entropyCodingMode);
    NmTestSupport::SmWriterPps written;
    written.id = pps.id;
    written.spsId = pps.spsId;
    written.bottomFieldPicOrderInFramePresent = pps.bottomFieldPicOrderInFramePresent;
    written.numRefIdxActive[0] = pps.numRefIdxActive[0];
    written.numRefIdxActive[1] = pps.numRefIdxActive[1];
    written.weightedPred = pps.weightedPred;
    written.weightedBipredIdc = pps.weightedBipredIdc;
    written.picInitQp = pps.picInitQp;
    written.chromaQpIndexOffset = pps.chromaQpIndexOffset;
    written.deblockingControl = pps.deblockingFilterControlPresent;
    written.constrainedIntraPred = pps.constrainedIntraPred;
    written.numSliceGroups = 2;
    written.mapType = 6;
    written.sliceGroupId = {0, 0, 0, 1, 1, 1, 0, 0};
    NmTestSupport::CmH264StreamWriter writer;
    writer.WritePps(written);
    grouped.push_back(writer.AnnexB());
  }
  ASSERT_EQ(grouped.size(), AnnexBUnits(encoded.stream).size());
  const SmSupplied ours = DecodeWithSupplier(grouped);
  EXPECT_TRUE(ours.allAccepted);
  ExpectSameFrames(ours.pictures, encoded.pictures);
}
