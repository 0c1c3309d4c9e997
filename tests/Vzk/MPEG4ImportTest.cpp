// MPEG-4 Part 2, H.263 and H.264 clips through vzk import, info and run:
// ffmpeg's own pictures, wherever playback goes.

#include <gtest/gtest.h>

#include <sstream>

#include "VzkTestSupport.h"
#include "support/RtspTestServer.h"

using namespace NmVzkTest;

namespace {

struct SmClipCase {
  const char* name;
  const char* file;
  const char* options;
  int width;
  int height;
  size_t frames;
  enum { DecodeOnly, Playback, KeyFrames, Live } also = DecodeOnly;
  size_t FrameSize() const { return static_cast<size_t>(width * height * 3 / 2); }
  std::string Make(const CmScratch& scratch) const {
    return MakeClip(scratch, file, options, width, height, frames);
  }
};

// What ffprobe tells of the clip's video, a line for each frame or packet:
// "frame=pict_type" gives the coding types in display order, "packet=flags"
// the flags of the packets in the order stored ('K' for a key frame).
std::vector<std::string> Probe(const CmScratch& scratch, const std::string& clip,
                               const std::string& entries) {
  const std::string listed = scratch.Path("probed.txt");
  const std::string command = "ffprobe -v error -threads 1 -select_streams v -show_entries " +
                              entries + " -of csv=p=0 '" + clip + "' > '" + listed + "'";
  EXPECT_EQ(std::system(command.c_str()), 0);
  std::vector<std::string> lines;
  std::istringstream text(ReadText(listed));
  for (std::string line; std::getline(text, line);) {
    lines.push_back(line);
  }
  return lines;
}

// Imported from AVI, MP4 and MKV, the clips decode through "video_decoder"
// to ffmpeg's pictures, to the bit, and vzk info names codec and size. With
// B pictures, in closed and open groups, playback forwards, backwards and
// by jumps lands each time on ffmpeg's picture of that place; the
// key-frames-only decoder gives the intra pictures and tells the items of
// the others as not delivered; replayed as a camera, the recording gives
// ffmpeg's pictures in display order, starting over at the end.
TEST(VzkImportMPEG4, DecodedClipsEqualFfmpegsDecodeWhereverPlaybackGoes) {
  const SmClipCase cases[] = {
      {"MPEG-4 simple", "simple.mp4", "-c:v mpeg4 -bf 0 -g 10 -q:v 5", 100, 60, 12},
      {"MPEG-4 with B pictures, closed groups", "b.mp4",
       "-c:v mpeg4 -bf 2 -flags +qpel+cgop -sc_threshold 1000000000 -g 8 -q:v 4", 80, 48, 24,
       SmClipCase::KeyFrames},
      {"Xvid: B, quarter-pel, global motion, packed", "xvid.avi",
       "-c:v libxvid -bf 2 -flags +qpel+cgop -gmc 1 -g 9 -q:v 5", 96, 64, 20, SmClipCase::Live},
      // B pictures in front of the intra picture refer back into the group before.
      {"open groups", "open.avi", "-c:v mpeg4 -bf 2 -g 25 -q:v 4", 64, 48, 50,
       SmClipCase::Playback},
      // Packed, in open groups: behind each packed pair a plane that is not
      // coded, marked intra and a key frame, which is no place to start.
      {"Xvid packed, open groups", "packed.avi", "-c:v libxvid -bf 2 -g 9 -q:v 5", 64, 48, 30,
       SmClipCase::Playback},
      {"MPEG-4 interlaced", "interlaced.mkv", "-c:v mpeg4 -flags +ildct+ilme -g 6 -q:v 4", 96, 64,
       10},
      {"H.263+ with annexes", "plus.mkv",
       "-c:v h263p -flags +aic+loop -umv 1 -aiv 1 -structured_slices 1 -g 5 -q:v 5", 160, 112, 8,
       SmClipCase::Playback},
      // H.264 of an odd size, cropped: several slices and references;
      // reordered pictures; groups that refer back across their start; one
      // IDR refreshed by stripes; CABAC with temporal direct and weights.
      {"H.264 slices", "slices.mp4",
       "-c:v libx264 -x264-params cabac=0:bframes=0:keyint=12:slices=2:ref=3", 100, 60, 30,
       SmClipCase::Playback},
      {"H.264 B pyramid", "pyramid.mp4",
       "-c:v libx264 -x264-params "
       "cabac=0:bframes=3:b-pyramid=normal:keyint=12:min-keyint=12:scenecut=0:ref=4",
       100, 60, 30, SmClipCase::Playback},
      {"H.264 open groups", "open.mp4",
       "-c:v libx264 -x264-params "
       "cabac=0:bframes=2:b-pyramid=none:keyint=10:min-keyint=10:open-gop=1:scenecut=0",
       100, 60, 30, SmClipCase::Playback},
      {"H.264 intra refresh", "refresh.mp4",
       "-c:v libx264 -x264-params cabac=0:bframes=0:keyint=8:intra-refresh=1", 100, 60, 30,
       SmClipCase::Playback},
      {"H.264 CABAC B pyramid", "cabac.mp4",
       "-c:v libx264 -x264-params cabac=1:bframes=3:b-pyramid=normal:direct=temporal:weightp=2:"
       "weightb=1:keyint=12:min-keyint=12:scenecut=0:ref=4",
       100, 60, 30, SmClipCase::Playback},
  };
  for (const SmClipCase& c : cases) {
    SCOPED_TRACE(c.name);
    CmScratch scratch;
    const std::string clip = c.Make(scratch);
    const CmPictures reference = ReferencePictures(scratch, clip, c.FrameSize());
    // Xvid keeps up to two held-back B pictures out of the file.
    ASSERT_GE(reference.size(), c.frames - 2);
    const std::string recording = Import(scratch, clip);
    const SmResult info = RunVzk({"info", recording});
    const std::string name = c.name;
    const std::string codec = name.find("263") != std::string::npos   ? "H.263"
                              : name.find("264") != std::string::npos ? "H.264"
                                                                      : "MPEG-4";
    EXPECT_NE(info.out.find(codec), std::string::npos) << info.out;
    EXPECT_NE(info.out.find(" " + std::to_string(c.width) + "x" + std::to_string(c.height) + "\n"),
              std::string::npos)
        << info.out;
    const std::string tree = RecordingTree(recording, "video_decoder");
    ExpectSamePictures(RunY4m(scratch, tree, c.FrameSize()), reference);
    if (c.also != SmClipCase::DecodeOnly) {
      ExpectPlaybackLandsOnReference(tree, reference);
    }
    if (c.also == SmClipCase::KeyFrames) {
      const CmPictures pictures = RunY4m(
          scratch, RecordingTree(recording, "key_frames_only_video_decoder"), c.FrameSize(), true);
      const std::vector<std::string> types = Probe(scratch, clip, "frame=pict_type");
      CmPictures intra;
      for (size_t f = 0; f < types.size(); ++f) {
        if (types[f] == "I") {
          intra.push_back(reference.at(f));
        }
      }
      ASSERT_GE(intra.size(), 3u);
      ExpectSamePictures(pictures, intra);
    }
    if (c.also == SmClipCase::Live) {
      const CmPictures live =
          RunY4m(scratch, RecordingTree(recording, "video_decoder><synthetic_live"), c.FrameSize(),
                 false, {"--mode", "live", "--duration", "1"});
      EXPECT_GE(live.size(), 2u);
      for (size_t k = 0; k < live.size(); ++k) {
        EXPECT_TRUE(live[k] == reference[k % reference.size()]) << "live picture " << k;
      }
    }
  }
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
    // Containers call every H.263 frame a key frame; the import reads the
    // picture type, and so does the check. The server stamps the first H.263
    // packet a few milliseconds late, and the import keeps the stream's times.
    bool h263 = false;
  };
  const SmRtspCase cases[] = {
      {"mpeg4",
       4,
       {"MPEG-4 with B pictures", "b.mp4",
        "-c:v mpeg4 -bf 2 -flags +cgop -sc_threshold 1000000000 -g 10 -q:v 4", 96, 64, 30}},
      {"h264", 10, {"H.264 with a B pyramid", "h264.mkv", "-c:v libx264 -bf 3 -g 12", 96, 64, 30}},
      {"h263", 7, {"H.263 QCIF", "qcif.mkv", "-c:v h263 -g 6 -q:v 5", 176, 144, 30}, true},
  };
  for (const SmRtspCase& c : cases) {
    SCOPED_TRACE(c.clip.name);
    CmScratch scratch;
    const std::string clip = c.clip.Make(scratch);
    NmTestSupport::CmRtspTestServer server(0, c.codec, clip);
    if (server.GetPort() == 0) {
      GTEST_SKIP() << "The GStreamer RTSP test server could not start (needs python3-gi, "
                      "gir1.2-gst-rtsp-server-1.0, gstreamer1.0-plugins-good and -bad)";
    }
    const CmPictures reference = ReferencePictures(scratch, clip, c.clip.FrameSize());
    ASSERT_EQ(reference.size(), c.clip.frames);
    const std::string recording = scratch.Path("clip.gbd");
    // The server sends the clip once per session; the duration only bounds
    // the wait should frames go missing.
    ExpectSuccess({"import", "rtsp://127.0.0.1:" + std::to_string(server.GetPort()) + "/clip",
                   recording, "--count", std::to_string(c.clip.frames), "--duration", "20"});
    const std::vector<SmStoredFrame> frames = StoredFrames(recording);
    const std::vector<std::string> keys =
        Probe(scratch, clip, c.h263 ? "frame=pict_type" : "packet=flags");
    ASSERT_EQ(frames.size(), c.clip.frames);
    ASSERT_EQ(keys.size(), c.clip.frames);
    const size_t from = c.h263 ? 1 : 0;
    for (size_t f = 0; f < frames.size(); ++f) {
      EXPECT_EQ(frames[f].codec, c.codecValue) << "frame " << f;
      EXPECT_EQ(frames[f].sync, keys[f].rfind(c.h263 ? 'I' : 'K', 0) == 0) << "frame " << f;
      if (f >= from) {
        EXPECT_EQ(frames[f].time - frames[from].time, static_cast<int64_t>(40 * (f - from)))
            << "frame " << f;
      }
    }
    EXPECT_LT(frames[0].time, frames[1].time);
    ExpectSamePictures(
        RunY4m(scratch, RecordingTree(recording, "video_decoder"), c.clip.FrameSize()), reference);
  }
}

} // namespace
