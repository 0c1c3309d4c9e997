// vzk import: a recording in, an equal recording out, and the failures.

#include <gtest/gtest.h>

#include <algorithm>

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
  const std::vector<std::vector<uint8_t>> frames = MakeRawJPEGRecording(scratch.Path("raw.gbd"), 2);
  for (const auto& frame : frames) {
    all.insert(all.end(), frame.begin(), frame.end());
  }
  WriteBytes(source, all);

  const SmResult copied = ExpectSuccess({"import", source, scratch.Path("copy.gbd")});
  EXPECT_EQ(ReadBytes(scratch.Path("copy.gbd")), all);
  EXPECT_EQ(copied.out.rfind("Imported 8 records (" + std::to_string(all.size()) + " bytes", 0), 0u)
      << copied.out;
  EXPECT_FALSE(Exists(scratch.Path("copy.gbd.part")));

  // Media time from the first record: frames at 0, 40 and 80 ms are within 0.1 s.
  for (const auto& [option, value] : {std::pair{"--count", "3"}, {"--duration", "0.1"}}) {
    const std::string out = scratch.Path(std::string(option) + ".gbd");
    ASSERT_EQ(RunVzk({"import", source, out, option, value}).status, 0) << option;
    const std::vector<uint8_t> head = ReadBytes(out);
    EXPECT_EQ(head.size(), 3u * 32 + 50 + 51 + 52) << option;
    EXPECT_TRUE(std::equal(head.begin(), head.end(), all.begin()));
  }
}

TEST(VzkImport, FailuresSayWhatIsWrongAndLeaveNoRecording) {
  CmScratch scratch;
  const std::string none = scratch.Path("none.mp4");
  const std::string clip = scratch.Write("clip.mkv", "not really a clip");
  const std::string same = scratch.Path("same.gbd");
  WriteBytes(same, NmTestSupport::BuildRawJPEG(20));
  const std::string junk = scratch.Write("junk.gbd", "no records in here");
  const std::string empty = scratch.Write("empty.gbd", "");
  const std::string out = scratch.Path("out.gbd");
  const std::pair<std::vector<std::string>, std::string> failures[] = {
      {{none, out}, "vzk: The media " + none + " cannot be read: No such file or directory.\n"},
      {{clip, out}, "vzk: "},
      {{same, same},
       "vzk: The output " + same + " is the recording being read; name another file.\n"},
      {{junk, out}, "holds no readable record!"},
      {{empty, out}, "vzk: " + empty + " delivered no records, so " + out + " was not written.\n"},
  };
  for (const auto& [files, told] : failures) {
    ExpectRun({"import", files[0], files[1]}, 1, told);
    EXPECT_FALSE(Exists(out) || Exists(out + ".part"));
  }
  // Names with XML's special characters reach the plug-in intact.
  EXPECT_NE(
      NmVzkTool::ImportConfiguration("a&b<'\".mp4").find("url=\"a&amp;b&lt;&apos;&quot;.mp4\""),
      std::string::npos);
}

} // namespace
