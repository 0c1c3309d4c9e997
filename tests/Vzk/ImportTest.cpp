// vzk import: a recording in, an equal recording out, and the failures.

#include <gtest/gtest.h>

#include "Commands.h"
#include "VzkTestSupport.h"
#include "support/GenericByteDataBuilder.h"

using namespace NmVzkTest;

namespace {

TEST(VzkImport, ARecordingImportsAsAnEqualRecording) {
  CmScratch scratch;
  const std::string source = scratch.Path("source.gbd");
  NmTestSupport::CmBytes all;
  for (uint16_t i = 0; i < 6; ++i) {
    NmTestSupport::SmVideoPacketFields fields;
    fields.sequenceNumber = i;
    fields.frameTime = fields.syncTime = 1700000000000 + 40 * i;
    fields.payload = NmTestSupport::Pattern(50 + i, static_cast<uint8_t>(i));
    const auto record = NmTestSupport::BuildVideoPacket(fields);
    all.insert(all.end(), record.begin(), record.end());
  }
  const std::vector<std::vector<uint8_t>> frames =
      MakeRawJPEGRecording(scratch.Path("raw.gbd"), 2);
  for (const auto& frame : frames) {
    all.insert(all.end(), frame.begin(), frame.end());
  }
  WriteBytes(source, all);

  const SmResult copied = RunVzk({"import", source, scratch.Path("copy.gbd")});
  ASSERT_EQ(copied.status, 0) << copied.err;
  EXPECT_EQ(ReadBytes(scratch.Path("copy.gbd")), all);
  EXPECT_EQ(copied.out.rfind("Imported 8 records (" + std::to_string(all.size()) + " bytes", 0),
            0u)
      << copied.out;
  EXPECT_FALSE(Exists(scratch.Path("copy.gbd.part")));

  const SmResult three = RunVzk({"import", source, scratch.Path("three.gbd"), "--count", "3"});
  ASSERT_EQ(three.status, 0) << three.err;
  const auto head = ReadBytes(scratch.Path("three.gbd"));
  EXPECT_EQ(head.size(), 3u * 32 + 50 + 51 + 52);
  EXPECT_TRUE(std::equal(head.begin(), head.end(), all.begin()));
  // Media time from the first record: frames at 0, 40 and 80 ms are within 0.1 s.
  const SmResult timed = RunVzk({"import", source, scratch.Path("timed.gbd"), "--duration", "0.1"});
  ASSERT_EQ(timed.status, 0) << timed.err;
  EXPECT_EQ(ReadBytes(scratch.Path("timed.gbd")).size(), 3u * 32 + 50 + 51 + 52);
}

TEST(VzkImport, FailuresSayWhatIsWrongAndLeaveNoRecording) {
  CmScratch scratch;
  const SmResult missing = RunVzk({"import", scratch.Path("none.mp4"), scratch.Path("out.gbd")});
  EXPECT_EQ(missing.status, 1);
  EXPECT_EQ(missing.err, "vzk: The media " + scratch.Path("none.mp4") +
                             " cannot be read: No such file or directory.\n");

  const std::string clip = scratch.Path("clip.mkv");
  WriteText(clip, "not really a clip");
  const SmResult media = RunVzk({"import", clip, scratch.Path("clip.gbd")});
  EXPECT_EQ(media.status, 1);
  if (!Exists(BinaryDirectory() + "/ToolkitSourcePlugin_media.so")) {
    EXPECT_NE(media.err.find("needs the media plug-in"), std::string::npos) << media.err;
  }
  EXPECT_FALSE(Exists(scratch.Path("clip.gbd")));

  const std::string source = scratch.Path("same.gbd");
  WriteBytes(source, NmTestSupport::BuildRawJPEG(20));
  const SmResult same = RunVzk({"import", source, source});
  EXPECT_EQ(same.status, 1);
  EXPECT_EQ(same.err, "vzk: The output " + source +
                          " is the recording being read; name another file.\n");

  WriteText(scratch.Path("junk.gbd"), "no records in here");
  const SmResult junk = RunVzk({"import", scratch.Path("junk.gbd"), scratch.Path("out.gbd")});
  EXPECT_EQ(junk.status, 1);
  EXPECT_NE(junk.err.find("holds no readable record!"), std::string::npos) << junk.err;
  EXPECT_FALSE(Exists(scratch.Path("out.gbd")));
  EXPECT_FALSE(Exists(scratch.Path("out.gbd.part")));

  WriteText(scratch.Path("empty.gbd"), "");
  const SmResult empty = RunVzk({"import", scratch.Path("empty.gbd"), scratch.Path("out.gbd")});
  EXPECT_EQ(empty.status, 1);
  EXPECT_EQ(empty.err, "vzk: " + scratch.Path("empty.gbd") +
                           " delivered no records, so " + scratch.Path("out.gbd") +
                           " was not written.\n");
  EXPECT_FALSE(Exists(scratch.Path("out.gbd.part")));

  // Names with XML's special characters reach the plug-in intact.
  EXPECT_NE(NmVzkTool::ImportConfiguration("a&b<'\".mp4").find("url=\"a&amp;b&lt;&apos;&quot;.mp4\""),
            std::string::npos);
  EXPECT_NE(NmVzkTool::ImportConfiguration("x.gbd").find("<provider>recording</provider>"),
            std::string::npos);
}

} // namespace
