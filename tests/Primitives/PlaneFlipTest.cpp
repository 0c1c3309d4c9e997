#include <gtest/gtest.h>

#include "Codecs/Primitives/PlaneFlip.h"
#include "Primitives/PrimitiveTestSupport.h"

using NmPrimitiveTest::SmTestPlane;
using namespace NmPrimitives;

VZK_TEST_ON_EVERY_TARGET(PlaneFlip);

TEST_P(PlaneFlip, MatchesTheReferenceOutOfPlaceAndInPlace) {
  std::mt19937& random = Random();
  for (int round = 0; round < 80; ++round) {
    const size_t width = round < 8 ? 1 + round : 1 + random() % 200;
    const size_t height = 1 + random() % 6;
    for (const size_t pixelBytes : {1u, 3u, 4u}) {
      for (const SmFlipAxis axis : {FlipRows, FlipColumns, FlipBoth}) {
        SCOPED_TRACE(::testing::Message()
                     << width << "x" << height << " bytes " << pixelBytes << " axis " << axis);
        const SmTestPlane source(random, width * pixelBytes, height);
        SmTestPlane expected(random, width * pixelBytes, height);
        SmTestPlane actual = expected;
        NmReference::FlipPlane(source.data(), source.stride, expected.data(), expected.stride,
                               width, height, pixelBytes, axis);
        FlipPlane(source.data(), source.stride, actual.data(), actual.stride, width, height,
                  pixelBytes, axis);
        ASSERT_EQ(actual.bytes, expected.bytes);

        SmTestPlane inPlace = source;
        FlipPlaneInPlace(inPlace.data(), inPlace.stride, width, height, pixelBytes, axis);
        for (size_t y = 0; y < height; ++y) {
          ASSERT_TRUE(std::equal(inPlace.data() + y * inPlace.stride,
                                 inPlace.data() + y * inPlace.stride + width * pixelBytes,
                                 expected.data() + y * expected.stride))
              << "row " << y;
        }
      }
    }
  }
}

TEST(PlaneFlipReference, Meaning) {
  // 3 x 2 RGB: pixels (r, g, b) = (10 * y + x, 1, 2).
  uint8_t source[18];
  for (int y = 0; y < 2; ++y) {
    for (int x = 0; x < 3; ++x) {
      source[9 * y + 3 * x] = static_cast<uint8_t>(10 * y + x);
      source[9 * y + 3 * x + 1] = 1;
      source[9 * y + 3 * x + 2] = 2;
    }
  }
  uint8_t flipped[18];
  NmReference::FlipPlane(source, 9, flipped, 9, 3, 2, 3, FlipBoth);
  EXPECT_EQ(flipped[0], 12);
  EXPECT_EQ(flipped[1], 1);
  EXPECT_EQ(flipped[9 + 6], 0);
  NmReference::FlipPlane(source, 9, flipped, 9, 3, 2, 3, FlipRows);
  EXPECT_EQ(flipped[3], 11);
  NmReference::FlipPlane(source, 9, flipped, 9, 3, 2, 3, FlipColumns);
  EXPECT_EQ(flipped[3], 1);
  EXPECT_EQ(flipped[9], 12);
}
