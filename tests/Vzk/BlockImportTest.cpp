// vzk import --blocks: video stored as one block per group of pictures plays
// exactly as the same media stored frame by frame.

#include <gtest/gtest.h>

#include "MediaProcessing/GenericByteData/GenericByteData.h"
#include "MediaProcessing/GenericByteData/RawVideoByteDataAccess.h"
#include "RecordCheck.h"
#include "VzkTestSupport.h"
#include "support/GenericByteDataBuilder.h"

using namespace NmVzkTest;

// H.264 with a B pyramid, MPEG-4 with B pictures, DivX-packed Xvid, H.263
// and Motion JPEG, each imported frame by frame and as blocks, play to the
// same pictures at the same times; vzk info counts the blocks and their
// images.
TEST(VzkBlockImport, BlocksPlayAsTheFramesTheyHold) {
  const struct {
    const char* name;
    const char* file;
    const char* encoding;
    const char* imported;
    const char* images;
    size_t pictures = 30;
    const char* noise = "alls=20";
  } clips[] = {
      {"H.264 B pyramid", "h264.mp4",
       "-c:v libx264 -x264-params "
       "cabac=1:bframes=3:b-pyramid=normal:keyint=12:min-keyint=12:scenecut=0:ref=3",
       "30 records as 3 blocks (", "3 blocks hold 30 images, 6 to 12 a block"},
      {"MPEG-4 B pictures", "mpeg4.mp4",
       "-c:v mpeg4 -bf 2 -flags +cgop -sc_threshold 1000000000 -g 8 -q:v 4",
       "30 records as 5 blocks (", "5 blocks hold 30 images, 2 to 7 a block"},
      // Open groups whose B pictures ride behind their anchor, each pair
      // followed by a plane that is not coded; the first group starts with
      // the gap of the two pictures that the encoder held back, which no
      // block can time, so it keeps its frames. A start at a later group
      // cannot show the B pictures in front of its intra picture.
      {"Xvid packed, open groups", "packed.avi", "-c:v libxvid -bf 2 -g 9 -q:v 5",
       "28 records as 3 blocks and 7 frames (", "3 blocks hold 21 images, 3 to 9 a block", 28,
       "alls=6:allf=t"},
      {"H.263", "h263.avi", "-c:v h263 -s 176x144 -g 6", "30 records as 5 blocks (",
       "5 blocks hold 30 images, 6 a block"},
      {"Motion JPEG", "mjpeg.avi", "-c:v mjpeg -q:v 5", "30 records as 30 blocks (",
       "30 blocks hold 30 images, 1 a block"},
  };
  for (const auto& clip : clips) {
    SCOPED_TRACE(clip.name);
    CmScratch scratch;
    const std::string media = scratch.Path(clip.file);
    Ffmpeg(std::string("-f lavfi -i testsrc2=size=64x48:rate=25 -frames:v 30 -vf noise=") +
               clip.noise + " -pix_fmt yuv420p " + clip.encoding,
           media);
    const std::string frames = scratch.Path("frames.gbd"), blocks = scratch.Path("blocks.gbd");
    ASSERT_EQ(RunVzk({"import", media, frames}).status, 0);
    const SmResult imported = ExpectSuccess({"import", media, blocks, "--blocks"});
    EXPECT_NE(imported.out.find(std::string("Imported ") + clip.imported), std::string::npos)
        << imported.out;
    const SmResult info = RunVzk({"info", blocks});
    EXPECT_NE(info.out.find(std::string("blocks:     ") + clip.images), std::string::npos)
        << info.out;
    // The pictures of the frames, played through; H.263 has a size of its own.
    const size_t frameSize =
        std::string(clip.file) == "h263.avi" ? 176 * 144 * 3 / 2 : 64 * 48 * 3 / 2;
    const std::string byFrame = RecordingTree(frames, "video_decoder");
    const CmPictures reference = RunY4m(scratch, byFrame, frameSize);
    ASSERT_EQ(reference.size(), clip.pictures);
    // Each import takes the moment it opens the file as the clip's start.
    const std::vector<int64_t> frameTimes = ExpectPlaybackLandsOnReference(byFrame, reference);
    const std::vector<int64_t> blockTimes =
        ExpectPlaybackLandsOnReference(RecordingTree(blocks, "video_decoder"), reference);
    for (size_t f = 0; f < clip.pictures; ++f) {
      EXPECT_EQ(blockTimes[f] - blockTimes[0], frameTimes[f] - frameTimes[0]) << f;
    }
  }
}

// A stream that breaks: the import says which block closed early and why,
// leaves out what it cannot take and says so, and stores legacy JPEG as a
// block at the time playback gives it.
TEST(VzkBlockImport, BrokenStreamsCloseBlocksEarlyAndSaySo) {
  using namespace NmTestSupport;
  CmScratch scratch;
  const CmBytes jpeg = MakeRawJPEGRecording(scratch.Path("raw.gbd"), 1).front();
  const uint64_t t0 = 1700000000000ULL;
  CmBytes all;
  const auto add = [&](uint16_t n, bool sync, uint64_t syncTime, uint64_t frameTime) {
    const CmBytes record = BuildVideoPacket({.codec = 1,
                                             .sequenceNumber = n,
                                             .sync = sync,
                                             .syncTime = syncTime,
                                             .frameTime = frameTime,
                                             .payload = jpeg});
    all.insert(all.end(), record.begin(), record.end());
  };
  add(0, true, t0, t0);
  add(1, true, t0 + 40, t0 + 40);
  add(2, true, t0 + 20, t0 + 20); // back in time: refused
  add(3, true, t0 + 80, t0 + 80);
  const CmBytes audio = BuildAudioPacket({.time = t0 + 100});
  all.insert(all.end(), audio.begin(), audio.end());
  // Legacy JPEG takes the time that playback gives it.
  all.insert(all.end(), jpeg.begin(), jpeg.end());
  WriteBytes(scratch.Path("source.gbd"), all);
  const SmResult imported =
      RunVzk({"import", scratch.Path("source.gbd"), scratch.Path("blocks.gbd"), "--blocks"});
  EXPECT_EQ(imported.status, 1);
  EXPECT_NE(imported.out.find("Imported 6 records as 4 blocks"), std::string::npos) << imported.out;
  EXPECT_NE(imported.out.find("Block 2 was closed early: Skipping frame due to time warp."),
            std::string::npos)
      << imported.out;
  EXPECT_NE(imported.out.find("1 audio record was left out"), std::string::npos) << imported.out;
  EXPECT_NE(imported.err.find("1 record was left out of the blocks: Skipping frame due to time "
                              "warp."),
            std::string::npos)
      << imported.err;
}

// A block spaces its pictures evenly. A group with a picture 19 ms off its
// place among pictures 40 ms apart still makes a block; one 20 ms off, half
// the step, would stand as near another picture's place as its own, and
// its group keeps its frames, at their own times.
TEST(VzkBlockImport, GroupsThatABlockWouldMistimeKeepTheirFrames) {
  CmScratch scratch;
  const std::string clip = MakeClip(scratch, "h263.avi", "-c:v h263 -g 6", 176, 144, 30);
  const std::vector<uint8_t> frames = ReadBytes(Import(scratch, clip));
  const uint64_t t0 = 1700000000000ULL;
  const auto late = [](size_t f) -> uint64_t { return f == 8 ? 19 : f == 14 ? 20 : 0; };
  std::vector<uint8_t> retimed;
  uint64_t syncTime = 0;
  size_t f = 0;
  for (size_t at = 0; at < frames.size(); ++f) {
    const uint64_t length = NmRecording::RecordLength(frames.data() + at, frames.size() - at);
    ASSERT_GT(length, 0u);
    const NmMediaProcessing::CmGenericByteData record(const_cast<uint8_t*>(frames.data() + at),
                                                      length);
    const NmMediaProcessing::CmRawVideoByteDataAccess view(record, false);
    ASSERT_TRUE(view.IsValid());
    const uint64_t time = t0 + 40 * f + late(f);
    syncTime = view.GetSync() ? time : syncTime;
    const auto packet = NmTestSupport::BuildVideoPacket(
        {.codec = static_cast<uint16_t>(view.GetCodec()),
         .sequenceNumber = static_cast<uint16_t>(f),
         .sync = view.GetSync(),
         .syncTime = syncTime,
         .frameTime = time,
         .payload = {view.GetData(), view.GetData() + view.GetDataSize()}});
    retimed.insert(retimed.end(), packet.begin(), packet.end());
    at += length;
  }
  ASSERT_EQ(f, 30u);
  WriteBytes(scratch.Path("retimed.gbd"), retimed);
  const SmResult imported = ExpectSuccess(
      {"import", scratch.Path("retimed.gbd"), scratch.Path("blocks.gbd"), "--blocks"});
  EXPECT_NE(imported.out.find("Imported 30 records as 4 blocks and 6 frames ("), std::string::npos)
      << imported.out;
  EXPECT_NE(imported.out.find("1 group of pictures (6 frames) kept its frames"), std::string::npos)
      << imported.out;
  // Two blocks, the third group as its six frames, two blocks.
  const std::vector<SmStoredFrame> stored = StoredFrames(scratch.Path("blocks.gbd"));
  ASSERT_EQ(stored.size(), 10u);
  for (size_t k = 0; k < 6; ++k) {
    EXPECT_EQ(stored[2 + k].time, static_cast<int64_t>(t0 + 40 * (12 + k) + late(12 + k))) << k;
    EXPECT_EQ(stored[2 + k].sync, k == 0) << k;
  }
  EXPECT_EQ(stored[1].time, static_cast<int64_t>(t0 + 240));
  EXPECT_EQ(stored[8].time, static_cast<int64_t>(t0 + 720));
}
