#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <vector>

#include "Codecs/Primitives/JPEGColorConvert.h"
#include "Primitives/PrimitiveTestSupport.h"

using namespace NmPrimitives;

VZK_TEST_ON_EVERY_TARGET(JPEGColorConvert);

TEST_P(JPEGColorConvert, MatchesTheReferenceAndTheEquations) {
  std::mt19937& random = Random();
  for (int round = 0; round < 80; ++round) {
    const size_t width = 1 + random() % 100;
    std::vector<uint8_t> y(width), cb(width), cr(width);
    for (size_t x = 0; x < width; ++x) {
      y[x] = static_cast<uint8_t>(random());
      cb[x] = static_cast<uint8_t>(random());
      cr[x] = static_cast<uint8_t>(random());
    }
    const bool bgr = round % 2 == 1;
    // One byte beyond the row must stay as it is.
    std::vector<uint8_t> expected(3 * width + 1, 0x5A);
    std::vector<uint8_t> actual = expected;
    NmReference::JPEGYCbCrToRGBRow(y.data(), cb.data(), cr.data(), expected.data(), width, bgr);
    JPEGYCbCrToRGBRow(y.data(), cb.data(), cr.data(), actual.data(), width, bgr);
    ASSERT_EQ(actual, expected) << width;
    // The reference follows the JFIF equations to within rounding.
    for (size_t x = 0; x < width; ++x) {
      const double r = y[x] + 1.402 * (cr[x] - 128);
      const double g = y[x] - 0.344136 * (cb[x] - 128) - 0.714136 * (cr[x] - 128);
      const double b = y[x] + 1.772 * (cb[x] - 128);
      auto clamp = [](double v) { return v < 0 ? 0.0 : v > 255 ? 255.0 : v; };
      const int first = bgr ? 2 : 0;
      EXPECT_LE(std::abs(expected[3 * x + first] - clamp(r)), 0.51);
      EXPECT_LE(std::abs(expected[3 * x + 1] - clamp(g)), 0.51);
      EXPECT_LE(std::abs(expected[3 * x + 2 - first] - clamp(b)), 0.51);
    }
  }
}
