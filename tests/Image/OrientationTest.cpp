#include <gtest/gtest.h>

#include "Image/ImageFixtures.h"

using namespace NmMediaProcessing;
constexpr auto Turn = &NmImageTest::MakeOrientation;

TEST(Orientation, NormalFormRotationAndMirrors) {
  EXPECT_EQ(Turn(2, false, false), Turn(0, true, true));
  EXPECT_EQ(Turn(3, true, false), Turn(1, false, true));
  EXPECT_NE(Turn(2, false, false), Turn(0, false, false));
  EXPECT_NE(Turn(1, false, false), Turn(0, false, false));
  EXPECT_NE(Turn(0, true, false), Turn(0, false, true));
  const Orientation normal = Turn(3, false, true).GetNormalForm();
  EXPECT_EQ(normal.rotation, 1u);
  EXPECT_TRUE(normal.flippedVertically && !normal.flippedHorizontally);
  // Rotations 0 and 1 are already normal.
  const Orientation kept = Turn(1, true, false).GetNormalForm();
  EXPECT_TRUE(kept.rotation == 1 && kept.flippedVertically);

  Orientation o = Turn(3, false, false);
  for (const uint32_t step : {2u, 4u, 0u, 3u}) {
    o.AddRotation(step);
  }
  EXPECT_EQ(o.rotation, 0u);
  for (uint32_t rotation = 0; rotation < 4; ++rotation) {
    Orientation v = Turn(rotation, false, false);
    v.FlipVertically();
    Orientation h = Turn(rotation, false, false);
    h.FlipHorizontally();
    const bool straight = rotation % 2 == 0;
    EXPECT_EQ(v, Turn(rotation, straight, !straight)) << rotation;
    EXPECT_EQ(h, Turn(rotation, !straight, straight)) << rotation;
    // Mirroring once in both axes is a half turn.
    v.FlipHorizontally();
    Orientation turned = Turn(rotation, false, false);
    turned.AddRotation(2);
    EXPECT_EQ(v, turned) << rotation;
  }
}
