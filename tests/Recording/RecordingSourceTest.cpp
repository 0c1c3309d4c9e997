#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <memory>
#include <string>

#include "RecordingIndex.h"
#include "Toolkits/VZKSourceToolkitPlugin/Tree/ToolkitFactory.h"
#include "support/GenericByteDataBuilder.h"
#include "support/SourceSession.h"
#include "vzk/ToolkitError.h"

using namespace NmToolkit;
using namespace NmTestSupport;

namespace {

// A bare JPEG with real marker segments: a comment, a frame header, a scan
// whose data holds a stuffed 0xFF and a restart marker, and the end of image.
CmBytes SmallJPEG(uint8_t fill) {
  return {0xFF, 0xD8, 0xFF, 0xFE, 0x00, 0x05, 'a',  'b',  'c',  0xFF, 0xC0, 0x00, 0x0B, 8,
          0,    16,   0,    16,   1,    1,    0x11, 0,    0xFF, 0xDA, 0x00, 0x08, 1,    1,
          0,    0,    63,   0,    fill, 0xFF, 0x00, fill, 0xFF, 0xD0, fill, 0xFF, 0xD9};
}

// Frames of a group share the sync time of the frame that opens it.
CmBytes VideoPacket(uint64_t time, uint16_t sequenceNumber, bool sync, uint64_t syncTime = 0,
                    size_t payload = 16) {
  SmVideoPacketFields fields;
  fields.frameTime = time;
  fields.syncTime = sync ? time : syncTime;
  fields.sync = sync;
  fields.sequenceNumber = sequenceNumber;
  fields.payload = Pattern(payload, static_cast<uint8_t>(sequenceNumber));
  return BuildVideoPacket(fields);
}

using RecordingSourceTest = CmSourceSession;

TEST_F(RecordingSourceTest, NavigatesPacketsInEveryModeAndBySequence) {
  CmScratchFile file;
  file.Append(VideoPacket(1000, 1, true));
  file.Append(VideoPacket(1040, 2, false, 1000));
  file.Append(VideoPacket(1080, 3, false, 1000));
  file.Append(VideoPacket(2000, 7, true)); // numbers skipped: a new sequence
  file.Append(VideoPacket(2040, 8, false, 2000));
  const CmBytes cut = VideoPacket(3000, 9, true);
  file.Append(CmBytes(cut.begin(), cut.begin() + 20)); // cut in the middle
  Open(RecordingXml(file.path, "privacy_mask='2x1;10'"));

  CmPropertyNameSet supported;
  playback->Connect({"Sequence_Number", "Privacy_Mask", "Has_Motion"}, supported, 0);
  EXPECT_EQ(supported, (CmPropertyNameSet{"Privacy_Mask", "Sequence_Number"}));

  EXPECT_EQ(Current(), -1) << "no item before the first move";
  ASSERT_EQ(playback->MoveFirst(), StatusSuccess);
  ImData* raw = nullptr;
  ASSERT_EQ(playback->GetData(&raw), StatusSuccess);
  std::unique_ptr<ImData> first(raw);
  EXPECT_EQ(first->GetDataSize(), VideoPacket(1000, 1, true).size());
  EXPECT_EQ(dynamic_cast<ImMediaData*>(raw)->GetPayloadSize(), 16u);
  EXPECT_EQ(dynamic_cast<const ImStringProperty*>(raw->GetProperty("Sequence_Number"))->GetValue(),
            "1");
  EXPECT_EQ(dynamic_cast<const ImStringProperty*>(raw->GetProperty("Privacy_Mask"))->GetValue(),
            "2x1;10");
  EXPECT_EQ(playback->MovePrevious(), StatusNoItem);
  EXPECT_EQ(Current(), 1000) << "a failed move stays put";

  ASSERT_EQ(playback->MoveLast(), StatusSuccess);
  EXPECT_EQ(Current(), 2040) << "the cut record is not part of the recording";
  EXPECT_EQ(playback->MoveNext(), StatusNoItem);

  // Each mode at the edges that the index itself decides; the choice among
  // items is the time match's own.
  EXPECT_EQ(At(1060, MoveClosest), 1080) << "a tie goes to the later item, as in a cache above";
  EXPECT_EQ(At(1000, MoveBefore), -1);
  EXPECT_EQ(At(999, MoveAtOrBefore), -1);
  EXPECT_EQ(At(2040, MoveAfter), -1);
  EXPECT_EQ(At(1041, MoveAtOrAfter), 1080);

  ASSERT_EQ(playback->MoveTo(1040, MoveAtOrAfter), StatusSuccess);
  ASSERT_EQ(playback->MoveNextSequence(), StatusSuccess);
  EXPECT_EQ(Current(), 2000);
  EXPECT_EQ(playback->MoveNextSequence(), StatusNoItem);
  playback->MoveLast();
  ASSERT_EQ(playback->MovePreviousSequence(), StatusSuccess);
  EXPECT_EQ(Current(), 1000);
  EXPECT_EQ(playback->MovePreviousSequence(), StatusNoItem);
}

TEST_F(RecordingSourceTest, ReadsEveryRecordKind) {
  CmScratchFile file;
  file.Append(SmallJPEG(0x11));
  file.Append(SmallJPEG(0x22));
  file.Append(
      BuildBlock({.extension = Pattern(4), .beginTime = 5000, .endTime = 5999, .imageCount = 25}));
  SmMultiPacketFields multi;
  multi.packets = {VideoPacket(7000, 1, true), VideoPacket(7040, 2, false, 7000)};
  file.Append(BuildMultiPacket(multi));
  file.Append(BuildAudioPacket({.time = 8000}));
  Open(RecordingXml(file.path));
  playback->Connect(0);

  std::string seen;
  for (uint32_t status = playback->MoveFirst(); status == StatusSuccess;
       status = playback->MoveNext()) {
    ImData* raw = nullptr;
    ASSERT_EQ(playback->GetData(&raw), StatusSuccess);
    std::unique_ptr<ImData> item(raw);
    seen += std::to_string(item->GetBeginTime()) + "-" + std::to_string(item->GetEndTime()) + "/" +
            std::to_string(dynamic_cast<ImMediaData*>(raw)->GetPayloadSize()) + " ";
  }
  // Bare JPEGs begin at the time the file was last written.
  struct stat status {};
  ASSERT_EQ(stat(file.path.c_str(), &status), 0);
  const int64_t base =
      static_cast<int64_t>(status.st_mtim.tv_sec) * 1000 + status.st_mtim.tv_nsec / 1000000;
  const auto span = [](int64_t begin) {
    return std::to_string(begin) + "-" + std::to_string(begin + 39) + "/" +
           std::to_string(SmallJPEG(0).size()) + " ";
  };
  EXPECT_EQ(seen, span(base) + span(base + 40) + "5000-5999/16 7000-7040/" +
                      std::to_string(BuildMultiPacket(multi).size() - 16) + " 8000-8000/16 ");
}

TEST_F(RecordingSourceTest, EmptyBrokenAndMissingFiles) {
  CmScratchFile empty;
  Open(RecordingXml(empty.path));
  EXPECT_EQ(ConnectError(), "connected");
  EXPECT_EQ(playback->MoveFirst(), StatusNoItem);
  EXPECT_EQ(playback->MoveTo(0, MoveClosest), StatusNoItem);
  EXPECT_EQ(playback->MoveNextSequence(), StatusNoItem);
  ImData* raw = nullptr;
  EXPECT_EQ(playback->GetData(&raw), StatusNoItem);

  CmScratchFile garbage;
  garbage.Append({0x00, 0x0E, 1, 2, 3, 4, 5, 6, 7});
  Open(RecordingXml(garbage.path));
  EXPECT_EQ(ConnectError(), "The file '" + garbage.path + "' holds no readable record!");

  // A missing file, a directory, a FIFO (which would block a reader that
  // opened it for a writer to come) and a file without read permission.
  char pattern[] = "/tmp/vzk-recording-dir-XXXXXX";
  ASSERT_NE(mkdtemp(pattern), nullptr);
  const std::string directory = pattern;
  const std::string fifo = directory + "/fifo.gbd";
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  CmScratchFile locked;
  locked.Write(VideoPacket(1000, 1, true));
  ASSERT_EQ(chmod(locked.path.c_str(), 0), 0);
  for (const std::string& path :
       {std::string("/nonexistent/x.gbd"), directory, fifo, locked.path}) {
    if (path == locked.path && geteuid() == 0) {
      continue; // root reads files whatever their permissions
    }
    Open(RecordingXml(path));
    EXPECT_EQ(ConnectError(), "Could not open recording '" + path + "'!");
  }
  EXPECT_FALSE(NmRecording::CmRecordingIndex(directory).Update());
  std::remove(fifo.c_str());
  rmdir(directory.c_str());

  Open("<toolkit type='source'><provider>recording</provider><config/></toolkit>");
  EXPECT_EQ(ConnectError(),
            "The recording plug-in needs <config><recording file=\"...\"/></config>!");
  try {
    playback->MoveFirst();
    ADD_FAILURE() << "navigation needs a connection";
  } catch (const ImNotConnectedError& error) {
    EXPECT_STREQ(error.what(), "Not connected to toolkit!");
  }
}

} // namespace
