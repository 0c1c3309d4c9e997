// vzk import: a recording in, an equal recording out, and the failures.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <memory>

#include "Commands.h"
#include "PictureConversion.h"
#include "PluginHost.h"
#include "VzkTestSupport.h"
#include "support/GenericByteDataBuilder.h"
#include "support/H264StreamWriter.h"

using namespace NmVzkTest;

namespace {

TEST(VzkImport, ARecordingImportsAsAnEqualRecording) {
  CmScratch scratch;
  const std::string source = scratch.Path("source.gbd");
  NmTestSupport::CmBytes all;
  for (uint16_t i = 0; i < 6; ++i) {
    NmTestSupport::SmVideoPacketFields fields;
    fields.sequenceNumber = i;
    fields.frameTime = fields.syncTime = 1700000000000 + 40 * i;
    fields.payload = NmTestSupport::Pattern(50 + i, static_cast<uint8_t>(i));
    const auto record = NmTestSupport::BuildVideoPacket(fields);
    all.insert(all.end(), record.begin(), record.end());
  }
  const std::vector<std::vector<uint8_t>> frames = MakeRawJPEGRecording(scratch.Path("raw.gbd"), 2);
  for (const auto& frame : frames) {
    all.insert(all.end(), frame.begin(), frame.end());
  }
  WriteBytes(source, all);

  const SmResult copied = ExpectSuccess({"import", source, scratch.Path("copy.gbd")});
  EXPECT_EQ(ReadBytes(scratch.Path("copy.gbd")), all);
  EXPECT_EQ(copied.out.rfind("Imported 8 records (" + std::to_string(all.size()) + " bytes", 0), 0u)
      << copied.out;
  EXPECT_FALSE(Exists(scratch.Path("copy.gbd.part")));

  // Media time from the first record: frames at 0, 40 and 80 ms are within 0.1 s.
  for (const auto& [option, value] : {std::pair{"--count", "3"}, {"--duration", "0.1"}}) {
    const std::string out = scratch.Path(std::string(option) + ".gbd");
    ASSERT_EQ(RunVzk({"import", source, out, option, value}).status, 0) << option;
    const std::vector<uint8_t> head = ReadBytes(out);
    EXPECT_EQ(head.size(), 3u * 32 + 50 + 51 + 52) << option;
    EXPECT_TRUE(std::equal(head.begin(), head.end(), all.begin()));
  }
}

TEST(VzkImport, FailuresSayWhatIsWrongAndLeaveNoRecording) {
  CmScratch scratch;
  const std::string none = scratch.Path("none.mp4");
  const std::string clip = scratch.Write("clip.mkv", "not really a clip");
  const std::string same = scratch.Path("same.gbd");
  WriteBytes(same, NmTestSupport::BuildRawJPEG(20));
  const std::string junk = scratch.Write("junk.gbd", "no records in here");
  const std::string empty = scratch.Write("empty.gbd", "");
  const std::string out = scratch.Path("out.gbd");
  const std::pair<std::vector<std::string>, std::string> failures[] = {
      {{none, out}, "vzk: The media " + none + " cannot be read: No such file or directory.\n"},
      {{clip, out}, "vzk: "},
      {{same, same},
       "vzk: The output " + same + " is the recording being read; name another file.\n"},
      {{junk, out}, "holds no readable record!"},
      {{empty, out}, "vzk: " + empty + " delivered no records, so " + out + " was not written.\n"},
  };
  for (const auto& [files, told] : failures) {
    ExpectRun({"import", files[0], files[1]}, 1, told);
    EXPECT_FALSE(Exists(out));
    EXPECT_FALSE(Exists(out + ".part"));
  }
  // Names with XML's special characters reach the plug-in intact.
  EXPECT_NE(
      NmVzkTool::ImportConfiguration("a&b<'\".mp4").find("url=\"a&amp;b&lt;&apos;&quot;.mp4\""),
      std::string::npos);
  EXPECT_NE(NmVzkTool::ImportConfiguration("x.gbd").find("<provider>recording</provider>"),
            std::string::npos);
}

} // namespace

namespace {

// Media files through the media plug-in: the JPEG pictures of a clip come out
// as they were stored, and PCM audio comes out as the same samples.
TEST(VzkImport, MediaFilesThroughTheMediaPlugin) {
  ASSERT_TRUE(Exists(BinaryDirectory() + "/ToolkitSourcePlugin_media.so"));
  CmScratch scratch;
  const std::string clip = scratch.Path("clip.mkv");
  Ffmpeg("-f lavfi -i testsrc=size=64x48:rate=25 -frames:v 6 -c:v mjpeg -q:v 5", clip);
  const std::string recording = scratch.Path("clip.gbd");
  const SmResult imported = ExpectSuccess({"import", clip, recording});
  EXPECT_EQ(imported.out.rfind("Imported 6 records (", 0), 0u) << imported.out;
  const SmResult info = RunVzk({"info", recording});
  EXPECT_NE(info.out.find("  kinds:      6 video packets\n  codecs:     6 JPEG\n  pictures:   6 "
                          "64x48\n"),
            std::string::npos)
      << info.out;
  EXPECT_NE(info.out.find("  sequences:  1\n"), std::string::npos);

  // The pictures as ffmpeg stores them, one JPEG after another.
  const std::vector<uint8_t> stream =
      Ffmpeg("-i '" + clip + "' -c:v copy -f mjpeg", scratch.Path("frames.mjpeg"));
  const std::string tree = scratch.Write("run.xml", RecordingTree(recording));
  const SmResult run = ExpectSuccess({"run", tree, "--out", scratch.Path("out")});
  std::vector<uint8_t> written;
  for (int i = 1; i <= 6; ++i) {
    const auto file = ReadBytes(scratch.Path("out/jpeg-00000" + std::to_string(i) + ".jpg"));
    written.insert(written.end(), file.begin(), file.end());
  }
  EXPECT_EQ(written, stream);

  const std::string sound = scratch.Path("sound.wav");
  Ffmpeg("-f lavfi -i sine=frequency=440:sample_rate=8000 -t 0.5 -c:a pcm_s16le", sound);
  const std::vector<uint8_t> samples = Ffmpeg("-i '" + sound + "' -f s16le", scratch.Path("a.raw"));
  const std::string audioTree =
      scratch.Write("sound.xml", TreeOver("media", "<media url='" + sound + "'/>"));
  const SmResult audio = ExpectSuccess({"run", audioTree, "--out", scratch.Path("wav")});
  const std::vector<uint8_t> wav = ReadBytes(scratch.Path("wav/audio.wav"));
  ASSERT_GT(wav.size(), 44u);
  EXPECT_EQ(std::vector<uint8_t>(wav.begin() + 44, wav.end()), samples);
}

// Clips imported and decoded by a "video_decoder" give ffmpeg's own
// pictures. MJPEG: every sample within 1, and on average much closer, as the
// JPEG decoder promises against any accurate decoder; odd sizes test the
// edges.
TEST(VzkImport, DecodedMJPEGIsWithinOneOfFfmpegsDecode) {
  CmScratch scratch;
  const std::string clip = MakeClip(scratch, "clip.avi", "-pix_fmt yuvj420p -c:v mjpeg -q:v 3", 178,
                                    98, 5, "alls=24:allf=t");
  const size_t frameSize = 178 * 98 + 2 * 89 * 49;
  const CmPictures reference = ReferencePictures(scratch, clip, frameSize, "yuvj420p");
  const CmPictures pictures =
      RunY4m(scratch, RecordingTree(Import(scratch, clip), "video_decoder"), frameSize);
  ASSERT_EQ(reference.size(), 5u);
  ASSERT_EQ(pictures.size(), reference.size());
  for (size_t f = 0; f < pictures.size(); ++f) {
    int worst = 0;
    double sum = 0;
    for (size_t i = 0; i < frameSize; ++i) {
      const int difference = std::abs(pictures[f][i] - reference[f][i]);
      worst = std::max(worst, difference);
      sum += difference;
    }
    EXPECT_LE(worst, 1) << "picture " << f;
    EXPECT_LT(sum / frameSize, 0.1) << "picture " << f;
  }
}

// Frames of an interlaced H.264 sequence, imported and decoded by a
// "video_decoder" with its deinterlacer off, come out woven: ffmpeg's own
// pictures to the bit, comb and all.
TEST(VzkImport, InterlacedH264ComesOutWovenWithTheDeinterlacerOff) {
  using NmTestSupport::SmWriterMacroblock;
  CmScratch scratch;
  NmTestSupport::CmH264StreamWriter writer;
  NmTestSupport::SmWriterSps sps;
  sps.frameMbsOnly = false;
  sps.widthInMbs = sps.heightInMbs = 4;
  writer.WriteSps(sps);
  writer.WritePps(NmTestSupport::SmWriterPps{});
  // Fields far apart in brightness, as of a moving scene: a comb that the
  // deinterlacer cannot leave alone.
  std::vector<SmWriterMacroblock> combed;
  for (uint32_t address = 0; address < 16; ++address) {
    SmWriterMacroblock mb;
    mb.kind = SmWriterMacroblock::Pcm;
    for (int y = 0; y < 16; ++y) {
      for (int x = 0; x < 16; ++x) {
        mb.samples.push_back(static_cast<uint8_t>(y % 2 == 0 ? 40 + 3 * x + address : 200 - x));
      }
    }
    mb.samples.resize(384, 128);
    combed.push_back(mb);
  }
  NmTestSupport::SmWriterSlice idr;
  idr.idr = true;
  writer.WriteSlice(idr, combed);
  for (uint32_t frame = 1; frame < 4; ++frame) {
    NmTestSupport::SmWriterSlice p;
    p.type = NmTestSupport::SmWriterSlice::P;
    p.frameNum = frame;
    p.pocLsb = 2 * frame;
    std::vector<SmWriterMacroblock> moved;
    for (uint32_t address = 0; address < 16; ++address) {
      moved.push_back(SmWriterMacroblock::Predicted(SmWriterMacroblock::L0, 0,
                                                    static_cast<int32_t>(frame + address % 3), 0));
    }
    writer.WriteSlice(p, moved);
  }
  const std::string stream = scratch.Path("interlaced.264");
  WriteBytes(stream, writer.AnnexB());
  const std::string clip = scratch.Path("clip.mp4");
  Ffmpeg("-i '" + stream + "' -c copy", clip);
  const size_t frameSize = 64 * 64 * 3 / 2;
  const CmPictures reference = ReferencePictures(scratch, clip, frameSize);
  ASSERT_EQ(reference.size(), 4u);
  ExpectSamePictures(
      RunY4m(scratch,
             RecordingTree(Import(scratch, clip), "video_decoder deinterlacing_filter='none'"),
             frameSize),
      reference);
}

// x264's frames of field and frame macroblock pairs through "video_decoder"
// with its deinterlacer off come out woven: ffmpeg's luma to the bit. (The
// recording says the clip is interlaced, and interleaved 4:2:0 chroma
// leaves as 4:2:2 made field by field.) Through the deinterlacer, every
// move of playback lands on the picture that decoding from the start gives
// at that place.
TEST(VzkImport, MacroblockPairFramesComeOutWovenAndLandWherePlaybackGoes) {
  // Bottom field first in CAVLC, top field first in CABAC.
  for (const auto& [order, entropy] : {std::pair{"bff", "cabac=0"}, std::pair{"tff", "cabac=1"}}) {
    SCOPED_TRACE(entropy);
    CmScratch scratch;
    const std::string clip = scratch.Path("clip.mp4");
    // Odd lines inverted in moving blocks: field pairs there, frame pairs
    // elsewhere.
    Ffmpeg(
        std::string("-f lavfi -i testsrc2=size=64x48:rate=25 -frames:v 24 -vf \"geq=lum='if(eq(mod("
                    "trunc(X/16)+trunc(Y/32)+N\\,3)\\,0)*mod(Y\\,2)\\,255-lum(X\\,Y)\\,lum(X\\,Y))'"
                    ":cb='cb(X,Y)':cr='cr(X,Y)',setfield=") +
            order + "\" -pix_fmt yuv420p -c:v libx264 -x264-params interlaced=1:" + order +
            "=1:" + entropy + ":bframes=2:b-pyramid=none:keyint=8:min-keyint=8:scenecut=0",
        clip);
    const size_t lumaSize = 64 * 48, wovenSize = lumaSize * 2;
    const CmPictures reference = ReferencePictures(scratch, clip, lumaSize * 3 / 2);
    ASSERT_EQ(reference.size(), 24u);
    const std::string recording = Import(scratch, clip);
    const CmPictures woven = RunY4m(
        scratch, RecordingTree(recording, "video_decoder deinterlacing_filter='none'"), wovenSize);
    ASSERT_EQ(woven.size(), 24u);
    for (size_t f = 0; f < woven.size(); ++f) {
      EXPECT_TRUE(std::equal(woven[f].begin(), woven[f].begin() + lumaSize, reference[f].begin()))
          << "picture " << f;
    }
    const std::string tree = RecordingTree(recording, "video_decoder");
    const CmPictures sequential = RunY4m(scratch, tree, wovenSize);
    ASSERT_EQ(sequential.size(), 24u);
    ExpectPlaybackLandsOnReference(tree, sequential);
  }
}

} // namespace
