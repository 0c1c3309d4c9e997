#include <gtest/gtest.h>

#include <set>
#include <string>

#include "MediaProcessing/Image/ImageBufferHelpers.h"
#include "MediaProcessing/Image/TextOverlay.h"
#include "support/ImageTestSupport.h"

using namespace NmMediaProcessing;

namespace {

CmImage MakeImage(uint64_t width, uint64_t height, ColorFormat format) {
  CmImage image;
  image.Allocate(width, height, format);
  // One colour that the text cannot produce, so untouched pixels stand out.
  const uint8_t colour[4] = {40, 90, 200, 255};
  const auto plane = image.Allocator().GetWriteablePlane(0);
  for (uint64_t i = 0; i < width * height; ++i) {
    std::copy_n(colour, plane.pixelStride, plane.GetPixelAddress(i % width, i / width));
  }
  return image;
}

CmOverlayParameters Parameters(uint32_t flags, double scale = 1.0) {
  CmOverlayParameters parameters;
  parameters.flags = flags;
  parameters.scale = scale;
  return parameters;
}

struct SmColours {
  uint64_t white = 0;
  uint64_t black = 0;
  uint64_t untouched = 0;
  uint64_t other = 0;
  uint64_t top = UINT64_MAX, bottom = 0, left = UINT64_MAX, right = 0;
};

SmColours Count(const CmImage& image) {
  SmColours colours;
  const auto plane = image.Allocator().GetPlane(0);
  for (uint64_t y = 0; y < plane.height; ++y) {
    for (uint64_t x = 0; x < plane.width; ++x) {
      const uint8_t* p = plane.GetPixelAddress(x, y);
      if (p[0] == 255 && p[1] == 255 && p[2] == 255) {
        ++colours.white;
      } else if (p[0] == 0 && p[1] == 0 && p[2] == 0) {
        ++colours.black;
      } else if (p[0] == 40 && p[1] == 90 && p[2] == 200) {
        ++colours.untouched;
        continue;
      } else {
        ++colours.other;
      }
      colours.top = std::min(colours.top, y);
      colours.bottom = std::max(colours.bottom, y);
      colours.left = std::min(colours.left, x);
      colours.right = std::max(colours.right, x);
    }
  }
  return colours;
}

} // namespace

TEST(TextOverlay, PaintsOnlyTextShadowAndUntouchedPixels) {
  for (const ColorFormat format : {BGR32, BGR24, RGBA}) {
    SCOPED_TRACE(format);
    CmImage image = MakeImage(160, 40, format);
    CmTextOverlay overlay("Camera 7 — Entrée", Parameters(OverlayLeft | OverlayTop));
    overlay.Execute(image);
    const SmColours colours = Count(image);
    EXPECT_EQ(colours.other, 0u);
    EXPECT_GT(std::min(colours.white, colours.black), 20u);
    EXPECT_GT(colours.untouched, 160u * 40u / 2);
    // At the top left, give or take a letter's side bearing and ascent room.
    EXPECT_LE(colours.left, 2u);
    EXPECT_LE(colours.top, 4u);
    EXPECT_LT(colours.right, 159u);
  }
  // The shadow sits one pixel below and to the right of the letters.
  const CmImage& surface = [] {
    static CmTextOverlay overlay("I", Parameters(0));
    CmImage image = MakeImage(50, 30, BGR32);
    overlay.Execute(image);
    return overlay.GetSurface();
  }();
  const auto plane = surface.Allocator().GetPlane(0);
  for (uint64_t y = 0; y + 1 < plane.height; ++y) {
    for (uint64_t x = 0; x + 1 < plane.width; ++x) {
      const uint8_t* p = plane.GetPixelAddress(x, y);
      const uint8_t* below = plane.GetPixelAddress(x + 1, y + 1);
      if (p[0] == 255 && below[0] != 255) {
        ASSERT_EQ(below[0], 0) << x << "," << y;
      }
    }
  }
}

TEST(TextOverlay, WrapsScalesAndRepaintsOnlyForANewHeight) {
  const std::string text = "one two three four five six seven eight nine ten";
  CmImage narrow = MakeImage(90, 200, BGR32);
  CmTextOverlay wrapped(text, Parameters(OverlayLeft | OverlayTop));
  wrapped.Execute(narrow);
  EXPECT_LE(wrapped.GetSurface().GetWidth(), 91u);
  // Several lines of a 12 pixel font.
  EXPECT_GT(Count(narrow).bottom, 3u * 12);

  CmImage wide = MakeImage(1000, 200, BGR32);
  CmTextOverlay single(text, Parameters(OverlayLeft | OverlayTop));
  single.Execute(wide);
  EXPECT_LT(single.GetSurface().GetHeight(), 2u * 12 + 6);
  EXPECT_GT(single.GetSurface().GetWidth(), 200u);

  // Right alignment puts the text's right edge at the image's.
  CmImage right = MakeImage(300, 50, BGR32);
  CmTextOverlay aligned("Right", Parameters(OverlayRight | OverlayBottom));
  aligned.Execute(right);
  const SmColours placed = Count(right);
  EXPECT_GE(placed.right, 290u);
  EXPECT_GE(placed.bottom, 40u);

  CmTextOverlay overlay("Scale", Parameters(OverlayScale | OverlayLeft | OverlayTop, 0.1));
  CmImage small = MakeImage(400, 300, BGR32);
  overlay.Execute(small);
  EXPECT_EQ(overlay.GetFontHeight(), 30u);
  const uint8_t* painted = overlay.GetSurface().Allocator().GetPlane(0).data;
  CmImage same = MakeImage(200, 300, BGR32);
  overlay.Execute(same);
  EXPECT_EQ(overlay.GetSurface().Allocator().GetPlane(0).data, painted);
  CmImage taller = MakeImage(400, 600, BGR32);
  overlay.Execute(taller);
  EXPECT_EQ(overlay.GetFontHeight(), 60u);
  // A turned image measures its height across its stored width.
  CmImage turned = MakeImage(500, 400, BGR32);
  turned.GetAttributes().orientation.rotation = 1;
  overlay.Execute(turned);
  EXPECT_EQ(overlay.GetFontHeight(), 50u);
  // Never below 12 pixels.
  CmTextOverlay tiny("tiny", Parameters(OverlayScale, 0.001));
  CmImage image = MakeImage(100, 100, BGR32);
  tiny.Execute(image);
  EXPECT_EQ(tiny.GetFontHeight(), 12u);
  // Nor above 2048, and a text far larger than the image is clipped to it.
  CmTextOverlay huge("W", Parameters(OverlayScale | OverlayRight, 1e6));
  CmImage little = MakeImage(64, 48, BGR32);
  huge.Execute(little);
  EXPECT_EQ(huge.GetFontHeight(), 2048u);
  EXPECT_EQ(Count(little).other, 0u);
}

TEST(TextOverlay, EmptyOrOddTextIsHandledQuietly) {
  CmTextOverlay empty("", Parameters(0));
  CmImage image = MakeImage(20, 10, BGR32);
  const CmImage shared(image);
  empty.Execute(image);
  CmImage destination;
  empty.Execute(image, destination);
  EXPECT_EQ(destination.Allocator().GetPlane(0).data, shared.Allocator().GetPlane(0).data);

  // Invalid UTF-8, control characters and an unknown font still paint.
  CmTextOverlay odd(std::string("\xff\xfe bad \x01\n\tline"), Parameters(OverlayTop),
                    "No Such Font Family");
  CmImage target = MakeImage(120, 60, BGR32);
  odd.Execute(target);
  EXPECT_GT(Count(target).white, 0u);
  // A clone paints the same; text larger than the image is the scaling test's.
  std::unique_ptr<ImImageTransformation> clone(odd.Clone());
  CmImage again = MakeImage(120, 60, BGR32);
  clone->Execute(again);
  EXPECT_EQ(Count(again).white, Count(target).white);
}

TEST(TextOverlay, LaysWhiteAndBlackInThePlanarImagesOwnRange) {
  const struct {
    ColorFormat format;
    SubColorFormat range;
    uint8_t white, black;
  } cases[] = {
      {YCbCr420_Planar, SubColorFormatVideoRange, 235, 16},
      {YCbCr422_Planar, SubColorFormatFullRange, 255, 0},
      {YCbCr444_Planar, SubColorFormatFullRange, 255, 0},
      {Gray, SubColorFormatPlainGray, 255, 0},
      {Gray, SubColorFormatVideoRange, 235, 16},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(std::to_string(c.format) + "/" + std::to_string(c.range));
    CmImage image;
    image.Allocate(97, 31, c.format);
    image.GetAttributes().subColorFormat = c.range;
    for (uint64_t p = 0; p < image.Allocator().GetPlaneCount(); ++p) {
      CmImageBufferHelpers::SetPlane(p == 0 ? 100 : 128, image.Allocator().GetWriteablePlane(p));
    }
    CmTextOverlay overlay("Gate 3", Parameters(OverlayRight | OverlayTop));
    overlay.Execute(image);
    std::set<uint8_t> luma;
    const auto y = image.Allocator().GetPlane(0);
    for (uint64_t row = 0; row < y.height; ++row) {
      for (uint64_t x = 0; x < y.width; ++x) {
        luma.insert(y.GetPixelAddress(x, row)[0]);
      }
    }
    // Background, letters and shadow, nothing in between.
    EXPECT_EQ(luma, (std::set<uint8_t>{c.black, 100, c.white}));
    for (uint64_t p = 1; p < image.Allocator().GetPlaneCount(); ++p) {
      const auto chroma = image.Allocator().GetPlane(p);
      for (uint64_t row = 0; row < chroma.height; ++row) {
        for (uint64_t x = 0; x < chroma.width; ++x) {
          ASSERT_NEAR(chroma.GetPixelAddress(x, row)[0], 128, 1);
        }
      }
    }
  }
}
