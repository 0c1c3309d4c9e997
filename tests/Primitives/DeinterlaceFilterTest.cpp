#include <gtest/gtest.h>

#include "Codecs/Primitives/DeinterlaceFilter.h"
#include "Primitives/PrimitiveTestSupport.h"

using NmPrimitiveTest::SmTestPlane;
using namespace NmPrimitives;

VZK_TEST_ON_EVERY_TARGET(DeinterlaceFilter);

TEST_P(DeinterlaceFilter, MatchesTheReference) {
  std::mt19937& random = Random();
  for (int round = 0; round < 60; ++round) {
    const size_t width = 1 + random() % 70;
    const size_t height = 8 + 2 * (random() % 6);
    const uint16_t threshold = static_cast<uint16_t>(round % 4 == 0   ? 0
                                                     : round % 4 == 1 ? 65535
                                                                      : random() % 600);
    SCOPED_TRACE(::testing::Message() << width << "x" << height << " threshold " << threshold);
    SmTestPlane source(random, width, height);
    if (round % 3 == 0) {
      // Smooth content with a comb, where the clamp decides.
      for (size_t y = 0; y < height; ++y) {
        for (size_t x = 0; x < width; ++x) {
          source.bytes[y * source.stride + x] =
              static_cast<uint8_t>(100 + x + (y % 2) * (random() % 40));
        }
      }
    }
    ExpectSameWrites(
        NmReference::DeinterlaceCAVT, DeinterlaceCAVT, SmTestPlane(random, width, height),
        [&](auto filter, SmTestPlane& out) {
          return filter(source.data(), source.stride, out.data(), out.stride, width, height,
                        threshold);
        },
        "filter");
  }
}

TEST(DeinterlaceFilterReference, WorkedValuesAndRefusals) {
  // Flat pictures come out unchanged.
  std::vector<uint8_t> flat(3 * 8, 77);
  std::vector<uint8_t> out(3 * 8, 0);
  EXPECT_EQ(NmReference::DeinterlaceCAVT(flat.data(), 3, out.data(), 3, 3, 8, 100), 0);
  EXPECT_EQ(out, flat);

  // One column of height 8: rows 0, 2, 4, 6 at 0, odd rows at 160.
  const uint8_t comb[8] = {0, 160, 0, 160, 0, 160, 0, 160};
  uint8_t result[8];
  // Threshold 0 never clamps: row 1 is (0 + 0 + 0 + d 0 + 8) >> 4 = 0 with
  // d = 4 * (160 - 160); row 3: d = 8*160 - 4*160 - 4*160 = 0, f = 0.
  NmReference::DeinterlaceCAVT(comb, 1, result, 1, 1, 8, 0);
  EXPECT_EQ(std::vector<uint8_t>(result, result + 8),
            (std::vector<uint8_t>{0, 0, 0, 0, 0, 0, 0, 0}));
  // A row that stands out from its own field keeps the sharper value: row 3
  // of 200 among odd rows of 0 gives d = 1600 and f = (140 + 20 + 1608) >> 4,
  // well above the rows of the other field around it.
  const uint8_t spike[8] = {10, 0, 10, 200, 10, 0, 10, 0};
  NmReference::DeinterlaceCAVT(spike, 1, result, 1, 1, 8, 100);
  EXPECT_EQ(result[3], (7 * 20 + 10 + 10 + 1600 + 8) >> 4);
  // Last row under the threshold takes the row above it.
  EXPECT_EQ(result[7], 10);

  EXPECT_EQ(NmReference::DeinterlaceCAVT(nullptr, 1, result, 1, 1, 8, 0), -8);
  EXPECT_EQ(DeinterlaceCAVT(comb, 1, nullptr, 1, 1, 8, 0), -8);
  EXPECT_EQ(DeinterlaceCAVT(comb, 1, result, 1, 1, 7, 0), -6);
  EXPECT_EQ(DeinterlaceCAVT(comb, 1, result, 1, 1, 6, 0), -6);
  EXPECT_EQ(DeinterlaceCAVT(comb, 1, result, 1, 0, 8, 0), -6);
}
