// Damaged recordings: what the index passes over, what still plays, and the
// files that are no recording at all.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <memory>
#include <random>
#include <set>
#include <string>

#include "RecordingIndex.h"
#include "Toolkits/VZKSourceToolkitPlugin/Items/ImageData.h"
#include "Toolkits/VZKSourceToolkitPlugin/Tree/ToolkitFactory.h"
#include "Toolkits/VZKSourceToolkitPlugin/Tree/VZKSourceToolkit.h"
#include "support/FlatJPEG.h"
#include "support/GenericByteDataBuilder.h"
#include "support/SourceSession.h"
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

// The records back to back, with the offset where each begins.
struct SmRecording {
  CmBytes bytes;
  std::vector<size_t> offsets;
  void Add(const CmBytes& record) {
    offsets.push_back(bytes.size());
    bytes.insert(bytes.end(), record.begin(), record.end());
  }
};

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

// The recording in a file, with the plug-in reading it.
class RecordingDamage : public CmSourceSession {
protected:
  void Load(const CmBytes& bytes) {
    file.Write(bytes);
    Open(RecordingXml(file.path));
  }
  std::vector<int64_t> Played() {
    playback->Connect(0);
    return PlayedTimes();
  }
  CmScratchFile file;
};

TEST_F(RecordingDamage, ADamagedRecordCostsItAloneAndRawJPEGsPickUpAtTheNext) {
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
    Load(bytes);

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
    const std::vector<int64_t> times = Played();
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
  // A bare JPEG whose first segment is damaged, and which holds a whole JPEG
  // thumbnail: the next picture plays, the thumbnail is no record.

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
  Load(recording.bytes);
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

class RecordingLive : public RecordingDamage {
protected:
  // Live from behind the first record on.
  void SetUp() override {
    Load(JPEGPacket(0));
    live->Connect(0);
    live->StartLiveStream();
  }
  // Times of the records from `first` to before `end`, but the skipped ones.
  static std::vector<int64_t> Times(int first, int end, const std::set<int>& skipped = {}) {
    std::vector<int64_t> times;
    for (int i = first; i < end; ++i) {
      if (skipped.count(i) == 0) {
        times.push_back(TimeOf(i));
      }
    }
    return times;
  }
};

TEST_F(RecordingLive, GoesOnPastADamagedRecordAndReadsOnlyWhatWasAppended) {
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
  }
  EXPECT_EQ(Drain(), Times(21, Count));
  live->StopLiveStream();
  live->StartLiveStream();
  // Live starts after what is there; playback has it all but the damage.
  EXPECT_TRUE(Drain().empty());
  EXPECT_EQ(PlayedTimes(), Times(0, Count, {20}));
}

TEST_F(RecordingLive, DeliversEveryRecordPastDamageInTheOrderWritten) {
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
  EXPECT_EQ(delivered, Times(1, Count, {30, 60}));
}

// A multi packet written one packet at a time is one record, not several.
TEST_F(RecordingLive, AMultiPacketWrittenPacketByPacketStaysWhole) {
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

// The neighbours of damage: whatever the file holds, every byte is a record
// or told as damage, and nothing crashes.
TEST_F(RecordingDamage, CutRandomAndBitFlippedFilesAccountForEveryByte) {
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
    Load(bytes);
    NmRecording::CmRecordingIndex index(file.path);
    ASSERT_TRUE(index.Update());
    ExpectEveryByteAccountedFor(index, bytes.size());
    EXPECT_EQ(index.GetDamagedRanges(true).empty(), name == "empty");
    if (!index.GetEntries().empty()) {
      EXPECT_EQ(Played().size(), index.GetEntries().size());
    }
  }
  // A cut last record is the tail; what comes before it is whole.
  file.Write(files[2].second);
  NmRecording::CmRecordingIndex cutIndex(file.path);
  ASSERT_TRUE(cutIndex.Update());
  EXPECT_EQ(cutIndex.GetEntries().size(), static_cast<size_t>(Count - 1));
  EXPECT_TRUE(cutIndex.GetDamagedRanges(false).empty()) << "it may still be being written";
  ASSERT_EQ(cutIndex.GetDamagedRanges(true).size(), 1u);
  EXPECT_EQ(cutIndex.GetDamagedRanges(true)[0].offset, clean.offsets[Count - 1]);
}

} // namespace
