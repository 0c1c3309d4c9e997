// Damaged recordings: what the index passes over, what still plays, and the
// files that are no recording at all.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <memory>
#include <random>
#include <set>
#include <sstream>
#include <string>

#include "RecordingIndex.h"
#include "Toolkits/VZKSourceToolkitPlugin/Items/ImageData.h"
#include "Toolkits/VZKSourceToolkitPlugin/Tree/ToolkitFactory.h"
#include "Toolkits/VZKSourceToolkitPlugin/Tree/VZKSourceToolkit.h"
#include "support/FlatJPEG.h"
#include "support/GenericByteDataBuilder.h"
#include "vzk/ToolkitError.h"

using namespace NmToolkit;
using namespace NmTestSupport;

namespace {

constexpr int64_t Base = 1700000000000;
constexpr int Count = 100;
constexpr int Damaged = 50;

int64_t TimeOf(int i) {
  return Base + 40 * i;
}
uint8_t LevelOf(int i) {
  return static_cast<uint8_t>(20 + 2 * i);
}

// Every picture a JPEG frame of its own luminance, so that a decoded picture
// says which record it came from.
const std::vector<CmBytes>& Pictures() {
  static const std::vector<CmBytes> pictures = [] {
    std::vector<CmBytes> out;
    for (int i = 0; i < Count; ++i) {
      out.push_back(FlatJPEG(LevelOf(i)));
    }
    return out;
  }();
  return pictures;
}

CmBytes JPEGPacket(int i) {
  SmVideoPacketFields fields;
  fields.codec = 1;
  fields.sequenceNumber = static_cast<uint16_t>(i);
  fields.frameTime = fields.syncTime = static_cast<uint64_t>(TimeOf(i));
  fields.payload = Pictures()[static_cast<size_t>(i)];
  return BuildVideoPacket(fields);
}

class CmFile {
public:
  CmFile() {
    char pattern[] = "/tmp/vzk-damage-XXXXXX";
    const int descriptor = mkstemp(pattern);
    close(descriptor);
    path = pattern;
  }
  ~CmFile() { std::remove(path.c_str()); }
  void Write(const CmBytes& bytes, bool append = false) const {
    std::ofstream file(path, std::ios::binary | (append ? std::ios::app : std::ios::trunc));
    file.write(reinterpret_cast<const char*>(bytes.data()),
               static_cast<std::streamsize>(bytes.size()));
  }
  std::string path;
};

// The records back to back, with the offset where each begins.
struct SmRecording {
  CmBytes bytes;
  std::vector<size_t> offsets;
  void Add(const CmBytes& record) {
    offsets.push_back(bytes.size());
    bytes.insert(bytes.end(), record.begin(), record.end());
  }
};

std::string RecordingXml(const std::string& path) {
  return "<toolkit type='source'><provider>recording</provider><config><recording file='" + path +
         "'/></config></toolkit>";
}

// Begin times of everything the recording plug-in plays, in order.
std::vector<int64_t> PlayedTimes(const std::string& path) {
  CmToolkitFactory factory;
  ImToolkit* toolkit = factory.CreateInstance(RecordingXml(path).c_str());
  auto* playback = dynamic_cast<ImPlaybackSourceToolkit*>(toolkit);
  std::vector<int64_t> times;
  playback->Connect(0);
  for (uint32_t status = playback->MoveFirst(); status == StatusSuccess;
       status = playback->MoveNext()) {
    ImData* raw = nullptr;
    if (playback->GetData(&raw) == StatusSuccess) {
      times.push_back(std::unique_ptr<ImData>(raw)->GetBeginTime());
    }
  }
  factory.DeleteInstance(toolkit);
  return times;
}

// Luminance of every picture that a "video_decoder" over the recording gives.
std::vector<int> DecodedLevels(const std::string& path) {
  CmVZKSourceToolkit root(("<toolkit type='source'><provider>vzk</provider><config>"
                           "<video_decoder>" +
                           RecordingXml(path) + "</video_decoder></config></toolkit>")
                              .c_str());
  root.Connect(0);
  std::vector<int> levels;
  for (uint32_t status = root.MoveFirst(); status == StatusSuccess; status = root.MoveNext()) {
    ImData* raw = nullptr;
    const uint32_t got = root.GetData(&raw);
    const std::unique_ptr<ImData> item(raw);
    auto* image = dynamic_cast<CmImageData*>(raw);
    if (got == StatusSuccess && image != nullptr && image->GetImage().IsValid()) {
      levels.push_back(MiddleLuma(image->GetImage()));
    }
  }
  return levels;
}

// Records and damage together cover the file, in order, without overlap;
// and every record read back is one whole record.
void ExpectEveryByteAccountedFor(const NmRecording::CmRecordingIndex& index, uint64_t size) {
  std::vector<std::pair<uint64_t, uint64_t>> spans;
  for (const auto& entry : index.GetEntries()) {
    spans.emplace_back(entry.offset, entry.length);
    const std::vector<uint8_t> bytes = index.ReadRecord(entry);
    ASSERT_EQ(bytes.size(), entry.length);
    EXPECT_EQ(NmRecording::RecordLength(bytes.data(), bytes.size()), entry.length)
        << "at " << entry.offset;
  }
  for (const auto& range : index.GetDamagedRanges(true)) {
    EXPECT_GT(range.length, 0u);
    spans.emplace_back(range.offset, range.length);
  }
  std::sort(spans.begin(), spans.end());
  uint64_t at = 0;
  for (const auto& [offset, length] : spans) {
    EXPECT_EQ(offset, at) << "a gap or an overlap";
    at = offset + length;
  }
  EXPECT_EQ(at, size);
}

TEST(RecordingDamage, ADamagedRecordLengthCostsThatRecordAndNoOther) {
  SmRecording clean;
  for (int i = 0; i < Count; ++i) {
    clean.Add(JPEGPacket(i));
  }
  const size_t at = clean.offsets[Damaged];
  const uint32_t length = static_cast<uint32_t>(clean.offsets[Damaged + 1] - at);
  const std::vector<std::pair<std::string, std::function<void(CmBytes&)>>> damages = {
      {"claims 4 GiB", [&](CmBytes& b) { PutU32(b, at + 2, 0xFFFFFFF0u); }},
      {"claims three records more",
       [&](CmBytes& b) { PutU32(b, at + 2, length + 3 * length + 7); }},
      {"claims less", [&](CmBytes& b) { PutU32(b, at + 2, length - 100); }},
      {"claims less than its header", [&](CmBytes& b) { PutU32(b, at + 2, 5); }},
      {"claims the end of the file",
       [&](CmBytes& b) { PutU32(b, at + 2, static_cast<uint32_t>(b.size() - at)); }},
      {"has a type no record has", [&](CmBytes& b) { PutU16(b, at, 13); }},
  };
  for (const auto& [name, damage] : damages) {
    SCOPED_TRACE(name);
    CmBytes bytes = clean.bytes;
    damage(bytes);
    CmFile file;
    file.Write(bytes);

    NmRecording::CmRecordingIndex index(file.path);
    ASSERT_TRUE(index.Update());
    ExpectEveryByteAccountedFor(index, bytes.size());
    const auto ranges = index.GetDamagedRanges(true);
    ASSERT_FALSE(ranges.empty()) << "the damage is told";
    for (const auto& range : ranges) {
      EXPECT_GE(range.offset, at);
      EXPECT_LE(range.offset + range.length, clean.offsets[Damaged + 1]);
    }

    // Every undamaged record plays, through the plug-in and decoded.
    const std::vector<int64_t> times = PlayedTimes(file.path);
    const std::set<int64_t> played(times.begin(), times.end());
    const std::vector<int> levels = DecodedLevels(file.path);
    for (int i = 0; i < Count; ++i) {
      if (i == Damaged) {
        continue;
      }
      EXPECT_EQ(played.count(TimeOf(i)), 1u) << i;
      EXPECT_NE(std::find_if(levels.begin(), levels.end(),
                             [i](int level) { return std::abs(level - LevelOf(i)) <= 3; }),
                levels.end())
          << i;
    }
    EXPECT_TRUE(std::is_sorted(times.begin(), times.end()));
  }
}

// A bare JPEG whose first segment is damaged, and which holds a whole JPEG
// thumbnail: the next picture plays, the thumbnail is no record.
TEST(RecordingDamage, RawJPEGsPickUpAtTheNextPictureAndNotInsideOne) {
  const CmBytes thumbnail = FlatJPEG(250);
  SmRecording recording;
  for (int i = 0; i < 10; ++i) {
    CmBytes picture = Pictures()[static_cast<size_t>(i)];
    if (i == 5) {
      // An APP1 segment right behind the start of image, holding the thumbnail.
      CmBytes app1 = {0xFF, 0xE1, 0, 0};
      PutU16(app1, 2, static_cast<uint16_t>(2 + thumbnail.size()));
      app1.insert(app1.end(), thumbnail.begin(), thumbnail.end());
      picture.insert(picture.begin() + 2, app1.begin(), app1.end());
      // Its frame header claims 200 components: no JPEG structure any more.
      for (size_t p = 2 + app1.size(); p + 9 < picture.size(); ++p) {
        if (picture[p] == 0xFF && picture[p + 1] == 0xC0) {
          picture[p + 9] = 200;
          break;
        }
      }
    }
    recording.Add(picture);
  }
  CmFile file;
  file.Write(recording.bytes);
  NmRecording::CmRecordingIndex index(file.path);
  ASSERT_TRUE(index.Update());
  ExpectEveryByteAccountedFor(index, recording.bytes.size());
  ASSERT_EQ(index.GetEntries().size(), 9u);
  const auto ranges = index.GetDamagedRanges(true);
  ASSERT_EQ(ranges.size(), 1u);
  EXPECT_EQ(ranges[0].offset, recording.offsets[5]);
  EXPECT_EQ(ranges[0].length, recording.offsets[6] - recording.offsets[5]);

  const std::vector<int> levels = DecodedLevels(file.path);
  ASSERT_EQ(levels.size(), 9u);
  for (size_t k = 0; k < levels.size(); ++k) {
    const int i = k < 5 ? static_cast<int>(k) : static_cast<int>(k) + 1;
    EXPECT_NEAR(levels[k], LevelOf(i), 3) << k;
  }
}

// Bytes the process has read so far, whatever it read them with.
uint64_t BytesRead() {
  std::ifstream io("/proc/self/io");
  std::string key;
  uint64_t value = 0;
  while (io >> key >> value) {
    if (key == "rchar:") {
      return value;
    }
  }
  return 0;
}

class RecordingLive : public ::testing::Test {
protected:
  void SetUp() override {
    toolkit = factory.CreateInstance(RecordingXml(file.path).c_str());
    live = dynamic_cast<ImLiveSourceToolkit*>(toolkit);
  }
  void TearDown() override { factory.DeleteInstance(toolkit); }
  // Begin times of what live delivers now, without waiting.
  std::vector<int64_t> Drain() {
    std::vector<int64_t> times;
    ImData* raw = nullptr;
    while (live->GetLiveData(&raw, 0) == StatusSuccess) {
      times.push_back(std::unique_ptr<ImData>(raw)->GetBeginTime());
    }
    return times;
  }
  static std::vector<int64_t> Times(int first, int end) {
    std::vector<int64_t> times;
    for (int i = first; i < end; ++i) {
      times.push_back(TimeOf(i));
    }
    return times;
  }

  CmFile file;
  CmToolkitFactory factory;
  ImToolkit* toolkit = nullptr;
  ImLiveSourceToolkit* live = nullptr;
};

TEST_F(RecordingLive, GoesOnPastADamagedRecordAndReadsOnlyWhatWasAppended) {
  file.Write(JPEGPacket(0));
  live->Connect(0);
  live->StartLiveStream();
  for (int i = 1; i < 20; ++i) {
    file.Write(JPEGPacket(i), true);
  }
  EXPECT_EQ(Drain(), Times(1, 20));

  // A record whose length claims 4 GiB: it might still be being written.
  CmBytes damaged = JPEGPacket(20);
  PutU32(damaged, 2, 0xFFFFFFF0u);
  file.Write(damaged, true);
  EXPECT_TRUE(Drain().empty());
  // More of what could be its payload: each look reads only what is new.
  file.Write(CmBytes(4 << 20, 0), true);
  EXPECT_TRUE(Drain().empty());
  const uint64_t before = BytesRead();
  for (int poll = 0; poll < 20; ++poll) {
    EXPECT_TRUE(Drain().empty());
  }
  EXPECT_LT(BytesRead() - before, 1u << 20) << "20 polls re-read the unfinished tail";

  // Records behind it prove it damaged, and delivery goes on.
  file.Write(JPEGPacket(21), true);
  EXPECT_TRUE(Drain().empty()) << "one record after it could still be its payload";
  for (int i = 22; i < Count; ++i) {
    file.Write(JPEGPacket(i), true);
    if (i % 10 == 0) {
      const std::vector<int64_t> times = Drain();
      EXPECT_FALSE(times.empty()) << i;
    }
  }
  live->StopLiveStream();
  live->StartLiveStream();
  // Live starts after what is there; playback has it all but the damage.
  EXPECT_TRUE(Drain().empty());
  auto* playback = dynamic_cast<ImPlaybackSourceToolkit*>(toolkit);
  std::vector<int64_t> all;
  for (uint32_t status = playback->MoveFirst(); status == StatusSuccess;
       status = playback->MoveNext()) {
    ImData* raw = nullptr;
    ASSERT_EQ(playback->GetData(&raw), StatusSuccess);
    all.push_back(std::unique_ptr<ImData>(raw)->GetBeginTime());
  }
  std::vector<int64_t> expected = Times(0, 20);
  const std::vector<int64_t> rest = Times(21, Count);
  expected.insert(expected.end(), rest.begin(), rest.end());
  EXPECT_EQ(all, expected);
}

TEST_F(RecordingLive, DeliversEveryRecordPastDamageInTheOrderWritten) {
  file.Write(JPEGPacket(0));
  live->Connect(0);
  live->StartLiveStream();
  std::vector<int64_t> delivered;
  for (int i = 1; i < Count; ++i) {
    CmBytes record = JPEGPacket(i);
    // Their pictures damaged too, so that nothing of them is a record.
    if (i == 30) {
      PutU16(record, 0, 0xFE01); // no record has this type
      record[32] = 0;
    }
    if (i == 60) {
      PutU32(record, 2, 0xFFFFFFF0u);
      record[32] = 0;
    }
    // Each record written in steps, its first byte alone: what is begun is
    // waited for.
    const long steps[] = {0, 1, static_cast<long>(record.size() / 2),
                          static_cast<long>(record.size())};
    for (size_t step = 1; step < 4; ++step) {
      file.Write(CmBytes(record.begin() + steps[step - 1], record.begin() + steps[step]), true);
      for (const int64_t time : Drain()) {
        delivered.push_back(time);
      }
    }
  }
  std::vector<int64_t> expected;
  for (int i = 1; i < Count; ++i) {
    if (i != 30 && i != 60) {
      expected.push_back(TimeOf(i));
    }
  }
  EXPECT_EQ(delivered, expected);
}

// A multi packet written one packet at a time is one record, not several.
TEST_F(RecordingLive, AMultiPacketWrittenPacketByPacketStaysWhole) {
  file.Write(JPEGPacket(0));
  live->Connect(0);
  live->StartLiveStream();
  SmMultiPacketFields multi;
  multi.packets = {JPEGPacket(1), JPEGPacket(2), JPEGPacket(3)};
  const CmBytes record = BuildMultiPacket(multi);
  const size_t second = 16 + multi.packets[0].size();
  const size_t third = second + multi.packets[1].size();
  file.Write(CmBytes(record.begin(), record.begin() + static_cast<long>(third)), true);
  EXPECT_TRUE(Drain().empty());
  file.Write(CmBytes(record.begin() + static_cast<long>(third), record.end()), true);
  ImData* raw = nullptr;
  ASSERT_EQ(live->GetLiveData(&raw, 0), StatusSuccess);
  const std::unique_ptr<ImData> item(raw);
  EXPECT_EQ(item->GetDataSize(), record.size());
  EXPECT_EQ(item->GetBeginTime(), TimeOf(1));
  EXPECT_EQ(item->GetEndTime(), TimeOf(3));
}

std::string ConnectError(const std::string& path) {
  CmToolkitFactory factory;
  ImToolkit* toolkit = factory.CreateInstance(RecordingXml(path).c_str());
  std::string error = "connected";
  try {
    dynamic_cast<ImPlaybackSourceToolkit*>(toolkit)->Connect(0);
  } catch (const ImToolkitError& failure) {
    error = failure.what();
  }
  factory.DeleteInstance(toolkit);
  return error;
}

TEST(RecordingDamage, WhatIsNoReadableFileFailsAtConnectInWords) {
  char pattern[] = "/tmp/vzk-damage-dir-XXXXXX";
  ASSERT_NE(mkdtemp(pattern), nullptr);
  const std::string directory = pattern;
  EXPECT_EQ(ConnectError(directory), "Could not open recording '" + directory + "'!");
  NmRecording::CmRecordingIndex index(directory);
  EXPECT_FALSE(index.Update());
  // A FIFO would block a reader that opened it for a writer to come.
  const std::string fifo = directory + "/fifo.gbd";
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  EXPECT_EQ(ConnectError(fifo), "Could not open recording '" + fifo + "'!");
  std::remove(fifo.c_str());
  rmdir(directory.c_str());
}

TEST(RecordingDamage, AFileWithoutReadPermissionFailsAtConnect) {
  if (geteuid() == 0) {
    GTEST_SKIP() << "root reads files whatever their permissions";
  }
  CmFile file;
  file.Write(JPEGPacket(0));
  ASSERT_EQ(chmod(file.path.c_str(), 0), 0);
  EXPECT_EQ(ConnectError(file.path), "Could not open recording '" + file.path + "'!");
}

// The neighbours of damage: whatever the file holds, every byte is a record
// or told as damage, and nothing crashes.
TEST(RecordingDamage, CutRandomAndBitFlippedFilesAccountForEveryByte) {
  SmRecording clean;
  for (int i = 0; i < Count; ++i) {
    clean.Add(JPEGPacket(i));
  }
  std::mt19937 random(13);
  std::vector<std::pair<std::string, CmBytes>> files;
  files.emplace_back("empty", CmBytes{});
  files.emplace_back("one byte", CmBytes{0xFF});
  files.emplace_back("cut in its last record",
                     CmBytes(clean.bytes.begin(), clean.bytes.end() - 100));
  CmBytes huge = clean.bytes;
  PutU32(huge, clean.offsets[Count - 1] + 2, 0xFFFFFFFFu);
  files.emplace_back("last record claims 4 GiB", huge);
  CmBytes noise(1 << 20);
  for (uint8_t& byte : noise) {
    byte = static_cast<uint8_t>(random());
  }
  files.emplace_back("random bytes", noise);
  CmBytes flipped = clean.bytes;
  for (int flip = 0; flip < 3000; ++flip) {
    flipped[random() % flipped.size()] ^= static_cast<uint8_t>(1u << (random() % 8));
  }
  files.emplace_back("3000 bit flips", flipped);

  for (const auto& [name, bytes] : files) {
    SCOPED_TRACE(name);
    CmFile file;
    file.Write(bytes);
    NmRecording::CmRecordingIndex index(file.path);
    ASSERT_TRUE(index.Update());
    ExpectEveryByteAccountedFor(index, bytes.size());
    EXPECT_EQ(index.GetDamagedRanges(true).empty(), name == "empty");
    if (!index.GetEntries().empty()) {
      EXPECT_EQ(PlayedTimes(file.path).size(), index.GetEntries().size());
    }
  }
  // A cut last record is the tail; what comes before it is whole.
  CmFile cutFile;
  cutFile.Write(files[2].second);
  NmRecording::CmRecordingIndex cutIndex(cutFile.path);
  ASSERT_TRUE(cutIndex.Update());
  EXPECT_EQ(cutIndex.GetEntries().size(), static_cast<size_t>(Count - 1));
  EXPECT_TRUE(cutIndex.GetDamagedRanges(false).empty()) << "it may still be being written";
  ASSERT_EQ(cutIndex.GetDamagedRanges(true).size(), 1u);
  EXPECT_EQ(cutIndex.GetDamagedRanges(true)[0].offset, clean.offsets[Count - 1]);
}

} // namespace
