#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "Codecs/H264/FrameStore.h"
#include "Codecs/H264/NalUnits.h"
#include "Codecs/H264/SliceGroupMap.h"
#include "Codecs/H264/TaskSupplier.h"
#include "H264/ReferenceDecoding.h"

using namespace MCL;
using namespace NmH264Test;

namespace {

// A frame taken for a displayable picture with the given counts.
H264DecoderFrame* Take(H264DBPList& list, int32_t poc, bool hasPicture = true) {
  H264DecoderFrame* frame = list.GetFreeFrame(64);
  frame->isDisplayable = true;
  frame->hasPicture = hasPicture;
  frame->picOrderCnt[0] = frame->picOrderCnt[1] = poc;
  return frame;
}

} // namespace

TEST(H264FrameStore, IndicesReuseAndOutputOrder) {
  H264DBPList list;
  // Indices are the lowest free numbers; the 33rd frame has none left.
  std::vector<H264DecoderFrame*> frames;
  for (int i = 0; i < 33; ++i) {
    frames.push_back(list.GetFreeFrame(64));
    frames.back()->isShortRef[0] = true; // held, so that no frame is free again
  }
  EXPECT_EQ(frames[0]->uniqueIndex, 0);
  EXPECT_EQ(frames[31]->uniqueIndex, 31);
  EXPECT_EQ(frames[32]->uniqueIndex, -1);
  // Beyond the limit no frame is made; a freed frame is taken again and
  // goes to the end of the age order.
  EXPECT_EQ(list.GetFreeFrame(10), nullptr);
  frames[5]->isShortRef[0] = false;
  EXPECT_EQ(list.GetFreeFrame(10), frames[5]);
  EXPECT_EQ(list.GetTail(), frames[5]);
  EXPECT_EQ(frames[5]->uniqueIndex, 5);

  // Output: by picture order count within a generation, older generations
  // first, a real picture before a gap frame of the same count, and in
  // decoding order when nothing is delayed.
  H264DBPList store;
  H264DecoderFrame* p8 = Take(store, 8);
  H264DecoderFrame* p4 = Take(store, 4);
  store.StartNewGeneration(); // an IDR arrives
  H264DecoderFrame* idr = Take(store, 0);
  idr->resetCount[0] = idr->resetCount[1] = 0;
  EXPECT_EQ(store.ChooseForOutput(2, 4), p4);
  EXPECT_EQ(store.ChooseForOutput(0, 4), p8);
  p4->wasOutputted = p8->wasOutputted = true;
  H264DecoderFrame* gap = Take(store, 2, false);
  H264DecoderFrame* real = Take(store, 2);
  EXPECT_EQ(store.ChooseForOutput(2, 4), idr);
  idr->wasOutputted = true;
  EXPECT_EQ(store.ChooseForOutput(2, 4), real);
  EXPECT_NE(gap, real);
  // Frames that still serve as references count, output or not; frames in
  // decoding count and block.
  idr->isShortRef[0] = true;
  real->decodingState = 2;
  EXPECT_EQ(store.CountForOutput(), 3); // idr, gap, real
}

TEST(H264Supplier, PiecesLongRunsAndTheEndOfTheStream) {
  REQUIRE_FFMPEG();
  const SmEncoded clip = EncodeWithX264(
      {"64x48", "yuv420p", "cabac=0:bframes=0:keyint=6:min-keyint=6:scenecut=0:qp=26", 12});
  ASSERT_EQ(clip.pictures.size(), 12u);
  const Frames units = AnnexBUnits(clip.stream);

  // The stream cut anywhere, in pieces of 13 bytes, gives the same
  // pictures as whole units: a unit waits for its end.
  Frames pieces;
  for (size_t at = 0; at < clip.stream.size(); at += 13) {
    pieces.emplace_back(clip.stream.begin() + static_cast<std::ptrdiff_t>(at),
                        clip.stream.begin() +
                            static_cast<std::ptrdiff_t>(std::min(at + 13, clip.stream.size())));
  }
  ExpectSameFrames(DecodeWithSupplier(pieces).pictures, clip.pictures);

  // Ten thousand pictures (the clip again and again, each time from its key
  // picture): every one comes out, and the store never holds more frames
  // than its delay and the pictures in flight need.
  TaskSupplier longRun(SmTaskSupplierSettings{});
  size_t delivered = 0;
  size_t mostFrames = 0;
  for (int round = 0; round < 834; ++round) {
    for (const Bytes& unit : units) {
      ASSERT_EQ(longRun.AddSource(unit.data(), unit.size(), -1.0, -1), 0);
      while (longRun.GetFrameToDisplay(false) != nullptr) {
        ++delivered;
      }
      mostFrames = std::max(mostFrames, longRun.GetFrameCount());
    }
  }
  longRun.Flush();
  while (longRun.GetFrameToDisplay(true) != nullptr) {
    ++delivered;
  }
  EXPECT_EQ(delivered, 834u * 12u);
  EXPECT_LE(mostFrames, static_cast<size_t>(longRun.GetDpbSize() + longRun.GetExtraFrames() + 1));

  // After the end of the stream a picture other than a key picture is
  // dropped until the next key picture.
  TaskSupplier ended(SmTaskSupplierSettings{});
  const uint8_t endOfStream[] = {0, 0, 1, 0x0B};
  EXPECT_EQ(ended.AddSource(endOfStream, sizeof endOfStream, -1.0, -1), 0);
  // The unit ends only where the input does.
  EXPECT_FALSE(ended.IsWaitingForKeyUnit());
  ended.Flush();
  EXPECT_TRUE(ended.IsWaitingForKeyUnit());
}

// The maps of every type are proven by decoding streams built on them (the
// written-stream test); here what a map refuses, and how macroblocks follow
// each other in one.
TEST(H264SliceGroups, MapsThatDoNotFitAreRefused) {
  NmH264::SmSequenceParameterSet sps;
  sps.widthInMbs = 4;
  sps.heightInMapUnits = 3;
  // A picture parameter set that does not fit a later, smaller sequence is
  // refused: its rectangle, or its explicit map, covers other map units.
  NmH264::SmPictureParameterSet large;
  large.numSliceGroups = 2;
  large.sliceGroupMapType = 2;
  large.topLeft[0] = 0, large.bottomRight[0] = 13;
  std::vector<uint8_t> refused;
  EXPECT_FALSE(NmH264::BuildSliceGroupMap(sps, large, 0, refused));
  large.sliceGroupMapType = 6;
  large.sliceGroupId.assign(20, 1);
  EXPECT_FALSE(NmH264::BuildSliceGroupMap(sps, large, 0, refused));
  large.sliceGroupId.assign(12, 1);
  EXPECT_TRUE(NmH264::BuildSliceGroupMap(sps, large, 0, refused));
  // Macroblocks follow each other within their group; after the last the
  // picture's size.
  const std::vector<uint8_t> map = {0, 0, 1, 0, 0, 1};
  EXPECT_EQ(NmH264::NextMacroblockAddress(map, 1), 3u);
  EXPECT_EQ(NmH264::NextMacroblockAddress(map, 2), 5u);
  EXPECT_EQ(NmH264::NextMacroblockAddress(map, 5), 6u);
}
