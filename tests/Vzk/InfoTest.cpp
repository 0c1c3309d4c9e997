// vzk info: what a recording holds, its sequences, and damaged input.

#include <gtest/gtest.h>

#include "RecordingInfo.h"
#include "VzkTestSupport.h"
#include "support/GenericByteDataBuilder.h"

using namespace NmVzkTest;
using namespace NmTestSupport;

namespace {

constexpr uint64_t Base = 1700000000000; // 2023-11-14 22:13:20 UTC

CmBytes Frame(uint16_t number, uint64_t time, bool sync, uint64_t syncTime) {
  SmVideoPacketFields fields;
  fields.codec = 10;
  fields.sequenceNumber = number;
  fields.sync = sync;
  fields.frameTime = time;
  fields.syncTime = syncTime;
  fields.payload = Pattern(100 + number);
  return BuildVideoPacket(fields);
}

TEST(VzkInfo, SummaryPerRecordAndSequences) {
  CmScratch scratch;
  const std::string path = scratch.Path("cam.gbd");
  // Sequence 1: five frames 40 ms apart. A skipped frame number opens
  // sequence 2; a step back in time opens sequence 3.
  for (uint16_t i = 0; i < 5; ++i) {
    WriteBytes(path, Frame(i, Base + 40 * i, i == 0, Base), true);
  }
  for (uint16_t i = 6; i < 9; ++i) {
    WriteBytes(path, Frame(i, Base + 40 * i, i == 6, Base + 240), true);
  }
  WriteBytes(path, Frame(9, Base + 100, true, Base + 100), true);
  SmBlockFields block;
  block.type = 1;
  block.width = 64;
  block.height = 48;
  block.beginTime = block.endTime = Base + 140;
  // The smallest whole JPEG structure: a frame header, a scan, its end.
  block.payload = {0xFF, 0xD8, 0xFF, 0xC0, 0, 11, 8, 0, 48, 0, 64,   1,    1,    0x11, 0,
                   0xFF, 0xDA, 0,    8,    1, 1,  0, 0, 63, 0, 0x12, 0x34, 0xFF, 0xD9};
  WriteBytes(path, BuildBlock(block), true);
  WriteBytes(path, CmBytes{1, 2, 3, 4, 5, 6, 7}, true);

  const SmResult result = ExpectSuccess({"info", path});
  const std::string& text = result.out;
  const auto has = [&text](const std::string& part) {
    EXPECT_NE(text.find(part), std::string::npos) << "missing: " << part << "\n" << text;
  };
  has(path + ": 10 records, ");
  has("  kinds:      1 block, 9 video packets\n");
  has("  codecs:     9 H.264, 1 JPEG\n");
  has("  pictures:   1 64x48\n");
  has("  time:       2023-11-14 22:13:20.000 UTC .. 2023-11-14 22:13:20.320 UTC (0.320 s)\n");
  has("  sync:       4 of 10 video records decode alone\n");
  has("  sequences:  3\n");
  has("    1: records 1-5 (5), 2023-11-14 22:13:20.000 UTC .. 2023-11-14 22:13:20.160 UTC, "
      "starts with start of the recording\n");
  has("    2: records 6-8 (3), 2023-11-14 22:13:20.240 UTC .. 2023-11-14 22:13:20.320 UTC, "
      "starts with gap\n");
  has("    3: records 9-10 (2), ");
  has("starts with time warp\n");
  has("  damaged:    the last 7 bytes form no whole record (a damaged or half-written record)\n");
  EXPECT_EQ(text.find("untimed"), std::string::npos);

  const SmResult records = ExpectSuccess({"info", "--records", path});
  EXPECT_NE(records.out.find("  record      offset     bytes  kind"), std::string::npos);
  const std::string first =
      "       1           0       " + std::to_string(32 + 100) +
      "  video packet  H.264         2023-11-14 22:13:20.000 UTC yes   0       -          "
      "continuous\n";
  EXPECT_NE(records.out.find(first), std::string::npos) << records.out;
  EXPECT_NE(records.out.find("block         JPEG"), std::string::npos);
  EXPECT_NE(records.out.find("H.264         2023-11-14 22:13:20.100 UTC yes   9       -          "
                             "time warp\n"),
            std::string::npos)
      << records.out;
}

TEST(VzkInfo, UnreadableAndEmptyRecordings) {
  CmScratch scratch;
  ExpectRun({"info", scratch.Path("none.gbd")}, 1,
            "vzk: The recording " + scratch.Path("none.gbd") +
                " cannot be read: No such file or directory.\n");
  ExpectRun({"info", scratch.GetPath()}, 1,
            "vzk: The recording " + scratch.GetPath() + " is a directory, not a file.\n");
  WriteText(scratch.Path("empty.gbd"), "");
  const SmResult empty = ExpectSuccess({"info", scratch.Path("empty.gbd")});
  EXPECT_EQ(empty.out, scratch.Path("empty.gbd") + ": 0 records, 0 bytes\n");
  WriteText(scratch.Path("junk.gbd"), "not a recording");
  const SmResult junk = ExpectSuccess({"info", scratch.Path("junk.gbd")});
  EXPECT_NE(junk.out.find("0 records, 15 bytes\n  damaged:    the last 15 bytes form no whole "
                          "record"),
            std::string::npos)
      << junk.out;

  const std::string raw = scratch.Path("raw.gbd");
  MakeRawJPEGRecording(raw, 2, 32, 16);
  const SmResult jpeg = RunVzk({"info", raw});
  EXPECT_NE(jpeg.out.find("  pictures:   2 32x16\n"), std::string::npos) << jpeg.out;
  EXPECT_NE(jpeg.out.find("  untimed:    raw JPEG records carry no time"), std::string::npos);
  EXPECT_NE(jpeg.out.find("  analysis:   2 stand-alone\n"), std::string::npos);
}

TEST(VzkInfo, RecordFactsNeverTrustTheBytes) {
  // Every record kind, then every prefix of each (the fuzzer tries the rest).
  SmAudioPacketFields audio;
  audio.codec = 3;
  audio.sampleCount = 80;
  SmMultiPacketFields multi;
  multi.packets = {Frame(1, Base, true, Base), BuildAudioPacket(audio)};
  SmBlockFields block;
  block.payload = Pattern(64);
  const std::vector<CmBytes> records = {Frame(1, Base, true, Base), BuildAudioPacket(audio),
                                        BuildMultiPacket(multi), BuildBlock(block),
                                        BuildRawJPEG(32)};
  const auto facts = NmVzkTool::ReadRecordFacts(records[1].data(), records[1].size());
  EXPECT_TRUE(facts.isAudio);
  EXPECT_EQ(facts.codecName, "G.711");
  EXPECT_EQ(facts.sampleCount, 80u);
  const auto multiFacts = NmVzkTool::ReadRecordFacts(records[2].data(), records[2].size());
  EXPECT_EQ(multiFacts.packetCount, 2u);
  EXPECT_EQ(multiFacts.codecName, "H.264");
  EXPECT_EQ(multiFacts.beginTime, static_cast<int64_t>(Base));

  for (const CmBytes& record : records) {
    EXPECT_TRUE(NmVzkTool::ReadRecordFacts(record.data(), record.size()).isRecord);
    for (size_t length = 0; length < record.size(); ++length) {
      const CmBytes prefix(record.begin(), record.begin() + length);
      const auto cut = NmVzkTool::ReadRecordFacts(prefix.data(), prefix.size());
      // Only a raw JPEG may be cut and still be one: it has no length field.
      EXPECT_TRUE(!cut.isRecord || record[0] == 0xFF) << length;
    }
  }
  uint32_t width = 0, height = 0;
  const CmBytes truncatedFrameHeader = {0xFF, 0xD8, 0xFF, 0xC0, 0x00, 0x11, 0x08, 0x00};
  EXPECT_FALSE(NmVzkTool::ReadJPEGSize(truncatedFrameHeader.data(), truncatedFrameHeader.size(),
                                       width, height));
  const CmBytes frameHeader = {0xFF, 0xD8, 0xFF, 0xE0, 0x00, 0x02, 0xFF, 0xC2,
                               0x00, 0x11, 0x08, 0x01, 0x02, 0x03, 0x04, 0x03};
  ASSERT_TRUE(NmVzkTool::ReadJPEGSize(frameHeader.data(), frameHeader.size(), width, height));
  EXPECT_EQ(std::make_pair(width, height), std::make_pair(0x0304u, 0x0102u));
  EXPECT_EQ(NmVzkTool::FormatUtc(-1), "1969-12-31 23:59:59.999 UTC");
}

} // namespace
