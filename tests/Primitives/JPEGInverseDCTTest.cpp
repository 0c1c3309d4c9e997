#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <vector>

#include "Codecs/Primitives/JPEGInverseDCT.h"
#include "Primitives/PrimitiveTestSupport.h"

using NmPrimitiveTest::ForEachTarget;
using namespace NmPrimitives;

namespace {
// Coefficient blocks like those of photographs: a DC term, AC terms that get
// sparser with frequency, now and then an extreme one that must clamp.
void RandomBlock(std::mt19937& random, int16_t* block, float* quant) {
  const int density = static_cast<int>(random() % 100);
  for (int i = 0; i < 64; ++i) {
    const int v = i / 8;
    const int u = i % 8;
    quant[i] = static_cast<float>(1 + random() % (random() % 4 == 0 ? 255 : 30));
    block[i] = 0;
    if (i == 0) {
      block[i] = static_cast<int16_t>(static_cast<int>(random() % 2048) - 1024);
    } else if (static_cast<int>(random() % 100) < density / (1 + u + v)) {
      block[i] = static_cast<int16_t>(static_cast<int>(random() % 201) - 100);
    }
  }
  if (random() % 10 == 0) {
    block[random() % 64] = static_cast<int16_t>(random() % 2 ? 2047 : -2048);
  }
  for (int i = 0; i < 64; ++i) {
    block[i] = static_cast<int16_t>(std::round(block[i] / (quant[i] / 4 + 1)));
  }
}
} // namespace

TEST(JPEGInverseDCT, EveryTargetAndSizeStaysWithinOneOfTheExactTransform) {
  ForEachTarget([] {
    std::mt19937 random(21);
    for (int reduction = 0; reduction < 4; ++reduction) {
      const int size = 8 >> reduction;
      long differing = 0;
      long samples = 0;
      for (int round = 0; round < 600; ++round) {
        int16_t block[64];
        float quant[64];
        RandomBlock(random, block, quant);
        // A stride with a gap that must stay untouched.
        const size_t stride = size + 3;
        std::vector<uint8_t> expected(stride * size, 0xA5);
        std::vector<uint8_t> actual = expected;
        NmReference::JPEGInverseDCT(reduction, block, quant, expected.data(), stride);
        JPEGInverseDCT(reduction, block, quant, actual.data(), stride);
        for (size_t i = 0; i < expected.size(); ++i) {
          if (i % stride >= static_cast<size_t>(size)) {
            ASSERT_EQ(actual[i], 0xA5) << "wrote into the gap at " << i;
            continue;
          }
          ASSERT_LE(std::abs(actual[i] - expected[i]), 1)
              << "reduction " << reduction << " round " << round << " sample " << i;
          differing += actual[i] != expected[i];
          ++samples;
        }
      }
      // Off by one only where float rounding meets a half.
      EXPECT_LT(differing * 1000, samples) << "reduction " << reduction;
    }
  });
}

TEST(JPEGInverseDCT, KnownBlocks) {
  ForEachTarget([] {
    for (int reduction = 0; reduction < 4; ++reduction) {
      const int size = 8 >> reduction;
      int16_t block[64] = {};
      float quant[64];
      std::fill(quant, quant + 64, 1.0f);
      uint8_t out[64];
      // A flat block keeps its level at every size: DC 80 is 10 above 128.
      block[0] = 80;
      JPEGInverseDCT(reduction, block, quant, out, 8);
      for (int i = 0; i < size * size; ++i) {
        EXPECT_EQ(out[(i / size) * 8 + i % size], 138) << reduction;
      }
      // Saturation both ways.
      block[0] = 2047;
      quant[0] = 16;
      JPEGInverseDCT(reduction, block, quant, out, 8);
      EXPECT_EQ(out[0], 255);
      block[0] = -2048;
      JPEGInverseDCT(reduction, block, quant, out, 8);
      EXPECT_EQ(out[0], 0);
    }
    // One horizontal cosine: columns differ, rows are equal, and the two
    // halves mirror around 128.
    int16_t block[64] = {};
    float quant[64];
    std::fill(quant, quant + 64, 1.0f);
    block[1] = 100;
    uint8_t out[64];
    JPEGInverseDCT(0, block, quant, out, 8);
    for (int x = 0; x < 8; ++x) {
      EXPECT_EQ(out[x], out[56 + x]);
      EXPECT_EQ(out[x] + out[7 - x], 256);
    }
    EXPECT_GT(out[0], out[3]);
  });
}
