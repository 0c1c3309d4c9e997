#include <gtest/gtest.h>

#include <cstring>
#include <numeric>
#include <vector>

#include "MediaProcessing/JPEG/BitStreamInput.h"
#include "MediaProcessing/JPEG/BitStreamOutput.h"
#include "MediaProcessing/JPEG/JPEGColorComponent.h"
#include "MediaProcessing/JPEG/JPEGHuffmanState.h"
#include "MediaProcessing/JPEG/JPEGHuffmanTable.h"
#include "MediaProcessing/JPEG/JPEGQuantTable.h"
#include "MediaProcessing/JPEG/MemBuffInput.h"
#include "MediaProcessing/JPEG/SimpleJPEGEncoder.h"

TEST(JPEGStreams, MemoryInputSeeksReadsAndRefuses) {
  CMemBuffInput input;
  EXPECT_EQ(input.Open(), JStatusFailed);
  EXPECT_EQ(input.Open(nullptr, 5), JStatusUnsupported);
  std::vector<uint8_t> bytes(10);
  std::iota(bytes.begin(), bytes.end(), 0);
  ASSERT_EQ(input.Open(bytes.data(), 10), JStatusOk);
  // Origin 0 and 2 ignore the offset for the move but not for the range
  // check, which counts from the current position: at the end even a rewind
  // is refused.
  const struct {
    int64_t offset;
    int origin;
    JStatus status;
    uint32_t position;
  } seeks[] = {{4, 1, JStatusOk, 4},         {5, 0, JStatusOk, 0},         {4, 1, JStatusOk, 4},
               {6, 0, JStatusEndOfData, 4},  {-5, 1, JStatusEndOfData, 4}, {5, 1, JStatusOk, 9},
               {1, 1, JStatusEndOfData, 9},  {0, 7, JStatusFailed, 9},     {-9, 2, JStatusOk, 10},
               {0, 0, JStatusEndOfData, 10}, {-10, 1, JStatusOk, 0}};
  for (const auto& seek : seeks) {
    uint32_t position = 99;
    EXPECT_EQ(input.Seek(seek.offset, seek.origin), seek.status)
        << seek.offset << " " << seek.origin;
    EXPECT_EQ(input.TellPos(position), JStatusOk);
    EXPECT_EQ(position, seek.position) << seek.offset << " " << seek.origin;
  }
  uint8_t out[16] = {};
  uint32_t read = 0;
  EXPECT_EQ(input.Read(out, 6, read), JStatusOk);
  EXPECT_EQ(input.Read(out, 16, read), JStatusEndOfData);
  EXPECT_EQ(read, 4u);
  EXPECT_EQ(out[3], 9);
  EXPECT_EQ(input.Read(out, 1, read), JStatusEndOfData);
  EXPECT_EQ(read, 0u);
  EXPECT_EQ(input.Close(), JStatusOk);
  uint32_t position = 99;
  input.TellPos(position);
  EXPECT_EQ(position, 0u);
  EXPECT_EQ(input.Seek(0, 1), JStatusEndOfData); // nothing to stand on
}

// Skips of every length from every start land on the right byte, across
// refills of the buffer, and stop at the end of the stream.
TEST(JPEGStreams, BitInputSkipsAcrossItsBufferBitOutputFlushesBeforeAReservation) {
  std::vector<uint8_t> bytes(100);
  std::iota(bytes.begin(), bytes.end(), 0);
  CMemBuffInput input;
  CBitStreamInput bits;
  for (int start = 0; start < 20; ++start) {
    for (int skip = 0; skip < 40; ++skip) {
      ASSERT_EQ(input.Open(bytes.data(), 100), JStatusOk);
      ASSERT_EQ(bits.Attach(&input, 16), JStatusOk);
      uint16_t word = 0;
      for (int i = 0; i < start; ++i) {
        ASSERT_EQ(bits.ReadWord(word), JStatusOk);
      }
      ASSERT_EQ(bits.Seek(skip, 1), JStatusOk);
      ASSERT_EQ(bits.ReadWord(word), JStatusOk);
      EXPECT_EQ(word, (2 * start + skip) << 8 | (2 * start + skip + 1)) << start << " " << skip;
    }
  }
  EXPECT_EQ(bits.Seek(100, 1), JStatusEndOfData);
  EXPECT_TRUE(bits.IsEndOfStream());
  // A reservation that does not fit behind what is buffered flushes first.

  for (uint32_t filled = 0; filled <= 8; ++filled) {
    NmMediaProcessing::CmSimpleJPEGEncoder::CmMemoryDataOutputBuffer sink;
    CBitStreamOutput out;
    ASSERT_EQ(out.Attach(&sink, 8), JStatusOk);
    uint8_t* start = nullptr;
    ASSERT_EQ(out.Reserve(8, start), JStatusOk);
    for (uint32_t i = 0; i < filled; ++i) {
      ASSERT_EQ(out.WriteByte(static_cast<uint8_t>(i)), JStatusOk);
    }
    uint8_t* space = nullptr;
    EXPECT_EQ(out.Reserve(9, space), JStatusFailed);
    ASSERT_EQ(out.Reserve(4, space), JStatusOk);
    EXPECT_EQ(space, filled + 4 <= 8 ? start + filled : start) << filled;
    std::memcpy(space, "wxyz", 4);
    out.Commit(4);
    ASSERT_EQ(out.Flush(), JStatusOk);
    ASSERT_EQ(sink.GetUsed(), filled + 4);
    EXPECT_EQ(std::string(sink.GetData() + filled, sink.GetData() + filled + 4), "wxyz");
  }
  EXPECT_EQ(CBitStreamOutput().Flush(), JStatusFailed);
}

// The zig-zag order is proven by the pictures against libjpeg-turbo; here the
// scaling at its limits and what the tables refuse.
TEST(JPEGStreams, QuantTablesScaleAndRefuse) {
  uint8_t table[64];
  std::iota(table, table + 64, 10);
  CJPEGEncoderQuantTable encoder;
  // Quality 100 gives steps of 1, 1 saturates (factor 5000), 0 does not scale,
  // 25 doubles with rounding.
  for (const auto& [quality, index, value] : {std::tuple{100, 63, 1}, std::tuple{1, 0, 255},
                                              std::tuple{0, 63, 73}, std::tuple{25, 0, 20}}) {
    ASSERT_EQ(encoder.Init(0, table, quality), JStatusOk);
    EXPECT_EQ(encoder.raw[index], value) << quality;
  }
  EXPECT_EQ(encoder.Init(4, table, 50), JStatusFailed);
  EXPECT_EQ(encoder.Init(0, table, 101), JStatusPrimitiveFailed);
  EXPECT_FALSE(encoder.initialized);
  uint16_t wide[64];
  std::fill(wide, wide + 64, 1000);
  ASSERT_EQ(encoder.Init(2, wide, 10), JStatusOk);
  EXPECT_EQ(encoder.precision, 1);
  EXPECT_EQ(encoder.raw[5], 5000);
  uint16_t scaled[64] = {};
  EXPECT_EQ(ScaleQuantTable(scaled, 0, 255), JStatusBadQuality);

  uint16_t zigZag[64];
  std::iota(zigZag, zigZag + 64, 1);
  CJPEGDecoderQuantTable decoder;
  ASSERT_EQ(decoder.Init(3, zigZag, 1), JStatusOk);
  EXPECT_EQ(decoder.natural[8], 3);
  EXPECT_EQ(decoder.natural[63], 64);
  EXPECT_EQ(decoder.Init(0, zigZag, 2), JStatusFailed);
}

TEST(JPEGStreams, HuffmanTablesRefuseCodesThatCannotBeCanonical) {
  // T.81 Table K.3, the luminance DC table.
  const uint8_t bits[16] = {0, 1, 5, 1, 1, 1, 1, 1, 1, 0, 0, 0, 0, 0, 0, 0};
  const uint8_t values[12] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11};
  CJPEGEncoderHuffmanTable encoder;
  EXPECT_EQ(encoder.Init(0, 0, bits, values), JStatusFailed); // not created
  ASSERT_EQ(encoder.Create(), JStatusOk);
  ASSERT_EQ(encoder.Init(0, 0, bits, values), JStatusOk);
  const uint8_t twice[2] = {3, 3};
  const uint8_t twoCodes[16] = {2};
  EXPECT_EQ(encoder.Init(0, 0, twoCodes, twice), JStatusPrimitiveFailed);

  CJPEGDecoderHuffmanTable decoder;
  ASSERT_EQ(decoder.Create(), JStatusOk);
  ASSERT_EQ(decoder.Init(1, 1, bits, values), JStatusOk);
  // Three codes of length 1 cannot exist; neither can 257 symbols.
  const uint8_t overfull[16] = {3};
  EXPECT_EQ(decoder.Init(0, 0, overfull, values), JStatusPrimitiveFailed);
  EXPECT_FALSE(decoder.initialized);
  uint8_t tooMany[16] = {};
  tooMany[15] = 255;
  tooMany[14] = 2;
  std::vector<uint8_t> many(300);
  EXPECT_EQ(decoder.Init(0, 0, tooMany, many.data()), JStatusPrimitiveFailed);
  EXPECT_EQ(decoder.Init(0, 2, bits, values), JStatusFailed);
}
