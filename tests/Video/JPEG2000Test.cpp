#include <gtest/gtest.h>

#include <random>

#include "Image/ImageFixtures.h"
#include "MediaProcessing/Video/GenericVideoDecoder.h"
#include "MediaProcessing/Video/JPEG2000/OpenJPEG2000.h"
#include "MediaProcessing/Video/JPEG2000/VideoAnalyzerJPEG2000.h"
#include "MediaProcessing/Video/JPEG2000/VideoDecoderJPEG2000.h"
#include "MediaProcessing/Video/StreamAnalyzer.h"
#include "support/ExternalTools.h"
#include "support/GenericByteDataBuilder.h"
#include "support/ImageTestSupport.h"

using namespace NmMediaProcessing;
using namespace NmTestSupport;
using NmImageTest::ExpectError;

namespace {

constexpr int64_t T0 = 1700000000000;

std::unique_ptr<ImThirdPartyJPEG2000> MakeDummy() {
  return std::make_unique<CmDummyJPEG2000>();
}

// A picture as a camera gives it: smooth shapes under sensor noise, in the
// planar layout of ffmpeg's raw formats ("gray", "rgb24", "yuv420p" or
// "yuv422p"), channels of packed formats counted as samples.
CmBytes MakePicture(const std::string& pixelFormat, uint64_t width, uint64_t height) {
  const uint64_t cw = (width + 1) / 2;
  const uint64_t ch = pixelFormat == "yuv420p" ? (height + 1) / 2 : height;
  const std::vector<std::pair<uint64_t, uint64_t>> planes =
      pixelFormat == "gray" ? std::vector<std::pair<uint64_t, uint64_t>>{{width, height}}
      : pixelFormat == "rgb24"
          ? std::vector<std::pair<uint64_t, uint64_t>>{{width * 3, height}}
          : std::vector<std::pair<uint64_t, uint64_t>>{{width, height}, {cw, ch}, {cw, ch}};
  std::mt19937 random(11);
  std::normal_distribution<double> noise(0.0, 6.0);
  CmBytes bytes;
  for (size_t i = 0; i < planes.size(); ++i) {
    for (uint64_t y = 0; y < planes[i].second; ++y) {
      for (uint64_t x = 0; x < planes[i].first; ++x) {
        const double base = 128 + 80 * std::sin(0.05 * x + 0.3 * i) * std::cos(0.07 * y);
        bytes.push_back(static_cast<uint8_t>(std::clamp(base + noise(random), 0.0, 255.0)));
      }
    }
  }
  return bytes;
}

// The picture's samples as ffmpeg lays them out, from an image of ours.
CmBytes RawOf(const CmImage& image) {
  CmBytes out;
  for (const CmBytes& plane : NmImageTest::Planes(image)) {
    out.insert(out.end(), plane.begin(), plane.end());
  }
  return out;
}

int MaxDifference(const CmBytes& a, const CmBytes& b) {
  int worst = a.size() == b.size() ? 0 : 1000;
  for (size_t i = 0; i < std::min(a.size(), b.size()); ++i) {
    worst = std::max(worst, std::abs(int(a[i]) - int(b[i])));
  }
  return worst;
}

// A camera picture encoded with ffmpeg's JPEG 2000 encoder, and ffmpeg's
// decode of that, the oracle. ffmpeg is a dependency of the tests: without
// it they fail rather than pass unseen.
struct SmCodestream {
  CmBytes source;
  CmBytes codestream;
  CmBytes oracle;
};

SmCodestream EncodeWithFfmpeg(const std::string& pixelFormat, uint64_t width, uint64_t height,
                              const std::string& options, const std::string& format = "j2k") {
  SmCodestream out{MakePicture(pixelFormat, width, height), {}, {}};
  CmTempDirectory directory;
  const std::string size = std::to_string(width) + "x" + std::to_string(height);
  const std::string file = directory / ("out." + format);
  if (WriteBytes(directory / "in.raw", out.source) &&
      Run("ffmpeg -y -f rawvideo -pix_fmt " + pixelFormat + " -s " + size + " -i " +
          (directory / "in.raw") + " -c:v jpeg2000 -format " + format + " " + options +
          " -frames:v 1 -f image2 " + file) &&
      Run("ffmpeg -y -i " + file + " -f rawvideo -pix_fmt " + pixelFormat + " " +
          (directory / "back.raw"))) {
    out.codestream = ReadBytes(file);
    out.oracle = ReadBytes(directory / "back.raw");
  }
  EXPECT_FALSE(out.codestream.empty());
  return out;
}

} // namespace

TEST(VideoDecoderJPEG2000, AdapterAroundACodecThatDecodesNothing) {
  CmVideoDecoderJPEG2000 decoder(MakeDummy);
  const uint8_t data[8] = {0xFF, 0x4F, 0xFF, 0x51, 0, 0, 0, 0};
  CmImage image;
  SmVideoDecodeResult result;
  result.m_ImageId = 5;
  result.m_CallAgain = true;
  EXPECT_FALSE(decoder.Decode(data, sizeof data, 3, NmTimeStamp::CmTimeStamp(), image, result) ||
               result.m_ImageProduced || result.m_CallAgain || image.IsValid());

  decoder.SetParameters({.m_ProduceImage = false});
  EXPECT_TRUE(decoder.Decode(data, sizeof data, 3, NmTimeStamp::CmTimeStamp(), image, result));
  EXPECT_EQ(result.m_ImageId, 3);
  EXPECT_FALSE(result.m_ImageProduced);

  // A flush has nothing to give; data without length is misuse.
  EXPECT_TRUE(decoder.Decode(nullptr, 0, 4, NmTimeStamp::CmTimeStamp(), image, result));
  EXPECT_EQ(result.m_ImageId, -1);
  ExpectError([&] { decoder.Decode(data, 0, 4, NmTimeStamp::CmTimeStamp(), image, result); },
              "Invalid source data length for non-NULL source data", 3,
              "NmMediaProcessing::CmVideoDecoderJPEG2000::Decode");

  CmVideoAnalyzerJPEG2000 analyzer(MakeDummy);
  SmVideoSize size{0, 0};
  EXPECT_FALSE(analyzer.Analyze(data, sizeof data, size));
  ExpectError([&] { analyzer.Analyze(data, 0, size); }, "Null input parameters given", 3,
              "NmMediaProcessing::CmVideoAnalyzerJPEG2000::Analyze");
  ExpectError([&] { analyzer.Analyze(nullptr, 8, size); }, "Null input parameters given", 3);

  CmDummyJPEG2000 dummy;
  EXPECT_FALSE(dummy.SetData(nullptr, 8) || dummy.SetData(data, 0));
  EXPECT_TRUE(dummy.SetData(data, 8));
}

TEST(OpenJPEG2000, PicturesMatchTheSourceAndFfmpegAlsoThroughTheGenericDecoder) {
  struct SmCase {
    const char* pixelFormat;
    uint64_t width;
    uint64_t height;
    const char* options;
    const char* container;
    ColorFormat expected;
    int worst; // against the oracle: the source itself when 0
  };
  const SmCase cases[] = {
      {"yuv420p", 67, 45, "-pred dwt53", "j2k", YCbCr420_Planar, 0},
      {"yuv422p", 40, 34, "-pred dwt53", "jp2", YCbCr422_Planar, 0},
      {"gray", 33, 17, "-pred dwt53", "j2k", Gray, 0},
      {"rgb24", 30, 22, "-pred dwt53", "jp2", RGB24, 0},
      // Several tiles, and the irreversible wavelet, whose rounding may differ
      // between decoders by a step.
      {"yuv420p", 300, 200, "-tile_width 128 -tile_height 64", "j2k", YCbCr420_Planar, 2},
  };
  for (const SmCase& c : cases) {
    SCOPED_TRACE(std::string(c.pixelFormat) + " " + c.options + " " + c.container);
    const SmCodestream encoded =
        EncodeWithFfmpeg(c.pixelFormat, c.width, c.height, c.options, c.container);
    CmOpenJPEG2000 codec;
    ASSERT_TRUE(codec.SetData(encoded.codestream.data(), encoded.codestream.size()));
    uint64_t width = 0;
    uint64_t height = 0;
    ASSERT_TRUE(codec.GetImageInfo(width, height)) << codec.GetLastMessage();
    EXPECT_EQ(std::make_pair(width, height), std::make_pair(c.width, c.height));
    CmImage image;
    ASSERT_TRUE(codec.DecodeImage(image)) << codec.GetLastMessage();
    EXPECT_EQ(image.GetColorFormat(), c.expected);
    EXPECT_LE(MaxDifference(RawOf(image), encoded.oracle), c.worst);
    if (c.worst == 0) {
      EXPECT_EQ(MaxDifference(RawOf(image), encoded.source), 0);
    }
  }

  const SmCodestream encoded = EncodeWithFfmpeg("yuv420p", 48, 32, "-pred dwt53");
  CmBytes bytes = BuildVideoPacket({.codec = 8,
                                    .sync = true,
                                    .imageForm = {.flippedHorizontally = true},
                                    .syncTime = T0,
                                    .frameTime = T0,
                                    .payload = encoded.codestream});
  const CmGenericByteData record(bytes.data(), bytes.size());
  CmVideoSizeKeyFrameStreamAnalyzer analyzer;
  SmVideoSize size;
  ASSERT_TRUE(analyzer.Analyze(record, size));
  EXPECT_EQ(size, (SmVideoSize{48, 32}));
  ASSERT_TRUE(
      analyzer.AnalyzeRawData(8, encoded.codestream.data(), encoded.codestream.size(), size));

  // Whole, then shrunk by whole factors (sizes below the factor give one
  // pixel), then not at all when no picture is wanted.
  CmGenericVideoDecoder decoder;
  for (const auto& [divisor, expected] : std::vector<std::pair<uint32_t, SmVideoSize>>{
           {1, {48, 32}}, {2, {24, 16}}, {5, {9, 6}}, {64, {1, 1}}, {0, {0, 0}}}) {
    SCOPED_TRACE(divisor);
    decoder.SetParameters(
        {.m_ProduceImage = divisor != 0, .m_ScaleDivisor = std::max(divisor, 1u)});
    CmImage image;
    bool callAgain = true;
    bool gotImage = false;
    ASSERT_TRUE(decoder.Decode(record, image, callAgain, gotImage));
    EXPECT_FALSE(callAgain);
    ASSERT_EQ(gotImage, divisor != 0);
    if (divisor == 0) {
      continue;
    }
    EXPECT_EQ((SmVideoSize{image.GetWidth(), image.GetHeight()}), expected);
    EXPECT_EQ(image.GetAttributes().timeStamp.GetMilliseconds(), T0);
    EXPECT_EQ(image.GetAttributes().attribute0, 1u);
    EXPECT_EQ(image.GetAttributes().attribute3, 0u);
    EXPECT_TRUE(image.GetAttributes().orientation.flippedHorizontally);
    if (divisor <= 2) {
      // Exact at full size; halving averages, so the mean brightness stays.
      const CmBytes raw = RawOf(image);
      const double pixels = static_cast<double>(expected.first * expected.second);
      EXPECT_NEAR(std::accumulate(raw.begin(), raw.begin() + pixels, 0.0) / pixels,
                  std::accumulate(encoded.source.begin(), encoded.source.begin() + 48 * 32, 0.0) /
                      (48 * 32),
                  divisor == 1 ? 0 : 1.5);
      EXPECT_TRUE(divisor != 1 || raw == encoded.source);
    }
  }
}

TEST(OpenJPEG2000, HostileCodestreamsFailWithoutHarm) {
  const CmBytes codestream = EncodeWithFfmpeg("yuv420p", 64, 48, "").codestream;
  CmVideoDecoderJPEG2000 decoder;
  CmVideoAnalyzerJPEG2000 analyzer;
  auto attempt = [&](const CmBytes& bytes) {
    CmImage image;
    SmVideoDecodeResult result;
    SmVideoSize size;
    analyzer.Analyze(bytes.data(), bytes.size(), size);
    // Whatever comes out is a whole picture.
    const bool decoded =
        decoder.Decode(bytes.data(), bytes.size(), 1, NmTimeStamp::CmTimeStamp(), image, result);
    EXPECT_EQ(result.m_ImageProduced, decoded);
    EXPECT_EQ(image.IsValid(), decoded);
  };
  // Cut short everywhere in the headers, then in steps through the data.
  for (size_t length = 1; length < codestream.size(); length += length < 120 ? 1 : 211) {
    attempt(CmBytes(codestream.begin(), codestream.begin() + length));
  }
  std::mt19937 random(3);
  for (int i = 0; i < 40; ++i) {
    CmBytes damaged = codestream;
    for (int j = 0; j < 4; ++j) {
      damaged[random() % std::min<size_t>(damaged.size(), 300)] = static_cast<uint8_t>(random());
    }
    attempt(damaged);
  }
  // A header that claims a picture too large to hold (SIZ: Xsiz and Ysiz,
  // then the offsets, XTsiz and YTsiz, after the marker, its length and Rsiz:
  // all 10000 but the offsets) is refused before decoding; so is neither a
  // codestream nor a JP2 file.
  CmBytes huge = codestream;
  ASSERT_EQ(huge[2], 0xFF);
  ASSERT_EQ(huge[3], 0x51);
  for (const size_t at : {8, 12, 24, 28}) {
    std::copy_n(CmBytes{0, 0, 0x27, 0x10}.begin(), 4, huge.begin() + at);
  }
  CmOpenJPEG2000 codec;
  for (const auto& [bytes, message] :
       {std::pair{huge, "Picture too large"}, std::pair{CmBytes(100, 'x'), ""}}) {
    ASSERT_TRUE(codec.SetData(bytes.data(), bytes.size()));
    uint64_t width = 0;
    uint64_t height = 0;
    EXPECT_FALSE(codec.GetImageInfo(width, height));
    EXPECT_FALSE(codec.GetLastMessage().empty());
    EXPECT_TRUE(*message == 0 || codec.GetLastMessage() == message) << codec.GetLastMessage();
  }
}
