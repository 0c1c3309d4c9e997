// MPEG-4 Part 2 and H.263 clips through vzk import, info and run: ffmpeg's
// own pictures, wherever playback goes.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <random>

#include "MediaProcessing/GenericByteData/GenericByteData.h"
#include "MediaProcessing/GenericByteData/RawVideoByteDataAccess.h"
#include "PictureConversion.h"
#include "PluginHost.h"
#include "RecordCheck.h"
#include "VzkTestSupport.h"
#include "support/RtspTestServer.h"

using namespace NmVzkTest;

namespace {

std::vector<uint8_t> FfmpegTo(const std::string& arguments, const std::string& output) {
  const std::string command = "ffmpeg -nostdin -v error -y " + arguments + " '" + output + "'";
  EXPECT_EQ(std::system(command.c_str()), 0) << command;
  return ReadBytes(output);
}

struct SmClipCase {
  const char* name;
  const char* file;
  const char* options;
  int width;
  int height;
  size_t frames;
};

std::string MakeClip(const CmScratch& scratch, const SmClipCase& c) {
  const std::string clip = scratch.Path(c.file);
  FfmpegTo("-f lavfi -i testsrc2=size=" + std::to_string(c.width) + "x" + std::to_string(c.height) +
               ":rate=25 -frames:v " + std::to_string(c.frames) +
               " -vf noise=alls=16:allf=t -pix_fmt yuv420p " + c.options,
           clip);
  return clip;
}

// ffmpeg's decode on one thread, picture by picture.
std::vector<std::vector<uint8_t>> Reference(const CmScratch& scratch, const std::string& clip,
                                            size_t frameSize) {
  const std::vector<uint8_t> bytes =
      FfmpegTo("-threads 1 -i '" + clip + "' -vsync passthrough -f rawvideo -pix_fmt yuv420p",
               scratch.Path("reference.yuv"));
  std::vector<std::vector<uint8_t>> pictures;
  for (size_t at = 0; at + frameSize <= bytes.size(); at += frameSize) {
    pictures.emplace_back(bytes.begin() + static_cast<std::ptrdiff_t>(at),
                          bytes.begin() + static_cast<std::ptrdiff_t>(at + frameSize));
  }
  return pictures;
}

// The pictures that `vzk run --format y4m` writes for a tree.
// Items that give no picture make it fail unless `allLost` allows them.
std::vector<std::vector<uint8_t>> RunY4m(const CmScratch& scratch, const std::string& tree,
                                         size_t frameSize, bool allLost = false) {
  const SmResult run = RunVzk({"run", tree, "--format", "y4m", "--out", scratch.Path("out")});
  if (!allLost) {
    EXPECT_EQ(run.status, 0) << run.err;
  }
  const std::string stream = ReadText(scratch.Path("out/out.y4m"));
  std::vector<std::vector<uint8_t>> pictures;
  if (stream.rfind("YUV4MPEG2 ", 0) != 0) {
    ADD_FAILURE() << "no y4m stream";
    return pictures;
  }
  for (size_t at = stream.find('\n') + 1; at + 6 + frameSize <= stream.size();
       at += 6 + frameSize) {
    EXPECT_EQ(stream.substr(at, 6), "FRAME\n");
    pictures.emplace_back(stream.begin() + static_cast<std::ptrdiff_t>(at + 6),
                          stream.begin() + static_cast<std::ptrdiff_t>(at + 6 + frameSize));
  }
  return pictures;
}

// The coding types of the clip's pictures in display order ('I', 'P',
// 'B', 'S'), as ffprobe sees them.
std::string PictureTypes(const CmScratch& scratch, const std::string& clip) {
  const std::string types = scratch.Path("types.txt");
  const std::string command = "ffprobe -v error -threads 1 -select_streams v -show_entries "
                              "frame=pict_type -of csv=p=0 '" +
                              clip + "' > '" + types + "'";
  EXPECT_EQ(std::system(command.c_str()), 0);
  std::string listed;
  for (const char c : ReadText(types)) {
    if (c != '\n') {
      listed.push_back(c);
    }
  }
  return listed;
}

const SmClipCase kBFrames{"MPEG-4 with B pictures, closed groups",
                          "b.mp4",
                          "-c:v mpeg4 -bf 2 -flags +qpel+cgop -sc_threshold 1000000000 -g 8 -q:v 4",
                          80,
                          48,
                          24};
const SmClipCase kXvid{"Xvid: B, quarter-pel, global motion, packed",
                       "xvid.avi",
                       "-c:v libxvid -bf 2 -flags +qpel+cgop -gmc 1 -g 9 -q:v 5",
                       96,
                       64,
                       20};
// Groups whose B pictures in front of the intra picture refer back into the
// group before.
const SmClipCase kOpenGroups{
    "open groups", "open.avi", "-c:v mpeg4 -bf 2 -g 25 -q:v 4", 64, 48, 50};

// Imported from AVI, MP4 and MKV, the clips decode through "video_decoder"
// to ffmpeg's pictures, to the bit, and vzk info names codec and size.
TEST(VzkImportMPEG4, DecodedClipsEqualFfmpegsDecode) {
  const SmClipCase cases[] = {
      {"MPEG-4 simple", "simple.mp4", "-c:v mpeg4 -bf 0 -g 10 -q:v 5", 100, 60, 12},
      kBFrames,
      kXvid,
      kOpenGroups,
      {"MPEG-4 interlaced", "interlaced.mkv", "-c:v mpeg4 -flags +ildct+ilme -g 6 -q:v 4", 96, 64,
       10},
      {"H.263 QCIF", "qcif.avi", "-c:v h263 -g 5 -q:v 5", 176, 144, 8},
      {"H.263+ with annexes", "plus.mkv",
       "-c:v h263p -flags +aic+loop -umv 1 -aiv 1 -structured_slices 1 -g 5 -q:v 5", 160, 112, 8},
  };
  for (const SmClipCase& c : cases) {
    SCOPED_TRACE(c.name);
    CmScratch scratch;
    const std::string clip = MakeClip(scratch, c);
    const size_t frameSize = static_cast<size_t>(c.width * c.height * 3 / 2);
    const auto reference = Reference(scratch, clip, frameSize);
    ASSERT_GE(reference.size(), c.frames - 1);
    const std::string recording = scratch.Path("clip.gbd");
    const SmResult imported = RunVzk({"import", clip, recording});
    ASSERT_EQ(imported.status, 0) << imported.err;
    const SmResult info = RunVzk({"info", recording});
    const std::string codec =
        std::string(c.name).find("263") != std::string::npos ? "H.263" : "MPEG-4";
    EXPECT_NE(info.out.find(codec), std::string::npos) << info.out;
    EXPECT_NE(info.out.find(" " + std::to_string(c.width) + "x" + std::to_string(c.height) + "\n"),
              std::string::npos)
        << info.out;
    const auto pictures = RunY4m(
        scratch, scratch.Write("decode.xml", RecordingTree(recording, "video_decoder")), frameSize);
    ASSERT_EQ(pictures.size(), reference.size());
    for (size_t f = 0; f < pictures.size(); ++f) {
      EXPECT_TRUE(pictures[f] == reference[f]) << "picture " << f;
    }
  }
}

// The key-frames-only decoder gives the intra pictures and nothing else: the
// items of the others are told as not delivered.
TEST(VzkImportMPEG4, KeyFramesOnlyDecodesTheIntraPictures) {
  CmScratch scratch;
  const std::string clip = MakeClip(scratch, kBFrames);
  const size_t frameSize = static_cast<size_t>(kBFrames.width * kBFrames.height * 3 / 2);
  const auto reference = Reference(scratch, clip, frameSize);
  ASSERT_EQ(reference.size(), kBFrames.frames);
  const std::string recording = scratch.Path("clip.gbd");
  ASSERT_EQ(RunVzk({"import", clip, recording}).status, 0);
  const auto pictures = RunY4m(
      scratch, scratch.Write("keys.xml", RecordingTree(recording, "key_frames_only_video_decoder")),
      frameSize, true);
  const std::string listed = PictureTypes(scratch, clip);
  std::vector<size_t> intra;
  for (size_t f = 0; f < listed.size(); ++f) {
    if (listed[f] == 'I') {
      intra.push_back(f);
    }
  }
  ASSERT_GE(intra.size(), 3u);
  ASSERT_EQ(pictures.size(), intra.size());
  for (size_t k = 0; k < pictures.size(); ++k) {
    EXPECT_TRUE(pictures[k] == reference[intra[k]]) << "intra picture " << k;
  }
}

// Live: the recording replayed as a camera through "video_decoder" gives
// ffmpeg's pictures in display order, starting over at the end.
TEST(VzkImportMPEG4, LiveDecodingGivesThePicturesInDisplayOrder) {
  CmScratch scratch;
  const std::string clip = MakeClip(scratch, kXvid);
  const size_t frameSize = static_cast<size_t>(kXvid.width * kXvid.height * 3 / 2);
  const auto reference = Reference(scratch, clip, frameSize);
  ASSERT_GE(reference.size(), kXvid.frames - 2);
  const std::string recording = scratch.Path("clip.gbd");
  ASSERT_EQ(RunVzk({"import", clip, recording}).status, 0);
  const std::string tree = scratch.Write(
      "live.xml", "<toolkit type='source'><provider>vzk</provider><config><video_decoder>"
                  "<synthetic_live><toolkit type='source'><provider>recording</provider><config>"
                  "<recording file='" +
                      recording +
                      "'/></config></toolkit></synthetic_live></video_decoder></config></toolkit>");
  const SmResult run = RunVzk({"run", tree, "--mode", "live", "--duration", "1", "--format", "y4m",
                               "--out", scratch.Path("out")});
  ASSERT_EQ(run.status, 0) << run.err;
  const std::string stream = ReadText(scratch.Path("out/out.y4m"));
  ASSERT_EQ(stream.rfind("YUV4MPEG2 ", 0), 0u);
  size_t k = 0;
  for (size_t at = stream.find('\n') + 1; at + 6 + frameSize <= stream.size();
       at += 6 + frameSize, ++k) {
    const std::vector<uint8_t> picture(stream.begin() + static_cast<std::ptrdiff_t>(at + 6),
                                       stream.begin() +
                                           static_cast<std::ptrdiff_t>(at + 6 + frameSize));
    EXPECT_TRUE(picture == reference[k % reference.size()]) << "live picture " << k;
  }
  EXPECT_GE(k, 2u);
}

// MPEG-4 with B pictures, in closed and open groups, played through
// "video_decoder": forwards, backwards and jumping about, each move lands on
// ffmpeg's picture of that place.
TEST(VzkImportMPEG4, PlaybackWithBPicturesLandsOnTheSamePictureWhereverItGoes) {
  NmVzkTool::CmPluginLibrary library(NmVzkTool::DefaultPluginPath());
  for (const SmClipCase& c : {kBFrames, kXvid, kOpenGroups}) {
    SCOPED_TRACE(c.name);
    CmScratch scratch;
    const std::string clip = MakeClip(scratch, c);
    const size_t frameSize = static_cast<size_t>(c.width * c.height * 3 / 2);
    const auto reference = Reference(scratch, clip, frameSize);
    const size_t frames = reference.size();
    ASSERT_GE(frames, c.frames - 1);
    const std::string recording = scratch.Path("clip.gbd");
    ASSERT_EQ(RunVzk({"import", clip, recording}).status, 0);
    NmVzkTool::CmToolkitTree tree(library, RecordingTree(recording, "video_decoder"));
    NmToolkit::ImPlaybackSourceToolkit& playback = tree.Playback();
    NmToolkit::CmPropertyNameSet supported;
    playback.Connect({}, supported, 0);
    tree.MarkConnected();

    std::vector<int64_t> times(frames);
    ASSERT_EQ(playback.MoveFirst(), NmToolkit::StatusSuccess);
    for (size_t f = 0; f < frames; ++f) {
      if (f > 0) {
        ASSERT_EQ(playback.MoveNext(), NmToolkit::StatusSuccess) << f;
      }
      EXPECT_TRUE(PictureHere(playback, times[f]) == reference[f]) << "forwards, picture " << f;
      if (f > 0) {
        EXPECT_GT(times[f], times[f - 1]);
      }
    }
    EXPECT_EQ(playback.MoveNext(), NmToolkit::StatusNoItem);
    for (size_t f = frames - 1; f-- > 0;) {
      ASSERT_EQ(playback.MovePrevious(), NmToolkit::StatusSuccess) << f;
      int64_t time = 0;
      EXPECT_TRUE(PictureHere(playback, time) == reference[f]) << "backwards, picture " << f;
      EXPECT_EQ(time, times[f]);
    }
    std::vector<size_t> order(frames);
    for (size_t f = 0; f < frames; ++f) {
      order[f] = f;
    }
    std::shuffle(order.begin(), order.end(), std::mt19937(11));
    for (const size_t f : order) {
      const bool behind = f % 2 == 1;
      ASSERT_EQ(playback.MoveTo(behind ? times[f] + 1 : times[f],
                                behind ? NmToolkit::MoveAtOrBefore : NmToolkit::MoveAtOrAfter),
                NmToolkit::StatusSuccess);
      int64_t time = 0;
      EXPECT_TRUE(PictureHere(playback, time) == reference[f]) << "jump to picture " << f;
    }
    tree.DisconnectQuietly();
  }
}

// The records of a recording: codec value, sync flag and time of each.
struct SmStoredFrame {
  uint32_t codec = 0;
  bool sync = false;
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
    frames.push_back({access.GetCodec(), access.GetSync(), access.GetTime().GetMilliseconds()});
    at += length;
  }
  return frames;
}

// Whether each packet of the clip, in the order stored, is a key frame.
std::vector<bool> KeyFlags(const CmScratch& scratch, const std::string& clip) {
  const std::string flags = scratch.Path("flags.txt");
  const std::string command = "ffprobe -v error -select_streams v -show_entries packet=flags "
                              "-of csv=p=0 '" +
                              clip + "' > '" + flags + "'";
  EXPECT_EQ(std::system(command.c_str()), 0);
  std::vector<bool> keys;
  const std::string listed = ReadText(flags);
  for (size_t at = 0; at < listed.size(); at = listed.find('\n', at) + 1) {
    keys.push_back(listed[at] == 'K');
    if (listed.find('\n', at) == std::string::npos) {
      break;
    }
  }
  return keys;
}

// Clips served over RTSP by a loopback server, the configuration in the
// session description only, as cameras and recorders serve them: the import
// gives every frame once, from the first, with the codec value, sync frames
// at the clip's key frames, times one frame apart, and pictures equal to
// ffmpeg's decode of the file.
TEST(VzkImportMPEG4, ClipsServedOverRtspImportFrameForFrame) {
  struct SmRtspCase {
    const char* codec;
    uint32_t codecValue;
    SmClipCase clip;
  };
  const SmRtspCase cases[] = {
      {"mpeg4",
       4,
       {"MPEG-4 with B pictures", "b.mp4",
        "-c:v mpeg4 -bf 2 -flags +cgop -sc_threshold 1000000000 -g 10 -q:v 4", 96, 64, 30}},
      {"h264", 10, {"H.264 with a B pyramid", "h264.mkv", "-c:v libx264 -bf 3 -g 12", 96, 64, 30}},
  };
  for (const SmRtspCase& c : cases) {
    SCOPED_TRACE(c.clip.name);
    CmScratch scratch;
    const std::string clip = MakeClip(scratch, c.clip);
    NmTestSupport::CmRtspTestServer server(0, c.codec, clip);
    if (server.GetPort() == 0) {
      GTEST_SKIP() << "The GStreamer RTSP test server could not start (needs python3-gi, "
                      "gir1.2-gst-rtsp-server-1.0, gstreamer1.0-plugins-good and -bad)";
    }
    const size_t frameSize = static_cast<size_t>(c.clip.width * c.clip.height * 3 / 2);
    const auto reference = Reference(scratch, clip, frameSize);
    ASSERT_EQ(reference.size(), c.clip.frames);
    const std::string recording = scratch.Path("clip.gbd");
    // The server sends the clip once per session; the duration only bounds
    // the wait should frames go missing.
    const SmResult imported =
        RunVzk({"import", "rtsp://127.0.0.1:" + std::to_string(server.GetPort()) + "/clip",
                recording, "--count", std::to_string(c.clip.frames), "--duration", "20"});
    ASSERT_EQ(imported.status, 0) << imported.err;
    const std::vector<SmStoredFrame> frames = StoredFrames(recording);
    const std::vector<bool> keys = KeyFlags(scratch, clip);
    ASSERT_EQ(frames.size(), c.clip.frames);
    ASSERT_EQ(keys.size(), c.clip.frames);
    for (size_t f = 0; f < frames.size(); ++f) {
      EXPECT_EQ(frames[f].codec, c.codecValue) << "frame " << f;
      EXPECT_EQ(frames[f].sync, keys[f]) << "frame " << f;
      EXPECT_EQ(frames[f].time - frames[0].time, static_cast<int64_t>(40 * f)) << "frame " << f;
    }
    const auto pictures = RunY4m(
        scratch, scratch.Write("decode.xml", RecordingTree(recording, "video_decoder")), frameSize);
    ASSERT_EQ(pictures.size(), reference.size());
    for (size_t f = 0; f < pictures.size(); ++f) {
      EXPECT_TRUE(pictures[f] == reference[f]) << "picture " << f;
    }
  }
}

} // namespace
