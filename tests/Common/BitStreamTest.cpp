#include <cstdint>
#include <functional>
#include <vector>

#include <gtest/gtest.h>

#include "Common/BitStream/BitStream.h"
#include "support/CaughtError.h"

using NmBitStream::CmBitReader;
using NmBitStream::CmBitStreamError;
using NmBitStream::CmReadBuffer;
using NmCommon::ImStreamTypes;

namespace {

void ExpectBitStreamError(const std::function<void()>& action, uint32_t code, const char* message) {
  const auto e = NmTestSupport::Caught<CmBitStreamError>(action);
  EXPECT_EQ(e->GetCode(), code);
  EXPECT_STREQ(e->what(), message);
}

// Reads `count` bits: the value, and the bit position after the read.
std::pair<uint32_t, int64_t> Read(CmBitReader& reader, unsigned count) {
  const uint32_t value = reader.ReadBits(count);
  return {value, reader.GetBitPosition()};
}
using SmRead = std::pair<uint32_t, int64_t>;

} // namespace

TEST(ReadBuffer, CopiesWhatIsLeft) {
  const uint8_t data[] = {1, 2, 3, 4, 5};
  CmReadBuffer buffer(data, sizeof data);
  uint8_t out[8] = {};
  EXPECT_EQ(buffer.Read(out, 2, ImStreamTypes::Blocking), 2u);
  EXPECT_EQ(out[0] << 8 | out[1], 0x0102);
  EXPECT_EQ(buffer.Read(out, 0, ImStreamTypes::Default), 0u);
  EXPECT_EQ(buffer.Read(out, 8, ImStreamTypes::Default), 3u);
  EXPECT_EQ(out[2], 5);
  EXPECT_EQ(buffer.Read(out, 8, ImStreamTypes::Blocking), 0u);

  ExpectBitStreamError([&] { buffer.Read(out, 1, ImStreamTypes::NonBlocking); }, 0,
                       "Only blocking mode is supported by CmReadBuffer");
  CmReadBuffer unset(nullptr, 10);
  ExpectBitStreamError([&] { unset.Read(out, 1, ImStreamTypes::Blocking); }, 1,
                       "No data has been set");
}

TEST(BitReader, ReadsMostSignificantBitFirst) {
  const uint8_t data[] = {0xA5, 0x0F, 0xF0, 0x81, 0x7E, 0xC3};
  CmReadBuffer buffer(data, sizeof data);
  CmBitReader reader(buffer);
  EXPECT_EQ(Read(reader, 1), SmRead(1, 1));
  EXPECT_EQ(Read(reader, 3), SmRead(0x2, 4));
  // Across byte boundaries: 0x5, 0x0F, 0xF0, 0x8 as one 24-bit field.
  EXPECT_EQ(Read(reader, 24), SmRead(0x50FF08, 28));
  EXPECT_EQ(Read(reader, 4), SmRead(0x1, 32));
  // The next byte is read only when a bit of it is needed.
  EXPECT_EQ(Read(reader, 0), SmRead(0, 32));

  reader.ByteAlign();
  EXPECT_EQ(reader.GetBitPosition(), 32);
  EXPECT_EQ(Read(reader, 3), SmRead(0x3, 35));
  reader.ByteAlign();
  EXPECT_EQ(reader.GetBitPosition(), 40);
  EXPECT_EQ(Read(reader, 8), SmRead(0xC3, 48));
}

TEST(BitReader, ThirtyTwoBitsAndNoMore) {
  const uint8_t data[] = {0x80, 0x00, 0x00, 0x01, 0xFF, 0xFF, 0xFF, 0xFF, 0xAA};
  CmReadBuffer buffer(data, sizeof data);
  CmBitReader reader(buffer);
  EXPECT_EQ(reader.ReadBits(32), 0x80000001u);
  // 33 is refused before anything is consumed.
  for (const unsigned count : {33u, 1000u}) {
    ExpectBitStreamError([&] { reader.ReadBits(count); }, 2,
                         "Cannot read more than 32 bits at the time");
  }
  EXPECT_EQ(reader.GetBitPosition(), 32);
  EXPECT_EQ(Read(reader, 1), SmRead(1, 33));
  EXPECT_EQ(Read(reader, 32), SmRead(0xFFFFFFFF, 65));
}

TEST(BitReader, EmptyAndExhaustedSources) {
  const uint8_t none[1] = {0};
  CmReadBuffer empty(none, 0);
  CmBitReader emptyReader(empty);
  EXPECT_EQ(Read(emptyReader, 0), SmRead(0, 0));
  ExpectBitStreamError([&] { emptyReader.ReadBits(1); }, 1, "Unable to read from input stream");
  EXPECT_EQ(emptyReader.GetBitPosition(), 0);

  const uint8_t data[] = {0xF0, 0x0F};
  CmReadBuffer buffer(data, sizeof data);
  CmBitReader reader(buffer);
  EXPECT_EQ(reader.ReadBits(12), 0xF00u);
  // Four bits are left; asking for five reaches past the end.
  ExpectBitStreamError([&] { reader.ReadBits(5); }, 1, "Unable to read from input stream");
  // Once past the end, every later read fails too: no stale bits come back.
  ExpectBitStreamError([&] { reader.ReadBits(1); }, 1, "Unable to read from input stream");
  EXPECT_EQ(reader.GetBitPosition(), 16);

  // A source without data fails as soon as the reader asks for its first byte.
  CmReadBuffer unset(nullptr, 4);
  ExpectBitStreamError([&] { CmBitReader unsetReader(unset); }, 1, "No data has been set");
}

namespace {

// A source that hands out its bytes and then refuses non-blocking reads, as
// a network source might.
class CmModeCheckingStream : public NmCommon::ImInputStream {
public:
  size_t Read(void* buffer, size_t size, Mode mode) override {
    m_Modes.push_back(mode);
    if (size == 0 || m_Left == 0) {
      return 0;
    }
    *static_cast<uint8_t*>(buffer) = 0x5A;
    --m_Left;
    return 1;
  }
  std::vector<Mode> m_Modes;
  int m_Left = 2;
};

} // namespace

TEST(BitReader, ReadsItsSourceByteByByteBlocking) {
  CmModeCheckingStream stream;
  CmBitReader reader(stream);
  EXPECT_EQ(reader.ReadBits(16), 0x5A5Au);
  ASSERT_EQ(stream.m_Modes.size(), 2u);
  for (const auto mode : stream.m_Modes) {
    EXPECT_EQ(mode, ImStreamTypes::Blocking);
  }
  EXPECT_THROW(reader.ReadBits(1), CmBitStreamError);
}
