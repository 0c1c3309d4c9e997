// H.264 whose frames are coded as two field pictures: containers store each
// field as a packet of its own, and the import makes one record of the two.

#include <gtest/gtest.h>

#include <cstdlib>

#include "Image/ImageFixtures.h"
#include "MediaProcessing/GenericByteData/GenericByteData.h"
#include "MediaProcessing/GenericByteData/RawVideoByteDataAccess.h"
#include "MediaProcessing/Image/ImageColorFormatConvert.h"
#include "PluginHost.h"
#include "RecordCheck.h"
#include "VzkTestSupport.h"
#include "support/H264StreamWriter.h"

using namespace NmVzkTest;
using NmTestSupport::SmWriterMacroblock;
using NmTestSupport::SmWriterSlice;

namespace {

constexpr uint32_t WidthInMbs = 4, HeightInMbs = 4;
constexpr size_t FrameSize = WidthInMbs * HeightInMbs * 384;
// A frame as the decoding toolkit hands it on: its fields' chroma apart, in 4:2:2.
constexpr size_t ShownSize = WidthInMbs * HeightInMbs * 512;
constexpr size_t Frames = 6;

std::vector<uint8_t> Ffmpeg(const std::string& arguments, const std::string& output) {
  const std::string command = "ffmpeg -nostdin -v error -y " + arguments + " '" + output + "'";
  EXPECT_EQ(std::system(command.c_str()), 0) << command;
  return ReadBytes(output);
}

// I_PCM samples of one field, different for each seed.
std::vector<SmWriterMacroblock> IntraField(int seed) {
  std::vector<SmWriterMacroblock> mbs;
  for (uint32_t address = 0; address < WidthInMbs * HeightInMbs / 2; ++address) {
    SmWriterMacroblock mb;
    mb.kind = SmWriterMacroblock::Pcm;
    for (int y = 0; y < 16; ++y) {
      for (int x = 0; x < 16; ++x) {
        mb.samples.push_back(static_cast<uint8_t>(seed * 41 + x * 5 + y * 9 + address * 3));
      }
    }
    mb.samples.resize(384, static_cast<uint8_t>(100 + seed * 7));
    mbs.push_back(mb);
  }
  return mbs;
}

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
      writer.WriteSlice(idr, IntraField(seed));
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

struct SmStoredFrame {
  bool sync = false;
  bool interlaced = false;
  bool topFieldFirst = false;
  int64_t time = 0;
};

std::vector<SmStoredFrame> StoredFrames(const std::string& recording) {
  std::vector<uint8_t> bytes = ReadBytes(recording);
  std::vector<SmStoredFrame> frames;
  for (size_t at = 0; at < bytes.size();) {
    const uint64_t length = NmRecording::RecordLength(bytes.data() + at, bytes.size() - at);
    if (length == 0 || length > bytes.size() - at) {
      ADD_FAILURE() << "no record at " << at;
      break;
    }
    const NmMediaProcessing::CmGenericByteData record(bytes.data() + at, length);
    const NmMediaProcessing::CmRawVideoByteDataAccess access(record, false);
    frames.push_back({access.GetSync(), access.GetInterlaced(), access.GetTopFieldFirst(),
                      access.GetTime().GetMilliseconds()});
    at += length;
  }
  return frames;
}

// A field-coded stream stored in MP4 and in Matroska imports as one record a
// frame, at the frame's time, sync where the frame opens with an IDR field;
// played, it gives ffmpeg's woven frames, and a move to any frame's time
// lands on that frame.
TEST(VzkImportFieldPairs, EachFramesTwoFieldsBecomeOneRecord) {
  NmVzkTool::CmPluginLibrary library(NmVzkTool::DefaultPluginPath());
  // Each field a packet 20 ms after the one before, in the time units that
  // ffmpeg gives each container for 50 pictures a second.
  for (const auto& [container, fieldTicks] : {std::pair{"mp4", "256"}, {"mkv", "20"}}) {
    SCOPED_TRACE(container);
    CmScratch scratch;
    const std::string stream = scratch.Path("fields.264");
    WriteBytes(stream, FieldPairStream());
    const std::string clip = scratch.Path(std::string("clip.") + container);
    Ffmpeg("-r 50 -i '" + stream + "' -c copy -bsf:v setts=ts=N*" + fieldTicks, clip);
    const std::vector<uint8_t> reference =
        Ffmpeg("-i '" + clip + "' -fps_mode passthrough -f rawvideo -pix_fmt yuv420p",
               scratch.Path("reference.yuv"));
    ASSERT_EQ(reference.size(), Frames * FrameSize);
    const auto expected = [&](size_t f) {
      const auto begin = reference.begin() + static_cast<std::ptrdiff_t>(f * FrameSize);
      return std::vector<uint8_t>(begin, begin + static_cast<std::ptrdiff_t>(FrameSize));
    };

    const std::string recording = scratch.Path("clip.gbd");
    const SmResult imported = RunVzk({"import", clip, recording});
    ASSERT_EQ(imported.status, 0) << imported.err;
    const std::vector<SmStoredFrame> frames = StoredFrames(recording);
    ASSERT_EQ(frames.size(), Frames);
    for (size_t f = 0; f < Frames; ++f) {
      EXPECT_EQ(frames[f].sync, f % 3 == 0) << "frame " << f;
      EXPECT_TRUE(frames[f].interlaced) << "frame " << f;
      EXPECT_TRUE(frames[f].topFieldFirst) << "frame " << f;
      EXPECT_EQ(frames[f].time - frames[0].time, static_cast<int64_t>(40 * f)) << "frame " << f;
    }

    const std::string y4m = scratch.Path("out/out.y4m");
    // The deinterlacer's filter off: the frames come out woven.
    const std::string tree =
        "<?xml version='1.0' encoding='UTF-8'?><toolkit type='source'><provider>vzk</provider>"
        "<config><video_decoder deinterlacing_filter='none'><toolkit type='source'>"
        "<provider>recording</provider><config><recording file='" +
        recording + "'/></config></toolkit></video_decoder></config></toolkit>";
    const SmResult run = RunVzk({"run", scratch.Write("decode.xml", tree), "--format", "y4m",
                                 "--out", scratch.Path("out")});
    EXPECT_EQ(run.status, 0) << run.err;
    const std::string woven = ReadText(y4m);
    const size_t header = woven.find('\n') + 1;
    ASSERT_EQ(woven.size(), header + Frames * (6 + ShownSize));
    for (size_t f = 0; f < Frames; ++f) {
      const auto begin =
          woven.begin() + static_cast<std::ptrdiff_t>(header + f * (6 + ShownSize) + 6);
      EXPECT_TRUE(std::equal(begin, begin + static_cast<std::ptrdiff_t>(ShownSize),
                             Shown(expected(f)).begin(),
                             [](char a, uint8_t b) { return static_cast<uint8_t>(a) == b; }))
          << "picture " << f;
    }

    NmVzkTool::CmToolkitTree played(library, tree);
    NmToolkit::ImPlaybackSourceToolkit& playback = played.Playback();
    NmToolkit::CmPropertyNameSet supported;
    playback.Connect({}, supported, 0);
    played.MarkConnected();
    for (const size_t f : {4u, 1u, 5u, 0u, 3u, 2u}) {
      ASSERT_EQ(playback.MoveTo(frames[f].time, NmToolkit::MoveAtOrAfter),
                NmToolkit::StatusSuccess);
      int64_t time = 0;
      EXPECT_TRUE(PictureHere(playback, time) == Shown(expected(f))) << "jump to frame " << f;
      EXPECT_EQ(time, frames[f].time);
    }
    played.DisconnectQuietly();
  }
}

} // namespace
