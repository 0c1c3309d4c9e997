#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <vector>

#include "Codecs/Primitives/JPEGInverseDCT.h"
#include "Primitives/PrimitiveTestSupport.h"

using namespace NmPrimitives;

namespace {
// Coefficient blocks like those of photographs: a DC term, AC terms that get
// sparser with frequency, now and then an extreme one that must clamp. Values
// stay where a conforming encoder puts them: |F| <= 1024 before quantisation.
void RandomQuant(std::mt19937& random, int16_t* quant) {
  for (int i = 0; i < 64; ++i) {
    quant[i] = static_cast<int16_t>(1 + random() % (random() % 4 == 0 ? 255 : 30));
  }
}

void RandomBlock(std::mt19937& random, const int16_t* quant, int16_t* block) {
  const int density = static_cast<int>(random() % 100);
  for (int i = 0; i < 64; ++i) {
    const int v = i / 8;
    const int u = i % 8;
    double value = 0;
    if (i == 0) {
      value = static_cast<int>(random() % 2041) - 1024;
    } else if (static_cast<int>(random() % 100) < density / (1 + u + v)) {
      value = static_cast<int>(random() % 401) - 200;
    }
    block[i] = static_cast<int16_t>(std::lround(value / quant[i]));
  }
  if (random() % 10 == 0) {
    const int i = static_cast<int>(random() % 64);
    block[i] = static_cast<int16_t>(std::lround((random() % 2 ? 1000.0 : -1000.0) / quant[i]));
  }
}

// The forward transform of T.81 A.3.3 in double precision.
void ExactForwardDCT(const int* samples, double* coefficients) {
  const double pi = std::acos(-1.0);
  for (int v = 0; v < 8; ++v) {
    for (int u = 0; u < 8; ++u) {
      double sum = 0;
      for (int y = 0; y < 8; ++y) {
        for (int x = 0; x < 8; ++x) {
          sum += (samples[y * 8 + x] - 128) * std::cos((2 * x + 1) * u * pi / 16) *
                 std::cos((2 * y + 1) * v * pi / 16);
        }
      }
      const double cu = u == 0 ? std::sqrt(0.5) : 1.0;
      const double cv = v == 0 ? std::sqrt(0.5) : 1.0;
      coefficients[v * 8 + u] = cu * cv * sum / 4;
    }
  }
}
} // namespace

VZK_TEST_ON_EVERY_TARGET(JPEGInverseDCT);

TEST_P(JPEGInverseDCT, EverySizeStaysWithinOneOfTheExactTransform) {
  std::mt19937& random = Random();
  for (int reduction = 0; reduction < 4; ++reduction) {
    const size_t size = static_cast<size_t>(8 >> reduction);
    long differing = 0;
    long samples = 0;
    for (int round = 0; round < 400; ++round) {
      // Rows of one to five blocks: whole vector groups and the rest.
      const size_t count = 1 + random() % 5;
      std::vector<int16_t> blocks(64 * count);
      int16_t quant[64];
      RandomQuant(random, quant);
      for (size_t b = 0; b < count; ++b) {
        RandomBlock(random, quant, blocks.data() + 64 * b);
      }
      // A stride with a gap that must stay untouched.
      const size_t stride = size * count + 3;
      std::vector<uint8_t> expected(stride * size, 0xA5);
      std::vector<uint8_t> actual = expected;
      NmReference::JPEGInverseDCTBlocks(reduction, blocks.data(), count, quant, expected.data(),
                                        stride);
      JPEGInverseDCTBlocks(reduction, blocks.data(), count, quant, actual.data(), stride);
      for (size_t i = 0; i < expected.size(); ++i) {
        if (i % stride >= size * count) {
          ASSERT_EQ(actual[i], 0xA5) << "wrote into the gap at " << i;
          continue;
        }
        ASSERT_LE(std::abs(actual[i] - expected[i]), 1)
            << "reduction " << reduction << " round " << round << " sample " << i;
        differing += actual[i] != expected[i];
        ++samples;
      }
    }
    // IEEE 1180 asks for a mean square error of at most 0.02 per sample;
    // with errors of at most 1 that is the share of samples that differ.
    EXPECT_LT(differing * 100, samples * 2) << "reduction " << reduction;
  }
}

TEST_P(JPEGInverseDCT, ExtremeSamplesComeBackFromTheirLargestCoefficients) {
  // Pictures of only 0 and 255 give the largest coefficients that a valid
  // stream can carry; with quantisation step 1 they must come back whole.
  std::mt19937& random = Random();
  int16_t quant[64];
  std::fill(quant, quant + 64, int16_t{1});
  for (int round = 0; round < 200; ++round) {
    int samples[2][64];
    int16_t blocks[128];
    for (int b = 0; b < 2; ++b) {
      const int pattern = round % 3;
      for (int i = 0; i < 64; ++i) {
        const int x = i % 8;
        const int y = i / 8;
        const bool high = pattern == 0   ? random() % 2 != 0
                          : pattern == 1 ? (x + y + b) % 2 != 0
                                         : (x < 4) != (y < 4);
        samples[b][i] = high ? 255 : 0;
      }
      double coefficients[64];
      ExactForwardDCT(samples[b], coefficients);
      for (int i = 0; i < 64; ++i) {
        blocks[64 * b + i] = static_cast<int16_t>(std::lround(coefficients[i]));
      }
    }
    uint8_t out[8 * 16];
    JPEGInverseDCTBlocks(0, blocks, 2, quant, out, 16);
    for (int b = 0; b < 2; ++b) {
      for (int i = 0; i < 64; ++i) {
        ASSERT_LE(std::abs(out[(i / 8) * 16 + 8 * b + i % 8] - samples[b][i]), 1)
            << "round " << round << " block " << b << " sample " << i;
      }
    }
  }
}

TEST_P(JPEGInverseDCT, KnownBlocks) {
  for (int reduction = 0; reduction < 4; ++reduction) {
    const int size = 8 >> reduction;
    // Two blocks, so that a vector group holds both: one flat, one not.
    int16_t blocks[128] = {};
    int16_t quant[64];
    std::fill(quant, quant + 64, int16_t{1});
    uint8_t out[8 * 16];
    // A flat block keeps its level at every size: DC 80 is 10 above 128;
    // -4 is exactly half a step below 128 and rounds up.
    blocks[0] = 80;
    blocks[64] = -4;
    JPEGInverseDCTBlocks(reduction, blocks, 2, quant, out, 16);
    for (int i = 0; i < size * size; ++i) {
      EXPECT_EQ(out[(i / size) * 16 + i % size], 138) << reduction;
      EXPECT_EQ(out[(i / size) * 16 + size + i % size], 128) << reduction;
    }
    // The same beside a block with an AC term: no shortcut for the pair.
    blocks[65] = 20;
    JPEGInverseDCTBlocks(reduction, blocks, 2, quant, out, 16);
    for (int i = 0; i < size * size; ++i) {
      EXPECT_EQ(out[(i / size) * 16 + i % size], 138) << reduction;
    }
    // Saturation both ways.
    blocks[0] = 2040 / 16;
    quant[0] = 16;
    JPEGInverseDCTBlocks(reduction, blocks, 1, quant, out, 16);
    EXPECT_EQ(out[0], 255);
    blocks[0] = -2040 / 16;
    JPEGInverseDCTBlocks(reduction, blocks, 1, quant, out, 16);
    EXPECT_EQ(out[0], 0);
  }
}
