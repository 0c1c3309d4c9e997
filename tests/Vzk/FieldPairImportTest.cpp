// H.264 whose frames are coded as two field pictures: containers store each
// field as a packet of its own, and the import makes one record of the two.

#include <gtest/gtest.h>

#include "H264/WrittenStreams.h"
#include "Image/ImageFixtures.h"
#include "MediaProcessing/Image/ImageColorFormatConvert.h"
#include "VzkTestSupport.h"

using namespace NmVzkTest;
using NmTestSupport::SmWriterMacroblock;
using NmTestSupport::SmWriterSlice;

namespace {

constexpr uint32_t WidthInMbs = 4, HeightInMbs = 4;
constexpr size_t FrameSize = WidthInMbs * HeightInMbs * 384;
// A frame as the decoding toolkit hands it on: its fields' chroma apart, in 4:2:2.
constexpr size_t ShownSize = WidthInMbs * HeightInMbs * 512;
constexpr size_t Frames = 6;

std::vector<SmWriterMacroblock> PredictedField(int seed) {
  std::vector<SmWriterMacroblock> mbs;
  for (uint32_t address = 0; address < WidthInMbs * HeightInMbs / 2; ++address) {
    mbs.push_back(SmWriterMacroblock::Predicted(SmWriterMacroblock::L0, 0,
                                                static_cast<int32_t>(address % 3) + seed,
                                                static_cast<int32_t>(address % 2) * 2 - 1));
  }
  return mbs;
}

SmWriterSlice Field(uint32_t type, uint32_t frameNum, bool bottom, uint32_t pocLsb) {
  SmWriterSlice slice;
  slice.type = type;
  slice.frameNum = frameNum;
  slice.field = true;
  slice.bottom = bottom;
  slice.pocLsb = pocLsb;
  return slice;
}

// Six frames of field pairs, top field first, in two groups: each opens
// with an intra top field (an IDR) whose bottom field predicts from it.
std::vector<uint8_t> FieldPairStream() {
  NmTestSupport::CmH264StreamWriter writer;
  NmTestSupport::SmWriterSps sps;
  sps.frameMbsOnly = false;
  sps.widthInMbs = WidthInMbs;
  sps.heightInMbs = HeightInMbs;
  sps.maxNumRefFrames = 2;
  sps.log2MaxPocLsb = 8;
  writer.WriteSps(sps);
  writer.WritePps(NmTestSupport::SmWriterPps{});
  for (uint32_t frame = 0; frame < Frames; ++frame) {
    const uint32_t inGroup = frame % 3;
    const int seed = static_cast<int>(frame);
    if (inGroup == 0) {
      SmWriterSlice idr = Field(SmWriterSlice::I, 0, false, 0);
      idr.idr = true;
      idr.idrPicId = frame / 3;
      writer.WriteSlice(idr,
                        NmH264Test::IntraPicture(seed, WidthInMbs * HeightInMbs / 2, WidthInMbs));
    } else {
      writer.WriteSlice(Field(SmWriterSlice::P, inGroup, false, 4 * inGroup), PredictedField(seed));
    }
    writer.WriteSlice(Field(SmWriterSlice::P, inGroup, true, 4 * inGroup + 1),
                      PredictedField(seed + 1));
  }
  return writer.AnnexB();
}

// A woven 4:2:0 frame of ffmpeg's as the decoding toolkit shows an
// interlaced frame: put together by the image library's field-aware 4:2:2
// conversion, which keeps each field's chroma to its own rows.
std::vector<uint8_t> Shown(const std::vector<uint8_t>& woven) {
  using namespace NmMediaProcessing;
  CmImage frame;
  frame.Allocate(WidthInMbs * 16, HeightInMbs * 16, YCbCr420_Planar);
  size_t at = 0;
  for (uint64_t p = 0; p < 3; ++p) {
    const auto plane = frame.Allocator().GetWriteablePlane(p);
    for (uint64_t y = 0; y < plane.height; ++y, at += plane.width) {
      std::copy_n(woven.begin() + static_cast<std::ptrdiff_t>(at), plane.width,
                  plane.data + y * plane.rowStride);
    }
  }
  frame.GetAttributes().interlacing = InterleavedTopFirst;
  frame.GetAttributes().subColorFormat = SubColorFormatVideoRange;
  CmImage shown;
  CmImageColorFormatConvert(YCbCr422_Planar).Execute(frame, shown);
  std::vector<uint8_t> flat;
  for (const auto& plane : NmImageTest::Planes(shown)) {
    flat.insert(flat.end(), plane.begin(), plane.end());
  }
  return flat;
}

// A field-coded stream stored in MP4 and in Matroska imports as one record a
// frame, at the frame's time, sync where the frame opens with an IDR field;
// with the deinterlacer's filter off it gives ffmpeg's woven frames, played
// through or moved about in.
TEST(VzkImportFieldPairs, EachFramesTwoFieldsBecomeOneRecord) {
  // Each field a packet 20 ms after the one before, in the time units that
  // ffmpeg gives each container for 50 pictures a second.
  for (const auto& [container, fieldTicks] : {std::pair{"mp4", "256"}, {"mkv", "20"}}) {
    SCOPED_TRACE(container);
    CmScratch scratch;
    const std::string stream = scratch.Path("fields.264");
    WriteBytes(stream, FieldPairStream());
    const std::string clip = scratch.Path(std::string("clip.") + container);
    Ffmpeg("-r 50 -i '" + stream + "' -c copy -bsf:v setts=ts=N*" + fieldTicks, clip);
    CmPictures reference = ReferencePictures(scratch, clip, FrameSize);
    ASSERT_EQ(reference.size(), Frames);
    for (auto& picture : reference) {
      picture = Shown(picture);
    }

    const std::string recording = Import(scratch, clip);
    const std::vector<SmStoredFrame> frames = StoredFrames(recording);
    ASSERT_EQ(frames.size(), Frames);
    for (size_t f = 0; f < Frames; ++f) {
      EXPECT_EQ(frames[f].sync, f % 3 == 0) << "frame " << f;
      EXPECT_TRUE(frames[f].interlaced) << "frame " << f;
      EXPECT_TRUE(frames[f].topFieldFirst) << "frame " << f;
      EXPECT_EQ(frames[f].time - frames[0].time, static_cast<int64_t>(40 * f)) << "frame " << f;
    }

    const std::string tree = RecordingTree(recording, "video_decoder deinterlacing_filter='none'");
    ExpectSamePictures(RunY4m(scratch, tree, ShownSize), reference);
    const std::vector<int64_t> times = ExpectPlaybackLandsOnReference(tree, reference);
    for (size_t f = 0; f < Frames; ++f) {
      EXPECT_EQ(times[f], frames[f].time) << "frame " << f;
    }
  }
}

} // namespace
