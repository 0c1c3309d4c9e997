#include <gtest/gtest.h>

#include "Image/ImageFixtures.h"
#include "MediaProcessing/Image/ImageCrop.h"
#include "MediaProcessing/Image/ImageFlip.h"
#include "MediaProcessing/Image/ImageRotate90Right.h"
#include "MediaProcessing/Image/StaticImageAllocator.h"

using namespace NmMediaProcessing;
using NmImageTest::ExpectError;
using NmImageTest::MakeImage;
using NmImageTest::Sample;

TEST(ImageCrop, SharesPlanesAndChecksItsRectangle) {
  const CmImage source = MakeImage(10, 8, YCbCr420_Planar);
  CmImage cropped = NmImageTest::Applied(CmImageCrop(2, 4, 5, 3), source);
  EXPECT_EQ(std::make_pair(cropped.GetWidth(), cropped.GetHeight()), std::make_pair(5ul, 3ul));
  EXPECT_EQ(cropped.GetAttributes().subColorFormat, SubColorFormatVideoRange);
  EXPECT_EQ(cropped.Allocator().GetPlane(0).data,
            source.Allocator().GetPlane(0).GetPixelAddress(2, 4));
  EXPECT_EQ(cropped.Allocator().GetPlane(1).data,
            source.Allocator().GetPlane(1).GetPixelAddress(1, 2));
  EXPECT_EQ(cropped.Allocator().GetPlane(2).width, 3u);
  EXPECT_TRUE(source.Allocator().IsSharedPlane(0));
  // Writing gives the crop its own planes and keeps the window.
  const uint8_t original = Sample(source, 0, 2, 4);
  cropped.Allocator().GetWriteablePlane(0).data[0] = static_cast<uint8_t>(original + 1);
  EXPECT_EQ(Sample(source, 0, 2, 4), original);
  EXPECT_EQ(Sample(cropped, 0, 4, 2), Sample(source, 0, 6, 6));
  EXPECT_FALSE(source.Allocator().IsSharedPlane(0));

  // Foreign memory is copied out.
  std::vector<uint8_t> buffer(12 * 4);
  for (size_t i = 0; i < buffer.size(); ++i) {
    buffer[i] = static_cast<uint8_t>(i);
  }
  CmImage wrapped(std::make_unique<CmStaticImageAllocator>(
      4, 4, RGB24, std::vector<std::pair<uint64_t, uint8_t*>>{{12, buffer.data()}}));
  CmImage piece = NmImageTest::Applied(CmImageCrop(1, 2, 2, 2), wrapped);
  EXPECT_NE(piece.Allocator().GetPlane(0).data, buffer.data() + 24 + 3);
  EXPECT_EQ(Sample(piece, 0, 1, 1, 2), buffer[36 + 6 + 2]);

  ExpectError([] { CmImageCrop(0, 0, 0, 1); }, "Cropping area width out of range", 2,
              "NmMediaProcessing::CmImageCrop::CmImageCrop");
  ExpectError([] { CmImageCrop(0, 0, 32768, 1); }, "Cropping area width out of range", 2);
  ExpectError([] { CmImageCrop(0, 0, 1, 0); }, "Cropping area height out of range", 2);
  EXPECT_THROW(CmImageCrop(8, 0, 4, 4).Execute(source, cropped), NmError::CmIntegrityError);

  // An odd offset cannot be kept in subsampled chroma: the crop is 4:4:4.
  CmImageCrop(2, 3, 4, 4).Execute(source, cropped);
  EXPECT_EQ(cropped.GetColorFormat(), YCbCr444_Planar);
  CmImageCrop(3, 2, 4, 4).Execute(source, cropped);
  EXPECT_EQ(cropped.GetColorFormat(), YCbCr444_Planar);
  EXPECT_EQ(Sample(cropped, 1, 0, 0), Sample(source, 1, 1, 1));
  // In place through the default path.
  CmImage image(source);
  CmImageCrop(4, 2, 2, 2).Execute(image);
  EXPECT_EQ(Sample(image, 0, 1, 1), Sample(source, 0, 5, 3));
}

TEST(ImageFlip, MirrorsPixelsAndRecordsTheMirror) {
  const CmImage source = MakeImage(5, 4, RGB24);
  CmImage flipped = NmImageTest::Applied(CmImageFlipHorizontally(), source);
  EXPECT_EQ(Sample(flipped, 0, 0, 1, 2), Sample(source, 0, 4, 1, 2));
  EXPECT_TRUE(flipped.GetAttributes().orientation.flippedHorizontally);
  EXPECT_FALSE(flipped.GetAttributes().orientation == Orientation()) << "a mirror is not upright";
  CmImageFlipVertically().Execute(flipped);
  EXPECT_EQ(Sample(flipped, 0, 0, 0, 0), Sample(source, 0, 4, 3, 0));
  Orientation halfTurn;
  halfTurn.rotation = 2;
  EXPECT_EQ(flipped.GetAttributes().orientation, halfTurn);

  // An odd 4:2:0 height comes out as 4:2:2.
  const CmImage odd = MakeImage(4, 5, YCbCr420_Planar);
  CmImageFlipVertically().Execute(odd, flipped);
  EXPECT_EQ(flipped.GetColorFormat(), YCbCr422_Planar);
  EXPECT_EQ(Sample(flipped, 0, 1, 0), Sample(odd, 0, 1, 4));
  EXPECT_EQ(Sample(flipped, 1, 1, 4), Sample(odd, 1, 1, 0));
  EXPECT_TRUE(flipped.GetAttributes().orientation.flippedVertically);

  // An odd width of 4:2:2 comes out as 4:4:4.
  const CmImage narrow = MakeImage(5, 2, YCbCr422_Planar);
  CmImageFlipHorizontally().Execute(narrow, flipped);
  EXPECT_EQ(flipped.GetColorFormat(), YCbCr444_Planar);
  EXPECT_EQ(Sample(flipped, 1, 4, 1), Sample(narrow, 1, 0, 1));

  const CmImage even = MakeImage(4, 6, YCbCr420_Planar);
  CmImageFlipVertically().Execute(even, flipped);
  EXPECT_EQ(flipped.GetColorFormat(), YCbCr420_Planar);
  EXPECT_EQ(Sample(flipped, 2, 1, 0), Sample(even, 2, 1, 2));
}

TEST(ImageRotate90Right, TurnsPixelsOrientationAndAspect) {
  CmImage source = MakeImage(3, 2, BGRA);
  source.GetAttributes().aspectRatio = 2.0;
  CmImage turned = NmImageTest::Applied(CmImageRotate90Right(), source);
  EXPECT_EQ(Sample(turned, 0, 0, 0, 3), Sample(source, 0, 0, 1, 3));
  EXPECT_EQ(Sample(turned, 0, 1, 2, 1), Sample(source, 0, 2, 0, 1));
  EXPECT_EQ(turned.GetAttributes().orientation.rotation, 1u);
  EXPECT_EQ(turned.GetAttributes().aspectRatio, 0.5);
  CmImageRotate90Right().Execute(turned);
  EXPECT_EQ(turned.GetAttributes().orientation.rotation, 2u);
  EXPECT_EQ(turned.GetAttributes().aspectRatio, 2.0);
  EXPECT_EQ(Sample(turned, 0, 0, 0, 0), Sample(source, 0, 2, 1, 0));

  const CmImage planar = MakeImage(6, 4, YCbCr420_Planar);
  CmImageRotate90Right().Execute(planar, turned);
  EXPECT_EQ(turned.GetColorFormat(), YCbCr420_Planar);
  EXPECT_EQ(turned.Allocator().GetPlane(1).width, 2u);
  EXPECT_EQ(Sample(turned, 1, 0, 0), Sample(planar, 1, 0, 1));

  // 4:2:2 turns through 4:4:4.
  const CmImage chroma422 = MakeImage(4, 2, YCbCr422_Planar);
  CmImageRotate90Right().Execute(chroma422, turned);
  EXPECT_EQ(turned.GetColorFormat(), YCbCr444_Planar);
  EXPECT_EQ(Sample(turned, 1, 1, 3), Sample(chroma422, 1, 1, 0));

  source.GetAttributes().interlacing = InterleavedTopFirst;
  ExpectError([&] { CmImageRotate90Right().Execute(source, turned); },
              "Cannot rotate interlaced images", 1,
              "NmMediaProcessing::CmImageRotate90Right::Execute");
}
