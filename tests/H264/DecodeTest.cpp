#include <gtest/gtest.h>

#include <array>
#include <memory>
#include <string>
#include <vector>

#include "Codecs/H264/NalUnits.h"
#include "Codecs/H264/ParameterSets.h"
#include "Codecs/H264/TaskSupplier.h"
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
      const SmSequenceParameterSet& sps = *supplier.GetActiveSequence();
      const CmPicture& picture = frame->GetPicture();
      std::vector<uint8_t> out;
      for (int c = 0; c < (picture.IsMonochrome() ? 1 : 3); ++c) {
        const uint32_t shift = c == 0 ? 0 : 1;
        for (uint32_t y = sps.cropTop >> shift; y < (sps.GetHeight() - sps.cropBottom) >> shift;
             ++y) {
          const uint8_t* row = picture.GetPlane(c) + y * picture.GetStride(c);
          out.insert(out.end(), row + (sps.cropLeft >> shift),
                     row + ((sps.GetWidth() - sps.cropRight) >> shift));
        }
      }
      pictures.push_back(std::move(out));
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

struct SmEncoding {
  const char* size;
  const char* pixelFormat;
  const char* options;
  int frames = 10;
  const char* preset = "medium";
};

// Encodes testsrc2 with x264 for each case and expects every picture to
// equal ffmpeg's decode of the same stream, sample for sample.
void ExpectSameAsReference(const std::vector<SmEncoding>& cases) {
  CmTempDirectory directory;
  for (const SmEncoding& c : cases) {
    SCOPED_TRACE(std::string(c.options) + " " + c.pixelFormat + " " + c.size + " " + c.preset);
    const std::string stream = directory / "clip.264";
    const std::string decoded = directory / "clip.yuv";
    const size_t frames = static_cast<size_t>(c.frames);
    ASSERT_TRUE(NmTestSupport::Run(std::string("ffmpeg -y -f lavfi -i testsrc2=size=") + c.size +
                                   ":rate=25 -frames:v " + std::to_string(c.frames) +
                                   " -pix_fmt " + c.pixelFormat + " -c:v libx264 -preset " +
                                   c.preset + " -x264-params '" +
                                   c.options + "' -f h264 '" + stream + "'"));
    ASSERT_TRUE(NmTestSupport::Run("ffmpeg -y -i '" + stream + "' -f rawvideo -pix_fmt " +
                                   c.pixelFormat + " '" + decoded + "'"));
    bool allDecoded = false;
    const auto pictures = DecodeStream(NmTestSupport::ReadBytes(stream), allDecoded);
    EXPECT_TRUE(allDecoded);
    const std::vector<uint8_t> expected = NmTestSupport::ReadBytes(decoded);
    ASSERT_EQ(pictures.size(), frames);
    const size_t frameSize = expected.size() / frames;
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

} // namespace

TEST(H264Decode, PicturesEqualTheReferenceDecoder) {
  if (!NmTestSupport::HaveProgram("ffmpeg")) {
    GTEST_SKIP() << "ffmpeg is not installed";
  }
  ExpectSameAsReference({
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
  });
}

TEST(H264Decode, CabacPicturesEqualTheReferenceDecoder) {
  if (!NmTestSupport::HaveProgram("ffmpeg")) {
    GTEST_SKIP() << "ffmpeg is not installed";
  }
  ExpectSameAsReference({
      // I slices: 4x4, 8x8 and 16x16 prediction, PCM at the lowest
      // quantisers, scaling matrices, several slices, monochrome.
      {"64x48", "yuv420p", "keyint=1:8x8dct=0:qp=30"},
      {"100x60", "yuv420p", "keyint=1:8x8dct=1:qp=20:slices=3"},
      {"96x64", "yuv420p", "keyint=1:8x8dct=1:cqm=jvt:qp=36:chroma-qp-offset=5:deblock=3,-2"},
      {"80x48", "yuv420p", "keyint=1:qp=1"},
      {"80x48", "yuv420p", "keyint=1:qp=51:8x8dct=1"},
      {"64x64", "gray", "keyint=1:qp=24:8x8dct=1"},
      // P slices.
      {"64x48", "yuv420p", "bframes=0:ref=1:weightp=0:qp=26"},
      {"96x64", "yuv420p", "bframes=0:ref=4:weightp=0:partitions=all:8x8dct=1:qp=30"},
      {"100x60", "yuv420p", "bframes=0:ref=3:weightp=0:partitions=all:8x8dct=0:slices=2:qp=22"},
      {"64x64", "gray", "bframes=0:ref=2:weightp=0:qp=28:8x8dct=1"},
      {"96x64", "yuv420p", "bframes=0:ref=3:weightp=2:qp=26"},
      // B slices.
      {"176x144", "yuv420p", "bframes=2:b-pyramid=none:direct=spatial:weightb=0:qp=26"},
      {"96x64", "yuv420p", "bframes=3:b-pyramid=normal:direct=temporal:weightb=1:ref=4:qp=28"},
      {"100x60", "yuv420p",
       "bframes=3:b-pyramid=strict:direct=spatial:weightb=1:partitions=all:8x8dct=1:qp=24"},
      {"64x64", "gray", "bframes=2:direct=temporal:ref=2:qp=20:8x8dct=1"},
      // Odd sizes, intra refresh, quantisers from the lowest to the
      // highest, with and without trellis.
      {"58x38", "yuv420p", "bframes=2:ref=2:qp=3:trellis=2"},
      {"70x50", "yuv420p", "bframes=0:intra-refresh=1:keyint=4:qp=20"},
      {"80x48", "yuv420p", "bframes=1:qp=51"},
      {"80x48", "yuv420p", "bframes=2:crf=10:cqm=jvt:8x8dct=1:weightp=1"},
      {"96x80", "yuv420p", "bframes=3:b-adapt=2:b-pyramid=normal:crf=30:slices=4:ref=5"},
  });
}

// The encoder's presets span its choices of partitions, references, B
// pictures and decisions.
TEST(H264Decode, CabacPresetsEqualTheReferenceDecoder) {
  if (!NmTestSupport::HaveProgram("ffmpeg")) {
    GTEST_SKIP() << "ffmpeg is not installed";
  }
  std::vector<SmEncoding> cases;
  for (const char* preset : {"ultrafast", "superfast", "veryfast", "faster", "fast", "medium",
                             "slow", "slower", "veryslow"}) {
    // ultrafast turns CABAC off; it comes back on here.
    cases.push_back({"112x64", "yuv420p", "cabac=1:crf=24", 12, preset});
  }
  ExpectSameAsReference(cases);
}
