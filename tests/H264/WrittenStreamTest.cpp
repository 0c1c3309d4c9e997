// Streams that no encoder here makes, written bit by bit: long-term
// references and memory management commands, frame_num gaps, slice groups
// in any order, explicit and implicit weights in B slices, and streams that
// begin without an IDR picture.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "Codecs/H264/H264VideoDecoder.h"
#include "Codecs/H264/TaskSupplier.h"
#include "Codecs/MCL/VideoDecoderParams.h"
#include "H264/WrittenStreams.h"

using namespace NmTestSupport;
using namespace NmH264Test;

namespace {

constexpr uint32_t Width = 4, Height = 3, Count = Width * Height; // macroblocks
constexpr size_t FrameSize = Count * 384;

// A sequence whose bitstream restriction bounds the reordering and the store.
SmWriterSps Sequence(uint32_t references, uint32_t reorder, uint32_t buffering,
                     uint32_t pocType = 0) {
  SmWriterSps sps;
  sps.pocType = pocType;
  sps.maxNumRefFrames = references;
  sps.vui = true;
  sps.numReorderFrames = reorder;
  sps.maxDecFrameBuffering = buffering;
  return sps;
}

SmWriterSlice Slice(uint32_t type, uint32_t frameNum, bool reference = true, uint32_t pocLsb = 0) {
  SmWriterSlice slice;
  slice.type = type;
  slice.frameNum = frameNum;
  slice.nalRefIdc = reference ? 1 : 0;
  slice.pocLsb = pocLsb;
  return slice;
}

// Copies without motion: even macroblocks from list 0's reference `even`,
// odd ones from list 1's `odd`.
std::vector<MB> Copies(uint32_t even, uint32_t odd) {
  std::vector<MB> mbs;
  for (uint32_t a = 0; a < Count; ++a) {
    mbs.push_back(MB::Predicted(a % 2 == 0 ? MB::L0 : MB::L1, a % 2 == 0 ? even : odd, 0, 0));
  }
  return mbs;
}

SmWriterSlice Idr(uint32_t idrPicId = 0) {
  return AsIdr(Slice(SmWriterSlice::I, 0), idrPicId);
}

// A P picture whose macroblocks cycle through the given references with
// motion that differs per macroblock; one macroblock brings new samples.
std::vector<MB> PredictedPicture(std::vector<uint32_t> references, int seed) {
  std::vector<MB> mbs;
  for (uint32_t a = 0; a < Count; ++a) {
    const uint32_t ref = references[a % references.size()];
    if (a == 5) {
      mbs.push_back(Textured(seed, a));
    } else if (a == 7 && references == std::vector<uint32_t>{0}) {
      mbs.push_back(MB{}); // skipped
    } else {
      mbs.push_back(MB::Predicted(MB::L0, ref, static_cast<int32_t>(a % 5) * 3 - 6 + seed,
                                  static_cast<int32_t>(a % 3) * 5 - 4));
    }
  }
  return mbs;
}

// A writer of pictures with the loop filter off (1), on with offsets and a
// quantiser high enough that it acts (0), or on but stopping at the edge
// between the picture's two slices (2).
auto FilteredPictures(CmH264StreamWriter& writer, uint32_t filter) {
  return [&writer, filter](SmWriterSlice slice, const std::vector<MB>& mbs) {
    slice.disableDeblocking = filter;
    if (filter != 1) {
      slice.qpDelta = 14;
      slice.alphaOffsetDiv2 = 3;
      slice.betaOffsetDiv2 = -2;
    }
    const auto cut = filter == 2 ? mbs.begin() + 6 : mbs.end();
    writer.WriteSlice(slice, std::vector<MB>(mbs.begin(), cut));
    slice.firstMb = 6;
    if (cut != mbs.end()) {
      writer.WriteSlice(slice, std::vector<MB>(cut, mbs.end()));
    }
  };
}

} // namespace

TEST(H264WrittenStream, LongTermReferencesAndMemoryManagementMatchFfmpeg) {
  REQUIRE_FFMPEG();
  for (const uint32_t filter : {1u, 0u, 2u}) {
    SCOPED_TRACE(filter);
    CmH264StreamWriter writer;
    const auto write = FilteredPictures(writer, filter);
    writer.WriteSps(Sequence(4, 0, 4, 2)); // output order is decoding order
    writer.WritePps(SmWriterPps{});
    using Op = SmWriterMmco;
    // An IDR that is long-term with index 0 from the start.
    SmWriterSlice idr = Idr();
    idr.longTermReference = true;
    write(idr, IntraPicture(1, Count));
    // Long-term indices up to 2 allowed.
    write(WithOps(Slice(SmWriterSlice::P, 1), {Op{4, 3, 0}}), PredictedPicture({0}, 2));
    // List [f1, LT0]; then f1 becomes long-term index 1.
    write(WithOps(WithActive(Slice(SmWriterSlice::P, 2), 2), {Op{3, 0, 1}}),
          PredictedPicture({1, 0}, 3));
    // List [f2, LT0, LT1] reordered to [LT1, f2, LT0]; the picture itself
    // becomes long-term index 2.
    SmWriterSlice third = WithOps(WithActive(Slice(SmWriterSlice::P, 3), 3), {Op{6, 0, 2}});
    third.modifications[0] = {{2, 1}};
    write(third, PredictedPicture({0, 2, 1}, 4));
    // List [f2, LT0, LT1, LT2]; LT0 and f2 are dropped after it.
    write(WithOps(WithActive(Slice(SmWriterSlice::P, 4), 4), {Op{2, 0, 0}, Op{1, 1, 0}}),
          PredictedPicture({3, 2, 1, 0}, 5));
    // List [f4, LT1, LT2]; the largest index drops to 1, and LT2 with it.
    write(WithOps(WithActive(Slice(SmWriterSlice::P, 5), 3), {Op{4, 2, 0}}),
          PredictedPicture({2, 1, 0}, 6));
    // Three references and room for a fourth: f6 joins them without sliding
    // (a dropped index kept by mistake would push f4 out here)...
    write(Slice(SmWriterSlice::P, 6), PredictedPicture({0}, 13));
    // ...so that the list [f6, f5, f4] still reaches f4.
    write(WithActive(Slice(SmWriterSlice::P, 7), 3), PredictedPicture({2, 1, 0}, 14));
    // The window slid past f4: list [f7, f6, f5] reordered to [f6, LT1, f7];
    // then everything goes and the picture counts as frame 0.
    SmWriterSlice sixth = WithOps(WithActive(Slice(SmWriterSlice::P, 8), 3), {Op{5, 0, 0}});
    sixth.modifications[0] = {{0, 1}, {2, 1}};
    write(sixth, PredictedPicture({1, 0, 2}, 7));
    write(Slice(SmWriterSlice::P, 1), PredictedPicture({0}, 8));
    write(WithOps(WithActive(Slice(SmWriterSlice::P, 2), 2), {Op{1, 0, 0}}),
          PredictedPicture({1, 0}, 9));
    // The frame 1 just dropped is gone: a list of two holds frame 2 and 0.
    SmWriterSlice after = WithActive(Slice(SmWriterSlice::P, 3), 2);
    write(after, PredictedPicture({1, 0}, 10));
    // A second IDR, short-term, ends the long-term references.
    write(Idr(1), IntraPicture(11, Count));
    write(Slice(SmWriterSlice::P, 1), PredictedPicture({0}, 12));

    ExpectWrittenSameAsFfmpeg(writer, 14, FrameSize);
  }
}

namespace {

// A B picture whose macroblocks take every kind of prediction: direct
// (skipped), either list alone with each reference, both lists with pairs
// of references, and new samples.
std::vector<MB> BiPredictedPicture(int seed, uint32_t refs0 = 2, uint32_t refs1 = 2) {
  std::vector<MB> mbs;
  mbs.push_back(MB{});
  mbs.push_back(MB::Predicted(MB::L0, 0, 3, -1));
  mbs.push_back(MB::Predicted(MB::L0, refs0 - 1, -5, 2));
  mbs.push_back(MB::Predicted(MB::L1, 0, 1, 6));
  mbs.push_back(MB::Predicted(MB::L1, refs1 - 1, -2, -3));
  mbs.push_back(MB::Predicted(MB::Bi, 0, 2, 1, 0, -1, 3));
  mbs.push_back(MB::Predicted(MB::Bi, refs0 - 1, 0, 0, 0, 4, -2));
  mbs.push_back(MB::Predicted(MB::Bi, 0, -7, 0, refs1 - 1, 0, 5));
  mbs.push_back(MB::Predicted(MB::Bi, refs0 - 1, 1, 1, refs1 - 1, -1, -1));
  mbs.push_back(MB{});
  mbs.push_back(Textured(seed, 10));
  mbs.push_back(MB::Predicted(MB::Bi, refs0 > 2 ? 2 : 0, 9, -4, 0, -6, 2));
  return mbs;
}

SmWriterWeight Weight(int32_t w, int32_t o, int32_t cbW, int32_t cbO, int32_t crW, int32_t crO) {
  return SmWriterWeight{true, w, o, true, {cbW, crW}, {cbO, crO}};
}

} // namespace

TEST(H264WrittenStream, MemoryManagement5StartsTheOrderCountsAfresh) {
  REQUIRE_FFMPEG();
  // The picture with operation 5 counts as order 0 from then on (8.2.1):
  // it leaves before the pictures after it, and a B picture between it and
  // the next one finds it first in list 0 and the next one first in list 1.
  CmH264StreamWriter writer;
  writer.WriteSps(Sequence(2, 1, 2));
  // Frames count by the smaller of their two field counts: the bottom
  // field's where it comes first.
  SmWriterPps pps;
  pps.bottomFieldPicOrderInFramePresent = true;
  writer.WritePps(pps);
  writer.WriteSlice(Idr(), IntraPicture(1, Count));
  SmWriterSlice reset = WithOps(Slice(SmWriterSlice::P, 1), {SmWriterMmco{5, 0, 0}});
  reset.pocLsb = 20;
  reset.deltaPocBottom = -6;
  writer.WriteSlice(reset, PredictedPicture({0}, 2));
  SmWriterSlice next = Slice(SmWriterSlice::P, 1);
  next.pocLsb = 4;
  next.deltaPocBottom = 3;
  writer.WriteSlice(next, PredictedPicture({0}, 3));
  writer.WriteSlice(Slice(SmWriterSlice::B, 2, false, 2), Copies(0, 0));
  writer.WriteSlice(Slice(SmWriterSlice::P, 2, true, 8), PredictedPicture({0}, 5));

  const SmSupplied decoded = DecodeWritten(writer);
  const Frames& ours = decoded.pictures;
  EXPECT_TRUE(decoded.allAccepted);
  ASSERT_EQ(ours.size(), 5u);
  const Frames theirs = FfmpegOfWritten(writer, FrameSize);
  ASSERT_EQ(theirs.size(), 5u);
  // ffmpeg keeps the old count of 20 for the B picture's lists and so
  // swaps the two; the other pictures agree.
  Frames expected = theirs;
  for (size_t i = 0; i < FrameSize; ++i) {
    const bool chroma = i >= Count * 256;
    const size_t row = chroma ? (i - Count * 256) % (Count * 64) / (Width * 8) : i / (Width * 16);
    const size_t column = chroma ? (i - Count * 256) % (Width * 8) : i % (Width * 16);
    const size_t address = row / (chroma ? 8 : 16) * Width + column / (chroma ? 8 : 16);
    expected[2][i] = theirs[address % 2 == 0 ? 1 : 3][i];
  }
  ExpectSameFrames(ours, expected);
}

TEST(H264WrittenStream, FrameNumGapsTakeReferenceSlotsAndAreNeverOutput) {
  REQUIRE_FFMPEG();
  CmH264StreamWriter writer;
  SmWriterSps sps = Sequence(3, 0, 3);
  sps.gapsAllowed = true;
  writer.WriteSps(sps);
  SmWriterPps pps;
  pps.numRefIdxActive[0] = 3;
  writer.WritePps(pps);
  writer.WriteSlice(Idr(), IntraPicture(1, Count));
  writer.WriteSlice(WithActive(Slice(SmWriterSlice::P, 1, true, 2), 1), PredictedPicture({0}, 2));
  // Frame 2 is missing: the list is [gap 2, f1, f0], and the sliding
  // window counts the gap frame.
  writer.WriteSlice(Slice(SmWriterSlice::P, 3, true, 6), PredictedPicture({1, 2}, 3));
  // Then two gaps at a time, so that the previous real frame is always the
  // third entry; the last jump wraps frame_num round its maximum of 16.
  uint32_t frameNum = 3;
  for (int k = 0; k < 5; ++k) {
    frameNum = (frameNum + 3) % 16;
    writer.WriteSlice(Slice(SmWriterSlice::P, frameNum, true, (12 + 6 * k) % 64),
                      PredictedPicture({2}, 4 + k));
  }
  // And one without a gap, which may use its predecessor and two gaps.
  writer.WriteSlice(WithActive(Slice(SmWriterSlice::P, (frameNum + 1) % 16, true, 44), 1),
                    PredictedPicture({0}, 10));

  ExpectWrittenSameAsFfmpeg(writer, 9, FrameSize);

  // With order counts of type 1 a gap frame has a count of its own: 4 for
  // frame 1 here, so that a B picture at 6 finds it first in list 0 and the
  // IDR picture second.
  CmH264StreamWriter typeOne;
  sps.pocType = 1;
  sps.offsetForRefFrame = {4};
  sps.offsetForNonRefPic = -2;
  sps.numReorderFrames = 1;
  typeOne.WriteSps(sps);
  pps.numRefIdxActive[1] = 3;
  typeOne.WritePps(pps);
  typeOne.WriteSlice(Idr(), IntraPicture(1, Count));
  typeOne.WriteSlice(Slice(SmWriterSlice::P, 2), PredictedPicture({1}, 2)); // 8
  typeOne.WriteSlice(Slice(SmWriterSlice::B, 3, false), Copies(1, 0));      // 6
  typeOne.WriteSlice(Slice(SmWriterSlice::P, 3), PredictedPicture({0}, 3)); // 12
  ExpectWrittenSameAsFfmpeg(typeOne, 4, FrameSize);
}

TEST(H264WrittenStream, ExplicitAndImplicitWeightsInBSlicesMatchFfmpeg) {
  REQUIRE_FFMPEG();
  for (const uint32_t filter : {1u, 0u, 2u}) {
    SCOPED_TRACE(filter);
    CmH264StreamWriter writer;
    const auto write = FilteredPictures(writer, filter);
    // Order counts of type 1: reference frames 6 apart, non-reference frames
    // 4 before the next reference frame, moved by their own delta.
    // Order count 4 comes after 6, 12, 8 and 10.
    SmWriterSps sps = Sequence(3, 4, 5, 1);
    sps.offsetForRefFrame = {6};
    sps.offsetForNonRefPic = -4;
    writer.WriteSps(sps);
    writer.WritePps(SmWriterPps{});
    SmWriterPps explicitWeights;
    explicitWeights.id = 1;
    explicitWeights.weightedBipredIdc = 1;
    explicitWeights.numRefIdxActive[0] = explicitWeights.numRefIdxActive[1] = 2;
    writer.WritePps(explicitWeights);
    SmWriterPps implicitWeights = explicitWeights;
    implicitWeights.id = 2;
    implicitWeights.weightedBipredIdc = 2;
    writer.WritePps(implicitWeights);

    write(Idr(), IntraPicture(1, Count));                        // 0
    write(Slice(SmWriterSlice::P, 1), PredictedPicture({0}, 2)); // 6
    write(WithActive(Slice(SmWriterSlice::P, 2), 2),             // 12
          PredictedPicture({0, 1}, 3));
    const auto b = [](uint32_t pps, int32_t delta) {
      SmWriterSlice slice = Slice(SmWriterSlice::B, 3, false);
      slice.ppsId = pps;
      slice.deltaPoc[0] = delta;
      return slice;
    };
    // Order count 8: lists [6, 0] and [12, 6]. Luma weights over 1, chroma
    // over 128, negative ones among them; each pair's sum within the bounds.
    SmWriterSlice fine = b(1, 0);
    fine.lumaLog2Denom = 0;
    fine.chromaLog2Denom = 7;
    fine.weights[0] = {Weight(-1, 20, 100, -10, -30, 5), Weight(2, -5, 60, 0, 30, -2)};
    fine.weights[1] = {Weight(1, 3, 20, 4, 90, 0), Weight(1, 0, -20, 7, 50, 1)};
    fine.weights[1][1].luma = false; // the default weight
    write(fine, BiPredictedPicture(4));
    // Order count 10: luma over 128, chroma over 1.
    SmWriterSlice coarse = b(1, 2);
    coarse.lumaLog2Denom = 7;
    coarse.chromaLog2Denom = 0;
    coarse.weights[0] = {Weight(90, -7, -2, 3, 1, -1), Weight(-40, 12, 1, 0, 1, 0)};
    coarse.weights[1] = {Weight(30, 0, 1, 0, 1, 0), Weight(37, -128, 3, 0, -1, 9)};
    coarse.weights[0][1].chroma = false;
    write(coarse, BiPredictedPicture(5));
    // Implicit weights. Order count 4: lists [0, 6] and [6, 12]; pairs give
    // weights of 22 and 42, equal pictures the default, and -22 and 86.
    write(b(2, -4), BiPredictedPicture(6));
    // Order count 13: lists [12, 6, 0] and [6, 12, 0] (the second swapped as
    // it would equal the first); 0 with 6 lies too far out and falls back to
    // the default.
    write(WithActive(b(2, 5), 3, 3), BiPredictedPicture(7, 3, 3));
    // Order count 24: lists [12, 6, 0] and [6, 12]; 0 with 12 lies exactly
    // at the edge, where the weights are still computed: -64 and 128.
    write(WithActive(b(2, 16), 3, 2), BiPredictedPicture(11, 3, 2));
    write(WithActive(Slice(SmWriterSlice::P, 3), 2), PredictedPicture({1, 0}, 8)); // 18
    // An IDR picture at order count 0: the group before it leaves first.
    write(Idr(1), IntraPicture(9, Count));
    write(Slice(SmWriterSlice::P, 1), PredictedPicture({0}, 10));

    const Frames expected = ExpectWrittenSameAsFfmpeg(writer, 11, FrameSize);

    // At another playback rate nothing waits: the pictures leave in decoding
    // order.
    MCL::SmTaskSupplierSettings fast;
    fast.playbackMode = 2;
    Frames inDecodingOrder;
    if (expected.size() == 11) {
      for (const size_t i : {0, 2, 5, 3, 4, 1, 6, 8, 7, 9, 10}) {
        inDecodingOrder.push_back(expected[i]);
      }
    }
    ExpectSameFrames(DecodeWritten(writer, fast).pictures, inDecodingOrder);
  }
}

TEST(H264WrittenStream, StreamsThatBeginWithoutAnIdrPicture) {
  REQUIRE_FFMPEG();
  // A non-IDR I picture first: everything decodes as from an IDR. The
  // pictures are cropped on the right and at the bottom (to odd chroma
  // sizes).
  CmH264StreamWriter intra;
  SmWriterSps sps = Sequence(2, 0, 2, 2);
  sps.cropRight = 6;
  sps.cropBottom = 2;
  intra.WriteSps(sps);
  intra.WritePps(SmWriterPps{});
  intra.WriteSlice(Slice(SmWriterSlice::I, 0), IntraPicture(1, Count));
  intra.WriteSlice(Slice(SmWriterSlice::P, 1), PredictedPicture({0}, 2));
  intra.WriteSlice(WithActive(Slice(SmWriterSlice::P, 2), 2), PredictedPicture({1, 0}, 3));
  ExpectWrittenSameAsFfmpeg(intra, 3, 58 * 46 + 2 * 29 * 23, "-flags2 showall");

  // A P picture first: it predicts from a made-up grey frame, and what
  // follows from it.
  CmH264StreamWriter predicted;
  sps.cropRight = sps.cropBottom = 0;
  sps.maxNumRefFrames = 1;
  predicted.WriteSps(sps);
  predicted.WritePps(SmWriterPps{});
  predicted.WriteSlice(Slice(SmWriterSlice::P, 5), PredictedPicture({0}, 1));
  predicted.WriteSlice(Slice(SmWriterSlice::P, 6), PredictedPicture({0}, 2));
  predicted.WriteSlice(Slice(SmWriterSlice::I, 7), IntraPicture(3, Count));
  predicted.WriteSlice(Slice(SmWriterSlice::P, 8), PredictedPicture({0}, 4));
  ExpectWrittenSameAsFfmpeg(predicted, 4, FrameSize, "-flags2 showall");
}

TEST(H264WrittenStream, SliceGroupsOfEveryMapTypeInAnySliceOrder) {
  // ffmpeg decodes no slice groups, so the pictures are built to be known:
  // I_PCM samples, and copies of them without motion. The maps are those
  // worked out by hand for the slice group map test.
  struct SmCase {
    uint32_t type, groups, cycle[2];
    bool direction;
    const char* maps[2]; // of the I and of the P picture
  } cases[] = {
      {0, 2, {0, 0}, false, {"001001001001", "001001001001"}},
      {1, 3, {0, 0}, false, {"012012010120", "012012010120"}},
      {2, 3, {0, 0}, false, {"112210021122", "112210021122"}},
      {3, 2, {3, 3}, false, {"101110011111", "101110011111"}},
      {4, 2, {5, 7}, false, {"000001111111", "000000011111"}},
      {4, 2, {5, 5}, true, {"111111100000", "111111100000"}},
      {5, 2, {5, 5}, false, {"001100110111", "001100110111"}},
      {6, 3, {0, 0}, false, {"210012201102", "210012201102"}},
  };
  for (const SmCase& c : cases) {
    SCOPED_TRACE(c.maps[1]);
    CmH264StreamWriter writer;
    SmWriterSps sps;
    sps.profileIdc = 66;
    writer.WriteSps(sps);
    SmWriterPps pps;
    pps.numSliceGroups = c.groups;
    pps.mapType = c.type;
    pps.changeDirection = c.direction;
    pps.runLengthMinus1 = {1, 0};
    pps.topLeft = {5, 0};
    pps.bottomRight = {6, 9};
    for (const char* unit = c.maps[0]; *unit != 0; ++unit) {
      pps.sliceGroupId.push_back(static_cast<uint32_t>(*unit - '0'));
    }
    writer.WritePps(pps);
    // The P picture copies two of every three macroblocks, one of them skipped.
    Frames known(2);
    for (int picture = 0; picture < 2; ++picture) {
      const std::string map = c.maps[picture];
      std::vector<MB> byAddress, shown;
      for (uint32_t a = 0; a < Count; ++a) {
        const bool copied = picture == 1 && a % 3 != 0;
        byAddress.push_back(!copied      ? Textured(picture, a)
                            : a % 3 == 2 ? MB{}
                                         : MB::Predicted(MB::L0, 0, 0, 0));
        shown.push_back(Textured(copied ? 0 : picture, a));
      }
      Place(known[static_cast<size_t>(picture)], shown, Width, Height);
      // Slices of at most two macroblocks of one group, written last first,
      // so that the slice at macroblock 0 comes late.
      std::vector<std::vector<uint32_t>> slices;
      for (uint32_t group = 0; group < c.groups; ++group) {
        std::vector<uint32_t> addresses;
        for (uint32_t a = 0; a < Count; ++a) {
          if (map[a] == static_cast<char>('0' + group)) {
            addresses.push_back(a);
          }
        }
        for (size_t at = 0; at < addresses.size(); at += 2) {
          slices.emplace_back(addresses.begin() + static_cast<std::ptrdiff_t>(at),
                              addresses.begin() +
                                  static_cast<std::ptrdiff_t>(std::min(at + 2, addresses.size())));
        }
      }
      for (auto slice = slices.rbegin(); slice != slices.rend(); ++slice) {
        SmWriterSlice header = picture == 0 ? Idr() : Slice(SmWriterSlice::P, 1);
        header.firstMb = slice->front();
        header.pocLsb = 2 * picture;
        header.sliceGroupChangeCycle = c.cycle[picture];
        std::vector<MB> mbs;
        for (const uint32_t a : *slice) {
          mbs.push_back(byAddress[a]);
        }
        writer.WriteSlice(header, mbs);
      }
    }
    const SmSupplied ours = DecodeWritten(writer);
    EXPECT_TRUE(ours.allAccepted);
    ExpectSameFrames(ours.pictures, known);
    // The same units behind lengths instead of start codes.
    MCL::SmTaskSupplierSettings prefixed;
    prefixed.lengthPrefixed = true;
    ExpectSameFrames(DecodeWritten(writer, prefixed).pictures, known);
  }
}

TEST(H264Intake, StatusesAtTheEdges) {
  // The decoder shell: a flush with nothing held and an input of three
  // bytes, consumed, both ask for more; a held picture leaves at the flush,
  // and then nothing is held again.
  CmShell shell;
  MCL::H264VideoDecoder& decoder = shell.decoder;
  MCL::MediaData& output = shell.output;
  EXPECT_EQ(decoder.GetFrame(nullptr, &output), MCL::StatusNotEnoughData);
  const uint8_t three[] = {0, 0, 1};
  MCL::MediaData input;
  input.SetBufferPointer(three, sizeof three);
  input.SetDataSize(sizeof three);
  EXPECT_EQ(decoder.GetFrame(&input, &output), MCL::StatusNotEnoughData);
  EXPECT_EQ(input.GetDataSize(), 0u);
  CmH264StreamWriter writer;
  writer.WriteSps(SmWriterSps{}); // Main profile without limits: pictures wait for reordering
  writer.WritePps(SmWriterPps{});
  writer.WriteSlice(Idr(), IntraPicture(1, Count));
  const std::vector<uint8_t> record = writer.AnnexB();
  input.SetBufferPointer(record.data(), record.size());
  input.SetDataSize(record.size());
  EXPECT_EQ(decoder.GetFrame(&input, &output), MCL::StatusNotEnoughData);
  EXPECT_EQ(input.GetDataSize(), 0u);
  EXPECT_EQ(decoder.GetFrame(nullptr, &output), MCL::StatusOk);
  EXPECT_EQ(decoder.GetFrame(nullptr, &output), MCL::StatusNotEnoughData);

  // The supplier: with no output taken, the store fills (the delay of 0 and
  // one reference allow extraFrames + dpbSize + 1 frames); twenty pictures
  // that find no frame are dropped quietly, the twenty-first makes the
  // stream invalid, and once frames leave, a picture decodes again.
  CmH264StreamWriter stream;
  stream.WriteSps(Sequence(1, 0, 1));
  stream.WritePps(SmWriterPps{});
  stream.WriteSlice(Idr(), IntraPicture(1, Count));
  for (uint32_t k = 1; k <= 26; ++k) {
    SmWriterSlice slice = Slice(SmWriterSlice::I, k % 16);
    slice.pocLsb = 2 * k % 64;
    stream.WriteSlice(slice, IntraPicture(static_cast<int>(k), Count));
  }
  MCL::SmTaskSupplierSettings settings;
  settings.wholeFramePerBuffer = true; // each status belongs to its own picture
  MCL::TaskSupplier supplier(settings);
  std::vector<int32_t> statuses;
  const Frames units = Framed(stream.Units());
  for (const Bytes& bytes : units) {
    if (&bytes == &units.back()) {
      while (supplier.GetFrameToDisplay(false) != nullptr) {
      }
    }
    statuses.push_back(supplier.AddSource(bytes.data(), bytes.size(), -1.0, -1));
  }
  // Two parameter sets, four pictures that find frames, twenty that do not.
  const size_t limit = static_cast<size_t>(supplier.GetExtraFrames() + supplier.GetDpbSize()) + 1;
  ASSERT_EQ(limit, 4u);
  ASSERT_EQ(statuses.size(), 2u + 27u);
  EXPECT_EQ(std::count(statuses.begin(), statuses.begin() + 2 + 4 + 20, 0), 26);
  EXPECT_EQ(statuses[26], MCL::StatusInvalidStream);
  EXPECT_EQ(statuses[27], MCL::StatusInvalidStream);
  EXPECT_EQ(statuses[28], 0);
  EXPECT_EQ(supplier.GetFrameCount(), limit);
  supplier.Flush();
  EXPECT_NE(supplier.GetFrameToDisplay(true), nullptr);
}

TEST(H264WrittenStream, LongTermReferencesUnderWeightsAndTemporalDirect) {
  REQUIRE_FFMPEG();
  // Explicit weights in P slices over a long-term reference; in B slices
  // implicit weights fall back to the default for a long-term reference,
  // and temporal direct copies the co-located vector for one.
  CmH264StreamWriter writer;
  writer.WriteSps(Sequence(3, 3, 4)); // order count 4 comes after 8, 16 and 12
  writer.WritePps(SmWriterPps{});
  SmWriterPps weightedP;
  weightedP.id = 1;
  weightedP.weightedPred = true;
  weightedP.numRefIdxActive[0] = 2;
  writer.WritePps(weightedP);
  SmWriterPps implicitB;
  implicitB.id = 2;
  implicitB.weightedBipredIdc = 2;
  implicitB.numRefIdxActive[0] = implicitB.numRefIdxActive[1] = 3;
  writer.WritePps(implicitB);

  SmWriterSlice idr = Idr();
  idr.longTermReference = true;
  writer.WriteSlice(idr, IntraPicture(1, Count));
  SmWriterSlice first = WithActive(Slice(SmWriterSlice::P, 1), 1);
  first.ppsId = 1;
  first.pocLsb = 8;
  first.lumaLog2Denom = 5;
  first.chromaLog2Denom = 2;
  first.weights[0] = {Weight(40, -3, 3, 10, 5, -9)};
  writer.WriteSlice(first, PredictedPicture({0}, 2));
  // [f1, LT0]; the macroblocks that lie under the B pictures' direct ones
  // use LT0.
  SmWriterSlice second = Slice(SmWriterSlice::P, 2);
  second.ppsId = 1;
  second.pocLsb = 16;
  second.lumaLog2Denom = 6;
  second.chromaLog2Denom = 0;
  second.weights[0] = {Weight(70, 4, 1, 0, 2, -20), Weight(-10, 100, -1, 127, 1, 0)};
  writer.WriteSlice(second, PredictedPicture({1, 0, 1}, 3));
  // Lists [f1, f2, LT0] and [f2, f1, LT0]; then [f1, f2, LT0] and, as it
  // would be the same, [f2, f1, LT0].
  for (const uint32_t poc : {12u, 4u}) {
    SmWriterSlice b = Slice(SmWriterSlice::B, 3, false, poc);
    b.ppsId = 2;
    b.directSpatial = false;
    writer.WriteSlice(b, BiPredictedPicture(static_cast<int>(poc), 3, 3));
  }
  writer.WriteSlice(Slice(SmWriterSlice::P, 3, true, 24), PredictedPicture({0}, 6));

  ExpectWrittenSameAsFfmpeg(writer, 6, FrameSize);
}
