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
        const auto flip = [&](auto f, SmTestPlane& out) {
          f(source.data(), source.stride, out.data(), out.stride, width, height, pixelBytes, axis);
        };
        ExpectSameWrites(NmReference::FlipPlane, FlipPlane, expected, flip, "out of place");
        flip(NmReference::FlipPlane, expected);
        ExpectSameInPlace(
            source, expected, width * pixelBytes,
            [&](SmTestPlane& p) {
              FlipPlaneInPlace(p.data(), p.stride, width, height, pixelBytes, axis);
            },
            "in place");
      }
    }
  }
}
