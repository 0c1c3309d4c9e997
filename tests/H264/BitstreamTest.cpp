#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <iterator>
#include <random>
#include <string>
#include <vector>

#include "Codecs/H264/BitReader.h"
#include "Codecs/H264/Cavlc.h"
#include "Codecs/H264/NalUnits.h"
#include "support/H264StreamWriter.h"

using namespace NmH264;

using NmTestSupport::CmBitWriter;

TEST(H264BitReader, ExpGolombCodesOfEveryLengthAndTheEnd) {
  // Values whose codes take 1 to 63 bits, at every bit offset, mixed with
  // fixed-width fields, read back exactly.
  std::mt19937 random(1);
  CmBitWriter writer;
  std::vector<uint32_t> values;
  for (int i = 0; i < 600; ++i) {
    const unsigned width = i % 33;
    const uint32_t value = width == 32
                               ? static_cast<uint32_t>(0xFFFFFFFEu - random() % 3)
                               : static_cast<uint32_t>(((uint64_t{1} << width) - 1) & random());
    values.push_back(value);
    writer.PutUE(value);
    writer.PutSE(i % 2 == 0 ? -static_cast<int64_t>(value >> 1) : static_cast<int64_t>(value >> 1));
    writer.Put(value & 0x7F, 7);
  }
  writer.Put(1, 1); // the stop bit
  CmBitReader reader(writer.Bytes().data(), writer.Bytes().size());
  for (size_t i = 0; i < values.size(); ++i) {
    ASSERT_EQ(reader.ReadUE(), values[i]) << i;
    const int32_t half = static_cast<int32_t>(values[i] >> 1);
    ASSERT_EQ(reader.ReadSE(), i % 2 == 0 ? -half : half) << i;
    ASSERT_EQ(reader.ReadBits(7), values[i] & 0x7F) << i;
    ASSERT_EQ(reader.HasMoreData(), i + 1 < values.size());
  }
  EXPECT_FALSE(reader.IsOverrun());
  EXPECT_EQ(reader.ReadTE(1), 0u); // te(v) of range 1 is one inverted bit
  EXPECT_FALSE(reader.IsOverrun());
  // Past the end: zeros, and the reader says so.
  reader.ReadBits(32);
  EXPECT_TRUE(reader.IsOverrun());

  // 33 or more leading zeros never form a value.
  const uint8_t zeros[8] = {0, 0, 0, 0, 0, 0x80, 0, 0};
  CmBitReader long_(zeros, sizeof zeros);
  long_.ReadUE();
  EXPECT_TRUE(long_.IsOverrun());
  // The stop bit is found behind trailing zero bytes (cabac_zero_words).
  const uint8_t trailing[] = {0xA0, 0x80, 0x00, 0x00};
  CmBitReader stop(trailing, sizeof trailing);
  stop.Skip(7);
  EXPECT_TRUE(stop.HasMoreData());
  stop.Skip(1);
  EXPECT_FALSE(stop.HasMoreData());
}

// Fed in pieces, a unit waits for the start code that closes it: the
// supplier test's stream cut every 13 bytes decodes to ffmpeg's pictures.
TEST(H264NalUnits, AnnexBCutsUnitsAtStartCodes) {
  // Three- and four-byte start codes, trailing zeros, an empty unit between
  // two start codes and leading garbage.
  const std::vector<uint8_t> stream = {0x12, 0x00, 0x00, 0x00, 0x01, 0x67, 0x42, 0x00, 0x00,
                                       0x00, 0x01, 0x00, 0x00, 0x01, 0x68, 0xCE, 0x00, 0x00,
                                       0x01, 0x65, 0x88, 0x00, 0x00, 0x03, 0x01, 0x00};
  const std::vector<std::vector<uint8_t>> expected = {
      {0x67, 0x42}, {0x68, 0xCE}, {0x65, 0x88, 0x00, 0x00, 0x03, 0x01}};
  std::vector<std::vector<uint8_t>> units;
  size_t position = 0;
  SmNalUnit unit;
  while (NextAnnexBUnit(stream.data(), stream.size(), position, true, unit)) {
    units.emplace_back(unit.data, unit.data + unit.size);
  }
  EXPECT_EQ(units, expected);
  EXPECT_EQ(position, stream.size());
  // Without a start code the last two bytes stay, as they may begin one that
  // the next data completes, unless the data ends there.
  for (const bool atEnd : {false, true}) {
    position = 0;
    EXPECT_FALSE(NextAnnexBUnit(stream.data(), 3, position, atEnd, unit));
    EXPECT_EQ(position, atEnd ? 3u : 1u);
  }

  // Length-prefixed units; a length beyond the data or of 0 stops.
  const std::vector<uint8_t> prefixed = {0, 0, 0, 2, 0x67, 0x42, 0, 0, 0, 1, 0x68, 0, 0, 0, 9, 1};
  position = 0;
  ASSERT_TRUE(NextLengthPrefixedUnit(prefixed.data(), prefixed.size(), position, 4, unit));
  EXPECT_EQ(std::vector<uint8_t>(unit.data, unit.data + unit.size), expected[0]);
  ASSERT_TRUE(NextLengthPrefixedUnit(prefixed.data(), prefixed.size(), position, 4, unit));
  EXPECT_EQ(unit.size, 1u);
  EXPECT_EQ(unit.GetType(), NalPictureParameterSet);
  EXPECT_FALSE(NextLengthPrefixedUnit(prefixed.data(), prefixed.size(), position, 4, unit));
  EXPECT_EQ(position, 11u);
  const uint8_t zeroLength[] = {0, 5};
  position = 0;
  EXPECT_FALSE(NextLengthPrefixedUnit(zeroLength, 1, position, 2, unit));

  // Emulation prevention: every 00 00 03 loses its 03, also at the end and
  // twice in a row; 00 00 04 stays.
  std::vector<uint8_t> rbsp;
  ExtractPayload(expected[2].data() + 1, expected[2].size() - 1, rbsp);
  EXPECT_EQ(rbsp, (std::vector<uint8_t>{0x88, 0x00, 0x00, 0x01}));
  const std::vector<uint8_t> escaped = {0, 0, 3, 0, 0, 3, 0, 0, 4, 0, 0, 3};
  ExtractPayload(escaped.data(), escaped.size(), rbsp);
  EXPECT_EQ(rbsp, (std::vector<uint8_t>{0, 0, 0, 0, 0, 0, 4, 0, 0}));
}

TEST(H264Cavlc, CodeTablesArePrefixCodes) {
  // Every table of the entropy code must be prefix-free; all but the
  // coeff_token tables, which leave room for codes no stream may use, fill
  // the code space exactly. A wrong bit in a code breaks one or the other.
  using namespace NmCavlcTables;
  const auto check = [](const std::vector<SmVlcSymbol>& codes, bool complete) -> double {
    double kraft = 0;
    for (size_t i = 0; i < codes.size(); ++i) {
      kraft += std::ldexp(1.0, -static_cast<int>(codes[i].bits.size()));
      for (size_t j = 0; j < codes.size(); ++j) {
        if (i != j) {
          EXPECT_NE(codes[j].bits.rfind(codes[i].bits, 0), 0u)
              << codes[i].bits << " begins " << codes[j].bits;
        }
      }
    }
    if (complete) {
      EXPECT_DOUBLE_EQ(kraft, 1.0);
    } else {
      EXPECT_LE(kraft, 1.0);
    }
    return kraft;
  };
  for (int c = 0; c < 5; ++c) {
    SCOPED_TRACE(c);
    const double kraft = check(GetCoeffTokenCodes(c), false);
    if (c == 3) {
      // The fixed-length class: 62 of the 64 six-bit codes.
      EXPECT_DOUBLE_EQ(kraft, 62.0 / 64);
    } else {
      // Only a code of zeros, which could mimic a start code, is left free.
      EXPECT_GE(kraft, 1.0 - std::ldexp(1.0, -10));
    }
  }
  for (int n = 1; n <= 15; ++n) {
    SCOPED_TRACE(n);
    check(GetTotalZerosCodes(n, false), n != 1);
  }
  for (int n = 1; n <= 3; ++n) {
    check(GetTotalZerosCodes(n, true), true);
  }
  for (int z = 1; z <= 7; ++z) {
    SCOPED_TRACE(z);
    check(GetRunBeforeCodes(z), z != 7);
  }
}

namespace {

void PutCode(CmBitWriter& writer, const std::vector<SmVlcSymbol>& codes, int symbol) {
  const auto code = std::find_if(codes.begin(), codes.end(),
                                 [symbol](const SmVlcSymbol& c) { return c.symbol == symbol; });
  ASSERT_NE(code, codes.end()) << "no code for " << symbol;
  for (const char bit : code->bits) {
    writer.PutFlag(bit == '1');
  }
}

// Writes a residual block the way an encoder does (clause 9.2 run
// backwards), so that the reader is held to the rules and not to itself.
// coefficients are in scan order; nCClass selects the coeff_token table.
void PutCavlcBlock(CmBitWriter& writer, const std::vector<int>& coefficients, int nCClass,
                   bool chromaDc) {
  using namespace NmCavlcTables;
  // Levels from the highest frequency down, each with the zeros below it
  // up to the next level; total_zeros counts them all, the last level's run
  // (which takes no code) too.
  std::vector<int> levels, runs;
  int totalZeros = 0;
  for (auto c = coefficients.rbegin(); c != coefficients.rend(); ++c) {
    if (*c != 0) {
      levels.push_back(*c);
      runs.push_back(0);
    } else if (!levels.empty()) {
      ++runs.back();
      ++totalZeros;
    }
  }
  const int total = static_cast<int>(levels.size());
  int trailingOnes = 0;
  while (trailingOnes < std::min(total, 3) && std::abs(levels[size_t(trailingOnes)]) == 1) {
    ++trailingOnes;
  }
  PutCode(writer, GetCoeffTokenCodes(nCClass), total * 4 + trailingOnes);
  for (int i = 0; i < trailingOnes; ++i) {
    writer.PutFlag(levels[size_t(i)] < 0);
  }
  int suffixLength = total > 10 && trailingOnes < 3 ? 1 : 0;
  for (int i = trailingOnes; i < total; ++i) {
    const int level = levels[size_t(i)];
    const int levelCode = (level > 0 ? 2 * level - 2 : -2 * level - 1) -
                          (i == trailingOnes && trailingOnes < 3 ? 2 : 0);
    int prefix = 0, suffixSize = suffixLength, suffix = 0;
    if (suffixLength == 0 && levelCode < 14) {
      prefix = levelCode;
    } else if (suffixLength == 0 && levelCode < 30) {
      prefix = 14, suffixSize = 4, suffix = levelCode - 14;
    } else if (suffixLength > 0 && levelCode < (15 << suffixLength)) {
      prefix = levelCode >> suffixLength, suffix = levelCode & ((1 << suffixLength) - 1);
    } else {
      // The escapes: prefix 15 with 12 bits, then each longer prefix with
      // one more bit, their ranges following each other.
      const int rest = levelCode - (15 << suffixLength) - (suffixLength == 0 ? 15 : 0);
      const auto offset = [](int p) { return p >= 16 ? (1 << (p - 3)) - 4096 : 0; };
      for (prefix = 15; rest >= offset(prefix) + (1 << (prefix - 3));) {
        ++prefix;
      }
      suffixSize = prefix - 3, suffix = rest - offset(prefix);
    }
    writer.Put(1, static_cast<unsigned>(prefix) + 1); // prefix zeros and the one
    writer.Put(static_cast<uint64_t>(suffix), static_cast<unsigned>(suffixSize));
    suffixLength = std::max(suffixLength, 1);
    if (std::abs(level) > (3 << (suffixLength - 1)) && suffixLength < 6) {
      ++suffixLength;
    }
  }
  if (total > 0 && total < static_cast<int>(coefficients.size())) {
    PutCode(writer, GetTotalZerosCodes(total, chromaDc), totalZeros);
  }
  for (int i = 0, zerosLeft = totalZeros; i + 1 < total && zerosLeft > 0; ++i) {
    PutCode(writer, GetRunBeforeCodes(std::min(zerosLeft, 7)), runs[size_t(i)]);
    zerosLeft -= runs[size_t(i)];
  }
}

} // namespace

TEST(H264Cavlc, BlocksOfEveryShapeReadBackAsWritten) {
  // Thousands of blocks back to back, so that codes straddle every point
  // where the reader takes new bits: every coeff_token table, luma, AC and
  // chroma DC blocks, trailing ones of both signs, levels around each
  // suffix length's limits and through all escapes up to 16 bits.
  std::mt19937 random(19);
  struct SmBlock {
    int nC, maxNumCoeff;
    std::vector<int> coefficients;
  };
  const int nCs[] = {0, 1, 2, 3, 4, 7, 8, 16};
  std::vector<SmBlock> blocks;
  CmBitWriter writer;
  writer.Put(random() & 0x7F, 7); // not on a byte boundary
  for (int i = 0; i < 4000; ++i) {
    const int shape = static_cast<int>(random() % 3);
    SmBlock block{
        shape == 2 ? -1 : nCs[random() % std::size(nCs)], 16 - shape / 2 * 12 - shape % 2, {}};
    block.coefficients.assign(static_cast<size_t>(block.maxNumCoeff), 0);
    const int density = static_cast<int>(random() % 5);
    for (int& c : block.coefficients) {
      if (static_cast<int>(random() % 4) >= density) {
        continue;
      }
      const int kind = static_cast<int>(random() % 16);
      const int magnitude = kind < 8    ? 1 + static_cast<int>(random() % 2)
                            : kind < 13 ? 3 + static_cast<int>(random() % 60)
                            : kind < 15 ? 60 + static_cast<int>(random() % 5000)
                                        : 32767 - static_cast<int>(random() % 4);
      c = random() % 2 == 0 ? magnitude : -magnitude;
    }
    const int nCClass = block.nC < 0   ? 4
                        : block.nC < 2 ? 0
                        : block.nC < 4 ? 1
                        : block.nC < 8 ? 2
                                       : 3;
    PutCavlcBlock(writer, block.coefficients, nCClass, shape == 2);
    blocks.push_back(std::move(block));
  }
  writer.PutTrailingBits();
  // Each block through a window of its own, and again all blocks through one
  // window, as the slice decoder reads a macroblock's, which refills only
  // where a block may run out of bits.
  CmBitReader reader(writer.Bytes().data(), writer.Bytes().size());
  CmBitReader shared(writer.Bytes().data(), writer.Bytes().size());
  reader.Skip(7);
  shared.Skip(7);
  {
    CmBitWindow window(shared);
    for (size_t i = 0; i < blocks.size(); ++i) {
      const SmBlock& block = blocks[i];
      const auto expectedTotal = std::count_if(block.coefficients.begin(), block.coefficients.end(),
                                               [](int c) { return c != 0; });
      std::vector<int16_t> read(16, int16_t{99}), readShared(16, int16_t{99});
      ASSERT_EQ(ReadResidualBlockCavlc(reader, block.nC, 0, block.maxNumCoeff - 1,
                                       block.maxNumCoeff, read.data()),
                expectedTotal)
          << "block " << i;
      CmBitCursor& cursor = window.GetCursor();
      const int total = block.maxNumCoeff == 16
                            ? ReadResidualBlockCavlc<16>(cursor, block.nC, readShared.data())
                        : block.maxNumCoeff == 15
                            ? ReadResidualBlockCavlc<15>(cursor, block.nC, readShared.data())
                            : ReadResidualBlockCavlc<4>(cursor, block.nC, readShared.data());
      ASSERT_EQ(total, expectedTotal) << "block " << i;
      const auto size = static_cast<std::ptrdiff_t>(block.maxNumCoeff);
      ASSERT_EQ(std::vector<int>(read.begin(), read.begin() + size), block.coefficients)
          << "block " << i;
      ASSERT_EQ(readShared, read) << "block " << i;
    }
  }
  EXPECT_FALSE(reader.HasMoreData());
  EXPECT_FALSE(reader.IsOverrun());
  EXPECT_EQ(shared.GetPosition(), reader.GetPosition());

  // Every coefficient of 8-bit video fits 16 bits: levels up to 32767 and
  // down to -32768 read (prefix 19 with suffixes either side of the
  // limits), one beyond is damage, and so is a level prefix that never ends.
  const struct {
    uint64_t bits;
    unsigned count;
    int level; // 0 for damage
  } edges[] = {{1 << 16 | 4060, 36, 32767},
               {1 << 16 | 4062, 36, 0},
               {1 << 16 | 4063, 36, -32768},
               {1 << 16 | 4065, 36, 0},
               {1, 48, 0}};
  for (const auto& edge : edges) {
    CmBitWriter block;
    block.Put(0b000101, 6); // coeff_token of one coefficient, no trailing one
    block.Put(edge.bits, edge.count);
    block.PutTrailingBits(); // the stop bit reads as total_zeros 0
    CmBitReader blockReader(block.Bytes().data(), block.Bytes().size());
    int16_t levels[16] = {};
    EXPECT_EQ(ReadResidualBlockCavlc(blockReader, 0, 0, 15, 16, levels), edge.level != 0 ? 1 : -1)
        << edge.bits;
    EXPECT_EQ(edge.level != 0 ? levels[0] : 0, edge.level) << edge.bits;
  }
}
