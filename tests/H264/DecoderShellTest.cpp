#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "Codecs/H264/H264VideoDecoder.h"
#include "Codecs/MCL/MediaData.h"
#include "Codecs/MCL/VideoData.h"
#include "Codecs/MCL/VideoDecoderParams.h"
#include "Codecs/MCL/VideoProcessing.h"
#include "support/ExternalTools.h"

using NmTestSupport::CmTempDirectory;

namespace {

// Keeps each picture's visible samples, planar, with its time.
class CmPictureCollector : public MCL::VideoProcessing {
public:
  MCL::Status GetFrame(MCL::MediaData* input, MCL::MediaData*) override {
    const auto* picture = dynamic_cast<MCL::VideoData*>(input);
    if (picture == nullptr) {
      return MCL::StatusNullPointer;
    }
    std::vector<uint8_t> samples;
    for (int c = 0; c < picture->GetPlaneCount(); ++c) {
      for (int32_t y = 0; y < picture->GetPlaneHeight(c); ++y) {
        const uint8_t* row = picture->GetPlanePointer(c) + y * picture->GetPlanePitch(c);
        samples.insert(samples.end(), row, row + picture->GetPlaneWidth(c));
      }
    }
    pictures.push_back(std::move(samples));
    times.push_back(picture->GetTime());
    return MCL::StatusOk;
  }

  std::vector<std::vector<uint8_t>> pictures;
  std::vector<double> times;
};

// Every picture of an Annex B stream given as one buffer, then flushed.
std::vector<std::vector<uint8_t>> DecodeWhole(std::vector<uint8_t> bytes) {
  MCL::H264VideoDecoder decoder;
  CmPictureCollector collector;
  MCL::H264VideoDecoderParams params;
  EXPECT_EQ(decoder.Init(&params), MCL::StatusOk);
  decoder.SetPostProcessing(&collector);
  MCL::MediaData input;
  input.SetBufferPointer(bytes.data(), bytes.size());
  input.SetDataSize(bytes.size());
  MCL::VideoData output;
  for (int calls = 0; input.GetDataSize() >= 4 && calls < 1000; ++calls) {
    decoder.GetFrame(&input, &output);
  }
  while (decoder.GetFrame(nullptr, &output) == MCL::StatusOk) {
  }
  return collector.pictures;
}

// The units of an Annex B stream, each with its start code.
std::vector<std::vector<uint8_t>> Units(const std::vector<uint8_t>& bytes) {
  std::vector<size_t> starts;
  for (size_t i = 0; i + 3 < bytes.size(); ++i) {
    if (bytes[i] == 0 && bytes[i + 1] == 0 && bytes[i + 2] == 1) {
      starts.push_back(i);
    }
  }
  starts.push_back(bytes.size());
  std::vector<std::vector<uint8_t>> units;
  for (size_t u = 0; u + 1 < starts.size(); ++u) {
    units.emplace_back(bytes.begin() + static_cast<std::ptrdiff_t>(starts[u]),
                       bytes.begin() + static_cast<std::ptrdiff_t>(starts[u + 1]));
  }
  return units;
}

} // namespace

// Parameter sets may be repeated anywhere, even between the slices of one
// picture: an unchanged copy ends no picture.
TEST(H264DecoderShell, RepeatedParameterSetsBetweenSlicesChangeNothing) {
  if (!NmTestSupport::HaveProgram("ffmpeg")) {
    GTEST_SKIP() << "ffmpeg is not installed";
  }
  CmTempDirectory directory;
  const std::string stream = directory / "slices.264";
  ASSERT_TRUE(NmTestSupport::Run(
      "ffmpeg -y -v error -f lavfi -i testsrc2=size=64x48:rate=25 -frames:v 6 -pix_fmt yuv420p "
      "-c:v libx264 -x264-params 'cabac=0:bframes=0:slices=3:keyint=3' -f h264 '" +
      stream + "'"));
  const std::vector<uint8_t> bytes = NmTestSupport::ReadBytes(stream);
  const auto plain = DecodeWhole(bytes);
  ASSERT_EQ(plain.size(), 6u);
  std::vector<uint8_t> sequence, picture, repeated;
  for (const auto& unit : Units(bytes)) {
    const int type = unit[3] & 0x1F;
    sequence = type == 7 ? unit : sequence;
    picture = type == 8 ? unit : picture;
    // Before every slice that is not the first of its picture (first_mb 0
    // begins with a 1 bit).
    if ((type == 1 || type == 5) && (unit[4] & 0x80) == 0) {
      repeated.insert(repeated.end(), sequence.begin(), sequence.end());
      repeated.insert(repeated.end(), picture.begin(), picture.end());
    }
    repeated.insert(repeated.end(), unit.begin(), unit.end());
  }
  ASSERT_GT(repeated.size(), bytes.size() + 100);
  EXPECT_EQ(DecodeWhole(repeated), plain);
}

// The whole stream in one buffer, more pictures than the frame store holds:
// the decoder takes what it can, gives a picture out whenever it needs room,
// and leaves the rest of the buffer for the next call. Nothing is lost, the
// pictures are ffmpeg's, and with a time for each buffer fed piece by piece
// the pictures leave with rising times in display order.
TEST(H264DecoderShell, ABufferOfManyPicturesIsTakenInTurnsWithoutLoss) {
  if (!NmTestSupport::HaveProgram("ffmpeg")) {
    GTEST_SKIP() << "ffmpeg is not installed";
  }
  CmTempDirectory directory;
  const std::string stream = directory / "pyramid.264";
  const std::string decoded = directory / "pyramid.yuv";
  constexpr size_t Frames = 40;
  ASSERT_TRUE(NmTestSupport::Run(
      "ffmpeg -y -v error -f lavfi -i testsrc2=size=64x48:rate=25 -frames:v 40 -pix_fmt yuv420p "
      "-c:v libx264 -x264-params 'cabac=0:bframes=3:b-pyramid=normal:ref=2:keyint=40:aud=1' -f "
      "h264 '" +
      stream + "'"));
  ASSERT_TRUE(NmTestSupport::Run("ffmpeg -y -v error -i '" + stream +
                                 "' -f rawvideo -pix_fmt yuv420p '" + decoded + "'"));
  std::vector<uint8_t> bytes = NmTestSupport::ReadBytes(stream);
  const std::vector<uint8_t> expected = NmTestSupport::ReadBytes(decoded);
  ASSERT_EQ(expected.size(), Frames * 64 * 48 * 3 / 2);

  MCL::H264VideoDecoder decoder;
  CmPictureCollector collector;
  MCL::H264VideoDecoderParams params;
  ASSERT_EQ(decoder.Init(&params), MCL::StatusOk);
  decoder.SetPostProcessing(&collector);
  MCL::MediaData input;
  input.SetBufferPointer(bytes.data(), bytes.size());
  input.SetDataSize(bytes.size());
  MCL::VideoData output;
  int calls = 0;
  while (input.GetDataSize() >= 4 && calls++ < 1000) {
    const MCL::Status status = decoder.GetFrame(&input, &output);
    ASSERT_TRUE(status == MCL::StatusOk || status == MCL::StatusNotEnoughData) << status;
  }
  EXPECT_LT(collector.pictures.size(), Frames) << "the store cannot hold them all at once";
  while (decoder.GetFrame(nullptr, &output) == MCL::StatusOk) {
  }
  const size_t frameSize = expected.size() / Frames;
  const auto expectPictures = [&] {
    ASSERT_EQ(collector.pictures.size(), Frames);
    for (size_t f = 0; f < Frames; ++f) {
      EXPECT_TRUE(std::equal(collector.pictures[f].begin(), collector.pictures[f].end(),
                             expected.begin() + static_cast<std::ptrdiff_t>(f * frameSize)))
          << "picture " << f;
    }
  };
  expectPictures();

  // One access unit a buffer, cut at the delimiters, each with the next time.
  ASSERT_EQ(decoder.Reset(), MCL::StatusOk);
  collector.pictures.clear();
  collector.times.clear();
  std::vector<size_t> starts;
  for (size_t i = 0; i + 4 < bytes.size(); ++i) {
    if (bytes[i] == 0 && bytes[i + 1] == 0 && bytes[i + 2] == 1 && (bytes[i + 3] & 0x1F) == 9) {
      starts.push_back(i);
    }
  }
  ASSERT_EQ(starts.size(), Frames);
  starts.push_back(bytes.size());
  for (size_t unit = 0; unit < Frames; ++unit) {
    input.SetBufferPointer(bytes.data() + starts[unit], starts[unit + 1] - starts[unit]);
    input.SetDataSize(starts[unit + 1] - starts[unit]);
    input.SetTime(1.0 + 0.04 * static_cast<double>(unit));
    decoder.GetFrame(&input, &output);
    EXPECT_EQ(input.GetDataSize(), 0u);
  }
  while (decoder.GetFrame(nullptr, &output) == MCL::StatusOk) {
  }
  expectPictures();
  for (size_t f = 0; f < collector.times.size(); ++f) {
    EXPECT_DOUBLE_EQ(collector.times[f], 1.0 + 0.04 * static_cast<double>(f)) << f;
  }
}

// Low delay shows each picture as soon as its access unit is in. A stream
// without reordering keeps it and comes out in full, one picture a unit; one
// with B pictures turns it off at the first picture that comes before one
// shown, and from there pictures wait for their turn: none is lost.
TEST(H264DecoderShell, LowDelayHoldsUntilAPictureComesOutOfOrder) {
  if (!NmTestSupport::HaveProgram("ffmpeg")) {
    GTEST_SKIP() << "ffmpeg is not installed";
  }
  CmTempDirectory directory;
  constexpr size_t Frames = 12;
  for (const bool reorders : {false, true}) {
    SCOPED_TRACE(reorders ? "B pictures" : "I and P pictures");
    const std::string stream = directory / "low.264";
    const std::string decoded = directory / "low.yuv";
    ASSERT_TRUE(NmTestSupport::Run(
        std::string("ffmpeg -y -v error -f lavfi -i testsrc2=size=48x32:rate=25 -frames:v 12 "
                    "-pix_fmt yuv420p -c:v libx264 -x264-params 'cabac=0:aud=1:keyint=6:bframes=") +
        (reorders ? "2" : "0") + "' -f h264 '" + stream + "'"));
    ASSERT_TRUE(NmTestSupport::Run("ffmpeg -y -v error -i '" + stream +
                                   "' -f rawvideo -pix_fmt yuv420p '" + decoded + "'"));
    std::vector<uint8_t> bytes = NmTestSupport::ReadBytes(stream);
    const std::vector<uint8_t> expected = NmTestSupport::ReadBytes(decoded);
    const size_t frameSize = 48 * 32 * 3 / 2;
    ASSERT_EQ(expected.size(), Frames * frameSize);
    std::vector<size_t> starts;
    for (size_t i = 0; i + 4 < bytes.size(); ++i) {
      if (bytes[i] == 0 && bytes[i + 1] == 0 && bytes[i + 2] == 1 && (bytes[i + 3] & 0x1F) == 9) {
        starts.push_back(i);
      }
    }
    ASSERT_EQ(starts.size(), Frames);
    starts.push_back(bytes.size());

    MCL::H264VideoDecoder decoder;
    CmPictureCollector collector;
    MCL::H264VideoDecoderParams params;
    params.flags = MCL::VideoDecoderParams::FlagBase | MCL::VideoDecoderParams::FlagLowDelay;
    ASSERT_EQ(decoder.Init(&params), MCL::StatusOk);
    decoder.SetPostProcessing(&collector);
    MCL::MediaData input;
    MCL::VideoData output;
    size_t shownAtOnce = 0;
    for (size_t unit = 0; unit < Frames; ++unit) {
      input.SetBufferPointer(bytes.data() + starts[unit], starts[unit + 1] - starts[unit]);
      input.SetDataSize(starts[unit + 1] - starts[unit]);
      shownAtOnce += decoder.GetFrame(&input, &output) == MCL::StatusOk;
    }
    while (decoder.GetFrame(nullptr, &output) == MCL::StatusOk) {
    }
    ASSERT_EQ(collector.pictures.size(), Frames);
    if (!reorders) {
      EXPECT_EQ(shownAtOnce, Frames);
    }
    // With B pictures: the I picture, then the first P picture too early;
    // every picture after those in its place.
    std::vector<std::vector<uint8_t>> wanted;
    for (size_t f = 0; f < Frames; ++f) {
      const auto begin = expected.begin() + static_cast<std::ptrdiff_t>(f * frameSize);
      wanted.emplace_back(begin, begin + static_cast<std::ptrdiff_t>(frameSize));
    }
    if (reorders) {
      EXPECT_GE(shownAtOnce, 2u);
      EXPECT_LT(shownAtOnce, Frames);
      ASSERT_EQ(collector.pictures[0], wanted[0]);
      wanted.erase(wanted.begin());
      const auto early = std::find(wanted.begin(), wanted.end(), collector.pictures[1]);
      ASSERT_NE(early, wanted.end()) << "the picture shown early is one of the stream's";
      wanted.erase(early);
    } else {
      EXPECT_EQ(collector.pictures, wanted);
      continue;
    }
    EXPECT_EQ(
        std::vector<std::vector<uint8_t>>(collector.pictures.begin() + 2, collector.pictures.end()),
        wanted);
  }
}

// What this decoder does not decode yet gives no picture and the status of a
// stream it cannot go on with; a stream it decodes works again after a reset.
TEST(H264DecoderShell, CodingNotDecodedYetGivesNoPictureButAStatus) {
  if (!NmTestSupport::HaveProgram("ffmpeg")) {
    GTEST_SKIP() << "ffmpeg is not installed";
  }
  CmTempDirectory directory;
  const auto encode = [&](const std::string& pixelFormat, const std::string& settings) {
    const std::string stream = directory / "kind.264";
    EXPECT_TRUE(NmTestSupport::Run(
        "ffmpeg -y -v error -f lavfi -i testsrc2=size=64x48:rate=25 -frames:v 2 -pix_fmt " +
        pixelFormat + " -c:v libx264 -x264-params '" + settings + "' -f h264 '" + stream + "'"));
    return NmTestSupport::ReadBytes(stream);
  };
  MCL::H264VideoDecoder decoder;
  CmPictureCollector collector;
  MCL::H264VideoDecoderParams params;
  ASSERT_EQ(decoder.Init(&params), MCL::StatusOk);
  decoder.SetPostProcessing(&collector);
  const auto decode = [&](std::vector<uint8_t> bytes) {
    MCL::MediaData input;
    input.SetBufferPointer(bytes.data(), bytes.size());
    input.SetDataSize(bytes.size());
    MCL::VideoData output;
    const MCL::Status status = decoder.GetFrame(&input, &output);
    while (decoder.GetFrame(nullptr, &output) == MCL::StatusOk) {
    }
    return status;
  };
  const std::pair<const char*, const char*> kinds[] = {
      {"yuv420p", "cabac=1:interlaced=1"},
      {"yuv420p10le", "cabac=0"},
      {"yuv422p", "cabac=0"},
      {"yuv444p", "cabac=0"},
      {"yuv420p", "cabac=0:qp=0"},
  };
  for (const auto& [pixelFormat, settings] : kinds) {
    SCOPED_TRACE(std::string(pixelFormat) + " " + settings);
    EXPECT_EQ(decode(encode(pixelFormat, settings)), MCL::StatusInvalidStreamSync);
    EXPECT_TRUE(collector.pictures.empty());
    ASSERT_EQ(decoder.Reset(), MCL::StatusOk);
  }
  decode(encode("yuv420p", "cabac=0"));
  EXPECT_EQ(collector.pictures.size(), 2u);
  decode(encode("yuv420p", "cabac=1"));
  EXPECT_EQ(collector.pictures.size(), 4u);
}

// A stream whose size changes at an IDR while pictures of the old size still
// wait for their turn: each leaves with its own size and crop.
TEST(H264DecoderShell, PicturesLeaveWithTheSizeOfTheirOwnSequence) {
  if (!NmTestSupport::HaveProgram("ffmpeg")) {
    GTEST_SKIP() << "ffmpeg is not installed";
  }
  CmTempDirectory directory;
  std::vector<uint8_t> joined;
  std::vector<std::vector<uint8_t>> expected;
  for (const char* size : {"62x46", "100x60"}) {
    const std::string stream = directory / "part.264";
    const std::string decoded = directory / "part.yuv";
    ASSERT_TRUE(
        NmTestSupport::Run(std::string("ffmpeg -y -v error -f lavfi -i testsrc2=size=") + size +
                           ":rate=25 -frames:v 6 -pix_fmt yuv420p -c:v libx264 -x264-params "
                           "'cabac=0:bframes=2:b-pyramid=none' -f h264 '" +
                           stream + "'"));
    ASSERT_TRUE(NmTestSupport::Run("ffmpeg -y -v error -i '" + stream +
                                   "' -f rawvideo -pix_fmt yuv420p '" + decoded + "'"));
    const std::vector<uint8_t> part = NmTestSupport::ReadBytes(stream);
    joined.insert(joined.end(), part.begin(), part.end());
    const std::vector<uint8_t> pictures = NmTestSupport::ReadBytes(decoded);
    const size_t frameSize = pictures.size() / 6;
    for (size_t f = 0; f < 6; ++f) {
      expected.emplace_back(pictures.begin() + static_cast<std::ptrdiff_t>(f * frameSize),
                            pictures.begin() + static_cast<std::ptrdiff_t>((f + 1) * frameSize));
    }
  }
  EXPECT_EQ(DecodeWhole(joined), expected);
}
