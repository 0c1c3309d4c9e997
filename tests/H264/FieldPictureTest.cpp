// Interlaced streams whose frames come as two field pictures, or as one
// field alone, written bit by bit (no encoder here writes them) and checked
// against ffmpeg's decode of the same bytes.
#include <gtest/gtest.h>

#include <array>
#include <string>
#include <vector>

#include "H264/WrittenStreams.h"

using namespace NmTestSupport;
using namespace NmH264Test;

namespace {

// A frame of 4 x 4 macroblocks: each field is 4 x 2.
constexpr uint32_t Width = 4, Height = 4, FieldCount = Width * Height / 2;
constexpr size_t FrameSize = Width * Height * 384;

std::vector<MB> IntraField(int seed) {
  return IntraPicture(seed, FieldCount);
}

// A P field whose macroblocks cycle through the given references with
// vertical motion of odd quarter samples (where the chroma shift between
// parities matters), one coefficient at a scanning position that tells the
// field scan from the zigzag scan (of the 8x8 transform in every other one,
// where the picture parameter set allows it: the coefficient lands at four
// times its position), and one macroblock of new samples.
std::vector<MB> PredictedField(const std::vector<uint32_t>& references, int seed) {
  std::vector<MB> mbs;
  for (uint32_t a = 0; a < FieldCount; ++a) {
    if (a == 6) {
      mbs.push_back(Textured(seed, a));
      continue;
    }
    MB mb = MB::Predicted(MB::L0, references[a % references.size()],
                          static_cast<int32_t>(a % 3) * 5 - 4 + seed,
                          static_cast<int32_t>(a % 4) * 3 - 5);
    if (a % 2 == 1) {
      mb.level = a % 4 == 1 ? 1 : -1;
      mb.scanPosition = 1 + (a * 3 + static_cast<uint32_t>(seed)) % 15;
      mb.transform8x8 = a % 4 == 1;
    }
    mbs.push_back(mb);
  }
  return mbs;
}

// A B field: direct (skipped), either list, both, and new samples.
std::vector<MB> BiPredictedField(int seed) {
  std::vector<MB> mbs;
  mbs.push_back(MB{});
  mbs.push_back(MB::Predicted(MB::L0, 1, 3, -3));
  mbs.push_back(MB::Predicted(MB::L1, 0, -2, 5));
  mbs.push_back(MB::Predicted(MB::Bi, 0, 1, 1, 1, -3, 2));
  mbs.push_back(MB{});
  mbs.push_back(MB::Predicted(MB::Bi, 1, -1, 0, 0, 2, -1));
  mbs.push_back(Textured(seed, 6));
  mbs.push_back(MB{});
  return mbs;
}

// A frame picture of an interlaced sequence.
SmWriterSlice FramePicture(uint32_t type, uint32_t frameNum, uint32_t pocLsb, bool reference = true,
                           uint32_t filter = 0) {
  SmWriterSlice slice;
  slice.type = type;
  slice.frameNum = frameNum;
  slice.pocLsb = pocLsb;
  slice.nalRefIdc = reference ? 1 : 0;
  slice.disableDeblocking = filter;
  return slice;
}

SmWriterSlice Field(uint32_t type, uint32_t frameNum, bool bottom, uint32_t pocLsb, uint32_t filter,
                    bool reference = true) {
  SmWriterSlice slice = FramePicture(type, frameNum, pocLsb, reference, filter);
  slice.field = true;
  slice.bottom = bottom;
  if (filter != 1) {
    // A quantiser high enough that the filter acts on the coefficients.
    slice.qpDelta = 12;
    slice.alphaOffsetDiv2 = 2;
    slice.betaOffsetDiv2 = 1;
  }
  return slice;
}

SmWriterSps InterlacedSequence() {
  SmWriterSps sps;
  sps.frameMbsOnly = false;
  sps.widthInMbs = Width;
  sps.heightInMbs = Height;
  sps.maxNumRefFrames = 3;
  sps.log2MaxPocLsb = 8;
  sps.vui = true;
  sps.numReorderFrames = 1;
  sps.maxDecFrameBuffering = 3;
  return sps;
}

// A stream of interlaced fields that begins with an IDR frame of two
// fields: an intra first field (the top one unless `bottomFirst`) and a
// second field predicted from it, both with the loop filter setting
// `filter`; in the High profile with the 8x8 transform where asked.
CmH264StreamWriter StartWithIntraPair(uint32_t filter, uint32_t maxNumRefFrames = 3,
                                      bool bottomFirst = false, bool highProfile = false) {
  CmH264StreamWriter writer;
  SmWriterSps sps = InterlacedSequence();
  sps.maxNumRefFrames = maxNumRefFrames;
  sps.maxDecFrameBuffering = maxNumRefFrames;
  sps.profileIdc = highProfile ? 100 : sps.profileIdc;
  writer.WriteSps(sps);
  SmWriterPps pps;
  pps.transform8x8 = highProfile;
  writer.WritePps(pps);
  writer.WriteSlice(AsIdr(Field(SmWriterSlice::I, 0, bottomFirst, 0, filter)), IntraField(1));
  writer.WriteSlice(Field(SmWriterSlice::P, 0, !bottomFirst, 1, filter), PredictedField({0}, 2));
  return writer;
}

// The lines of one parity of a planar 4:2:0 frame.
std::vector<uint8_t> FieldLines(const std::vector<uint8_t>& frame, int parity) {
  std::vector<uint8_t> lines;
  size_t at = 0;
  for (int c = 0; c < 3; ++c) {
    const size_t width = c == 0 ? Width * 16 : Width * 8;
    const size_t height = c == 0 ? Height * 16 : Height * 8;
    for (size_t y = 0; y < height; ++y, at += width) {
      if (static_cast<int>(y % 2) == parity) {
        lines.insert(lines.end(), frame.begin() + static_cast<std::ptrdiff_t>(at),
                     frame.begin() + static_cast<std::ptrdiff_t>(at + width));
      }
    }
  }
  return lines;
}

} // namespace

TEST(H264FieldPictures, FieldPairsOfIPAndBFieldsMatchFfmpeg) {
  REQUIRE_FFMPEG();
  for (const uint32_t filter : {1u, 0u}) {
    for (const bool bottomFirst : {false, true}) {
      SCOPED_TRACE(testing::Message() << "filter " << filter << " bottom first " << bottomFirst);
      // An intra first field; the second predicts from it alone.
      CmH264StreamWriter writer = StartWithIntraPair(filter, 3, bottomFirst, true);
      const bool first = bottomFirst, second = !bottomFirst;
      // Frame 1 as two P fields from up to three fields: list 0 alternates
      // parities, the current one's first, and the second field's list
      // begins with the first field of its own frame.
      writer.WriteSlice(WithActive(Field(SmWriterSlice::P, 1, first, 8, filter), 2),
                        PredictedField({0, 1}, 3));
      writer.WriteSlice(WithActive(Field(SmWriterSlice::P, 1, second, 9, filter), 3),
                        PredictedField({2, 0, 1}, 4));
      // A frame picture between field pairs predicts from the woven fields.
      std::vector<MB> frameMbs;
      for (uint32_t a = 0; a < Width * Height; ++a) {
        frameMbs.push_back(a == 9 ? Textured(9, a)
                                  : MB::Predicted(MB::L0, a % 2, static_cast<int32_t>(a % 3) - 1,
                                                  static_cast<int32_t>(a % 5) - 2));
      }
      writer.WriteSlice(WithActive(FramePicture(SmWriterSlice::P, 2, 16, true, 1), 2), frameMbs);
      // Fields that predict from the fields of that frame, the sliding
      // window dropping frame 0 on the way.
      writer.WriteSlice(WithActive(Field(SmWriterSlice::P, 3, first, 32, filter), 4),
                        PredictedField({0, 3, 1, 2}, 5));
      writer.WriteSlice(WithActive(Field(SmWriterSlice::P, 3, second, 33, filter), 4),
                        PredictedField({1, 0, 2, 3}, 6));
      // A non-reference B field pair between frames 2 and 3, with spatial
      // and then temporal direct prediction; list 0 holds every field that
      // the co-located blocks refer to.
      SmWriterSlice b0 = WithActive(Field(SmWriterSlice::B, 4, first, 24, filter, false), 6, 2);
      writer.WriteSlice(b0, BiPredictedField(7));
      SmWriterSlice b1 = WithActive(Field(SmWriterSlice::B, 4, second, 25, filter, false), 6, 2);
      b1.directSpatial = false;
      writer.WriteSlice(b1, BiPredictedField(8));

      const Frames expected = ExpectWrittenSameAsFfmpeg(writer, 5, FrameSize);
      MCL::SmTaskSupplierSettings twoThreads;
      twoThreads.threadCount = 2;
      ExpectSameFrames(DecodeWritten(writer, twoThreads).pictures, expected);
    }
  }
}

// A field without partner leaves alone, with its lines doubled, and serves
// as reference. Each frame tells how it was coded, so that a deinterlacer
// downstream knows: a pair of fields which came first (by order count,
// whatever the decoding order), a lone field which it is, a frame of an
// interlaced sequence its fields' order.
TEST(H264FieldPictures, LoneFieldsAndTheFieldOrderOfEachFrame) {
  REQUIRE_FFMPEG();
  CmH264StreamWriter writer = StartWithIntraPair(1);
  // Frame 1 bottom first in decoding order but top first in order count;
  // frame 2 a lone top field; frame 3 bottom first in both, predicting from
  // the lone field too.
  writer.WriteSlice(Field(SmWriterSlice::P, 1, true, 9, 1), PredictedField({0}, 3));
  writer.WriteSlice(Field(SmWriterSlice::P, 1, false, 8, 1), PredictedField({0}, 4));
  writer.WriteSlice(Field(SmWriterSlice::P, 2, false, 16, 1), PredictedField({0}, 5));
  writer.WriteSlice(WithActive(Field(SmWriterSlice::P, 3, true, 24, 1), 2),
                    PredictedField({0, 1}, 6));
  writer.WriteSlice(WithActive(Field(SmWriterSlice::P, 3, false, 25, 1), 3),
                    PredictedField({0, 1, 2}, 7));
  // A frame picture, and the stream ends on a lone bottom field.
  writer.WriteSlice(FramePicture(SmWriterSlice::P, 4, 32, true, 1),
                    std::vector<MB>(Width * Height));
  writer.WriteSlice(Field(SmWriterSlice::P, 5, true, 41, 1), PredictedField({0}, 8));

  const SmSupplied decoded = DecodeWritten(writer);
  EXPECT_TRUE(decoded.allAccepted);
  const Frames& ours = decoded.pictures;
  ASSERT_EQ(ours.size(), 6u);
  EXPECT_EQ(CollectWithShell({writer.AnnexB()}).structures,
            (std::vector<int32_t>{MCL::FrameTopFieldFirst, MCL::FrameTopFieldFirst, MCL::TopField,
                                  MCL::FrameBottomFieldFirst, MCL::FrameTopFieldFirst,
                                  MCL::BottomField}));
  // ffmpeg shows no lone field; the frames it shows are ours, and frame 3
  // predicts from the lone top field, so that field was right as well.
  const Frames expected = FfmpegOfWritten(writer, FrameSize);
  ExpectSameFrames({ours[0], ours[1], ours[3], ours[4]}, expected);
  // A lone field shows with its lines doubled, never with stale lines of
  // the frame buffer in between.
  for (const size_t lone : {size_t{2}, size_t{5}}) {
    const int parity = lone == 2 ? 0 : 1;
    EXPECT_TRUE(FieldLines(ours[lone], 0) == FieldLines(ours[lone], 1)) << lone;
    EXPECT_FALSE(FieldLines(ours[lone], parity) == FieldLines(ours[lone - 1], parity)) << lone;
  }
}

// Memory management in fields names single fields by field picture numbers:
// unmarking one field leaves its sibling a reference, the lists of later
// fields skip it, the sliding window counts the frame while either field is
// left, and a second field may unmark its own first field.
TEST(H264FieldPictures, MemoryManagementUnmarksSingleFields) {
  REQUIRE_FFMPEG();
  CmH264StreamWriter writer = StartWithIntraPair(0, 4);
  for (uint32_t frame = 1; frame < 3; ++frame) {
    writer.WriteSlice(WithActive(Field(SmWriterSlice::P, frame, false, 8 * frame, 0), 2),
                      PredictedField({0, 1}, static_cast<int>(frame) * 2 + 1));
    writer.WriteSlice(WithActive(Field(SmWriterSlice::P, frame, true, 8 * frame + 1, 0), 2),
                      PredictedField({1, 0}, static_cast<int>(frame) * 2 + 2));
  }
  // Top field of frame 3 (CurrPicNum 7) unmarks the bottom field of frame 1
  // (PicNum 2) and the top field of frame 0 (PicNum 1).
  writer.WriteSlice(WithOps(WithActive(Field(SmWriterSlice::P, 3, false, 24, 0), 4),
                            {SmWriterMmco{1, 4, 0}, SmWriterMmco{1, 5, 0}}),
                    PredictedField({0, 1, 2, 3}, 7));
  // Its bottom field's list: frame 2 bottom, frame 3 top, frame 0 bottom,
  // frame 2 top, frame 1 top.
  writer.WriteSlice(WithActive(Field(SmWriterSlice::P, 3, true, 25, 0), 5),
                    PredictedField({4, 2, 0, 3, 1}, 8));
  // Frame 4: the sliding window drops frame 0's bottom field; the bottom
  // field unmarks its own top field (PicNum 8 of CurrPicNum 9).
  writer.WriteSlice(WithActive(Field(SmWriterSlice::P, 4, false, 32, 0), 6),
                    PredictedField({5, 4, 3, 2, 1, 0}, 9));
  writer.WriteSlice(
      WithOps(WithActive(Field(SmWriterSlice::P, 4, true, 33, 0), 6), {SmWriterMmco{1, 0, 0}}),
      PredictedField({0, 5, 1, 4, 2, 3}, 10));
  // Frame 5 sees frame 4's bottom field alone.
  writer.WriteSlice(WithActive(Field(SmWriterSlice::P, 5, false, 40, 0), 6),
                    PredictedField({0, 1, 2, 3, 4, 5}, 11));
  writer.WriteSlice(WithActive(Field(SmWriterSlice::P, 5, true, 41, 0), 6),
                    PredictedField({5, 3, 1, 0, 2, 4}, 12));

  ExpectWrittenSameAsFfmpeg(writer, 6, FrameSize);
}

// Slice groups in field pictures: a map unit is one macroblock of the
// field. Each field cut into two slice groups, its upper and lower half,
// decodes as the same halves written as two plain slices, which ffmpeg
// decodes (it has no slice groups itself).
TEST(H264FieldPictures, SliceGroupsInFieldsDecodeAsTheSameSlicesWithout) {
  REQUIRE_FFMPEG();
  const auto write = [](bool groups) {
    CmH264StreamWriter writer;
    writer.WriteSps(InterlacedSequence());
    SmWriterPps pps;
    if (groups) {
      pps.numSliceGroups = 2;
      pps.mapType = 6;
      pps.sliceGroupId = {0, 0, 0, 0, 1, 1, 1, 1};
    }
    writer.WritePps(pps);
    const auto halves = [&writer](SmWriterSlice slice, const std::vector<MB>& mbs) {
      constexpr uint32_t Half = FieldCount / 2;
      for (uint32_t half = 0; half < 2; ++half) {
        slice.firstMb = half * Half;
        writer.WriteSlice(
            slice, std::vector<MB>(mbs.begin() + half * Half, mbs.begin() + (half + 1) * Half));
      }
    };
    halves(AsIdr(Field(SmWriterSlice::I, 0, false, 0, 0)), IntraField(1));
    halves(Field(SmWriterSlice::P, 0, true, 1, 0), PredictedField({0}, 2));
    halves(WithActive(Field(SmWriterSlice::P, 1, false, 8, 0), 2), PredictedField({0, 1}, 3));
    halves(WithActive(Field(SmWriterSlice::P, 1, true, 9, 0), 3), PredictedField({2, 0, 1}, 4));
    return writer;
  };
  const SmSupplied ours = DecodeWritten(write(true));
  EXPECT_TRUE(ours.allAccepted);
  const Frames expected = FfmpegOfWritten(write(false), FrameSize);
  ASSERT_EQ(expected.size(), 2u);
  ExpectSameFrames(ours.pictures, expected);
}

// Command 5 in a field: every reference goes, the first field of its own
// frame too when the second field carries it; the field's frame counts
// from frame_num 0 and order count 0 on, so its second field pairs with
// frame_num 0, and the frames before it leave first although their counts
// are higher. Against ffmpeg.
TEST(H264FieldPictures, ResetInAFieldStartsTheCountsOver) {
  REQUIRE_FFMPEG();
  for (const bool inSecondField : {false, true}) {
    SCOPED_TRACE(inSecondField ? "second field" : "first field");
    CmH264StreamWriter writer = StartWithIntraPair(0);
    writer.WriteSlice(WithActive(Field(SmWriterSlice::P, 1, false, 40, 0), 2),
                      PredictedField({0, 1}, 3));
    writer.WriteSlice(WithActive(Field(SmWriterSlice::P, 1, true, 41, 0), 2),
                      PredictedField({1, 0}, 4));
    // Frame 2 resets; its counts are the highest so far.
    SmWriterSlice reset = WithActive(Field(SmWriterSlice::P, 2, false, 80, 0), 2);
    SmWriterSlice second = WithActive(Field(SmWriterSlice::P, 2, true, 81, 0), 2);
    SmWriterSlice& carrier = inSecondField ? second : reset;
    carrier = WithOps(carrier, {SmWriterMmco{5, 0, 0}});
    if (!inSecondField) {
      second.frameNum = 0;
      second.pocLsb = 1;
      second = WithActive(second, 1);
    }
    writer.WriteSlice(reset, PredictedField({0, 1}, 5));
    writer.WriteSlice(
        second,
        PredictedField(inSecondField ? std::vector<uint32_t>{1, 0} : std::vector<uint32_t>{0}, 6));
    // Frame 3 predicts from what is left: frame 2's second field alone when
    // it reset, both fields of frame 2 when its first field did.
    const std::vector<uint32_t> references =
        inSecondField ? std::vector<uint32_t>{0, 1} : std::vector<uint32_t>{0, 1, 2};
    const auto active = static_cast<uint32_t>(references.size()) - 1;
    writer.WriteSlice(WithActive(Field(SmWriterSlice::P, 1, false, 8, 0), active),
                      PredictedField({references.begin(), references.end() - 1}, 7));
    writer.WriteSlice(WithActive(Field(SmWriterSlice::P, 1, true, 9, 0), active + 1),
                      PredictedField(references, 8));
    ExpectWrittenSameAsFfmpeg(writer, 4, FrameSize);
  }
}

// Long-term fields: command 4 makes room for indices, command 3 makes one
// field and then its sibling long-term under one index, lists take the
// long-term fields after the short-term ones by index, alternating parity,
// and modifications name them by LongTermPicNum (2 LongTermFrameIdx, plus
// one for the current parity); command 2 unmarks one long-term field and
// leaves its sibling, and the sliding window passes over long-term fields.
// Against ffmpeg. (Command 6 follows below: ffmpeg decodes the streams that
// use it in fields apart from the standard.)
TEST(H264FieldPictures, LongTermFieldsMatchFfmpeg) {
  REQUIRE_FFMPEG();
  CmH264StreamWriter writer = StartWithIntraPair(1, 4);
  // Frame 1, top (CurrPicNum 3): indices up to 2, and frame 0's bottom
  // field (PicNum 0) long-term with index 1, then its top field (PicNum 1)
  // beside it. (ffmpeg keeps marks by frame: it would make both fields
  // long-term at the first command.)
  writer.WriteSlice(WithOps(WithActive(Field(SmWriterSlice::P, 1, false, 8, 1), 2),
                            {SmWriterMmco{4, 3, 0}, SmWriterMmco{3, 2, 1}, SmWriterMmco{3, 1, 1}}),
                    PredictedField({0, 1}, 3));
  // Bottom: list frame 1 top, then frame 0 bottom and top, long-term.
  writer.WriteSlice(WithActive(Field(SmWriterSlice::P, 1, true, 9, 1), 3),
                    PredictedField({2, 0, 1}, 4));
  // Frame 2, top: frame 0's bottom field (LongTermPicNum 2) moved to the
  // front; then its top field (LongTermPicNum 3) unmarked.
  SmWriterSlice top2 =
      WithOps(WithActive(Field(SmWriterSlice::P, 2, false, 16, 1), 4), {SmWriterMmco{2, 3, 0}});
  top2.modifications[0] = {{2, 2}};
  writer.WriteSlice(top2, PredictedField({0, 1, 2, 3}, 5));
  writer.WriteSlice(WithActive(Field(SmWriterSlice::P, 2, true, 17, 1), 4),
                    PredictedField({3, 0, 1, 2}, 6));
  // Frame 3 reaches the long-term bottom field of frame 0 by its number
  // from either parity.
  SmWriterSlice top3 = WithActive(Field(SmWriterSlice::P, 3, false, 24, 1), 4);
  top3.modifications[0] = {{2, 2}};
  writer.WriteSlice(top3, PredictedField({0, 1, 2, 3}, 7));
  SmWriterSlice bottom3 = WithActive(Field(SmWriterSlice::P, 3, true, 25, 1), 6);
  bottom3.modifications[0] = {{2, 3}};
  writer.WriteSlice(bottom3, PredictedField({5, 4, 0, 1, 2, 3}, 8));
  // Frame 4 by the sliding window, which drops frame 1 and keeps the
  // long-term field of frame 0.
  writer.WriteSlice(WithActive(Field(SmWriterSlice::P, 4, false, 32, 1), 6),
                    PredictedField({4, 5, 0, 1, 2, 3}, 9));
  writer.WriteSlice(WithActive(Field(SmWriterSlice::P, 4, true, 33, 1), 5),
                    PredictedField({3, 4, 0, 1, 2}, 10));

  ExpectWrittenSameAsFfmpeg(writer, 5, FrameSize);
}

// The frame whose two fields are I_PCM fields, woven: the samples that the
// writer put in, where a field picture puts them.
std::vector<uint8_t> Woven(const std::vector<MB>& top, const std::vector<MB>& bottom) {
  Bytes frame;
  Place(frame, top, Width, Height, 2, 0);
  Place(frame, bottom, Width, Height, 2, 1);
  return frame;
}

// An IDR first field that is long-term by its slice header, and a second
// field that, as the standard requires of it, takes the same index by
// command 6: the two are one long-term frame, and a later frame's fields,
// copies of the long-term fields of their own parity, show both. Command 3
// on one field of a frame makes that field long-term and leaves its sibling
// short-term: a later field reaches the one by its long-term number and the
// other by its short-term number. ffmpeg keeps marks by frame (and frees the
// index again for the second field), so the pictures here are those that
// the writer's own samples make.
TEST(H264FieldPictures, LongTermMarksOfSingleFields) {
  CmH264StreamWriter writer;
  SmWriterSps sps = InterlacedSequence();
  sps.maxNumRefFrames = sps.maxDecFrameBuffering = 4;
  writer.WriteSps(sps);
  writer.WritePps(SmWriterPps{});
  const std::vector<MB> top0 = IntraField(1), bottom0 = IntraField(2), top1 = IntraField(3),
                        bottom1 = IntraField(4);
  SmWriterSlice idr = AsIdr(Field(SmWriterSlice::I, 0, false, 0, 1));
  idr.longTermReference = true;
  writer.WriteSlice(idr, top0);
  writer.WriteSlice(WithOps(Field(SmWriterSlice::I, 0, true, 1, 1), {SmWriterMmco{6, 0, 0}}),
                    bottom0);
  writer.WriteSlice(Field(SmWriterSlice::I, 1, false, 8, 1), top1);
  writer.WriteSlice(Field(SmWriterSlice::I, 1, true, 9, 1), bottom1);
  // Frame 2 copies the long-term fields of frame 0 by LongTermPicNum 1 (of
  // its own parity); its top field (CurrPicNum 5) makes room for index 1
  // and gives it to frame 1's bottom field (PicNum 2).
  const std::vector<MB> copies(FieldCount, MB::Predicted(MB::L0, 0, 0, 0));
  const auto copy = [&](uint32_t frameNum, bool bottom, std::array<uint32_t, 2> modification) {
    SmWriterSlice slice = Field(SmWriterSlice::P, frameNum, bottom, 8 * frameNum + bottom, 1);
    slice.modifications[0] = {modification};
    return slice;
  };
  writer.WriteSlice(WithOps(copy(2, false, {2, 1}), {SmWriterMmco{4, 2, 0}, SmWriterMmco{3, 2, 1}}),
                    copies);
  writer.WriteSlice(copy(2, true, {2, 1}), copies);
  // Frame 3 copies frame 1: its top field names frame 1's top field by
  // PicNum 3 (CurrPicNum 7, a difference of 4), its bottom field frame 1's
  // bottom field by LongTermPicNum 3.
  writer.WriteSlice(copy(3, false, {0, 3}), copies);
  writer.WriteSlice(copy(3, true, {2, 3}), copies);

  const SmSupplied ours = DecodeWritten(writer);
  EXPECT_TRUE(ours.allAccepted);
  ExpectSameFrames(ours.pictures, {Woven(top0, bottom0), Woven(top1, bottom1), Woven(top0, bottom0),
                                   Woven(top1, bottom1)});
}

namespace {

// Direct (skipped) macroblocks between others of either list and of both.
std::vector<MB> DirectMostly(uint32_t count, int seed) {
  std::vector<MB> mbs;
  for (uint32_t a = 0; a < count; ++a) {
    switch (a % 5) {
    case 1:
      mbs.push_back(MB::Predicted(MB::L0, 0, seed - 3, 2));
      break;
    case 3:
      mbs.push_back(MB::Predicted(MB::Bi, 0, 1, -2, 0, -1, seed));
      break;
    default:
      mbs.push_back(MB{});
    }
  }
  return mbs;
}

} // namespace

// Direct prediction between a field and a frame-coded picture: a B field
// whose first picture of list 1 was decoded as a frame takes the motion of
// the frame's macroblock pair, halved; a B frame whose first picture of
// list 1 was decoded as two fields takes that of the field nearer in order,
// doubled. Temporal and spatial, against ffmpeg.
TEST(H264FieldPictures, DirectPredictionBetweenFieldsAndFramesMatchesFfmpeg) {
  REQUIRE_FFMPEG();
  CmH264StreamWriter writer;
  writer.WriteSps(InterlacedSequence());
  writer.WritePps(SmWriterPps{});
  writer.WriteSlice(AsIdr(FramePicture(SmWriterSlice::I, 0, 0)), IntraPicture(1, Width * Height));
  std::vector<MB> moving;
  for (uint32_t a = 0; a < Width * Height; ++a) {
    moving.push_back(a == 6 ? Textured(2, a)
                            : MB::Predicted(MB::L0, 0, static_cast<int32_t>(a % 4) * 3 - 5,
                                            static_cast<int32_t>(a % 3) * 7 - 6));
  }
  writer.WriteSlice(FramePicture(SmWriterSlice::P, 1, 16), moving);
  // B fields between the two frames: spatial, then temporal.
  SmWriterSlice b0 = WithActive(Field(SmWriterSlice::B, 2, false, 8, 0, false), 4, 2);
  writer.WriteSlice(b0, DirectMostly(FieldCount, 1));
  SmWriterSlice b1 = WithActive(Field(SmWriterSlice::B, 2, true, 9, 0, false), 4, 2);
  b1.directSpatial = false;
  writer.WriteSlice(b1, DirectMostly(FieldCount, 2));
  // A P field pair from the fields of frame 1 alone.
  writer.WriteSlice(WithActive(Field(SmWriterSlice::P, 2, false, 24, 0), 2),
                    PredictedField({0, 1}, 3));
  writer.WriteSlice(WithActive(Field(SmWriterSlice::P, 2, true, 25, 0), 3),
                    PredictedField({0, 2}, 4));
  // B frames between frame 1 and that pair: temporal, then spatial.
  SmWriterSlice b2 = WithActive(FramePicture(SmWriterSlice::B, 3, 20, false), 2, 1);
  b2.directSpatial = false;
  writer.WriteSlice(b2, DirectMostly(Width * Height, 3));
  SmWriterSlice b3 = WithActive(FramePicture(SmWriterSlice::B, 3, 22, false), 2, 1);
  writer.WriteSlice(b3, DirectMostly(Width * Height, 4));

  ExpectWrittenSameAsFfmpeg(writer, 6, FrameSize);
}
