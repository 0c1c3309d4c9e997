#include <gtest/gtest.h>
#include <turbojpeg.h>

#include <cmath>
#include <cstring>

#include "Image/ImageFixtures.h"
#include "JPEG/JPEGTestSupport.h"
#include "MediaProcessing/GenericByteData/RawVideoByteDataAccess.h"
#include "MediaProcessing/Image/ImageColorFormatConvert.h"
#include "MediaProcessing/Image/ImageCrop.h"
#include "MediaProcessing/JPEG/JPEGEncoder.h"
#include "MediaProcessing/JPEG/SimpleJPEGEncoder.h"
#include "MediaProcessing/JPEG/SimpleJPEGEncoderWrapper.h"
#include "MediaProcessing/MediaProcessingError.h"
#include "MediaProcessing/Video/GenericVideoDecoder.h"
#include "support/CameraPicture.h"
#include "support/ExternalTools.h"
#include "support/ImageTestSupport.h"

using namespace NmMediaProcessing;
using namespace NmJPEGTest;
using NmImageTest::ExpectError;

namespace {

// The marker segments of a JPEG stream up to SOS, then the count of RST
// markers in the data, and whether EOI ends the stream.
struct SmParsed {
  std::vector<std::pair<uint8_t, CmBytes>> segments;
  int restarts = 0;
  bool endsWithEOI = false;

  std::vector<uint8_t> Markers() const {
    std::vector<uint8_t> markers;
    for (const auto& segment : segments) {
      markers.push_back(segment.first);
    }
    return markers;
  }
  const CmBytes* Find(uint8_t marker) const {
    for (const auto& segment : segments) {
      if (segment.first == marker) {
        return &segment.second;
      }
    }
    return nullptr;
  }
};

SmParsed Parse(const CmBytes& bytes) {
  const uint8_t* data = bytes.data();
  const size_t size = bytes.size();
  SmParsed parsed;
  size_t i = 2;
  EXPECT_TRUE(size >= 4 && data[0] == 0xFF && data[1] == 0xD8);
  while (i + 4 <= size && data[i] == 0xFF &&
         (parsed.segments.empty() || parsed.segments.back().first != 0xDA)) {
    const size_t length = data[i + 2] << 8 | data[i + 3];
    parsed.segments.emplace_back(data[i + 1], CmBytes(data + i + 4, data + i + 2 + length));
    i += 2 + length;
  }
  for (; i + 1 < size; ++i) {
    parsed.restarts += data[i] == 0xFF && data[i + 1] >= 0xD0 && data[i + 1] <= 0xD7;
  }
  parsed.endsWithEOI = size >= 2 && data[size - 2] == 0xFF && data[size - 1] == 0xD9;
  return parsed;
}

double Psnr(const SmPlanes& a, const SmPlanes& b) {
  double error = 0;
  size_t count = 0;
  EXPECT_EQ(a.planes.size(), b.planes.size());
  for (size_t i = 0; i < std::min(a.planes.size(), b.planes.size()); ++i) {
    EXPECT_EQ(a.planes[i].size(), b.planes[i].size());
    for (size_t k = 0; k < std::min(a.planes[i].size(), b.planes[i].size()); ++k) {
      const double d = double(a.planes[i][k]) - double(b.planes[i][k]);
      error += d * d;
      ++count;
    }
  }
  return error == 0 ? 99.0 : 10 * std::log10(255.0 * 255.0 * count / error);
}

// What the encoder makes of the image; nothing when it fails.
CmBytes Encoded(CmSimpleJPEGEncoder& encoder, const CmImage& image, int quality,
                bool aspectRatio = false) {
  const uint8_t* data = nullptr;
  uint64_t size = 0;
  return encoder.Encode(image, quality, data, size, aspectRatio) ? CmBytes(data, data + size)
                                                                 : CmBytes();
}

// libjpeg-turbo's decode of what our encoder made of the image.
SmPlanes EncodeAndDecode(const CmImage& image, int quality) {
  CmSimpleJPEGEncoder encoder;
  SmPlanes decoded;
  EXPECT_TRUE(TurboDecodePlanes(Encoded(encoder, image, quality), 0, decoded));
  return decoded;
}

} // namespace

TEST(SimpleJPEGEncoder, HeaderSegmentsQualityAndAspectRatio) {
  CmImage image;
  NmTestSupport::FillCameraPicture(image, 50, 30, 1);
  CmSimpleJPEGEncoder encoder;
  SmParsed parsed = Parse(Encoded(encoder, image, 75));
  EXPECT_EQ(parsed.Markers(), (std::vector<uint8_t>{0xE0, 0xFE, 0xDB, 0xDB, 0xC0, 0xC4, 0xDA}));
  EXPECT_TRUE(parsed.endsWithEOI);
  EXPECT_EQ(*parsed.Find(0xE0), (CmBytes{'J', 'F', 'I', 'F', 0, 1, 2, 0, 0, 1, 0, 1, 0, 0}));
  EXPECT_EQ(*parsed.Find(0xFE), (CmBytes{'Q', 'X'}));
  // Quality 75 halves the example tables: 16 becomes 8, 17 becomes 9.
  EXPECT_EQ(parsed.segments[2].second[1], 8);
  EXPECT_EQ(parsed.segments[3].second[0], 1); // the chroma table's number
  EXPECT_EQ(parsed.segments[3].second[1], 9);
  EXPECT_EQ(*parsed.Find(0xC0), (CmBytes{8, 0, 30, 0, 50, 3, 1, 0x22, 0, 2, 0x11, 1, 3, 0x11, 1}));
  EXPECT_EQ(*parsed.Find(0xDA), (CmBytes{3, 1, 0x00, 2, 0x11, 3, 0x11, 0, 63, 0}));

  // Grey at full range: one component, one table of each kind; quality 100
  // makes every step 1.
  const CmImage gray = NmImageTest::MakeImage(17, 9, Gray, 2, Progressive, SubColorFormatFullRange);
  parsed = Parse(Encoded(encoder, gray, 100));
  EXPECT_EQ(parsed.Markers(), (std::vector<uint8_t>{0xE0, 0xFE, 0xDB, 0xC0, 0xC4, 0xDA}));
  CmBytes ones(65, 1);
  ones[0] = 0;
  EXPECT_EQ(parsed.segments[2].second, ones);
  EXPECT_EQ(*parsed.Find(0xC0), (CmBytes{8, 0, 9, 0, 17, 1, 1, 0x11, 0}));

  // Quality 0 is quality 1; above 100 is refused.
  EXPECT_EQ(Encoded(encoder, image, 0), Encoded(encoder, image, 1));
  // What the caller held before is not left behind.
  const uint8_t stale = 0;
  const uint8_t* data = &stale;
  uint64_t size = 1;
  ExpectError([&] { encoder.Encode(image, 101, data, size, false); },
              "Invalid value of encoding quality level (> max.)!", 2,
              "NmMediaProcessing::CmSimpleJPEGEncoder::Encode");
  EXPECT_EQ(data, nullptr);
  EXPECT_EQ(size, 0u);
  // An invalid image encodes to nothing.
  EXPECT_FALSE(encoder.Encode(CmImage(), 50, data, size, false));
  EXPECT_EQ(size, 0u);

  // Densities from the aspect ratio when asked for, 1:1 otherwise.
  const std::tuple<double, bool, int, int> ratios[] = {{0.5, true, 30000, 15000},
                                                       {2.0, true, 15000, 30000},
                                                       {4.0 / 3.0, true, 22500, 30000},
                                                       {0.0, true, 30000, 30000},
                                                       {0.5, false, 1, 1}};
  for (const auto& [ratio, write, x, y] : ratios) {
    image.GetAttributes().aspectRatio = ratio;
    const CmBytes app0 = *Parse(Encoded(encoder, image, 50, write)).Find(0xE0);
    EXPECT_EQ(app0[8] << 8 | app0[9], x) << ratio;
    EXPECT_EQ(app0[10] << 8 | app0[11], y) << ratio;
  }
}

TEST(SimpleJPEGEncoder, DecodesInTurboAndFfmpegAsWellAsTurbosOwn) {
  CmSimpleJPEGEncoder encoder;
  NmTestSupport::CmTempDirectory directory;
  struct SmCase {
    uint64_t width, height;
    int quality;
  };
  for (const SmCase c : {SmCase{333, 257, 75}, SmCase{64, 48, 30}, SmCase{101, 67, 10}}) {
    SCOPED_TRACE(::testing::Message() << c.width << "x" << c.height << " q" << c.quality);
    CmImage image;
    NmTestSupport::FillCameraPicture(image, c.width, c.height, static_cast<uint32_t>(c.width));
    const SmPlanes source = PlanesOf(image);
    const CmBytes ourJpeg = Encoded(encoder, image, c.quality);
    SmPlanes ours;
    ASSERT_TRUE(TurboDecodePlanes(ourJpeg, 0, ours)) << tjGetErrorStr();
    EXPECT_EQ(ours.subsampling, TJSAMP_420);
    const CmBytes theirJpeg = TurboEncode420(source, c.quality);
    SmPlanes theirs;
    ASSERT_TRUE(TurboDecodePlanes(theirJpeg, 0, theirs));
    const double ourPsnr = Psnr(source, ours);
    const double theirPsnr = Psnr(source, theirs);
    EXPECT_GT(ourPsnr, theirPsnr - 0.1) << "ours " << ourPsnr << " dB, turbo " << theirPsnr;
    // Same tables: the sizes must be alike too.
    EXPECT_LT(std::abs(double(ourJpeg.size()) - double(theirJpeg.size())), 0.03 * theirJpeg.size());

    const std::string jpeg = directory / "ours.jpg";
    const std::string raw = directory / "ours.yuv";
    ASSERT_TRUE(NmTestSupport::WriteBytes(jpeg, ourJpeg));
    ASSERT_TRUE(
        NmTestSupport::Run("ffmpeg -y -i " + jpeg + " -f rawvideo -pix_fmt yuvj420p " + raw));
    const CmBytes decoded = NmTestSupport::ReadBytes(raw);
    SmPlanes viaFfmpeg = source;
    ASSERT_EQ(decoded.size(), source.planes[0].size() + 2 * source.planes[1].size());
    for (size_t p = 0, offset = 0; p < 3; offset += viaFfmpeg.planes[p++].size()) {
      std::memcpy(viaFfmpeg.planes[p].data(), decoded.data() + offset, viaFfmpeg.planes[p].size());
    }
    EXPECT_NEAR(Psnr(source, viaFfmpeg), ourPsnr, 0.3);
  }
}

TEST(SimpleJPEGEncoder, FormatsThroughBGRAndABufferThatGrowsByAQuarterUpTo16MiB) {
  // 4:4:4 at full range comes out as 4:2:0.
  const CmImage full =
      NmImageTest::MakeImage(48, 32, YCbCr444_Planar, 4, Progressive, SubColorFormatFullRange);
  EXPECT_EQ(EncodeAndDecode(full, 80).subsampling, TJSAMP_420);

  // Video-range black is full-range black once through BGR.
  CmImage video;
  video.Allocate(32, 16, YCbCr420_Planar);
  video.GetAttributes().subColorFormat = SubColorFormatVideoRange;
  for (uint64_t p = 0; p < 3; ++p) {
    const auto plane = video.Allocator().GetWriteablePlane(p);
    for (uint64_t y = 0; y < plane.height; ++y) {
      std::memset(plane.data + y * plane.rowStride, p == 0 ? 16 : 128, plane.width);
    }
  }
  const SmPlanes black = EncodeAndDecode(video, 90);
  ASSERT_EQ(black.subsampling, TJSAMP_420);
  EXPECT_LE(*std::max_element(black.planes[0].begin(), black.planes[0].end()), 2);

  // Packed pixels of every order code the very same picture.
  const CmImage rgb = NmImageTest::Applied(CmImageColorFormatConvert(RGB24), full);
  CmSimpleJPEGEncoder encoder;
  const CmBytes reference = Encoded(encoder, rgb, 95);
  for (const ColorFormat format : {BGR24, RGB32, BGR32, RGBA, BGRA}) {
    const CmImage packed = NmImageTest::Applied(CmImageColorFormatConvert(format), rgb);
    EXPECT_EQ(Encoded(encoder, packed, 95), reference) << format;
  }

  CmSimpleJPEGEncoder::CmMemoryDataOutputBuffer buffer;
  uint32_t written = 7;
  EXPECT_EQ(buffer.Write(nullptr, 4, written), JStatusEndOfData);
  EXPECT_EQ(written, 0u);
  EXPECT_EQ(buffer.Open(), JStatusFailed);
  CmBytes bytes(100000, 0x5A);
  ASSERT_EQ(buffer.Write(bytes.data(), 10, written), JStatusOk);
  EXPECT_EQ(buffer.GetCapacity(), 65536u);
  ASSERT_EQ(buffer.Write(bytes.data(), 65530, written), JStatusOk);
  // max(65536 / 4, max(4096, 2 * 65530)) = 131060, rounded up to 16.
  EXPECT_EQ(buffer.GetCapacity(), 65536u + 131072u);
  EXPECT_EQ(buffer.GetUsed(), 65540u);
  ASSERT_EQ(buffer.Write(bytes.data(), 100000, written), JStatusOk);
  EXPECT_EQ(buffer.GetCapacity(), 65536u + 131072u);
  ASSERT_EQ(buffer.Write(bytes.data(), 40000, written), JStatusOk);
  // A quarter more: 196608 + 80000 (twice the size is more).
  EXPECT_EQ(buffer.GetCapacity(), 196608u + 80000u);
  EXPECT_EQ(buffer.GetData()[205539], 0x5A);
  // Filled to the brim, one byte more grows it by a quarter of 276608.
  ASSERT_EQ(buffer.Write(bytes.data(), 71068, written), JStatusOk);
  ASSERT_EQ(buffer.Write(bytes.data(), 1, written), JStatusOk);
  EXPECT_EQ(buffer.GetCapacity(), 276608u + 69152u);

  // Growth that would pass 16 MiB is refused and keeps what is there.
  const CmBytes chunk(1 << 20, 0x33);
  JStatus status = JStatusOk;
  int accepted = 0;
  while ((status = buffer.Write(chunk.data(), static_cast<uint32_t>(chunk.size()), written)) ==
         JStatusOk) {
    ++accepted;
  }
  EXPECT_EQ(status, JStatusEndOfData);
  EXPECT_EQ(written, 0u);
  EXPECT_GT(accepted, 10);
  EXPECT_LE(buffer.GetCapacity(), CmSimpleJPEGEncoder::CmMemoryDataOutputBuffer::MaxCapacity);
  EXPECT_EQ(buffer.GetUsed(), 276609u + static_cast<uint64_t>(accepted) * chunk.size());
}

// Kept apart from the sanitizer pass, where a picture this large is slow.
TEST(SimpleJPEGEncoderLimits, OutputBeyond16MiBFailsQuietly) {
  // Noise at quality 100 takes over two bytes a pixel: 8 megapixels do not
  // fit 16 MiB. A failed encode, no exception, and the encoder goes on.
  CmImage noise =
      NmImageTest::MakeImage(3328, 2496, YCbCr420_Planar, 8, Progressive, SubColorFormatFullRange);
  CmSimpleJPEGEncoder encoder;
  const uint8_t* data = nullptr;
  uint64_t size = 1;
  EXPECT_FALSE(encoder.Encode(noise, 100, data, size, false));
  EXPECT_EQ(size, 0u);
  NmTestSupport::FillCameraPicture(noise, 64, 64, 9);
  EXPECT_FALSE(Encoded(encoder, noise, 75).empty());
}

TEST(JPEGEncoder, RestartIntervalsAndRefusedSetups) {
  CmImage image;
  NmTestSupport::FillCameraPicture(image, 100, 50, 12);
  const SmPlanes source = PlanesOf(image);
  const uint8_t* planes[3] = {source.planes[0].data(), source.planes[1].data(),
                              source.planes[2].data()};
  const int steps[3] = {100, 50, 50};
  auto encode = [&](int restartInterval, CmBytes& out) {
    CJPEGEncoder encoder;
    CmSimpleJPEGEncoder::CmMemoryDataOutputBuffer buffer;
    ASSERT_EQ(encoder.SetSource(planes, steps, 100, 50, 3, JColorYCbCr, JSampling420, 8), 0);
    ASSERT_EQ(encoder.SetDestination(&buffer), 0);
    ASSERT_EQ(encoder.SetParams(JModeBaseline, JColorYCbCr, JSampling420, restartInterval, 0, 60),
              0);
    ASSERT_EQ(encoder.WriteHeader(1, 1), 0);
    ASSERT_EQ(encoder.WriteData(), 0);
    out.assign(buffer.GetData(), buffer.GetData() + buffer.GetUsed());
  };
  CmBytes plain;
  CmBytes restarted;
  encode(0, plain);
  encode(5, restarted);
  // 7 x 4 MCUs, a restart before every fifth.
  const SmParsed parsed = Parse(restarted);
  EXPECT_EQ(parsed.restarts, 5);
  ASSERT_NE(parsed.Find(0xDD), nullptr);
  EXPECT_EQ(Parse(plain).Find(0xDD), nullptr);
  SmPlanes a;
  SmPlanes b;
  ASSERT_TRUE(TurboDecodePlanes(plain, 0, a));
  ASSERT_TRUE(TurboDecodePlanes(restarted, 0, b));
  EXPECT_EQ(a.planes, b.planes);

  CJPEGEncoder encoder;
  CmSimpleJPEGEncoder::CmMemoryDataOutputBuffer buffer;
  EXPECT_EQ(encoder.WriteHeader(1, 1), JStatusFailed);
  const auto params = [&](int mode, JColor color, JSampling sampling, int optimize, int quality) {
    return encoder.SetParams(mode, color, sampling, 0, optimize, quality);
  };
  EXPECT_EQ(params(JModeProgressive, JColorYCbCr, JSampling420, 0, 50), JStatusUnsupported);
  EXPECT_EQ(params(JModeBaseline, JColorCMYK, JSampling444, 0, 50), JStatusUnsupported);
  EXPECT_EQ(params(JModeBaseline, JColorYCbCr, JSampling420, 1, 50), JStatusUnsupported);
  EXPECT_EQ(params(JModeBaseline, JColorYCbCr, JSampling420, 0, 101), JStatusFailed);
  const int narrow[3] = {100, 20, 50};
  const auto fromPlanes = [&](int width, const int* planeSteps, int precision) {
    return encoder.SetSource(planes, planeSteps, width, 50, 3, JColorYCbCr, JSampling420,
                             precision);
  };
  EXPECT_EQ(fromPlanes(0, steps, 8), JStatusFailed);
  EXPECT_EQ(fromPlanes(70000, steps, 8), JStatusFailed);
  EXPECT_EQ(fromPlanes(100, steps, 12), JStatusUnsupported);
  EXPECT_EQ(fromPlanes(100, narrow, 8), JStatusFailed);
  EXPECT_EQ(encoder.SetSource(nullptr, 300, 100, 50, 3, JColorRGB, JSampling444, 8), JStatusFailed);
  EXPECT_EQ(encoder.SetDestination(nullptr), JStatusFailed);
  // Planes at 4:2:0 cannot be coded as 4:4:4 without resampling.
  ASSERT_EQ(encoder.SetSource(planes, steps, 100, 50, 3, JColorYCbCr, JSampling420, 8), 0);
  ASSERT_EQ(encoder.SetDestination(&buffer), 0);
  ASSERT_EQ(encoder.SetParams(JModeBaseline, JColorYCbCr, JSampling444, 0, 0, 50), 0);
  EXPECT_EQ(encoder.WriteHeader(1, 1), JStatusUnsupported);
  // Data before a header.
  ASSERT_EQ(encoder.SetParams(JModeBaseline, JColorYCbCr, JSampling420, 0, 0, 50), 0);
  EXPECT_EQ(encoder.WriteData(), JStatusFailed);
}

// A view cut out of a larger picture (rows with gaps, planes that do not
// start at their buffers) becomes a block with the image's facts, and comes
// back through the video decoder.
TEST(SimpleJPEGEncoderWrapper, BlocksCarryTheImagesFactsAndComeBackThroughTheVideoDecoder) {
  CmImage whole;
  NmTestSupport::FillCameraPicture(whole, 100, 70, 14);
  CmImage image;
  CmImageCrop(10, 6, 72, 50).Execute(whole, image);
  auto& attributes = image.GetAttributes();
  attributes.timeStamp = NmTimeStamp::CmTimeStamp::FromMilliseconds(1700000000000);
  attributes.interlacing = InterleavedBottomFirst;
  attributes.orientation.rotation = 2; // a half turn is both mirrors
  CmSimpleJPEGEncoderWrapper wrapper;
  EXPECT_EQ(wrapper.Encode(CmImage(), 70), nullptr);
  const auto block = wrapper.Encode(image, 90);
  ASSERT_NE(block, nullptr);
  EXPECT_EQ(block->GetImageWidth(), 72u);
  EXPECT_EQ(block->GetEndTime().GetMilliseconds(), 1700000000000);
  const CmRawVideoByteDataAccess view(*block, false);
  ASSERT_TRUE(view.IsValid());
  EXPECT_TRUE(view.GetInterlaced());
  EXPECT_FALSE(view.GetTopFieldFirst());
  EXPECT_EQ(view.GetInterlaceLayout(), 0u);
  EXPECT_EQ(view.GetPictureFormat(), 3u);

  CmGenericVideoDecoder decoder;
  CmImage decoded;
  bool callAgain = true;
  bool gotImage = false;
  ASSERT_TRUE(decoder.Decode(*block, decoded, callAgain, gotImage));
  ASSERT_TRUE(gotImage);
  EXPECT_EQ(decoded.GetAttributes().timeStamp.GetMilliseconds(), 1700000000000);
  EXPECT_TRUE(decoded.GetAttributes().orientation.flippedHorizontally &&
              decoded.GetAttributes().orientation.flippedVertically);
  ASSERT_EQ(decoded.GetColorFormat(), YCbCr420_Planar);
  EXPECT_GT(Psnr(PlanesOf(image), PlanesOf(decoded)), 35.0);
}
