#include <gtest/gtest.h>

#include <cmath>

#include "Codecs/Primitives/JPEGColorConvert.h"
#include "Primitives/PrimitiveTestSupport.h"

using NmPrimitiveTest::SmTestPlane;
using namespace NmPrimitives;

VZK_TEST_ON_EVERY_TARGET(JPEGColorConvert);

TEST_P(JPEGColorConvert, MatchesTheReferenceAndTheEquations) {
  std::mt19937& random = Random();
  for (int round = 0; round < 80; ++round) {
    const size_t width = 1 + random() % 100;
    const SmTestPlane y(random, width, 1), cb(random, width, 1), cr(random, width, 1);
    const bool bgr = round % 2 == 1;
    SmTestPlane expected(random, 3 * width, 1);
    const auto convert = [&](auto f, SmTestPlane& out) {
      f(y.data(), cb.data(), cr.data(), out.data(), width, bgr);
    };
    ExpectSameWrites(NmReference::JPEGYCbCrToRGBRow, JPEGYCbCrToRGBRow, expected, convert, "row");
    convert(NmReference::JPEGYCbCrToRGBRow, expected);
    // The reference follows the JFIF equations to within rounding.
    for (size_t x = 0; x < width; ++x) {
      const double r = y.bytes[x] + 1.402 * (cr.bytes[x] - 128);
      const double g = y.bytes[x] - 0.344136 * (cb.bytes[x] - 128) - 0.714136 * (cr.bytes[x] - 128);
      const double b = y.bytes[x] + 1.772 * (cb.bytes[x] - 128);
      auto clamp = [](double v) { return v < 0 ? 0.0 : v > 255 ? 255.0 : v; };
      const int first = bgr ? 2 : 0;
      EXPECT_LE(std::abs(expected.bytes[3 * x + first] - clamp(r)), 0.51);
      EXPECT_LE(std::abs(expected.bytes[3 * x + 1] - clamp(g)), 0.51);
      EXPECT_LE(std::abs(expected.bytes[3 * x + 2 - first] - clamp(b)), 0.51);
    }
  }
}
