#include <gtest/gtest.h>

#include "MediaProcessing/Image/ImageTypes.h"

using namespace NmMediaProcessing;

namespace {
Orientation Make(uint32_t rotation, bool vertical, bool horizontal) {
  Orientation o;
  o.rotation = rotation;
  o.flippedVertically = vertical;
  o.flippedHorizontally = horizontal;
  return o;
}
} // namespace

TEST(Orientation, NormalFormFoldsHalfTurnsOntoDoubleMirrors) {
  EXPECT_EQ(Make(2, false, false), Make(0, true, true));
  EXPECT_EQ(Make(3, true, false), Make(1, false, true));
  EXPECT_NE(Make(2, false, false), Make(0, false, false));
  EXPECT_NE(Make(1, false, false), Make(0, false, false));
  EXPECT_NE(Make(0, true, false), Make(0, false, true));
  const Orientation normal = Make(3, false, true).GetNormalForm();
  EXPECT_EQ(normal.rotation, 1u);
  EXPECT_TRUE(normal.flippedVertically);
  EXPECT_FALSE(normal.flippedHorizontally);
  // Rotations 0 and 1 are already normal.
  const Orientation kept = Make(1, true, false).GetNormalForm();
  EXPECT_EQ(kept.rotation, 1u);
  EXPECT_TRUE(kept.flippedVertically);
}

TEST(Orientation, RotationWrapsAndIgnoresInvalidSteps) {
  Orientation o = Make(3, false, false);
  o.AddRotation(2);
  EXPECT_EQ(o.rotation, 1u);
  o.AddRotation(4);
  EXPECT_EQ(o.rotation, 1u);
  o.AddRotation(0);
  EXPECT_EQ(o.rotation, 1u);
  o.AddRotation(3);
  EXPECT_EQ(o.rotation, 0u);
}

TEST(Orientation, MirrorsLandOnTheFlagThatTheRotationMapsThemTo) {
  for (uint32_t rotation = 0; rotation < 4; ++rotation) {
    Orientation v = Make(rotation, false, false);
    v.FlipVertically();
    Orientation h = Make(rotation, false, false);
    h.FlipHorizontally();
    const bool straight = rotation % 2 == 0;
    EXPECT_EQ(v.flippedVertically, straight) << rotation;
    EXPECT_EQ(v.flippedHorizontally, !straight) << rotation;
    EXPECT_EQ(h.flippedHorizontally, straight) << rotation;
    EXPECT_EQ(h.flippedVertically, !straight) << rotation;
    // Mirroring twice in both axes is the identity, and once in both a half turn.
    Orientation both = Make(rotation, false, false);
    both.FlipVertically();
    both.FlipHorizontally();
    Orientation turned = Make(rotation, false, false);
    turned.AddRotation(2);
    EXPECT_EQ(both, turned) << rotation;
  }
}

TEST(ImageTypes, FormatTables) {
  EXPECT_EQ(GetBytesPerPixel(RGB32), 3u);
  EXPECT_EQ(GetPixelStride(RGB32), 4u);
  EXPECT_EQ(GetBytesPerPixel(BGRA), 4u);
  EXPECT_EQ(GetPixelStride(BGR24), 3u);
  EXPECT_EQ(GetBytesPerPixel(10), 0u);
  EXPECT_EQ(GetPlaneCount(YCbCr422_Planar), 3u);
  EXPECT_EQ(GetPlaneCount(Gray), 1u);
  const SmPlaneSize c420 = GetPlaneSize(YCbCr420_Planar, 2, 11, 5);
  EXPECT_EQ(c420.width, 6u);
  EXPECT_EQ(c420.height, 3u);
  const SmPlaneSize c422 = GetPlaneSize(YCbCr422_Planar, 1, 11, 5);
  EXPECT_EQ(c422.width, 6u);
  EXPECT_EQ(c422.height, 5u);
  const SmPlaneSize luma = GetPlaneSize(YCbCr420_Planar, 0, 11, 5);
  EXPECT_EQ(luma.width, 11u);
  EXPECT_EQ(luma.height, 5u);
}
