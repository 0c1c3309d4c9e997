#include <gtest/gtest.h>

#include "Codecs/Primitives/ColorConvert.h"
#include "Codecs/Primitives/Resize.h"
#include "Image/ImageFixtures.h"
#include "MediaProcessing/Image/ImageBufferHelpers.h"
#include "MediaProcessing/Image/ImageColorFormatConvert.h"

using namespace NmMediaProcessing;
using NmImageTest::Column;
using NmImageTest::ExpectRefusals;
using NmImageTest::SamePicture;
using NmImageTest::Sample;

namespace {

// A picture of noise with the given range.
CmImage Noise(uint64_t width, uint64_t height, ColorFormat format, SubColorFormat sub,
              Interlacing interlacing = Progressive) {
  return NmImageTest::MakeImage(width, height, format, 1, interlacing, sub);
}

CmImage Converted(const CmImage& source, ColorFormat format) {
  CmImage result = NmImageTest::Applied(CmImageColorFormatConvert(format), source);
  return result;
}

} // namespace

TEST(ImageColorFormatConvert, ChromaRoundTripsAreExactForEveryHeightAndLayout) {
  // Up and back down again gives the very samples: 4:2:0 to 4:2:2 at every
  // height, and either subsampled form to 4:4:4.
  const struct {
    ColorFormat from, to;
    std::vector<Interlacing> interlacings;
  } routes[] = {
      {YCbCr420_Planar, YCbCr422_Planar, {Progressive, InterleavedTopFirst, SeparateTopFirst}},
      {YCbCr420_Planar, YCbCr444_Planar, {Progressive, InterleavedBottomFirst}},
      {YCbCr422_Planar, YCbCr444_Planar, {Progressive, InterleavedBottomFirst}},
  };
  for (const auto& route : routes) {
    for (const Interlacing interlacing : route.interlacings) {
      for (uint64_t height = 1; height <= 13; ++height) {
        SCOPED_TRACE(::testing::Message() << route.from << " to " << route.to << " height "
                                          << height << " interlacing " << interlacing);
        const CmImage source = Noise(9, height, route.from, SubColorFormatVideoRange, interlacing);
        const CmImage up = Converted(source, route.to);
        ASSERT_EQ(up.GetColorFormat(), route.to);
        EXPECT_EQ(up.Allocator().GetPlane(2).width, route.to == YCbCr444_Planar ? 9u : 5u);
        EXPECT_EQ(up.Allocator().GetPlane(1).height, height);
        EXPECT_TRUE(SamePicture(Converted(up, route.from), source));
      }
    }
  }
  // 4:4:4 takes the nearest sample.
  const CmImage source = Noise(5, 4, YCbCr420_Planar, SubColorFormatFullRange);
  const CmImage full = Converted(source, YCbCr444_Planar);
  EXPECT_EQ(Sample(full, 1, 3, 2), Sample(source, 1, 1, 1));
  EXPECT_EQ(Sample(full, 2, 4, 3), Sample(source, 2, 2, 1));
}

TEST(ImageColorFormatConvert, InterleavedChromaStaysInItsFieldRelabelsAndPackedFormats) {
  // 4:2:0 chroma rows alternate between the fields; a 4:2:2 row may only
  // take its value from a chroma row of its own field.
  CmImage source = Noise(2, 8, YCbCr420_Planar, SubColorFormatFullRange, InterleavedTopFirst);
  const auto chroma = source.Allocator().GetWriteablePlane(1);
  for (uint64_t y = 0; y < 4; ++y) {
    chroma.data[y * chroma.rowStride] = static_cast<uint8_t>(y % 2 ? 200 + y : 10 + y);
  }
  EXPECT_EQ(Column(Converted(source, YCbCr422_Planar), 1, 0),
            (std::vector<uint8_t>{10, 201, 10, 201, 12, 203, 12, 203}));
  // Progressive, the same rows are simply doubled.
  source.GetAttributes().interlacing = Progressive;
  EXPECT_EQ(Column(Converted(source, YCbCr422_Planar), 1, 0),
            (std::vector<uint8_t>{10, 10, 201, 201, 12, 12, 203, 203}));

  const CmImage gray = Noise(5, 3, Gray, SubColorFormatPlainGray);
  const CmImage planar = Converted(gray, YCbCr420_Planar);
  EXPECT_EQ(Sample(planar, 2, 2, 1), 128);
  EXPECT_EQ(planar.GetAttributes().subColorFormat, SubColorFormatPlainGray);
  EXPECT_TRUE(SamePicture(Converted(planar, Gray), gray));

  // In place, a relabel keeps the very same luma memory.
  CmImage image = Noise(6, 4, Gray, SubColorFormatFullRange);
  const uint8_t* luma = image.Allocator().GetPlane(0).data;
  CmImageColorFormatConvert(YCbCr444_Planar).Execute(image);
  EXPECT_EQ(image.Allocator().GetPlane(0).data, luma);
  EXPECT_EQ(Sample(image, 1, 5, 3), 128);
  CmImageColorFormatConvert(Gray).Execute(image);
  EXPECT_EQ(image.Allocator().GetPlaneCount(), 1u);

  // The same format shares planes, unless the requested alignment differs.
  EXPECT_EQ(Converted(image, Gray).Allocator().GetPlane(0).data, luma);
  CmImage copy = NmImageTest::Applied(CmImageColorFormatConvert(Gray, 64), image);
  EXPECT_EQ(copy.Allocator().GetPlane(0).rowStride, 64u);
  EXPECT_TRUE(SamePicture(copy, image));

  const CmImage rgb = Noise(9, 3, RGB24, NotApplicable);
  const uint8_t* in = rgb.Allocator().GetPlane(0).GetPixelAddress(8, 2);
  const CmImage bgra = Converted(rgb, BGRA);
  const uint8_t* out = bgra.Allocator().GetPlane(0).GetPixelAddress(8, 2);
  EXPECT_EQ(std::vector<uint8_t>(out, out + 4), (std::vector<uint8_t>{in[2], in[1], in[0], 255}));
  const CmImage rgb32 = Converted(rgb, RGB32);
  EXPECT_TRUE(SamePicture(Converted(rgb32, RGB24), rgb));

  // In place: RGB32 to BGRA swaps, relabels and makes alpha opaque.
  CmImage swapped(rgb32);
  CmImageColorFormatConvert(BGRA).Execute(swapped);
  EXPECT_EQ(Sample(swapped, 0, 0, 0, 0), Sample(rgb, 0, 0, 0, 2));
  EXPECT_EQ(Sample(swapped, 0, 0, 0, 3), 255);
  EXPECT_EQ(Sample(rgb32, 0, 0, 0, 0), Sample(rgb, 0, 0, 0, 0));
  CmImageColorFormatConvert(BGR32).Execute(swapped);
  EXPECT_EQ(swapped.Allocator().GetPlane(0).bytesPerPixel, 3u);
}

TEST(ImageColorFormatConvert, SubColorFormatRulesMissingRoutesAndOddFourTwoZeroFields) {
  CmImage result;
  CmImage rgb = Noise(4, 4, RGB24, SubColorFormatFullRange);
  CmImage yuv = Noise(4, 4, YCbCr420_Planar, NotApplicable);
  // A sub-colour format that names no equations is refused, not guessed.
  const CmImage unknown = Noise(4, 4, YCbCr444_Planar, static_cast<SubColorFormat>(9));
  const auto convert = [&](const CmImage& from, ColorFormat to) {
    return [&from, &result, to] { CmImageColorFormatConvert(to).Execute(from, result); };
  };
  const std::string rgbTypes =
      "Sub-color-format must be set to NotApplicable for RGB/BGR image types";
  const std::string yuvTypes = "Sub-color-format must not be set to NotApplicable for YCbCr images";
  const std::string name = "NmMediaProcessing::CmImageColorFormatConvert::";
  ExpectRefusals({
      {convert(rgb, BGR24), rgbTypes, 0},
      {convert(yuv, YCbCr422_Planar), yuvTypes, 0},
      {[&] { CmImageColorFormatConvert(Gray).Execute(yuv); },
       "Sub-color-format must not be set to NotApplicable for YCbCr or Gray scale images", 0},
      {[&] { CmImageColorFormatConvert(BGR24).Execute(rgb); },
       "Sub-color-format must be set to NotApplicable for RGB images", 0},
      {convert(unknown, RGB24),
       "Unable to convert from the given YCbCr format to the given RGB format", 0,
       name + "PerformConversionYCbCrToRGB"},
      {convert(yuv, BGRA), yuvTypes, 0},
      {convert(rgb, YCbCr444_Planar), rgbTypes, 0, name + "PerformConversionRGBToYCbCr"},
  });

  const CmImage source =
      Noise(6, 6, YCbCr420_Planar, SubColorFormatVideoRange, InterleavedBottomFirst);
  CmImage first;
  CmImage second;
  source.SplitFields(first, second);
  EXPECT_EQ(first.GetColorFormat(), YCbCr422_Planar);
  EXPECT_EQ(Column(first, 0, 5), Column(source, 0, 5, {1, 3, 5}));
  // Bottom field chroma: the odd 4:2:0 chroma rows.
  EXPECT_EQ(Column(first, 1, 1, {0, 1}), Column(source, 1, 1, {1, 1}));
  EXPECT_EQ(Column(second, 2, 2, {0, 1}), Column(source, 2, 2, {0, 0}));
}

namespace {

constexpr ColorFormat AllFormats[] = {
    Gray, RGB24, BGR24, RGB32, BGR32, YCbCr420_Planar, YCbCr422_Planar, YCbCr444_Planar,
    RGBA, BGRA};

bool IsPackedFormat(ColorFormat f) {
  return f != Gray && !IsMultiPlaneFormat(f);
}

// Red, green and blue of a pixel of a packed image, whatever its order.
void GetRgb(const CmImage& image, uint64_t x, uint64_t y, int rgb[3]) {
  const ColorFormat f = image.GetColorFormat();
  const uint8_t* p = image.Allocator().GetPlane(0).GetPixelAddress(x, y);
  const bool blueFirst = f == BGR24 || f == BGR32 || f == BGRA;
  rgb[0] = p[blueFirst ? 2 : 0];
  rgb[1] = p[1];
  rgb[2] = p[blueFirst ? 0 : 2];
}

} // namespace

TEST(ImageColorFormatConvert, EveryPairOfFormatsKeepsAFlatColour) {
  // A flat colour survives every route, subsampling included; through grey
  // only its luma survives and the result is neutral.
  for (const uint64_t width : {7u, 8u}) {
    for (const uint64_t height : {5u, 8u}) {
      CmImage rgb;
      rgb.Allocate(width, height, RGB24);
      const uint8_t colour[3] = {200, 100, 40};
      for (uint64_t i = 0; i < width * height; ++i) {
        std::copy_n(colour, 3,
                    rgb.Allocator().GetWriteablePlane(0).GetPixelAddress(i % width, i / width));
      }
      for (const ColorFormat from : AllFormats) {
        CmImage source = NmImageTest::Applied(CmImageColorFormatConvert(from), rgb);
        for (const Interlacing interlacing : {Progressive, InterleavedTopFirst}) {
          source.GetAttributes().interlacing = interlacing;
          for (const ColorFormat to : AllFormats) {
            SCOPED_TRACE(::testing::Message() << width << "x" << height << " " << from << " to "
                                              << to << " interlacing " << interlacing);
            CmImage converted;
            ASSERT_NO_THROW(CmImageColorFormatConvert(to).Execute(source, converted));
            ASSERT_EQ(converted.GetColorFormat(), to);
            EXPECT_EQ(converted.GetHeight(), height);
            EXPECT_EQ(converted.GetAttributes().interlacing, interlacing);
            EXPECT_EQ(converted.GetAttributes().subColorFormat == NotApplicable,
                      IsPackedFormat(to));
            CmImage back = NmImageTest::Applied(CmImageColorFormatConvert(RGB24), converted);
            int result[3];
            GetRgb(back, width - 1, height - 1, result);
            if (from == Gray || to == Gray) {
              EXPECT_EQ(result[0], result[1]);
              EXPECT_EQ(result[2], result[1]);
              EXPECT_NEAR(result[1], 0.299 * 200 + 0.587 * 100 + 0.114 * 40, 4);
            } else {
              EXPECT_NEAR(result[0], 200, 3);
              EXPECT_NEAR(result[1], 100, 3);
              EXPECT_NEAR(result[2], 40, 3);
            }
          }
        }
      }
    }
  }
}

TEST(ImageColorFormatConvert, RgbThroughFullRangeFourFourFourAndBack) {
  for (const ColorFormat format : {RGB24, BGR24}) {
    const CmImage rgb = Noise(33, 9, format, NotApplicable);
    CmImage ycc = NmImageTest::Applied(CmImageColorFormatConvert(YCbCr444_Planar), rgb);
    EXPECT_EQ(ycc.GetAttributes().subColorFormat, SubColorFormatFullRange);
    CmImage back = NmImageTest::Applied(CmImageColorFormatConvert(format), ycc);
    int worst = 0;
    for (uint64_t y = 0; y < 9; ++y) {
      for (uint64_t x = 0; x < 33; ++x) {
        for (uint64_t c = 0; c < 3; ++c) {
          worst = std::max(worst, std::abs(Sample(back, 0, x, y, c) - Sample(rgb, 0, x, y, c)));
        }
      }
    }
    EXPECT_LE(worst, 1) << format;
  }
  // Which range each route gives.
  const struct {
    ColorFormat from, to;
    SubColorFormat sub;
  } routes[] = {{RGB32, YCbCr420_Planar, SubColorFormatVideoRange},
                {BGRA, YCbCr444_Planar, SubColorFormatVideoRange},
                {RGBA, Gray, SubColorFormatFullRange}};
  for (const auto& route : routes) {
    CmImage out = NmImageTest::Applied(CmImageColorFormatConvert(route.to),
                                       Noise(5, 3, route.from, NotApplicable));
    EXPECT_EQ(out.GetAttributes().subColorFormat, route.sub) << route.from << " to " << route.to;
  }
}

TEST(ImageColorFormatConvert, GreyToRgbFollowsItsRange) {
  CmImage gray;
  gray.Allocate(3, 1, Gray);
  uint8_t* luma = gray.Allocator().GetWriteablePlane(0).data;
  luma[0] = 16;
  luma[1] = 235;
  luma[2] = 100;
  for (const SubColorFormat sub :
       {SubColorFormatFullRange, SubColorFormatVideoRange, SubColorFormatPlainGray}) {
    gray.GetAttributes().subColorFormat = sub;
    CmImage rgb = NmImageTest::Applied(CmImageColorFormatConvert(BGRA), gray);
    const bool video = sub == SubColorFormatVideoRange;
    EXPECT_EQ(Sample(rgb, 0, 0, 0, 1), video ? 0 : 16);
    EXPECT_EQ(Sample(rgb, 0, 1, 0, 0), video ? 255 : 235);
    EXPECT_EQ(Sample(rgb, 0, 2, 0, 2), video ? 98 : 100);
    EXPECT_EQ(Sample(rgb, 0, 2, 0, 3), 255);
  }
}

TEST(ImageColorFormatConvert, FullRangeSubsampledChromaIsInterpolatedWithoutSeams) {
  // Chroma that changes from row to row and column to column, across many
  // bands of rows: the banded conversion must equal one linear enlargement
  // of the whole chroma plane followed by the 4:4:4 conversion.
  for (const ColorFormat format : {YCbCr420_Planar, YCbCr422_Planar}) {
    for (const uint64_t width : {40u, 41u}) {
      const uint64_t height = 37;
      CmImage source = Noise(width, height, format, SubColorFormatFullRange);
      CmImage rgb = NmImageTest::Applied(CmImageColorFormatConvert(RGB24), source);

      const auto cb = source.Allocator().GetPlane(1);
      const auto cr = source.Allocator().GetPlane(2);
      const uint64_t wide = 2 * cb.width;
      const uint64_t tall = format == YCbCr420_Planar ? 2 * cb.height : cb.height;
      std::vector<uint8_t> scratch(NmPrimitives::GetResizeScratchSize(
          cb.width, cb.height, wide, tall, 1, NmPrimitives::ResizeLinear));
      std::vector<uint8_t> bigCb(wide * tall), bigCr(wide * tall);
      for (const auto& [plane, big] : {std::pair(cb, bigCb.data()), std::pair(cr, bigCr.data())}) {
        NmPrimitives::ResizePlane(plane.data, plane.rowStride, plane.width, plane.height, big, wide,
                                  wide, tall, 1, NmPrimitives::ResizeLinear, scratch.data(),
                                  scratch.size(), NmPrimitives::SmResizeWindow::Whole(wide, tall));
      }
      const auto y = source.Allocator().GetPlane(0);
      std::vector<uint8_t> expected(width * 3 * height);
      NmPrimitives::NmReference::YCbCrToRgb(
          {y.data, y.rowStride, bigCb.data(), wide, bigCr.data(), wide}, NmPrimitives::Chroma444,
          expected.data(), width * 3, {3, false}, width, height, NmPrimitives::YCbCrJfif);
      const auto out = rgb.Allocator().GetPlane(0);
      for (uint64_t row = 0; row < height; ++row) {
        ASSERT_TRUE(std::equal(expected.begin() + row * width * 3,
                               expected.begin() + (row + 1) * width * 3,
                               out.data + row * out.rowStride))
            << format << " width " << width << " row " << row;
      }
    }
  }
  // Video range takes the nearest chroma sample: two neighbours that differ
  // in chroma show it as a hard step.
  CmImage video = Noise(4, 2, YCbCr422_Planar, SubColorFormatVideoRange);
  auto& allocator = video.Allocator();
  for (uint64_t y = 0; y < 2; ++y) {
    std::fill_n(allocator.GetWriteablePlane(0).GetPixelAddress(0, y), 4, 120);
    std::fill_n(allocator.GetWriteablePlane(1).GetPixelAddress(0, y), 2, 128);
    allocator.GetWriteablePlane(2).GetPixelAddress(0, y)[0] = 100;
    allocator.GetWriteablePlane(2).GetPixelAddress(1, y)[0] = 200;
  }
  CmImage stepped = NmImageTest::Applied(CmImageColorFormatConvert(RGB24), video);
  EXPECT_EQ(Sample(stepped, 0, 0, 0), Sample(stepped, 0, 1, 0));
  EXPECT_LT(Sample(stepped, 0, 1, 0) + 100, Sample(stepped, 0, 2, 0));
}

TEST(ImageColorFormatConvert, InterleavedFourTwoZeroToRgbTakesChromaFromTheField) {
  // Rows 0 and 2 belong to the top field, whose chroma rows are 0 and 2;
  // rows 1 and 3 to the bottom field, chroma rows 1 and 3.
  CmImage source = Noise(2, 8, YCbCr420_Planar, SubColorFormatVideoRange, InterleavedTopFirst);
  auto& allocator = source.Allocator();
  CmImageBufferHelpers::SetPlane(128, allocator.GetWriteablePlane(0));
  CmImageBufferHelpers::SetPlane(128, allocator.GetWriteablePlane(1));
  for (uint64_t y = 0; y < 4; ++y) {
    allocator.GetWriteablePlane(2).GetPixelAddress(0, y)[0] = y % 2 ? 240 : 16;
  }
  const std::vector<uint8_t> red = Column(Converted(source, RGB24), 0, 0);
  for (uint64_t y = 0; y < 8; ++y) {
    EXPECT_EQ(red[y], y % 2 ? 255 : 0) << y;
  }
}
