#include <gtest/gtest.h>

#include <memory>
#include <utility>

#include "JPEG/JPEGTestSupport.h"
#include "MediaProcessing/GenericByteData/RawJPEGToBlockConverter.h"
#include "MediaProcessing/Video/JPEG/VideoAnalyzerJPEG.h"
#include "MediaProcessing/Video/JPEG/VideoDecoderJPEG.h"
#include "MediaProcessing/Video/VideoFactory.h"
#include "support/ImageTestSupport.h"

using namespace NmJPEGTest;
using namespace NmMediaProcessing;
using NmTimeStamp::CmTimeStamp;

namespace {

std::unique_ptr<ImVideoDecoder> MakeDecoder(uint32_t divisor = 1, bool grayOnly = false,
                                            bool produce = true) {
  std::unique_ptr<ImVideoDecoder> decoder(CmVideoFactory::CreateFromCodec(1)->CreateDecoder());
  decoder->SetParameters(
      {.m_ProduceImage = produce, .m_LuminanceOnly = grayOnly, .m_ScaleDivisor = divisor});
  return decoder;
}

const CmTimeStamp kTime = CmTimeStamp::FromMilliseconds(1700000000123);

// Decodes with a fresh decoder of the given parameters: "refused" when
// Decode returns false, "none" without an image, else the image's layout
// and size, as "420 100x75".
std::string Shape(const CmBytes& jpeg, CmImage& image, uint32_t divisor = 1,
                  bool grayOnly = false) {
  SmVideoDecodeResult result;
  const bool ok =
      MakeDecoder(divisor, grayOnly)->Decode(jpeg.data(), jpeg.size(), 42, kTime, image, result);
  if (!ok || !result.m_ImageProduced) {
    return std::string(ok ? "none" : "refused") + (result.m_ImageProduced ? " but produced" : "");
  }
  EXPECT_EQ(result.m_ImageId, 42);
  const ColorFormat f = image.GetColorFormat();
  return std::string(f == Gray              ? "gray"
                     : f == YCbCr420_Planar ? "420"
                     : f == YCbCr422_Planar ? "422"
                     : f == YCbCr444_Planar ? "444"
                                            : "other") +
         " " + std::to_string(image.GetWidth()) + "x" + std::to_string(image.GetHeight());
}

} // namespace

TEST(VideoDecoderJPEG, DecodesCropsScalesAndLabelsTheImage) {
  const CmBytes jpeg = MakeJPEG("video100x75", 100, 75, false, "-quality 80 -sample 2x2");
  for (const uint32_t divisor : {1u, 2u, 4u, 8u, 3u}) {
    SCOPED_TRACE(divisor);
    CmImage image;
    // 100 x 75 decodes as 112 x 80 and loses its padding, rounded up when
    // scaled: 1/2 gives 56 - 6 by 40 - 3; 3 is taken for 2.
    const uint32_t d = divisor == 3 ? 2 : divisor;
    EXPECT_EQ(Shape(jpeg, image, divisor), "420 " + std::to_string(112 / d - (12 + d - 1) / d) +
                                               "x" + std::to_string(80 / d - (5 + d - 1) / d));
    EXPECT_EQ(image.GetAttributes().timeStamp, kTime);
    EXPECT_EQ(image.GetAttributes().attribute0, 1u);
    EXPECT_EQ(image.GetAttributes().subColorFormat, SubColorFormatFullRange);
    SmPlanes turbo;
    ASSERT_TRUE(TurboDecodePlanes(jpeg, d == 1 ? 0 : d == 2 ? 1 : d == 4 ? 2 : 3, turbo));
    ExpectClose(PlanesOf(image), turbo);
  }
  // 640 x 480 at 1/8 is 80 x 60; gray only gives the luma plane alone.
  const CmBytes vga = MakeJPEG("video640x480", 640, 480, false, "-quality 75 -sample 2x1");
  CmImage image;
  EXPECT_EQ(Shape(vga, image, 8, true), "gray 80x60");
  EXPECT_EQ(Shape(MakeJPEG("videogray", 33, 17, true, "-quality 75 -progressive"), image),
            "gray 33x17");

  // JFIF densities 2:1 mean pixels twice as high as wide.
  CmBytes anamorphic = jpeg;
  ASSERT_EQ(anamorphic[3], 0xE0);
  anamorphic[13] = 1;                       // units: dots per inch
  anamorphic[14] = 0, anamorphic[15] = 144; // X density
  anamorphic[16] = 0, anamorphic[17] = 72;  // Y density
  EXPECT_EQ(Shape(anamorphic, image), "420 100x75");
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
    NmImageTest::ExpectError([&] { decoder->Decode(jpeg.data(), size, 1, kTime, image, result); },
                             "Invalid source data length for non-NULL source data",
                             NmError::CmIntegrityErrorCode::OutOfRange);
  }
  // Decoding switched off: the id comes back, no image.
  auto idle = MakeDecoder(1, false, false);
  EXPECT_TRUE(idle->Decode(jpeg.data(), jpeg.size(), 9, kTime, image, result));
  EXPECT_FALSE(result.m_ImageProduced);
  EXPECT_EQ(result.m_ImageId, 9);

  // 4:1:1, RGB, arithmetic coding, garbage; 4:4:0, chroma components on
  // different grids, chroma finer than luma: no picture, no exception.
  for (const auto& [name, arguments] :
       {std::pair{"video411", "-sample 4x1"}, std::pair{"videorgb", "-rgb"},
        std::pair{"videoarith", "-arithmetic"}, std::pair{"refused440", "-sample 1x2,1x1,1x1"},
        std::pair{"refusedchromagrids", "-sample 2x2,1x1,1x2"},
        std::pair{"refusedchromafiner", "-sample 1x1,2x2,2x2"}}) {
    const int width = std::string(name).rfind("video", 0) == 0 ? 64 : 48;
    EXPECT_EQ(
        Shape(MakeJPEG(name, width, 32, false, std::string("-quality 75 ") + arguments), image),
        "refused")
        << name;
  }
  EXPECT_EQ(Shape(CmBytes(500, 0x5A), image), "refused");

  // A frame cut in the middle of its data is a picture (that its top rows
  // are right is the codec's own test).
  const CmBytes whole = MakeJPEG("video640x480", 640, 480, false, "-quality 75 -sample 2x1");
  EXPECT_EQ(Shape(CmBytes(whole.begin(), whole.begin() + whole.size() / 2), image), "422 640x480");
}

TEST(VideoAnalyzerJPEG, ReadsTheSizeFromTheHeaderAndFeedsRawJPEGConversion) {
  const CmBytes jpeg = MakeJPEG("video100x75", 100, 75, false, "-quality 80 -sample 2x2");
  std::unique_ptr<ImVideoAnalyzer> analyzer(CmVideoFactory::CreateFromCodec(1)->CreateAnalyzer());
  SmVideoSize size;
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
  EXPECT_EQ(block->GetImageHeight(), 75u);
  // SOI and then nothing that the analyser can read: refused.
  CmBytes headless = {0xFF, 0xD8, 0xFF, 0xD9, 0, 0, 0, 0};
  EXPECT_EQ(converter.Convert(headless.data(), headless.size(), CmTimeStamp(), true), nullptr);
}
