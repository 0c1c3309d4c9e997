#include <gtest/gtest.h>

#include "Codecs/Primitives/DeinterlaceFilter.h"
#include "Image/ImageFixtures.h"
#include "MediaProcessing/Image/ImageDeinterlace.h"

using namespace NmMediaProcessing;
using NmImageTest::Column;
using NmImageTest::ExpectError;
using NmImageTest::MakeImage;
using NmImageTest::Sample;

TEST(ImageDeinterlace, WeavesFieldsOfEveryLayout) {
  const CmImage source = MakeImage(3, 5, Gray, 1, SeparateTopFirst);
  CmImage woven = NmImageTest::Applied(CmImageDeinterlace(false), source);
  EXPECT_EQ(woven.GetAttributes().interlacing, Progressive);
  EXPECT_EQ(Column(woven, 0, 1, {0, 2, 4}), Column(source, 0, 1, {0, 1, 2}));
  EXPECT_EQ(Column(woven, 0, 2, {1, 3}), Column(source, 0, 2, {3, 4}));
  // 4:2:0 separate fields come out as 4:2:2.
  CmImageDeinterlace(false).Execute(MakeImage(4, 8, YCbCr420_Planar, 1, SeparateBottomFirst),
                                    woven);
  EXPECT_EQ(woven.GetColorFormat(), YCbCr422_Planar);
  EXPECT_EQ(woven.GetAttributes().interlacing, Progressive);

  CmImage rgb = MakeImage(4, 4, RGB24, 1, InterleavedTopFirst);
  const uint8_t* pixels = rgb.Allocator().GetPlane(0).data;
  CmImageDeinterlace(false).Execute(rgb);
  EXPECT_EQ(rgb.GetAttributes().interlacing, Progressive);
  EXPECT_EQ(rgb.Allocator().GetPlane(0).data, pixels);

  CmImage result;
  CmImageDeinterlace(false).Execute(MakeImage(4, 6, YCbCr420_Planar, 1, InterleavedBottomFirst),
                                    result);
  EXPECT_EQ(result.GetColorFormat(), YCbCr422_Planar);

  CmImage field = MakeImage(4, 100, Gray, 1, TopFieldOnly);
  field.GetAttributes().aspectRatio = 1.5;
  CmImageDeinterlace(true).Execute(field, result);
  EXPECT_EQ(result.GetHeight(), 100u);
  EXPECT_EQ(result.GetAttributes().aspectRatio, 0.75);
  EXPECT_EQ(result.Allocator().GetPlane(0).data, field.Allocator().GetPlane(0).data);
  // Unless it halves the aspect instead, a single field is doubled in height.
  CmImageDeinterlace(false).Execute(MakeImage(4, 100, YCbCr420_Planar, 1, BottomFieldOnly), result);
  EXPECT_EQ(result.GetHeight(), 200u);
  EXPECT_EQ(result.GetAttributes().interlacing, Progressive);
  EXPECT_EQ(result.GetAttributes().aspectRatio, 1.0);

  field.GetAttributes().interlacing = static_cast<Interlacing>(7);
  ExpectError([&] { CmImageDeinterlace(true).Execute(field, result); },
              "Unknown interlacing format", 1, "NmMediaProcessing::CmImageDeinterlace::Execute");
}

TEST(ImageDeinterlaceCAVT, FiltersEveryPlaneOrLeavesWhatItCannotTake) {
  const CmImage source = MakeImage(9, 8, YCbCr420_Planar, 1, InterleavedTopFirst);
  CmImage filtered = NmImageTest::Applied(CmImageDeinterlaceCAVT(false, 40), source);
  ASSERT_EQ(filtered.GetColorFormat(), YCbCr422_Planar);
  EXPECT_EQ(filtered.GetAttributes().interlacing, Progressive);
  // Plane 0 is the filter applied to the luma as it was.
  std::vector<uint8_t> expected(9 * 8);
  const auto luma = source.Allocator().GetPlane(0);
  NmPrimitives::NmReference::DeinterlaceCAVT(luma.data, luma.rowStride, expected.data(), 9, 9, 8,
                                             40);
  for (uint64_t y = 0; y < 8; ++y) {
    for (uint64_t x = 0; x < 9; ++x) {
      EXPECT_EQ(Sample(filtered, 0, x, y), expected[y * 9 + x]);
    }
  }

  // Height 6 is too short for the filter: the woven picture comes out as is.
  const CmImage shortImage = MakeImage(5, 6, Gray, 1, InterleavedTopFirst);
  CmImageDeinterlaceCAVT(false, 40).Execute(shortImage, filtered);
  EXPECT_EQ(filtered.Allocator().GetPlane(0).data, shortImage.Allocator().GetPlane(0).data);
  EXPECT_EQ(filtered.GetAttributes().interlacing, Progressive);

  // A flat picture is unchanged.
  CmImage flat = MakeImage(6, 10, Gray, 1, InterleavedBottomFirst);
  const auto plane = flat.Allocator().GetWriteablePlane(0);
  for (uint64_t y = 0; y < 10; ++y) {
    std::fill(plane.data + y * plane.rowStride, plane.data + y * plane.rowStride + 6, 90);
  }
  CmImageDeinterlaceCAVT(false, 0).Execute(flat, filtered);
  EXPECT_EQ(Sample(filtered, 0, 3, 7), 90);

  // Progressive input goes straight through.
  const CmImage progressive = MakeImage(4, 8, Gray, 1, Progressive);
  CmImageDeinterlaceCAVT(false, 40).Execute(progressive, filtered);
  EXPECT_EQ(filtered.Allocator().GetPlane(0).data, progressive.Allocator().GetPlane(0).data);
}
