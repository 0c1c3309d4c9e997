#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <random>
#include <utility>

#include "JPEG/JPEGTestSupport.h"
#include "MediaProcessing/GenericByteData/RawJPEGToBlockConverter.h"
#include "MediaProcessing/Video/JPEG/VideoAnalyzerJPEG.h"
#include "MediaProcessing/Video/JPEG/VideoDecoderJPEG.h"
#include "MediaProcessing/Video/VideoFactory.h"

using namespace NmJPEGTest;
using namespace NmMediaProcessing;
using NmTimeStamp::CmTimeStamp;

namespace {

std::unique_ptr<ImVideoDecoder> MakeDecoder(uint32_t divisor = 1, bool grayOnly = false,
                                            bool produce = true) {
  std::unique_ptr<ImVideoDecoder> decoder(CmVideoFactory::CreateFromCodec(1)->CreateDecoder());
  SmVideoDecodeParameters parameters;
  parameters.m_ScaleDivisor = divisor;
  parameters.m_LuminanceOnly = grayOnly;
  parameters.m_ProduceImage = produce;
  decoder->SetParameters(parameters);
  return decoder;
}

// The image's planes, cropped views included, as tightly packed bytes.
SmPlanes PlanesOf(const CmImage& image) {
  SmPlanes out;
  const auto& allocator = image.Allocator();
  for (uint64_t p = 0; p < allocator.GetPlaneCount(); ++p) {
    const auto plane = allocator.GetPlane(p);
    out.width[p] = static_cast<int>(plane.width);
    out.height[p] = static_cast<int>(plane.height);
    CmBytes bytes;
    for (uint64_t y = 0; y < plane.height; ++y) {
      const uint8_t* row = plane.data + y * plane.rowStride;
      bytes.insert(bytes.end(), row, row + plane.width);
    }
    out.planes.push_back(bytes);
  }
  return out;
}

int WorstDifference(const SmPlanes& ours, const SmPlanes& turbo, size_t plane) {
  int worst = 0;
  for (int y = 0; y < ours.height[plane]; ++y) {
    for (int x = 0; x < ours.width[plane]; ++x) {
      worst = std::max(
          worst, std::abs(ours.planes[plane][static_cast<size_t>(y) * ours.width[plane] + x] -
                          turbo.planes[plane][static_cast<size_t>(y) * turbo.width[plane] + x]));
    }
  }
  return worst;
}

const CmTimeStamp kTime = CmTimeStamp::FromMilliseconds(1700000000123);

} // namespace

TEST(VideoDecoderJPEG, DecodesCropsScalesAndLabelsTheImage) {
  const CmBytes jpeg = MakeJPEG("video100x75", 100, 75, false, "-quality 80 -sample 2x2");
  for (const uint32_t divisor : {1u, 2u, 4u, 8u, 3u}) {
    SCOPED_TRACE(divisor);
    auto decoder = MakeDecoder(divisor);
    CmImage image;
    SmVideoDecodeResult result;
    ASSERT_TRUE(decoder->Decode(jpeg.data(), jpeg.size(), 42, kTime, image, result));
    EXPECT_TRUE(result.m_ImageProduced);
    EXPECT_EQ(result.m_ImageId, 42);
    EXPECT_EQ(image.GetColorFormat(), YCbCr420_Planar);
    // 100 x 75 decodes as 112 x 80 and loses its padding, rounded up when
    // scaled: 1/2 gives 56 - 6 by 40 - 3.
    const uint32_t d = divisor == 3 ? 2 : divisor;
    EXPECT_EQ(image.GetWidth(), 112 / d - (12 + d - 1) / d);
    EXPECT_EQ(image.GetHeight(), 80 / d - (5 + d - 1) / d);
    EXPECT_EQ(image.GetAttributes().timeStamp, kTime);
    EXPECT_EQ(image.GetAttributes().attribute0, 1u);
    EXPECT_EQ(image.GetAttributes().subColorFormat, SubColorFormatFullRange);
    EXPECT_DOUBLE_EQ(image.GetAttributes().aspectRatio, 1.0);
    SmPlanes turbo;
    const int scale = d == 1 ? 0 : d == 2 ? 1 : d == 4 ? 2 : 3;
    ASSERT_TRUE(TurboDecodePlanes(jpeg, scale, turbo));
    const SmPlanes ours = PlanesOf(image);
    for (size_t p = 0; p < 3; ++p) {
      EXPECT_LE(WorstDifference(ours, turbo, p), 1) << "plane " << p;
    }
  }
  // 640 x 480 at 1/8 is 80 x 60; gray only gives the luma plane alone.
  const CmBytes vga = MakeJPEG("video640x480", 640, 480, false, "-quality 75 -sample 2x1");
  auto small = MakeDecoder(8, true);
  CmImage image;
  SmVideoDecodeResult result;
  ASSERT_TRUE(small->Decode(vga.data(), vga.size(), 1, kTime, image, result));
  EXPECT_EQ(image.GetWidth(), 80u);
  EXPECT_EQ(image.GetHeight(), 60u);
  EXPECT_EQ(image.GetColorFormat(), Gray);
  auto full = MakeDecoder();
  ASSERT_TRUE(full->Decode(vga.data(), vga.size(), 1, kTime, image, result));
  EXPECT_EQ(image.GetColorFormat(), YCbCr422_Planar);
  EXPECT_EQ(image.GetWidth(), 640u);

  const CmBytes gray = MakeJPEG("videogray", 33, 17, true, "-quality 75 -progressive");
  ASSERT_TRUE(full->Decode(gray.data(), gray.size(), 2, kTime, image, result));
  EXPECT_EQ(image.GetColorFormat(), Gray);
  EXPECT_EQ(image.GetWidth(), 33u);
  EXPECT_EQ(image.GetHeight(), 17u);

  // JFIF densities 2:1 mean pixels twice as high as wide.
  CmBytes anamorphic = jpeg;
  ASSERT_EQ(anamorphic[3], 0xE0);
  anamorphic[13] = 1;                       // units: dots per inch
  anamorphic[14] = 0, anamorphic[15] = 144; // X density
  anamorphic[16] = 0, anamorphic[17] = 72;  // Y density
  ASSERT_TRUE(full->Decode(anamorphic.data(), anamorphic.size(), 3, kTime, image, result));
  EXPECT_DOUBLE_EQ(image.GetAttributes().aspectRatio, 0.5);
}

TEST(VideoDecoderJPEG, RefusesWhatItCannotDecodeAndKeepsWhatATruncatedFrameHolds) {
  auto decoder = MakeDecoder();
  CmImage image;
  SmVideoDecodeResult result;
  // Null data: nothing held, nothing to give.
  EXPECT_TRUE(decoder->Decode(nullptr, 0, 1, kTime, image, result));
  EXPECT_FALSE(result.m_ImageProduced);
  const CmBytes jpeg = MakeJPEG("video100x75", 100, 75, false, "-quality 80 -sample 2x2");
  for (const uint64_t size : {uint64_t{0}, uint64_t{0x80000000}}) {
    try {
      decoder->Decode(jpeg.data(), size, 1, kTime, image, result);
      FAIL() << size;
    } catch (const NmError::CmIntegrityError& error) {
      EXPECT_EQ(error.GetErrorCode(), NmError::CmIntegrityErrorCode::OutOfRange);
      EXPECT_NE(
          std::string(error.what()).find("Invalid source data length for non-NULL source data"),
          std::string::npos);
    }
  }
  // Decoding switched off: the id comes back, no image.
  auto idle = MakeDecoder(1, false, false);
  EXPECT_TRUE(idle->Decode(jpeg.data(), jpeg.size(), 9, kTime, image, result));
  EXPECT_FALSE(result.m_ImageProduced);
  EXPECT_EQ(result.m_ImageId, 9);

  // 4:1:1, RGB and arithmetic coding: no picture, no exception.
  const CmBytes s411 = MakeJPEG("video411", 64, 32, false, "-quality 75 -sample 4x1");
  EXPECT_FALSE(decoder->Decode(s411.data(), s411.size(), 1, kTime, image, result));
  EXPECT_FALSE(result.m_ImageProduced);
  const CmBytes rgb = MakeJPEG("videorgb", 64, 32, false, "-quality 75 -rgb");
  EXPECT_FALSE(decoder->Decode(rgb.data(), rgb.size(), 1, kTime, image, result));
  const CmBytes arithmetic = MakeJPEG("videoarith", 64, 32, false, "-quality 75 -arithmetic");
  EXPECT_FALSE(decoder->Decode(arithmetic.data(), arithmetic.size(), 1, kTime, image, result));
  const CmBytes garbage(500, 0x5A);
  EXPECT_FALSE(decoder->Decode(garbage.data(), garbage.size(), 1, kTime, image, result));

  // A frame cut in the middle of its data: the top is decoded, and it is a
  // picture.
  const CmBytes whole = MakeJPEG("video640x480", 640, 480, false, "-quality 75 -sample 2x1");
  const CmBytes cut(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(whole.size() / 2));
  ASSERT_TRUE(decoder->Decode(cut.data(), cut.size(), 5, kTime, image, result));
  EXPECT_TRUE(result.m_ImageProduced);
  EXPECT_EQ(image.GetWidth(), 640u);
  SmPlanes turbo;
  ASSERT_TRUE(TurboDecodePlanes(whole, 0, turbo));
  SmPlanes ours = PlanesOf(image);
  ours.height[0] = 64; // the first rows are complete
  EXPECT_LE(WorstDifference(ours, turbo, 0), 1);
}

// Motion JPEG from ffmpeg writes 4:2:2 as luma 2x2 over chroma 1x2: a 4:2:2
// picture all the same, at any size. Layouts that are none of 4:4:4, 4:2:2
// and 4:2:0 give no picture.
TEST(VideoDecoderJPEG, SamplingGoesByTheRatioOfLumaToChroma) {
  struct SmLayout {
    const char* pixelFormat;
    int width;
    int height;
    ColorFormat format;
  };
  auto decoder = MakeDecoder();
  for (const SmLayout& layout : {SmLayout{"yuvj422p", 100, 75, YCbCr422_Planar},
                                 SmLayout{"yuvj422p", 640, 480, YCbCr422_Planar},
                                 SmLayout{"yuvj422p", 17, 9, YCbCr422_Planar},
                                 SmLayout{"yuvj420p", 100, 75, YCbCr420_Planar},
                                 SmLayout{"yuvj444p", 33, 21, YCbCr444_Planar}}) {
    const std::string name = std::string("mjpeg") + layout.pixelFormat + "_" +
                             std::to_string(layout.width) + "x" + std::to_string(layout.height);
    SCOPED_TRACE(name);
    const CmBytes jpeg = MakeMotionJPEG(name, layout.width, layout.height, layout.pixelFormat);
    CmImage image;
    SmVideoDecodeResult result;
    ASSERT_TRUE(decoder->Decode(jpeg.data(), jpeg.size(), 7, kTime, image, result));
    ASSERT_TRUE(result.m_ImageProduced);
    EXPECT_EQ(image.GetColorFormat(), layout.format);
    EXPECT_EQ(image.GetWidth(), static_cast<uint32_t>(layout.width));
    EXPECT_EQ(image.GetHeight(), static_cast<uint32_t>(layout.height));
    SmPlanes turbo;
    ASSERT_TRUE(TurboDecodePlanes(jpeg, 0, turbo));
    const SmPlanes ours = PlanesOf(image);
    for (size_t p = 0; p < 3; ++p) {
      EXPECT_LE(WorstDifference(ours, turbo, p), 1) << "plane " << p;
    }
  }
  // 4:4:0, chroma components on different grids, chroma finer than luma.
  const std::pair<const char*, const char*> refused[] = {{"refused440", "1x2,1x1,1x1"},
                                                         {"refusedchromagrids", "2x2,1x1,1x2"},
                                                         {"refusedchromafiner", "1x1,2x2,2x2"}};
  for (const auto& [name, factors] : refused) {
    SCOPED_TRACE(factors);
    const CmBytes jpeg =
        MakeJPEG(name, 48, 32, false, std::string("-quality 75 -sample ") + factors);
    CmImage image;
    SmVideoDecodeResult result;
    EXPECT_FALSE(decoder->Decode(jpeg.data(), jpeg.size(), 1, kTime, image, result));
    EXPECT_FALSE(result.m_ImageProduced);
  }
}

TEST(VideoAnalyzerJPEG, ReadsTheSizeFromTheHeaderAndFeedsRawJPEGConversion) {
  const CmBytes jpeg = MakeJPEG("video100x75", 100, 75, false, "-quality 80 -sample 2x2");
  std::unique_ptr<ImVideoAnalyzer> analyzer(CmVideoFactory::CreateFromCodec(1)->CreateAnalyzer());
  SmVideoSize size;
  ASSERT_TRUE(analyzer->Analyze(jpeg.data(), jpeg.size(), size));
  EXPECT_EQ(size, (SmVideoSize{100, 75}));
  // Only the frame header is needed.
  ASSERT_TRUE(analyzer->Analyze(jpeg.data(), 700, size));
  EXPECT_EQ(size, (SmVideoSize{100, 75}));
  const CmBytes garbage(100, 0x11);
  EXPECT_FALSE(analyzer->Analyze(garbage.data(), garbage.size(), size));
  EXPECT_EQ(size, (SmVideoSize{0, 0}));
  EXPECT_THROW(analyzer->Analyze(nullptr, 5, size), NmError::CmIntegrityError);
  EXPECT_THROW(analyzer->Analyze(jpeg.data(), 0, size), NmError::CmIntegrityError);
  EXPECT_THROW(analyzer->Analyze(jpeg.data(), 0x80000000ull, size), NmError::CmIntegrityError);

  const CmJPEGSizeAnalyzer sizes;
  const CmRawJPEGToBlockConverter converter(&sizes);
  const auto block =
      converter.Convert(jpeg.data(), jpeg.size(), CmTimeStamp::FromMilliseconds(5000), true);
  ASSERT_NE(block, nullptr);
  EXPECT_EQ(block->GetImageWidth(), 100u);
  EXPECT_EQ(block->GetImageHeight(), 75u);
  EXPECT_EQ(block->GetImageCount(), 1u);
  EXPECT_EQ(block->GetPayloadLength(), jpeg.size());
  // SOI and then nothing that the analyser can read: refused.
  CmBytes headless = {0xFF, 0xD8, 0xFF, 0xD9, 0, 0, 0, 0};
  EXPECT_EQ(converter.Convert(headless.data(), headless.size(), CmTimeStamp(), true), nullptr);
}
