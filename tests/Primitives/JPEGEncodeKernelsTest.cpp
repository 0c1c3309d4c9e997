#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <vector>

#include "Codecs/Primitives/JPEGForwardDCT.h"
#include "Codecs/Primitives/JPEGHuffmanEncode.h"
#include "Primitives/PrimitiveTestSupport.h"

using NmPrimitiveTest::ExpectSameWrites;
using NmPrimitiveTest::SmTestPlane;
using namespace NmPrimitives;

VZK_TEST_ON_EVERY_TARGET(JPEGForwardDCT);
VZK_TEST_ON_EVERY_TARGET(JPEGHuffmanEncode);

TEST_P(JPEGForwardDCT, MatchesTheReference) {
  std::mt19937& random = Random();
  for (int round = 0; round < 40; ++round) {
    const size_t blocks = 1 + random() % 9;
    SmTestPlane samples(random, blocks * 8, 8);
    if (round % 4 == 0) {
      // The extremes, where a vector lane that overflows would show.
      for (uint8_t& b : samples.bytes) {
        b = random() % 2 ? 255 : 0;
      }
    }
    std::vector<float> expected(blocks * 64);
    std::vector<float> actual(blocks * 64 + 1, -7.0f);
    NmReference::ForwardDCT8x8Blocks(samples.data(), samples.stride, blocks, expected.data());
    ForwardDCT8x8Blocks(samples.data(), samples.stride, blocks, actual.data());
    for (size_t i = 0; i < expected.size(); ++i) {
      ASSERT_NEAR(actual[i], expected[i], 2e-3f) << "coefficient " << i;
    }
    EXPECT_EQ(actual.back(), -7.0f) << "wrote past the last block";
  }
}

TEST_P(JPEGForwardDCT, QuantizesAsTheReferenceExactly) {
  uint16_t table[64];
  for (int i = 0; i < 64; ++i) {
    table[i] = static_cast<uint16_t>(i == 5 ? 0 : 1 + i * 3);
  }
  float reciprocals[64];
  MakeQuantReciprocals(table, reciprocals);
  EXPECT_EQ(reciprocals[5], 1.0f) << "a zero entry counts as one";
  std::mt19937& random = Random();
  for (int round = 0; round < 30; ++round) {
    const size_t blocks = 1 + random() % 5;
    std::vector<float> coefficients(blocks * 64);
    for (size_t i = 0; i < coefficients.size(); ++i) {
      switch (random() % 4) {
      case 0: // exact halves: ties go to even
        coefficients[i] = (static_cast<int>(random() % 41) - 20 + 0.5f) * table[i % 64];
        break;
      case 1: // beyond 16 bits
        coefficients[i] = (random() % 2 ? 1 : -1) * 1e6f;
        break;
      default:
        coefficients[i] = static_cast<float>(static_cast<int>(random() % 4096) - 2048) / 1.7f;
      }
    }
    // One value more than the blocks hold: neither may write it.
    ExpectSameWrites(
        NmReference::QuantizeBlocks, QuantizeBlocks, std::vector<int16_t>(blocks * 64 + 1, 99),
        [&](auto quantize, std::vector<int16_t>& out) {
          quantize(coefficients.data(), blocks, reciprocals, out.data());
        },
        "quantize");
  }
}

TEST_P(JPEGForwardDCT, FusedWithQuantizingAgreesWithTheTwoApartToOneStep) {
  uint16_t table[64];
  for (int i = 0; i < 64; ++i) {
    table[i] = static_cast<uint16_t>(1 + (i * 7) % 40);
  }
  uint16_t ones[64];
  std::fill(ones, ones + 64, uint16_t{1});
  std::mt19937& random = Random();
  long differing = 0;
  long total = 0;
  for (int round = 0; round < 60; ++round) {
    // Every other round step 1 everywhere and the extremes of the sample
    // range: the largest coefficients there are, which must not overflow.
    const bool extreme = round % 2 == 1;
    float reciprocals[64];
    MakeQuantReciprocals(extreme ? ones : table, reciprocals);
    const size_t blocks = 1 + random() % 12;
    SmTestPlane samples(random, blocks * 8, 8);
    if (extreme) {
      const int pattern = round / 2 % 3;
      for (size_t y = 0; y < 8; ++y) {
        for (size_t x = 0; x < blocks * 8; ++x) {
          const bool high = pattern == 0   ? random() % 2 != 0
                            : pattern == 1 ? (x + y) % 2 != 0
                                           : (x % 8 < 4) != (y < 4) || x / 8 % 2 == 1;
          samples.bytes[y * samples.stride + x] = high ? 255 : 0;
        }
      }
    }
    std::vector<float> coefficients(blocks * 64);
    std::vector<int16_t> apart(blocks * 64);
    std::vector<int16_t> fused(blocks * 64 + 1, 77);
    std::vector<int16_t> reference(blocks * 64);
    ForwardDCT8x8Blocks(samples.data(), samples.stride, blocks, coefficients.data());
    QuantizeBlocks(coefficients.data(), blocks, reciprocals, apart.data());
    ForwardDCTQuantizeBlocks(samples.data(), samples.stride, blocks, reciprocals, fused.data());
    NmReference::ForwardDCTQuantizeBlocks(samples.data(), samples.stride, blocks, reciprocals,
                                          reference.data());
    EXPECT_EQ(fused.back(), 77) << "wrote past the last block";
    fused.pop_back();
    // Fixed point and float differ only where a value lies near half a
    // step: by one step, and seldom.
    for (size_t i = 0; i < fused.size(); ++i) {
      ASSERT_LE(std::abs(fused[i] - apart[i]), 1) << i;
      ASSERT_LE(std::abs(fused[i] - reference[i]), 1) << i;
      differing += fused[i] != reference[i];
      ++total;
    }
  }
  // Half the rounds quantise with step 1, where every rounding error of
  // the fixed point shows; a few in a hundred differ there.
  EXPECT_LT(differing * 100, total * 3);
}

namespace {

// What an encoder leaves behind: its bytes, its bit writer and the DC values.
struct SmEncoded {
  std::vector<uint8_t> bytes;
  SmHuffmanBitWriter writer;
  int32_t dc[2] = {0, 0};
  bool operator==(const SmEncoded& o) const {
    return bytes == o.bytes && writer.bits == o.writer.bits && writer.count == o.writer.count &&
           dc[0] == o.dc[0] && dc[1] == o.dc[1];
  }
};

SmHuffmanEncodeTable MakeTable(const std::vector<uint8_t>& bits) {
  std::vector<uint8_t> values(256);
  for (int i = 0; i < 256; ++i) {
    // Spread the symbols so that long and short codes fall on all categories.
    values[i] = static_cast<uint8_t>((i * 113) & 0xFF);
  }
  SmHuffmanEncodeTable table;
  EXPECT_TRUE(BuildHuffmanEncodeTable(bits.data(), values.data(), table));
  return table;
}

} // namespace

TEST_P(JPEGHuffmanEncode, WritesTheReferenceBytes) {
  // Every symbol has a code: short ones, and long ones up to 16 bits.
  const SmHuffmanEncodeTable shortCodes =
      MakeTable({0, 0, 0, 0, 0, 0, 0, 255, 1, 0, 0, 0, 0, 0, 0, 0});
  const SmHuffmanEncodeTable longCodes =
      MakeTable({0, 0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 165});
  std::mt19937& random = Random();
  for (int round = 0; round < 20; ++round) {
    const SmHuffmanEncodeTable& dc = round % 2 ? shortCodes : longCodes;
    const SmHuffmanEncodeTable& ac = round % 3 ? longCodes : shortCodes;
    std::vector<std::array<int16_t, 64>> blocks(40);
    for (auto& block : blocks) {
      const int kind = static_cast<int>(random() % 5);
      for (int i = 0; i < 64; ++i) {
        if (kind == 0) {
          // Dense and beyond the baseline range: the limits apply.
          block[i] = static_cast<int16_t>(static_cast<int>(random() % 8000) - 4000);
        } else if (kind == 1) {
          // Long zero runs, with the last coefficient set now and then.
          block[i] = random() % 23 == 0 ? static_cast<int16_t>(random() % 7 - 3) : 0;
        } else if (kind == 2) {
          block[i] = i == 63 ? -1 : 0;
        } else if (kind == 3) {
          block[i] =
              static_cast<int16_t>(random() % 2 ? -1 : 1) * static_cast<int16_t>(random() % 3);
        }
      }
    }
    const auto encode = [&](auto f, SmEncoded& out) {
      for (const auto& block : blocks) {
        uint8_t bytes[kMaxHuffmanBlockBytes];
        const size_t n = f(block.data(), out.dc[0], dc, ac, out.writer, bytes);
        ASSERT_LE(n, kMaxHuffmanBlockBytes);
        out.bytes.insert(out.bytes.end(), bytes, bytes + n);
      }
    };
    ExpectSameWrites(NmReference::EncodeBlockSequential, EncodeBlockSequential, SmEncoded{}, encode,
                     "blocks");
    SmEncoded encoded;
    encode(EncodeBlockSequential, encoded);
    // No 0xFF byte goes out without the zero behind it.
    for (size_t i = 0; i + 1 < encoded.bytes.size(); ++i) {
      if (encoded.bytes[i] == 0xFF) {
        ASSERT_EQ(encoded.bytes[i + 1], 0) << i;
      }
    }
  }
  // Runs of blocks with alternating tables, as in an MCU, give the same bytes
  // as the blocks one by one in the reference.
  for (int round = 0; round < 20; ++round) {
    const size_t count = 1 + random() % 10;
    std::vector<std::vector<int16_t>> blocks(count, std::vector<int16_t>(64));
    for (auto& block : blocks) {
      for (int16_t& c : block) {
        c = random() % 4 == 0 ? static_cast<int16_t>(static_cast<int>(random() % 3000) - 1500) : 0;
      }
    }
    SmEncoded start;
    start.writer = {0x3, 2};
    start.dc[0] = 5;
    start.dc[1] = -7;
    ExpectSameWrites(
        NmReference::EncodeBlocksSequential, EncodeBlocksSequential, start,
        [&](auto f, SmEncoded& out) {
          std::vector<SmHuffmanBlock> run;
          for (size_t i = 0; i < count; ++i) {
            const int slot = i % 3 == 2 ? 1 : 0;
            run.push_back(
                {blocks[i].data(), &out.dc[slot], slot ? &shortCodes : &longCodes, &longCodes});
          }
          out.bytes.resize(count * kMaxHuffmanBlockBytes);
          out.bytes.resize(f(run.data(), count, out.writer, out.bytes.data()));
        },
        "runs");
  }
  // Padding is with 1 bits, and a padded 0xFF is stuffed too.
  SmHuffmanBitWriter writer{0x5, 3};
  uint8_t out[2];
  ASSERT_EQ(FlushHuffmanBits(writer, out), 1u);
  EXPECT_EQ(out[0], 0xBF);
  writer = {0x7F, 7};
  ASSERT_EQ(FlushHuffmanBits(writer, out), 2u);
  EXPECT_EQ(out[0], 0xFF);
  EXPECT_EQ(out[1], 0x00);
  EXPECT_EQ(FlushHuffmanBits(writer, out), 0u);
}
