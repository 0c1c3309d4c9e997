#include <gtest/gtest.h>

#include <array>
#include <memory>
#include <string>
#include <vector>

#include "Codecs/H264/NalUnits.h"
#include "Codecs/H264/ParameterSets.h"
#include "Codecs/H264/TaskSupplier.h"
#include "H264/VisibleSamples.h"
#include "support/ExternalTools.h"

using namespace NmH264;
using NmTestSupport::CmTempDirectory;

namespace {

// Decodes an Annex B stream through the task supplier, one unit at a time,
// and returns each picture's visible samples, planar, in output order.
std::vector<std::vector<uint8_t>> DecodeStream(const std::vector<uint8_t>& stream,
                                               bool& allDecoded) {
  MCL::TaskSupplier supplier(MCL::SmTaskSupplierSettings{});
  std::vector<std::vector<uint8_t>> pictures;
  const auto take = [&](bool force) {
    while (MCL::H264DecoderFrame* frame = supplier.GetFrameToDisplay(force)) {
      pictures.push_back(NmH264Test::VisibleSamples(*frame, *supplier.GetActiveSequence()));
    }
  };
  size_t position = 0;
  SmNalUnit unit;
  allDecoded = true;
  while (NextAnnexBUnit(stream.data(), stream.size(), position, true, unit)) {
    allDecoded = supplier.AddSource(unit.data - 3, unit.size + 3, -1.0, -1) == 0 && allDecoded;
    take(false);
  }
  supplier.Flush();
  take(true);
  return pictures;
}

} // namespace

TEST(H264Decode, PicturesEqualTheReferenceDecoder) {
  if (!NmTestSupport::HaveProgram("ffmpeg")) {
    GTEST_SKIP() << "ffmpeg is not installed";
  }
  CmTempDirectory directory;
  struct SmCase {
    const char* size;
    const char* pixelFormat;
    const char* options;
    int frames = 10;
  } cases[] = {
      {"64x48", "yuv420p", "cabac=0:8x8dct=0:keyint=1:no-deblock=1:qp=30"},
      {"64x48", "yuv420p", "cabac=0:8x8dct=0:keyint=1:qp=30"},
      {"100x60", "yuv420p", "cabac=0:keyint=1:8x8dct=1:qp=20:slices=3"},
      {"96x64", "yuv420p",
       "cabac=0:keyint=1:8x8dct=1:cqm=jvt:qp=36:chroma-qp-offset=5:deblock=3,-2"},
      {"80x48", "yuv420p", "cabac=0:keyint=1:qp=1:deblock=-3,4"},
      {"80x48", "yuv420p", "cabac=0:keyint=1:qp=51:8x8dct=1"},
      {"64x64", "gray", "cabac=0:keyint=1:qp=24:8x8dct=1"},
      // P frames: one reference, then several with every partition size.
      {"64x48", "yuv420p", "cabac=0:bframes=0:ref=1:weightp=0:qp=26"},
      {"96x64", "yuv420p", "cabac=0:bframes=0:ref=4:weightp=0:partitions=all:8x8dct=1:qp=30"},
      {"100x60", "yuv420p",
       "cabac=0:bframes=0:ref=3:weightp=0:partitions=all:8x8dct=0:slices=2:qp=22"},
      {"64x64", "gray", "cabac=0:bframes=0:ref=2:weightp=0:qp=28"},
      // Weighted prediction of P frames.
      {"96x64", "yuv420p", "cabac=0:bframes=0:ref=3:weightp=2:qp=26"},
      // B frames: spatial and temporal direct, pyramids, implicit and
      // explicit weights.
      {"176x144", "yuv420p", "cabac=0:bframes=2:b-pyramid=none:direct=spatial:weightb=0:qp=26"},
      {"96x64", "yuv420p",
       "cabac=0:bframes=3:b-pyramid=normal:direct=temporal:weightb=1:ref=4:qp=28"},
      {"100x60", "yuv420p",
       "cabac=0:bframes=3:b-pyramid=strict:direct=spatial:weightb=1:partitions=all:8x8dct=1:qp=24"},
      // Constrained Baseline with many slices and references; 16 references
      // under a B pyramid; open groups; intra refresh; constrained intra; a
      // picture of 720 lines.
      {"176x144", "yuv420p", "cabac=0:bframes=0:8x8dct=0:weightp=0:ref=8:slices=4:keyint=12", 24},
      {"64x48", "yuv420p", "cabac=0:bframes=3:b-pyramid=normal:ref=16:keyint=40:qp=30", 36},
      {"64x48", "yuv420p", "cabac=0:bframes=2:open-gop=1:keyint=8:min-keyint=8:scenecut=0", 24},
      {"96x64", "yuv420p", "cabac=0:bframes=0:keyint=8:intra-refresh=1", 20},
      {"96x64", "yuv420p", "cabac=0:bframes=2:constrained-intra=1:qp=20", 10},
      {"1280x720", "yuv420p", "cabac=0:bframes=2:ref=2", 3},
  };
  for (const SmCase& c : cases) {
    SCOPED_TRACE(std::string(c.options) + " " + c.pixelFormat);
    const std::string stream = directory / "intra.264";
    const std::string decoded = directory / "intra.yuv";
    ASSERT_TRUE(NmTestSupport::Run(std::string("ffmpeg -y -f lavfi -i testsrc2=size=") + c.size +
                                   ":rate=25 -frames:v " + std::to_string(c.frames) + " -pix_fmt " +
                                   c.pixelFormat + " -c:v libx264 -x264-params '" + c.options +
                                   "' -f h264 '" + stream + "'"));
    ASSERT_TRUE(NmTestSupport::Run("ffmpeg -y -i '" + stream + "' -f rawvideo -pix_fmt " +
                                   c.pixelFormat + " '" + decoded + "'"));
    bool allDecoded = false;
    const auto pictures = DecodeStream(NmTestSupport::ReadBytes(stream), allDecoded);
    EXPECT_TRUE(allDecoded);
    const std::vector<uint8_t> expected = NmTestSupport::ReadBytes(decoded);
    ASSERT_EQ(pictures.size(), static_cast<size_t>(c.frames));
    const size_t frameSize = expected.size() / pictures.size();
    for (size_t i = 0; i < pictures.size(); ++i) {
      ASSERT_EQ(pictures[i].size(), frameSize);
      const std::vector<uint8_t> reference(
          expected.begin() + static_cast<std::ptrdiff_t>(i * frameSize),
          expected.begin() + static_cast<std::ptrdiff_t>((i + 1) * frameSize));
      size_t firstDifference = 0;
      while (firstDifference < frameSize &&
             pictures[i][firstDifference] == reference[firstDifference]) {
        ++firstDifference;
      }
      EXPECT_EQ(firstDifference, frameSize) << "picture " << i;
    }
  }
}
