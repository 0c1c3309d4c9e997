#include <gtest/gtest.h>

#include <array>
#include <string>

#include "Image/ImageFixtures.h"
#include "MediaProcessing/Image/ColorMaskingOverlay.h"

using namespace NmMediaProcessing;
using NmImageTest::ExpectError;
using NmImageTest::MakeImage;
using NmImageTest::Sample;

namespace {

std::unique_ptr<ImMaskDefinition> Definition(const std::string& text) {
  const auto repository = ParseMaskString(text);
  std::unique_ptr<ImMaskDefinition> mask;
  CmTimeSpan span;
  repository->GetMaskAt(NmTimeStamp::CmTimeStamp(), true, mask, span);
  return mask;
}

struct SmCase {
  ColorFormat format;
  SubColorFormat sub;
  std::array<uint8_t, 3> expected; // in the plane's byte order, or Y Cb Cr
};

} // namespace

TEST(ColorMaskingOverlay, MaskedPixelsTakeTheColourInTheImagesRangeAndOrder) {
  const std::string text = "4x3;1000;0010;0001";
  const auto definition = Definition(text);
  const auto repository = ParseMaskString(text);
  // Pure red: BT.601 video range, JFIF full range, and the packed orders.
  const SmCase cases[] = {
      {Gray, SubColorFormatVideoRange, {81, 0, 0}},
      {Gray, SubColorFormatPlainGray, {76, 0, 0}},
      {YCbCr444_Planar, SubColorFormatVideoRange, {81, 90, 240}},
      {YCbCr444_Planar, SubColorFormatFullRange, {76, 85, 255}},
      {YCbCr420_Planar, SubColorFormatVideoRange, {81, 90, 240}},
      {YCbCr422_Planar, SubColorFormatFullRange, {76, 85, 255}},
      {RGB24, NotApplicable, {255, 0, 0}},
      {BGR24, NotApplicable, {0, 0, 255}},
      {RGB32, NotApplicable, {255, 0, 0}},
      {BGR32, NotApplicable, {0, 0, 255}},
      {RGBA, NotApplicable, {255, 0, 0}},
      {BGRA, NotApplicable, {0, 0, 255}},
  };
  for (const SmCase& c : cases) {
    SCOPED_TRACE(std::to_string(c.format) + "/" + std::to_string(c.sub));
    CmImage image = MakeImage(16, 12, c.format, 7, Progressive, c.sub);
    const CmImage before(image);
    CmColorMaskingOverlay overlay(*repository, 255, 0, 0);
    overlay.Execute(image);
    const auto plane = image.Allocator().GetPlane(0);
    for (uint64_t y = 0; y < 12; ++y) {
      for (uint64_t x = 0; x < 16; ++x) {
        const bool masked = definition->IsMaskedAtPosition(16, 12, x, y);
        for (uint64_t ch = 0; ch < plane.bytesPerPixel && ch < 3; ++ch) {
          const uint8_t expected = masked ? c.expected[ch] : Sample(before, 0, x, y, ch);
          ASSERT_EQ(Sample(image, 0, x, y, ch), expected) << x << "," << y;
        }
        if (c.format == RGBA || c.format == BGRA) {
          ASSERT_EQ(Sample(image, 0, x, y, 3), masked ? 255 : Sample(before, 0, x, y, 3));
        }
        if (c.format == YCbCr444_Planar) {
          ASSERT_EQ(Sample(image, 1, x, y), masked ? c.expected[1] : Sample(before, 1, x, y));
          ASSERT_EQ(Sample(image, 2, x, y), masked ? c.expected[2] : Sample(before, 2, x, y));
        }
      }
    }
  }
  // Black stays black in either range.
  CmImage video = MakeImage(8, 8, YCbCr420_Planar, 3);
  CmColorMaskingOverlay black(*ParseMaskString("1x1;1"), 0, 0, 0);
  black.Execute(video);
  EXPECT_EQ(Sample(video, 0, 5, 5), 16);
  // The same overlay follows a change of range at the same geometry.
  CmImage full = MakeImage(8, 8, YCbCr420_Planar, 4, Progressive, SubColorFormatFullRange);
  black.Execute(full);
  EXPECT_EQ(Sample(full, 0, 5, 5), 0);
  EXPECT_EQ(Sample(full, 2, 3, 1), 128);
}

TEST(ColorMaskingOverlay, NoColourBleedsThroughSharedChroma) {
  // Odd sizes put cell edges in the middle of chroma samples.
  const struct {
    ColorFormat format;
    uint64_t width, height;
    const char* text;
  } cases[] = {
      {YCbCr420_Planar, 11, 9, "3x3;010;101;010"},
      {YCbCr420_Planar, 13, 7, "5x2;10001;00100"},
      {YCbCr420_Planar, 2, 2, "2x2;00;01"},
      {YCbCr422_Planar, 13, 7, "3x3;010;101;010"},
      {YCbCr422_Planar, 9, 5, "4x1;0100"},
      {YCbCr420_Planar, 17, 15, "7x5;1000000;0001000;0000001;0010000;0000100"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    const uint64_t rowFactor = c.format == YCbCr420_Planar ? 2 : 1;
    const auto definition = Definition(c.text);
    CmImage image = MakeImage(c.width, c.height, c.format, 11);
    const CmImage before(image);
    CmColorMaskingOverlay overlay(*ParseMaskString(c.text), 0, 255, 0);
    overlay.Execute(image);
    const SmMaskColor green = ConvertMaskColor(0, 255, 0, c.format, SubColorFormatVideoRange);
    const auto chroma = image.Allocator().GetPlane(1);
    for (uint64_t cy = 0; cy < chroma.height; ++cy) {
      for (uint64_t cx = 0; cx < chroma.width; ++cx) {
        bool anyLumaMasked = false;
        bool allLumaPainted = true;
        for (uint64_t y = cy * rowFactor; y < (cy + 1) * rowFactor && y < c.height; ++y) {
          for (uint64_t x = 2 * cx; x < 2 * cx + 2 && x < c.width; ++x) {
            anyLumaMasked |= definition->IsMaskedAtPosition(c.width, c.height, x, y);
            allLumaPainted &= Sample(image, 0, x, y) == green.sample[0];
          }
        }
        const bool painted = Sample(image, 1, cx, cy) == green.sample[1] &&
                             Sample(image, 2, cx, cy) == green.sample[2];
        const bool untouched = Sample(image, 1, cx, cy) == Sample(before, 1, cx, cy) &&
                               Sample(image, 2, cx, cy) == Sample(before, 2, cx, cy);
        // A masked pixel's chroma is the mask's, and a chroma sample that
        // carries the mask colour shows on masked luma only.
        if (anyLumaMasked) {
          ASSERT_TRUE(painted) << cx << "," << cy;
        }
        if (!untouched) {
          ASSERT_TRUE(painted && allLumaPainted) << cx << "," << cy;
        } else {
          for (uint64_t y = cy * rowFactor; y < (cy + 1) * rowFactor && y < c.height; ++y) {
            for (uint64_t x = 2 * cx; x < 2 * cx + 2 && x < c.width; ++x) {
              ASSERT_EQ(Sample(image, 0, x, y), Sample(before, 0, x, y)) << x << "," << y;
            }
          }
        }
      }
    }
    // The luma mask holds exactly the definition grown to whole chroma samples.
    const CmImage& luma = overlay.GetLumaMask();
    for (uint64_t y = 0; y < c.height; ++y) {
      for (uint64_t x = 0; x < c.width; ++x) {
        const bool chromaMasked = Sample(overlay.GetChromaMask(), 0, x / 2, y / rowFactor) != 0;
        ASSERT_EQ(Sample(luma, 0, x, y) != 0,
                  definition->IsMaskedAtPosition(c.width, c.height, x, y) || chromaMasked);
      }
    }
  }
}

TEST(ColorMaskingOverlay, LeavesImagesAloneRefusesBadOnesAndMasksStoredPixels) {
  CmSingularMaskRepository nothing;
  CmImage image = MakeImage(6, 4, YCbCr420_Planar, 5);
  CmImage shared(image);
  CmColorMaskingOverlay none(nothing, 1, 2, 3);
  none.Execute(image);
  // Not even a private copy of the planes was made.
  EXPECT_EQ(image.Allocator().GetPlane(0).data, shared.Allocator().GetPlane(0).data);
  CmColorMaskingOverlay zeros(*ParseMaskString("2x1;00"), 1, 2, 3);
  zeros.Execute(image);
  EXPECT_EQ(image.Allocator().GetPlane(0).data, shared.Allocator().GetPlane(0).data);

  CmColorMaskingOverlay all(*ParseMaskString("1x1;1"), 255, 255, 255);
  CmImage invalid;
  ExpectError([&] { all.Execute(invalid); }, "No valid source image data", 1,
              "NmMediaProcessing::CmColorMaskingOverlay::Execute");
  image.GetAttributes().interlacing = InterleavedTopFirst;
  ExpectError([&] { all.Execute(image); }, "Overlays cannot be placed on interlaced images", 2);

  // The masks follow a change of size, and the shared copy stays as it was.
  image.GetAttributes().interlacing = Progressive;
  all.Execute(image);
  EXPECT_EQ(Sample(image, 0, 5, 3), 235);
  EXPECT_NE(image.Allocator().GetPlane(0).data, shared.Allocator().GetPlane(0).data);
  CmImage larger = MakeImage(9, 7, YCbCr420_Planar, 6);
  std::unique_ptr<ImImageOverlayTransformation> clone(all.CloneOverlay());
  clone->Execute(larger);
  all.Execute(larger);
  EXPECT_EQ(Sample(larger, 0, 8, 6), 235);
  EXPECT_EQ(all.GetLumaMask().GetWidth(), 9u);
  // The two-image form paints a copy and leaves the source alone.
  const CmImage source = MakeImage(4, 4, Gray, 8, Progressive, SubColorFormatPlainGray);
  const uint8_t before = Sample(source, 0, 3, 3);
  CmImage destination = NmImageTest::Applied(all, source);
  EXPECT_EQ(Sample(destination, 0, 3, 3), 255);
  EXPECT_EQ(Sample(source, 0, 3, 3), before);

  // Masks are made in the image's own orientation: what is stored is masked
  // by the grid as stored, whatever the orientation says about showing it.
  const auto definition = Definition("3x2;100;001");
  for (uint32_t rotation = 0; rotation < 4; ++rotation) {
    for (int flips = 0; flips < 4; ++flips) {
      CmImage image = MakeImage(12, 8, Gray, rotation * 4 + flips);
      image.GetAttributes().orientation =
          NmImageTest::MakeOrientation(rotation, flips & 1, flips & 2);
      CmColorMaskingOverlay overlay(*ParseMaskString("3x2;100;001"), 0, 0, 0);
      overlay.Execute(image);
      for (uint64_t y = 0; y < 8; ++y) {
        for (uint64_t x = 0; x < 12; ++x) {
          if (definition->IsMaskedAtPosition(12, 8, x, y)) {
            ASSERT_EQ(Sample(image, 0, x, y), 16) << rotation << " " << flips;
          }
        }
      }
    }
  }
}
