#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "Codecs/Primitives/JPEGHuffman.h"
#include "Codecs/Primitives/JPEGHuffmanEncode.h"
#include "Codecs/Primitives/JPEGTables.h"
#include "support/KernelTestSupport.h"

using namespace NmPrimitives;

// The call on the reference path or on the lookup path.
#define ON_PATH(reference, call) ((reference) ? NmReference::call : call)

namespace {

struct SmRandomTable {
  uint8_t bits[16] = {};
  std::vector<uint8_t> values;
  SmHuffmanDecodeTable decode;
  SmHuffmanEncodeTable encode;
};

// A random canonical code over the given symbols: random code counts per
// length that still leave room for the rest, symbols in random order.
SmRandomTable MakeTable(std::mt19937& random, std::vector<uint8_t> symbols) {
  for (;;) {
    SmRandomTable table;
    int free = 2;
    int left = static_cast<int>(symbols.size());
    for (int length = 1; length <= 16 && left > 0; ++length) {
      int count = 0;
      if (length == 16 || free > left * 2) {
        count = std::min(left, length == 16 ? free : free - 1);
      }
      if (length < 16) {
        const int most = std::min(free - 1, left);
        count = std::min(count, most);
        count = static_cast<int>(random() % (most / 2 + 1)) + (count > most / 2 ? most / 2 : 0);
        count = std::min(count, most);
      }
      table.bits[length - 1] = static_cast<uint8_t>(count);
      left -= count;
      free = 2 * (free - count);
      if (free > 1 << 17) {
        free = 1 << 17;
      }
    }
    if (left != 0) {
      continue;
    }
    std::shuffle(symbols.begin(), symbols.end(), random);
    table.values = symbols;
    if (BuildHuffmanDecodeTable(table.bits, table.values.data(), table.decode) &&
        BuildHuffmanEncodeTable(table.bits, table.values.data(), table.encode)) {
      return table;
    }
  }
}

std::vector<uint8_t> Range(int first, int last) {
  std::vector<uint8_t> symbols;
  for (int s = first; s <= last; ++s) {
    symbols.push_back(static_cast<uint8_t>(s));
  }
  return symbols;
}

std::vector<uint8_t> ACSymbols() {
  std::vector<uint8_t> symbols = {0x00, 0xF0};
  for (int run = 0; run < 16; ++run) {
    for (int size = 1; size <= 10; ++size) {
      symbols.push_back(static_cast<uint8_t>(run << 4 | size));
    }
  }
  return symbols;
}

class JPEGHuffman : public NmKernelTest::CmSeededTest {};

} // namespace

TEST_F(JPEGHuffman, SequentialBlocksRoundTripThroughBothPaths) {
  std::mt19937& random = Random();
  for (int round = 0; round < 40; ++round) {
    const SmRandomTable dc = MakeTable(random, Range(0, 11));
    const SmRandomTable ac = MakeTable(random, ACSymbols());
    std::vector<std::vector<int16_t>> blocks(1 + random() % 30, std::vector<int16_t>(64));
    // The stream as the encoder's reference writes it, which the encoder's
    // tests hold to libjpeg-turbo.
    std::vector<uint8_t> stream;
    SmHuffmanBitWriter writer;
    int32_t previous = 0;
    for (auto& block : blocks) {
      const int density = static_cast<int>(random() % 64);
      for (int k = 0; k < 64; ++k) {
        if (k == 0 || static_cast<int>(random() % 64) < density) {
          block[kJPEGNaturalOrder[k]] =
              static_cast<int16_t>(static_cast<int>(random() % 2047) - 1023);
        }
      }
      uint8_t bytes[kMaxHuffmanBlockBytes];
      stream.insert(stream.end(), bytes,
                    bytes + NmReference::EncodeBlockSequential(block.data(), previous, dc.encode,
                                                               ac.encode, writer, bytes));
    }
    uint8_t tail[2];
    stream.insert(stream.end(), tail, tail + FlushHuffmanBits(writer, tail));
    stream.push_back(0xFF);
    stream.push_back(0xD9);
    // Runs of MCUs of three blocks, in pieces as a reserve cuts them, with
    // and without AC terms, on both paths; the blocks one by one share the
    // decoding of an MCU's blocks, and are left to the DC-only form below.
    for (const bool reference : {false, true}) {
      for (const bool dcOnly : {false, true}) {
        SCOPED_TRACE(std::string(reference ? "reference" : "lookup") + (dcOnly ? " dc" : ""));
        SmEntropySource source{stream.data(), stream.size(), 0};
        SmHuffmanDecodeState state;
        int32_t lastDC = 0;
        const size_t mcus = blocks.size() / 3;
        std::vector<int16_t> decoded(blocks.size() * 64, 77);
        SmHuffmanMcuBlock layout[3];
        for (int i = 0; i < 3; ++i) {
          layout[i] = {decoded.data() + 64 * i, 3 * 64, &lastDC, &dc.decode, &ac.decode};
        }
        size_t done = 0;
        bool stopped = false;
        while (done < mcus) {
          // A reserve that stops the run part of the way, then none.
          const size_t reserve = stopped ? 0 : (stream.size() - source.position) / 2;
          bool damaged = false;
          const size_t count =
              ON_PATH(reference, DecodeMcusSequential(source, state, layout, 3, mcus - done, dcOnly,
                                                      reserve, damaged));
          ASSERT_FALSE(damaged);
          ASSERT_TRUE(count > 0 || reserve > 0);
          stopped = count == 0;
          for (SmHuffmanMcuBlock& b : layout) {
            b.block += count * b.step;
          }
          done += count;
        }
        for (size_t b = 0; b < mcus * 3; ++b) {
          const std::vector<int16_t> block(decoded.begin() + 64 * b,
                                           decoded.begin() + 64 * (b + 1));
          if (dcOnly) {
            ASSERT_EQ(block[0], blocks[b][0]) << b;
            ASSERT_EQ(block[1], 77) << "AC terms untouched";
          } else {
            ASSERT_EQ(block, blocks[b]) << b;
          }
        }
        // Blocks left over may be short enough for the reader to have
        // buffered their bits and met the marker behind them already.
        if (mcus * 3 == blocks.size()) {
          EXPECT_EQ(state.marker, 0xD9);
        }
      }
    }
    // The DC-only form consumes the same bits and finds the same DC values.
    SmEntropySource source{stream.data(), stream.size(), 0};
    SmHuffmanDecodeState state;
    int32_t lastDC = 0;
    for (const auto& block : blocks) {
      std::vector<int16_t> decoded(64);
      ASSERT_TRUE(
          DecodeBlockSequentialDCOnly(source, state, dc.decode, ac.decode, decoded.data(), lastDC));
      EXPECT_EQ(decoded[0], block[0]);
      EXPECT_EQ(std::count(decoded.begin(), decoded.end(), 0), 63 + (block[0] == 0));
    }
    EXPECT_EQ(state.marker, 0xD9);
    EXPECT_FALSE(HuffmanReadPastEnd(state));
  }
}

// On arbitrary bytes, markers and bad codes included, the lookup path and the
// bit-wise reference must agree on every coefficient, on success or failure,
// and on how far they read, in every decoding process.
TEST_F(JPEGHuffman, LookupPathMatchesTheReferenceOnArbitraryData) {
  std::mt19937& random = Random();
  for (int round = 0; round < 300; ++round) {
    std::vector<uint8_t> symbols = Range(0, 255);
    symbols.resize(1 + random() % 256);
    const SmRandomTable table = MakeTable(random, symbols);
    const SmRandomTable table2 = MakeTable(random, Range(0, 16));
    std::vector<uint8_t> data(random() % 400);
    for (uint8_t& b : data) {
      b = random() % 7 == 0 ? 0xFF : static_cast<uint8_t>(random());
    }
    const int process = round % 7;
    const int start = 1 + static_cast<int>(random() % 63);
    const int end = start + static_cast<int>(random() % (64 - start));
    const int low = static_cast<int>(random() % 14);
    SmEntropySource sources[2] = {{data.data(), data.size(), 0}, {data.data(), data.size(), 0}};
    SmHuffmanDecodeState states[2];
    int32_t lastDC[2] = {0, 0};
    std::vector<int16_t> blocks[2];
    // Progressive scans build on the coefficients of earlier ones. A
    // sequential block starts cleared, as the decoders ask: for a symbol with
    // a run but no value, which valid data lacks, one path writes the zero
    // and the other skips it, and only in a cleared block is that the same.
    std::vector<int16_t> seed(64);
    for (int16_t& c : seed) {
      const bool set = process != 0 && random() % 3 == 0;
      c = set ? static_cast<int16_t>(static_cast<int>(random() % 200) - 100) : 0;
    }
    blocks[0] = blocks[1] = seed;
    for (int block = 0; block < 12; ++block) {
      bool ok[2];
      int32_t differences[2] = {0, 0};
      for (int path = 0; path < 2; ++path) {
        SmEntropySource& s = sources[path];
        SmHuffmanDecodeState& st = states[path];
        int16_t* b = blocks[path].data();
        const bool ref = path == 1;
        switch (process) {
        case 0:
          ok[path] = ON_PATH(
              ref, DecodeBlockSequential(s, st, table.decode, table.decode, b, lastDC[path]));
          break;
        case 1:
          ok[path] = ON_PATH(ref, DecodeBlockDCFirst(s, st, table.decode, b, lastDC[path], low));
          break;
        case 2:
          ok[path] = ON_PATH(ref, DecodeBlockDCRefine(s, st, b, low));
          break;
        case 3:
          ok[path] = ON_PATH(ref, DecodeBlockACFirst(s, st, table.decode, b, start, end, low));
          break;
        case 4:
          ok[path] = ON_PATH(ref, DecodeBlockACRefine(s, st, table.decode, b, start, end, low));
          break;
        case 5: {
          // Two blocks an MCU, each with its own tables.
          SmHuffmanMcuBlock layout[2] = {{b, 0, &lastDC[path], &table.decode, &table.decode},
                                         {b, 0, &lastDC[path], &table2.decode, &table.decode}};
          bool damaged = false;
          const size_t done =
              ON_PATH(ref, DecodeMcusSequential(s, st, layout, 2, 1, block % 2 == 0, 0, damaged));
          ok[path] = done == 1 && !damaged;
          ASSERT_EQ(damaged, done == 0);
          break;
        }
        default:
          ok[path] =
              ON_PATH(ref, DecodeLosslessDifference(s, st, table2.decode, differences[path]));
          break;
        }
      }
      ASSERT_EQ(ok[0], ok[1]) << "process " << process << " block " << block;
      ASSERT_EQ(blocks[0], blocks[1]) << "process " << process << " block " << block;
      ASSERT_EQ(lastDC[0], lastDC[1]);
      ASSERT_EQ(differences[0], differences[1]);
      ASSERT_EQ(sources[0].position, sources[1].position);
      ASSERT_EQ(states[0].count, states[1].count);
      ASSERT_EQ(states[0].endOfBandRun, states[1].endOfBandRun);
      if (!ok[0]) {
        break;
      }
    }
  }
}

TEST_F(JPEGHuffman, ReaderStopsAtMarkersAndNotesTheEnd) {
  // Symbol 0 is code 0, symbol 1 is 10, symbol 2 is 110.
  const uint8_t bits[16] = {1, 1, 1};
  const uint8_t values[3] = {0, 1, 2};
  SmHuffmanDecodeTable table;
  ASSERT_TRUE(BuildHuffmanDecodeTable(bits, values, table));
  // 0xFF 0x00 is a stuffed 0xFF; 0xFF 0xFF 0xD0 is fill before a restart marker.
  const uint8_t data[] = {0xDF, 0xFF, 0x00, 0xFF, 0xFF, 0xD0, 0x77};
  SmEntropySource source{data, sizeof data, 0};
  SmHuffmanDecodeState state;
  int32_t difference = 0;
  ASSERT_TRUE(DecodeLosslessDifference(source, state, table, difference));
  EXPECT_EQ(state.marker, 0xD0);
  EXPECT_EQ(source.position, 4u);          // on the last 0xFF before the marker code
  EXPECT_FALSE(HuffmanReadPastEnd(state)); // zeros were fed, but not used
  // 110 is category 2, extra bits 11.
  EXPECT_EQ(difference, 3);
  ResetHuffmanState(state);
  EXPECT_EQ(state.marker, 0);

  // Running out of data without a marker is noticed once bits past the end
  // are used.
  const uint8_t shortData[] = {0x80}; // 10 0 then 00000
  SmEntropySource shortSource{shortData, 1, 0};
  SmHuffmanDecodeState shortState;
  ASSERT_TRUE(DecodeLosslessDifference(shortSource, shortState, table, difference));
  EXPECT_FALSE(HuffmanReadPastEnd(shortState));
  for (int i = 0; i < 9; ++i) {
    DecodeLosslessDifference(shortSource, shortState, table, difference);
  }
  EXPECT_TRUE(HuffmanReadPastEnd(shortState));

  // A code that the table does not have fails in both paths.
  const uint8_t partialBits[16] = {1};
  const uint8_t partialValues[1] = {0};
  ASSERT_TRUE(BuildHuffmanDecodeTable(partialBits, partialValues, table));
  const uint8_t ones[] = {0xF0};
  SmEntropySource onesSource{ones, 1, 0};
  SmHuffmanDecodeState onesState;
  EXPECT_FALSE(DecodeLosslessDifference(onesSource, onesState, table, difference));
  onesSource.position = 0;
  onesState = {};
  EXPECT_FALSE(NmReference::DecodeLosslessDifference(onesSource, onesState, table, difference));
}
