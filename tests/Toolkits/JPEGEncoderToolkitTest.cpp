#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <string>
#include <vector>

#include "MediaProcessing/GenericByteData/GenericByteDataBlock.h"
#include "PicturePattern.h"
#include "Toolkits/TransformTestSupport.h"

using namespace NmToolkit;
using namespace NmToolkitTest;
using NmTestPictures::PatternByte;

namespace {

// Against the source's bytes, or with `videoRange` against those bytes taken
// from video range to the full range of JPEG.
double MeanDifference(const SmDecoded& decoded, const SmPicture& picture, int channels,
                      bool videoRange = false) {
  double sum = 0;
  for (int y = 0; y < decoded.height; ++y) {
    for (int x = 0; x < decoded.width * channels; ++x) {
      double expected = PatternByte(picture.seed, 0, x, y);
      if (videoRange) {
        expected = std::clamp((expected - 16) * 255 / 219, 0.0, 255.0);
      }
      sum += std::abs(decoded.pixels[size_t(y) * decoded.width * channels + x] - expected);
    }
  }
  return sum / (double(decoded.width) * decoded.height * channels);
}

TEST(JPEGEncoderToolkit, EncodesPicturesThatDecodeToTheirSizeAndPixels) {
  // Small enough that the test pattern runs smoothly without wrapping
  // around, which no JPEG could keep.
  const SmPicture gray{0, 16, 12, 1000, 0, 5};
  const SmPicture rgb{1, 6, 6, 2000, 0, 3};
  const SmPicture bgr{2, 6, 6, 2000, 0, 3};
  for (const SmPicture& picture : {gray, rgb, bgr}) {
    SCOPED_TRACE("format " + std::to_string(picture.format));
    CmTransformChain chain("jpeg_encoder quality='95'", {picture}, {"Sequence_Number"});
    const auto item = chain.Fetch();
    const ImMediaData* element = Element(item.get());
    ASSERT_NE(element, nullptr);
    EXPECT_EQ(item->GetBeginTime(), picture.time);
    EXPECT_EQ(StringProperty(*item, "Sequence_Number"), "1");
    EXPECT_EQ(StringProperty(*element, "Sequence_Number"), "1");

    NmMediaProcessing::CmGenericVideoByteDataBlock block(
        const_cast<uint8_t*>(element->GetDataPointer()), element->GetDataSize());
    EXPECT_EQ(block.GetImageHeight(), picture.height);
    EXPECT_EQ(block.GetBeginTime().GetMilliseconds(), picture.time);

    const SmDecoded decoded =
        Decode(element->GetPayloadPointer(), element->GetPayloadSize(), picture.format == 0);
    ASSERT_EQ(decoded.width, int(picture.width));
    if (picture.format == 0) {
      // Grey of another source is video range, JPEG is full range.
      EXPECT_LT(MeanDifference(decoded, picture, 1, true), 1.5);
      EXPECT_GT(MeanDifference(decoded, picture, 1), 5.0) << "the range is converted";
    } else if (picture.format == 1) {
      EXPECT_LT(MeanDifference(decoded, picture, 3), 2.5);
    } else {
      // Stored blue first: read as RGB the channels come out swapped.
      SmDecoded swapped = decoded;
      for (size_t i = 0; i + 2 < swapped.pixels.size(); i += 3) {
        std::swap(swapped.pixels[i], swapped.pixels[i + 2]);
      }
      EXPECT_LT(MeanDifference(swapped, picture, 3), 2.5);
      EXPECT_GT(MeanDifference(decoded, picture, 3), 5.0) << "the byte order matters";
    }
  }
  // Planar YCbCr of another source decodes to its size too.
  for (uint32_t format : {5u, 6u, 7u, 3u, 9u}) {
    CmTransformChain chain("jpeg_encoder", {{format, 17, 9, 1000, 3, 1}});
    const SmDecoded decoded = DecodeElement(chain.Fetch().get(), false);
    EXPECT_EQ(std::make_pair(decoded.width, decoded.height), std::make_pair(17, 9)) << format;
  }
}

TEST(JPEGEncoderToolkit, QualityAndPixelShapeKeys) {
  const SmPicture picture{1, 64, 64, 1000, 7};
  const std::vector<SmPicture> pictures(4, picture);
  CmTransformChain chain("jpeg_encoder quality='95' quality_update_key='q'", pictures,
                         {"Sequence_Number"});
  const size_t fine = Element(chain.Fetch().get())->GetPayloadSize();
  chain.Root().UpdateValue("q", "20");
  const size_t coarse = Element(chain.Fetch(false).get())->GetPayloadSize();
  EXPECT_LT(coarse * 2, fine) << "a lower quality gives a smaller picture";

  // A quality the encoder refuses gives an item without JPEG, properties kept.
  chain.Root().UpdateValue("q", "101");
  auto item = chain.Fetch(false);
  EXPECT_EQ(Element(item.get(), 0), nullptr);
  EXPECT_EQ(StringProperty(*item, "Sequence_Number"), "3");
  chain.Root().UpdateValue("q", "-1");
  item = chain.Fetch(false);
  EXPECT_EQ(Element(item.get(), 0), nullptr);
  // So does a picture that cannot be encoded; the next one is encoded again.
  CmTransformChain broken("jpeg_encoder", {Broken({5, 8, 8, 1000, 1}), {5, 8, 8, 1040, 2}},
                          {"Sequence_Number"});
  item = broken.Fetch();
  EXPECT_EQ(Element(item.get(), 0), nullptr);
  EXPECT_EQ(StringProperty(*item, "Sequence_Number"), "1");
  EXPECT_NE(Element(broken.Fetch(false).get()), nullptr);

  // Pixels twice as wide as high: kept, the file says so in its densities;
  // not kept, the picture is stretched to square pixels.
  SmPicture wide = picture;
  wide.width = 32;
  const std::string aspect = " aspect='2'";
  for (const bool keep : {true, false}) {
    std::string source = PicturesToolkit({wide});
    source.insert(source.find("/>"), aspect);
    CmTransformChain shaped(SmUpstream{source},
                            std::string("jpeg_encoder keep_pixel_aspect_ratio='") +
                                (keep ? "true" : "false") + "'");
    const auto encoded = shaped.Fetch();
    const ImMediaData* element = Element(encoded.get());
    ASSERT_NE(element, nullptr);
    const uint8_t* jpeg = element->GetPayloadPointer();
    const SmDecoded decoded = Decode(jpeg, element->GetPayloadSize(), false);
    EXPECT_EQ(decoded.width, keep ? 32 : 64);
    // APP0 follows SOI: densities at bytes 14 to 17 of the file.
    ASSERT_EQ(jpeg[3], 0xE0);
    EXPECT_EQ(std::make_pair(jpeg[14] << 8 | jpeg[15], jpeg[16] << 8 | jpeg[17]),
              keep ? std::make_pair(15000, 30000) : std::make_pair(1, 1));
  }
}

} // namespace
