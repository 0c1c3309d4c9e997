#include <gtest/gtest.h>

#include "Image/ImageFixtures.h"
#include "MediaProcessing/Image/ImageDeinterlace.h"
#include "MediaProcessing/Image/ImageFlip.h"
#include "MediaProcessing/Image/ImageRotate90Right.h"
#include "MediaProcessing/Image/NormalizeImage.h"

using namespace NmMediaProcessing;
using NmImageTest::ExpectError;
using NmImageTest::MakeImage;
using NmImageTest::MakeOrientation;
using NmImageTest::SamePicture;
using NmImageTest::Sample;

TEST(NormalizeImageOrientation, UndoesAnySequenceOfTurnsAndMirrorsCheapCasesAndLimits) {
  // The stored orientation records every turn and mirror; normalising to
  // upright must give back the very picture that was turned, whichever way
  // it goes, and normalising to any other orientation must show the same.
  std::mt19937 random(3);
  for (const ColorFormat format : {Gray, RGB24, BGRA, YCbCr444_Planar, YCbCr420_Planar}) {
    for (int round = 0; round < 24; ++round) {
      const CmImage upright = MakeImage(12, 8, format);
      CmImage turned(upright);
      std::string steps;
      for (int step = 0; step < 1 + round % 5; ++step) {
        switch (random() % 3) {
        case 0:
          CmImageRotate90Right().Execute(turned);
          steps += "R";
          break;
        case 1:
          CmImageFlipVertically().Execute(turned);
          steps += "V";
          break;
        default:
          CmImageFlipHorizontally().Execute(turned);
          steps += "H";
          break;
        }
      }
      SCOPED_TRACE(::testing::Message() << "format " << format << " steps " << steps);
      CmImage normal = NmImageTest::Applied(CmNormalizeImageOrientation(Orientation()), turned);
      EXPECT_TRUE(SamePicture(normal, upright));
      EXPECT_TRUE(normal.GetAttributes().orientation == Orientation());
      CmImage inPlace(turned);
      CmNormalizeImageOrientation(Orientation()).Execute(inPlace);
      EXPECT_TRUE(SamePicture(inPlace, upright));

      const Orientation target = MakeOrientation(random() % 4, random() % 2, random() % 2);
      CmImage other = NmImageTest::Applied(CmNormalizeImageOrientation(target), turned);
      EXPECT_TRUE(other.GetAttributes().orientation == target);
      CmImage back = NmImageTest::Applied(CmNormalizeImageOrientation(Orientation()), other);
      EXPECT_TRUE(SamePicture(back, upright));
      EXPECT_DOUBLE_EQ(back.GetAttributes().aspectRatio, upright.GetAttributes().aspectRatio);
    }
  }

  CmImage image = MakeImage(6, 4, RGB24);
  image.GetAttributes().orientation = MakeOrientation(2, false, false);
  CmImage result;
  // A half turn is the same as both mirrors: nothing to do, planes shared.
  CmNormalizeImageOrientation(MakeOrientation(0, true, true)).Execute(image, result);
  EXPECT_EQ(result.Allocator().GetPlane(0).data, image.Allocator().GetPlane(0).data);

  // Both mirrors in place keep the size, and the source copy is untouched.
  const CmImage before(image);
  CmNormalizeImageOrientation(Orientation()).Execute(image);
  EXPECT_EQ(Sample(image, 0, 0, 0), Sample(before, 0, 5, 3));
  EXPECT_TRUE(image.GetAttributes().orientation == Orientation());

  CmImage interlaced = MakeImage(6, 4, Gray);
  interlaced.GetAttributes().interlacing = InterleavedTopFirst;
  ExpectError(
      [&] {
        CmNormalizeImageOrientation(MakeOrientation(1, false, false)).Execute(interlaced, result);
      },
      "Cannot rotate interlaced images", 1,
      "NmMediaProcessing::CmNormalizeImageOrientation::Execute");

  // Odd 4:2:0 cannot turn its chroma: it goes through 4:4:4.
  CmNormalizeImageOrientation(MakeOrientation(1, false, false))
      .Execute(MakeImage(7, 4, YCbCr420_Planar), result);
  EXPECT_EQ(result.GetColorFormat(), YCbCr444_Planar);
  CmNormalizeImageOrientation(MakeOrientation(1, false, false))
      .Execute(MakeImage(8, 4, YCbCr422_Planar), result);
  EXPECT_EQ(result.GetColorFormat(), YCbCr444_Planar);
  CmNormalizeImageOrientation(MakeOrientation(0, true, false))
      .Execute(MakeImage(8, 5, YCbCr420_Planar), result);
  EXPECT_NE(result.GetColorFormat(), YCbCr420_Planar);
}

TEST(NormalizeImage, DeinterlacesTurnsAndSquaresPixels) {
  CmImage wide = MakeImage(100, 40, RGB24);
  wide.GetAttributes().aspectRatio = 1.5;
  CmImage result = NmImageTest::Applied(CmNormalizeImage(true, Orientation()), wide);
  EXPECT_EQ(result.GetWidth(), 150u);
  EXPECT_DOUBLE_EQ(result.GetAttributes().aspectRatio, 1.0);
  CmImage tall = MakeImage(100, 40, Gray);
  tall.GetAttributes().aspectRatio = 0.5;
  CmNormalizeImage(true, Orientation()).Execute(tall, result);
  EXPECT_EQ(result.GetHeight(), 80u);
  // Without correction an upright progressive image is shared as it is.
  CmNormalizeImage(false, Orientation()).Execute(wide, result);
  EXPECT_EQ(result.Allocator().GetPlane(0).data, wide.Allocator().GetPlane(0).data);
  EXPECT_DOUBLE_EQ(result.GetAttributes().aspectRatio, 1.5);

  // Separate fields, stored turned: woven, then turned upright.
  CmImage fields = MakeImage(6, 10, Gray);
  fields.GetAttributes().interlacing = SeparateTopFirst;
  CmImage woven = NmImageTest::Applied(CmImageDeinterlace(false), fields);
  CmImage turned(fields);
  turned.GetAttributes().orientation = MakeOrientation(0, false, true);
  CmNormalizeImage(false, Orientation()).Execute(turned, result);
  EXPECT_EQ(result.GetAttributes().interlacing, Progressive);
  EXPECT_TRUE(result.GetAttributes().orientation == Orientation());
  EXPECT_EQ(Sample(result, 0, 0, 1), Sample(woven, 0, 5, 1));
  CmNormalizeImage inPlace(false, Orientation(), CmImageDeinterlace(true));
  std::unique_ptr<ImImageTransformation> clone(inPlace.Clone());
  CmImage single = MakeImage(6, 10, Gray);
  single.GetAttributes().interlacing = TopFieldOnly;
  clone->Execute(single);
  EXPECT_EQ(single.GetHeight(), 10u);
  EXPECT_DOUBLE_EQ(single.GetAttributes().aspectRatio, 0.5);
}
