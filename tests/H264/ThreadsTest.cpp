#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "Codecs/H264/FilterFollower.h"
#include "H264/ReferenceDecoding.h"

using namespace NmH264Test;

namespace {

// One slice of a script for the follower: where it begins, the macroblocks
// it finishes in turn, and whether it ends intact.
struct SmScriptSlice {
  uint32_t start;
  uint32_t first, end; // finished: first up to end
  bool intact = true;
};

// The rows released, each with the number of slices that had ended by then
// (or were ending).
std::vector<std::pair<uint32_t, size_t>> Follow(uint32_t width, uint32_t height, bool mbaff,
                                                const std::vector<SmScriptSlice>& script) {
  std::vector<std::pair<uint32_t, size_t>> released;
  std::vector<uint32_t> starts;
  for (const SmScriptSlice& slice : script) {
    starts.push_back(slice.start);
  }
  size_t ended = 0;
  MCL::CmFilterFollower follower(width, height, mbaff, starts,
                                 [&](uint32_t rows) { released.emplace_back(rows, ended); });
  for (size_t index = 0; index < script.size(); ++index) {
    follower.OnSliceStart(index);
    for (uint32_t mbAddr = script[index].first; mbAddr < script[index].end; ++mbAddr) {
      follower.OnMacroblockDone(mbAddr);
    }
    ++ended;
    follower.OnSliceEnd(script[index].intact);
  }
  return released;
}

} // namespace

// A row goes to the filter once the row below it is final: never past a
// macroblock that a broken slice may take back, nor past a hole that
// concealment fills later, nor past the start of a slice that decodes
// macroblocks again that the slice before it ran into.
TEST(H264FilterFollower, ReleasesARowOnceTheRowBelowIsFinal) {
  using Released = std::vector<std::pair<uint32_t, size_t>>;
  // 3 x 4 macroblocks in one slice: row r when row r + 1 is done, the last
  // when the slice ends.
  EXPECT_EQ(Follow(3, 4, false, {{0, 0, 12}}), (Released{{1, 0}, {2, 0}, {3, 1}}));
  // In two slices that meet inside a row.
  EXPECT_EQ(Follow(3, 4, false, {{0, 0, 5}, {5, 5, 12}}), (Released{{1, 1}, {2, 1}, {3, 2}}));
  // The first slice breaks off after its last macroblock, which it takes
  // back: nothing after it counts.
  EXPECT_EQ(Follow(3, 4, false, {{0, 0, 6, false}, {6, 6, 12}}), Released{});
  // Broken within its third row: the rows above the one that lost a
  // macroblock may go, the rest waits for concealment.
  EXPECT_EQ(Follow(3, 5, false, {{0, 0, 8, false}, {9, 9, 15}}), (Released{{1, 0}}));
  // A slice lost in between leaves a hole.
  EXPECT_EQ(Follow(3, 4, false, {{0, 0, 3}, {6, 6, 12}}), Released{});
  // A damaged slice runs on into the next one's macroblocks, which that
  // one decodes again: it counts only up to where the next begins.
  EXPECT_EQ(Follow(3, 4, false, {{0, 0, 8}, {5, 5, 12}}), (Released{{1, 1}, {2, 1}, {3, 2}}));
  // A frame of macroblock pairs goes in rows of pairs: 2 x 6 macroblocks
  // are 3 rows of 4 in decoding order.
  EXPECT_EQ(Follow(2, 6, true, {{0, 0, 12}}), (Released{{1, 0}, {2, 1}}));
}

// Pictures big enough for the loop filter's thread to run behind the
// decoding by many rows: each thread count gives ffmpeg's pictures in
// ffmpeg's order. Intra pictures show a filter that runs ahead of the intra
// prediction below it; several slices, one that begins inside a row, pairs
// of field and frame macroblocks and B pyramids under CABAC show the
// bookkeeping of rows.
TEST(H264Threads, EveryThreadCountGivesTheReferencePictures) {
  REQUIRE_FFMPEG();
  ExpectSameAsReference(
      {
          {"352x288", "yuv420p", "cabac=0:keyint=1:8x8dct=1:qp=20:slices=5", 3},
          {"352x288", "yuv420p", "cabac=1:bframes=3:b-pyramid=normal:ref=4:weightp=2:8x8dct=1", 10},
          {"320x240", "yuv420p", "cabac=1:bframes=2:slices=7:deblock=2,1:keyint=5", 8},
          {"352x288", "yuv420p", "cabac=0:interlaced=1:bframes=2:slices=3:keyint=4", 8},
      },
      true);
}

// Reset and flush between pictures, and a decoder closed with pictures
// still held: the same pictures as one thread, and a clean end.
TEST(H264Threads, ResetFlushAndCloseWithTwoThreads) {
  REQUIRE_FFMPEG();
  const SmEncoded encoded =
      EncodeWithX264({"176x144", "yuv420p", "cabac=1:bframes=2:keyint=5:aud=1", 12});
  const Frames buffers = Joined(AccessUnits(encoded.stream));
  ASSERT_EQ(buffers.size(), 12u);
  const auto run = [&](int32_t threads) {
    CmShell shell(0, threads);
    for (size_t b = 0; b < 7; ++b) {
      shell.Feed(buffers[b]);
    }
    shell.Flush();
    EXPECT_EQ(shell.decoder.Reset(), MCL::StatusOk);
    for (size_t b = 0; b < buffers.size(); ++b) {
      shell.Feed(buffers[b]);
    }
    shell.Flush();
    // Held pictures go with the decoder.
    CmShell closed(0, threads);
    for (size_t b = 0; b < 4; ++b) {
      closed.Feed(buffers[b]);
    }
    return shell.collector.pictures;
  };
  const Frames one = run(1);
  EXPECT_EQ(one.size(), 7u + 12u);
  ExpectSameFrames(Frames(one.end() - 12, one.end()), encoded.pictures);
  EXPECT_TRUE(run(2) == one);
}
