#include <gtest/gtest.h>

#include <map>

#include "MediaProcessing/GenericByteData/GenericVideoStreamDataPacket.h"
#include "MediaProcessing/GenericByteData/ImageFormBits.h"
#include "support/GenericByteDataBuilder.h"

using namespace NmMediaProcessing;
using namespace NmTestSupport;

TEST(GenericByteDataPictureFormat, CodesFoldOntoTheirNormalFormAndReadBackCanonical) {
  // Pairs of codes that differ only by a half turn share their bits; which
  // bits each code sets is pinned by the golden bytes.
  const std::map<uint32_t, uint32_t> canonical = {
      {0, 0}, {14, 0}, {1, 1},  {11, 1},  {2, 2}, {8, 2},  {3, 3},  {5, 3},
      {4, 4}, {15, 4}, {6, 13}, {13, 13}, {7, 7}, {12, 7}, {9, 10}, {10, 10}};
  CmBytes bytes = BuildVideoPacket({.sync = true});
  CmGenericVideoStreamDataPacket packet(bytes.data(), bytes.size());
  for (const auto& [code, expected] : canonical) {
    ASSERT_TRUE(packet.SetPictureFormat(code));
    uint32_t read = 99;
    ASSERT_TRUE(packet.GetPictureFormat(read));
    EXPECT_EQ(read, expected) << code;
    // The sync bit shares the flag word and must survive.
    EXPECT_TRUE(packet.GetSync());
  }
  EXPECT_FALSE(packet.SetPictureFormat(16));
}

TEST(GenericByteDataInterlacing, AttributeNumbersMapOntoBitsAndBack) {
  struct {
    uint32_t interlacing;
    bool interlaced, top;
    uint32_t layout;
  } const table[] = {{0, false, false, 0}, {1, true, true, 0},  {2, true, false, 0},
                     {3, true, true, 1},   {4, true, false, 1}, {5, true, true, 3},
                     {6, true, false, 3}};
  for (const auto& row : table) {
    bool interlaced = false;
    bool top = false;
    uint32_t layout = 9;
    ASSERT_TRUE(NmImageFormBits::InterlacingToBits(row.interlacing, interlaced, top, layout));
    EXPECT_EQ(std::tuple(interlaced, top, layout), std::tuple(row.interlaced, row.top, row.layout))
        << row.interlacing;
    EXPECT_EQ(NmImageFormBits::BitsToInterlacing(interlaced, top, layout), row.interlacing);
  }
  bool interlaced = false;
  bool top = false;
  uint32_t layout = 0;
  EXPECT_FALSE(NmImageFormBits::InterlacingToBits(7, interlaced, top, layout));
  // Layout 2, which nothing writes, reads as interleaved.
  EXPECT_EQ(NmImageFormBits::BitsToInterlacing(true, true, 2), 1u);
  EXPECT_EQ(NmImageFormBits::BitsToInterlacing(true, false, 2), 2u);
  // Progressive writes no interlace bits at all, whatever else is asked.
  EXPECT_EQ(NmImageFormBits::EncodeInterlacing(0xFFFFFFFFu, false, true, 3), 0xFFFFFF0Fu);

  CmBytes bytes = BuildVideoPacket({.sync = true, .imageForm = {.flippedHorizontally = true}});
  CmGenericVideoStreamDataPacket packet(bytes.data(), bytes.size());
  ASSERT_TRUE(packet.SetInterlacing(true, true, 3));
  EXPECT_EQ(bytes[10] << 8 | bytes[11], 0x02F1);
  ASSERT_TRUE(packet.SetInterlacing(false, true, 1));
  EXPECT_EQ(bytes[10] << 8 | bytes[11], 0x0201);
}
