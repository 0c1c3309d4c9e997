// vzk run through the decoders over recordings with pictures that do not
// decode: playback goes on, and every picture lost is named.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <random>
#include <regex>

#include "VzkTestSupport.h"

using namespace NmVzkTest;

namespace {

constexpr int64_t kBase = 1700000000000;
const std::vector<uint8_t> kFrameHeader = {0xFF, 0xC0};

using CmFrame = std::vector<uint8_t>;

void WriteRecording(const std::string& path, const std::vector<CmFrame>& frames) {
  std::vector<uint8_t> bytes;
  for (const CmFrame& frame : frames) {
    bytes.insert(bytes.end(), frame.begin(), frame.end());
  }
  WriteBytes(path, bytes);
  // Bare JPEGs are timed from the moment the file was last written.
  const timespec times[2] = {{kBase / 1000, 0}, {kBase / 1000, 0}};
  ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
}

struct SmRunCounts {
  int items = -1;
  int pictures = -1;
  int errors = -1;
};

SmRunCounts CountsOf(const SmResult& result) {
  SmRunCounts counts;
  std::smatch match;
  if (std::regex_search(result.out, match,
                        std::regex(R"((\d+) items? in [^:]*: (\d+) pictures?)"))) {
    counts.items = std::stoi(match[1]);
    counts.pictures = std::stoi(match[2]);
  }
  if (std::regex_search(result.out, match, std::regex(R"(; (\d+) errors?\.)"))) {
    counts.errors = std::stoi(match[1]);
  }
  return counts;
}

// Which bytes of a JPEG belong to its markers and segment lengths.
std::vector<bool> MarkersAndLengths(const CmFrame& jpeg) {
  std::vector<bool> kept(jpeg.size(), false);
  size_t at = 0;
  while (at + 1 < jpeg.size()) {
    if (jpeg[at] != 0xFF) {
      ++at; // entropy-coded data
      continue;
    }
    const uint8_t marker = jpeg[at + 1];
    kept[at] = kept[at + 1] = true;
    const bool standalone =
        marker == 0x00 || marker == 0xD8 || marker == 0xD9 || (marker >= 0xD0 && marker <= 0xD7);
    if (standalone || at + 3 >= jpeg.size()) {
      at += 2;
      continue;
    }
    kept[at + 2] = kept[at + 3] = true;
    // The component counts of frame and scan headers must agree with their
    // lengths for the recording to take the bytes for a JPEG at all.
    const bool frameHeader =
        marker >= 0xC0 && marker <= 0xCF && marker != 0xC4 && marker != 0xC8 && marker != 0xCC;
    if (frameHeader && at + 9 < jpeg.size()) {
      kept[at + 9] = true;
    } else if (marker == 0xDA && at + 4 < jpeg.size()) {
      kept[at + 4] = true;
    }
    at += 2 + (jpeg[at + 2] << 8 | jpeg[at + 3]);
  }
  return kept;
}

class VzkDecodeRun : public ::testing::Test {
protected:
  SmResult Run(const std::string& element, const std::vector<CmFrame>& frames) {
    const std::string name = "damaged-" + std::to_string(++m_Runs);
    const std::string recording = m_Scratch.Path(name + ".gbd");
    WriteRecording(recording, frames);
    return RunVzk({"run", m_Scratch.Write(name + ".xml", RecordingTree(recording, element))});
  }

  CmScratch m_Scratch;
  int m_Runs = 0;
};

// Ten bits flipped in each picture, and the fifth claims 65500 x 65500: the
// decoder that plays from picture to picture delivers exactly what the one
// that decodes each picture alone delivers, and names the same losses.
TEST_F(VzkDecodeRun, DamagedPicturesCostThemselvesAlone) {
  std::vector<CmFrame> frames = MakeRawJPEGRecording(m_Scratch.Path("clip.mjpeg"), 100);
  ASSERT_EQ(frames.size(), 100u);
  const CmFrame& fifth = frames[4];
  const size_t header = static_cast<size_t>(
      std::search(fifth.begin(), fifth.end(), kFrameHeader.begin(), kFrameHeader.end()) -
      fifth.begin());
  ASSERT_LT(header + 8, fifth.size());
  frames[4][header + 5] = frames[4][header + 7] = 0xFF;
  frames[4][header + 6] = frames[4][header + 8] = 0xDC;
  std::mt19937 random(20261125);
  for (size_t f = 0; f < frames.size(); ++f) {
    // The damage is to the pictures, not to the records: markers, segment
    // lengths and component counts stay as they are, so that the recording
    // still finds each picture where it was, and no flip makes a new marker.
    CmFrame& frame = frames[f];
    const std::vector<bool> kept = MarkersAndLengths(frame);
    std::uniform_int_distribution<size_t> position(0, frame.size() - 1);
    std::uniform_int_distribution<int> bit(0, 7);
    for (int flips = 0; flips < 10 && f != 4;) {
      const size_t at = position(random);
      const uint8_t flipped = static_cast<uint8_t>(frame[at] ^ (1u << bit(random)));
      if (!kept[at] && flipped != 0xFF) {
        frame[at] = flipped;
        ++flips;
      }
    }
  }
  const SmResult played = Run("video_decoder", frames);
  const SmResult alone = Run("key_frames_only_video_decoder", frames);
  for (const SmResult* result : {&played, &alone}) {
    EXPECT_EQ(result->status, 1);
    EXPECT_EQ(CountsOf(*result).items, 100) << result->out;
    EXPECT_NE(result->err.find("vzk: Item 5 was not delivered (status 1)"), std::string::npos)
        << result->err;
  }
  const SmRunCounts counts = CountsOf(played);
  const SmRunCounts reference = CountsOf(alone);
  // Enough flips land in the headers to cost pictures, and not all of them.
  EXPECT_GT(reference.pictures, 10) << alone.out;
  EXPECT_LT(reference.pictures, 99) << alone.out;
  EXPECT_EQ(counts.pictures, reference.pictures) << played.out << alone.out;
  EXPECT_EQ(counts.errors, reference.errors);
  auto named = [](const std::string& text) {
    std::vector<std::string> lines;
    const std::regex pattern(R"(Item \d+ was not delivered)");
    for (auto it = std::sregex_iterator(text.begin(), text.end(), pattern);
         it != std::sregex_iterator(); ++it) {
      lines.push_back(it->str());
    }
    return lines;
  };
  EXPECT_EQ(named(played.err), named(alone.err));
}

} // namespace
