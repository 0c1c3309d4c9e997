#include <gtest/gtest.h>

#include <random>

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
// planar layout of ffmpeg's raw formats.
struct SmRawPicture {
  std::string pixelFormat;
  uint64_t width;
  uint64_t height;
  std::vector<std::pair<uint64_t, uint64_t>> planes; // sizes in samples, packed channels included
  CmBytes bytes;
};

SmRawPicture MakePicture(const std::string& pixelFormat, uint64_t width, uint64_t height,
                         uint32_t seed) {
  SmRawPicture p{pixelFormat, width, height, {}, {}};
  const uint64_t cw = (width + 1) / 2;
  const uint64_t ch = (height + 1) / 2;
  if (pixelFormat == "gray") {
    p.planes = {{width, height}};
  } else if (pixelFormat == "rgb24") {
    p.planes = {{width * 3, height}};
  } else if (pixelFormat == "yuv420p") {
    p.planes = {{width, height}, {cw, ch}, {cw, ch}};
  } else if (pixelFormat == "yuv422p") {
    p.planes = {{width, height}, {cw, height}, {cw, height}};
  }
  std::mt19937 random(seed);
  std::normal_distribution<double> noise(0.0, 6.0);
  for (size_t i = 0; i < p.planes.size(); ++i) {
    const auto [w, h] = p.planes[i];
    for (uint64_t y = 0; y < h; ++y) {
      for (uint64_t x = 0; x < w; ++x) {
        const double base = 128 + 80 * std::sin(0.05 * x + 0.3 * i) * std::cos(0.07 * y);
        p.bytes.push_back(static_cast<uint8_t>(std::clamp(base + noise(random), 0.0, 255.0)));
      }
    }
  }
  return p;
}

// The picture's samples as ffmpeg lays them out, from an image of ours.
CmBytes RawOf(const CmImage& image) {
  CmBytes out;
  const auto& allocator = image.Allocator();
  for (uint64_t i = 0; i < allocator.GetPlaneCount(); ++i) {
    const auto plane = allocator.GetPlane(i);
    for (uint64_t y = 0; y < plane.height; ++y) {
      const uint8_t* row = plane.GetPixelAddress(0, y);
      out.insert(out.end(), row, row + plane.width * plane.pixelStride);
    }
  }
  return out;
}

int MaxDifference(const CmBytes& a, const CmBytes& b) {
  if (a.size() != b.size()) {
    return 1000;
  }
  int worst = 0;
  for (size_t i = 0; i < a.size(); ++i) {
    worst = std::max(worst, std::abs(int(a[i]) - int(b[i])));
  }
  return worst;
}

// Encodes with ffmpeg's JPEG 2000 encoder and decodes that again with
// ffmpeg's decoder, the oracle.
class CmFfmpegJPEG2000 {
public:
  bool Encode(const SmRawPicture& picture, const std::string& options, const std::string& format,
              CmBytes& codestream, CmBytes& oracle) {
    if (!m_Directory.IsValid() || !WriteBytes(m_Directory / "in.raw", picture.bytes)) {
      return false;
    }
    const std::string size = std::to_string(picture.width) + "x" + std::to_string(picture.height);
    const std::string file = m_Directory / ("out." + format);
    if (!Run("ffmpeg -y -f rawvideo -pix_fmt " + picture.pixelFormat + " -s " + size + " -i " +
             (m_Directory / "in.raw") + " -c:v jpeg2000 -format " + format + " " + options +
             " -frames:v 1 -f image2 " + file) ||
        !Run("ffmpeg -y -i " + file + " -f rawvideo -pix_fmt " + picture.pixelFormat + " " +
             (m_Directory / "back.raw"))) {
      return false;
    }
    codestream = ReadBytes(file);
    oracle = ReadBytes(m_Directory / "back.raw");
    return !codestream.empty();
  }

private:
  CmTempDirectory m_Directory;
};

} // namespace

TEST(VideoDecoderJPEG2000, AdapterAroundACodecThatDecodesNothing) {
  CmVideoDecoderJPEG2000 decoder(MakeDummy);
  const uint8_t data[8] = {0xFF, 0x4F, 0xFF, 0x51, 0, 0, 0, 0};
  CmImage image;
  SmVideoDecodeResult result;
  result.m_ImageId = 5;
  result.m_CallAgain = true;
  EXPECT_FALSE(decoder.Decode(data, sizeof data, 3, NmTimeStamp::CmTimeStamp(), image, result));
  EXPECT_FALSE(result.m_ImageProduced);
  EXPECT_FALSE(result.m_CallAgain);
  EXPECT_FALSE(image.IsValid());

  SmVideoDecodeParameters parameters;
  parameters.m_ProduceImage = false;
  decoder.SetParameters(parameters);
  EXPECT_FALSE(decoder.GetParameters().m_ProduceImage);
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
  EXPECT_FALSE(dummy.SetData(nullptr, 8));
  EXPECT_FALSE(dummy.SetData(data, 0));
  EXPECT_TRUE(dummy.SetData(data, 8));
}

TEST(OpenJPEG2000, PicturesMatchTheSourceAndFfmpegsDecode) {
  if (!HaveProgram("ffmpeg")) {
    GTEST_SKIP() << "ffmpeg is not installed";
  }
  struct SmCase {
    const char* pixelFormat;
    uint64_t width;
    uint64_t height;
    const char* options;
    const char* container;
    ColorFormat expected;
    bool lossless;
  };
  const SmCase cases[] = {
      {"yuv420p", 67, 45, "-pred dwt53", "j2k", YCbCr420_Planar, true},
      {"yuv422p", 40, 34, "-pred dwt53", "jp2", YCbCr422_Planar, true},
      {"gray", 33, 17, "-pred dwt53", "j2k", Gray, true},
      {"rgb24", 30, 22, "-pred dwt53", "jp2", RGB24, true},
      // Several tiles, and the irreversible wavelet, whose rounding may differ
      // between decoders by a step.
      {"yuv420p", 300, 200, "-tile_width 128 -tile_height 64", "j2k", YCbCr420_Planar, false},
  };
  CmFfmpegJPEG2000 ffmpeg;
  for (const SmCase& c : cases) {
    SCOPED_TRACE(std::string(c.pixelFormat) + " " + c.options + " " + c.container);
    const SmRawPicture picture = MakePicture(c.pixelFormat, c.width, c.height, 11);
    CmBytes codestream;
    CmBytes oracle;
    ASSERT_TRUE(ffmpeg.Encode(picture, c.options, c.container, codestream, oracle));
    CmOpenJPEG2000 codec;
    ASSERT_TRUE(codec.SetData(codestream.data(), codestream.size()));
    uint64_t width = 0;
    uint64_t height = 0;
    ASSERT_TRUE(codec.GetImageInfo(width, height)) << codec.GetLastMessage();
    EXPECT_EQ(width, c.width);
    EXPECT_EQ(height, c.height);
    CmImage image;
    ASSERT_TRUE(codec.DecodeImage(image)) << codec.GetLastMessage();
    EXPECT_EQ(image.GetColorFormat(), c.expected);
    EXPECT_EQ(image.GetWidth(), c.width);
    EXPECT_EQ(image.GetHeight(), c.height);
    const CmBytes ours = RawOf(image);
    if (c.lossless) {
      EXPECT_EQ(MaxDifference(ours, picture.bytes), 0);
      EXPECT_EQ(MaxDifference(ours, oracle), 0);
    } else {
      EXPECT_LE(MaxDifference(ours, oracle), 2);
    }
  }
}

TEST(OpenJPEG2000, RecordsDecodeThroughTheGenericDecoder) {
  if (!HaveProgram("ffmpeg")) {
    GTEST_SKIP() << "ffmpeg is not installed";
  }
  const SmRawPicture picture = MakePicture("yuv420p", 48, 32, 5);
  CmBytes codestream;
  CmBytes oracle;
  CmFfmpegJPEG2000 ffmpeg;
  ASSERT_TRUE(ffmpeg.Encode(picture, "-pred dwt53", "j2k", codestream, oracle));

  CmBytes bytes = BuildVideoPacket({.codec = 8,
                                    .sync = true,
                                    .imageForm = {.flippedHorizontally = true},
                                    .syncTime = T0,
                                    .frameTime = T0,
                                    .payload = codestream});
  const CmGenericByteData record(bytes.data(), bytes.size());
  CmGenericVideoDecoder decoder;
  CmImage image;
  bool callAgain = true;
  bool gotImage = false;
  ASSERT_TRUE(decoder.Decode(record, image, callAgain, gotImage));
  ASSERT_TRUE(gotImage);
  EXPECT_FALSE(callAgain);
  EXPECT_EQ(image.GetAttributes().timeStamp.GetMilliseconds(), T0);
  EXPECT_EQ(image.GetAttributes().attribute0, 1u);
  EXPECT_EQ(image.GetAttributes().attribute3, 0u);
  EXPECT_TRUE(image.GetAttributes().orientation.flippedHorizontally);
  EXPECT_EQ(RawOf(image), picture.bytes);

  CmVideoSizeKeyFrameStreamAnalyzer analyzer;
  SmVideoSize size;
  ASSERT_TRUE(analyzer.Analyze(record, size));
  EXPECT_EQ(size, (SmVideoSize{48, 32}));
  ASSERT_TRUE(analyzer.AnalyzeRawData(8, codestream.data(), codestream.size(), size));

  // Shrunk by whole factors; sizes below the factor give one pixel.
  for (const auto& [divisor, expected] :
       std::vector<std::pair<uint32_t, SmVideoSize>>{{2, {24, 16}}, {5, {9, 6}}, {64, {1, 1}}}) {
    SmVideoDecodeParameters parameters;
    parameters.m_ScaleDivisor = divisor;
    decoder.SetParameters(parameters);
    ASSERT_TRUE(decoder.Decode(record, image, callAgain, gotImage));
    ASSERT_TRUE(gotImage);
    EXPECT_EQ(image.GetWidth(), expected.first) << divisor;
    EXPECT_EQ(image.GetHeight(), expected.second) << divisor;
    EXPECT_EQ(image.GetAttributes().timeStamp.GetMilliseconds(), T0);
  }
  // Halving averages: the mean brightness stays.
  SmVideoDecodeParameters parameters;
  parameters.m_ScaleDivisor = 2;
  decoder.SetParameters(parameters);
  ASSERT_TRUE(decoder.Decode(record, image, callAgain, gotImage));
  double sum = 0;
  const auto luma = image.Allocator().GetPlane(0);
  for (uint64_t y = 0; y < luma.height; ++y) {
    for (uint64_t x = 0; x < luma.width; ++x) {
      sum += *luma.GetPixelAddress(x, y);
    }
  }
  double sourceSum = 0;
  for (size_t i = 0; i < 48 * 32; ++i) {
    sourceSum += picture.bytes[i];
  }
  EXPECT_NEAR(sum / (24 * 16), sourceSum / (48 * 32), 1.5);
  // Without a picture wanted, the frame is accepted and nothing comes out.
  parameters.m_ProduceImage = false;
  decoder.SetParameters(parameters);
  ASSERT_TRUE(decoder.Decode(record, image, callAgain, gotImage));
  EXPECT_FALSE(gotImage);
}

TEST(OpenJPEG2000, HostileCodestreamsFailWithoutHarm) {
  if (!HaveProgram("ffmpeg")) {
    GTEST_SKIP() << "ffmpeg is not installed";
  }
  const SmRawPicture picture = MakePicture("yuv420p", 64, 48, 9);
  CmBytes codestream;
  CmBytes oracle;
  CmFfmpegJPEG2000 ffmpeg;
  ASSERT_TRUE(ffmpeg.Encode(picture, "", "j2k", codestream, oracle));

  CmVideoDecoderJPEG2000 decoder;
  CmVideoAnalyzerJPEG2000 analyzer;
  auto attempt = [&](const CmBytes& bytes) {
    CmImage image;
    SmVideoDecodeResult result;
    SmVideoSize size;
    analyzer.Analyze(bytes.data(), bytes.size(), size);
    if (decoder.Decode(bytes.data(), bytes.size(), 1, NmTimeStamp::CmTimeStamp(), image, result)) {
      // Whatever comes out is a whole picture.
      EXPECT_TRUE(image.IsValid());
      EXPECT_TRUE(result.m_ImageProduced);
    } else {
      EXPECT_FALSE(result.m_ImageProduced);
    }
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
  // A header that claims a picture too large to hold is refused before decoding.
  CmBytes huge = codestream;
  // SIZ: Xsiz and Ysiz follow the marker, its length and Rsiz.
  ASSERT_EQ(huge[2], 0xFF);
  ASSERT_EQ(huge[3], 0x51);
  for (size_t i = 8; i < 16; ++i) {
    huge[i] = 0x7F;
  }
  CmOpenJPEG2000 codec;
  ASSERT_TRUE(codec.SetData(huge.data(), huge.size()));
  uint64_t width = 0;
  uint64_t height = 0;
  EXPECT_FALSE(codec.GetImageInfo(width, height));
  EXPECT_FALSE(codec.GetLastMessage().empty());
  // Neither a codestream nor a JP2 file.
  const CmBytes text(100, 'x');
  ASSERT_TRUE(codec.SetData(text.data(), text.size()));
  EXPECT_FALSE(codec.GetImageInfo(width, height));
}
