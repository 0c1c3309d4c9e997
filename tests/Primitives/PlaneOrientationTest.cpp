#include <gtest/gtest.h>

#include "Codecs/Primitives/PlaneFlip.h"
#include "Codecs/Primitives/PlaneTranspose.h"
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

VZK_TEST_ON_EVERY_TARGET(PlaneTranspose);

TEST_P(PlaneTranspose, MatchesTheReference) {
  std::mt19937& random = Random();
  for (int round = 0; round < 40; ++round) {
    // Round 4 spans several tiles of rows and a remainder of eight rows.
    const size_t width = round < 4 ? 8 * (round + 1) : round == 4 ? 100 : 1 + random() % 45;
    const size_t height = round < 4 ? 16 : round == 4 ? 152 : 1 + random() % 45;
    for (const size_t pixelBytes : {1u, 3u, 4u}) {
      for (int mirrors = 0; mirrors < 4; ++mirrors) {
        const bool flipColumns = mirrors & 1;
        const bool flipRows = mirrors & 2;
        SCOPED_TRACE(::testing::Message() << width << "x" << height << " bytes " << pixelBytes
                                          << " columns " << flipColumns << " rows " << flipRows);
        const SmTestPlane source(random, width * pixelBytes, height);
        ExpectSameWrites(
            NmReference::TransposePlane, TransposePlane,
            SmTestPlane(random, height * pixelBytes, width),
            [&](auto transpose, SmTestPlane& out) {
              transpose(source.data(), source.stride, out.data(), out.stride, width, height,
                        pixelBytes, flipColumns, flipRows);
            },
            "transpose");
      }
    }
  }
}
