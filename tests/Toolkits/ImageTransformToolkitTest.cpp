#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "PicturePattern.h"
#include "Toolkits/ToolkitTestSupport.h"
#include "Toolkits/TransformTestSupport.h"
#include "Toolkits/VZKSourceToolkitPlugin/Tree/ToolkitErrors.h"
#include "Toolkits/VZKSourceToolkitPlugin/Tree/VZKSourceToolkit.h"

using namespace NmToolkit;
using namespace NmToolkitTest;
using NmTestPictures::PatternByte;

namespace {

// Every stored byte of every plane of `image` against the test pattern of
// the source picture, shifted by (dx, dy) pixels of plane 0.
void ExpectPattern(const ImImage& image, const SmPicture& source, uint32_t dx = 0,
                   uint32_t dy = 0) {
  const auto shapes =
      NmTestPictures::PlaneShapes(image.GetColorFormat(), image.GetWidth(), image.GetHeight());
  ASSERT_FALSE(shapes.empty());
  for (uint32_t p = 0; p < shapes.size(); ++p) {
    const auto full = NmTestPictures::PlaneShapes(source.format, source.width, source.height)[p];
    const uint32_t sx = dx * full.width / source.width;
    const uint32_t sy = dy * full.height / source.height;
    for (uint32_t y = 0; y < shapes[p].height; ++y) {
      for (uint32_t x = 0; x < shapes[p].width * shapes[p].pixelStride; ++x) {
        ASSERT_EQ(Byte(image, p, x, y),
                  PatternByte(source.seed, p, x + sx * shapes[p].pixelStride, y + sy))
            << "plane " << p << " byte " << x << " row " << y;
      }
    }
  }
}

TEST(ImageTransformToolkit, PicturesOfEveryFormatCrossTheChainByteForByte) {
  // A resize to the picture's own size and a whole crop leave every byte; the
  // padding of the source's rows must not come along.
  for (uint32_t format = 0; format <= 9; ++format) {
    SCOPED_TRACE("format " + std::to_string(format));
    const SmPicture picture{format, 7, 5, 1000, format + 1, 3};
    for (const std::string element :
         {"image_resize width='7' height='5'", "image_crop", "image_boxed_resize width='7'",
          "apply_privacy_mask mask='0x0'", "text_overlay"}) {
      SCOPED_TRACE(element);
      CmTransformChain chain(element, {picture});
      const auto item = chain.Fetch();
      EXPECT_EQ(std::tuple(AsImage(item).GetColorFormat(), Size(item), item->GetBeginTime()),
                std::tuple(format, "7x5", 1000));
      ExpectPattern(AsImage(item), picture);
    }
  }
}

TEST(ImageTransformToolkit, ResizeKeysDefaultsAndUpdates) {
  const std::vector<SmPicture> pictures = {
      {0, 100, 80, 1000, 1}, {0, 100, 80, 1040, 2}, {0, 100, 80, 1080, 3}};
  {
    CmTransformChain chain("image_resize width_update_key='w'", pictures, {"Sequence_Number"});
    auto item = chain.Fetch();
    EXPECT_EQ(Size(item), "640x480");
    // The stretched picture keeps its shape on screen: 100 x 80 shown as
    // 640 x 480 needs pixels 15/16 as wide as high.
    EXPECT_DOUBLE_EQ(AsImage(item).GetPixelAspectRatio(), 0.9375);
    EXPECT_EQ(StringProperty(*item, "Sequence_Number"), "1");
    chain.Root().UpdateValue("w", "320");
    item = chain.Fetch(false);
    EXPECT_EQ(AsImage(item).GetWidth(), 320u) << "an updated key holds from the next item on";
    EXPECT_EQ(StringProperty(*item, "Sequence_Number"), "2");
    chain.Root().UpdateValue("width", "100");
    item = chain.Fetch(false);
    EXPECT_EQ(AsImage(item).GetWidth(), 320u) << "only the named update key changes the value";
  }
  {
    CmTransformChain chain("image_resize width='50' height='40' keep_pixel_aspect_ratio='true'",
                           pictures);
    const auto item = chain.Fetch();
    EXPECT_EQ(Size(item), "50x40");
    EXPECT_DOUBLE_EQ(AsImage(item).GetPixelAspectRatio(), 1.0);
  }
  // Sizes that no resize can make give empty pictures that keep their time
  // and properties; the stream goes on.
  for (const std::string width : {"0", "-3", "abc", "1e30", "40000", "nan"}) {
    SCOPED_TRACE(width);
    CmTransformChain chain("image_resize width='" + width + "'", pictures, {"Sequence_Number"});
    for (int i = 0; i < 2; ++i) {
      const auto item = chain.Fetch(i == 0);
      EXPECT_EQ(AsImage(item).GetPlanePointer(0), nullptr);
      EXPECT_EQ(item->GetBeginTime(), 1000 + 40 * i);
      EXPECT_EQ(StringProperty(*item, "Sequence_Number"), std::to_string(i + 1));
    }
  }
}

TEST(ImageTransformToolkit, BoxedAndFilledResizeKeepTheShape) {
  const std::vector<SmPicture> wide = {{5, 100, 50, 1000, 1}, {1, 100, 50, 1040, 2}};
  // A side of 0 follows from the other; a filled box has the box's size
  // whether or not it enlarges (its black bands are the kernel's); a pixel
  // shape no picture can have gives none.
  for (const auto& [element, size] : std::vector<std::pair<std::string, std::string>>{
           {"image_boxed_resize", "640x320"},
           {"image_boxed_resize width='0' height='100'", "200x100"},
           {"image_filled_resize", "640x480"},
           {"image_filled_resize width='200' height='200' allow_upscaling='false'", "200x200"},
           {"image_filled_resize pixel_aspect_ratio='0'", "0x0"},
           {"image_filled_resize pixel_aspect_ratio='-1'", "0x0"},
           {"image_filled_resize pixel_aspect_ratio='nan'", "0x0"},
           {"image_filled_resize pixel_aspect_ratio='inf'", "0x0"}}) {
    CmTransformChain chain(element, wide);
    EXPECT_EQ(Size(chain.Fetch()), size) << element;
  }
  {
    CmTransformChain chain(
        "image_boxed_resize allow_upscaling='false' allow_upscaling_update_key='up'", wide);
    EXPECT_EQ(Size(chain.Fetch()), "100x50");
    chain.Root().UpdateValue("up", "true");
    EXPECT_EQ(Size(chain.Fetch(false)), "640x320");
  }
}

TEST(ImageTransformToolkit, CropInFractionsAndInPixels) {
  const SmPicture picture{0, 10, 8, 1000, 4, 2};
  // Fractions outside the picture are pulled back in.
  for (const auto& [keys, size, dx, dy] :
       std::vector<std::tuple<std::string, std::string, int, int>>{
           {"width='0.5' height='0.5' offset_x='1.0' offset_y='1.0'", "5x4", 5, 4},
           {"width='0.0' height='7' offset_x='-2' offset_y='0.25'", "1x8", 0, 0}}) {
    CmTransformChain chain("image_crop " + keys, {picture});
    const auto item = chain.Fetch();
    ASSERT_EQ(Size(item), size);
    ExpectPattern(AsImage(item), picture, dx, dy);
  }
  {
    CmTransformChain chain("image_crop relative='false' offset_x='2' offset_y='3' width='4' "
                           "height='5' offset_x_update_key='x'",
                           {picture, picture, picture});
    auto item = chain.Fetch();
    ASSERT_EQ(Size(item), "4x5");
    ExpectPattern(AsImage(item), picture, 2, 3);
    chain.Root().UpdateValue("x", "6");
    item = chain.Fetch(false);
    ExpectPattern(AsImage(item), picture, 6, 3);
    chain.Root().UpdateValue("x", "7");
    EXPECT_EQ(Size(chain.Fetch(false)), "0x0") << "a rectangle beyond the picture";
  }
  // Disabled, a crop in pixels lets anything through; in fractions it still
  // needs a picture to measure.
  {
    CmTransformChain chain("image_crop enable='false' width='0.5'", {picture});
    EXPECT_EQ(Size(chain.Fetch()), "10x8");
  }
  {
    CmTransformChain chain(ScriptedItems(), "image_crop enable='false' relative='false'");
    EXPECT_EQ(Payload(chain.Fetch()), "a");
  }
  for (const std::string keys : {"enable='false'", "non_bitmap_pass_through='true'"}) {
    CmTransformChain chain(ScriptedItems(), "image_crop " + keys);
    ExpectRefused(chain, "image_crop");
  }
}

TEST(ImageTransformToolkit, ColourFormatsByNameAndRowAlignment) {
  const std::string names[] = {"Gray",
                               "RGB24",
                               "BGR24",
                               "RGB32",
                               "BGR32",
                               "YCbCr420_Planar",
                               "YCbCr422_Planar",
                               "YCbCr444_Planar",
                               "RGBA",
                               "BGRA"};
  for (uint32_t source : {0u, 1u, 5u}) {
    for (uint32_t target = 0; target < 10; ++target) {
      SCOPED_TRACE(std::to_string(source) + " to " + names[target]);
      CmTransformChain chain("image_color_format_convert format='" + names[target] +
                                 "' row_alignment='64'",
                             {{source, 9, 7, 1000, 1, 5}});
      const auto item = chain.Fetch();
      const ImImage& image = AsImage(item);
      ASSERT_EQ(image.GetColorFormat(), target);
      for (uint32_t p = 0; p < NmTestPictures::PlaneShapes(target, 9, 7).size(); ++p) {
        EXPECT_EQ(image.GetPlaneStride(p) % 64, 0u) << "plane " << p;
      }
    }
  }
  // An unknown name means grey; grey from RGB stays grey through RGB and
  // back; an alignment no allocator can give gives no picture.
  for (const auto& [keys, format, size] :
       std::vector<std::tuple<std::string, uint32_t, std::string>>{
           {"format='YUV'", 0, "4x4"},
           {"format='Gray'", 0, "4x4"},
           {"format='RGB24' row_alignment='1e9'", 0, "0x0"}}) {
    CmTransformChain chain("image_color_format_convert " + keys, {{1, 4, 4, 1000, 1}});
    const auto item = chain.Fetch();
    EXPECT_EQ(Size(item), size) << keys;
    if (size != "0x0") {
      EXPECT_EQ(AsImage(item).GetColorFormat(), format) << keys;
    }
  }
  CmTransformChain chain("image_color_format_convert format='RGB24' format_update_key='f'",
                         {{5, 4, 4, 1000, 1}, {5, 4, 4, 1040, 1}});
  EXPECT_EQ(AsImage(chain.Fetch()).GetColorFormat(), 1u);
  chain.Root().UpdateValue("f", "BGRA");
  EXPECT_EQ(AsImage(chain.Fetch(false)).GetColorFormat(), 9u);
}

TEST(ImageTransformToolkit, TextOverlayPaintsItsTextAndFollowsUpdates) {
  const SmPicture picture{1, 160, 48, 1000, 1};
  const std::vector<SmPicture> pictures(3, picture);
  CmTransformChain chain("text_overlay overlay='' overlay_update_key='text'", pictures);
  auto item = chain.Fetch();
  ASSERT_EQ(Size(item), "160x48");
  ExpectPattern(AsImage(item), picture);

  chain.Root().UpdateValue("text", "Gate 1");
  item = chain.Fetch(false);
  const size_t gate1 = ChangedBytes(AsImage(item), picture);
  EXPECT_GT(gate1, 50u);
  // Text is placed in the middle: the left and right edge columns stay.
  for (uint32_t y = 0; y < 48; ++y) {
    ASSERT_EQ(Byte(AsImage(item), 0, 0, y), PatternByte(1, 0, 0, y));
    ASSERT_EQ(Byte(AsImage(item), 0, 159 * 3, y), PatternByte(1, 0, 159 * 3, y));
  }
  chain.Root().UpdateValue("text", "Gate 1 of the northern fence");
  item = chain.Fetch(false);
  EXPECT_GT(ChangedBytes(AsImage(item), picture), gate1);
}

TEST(ImageTransformToolkit, NonPicturesPassOrAreRefusedAsTheKeySays) {
  for (const std::string element :
       {"image_resize", "image_boxed_resize", "image_filled_resize", "text_overlay",
        "image_color_format_convert", "apply_privacy_mask", "jpeg_encoder"}) {
    SCOPED_TRACE(element);
    {
      CmTransformChain chain(ScriptedItems(), element + " non_bitmap_pass_through='true'");
      const auto item = chain.Fetch();
      EXPECT_EQ(Payload(item), "a");
      EXPECT_EQ(item->GetBeginTime(), 1000);
    }
    {
      CmTransformChain chain(ScriptedItems(), element);
      ExpectRefused(chain, element);
    }
    if (element != "jpeg_encoder") {
      // Disabled, everything passes as it is.
      CmTransformChain chain(ScriptedItems(), element + " enable='false'");
      EXPECT_EQ(Payload(chain.Fetch()), "a");
    }
  }
}

TEST(ImageTransformToolkit, BrokenPicturesBecomeEmptyPicturesWithTheirProperties) {
  const std::vector<SmPicture> pictures = {Broken({5, 8, 8, 1000, 1}), {5, 8, 8, 1040, 2}};
  for (const std::string element :
       {"image_resize", "image_boxed_resize", "image_filled_resize", "text_overlay overlay='x'",
        "image_color_format_convert", "image_crop", "apply_privacy_mask mask='1x1;1'"}) {
    SCOPED_TRACE(element);
    CmTransformChain chain(element, pictures, {"Sequence_Number"});
    auto item = chain.Fetch();
    EXPECT_EQ(Size(item), "0x0");
    EXPECT_EQ(item->GetBeginTime(), 1000);
    EXPECT_EQ(StringProperty(*item, "Sequence_Number"), "1");
    item = chain.Fetch(false);
    EXPECT_NE(Size(item), "0x0") << "the next good picture comes through";
  }
}

} // namespace
