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
