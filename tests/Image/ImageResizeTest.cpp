#include <gtest/gtest.h>

#include "Codecs/Primitives/Resize.h"
#include "Image/ImageFixtures.h"
#include "MediaProcessing/Image/ImageBoundingRectangleResize.h"
#include "MediaProcessing/Image/ImageBufferHelpers.h"
#include "MediaProcessing/Image/ImageCrop.h"
#include "MediaProcessing/Image/ImageResize.h"

using namespace NmMediaProcessing;
using NmImageTest::ExpectError;
using NmImageTest::MakeImage;
using NmImageTest::Planes;
using NmImageTest::Sample;

namespace {

// Plane 0 of the image as the primitive resizes it in the given mode.
std::vector<uint8_t> ResizedLuma(const CmImage& image, uint64_t width, uint64_t height,
                                 NmPrimitives::SmResizeMode mode) {
  const auto plane = image.Allocator().GetPlane(0);
  std::vector<uint8_t> scratch(NmPrimitives::GetResizeScratchSize(plane.width, plane.height, width,
                                                                  height, plane.pixelStride, mode));
  std::vector<uint8_t> out(width * plane.pixelStride * height);
  NmPrimitives::ResizePlane(plane.data, plane.rowStride, plane.width, plane.height, out.data(),
                            width * plane.pixelStride, width, height, plane.pixelStride, mode,
                            scratch.data(), scratch.size(),
                            NmPrimitives::SmResizeWindow::Whole(width, height));
  return out;
}

} // namespace

TEST(ImageResize, InterpolationByOptionsFormatsSizesAndAspect) {
  const CmImage source = MakeImage(100, 100, Gray);
  const struct {
    uint32_t options;
    uint64_t width, height;
    NmPrimitives::SmResizeMode mode;
  } cases[] = {
      {0, 60, 70, NmPrimitives::ResizeLinear},
      {ImImageTransformation::OptionFast, 60, 70, NmPrimitives::ResizeNearest},
      {ImImageTransformation::OptionHighQuality, 60, 70, NmPrimitives::ResizeSuperSample},
      // The height does not shrink, so this is no super sampling.
      {ImImageTransformation::OptionHighQuality, 50, 100, NmPrimitives::ResizeLanczos},
      {ImImageTransformation::OptionHighQuality, 150, 40, NmPrimitives::ResizeLanczos},
      {ImImageTransformation::OptionFast | ImImageTransformation::OptionHighQuality, 50, 40,
       NmPrimitives::ResizeNearest},
  };
  for (const auto& c : cases) {
    CmImageResize resize(c.width, c.height, true);
    resize.SetOptions(c.options);
    CmImage result = NmImageTest::Applied(resize, source);
    // A clone resizes the same way.
    std::unique_ptr<ImImageTransformation> clone(resize.Clone());
    clone->Execute(source, result);
    EXPECT_EQ(Planes(result)[0], ResizedLuma(source, c.width, c.height, c.mode))
        << c.options << " " << c.width << "x" << c.height;
  }

  // Every format resizes, each plane to its own size.
  for (const ColorFormat format :
       {Gray, RGB24, BGR32, RGBA, YCbCr420_Planar, YCbCr422_Planar, YCbCr444_Planar}) {
    CmImage result = NmImageTest::Applied(CmImageResize(31, 17, true), MakeImage(64, 48, format));
    EXPECT_EQ(result.GetColorFormat(), format);
    EXPECT_EQ(result.Allocator().GetPlane(result.Allocator().GetPlaneCount() - 1).width,
              format == YCbCr420_Planar || format == YCbCr422_Planar ? 16u : 31u);
  }
  // High quality takes odd 4:2:0 through 4:4:4 and stays there.
  CmImageResize highQuality(50, 40, true);
  highQuality.SetOptions(ImImageTransformation::OptionHighQuality);
  CmImage result = NmImageTest::Applied(highQuality, MakeImage(101, 80, YCbCr420_Planar));
  EXPECT_EQ(result.GetColorFormat(), YCbCr444_Planar);
  CmImageResize(51, 40, true).Execute(MakeImage(101, 80, YCbCr420_Planar), result);
  EXPECT_EQ(result.GetColorFormat(), YCbCr420_Planar);
  highQuality.Execute(MakeImage(100, 81, YCbCr422_Planar), result);
  EXPECT_EQ(result.GetColorFormat(), YCbCr422_Planar);

  // Stretching changes the pixel aspect unless told to keep it.
  CmImage square = MakeImage(100, 100, RGB24);
  square.GetAttributes().aspectRatio = 1.0;
  CmImageResize(200, 100, false).Execute(square, result);
  EXPECT_DOUBLE_EQ(result.GetAttributes().aspectRatio, 0.5);
  CmImageResize(200, 100, true).Execute(square, result);
  EXPECT_DOUBLE_EQ(result.GetAttributes().aspectRatio, 1.0);

  // The same size shares; in place it does not even copy the image.
  const uint8_t* pixels = square.Allocator().GetPlane(0).data;
  CmImageResize(100, 100, false).Execute(square);
  EXPECT_EQ(square.Allocator().GetPlane(0).data, pixels);
  CmImageResize(10, 10, false).Execute(square);
  EXPECT_EQ(square.GetWidth(), 10u);
}

TEST(ImageResize, AWindowIsTheCropOfTheWholeAndRefusals) {
  // Every format, every interpolation, windows anywhere (odd places make a
  // crop of subsampled chroma go to 4:4:4 first), growing and shrinking, and
  // interlaced pictures that only change width.
  std::mt19937 random(7);
  const ColorFormat formats[] = {
      Gray, RGB24, BGR32, RGBA, YCbCr420_Planar, YCbCr422_Planar, YCbCr444_Planar};
  for (int round = 0; round < 7 * 2 * 8; ++round) {
    const ColorFormat format = formats[round / 16];
    const bool interlaced = round / 8 % 2 == 1;
    const uint64_t sw = 1 + random() % 40, sh = interlaced ? 24 : 1 + random() % 40;
    const uint64_t w = 1 + random() % 90, h = interlaced ? sh : 1 + random() % 90;
    const uint64_t x = random() % w, y = random() % h;
    const uint64_t ww = 1 + random() % (w - x), wh = 1 + random() % (h - y);
    const CmImage source =
        MakeImage(sw, sh, format, 1, interlaced ? InterleavedTopFirst : Progressive);
    for (const uint32_t options :
         {0u, +ImImageTransformation::OptionFast, +ImImageTransformation::OptionHighQuality}) {
      SCOPED_TRACE(::testing::Message() << "format " << format << " " << sw << "x" << sh << " to "
                                        << w << "x" << h << " window " << x << "," << y << " " << ww
                                        << "x" << wh << " options " << options);
      CmImageResize whole(w, h, false);
      whole.SetOptions(options);
      CmImage expected = NmImageTest::Applied(whole, source);
      CmImageCrop(x, y, ww, wh).Execute(expected);
      CmImageResize windowed(w, h, false);
      windowed.SetOptions(options);
      windowed.SetOutputWindow(x, y, ww, wh);
      CmImage actual = NmImageTest::Applied(windowed, source);
      ASSERT_EQ(actual.GetHeight(), wh);
      EXPECT_TRUE(NmImageTest::SamePicture(actual, expected));
      EXPECT_DOUBLE_EQ(actual.GetAttributes().aspectRatio, expected.GetAttributes().aspectRatio);
    }
  }
  // A window of the source's own size is a crop, also in place.
  CmImage image = MakeImage(30, 20, YCbCr420_Planar);
  CmImage expected = NmImageTest::Applied(CmImageCrop(3, 5, 10, 9), image);
  CmImageResize same(30, 20, true);
  same.SetOutputWindow(3, 5, 10, 9);
  same.Execute(image);
  EXPECT_EQ(Planes(image), Planes(expected));
  ExpectError([&] { same.SetOutputWindow(25, 0, 6, 1); }, "Clipping region is outside plane", 3);
  ExpectError([&] { same.SetOutputWindow(0, 0, 0, 1); }, "Clipping region is empty", 2);

  const std::string constructor = "NmMediaProcessing::CmImageResize::CmImageResize";
  ExpectError([] { CmImageResize(0, 10, true); }, "Resized width out of range", 2, constructor);
  ExpectError([] { CmImageResize(32768, 10, true); }, "Resized width out of range", 2);
  ExpectError([] { CmImageResize(10, 0, true); }, "Resized height out of range", 2);
  ExpectError([] { CmImageResize(10, 32768, true); }, "Resized height out of range", 2);
  EXPECT_NO_THROW(CmImageResize(32767, 32767, true));
  CmImage result;
  ExpectError([&] { CmImageResize(10, 10, true).Execute(CmImage(), result); },
              "Cannot resize invalid image with width and/or height of 0", 1,
              "NmMediaProcessing::CmImageResize::Execute");
  const CmImage interleaved = MakeImage(20, 20, Gray, 1, InterleavedTopFirst);
  ExpectError([&] { CmImageResize(10, 10, true).Execute(interleaved, result); },
              "Cannot resize interleaved images vertically", 1);
  CmImageResize(10, 20, true).Execute(interleaved, result);
  EXPECT_EQ(result.GetWidth(), 10u);
}

TEST(ImageBoundingRectangleResize, FitsCoversAndDerives) {
  const struct {
    uint64_t boxWidth, boxHeight;
    uint32_t mode;
    uint64_t width, height;
    double aspect;
    uint64_t expectedWidth, expectedHeight;
  } cases[] = {
      {640, 480, BoundingFit, 1000, 1000, 1.0, 480, 480},
      {640, 480, BoundingFitWithoutEnlarging, 100, 100, 1.0, 100, 100},
      {640, 480, BoundingFit, 100, 100, 1.0, 480, 480},
      {640, 480, BoundingCover, 1000, 1000, 1.0, 640, 640},
      {0, 480, BoundingFit, 200, 100, 1.0, 960, 480},
      {640, 0, BoundingFit, 200, 100, 1.0, 640, 320},
      // Wide pixels make a wider picture.
      {640, 480, BoundingFit, 100, 100, 2.0, 640, 320},
      // Never enlarged: narrow pixels are made square by narrowing the picture.
      {640, 480, BoundingFitWithoutEnlarging, 300, 100, 0.5, 150, 100},
  };
  for (const auto& c : cases) {
    CmImage source = MakeImage(c.width, c.height, RGB24);
    source.GetAttributes().aspectRatio = c.aspect;
    CmImageBoundingRectangleResize resize(c.boxWidth, c.boxHeight, c.mode, 1.0);
    CmImage result = NmImageTest::Applied(resize, source);
    EXPECT_EQ(std::make_pair(result.GetWidth(), result.GetHeight()),
              std::make_pair(c.expectedWidth, c.expectedHeight))
        << c.boxWidth << "x" << c.boxHeight;
  }
  ExpectError([] { CmImageBoundingRectangleResize(32768, 10, 0, 1.0); },
              "Bounding rectangle width out of range", 2);
  ExpectError([] { CmImageBoundingRectangleResize(10, 32768, 0, 1.0); },
              "Bounding rectangle height out of range", 2);
  ExpectError([] { CmImageBoundingRectangleResize(0, 0, 0, 1.0); }, "No bounding dimensions given",
              2);
  CmImage result;
  ExpectError([&] { CmImageBoundingRectangleResize(10, 10, 0, 1.0).Execute(CmImage(), result); },
              "No valid image data", 1);
  // A shape no image size can hold is refused by the resize, not wrapped.
  CmImage thin = MakeImage(1, 1, Gray);
  thin.GetAttributes().aspectRatio = 1e9;
  ExpectError([&] { CmImageBoundingRectangleResize(0, 100, 0, 1.0).Execute(thin, result); },
              "Resized width out of range", 2);
}

TEST(ImageFilledRectangleResize, CentresOnBlackOfTheRightRange) {
  CmImageFilledRectangleResize fill(64, 48, 1.0, true);
  CmImage result;
  CmImage rgb = MakeImage(100, 100, RGB24);
  rgb.GetAttributes().aspectRatio = 1.0;
  fill.Execute(rgb, result);
  ASSERT_EQ(result.GetHeight(), 48u);
  for (const uint64_t x : {0u, 7u, 56u, 63u}) {
    EXPECT_EQ(Sample(result, 0, x, 20, 0) + Sample(result, 0, x, 20, 2), 0) << x;
  }
  CmImage fitted = NmImageTest::Applied(CmImageResize(48, 48, false), rgb);
  EXPECT_EQ(Sample(result, 0, 8, 0, 1), Sample(fitted, 0, 0, 0, 1));
  EXPECT_EQ(Sample(result, 0, 55, 47, 2), Sample(fitted, 0, 47, 47, 2));

  // Video range 4:2:0 comes out in 4:4:4 with black at luma 16.
  CmImageFilledRectangleResize small(64, 48, 2.0, false);
  small.Execute(MakeImage(10, 10, YCbCr420_Planar), result);
  EXPECT_EQ(result.GetColorFormat(), YCbCr444_Planar);
  EXPECT_DOUBLE_EQ(result.GetAttributes().aspectRatio, 2.0);
  EXPECT_EQ(Sample(result, 0, 0, 0), 16);
  EXPECT_EQ(Sample(result, 1, 63, 47), 128);
  // A picture that fills the box is handed on as it is.
  CmImageFilledRectangleResize exact(64, 48, 1.0, true);
  const CmImage full = MakeImage(64, 48, Gray);
  exact.Execute(full, result);
  EXPECT_EQ(result.Allocator().GetPlane(0).data, full.Allocator().GetPlane(0).data);
  ExpectError([] { CmImageFilledRectangleResize(0, 10, 1.0, true); },
              "Bounding rectangle width out of range", 2);
  ExpectError([] { CmImageFilledRectangleResize(10, 0, 1.0, true); },
              "Bounding rectangle height out of range", 2);
}
