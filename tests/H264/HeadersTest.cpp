// What the sequence parameter sets say beyond the samples, against ffprobe:
// the visible size after cropping, the sample aspect ratio and the level.
// Everything else the headers carry shows in the decoded pictures, which the
// decode tests compare with ffmpeg's sample for sample.

#include <gtest/gtest.h>

#include <string>

#include "Codecs/H264/NalUnits.h"
#include "Codecs/H264/ParameterSets.h"
#include "H264/ReferenceDecoding.h"

using namespace NmH264;
using namespace NmH264Test;

TEST(H264Headers, SequenceParameterSetsAgreeWithFfprobe) {
  REQUIRE_FFMPEG();
  const struct {
    const char* size;
    const char* options;
    const char* sar; // the sample aspect ratio given to the encoder
  } cases[] = {
      // Cropping and a sample aspect ratio of its own.
      {"100x60", "profile=baseline:slices=3:ref=4:keyint=5", "5/3"},
      // High profile; a square sample aspect.
      {"96x64", "cabac=0:bframes=3:8x8dct=1:cqm=jvt:ref=5", "1/1"},
      // A sample aspect ratio from the table.
      {"64x48", "cabac=0:intra-refresh=1:keyint=6", "12/11"},
  };
  NmTestSupport::CmTempDirectory directory;
  for (const auto& c : cases) {
    SCOPED_TRACE(c.options);
    const SmEncoded clip =
        EncodeWithX264({c.size, "yuv420p", c.options, 3, "medium", std::string("setsar=") + c.sar});
    const std::string path = directory / "stream.264";
    ASSERT_TRUE(NmTestSupport::WriteBytes(path, clip.stream));
    SmSequenceParameterSet sps;
    for (const Bytes& unit : AnnexBUnits(clip.stream)) {
      if ((unit[3] & 0x1F) == NalSequenceParameterSet) {
        std::vector<uint8_t> rbsp;
        ExtractPayload(unit.data() + 4, unit.size() - 4, rbsp);
        CmBitReader reader(rbsp.data(), rbsp.size());
        ASSERT_EQ(ParseSequenceParameterSet(reader, sps), ParseOk);
      }
    }
    // ffprobe lists the fields in its own order.
    const std::string ours =
        std::to_string(sps.GetVisibleWidth()) + " " + std::to_string(sps.GetVisibleHeight()) + " " +
        std::to_string(sps.vui.sarWidth) + ":" + std::to_string(sps.vui.sarHeight) + " " +
        std::to_string(sps.levelIdc) + "\n";
    ASSERT_TRUE(NmTestSupport::Run("(ffprobe -v error -select_streams v:0 -show_entries "
                                   "stream=width,height,level,sample_aspect_ratio -of "
                                   "default=nw=1:nk=1 '" +
                                   path + "' | paste -sd' ' > '" + path + ".txt')"));
    const Bytes theirs = NmTestSupport::ReadBytes(path + ".txt");
    EXPECT_EQ(ours, std::string(theirs.begin(), theirs.end()));
  }
}
