#include <gtest/gtest.h>

#include "MediaProcessing/Image/ImageColorFormatConvert.h"
#include "support/ImageTestSupport.h"

using namespace NmMediaProcessing;
using NmImageTest::ExpectError;
using NmImageTest::FillRandom;
using NmImageTest::Sample;

namespace {

bool SamePixels(const CmImage& a, const CmImage& b) {
  if (a.GetColorFormat() != b.GetColorFormat() || a.GetWidth() != b.GetWidth() ||
      a.GetHeight() != b.GetHeight()) {
    return false;
  }
  for (uint64_t p = 0; p < a.Allocator().GetPlaneCount(); ++p) {
    const auto pa = a.Allocator().GetPlane(p);
    const auto pb = b.Allocator().GetPlane(p);
    for (uint64_t y = 0; y < pa.height; ++y) {
      for (uint64_t x = 0; x < pa.width * pa.bytesPerPixel; ++x) {
        if (pa.data[y * pa.rowStride + x] != pb.data[y * pb.rowStride + x]) {
          return false;
        }
      }
    }
  }
  return true;
}

CmImage MakeImage(uint64_t width, uint64_t height, ColorFormat format, SubColorFormat sub,
                  Interlacing interlacing = Progressive) {
  CmImage image;
  image.Allocate(width, height, format);
  FillRandom(image, static_cast<uint32_t>(width * 131 + height * 7 + format));
  image.GetAttributes().subColorFormat = sub;
  image.GetAttributes().interlacing = interlacing;
  return image;
}

} // namespace

TEST(ImageColorFormatConvert, ChromaRoundTripIsExactForEveryHeightAndLayout) {
  for (const Interlacing interlacing : {Progressive, InterleavedTopFirst, SeparateTopFirst}) {
    for (uint64_t height = 1; height <= 13; ++height) {
      SCOPED_TRACE(::testing::Message() << "height " << height << " interlacing " << interlacing);
      const CmImage source =
          MakeImage(7, height, YCbCr420_Planar, SubColorFormatVideoRange, interlacing);
      CmImage upsampled;
      CmImageColorFormatConvert(YCbCr422_Planar).Execute(source, upsampled);
      ASSERT_EQ(upsampled.GetColorFormat(), YCbCr422_Planar);
      EXPECT_EQ(upsampled.GetHeight(), height);
      EXPECT_EQ(upsampled.Allocator().GetPlane(1).height, height);
      EXPECT_EQ(upsampled.GetAttributes().interlacing, interlacing);
      CmImage back;
      CmImageColorFormatConvert(YCbCr420_Planar).Execute(upsampled, back);
      EXPECT_TRUE(SamePixels(back, source));
    }
  }
}

TEST(ImageColorFormatConvert, FourFourFourRoundTripsAndNearestSamples) {
  for (const Interlacing interlacing : {Progressive, InterleavedBottomFirst}) {
    for (const ColorFormat format : {YCbCr420_Planar, YCbCr422_Planar}) {
      for (const uint64_t height : {4u, 5u, 7u, 8u}) {
        SCOPED_TRACE(::testing::Message()
                     << format << " height " << height << " interlacing " << interlacing);
        const CmImage source = MakeImage(9, height, format, SubColorFormatFullRange, interlacing);
        CmImage full;
        CmImageColorFormatConvert(YCbCr444_Planar).Execute(source, full);
        ASSERT_EQ(full.GetColorFormat(), YCbCr444_Planar);
        EXPECT_EQ(full.Allocator().GetPlane(2).width, 9u);
        EXPECT_EQ(full.GetAttributes().interlacing, interlacing);
        CmImage back;
        CmImageColorFormatConvert(format).Execute(full, back);
        EXPECT_TRUE(SamePixels(back, source));
      }
    }
  }
  const CmImage source = MakeImage(5, 4, YCbCr420_Planar, SubColorFormatFullRange);
  CmImage full;
  CmImageColorFormatConvert(YCbCr444_Planar).Execute(source, full);
  EXPECT_EQ(Sample(full, 1, 3, 2), Sample(source, 1, 1, 1));
  EXPECT_EQ(Sample(full, 2, 4, 3), Sample(source, 2, 2, 1));
}

TEST(ImageColorFormatConvert, InterleavedChromaStaysInItsField) {
  // 4:2:0 chroma rows alternate between the fields; a 4:2:2 row may only
  // take its value from a chroma row of its own field.
  CmImage source = MakeImage(2, 8, YCbCr420_Planar, SubColorFormatFullRange, InterleavedTopFirst);
  const auto chroma = source.Allocator().GetWriteablePlane(1);
  for (uint64_t y = 0; y < 4; ++y) {
    chroma.data[y * chroma.rowStride] = static_cast<uint8_t>(y % 2 ? 200 + y : 10 + y);
  }
  CmImage result;
  CmImageColorFormatConvert(YCbCr422_Planar).Execute(source, result);
  const uint8_t expected[8] = {10, 201, 10, 201, 12, 203, 12, 203};
  for (uint64_t y = 0; y < 8; ++y) {
    EXPECT_EQ(Sample(result, 1, 0, y), expected[y]) << y;
  }
  // Progressive, the same rows are simply doubled.
  source.GetAttributes().interlacing = Progressive;
  CmImageColorFormatConvert(YCbCr422_Planar).Execute(source, result);
  EXPECT_EQ(Sample(result, 1, 0, 1), 10);
  EXPECT_EQ(Sample(result, 1, 0, 2), 201);
}

TEST(ImageColorFormatConvert, GrayAndPlanarRelabels) {
  const CmImage gray = MakeImage(5, 3, Gray, SubColorFormatPlainGray);
  CmImage planar;
  CmImageColorFormatConvert(YCbCr420_Planar).Execute(gray, planar);
  EXPECT_EQ(planar.GetColorFormat(), YCbCr420_Planar);
  EXPECT_EQ(Sample(planar, 0, 4, 2), Sample(gray, 0, 4, 2));
  EXPECT_EQ(Sample(planar, 2, 2, 1), 128);
  EXPECT_EQ(planar.GetAttributes().subColorFormat, SubColorFormatPlainGray);

  CmImage back;
  CmImageColorFormatConvert(Gray).Execute(planar, back);
  EXPECT_TRUE(SamePixels(back, gray));

  // In place, a relabel keeps the very same luma memory.
  CmImage image = MakeImage(6, 4, Gray, SubColorFormatFullRange);
  const uint8_t* luma = image.Allocator().GetPlane(0).data;
  CmImageColorFormatConvert(YCbCr444_Planar).Execute(image);
  EXPECT_EQ(image.GetColorFormat(), YCbCr444_Planar);
  EXPECT_EQ(image.Allocator().GetPlane(0).data, luma);
  EXPECT_EQ(Sample(image, 1, 5, 3), 128);
  CmImageColorFormatConvert(Gray).Execute(image);
  EXPECT_EQ(image.Allocator().GetPlaneCount(), 1u);

  // The same format shares planes.
  CmImage shared;
  CmImageColorFormatConvert(Gray).Execute(image, shared);
  EXPECT_EQ(shared.Allocator().GetPlane(0).data, luma);
  // Unless the requested alignment differs; then it is a real copy.
  CmImageColorFormatConvert(Gray, 64).Execute(image, shared);
  EXPECT_NE(shared.Allocator().GetPlane(0).data, luma);
  EXPECT_EQ(shared.Allocator().GetPlane(0).rowStride, 64u);
  EXPECT_TRUE(SamePixels(shared, image));
}

TEST(ImageColorFormatConvert, PackedFormatsBetweenEachOther) {
  const CmImage rgb = MakeImage(9, 3, RGB24, NotApplicable);
  CmImage bgra;
  CmImageColorFormatConvert(BGRA).Execute(rgb, bgra);
  const uint8_t* in = rgb.Allocator().GetPlane(0).GetPixelAddress(8, 2);
  const uint8_t* out = bgra.Allocator().GetPlane(0).GetPixelAddress(8, 2);
  EXPECT_EQ(out[0], in[2]);
  EXPECT_EQ(out[1], in[1]);
  EXPECT_EQ(out[2], in[0]);
  EXPECT_EQ(out[3], 255);

  CmImage rgb32;
  CmImageColorFormatConvert(RGB32).Execute(rgb, rgb32);
  CmImage again;
  CmImageColorFormatConvert(RGB24).Execute(rgb32, again);
  EXPECT_TRUE(SamePixels(again, rgb));
  CmImage rgba;
  CmImageColorFormatConvert(RGBA).Execute(rgb32, rgba);
  EXPECT_EQ(rgba.Allocator().GetPlane(0).GetPixelAddress(3, 1)[3], 255);

  // In place: RGB32 to BGRA swaps, relabels and makes alpha opaque.
  CmImage image(rgb32);
  CmImageColorFormatConvert(BGRA).Execute(image);
  EXPECT_EQ(image.GetColorFormat(), BGRA);
  EXPECT_EQ(image.Allocator().GetPlane(0).data[0], rgb.Allocator().GetPlane(0).data[2]);
  EXPECT_EQ(image.Allocator().GetPlane(0).data[3], 255);
  EXPECT_EQ(rgb32.Allocator().GetPlane(0).data[0], rgb.Allocator().GetPlane(0).data[0]);
  CmImageColorFormatConvert(BGR32).Execute(image);
  EXPECT_EQ(image.GetColorFormat(), BGR32);
  EXPECT_EQ(image.Allocator().GetPlane(0).bytesPerPixel, 3u);
}

TEST(ImageColorFormatConvert, SubColorFormatRulesAndMissingRoutes) {
  CmImage result;
  const CmImage rgb = MakeImage(4, 4, RGB24, SubColorFormatFullRange);
  ExpectError([&] { CmImageColorFormatConvert(BGR24).Execute(rgb, result); },
              "Sub-color-format must be set to NotApplicable for RGB/BGR image types", 0);
  const CmImage yuv = MakeImage(4, 4, YCbCr420_Planar, NotApplicable);
  ExpectError([&] { CmImageColorFormatConvert(YCbCr422_Planar).Execute(yuv, result); },
              "Sub-color-format must not be set to NotApplicable for YCbCr images", 0);
  CmImage inPlace(yuv);
  ExpectError([&] { CmImageColorFormatConvert(Gray).Execute(inPlace); },
              "Sub-color-format must not be set to NotApplicable for YCbCr or Gray scale images",
              0);
  CmImage packed(rgb);
  ExpectError([&] { CmImageColorFormatConvert(BGR24).Execute(packed); },
              "Sub-color-format must be set to NotApplicable for RGB images", 0);
  // Routes whose arithmetic is not written yet say so.
  const CmImage plain = MakeImage(4, 4, RGB24, NotApplicable);
  ExpectError([&] { CmImageColorFormatConvert(YCbCr420_Planar).Execute(plain, result); },
              "Conversion between RGB and YCbCr formats is not available yet", 6);
}

TEST(ImageColorFormatConvert, SplitFieldsOfOddFourTwoZeroGoesThroughFourTwoTwo) {
  const CmImage source =
      MakeImage(6, 6, YCbCr420_Planar, SubColorFormatVideoRange, InterleavedBottomFirst);
  CmImage first;
  CmImage second;
  source.SplitFields(first, second);
  EXPECT_EQ(first.GetColorFormat(), YCbCr422_Planar);
  EXPECT_EQ(first.GetHeight(), 3u);
  EXPECT_EQ(second.GetHeight(), 3u);
  EXPECT_EQ(first.GetAttributes().interlacing, BottomFieldOnly);
  EXPECT_EQ(Sample(first, 0, 5, 2), Sample(source, 0, 5, 5));
  // Bottom field chroma: the odd 4:2:0 chroma rows.
  EXPECT_EQ(Sample(first, 1, 1, 0), Sample(source, 1, 1, 1));
  EXPECT_EQ(Sample(second, 2, 2, 1), Sample(source, 2, 2, 0));
}
