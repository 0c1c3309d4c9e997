#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "H264/ReferenceDecoding.h"

using namespace NmH264Test;

// Parameter sets may be repeated anywhere, even between the slices of one
// picture: an unchanged copy ends no picture. And a stream whose size
// changes at an IDR while pictures of the old size still wait for their
// turn: each leaves with its own size and crop, and as a progressive frame.
TEST(H264DecoderShell, RepeatedParameterSetsAndPicturesOfTheirOwnSequencesSize) {
  REQUIRE_FFMPEG();
  Bytes joined;
  Frames expected;
  for (const char* size : {"62x46", "100x60"}) {
    const SmEncoded part =
        EncodeWithX264({size, "yuv420p", "cabac=0:bframes=2:b-pyramid=none:slices=3", 6});
    ASSERT_EQ(part.pictures.size(), 6u);
    joined.insert(joined.end(), part.stream.begin(), part.stream.end());
    expected.insert(expected.end(), part.pictures.begin(), part.pictures.end());
  }
  Bytes sequence, picture, repeated;
  for (const Bytes& unit : AnnexBUnits(joined)) {
    const int type = unit[3] & 0x1F;
    sequence = type == 7 ? unit : sequence;
    picture = type == 8 ? unit : picture;
    // Before every slice that is not the first of its picture (first_mb 0
    // begins with a 1 bit).
    if ((type == 1 || type == 5) && (unit[4] & 0x80) == 0) {
      repeated.insert(repeated.end(), sequence.begin(), sequence.end());
      repeated.insert(repeated.end(), picture.begin(), picture.end());
    }
    repeated.insert(repeated.end(), unit.begin(), unit.end());
  }
  ASSERT_GT(repeated.size(), joined.size() + 100);
  const CmPictureCollector plain = CollectWithShell({joined});
  EXPECT_EQ(plain.pictures, expected);
  EXPECT_EQ(plain.structures, std::vector<int32_t>(expected.size(), MCL::Frame));
  EXPECT_EQ(DecodeWithShell({repeated}), expected);
}

// The whole stream in one buffer, more pictures than the frame store holds:
// the decoder takes what it can, gives a picture out whenever it needs room,
// and leaves the rest of the buffer for the next call. Nothing is lost, the
// pictures are ffmpeg's, and with a time for each buffer fed piece by piece
// the pictures leave with rising times in display order.
TEST(H264DecoderShell, ABufferOfManyPicturesIsTakenInTurnsWithoutLoss) {
  REQUIRE_FFMPEG();
  constexpr size_t Count = 40;
  const SmEncoded clip = EncodeWithX264(
      {"64x48", "yuv420p", "cabac=0:bframes=3:b-pyramid=normal:ref=2:keyint=40:aud=1", Count});
  ASSERT_EQ(clip.pictures.size(), Count);

  CmShell shell;
  MCL::MediaData input;
  input.SetBufferPointer(clip.stream.data(), clip.stream.size());
  input.SetDataSize(clip.stream.size());
  for (int calls = 0; input.GetDataSize() >= 4 && calls < 1000; ++calls) {
    const MCL::Status status = shell.decoder.GetFrame(&input, &shell.output);
    ASSERT_TRUE(status == MCL::StatusOk || status == MCL::StatusNotEnoughData) << status;
  }
  EXPECT_LT(shell.collector.pictures.size(), Count) << "the store cannot hold them all at once";
  shell.Flush();
  ExpectSameFrames(shell.collector.pictures, clip.pictures);

  // One access unit a buffer, cut at the delimiters, each with the next time.
  ASSERT_EQ(shell.decoder.Reset(), MCL::StatusOk);
  shell.collector = {};
  const Frames accessUnits = Joined(AccessUnits(clip.stream));
  ASSERT_EQ(accessUnits.size(), Count);
  for (size_t unit = 0; unit < Count; ++unit) {
    shell.Feed(accessUnits[unit], 1, 1.0 + 0.04 * static_cast<double>(unit));
    EXPECT_EQ(shell.left, 0u);
  }
  shell.Flush();
  ExpectSameFrames(shell.collector.pictures, clip.pictures);
  for (size_t f = 0; f < shell.collector.times.size(); ++f) {
    EXPECT_DOUBLE_EQ(shell.collector.times[f], 1.0 + 0.04 * static_cast<double>(f)) << f;
  }
}

// Low delay shows each picture as soon as its access unit is in. A stream
// without reordering keeps it and comes out in full, one picture a unit; one
// with B pictures turns it off at the first picture that comes before one
// shown, and from there pictures wait for their turn: none is lost.
TEST(H264DecoderShell, LowDelayHoldsUntilAPictureComesOutOfOrder) {
  REQUIRE_FFMPEG();
  constexpr size_t Count = 12;
  for (const bool reorders : {false, true}) {
    SCOPED_TRACE(reorders ? "B pictures" : "I and P pictures");
    const SmEncoded clip = EncodeWithX264(
        {"48x32", "yuv420p",
         std::string("cabac=0:aud=1:keyint=6:bframes=") + (reorders ? "2" : "0"), Count});
    ASSERT_EQ(clip.pictures.size(), Count);
    const Frames accessUnits = Joined(AccessUnits(clip.stream));
    ASSERT_EQ(accessUnits.size(), Count);

    CmShell shell(MCL::VideoDecoderParams::FlagBase | MCL::VideoDecoderParams::FlagLowDelay);
    std::string shown; // per access unit, whether a picture left at once
    for (const Bytes& accessUnit : accessUnits) {
      shown += shell.Feed(accessUnit, 1) == MCL::StatusOk ? '1' : '0';
    }
    const size_t shownAtOnce = static_cast<size_t>(std::count(shown.begin(), shown.end(), '1'));
    // The key picture leaves with its own access unit, and so does the
    // picture after it.
    EXPECT_EQ(shown.substr(0, 2), "11") << shown;
    shell.Flush();
    const Frames& ours = shell.collector.pictures;
    ASSERT_EQ(ours.size(), Count);
    if (!reorders) {
      EXPECT_EQ(shownAtOnce, Count);
      EXPECT_EQ(ours, clip.pictures);
      continue;
    }
    // With B pictures: the I picture, then the first P picture too early;
    // every picture after those in its place.
    EXPECT_GE(shownAtOnce, 2u);
    EXPECT_LT(shownAtOnce, Count);
    Frames wanted = clip.pictures;
    ASSERT_EQ(ours[0], wanted[0]);
    wanted.erase(wanted.begin());
    const auto early = std::find(wanted.begin(), wanted.end(), ours[1]);
    ASSERT_NE(early, wanted.end()) << "the picture shown early is one of the stream's";
    wanted.erase(early);
    EXPECT_EQ(Frames(ours.begin() + 2, ours.end()), wanted);
  }
}

// What this decoder does not decode yet gives no picture and the status of a
// stream it cannot go on with; a stream it decodes works again after a reset.
TEST(H264DecoderShell, CodingNotDecodedYetGivesNoPictureButAStatus) {
  REQUIRE_FFMPEG();
  CmShell shell;
  const auto decode = [&](const std::string& pixelFormat, const std::string& settings) {
    const MCL::Status status =
        shell.Feed(EncodeWithX264({"64x48", pixelFormat, settings, 2}).stream);
    shell.Flush();
    return status;
  };
  const std::pair<const char*, const char*> kinds[] = {
      {"yuv420p10le", "cabac=0"},
      {"yuv422p", "cabac=0"},
      {"yuv444p", "cabac=0"},
      {"yuv420p", "cabac=0:qp=0"},
  };
  for (const auto& [pixelFormat, settings] : kinds) {
    SCOPED_TRACE(std::string(pixelFormat) + " " + settings);
    EXPECT_EQ(decode(pixelFormat, settings), MCL::StatusInvalidStreamSync);
    EXPECT_TRUE(shell.collector.pictures.empty());
    ASSERT_EQ(shell.decoder.Reset(), MCL::StatusOk);
  }
  decode("yuv420p", "cabac=0");
  EXPECT_EQ(shell.collector.pictures.size(), 2u);
  decode("yuv420p", "cabac=1");
  EXPECT_EQ(shell.collector.pictures.size(), 4u);
}
