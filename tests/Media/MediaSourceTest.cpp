#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "JPEG/JPEGTestSupport.h"
#include "MediaProcessing/GenericByteData/AudioCodec.h"
#include "MediaProcessing/GenericByteData/GenericAudioStreamDataPacket.h"
#include "MediaProcessing/GenericByteData/GenericVideoStreamDataPacket.h"
#include "Toolkits/ToolkitTestSupport.h"
#include "Toolkits/VZKSourceToolkitPlugin/Tree/ToolkitFactory.h"
#include "support/ExternalTools.h"
#include "support/RtspTestServer.h"
#include "support/SourceSession.h"
#include "vzk/ToolkitError.h"

using namespace NmToolkit;
using NmMediaProcessing::CmGenericAudioStreamDataPacket;
using NmMediaProcessing::CmGenericVideoStreamDataPacket;
using Bytes = std::vector<uint8_t>;

namespace {

// Runs a shell command and gives its standard output, or "exit N" on failure.
std::string Capture(const std::string& command) {
  std::string output;
  FILE* pipe = popen(command.c_str(), "r");
  if (pipe == nullptr) {
    return "popen failed";
  }
  std::array<char, 4096> buffer{};
  size_t got = 0;
  while ((got = fread(buffer.data(), 1, buffer.size(), pipe)) > 0) {
    output.append(buffer.data(), got);
  }
  const int status = pclose(pipe);
  return status == 0 ? output : "exit " + std::to_string(status) + ": " + output;
}

std::string Ffmpeg(const std::string& arguments) {
  return Capture("ffmpeg -nostdin -hide_banner -loglevel error -y " + arguments + " 2>&1");
}

// What ffmpeg decodes from an input, as a checksum of the raw samples or pixels.
std::string Decoded(const std::string& input, const std::string& output = "-f md5") {
  return Ffmpeg(input + " " + output + " -");
}

std::string Configuration(const std::string& url) {
  return "<toolkit type='source'><provider>media</provider><config><media url='" + url +
         "'/></config></toolkit>";
}

// One item as read: the record's bytes and its time.
struct SmItem {
  Bytes bytes;
  int64_t time = 0;
  std::string sequenceNumber;

  int Type() const { return bytes.size() >= 2 ? bytes[0] << 8 | bytes[1] : 0; }
  bool IsVideo() const { return Type() == 16; }
  bool IsAudio() const { return Type() == 32; }
  Bytes Payload() const {
    const size_t header = IsVideo() ? 32 : 42;
    return Bytes(bytes.begin() + static_cast<ptrdiff_t>(std::min(header, bytes.size())),
                 bytes.end());
  }
  // Read-only views: nothing here writes through them.
  CmGenericVideoStreamDataPacket Video() const {
    return CmGenericVideoStreamDataPacket(const_cast<uint8_t*>(bytes.data()), bytes.size());
  }
  CmGenericAudioStreamDataPacket Audio() const {
    return CmGenericAudioStreamDataPacket(const_cast<uint8_t*>(bytes.data()), bytes.size());
  }
};

SmItem TakeItem(ImData* raw) {
  std::unique_ptr<ImData> item(raw);
  SmItem taken;
  taken.bytes.assign(raw->GetDataPointer(), raw->GetDataPointer() + raw->GetDataSize());
  taken.time = raw->GetBeginTime();
  EXPECT_EQ(raw->GetEndTime(), raw->GetBeginTime());
  if (const auto* number =
          dynamic_cast<const ImStringProperty*>(raw->GetProperty("Sequence_Number"))) {
    taken.sequenceNumber = number->GetValue();
  }
  const auto* media = dynamic_cast<const ImMediaData*>(raw);
  EXPECT_NE(media, nullptr);
  if (media) {
    EXPECT_EQ(media->GetPayloadSize(), taken.Payload().size());
  }
  return taken;
}

Bytes Concatenated(const std::vector<SmItem>& items, int type) {
  Bytes out;
  for (const SmItem& item : items) {
    if (item.Type() == type) {
      const Bytes payload = item.Payload();
      out.insert(out.end(), payload.begin(), payload.end());
    }
  }
  return out;
}

// What an audio record says of its samples: codec, option, bits, channels, frequency.
std::string AudioFacts(const SmItem& item) {
  const CmGenericAudioStreamDataPacket audio = item.Audio();
  return std::to_string(audio.GetCodec()) + "/" + std::to_string(audio.GetCodecOption()) + "/" +
         std::to_string(audio.GetBitsPerSample()) + "/" + std::to_string(audio.GetChannelCount()) +
         "/" + std::to_string(audio.GetSamplingFrequency());
}

// Whether ffmpeg decodes an H.264 stream without a single complaint.
std::string Complaints(const std::string& annexB) {
  return Capture("ffmpeg -nostdin -v error -f h264 -i " + annexB + " -f null - 2>&1 | head -c 1");
}

class MediaSourceTest : public NmTestSupport::CmSourceSession {
protected:
  void Open(const std::string& url) { CmSourceSession::Open(Configuration(url)); }
  void OpenXml(const std::string& xml) { CmSourceSession::Open(xml); }
  // Every item from the first to the last.
  std::vector<SmItem> ReadAll() {
    std::vector<SmItem> items;
    for (uint32_t status = playback->MoveFirst(); status == StatusSuccess;
         status = playback->MoveNext()) {
      ImData* raw = nullptr;
      EXPECT_EQ(playback->GetData(&raw), StatusSuccess);
      if (raw == nullptr) {
        break;
      }
      items.push_back(TakeItem(raw));
    }
    return items;
  }
  // A file that ffmpeg makes from these arguments, in the scratch directory.
  std::string Make(const std::string& name, const std::string& arguments) {
    EXPECT_EQ(Ffmpeg(arguments + " " + scratch / name), "") << name;
    return scratch / name;
  }
  // Every item of a file that the plug-in opens.
  std::vector<SmItem> Load(const std::string& path) {
    Open(path);
    EXPECT_EQ(ConnectError(), "connected") << path;
    return ReadAll();
  }
  // The payloads of the items of one type written back to back into a file.
  std::string Dump(const std::vector<SmItem>& items, int type, const std::string& name) {
    NmTestSupport::WriteBytes(scratch / name, Concatenated(items, type));
    return scratch / name;
  }

  NmTestSupport::CmTempDirectory scratch;
};

// 2024-05-06T07:08:09Z
constexpr int64_t CreationTime = 1714979289000;
// The codec values of audio records, as AudioFacts shows them.
const std::string AACLowComplexity = "18/1/";
const std::string MuLaw = "3/2/16/1/8000";

TEST_F(MediaSourceTest, H264FromMP4DecodesLikeTheOriginal) {
  // B-frames, so that presentation and decoding order differ.
  const std::string mp4 =
      Make("clip.mp4", "-f lavfi -i testsrc=size=160x120:rate=25 -t 1.2 -c:v libx264 -g 10 -bf 2 "
                       "-pix_fmt yuv420p -metadata creation_time=2024-05-06T07:08:09Z");
  Open(mp4);
  CmPropertyNameSet supported;
  playback->Connect({"Sequence_Number", "Has_Motion"}, supported, 0);
  EXPECT_EQ(supported, CmPropertyNameSet{"Sequence_Number"});
  std::vector<SmItem> items = ReadAll();
  ASSERT_EQ(items.size(), 30u);

  // How records are numbered and framed is the record builder's test; here
  // what the plug-in makes of them.
  int64_t earliest = INT64_MAX;
  size_t syncFrames = 0;
  for (size_t i = 0; i < items.size(); ++i) {
    SmItem& item = items[i];
    ASSERT_TRUE(item.IsVideo());
    CmGenericVideoStreamDataPacket video = item.Video();
    EXPECT_EQ(video.GetCodec(), 10u);
    EXPECT_EQ(item.sequenceNumber, std::to_string(i));
    EXPECT_EQ(video.GetFrameTime().GetMilliseconds(), item.time);
    syncFrames += video.GetSync() ? 1 : 0;
    earliest = std::min(earliest, item.time);
  }
  EXPECT_EQ(syncFrames, 3u);
  EXPECT_TRUE(items[0].Video().GetSync());
  EXPECT_EQ(earliest, CreationTime) << "times start at the file's creation time";

  const std::string expected = Decoded("-i " + mp4);
  EXPECT_EQ(expected.rfind("MD5=", 0), 0u) << expected;
  EXPECT_EQ(Decoded("-f h264 -i " + Dump(items, 16, "out.h264")), expected);
}

TEST_F(MediaSourceTest, RawAnnexBFromX264AndAACInBothFramings) {
  const std::string y4m =
      Make("in.y4m", "-f lavfi -i testsrc=size=96x64:rate=25 -frames:v 12 -pix_fmt yuv420p");
  const std::string raw = scratch / "clip.264";
  ASSERT_EQ(Capture("x264 --quiet --keyint 5 --bframes 0 -o " + raw + " " + y4m + " 2>/dev/null"),
            "");
  std::vector<SmItem> items = Load(raw);
  ASSERT_EQ(items.size(), 12u);
  for (size_t i = 1; i < items.size(); ++i) {
    EXPECT_EQ(items[i].time - items[i - 1].time, 40) << "25 frames a second";
    EXPECT_EQ(items[i].Video().GetSync(), i % 5 == 0) << i;
  }
  EXPECT_EQ(Decoded("-f h264 -i " + Dump(items, 16, "out.h264")), Decoded("-i " + raw));

  const std::string adts =
      Make("tone.aac",
           "-f lavfi -i sine=frequency=440:sample_rate=48000 -t 0.5 -ac 2 -c:a aac -b:a 96k");
  const std::string m4a =
      Make("tone.m4a", "-i " + adts + " -c copy -metadata creation_time=2024-05-06T07:08:09Z");
  const std::string expected = Decoded("-i " + adts, "-f s16le -ac 2 -f md5");
  for (const std::string& input : {adts, m4a}) {
    items = Load(input);
    ASSERT_GE(items.size(), 20u) << input;
    uint64_t samples = 0;
    for (size_t i = 0; i < items.size(); ++i) {
      ASSERT_TRUE(items[i].IsAudio());
      EXPECT_EQ(AudioFacts(items[i]), AACLowComplexity + "16/2/48000");
      EXPECT_EQ(items[i].Audio().GetSequenceNumber(), i);
      samples += items[i].Audio().GetSampleCount();
    }
    EXPECT_EQ(samples, items.size() * 1024);
    EXPECT_EQ(Decoded("-f loas -i " + Dump(items, 32, "out.loas"), "-f s16le -ac 2 -f md5"),
              expected)
        << input;
  }
  EXPECT_EQ(items[0].time, CreationTime);
}

TEST_F(MediaSourceTest, MJPEGWithG711AndNavigationInEveryMode) {
  // Two frames a second and 0.1 s audio packets, interleaved.
  const std::string mkv =
      Make("cam.mkv", "-f lavfi -i testsrc=size=64x48:rate=2 -f lavfi -i sine=sample_rate=8000 "
                      "-t 2 -c:v mjpeg -c:a pcm_mulaw -ac 1 -frame_size 800 "
                      "-metadata creation_time=2024-05-06T07:08:09Z");
  Open(mkv);
  CmPropertyNameSet supported;
  playback->Connect({}, supported, 0);
  EXPECT_TRUE(supported.empty());
  const std::vector<SmItem> items = ReadAll();
  std::vector<SmItem> video;
  std::vector<SmItem> audio;
  for (const SmItem& item : items) {
    (item.IsVideo() ? video : audio).push_back(item);
    EXPECT_TRUE(item.sequenceNumber.empty()) << "not requested";
  }
  ASSERT_EQ(video.size(), 4u);
  ASSERT_GE(audio.size(), 2u);
  uint64_t samples = 0;
  for (size_t i = 0; i < video.size(); ++i) {
    CmGenericVideoStreamDataPacket packet = video[i].Video();
    EXPECT_EQ(packet.GetCodec(), 1u);
    EXPECT_TRUE(packet.GetSync()) << "every JPEG frame stands alone";
    EXPECT_EQ(video[i].time, CreationTime + 500 * static_cast<int64_t>(i));
    EXPECT_EQ(packet.GetSequenceNumber(), i);
  }
  for (size_t i = 0; i < audio.size(); ++i) {
    EXPECT_EQ(AudioFacts(audio[i]), MuLaw);
    EXPECT_EQ(audio[i].Audio().GetSampleCount(), audio[i].Payload().size());
    EXPECT_EQ(audio[i].Audio().GetSequenceNumber(), i) << "numbered per stream";
    samples += audio[i].Audio().GetSampleCount();
  }
  EXPECT_EQ(samples, 16000u);
  // The pictures go on as they were stored, to the byte.
  EXPECT_EQ(Concatenated(items, 16),
            NmTestSupport::ReadBytes(Make("copy.mjpeg", "-i " + mkv + " -map 0:v -c:v copy")));
  EXPECT_EQ(Decoded("-f mulaw -ar 8000 -ac 1 -i " + Dump(items, 32, "out.ul")),
            Decoded("-i " + mkv + " -map 0:a"));

  // Navigation itself is shared with the recording plug-in; here, one run
  // over both streams, whose shared times land on the video frame.
  const int64_t second = CreationTime + 500;
  EXPECT_EQ(playback->MoveNextSequence(), StatusNoItem) << "one continuous run";
  EXPECT_EQ(At(items.front().time - 1000, MoveClosest), items.front().time);
  ASSERT_EQ(playback->MoveTo(second, MoveAtOrAfter), StatusSuccess);
  ImData* raw = nullptr;
  ASSERT_EQ(playback->GetData(&raw), StatusSuccess);
  EXPECT_TRUE(TakeItem(raw).IsVideo()) << "the video frame, not the audio that begins with it";

  // Live replays the file from where playback stands, paced by its times.
  live->StartLiveStream();
  ASSERT_EQ(live->GetLiveData(&raw, 0), StatusSuccess) << "the first item is due at once";
  SmItem firstLive = TakeItem(raw);
  EXPECT_EQ(firstLive.time, second);
  EXPECT_TRUE(firstLive.IsVideo());
  int64_t seen = second;
  while (seen < second + 400) {
    ASSERT_EQ(live->GetLiveData(&raw, 5000), StatusSuccess);
    const SmItem next = TakeItem(raw);
    EXPECT_GE(next.time, seen);
    seen = next.time;
  }
  live->StopLiveStream();
  ASSERT_EQ(playback->MoveFirst(), StatusSuccess) << "playback again after live";

  // A second Connect changes nothing; after Disconnect the index stays.
  CmPropertyNameSet untouched{"marker"};
  playback->Connect({"Sequence_Number"}, untouched, 0);
  EXPECT_EQ(untouched, CmPropertyNameSet{"marker"});
  playback->Disconnect();
  EXPECT_THROW(playback->MoveFirst(), ImNotConnectedError);
  playback->Connect({"Sequence_Number"}, supported, 0);
  EXPECT_EQ(ReadAll().size(), items.size());
  EXPECT_DEATH(playback->MoveTo(second, static_cast<SmMoveMode>(5)), "")
      << "a mode outside the five ends the process";
}

TEST_F(MediaSourceTest, SequencesFollowTimeJumps) {
  const std::string video = "-f lavfi -i testsrc=size=64x48:rate=5 -t 1 -c:v mpeg4 -g 5";
  const std::string a = Make("a.ts", video);
  const std::string b = Make("b.ts", video + " -output_ts_offset 100");
  const std::string joined = scratch / "joined.ts";
  ASSERT_EQ(Capture("cat " + a + " " + b + " > " + joined), "");
  const std::vector<SmItem> items = Load(joined);
  ASSERT_EQ(items.size(), 10u);
  for (size_t i = 0; i < items.size(); ++i) {
    EXPECT_EQ(items[i].Video().GetCodec(), 4u);
    EXPECT_EQ(items[i].Video().GetSync(), i % 5 == 0) << i;
  }
  EXPECT_GT(items[5].time - items[4].time, 90000);
  ASSERT_EQ(playback->MoveTo(items[2].time, MoveClosest), StatusSuccess);
  ASSERT_EQ(playback->MoveNextSequence(), StatusSuccess);
  EXPECT_EQ(Current(), items[5].time);
  EXPECT_EQ(playback->MoveNextSequence(), StatusNoItem);
  // Each sync frame of MPEG-4 carries its configuration.
  const std::vector<SmItem> second(items.begin() + 5, items.end());
  EXPECT_EQ(Decoded("-f m4v -i " + Dump(second, 16, "out.m4v")), Decoded("-i " + b));
}

TEST_F(MediaSourceTest, CoverArtIsNoVideoAndInterlacingIsMarked) {
  const std::string mp3 =
      Make("song.mp3", "-f lavfi -i sine=sample_rate=44100 -f lavfi -i testsrc=size=32x32 -map 0:a "
                       "-map 1:v -frames:v 1 -t 0.5 -c:a libmp3lame -write_xing 0 -c:v mjpeg "
                       "-disposition:v attached_pic");
  std::vector<SmItem> items = Load(mp3);
  ASSERT_GE(items.size(), 10u);
  for (SmItem& item : items) {
    ASSERT_TRUE(item.IsAudio()) << "the cover picture is not a frame of video";
    EXPECT_EQ(AudioFacts(item), "16/0/16/1/44100");
    EXPECT_EQ(item.Audio().GetSampleCount(), 1152u);
  }
  EXPECT_EQ(Decoded("-f mp3 -i " + Dump(items, 32, "out.mp3")), Decoded("-i " + mp3 + " -map 0:a"));

  items = Load(Make("fields.mp4", "-f lavfi -i testsrc=size=64x48:rate=25 -t 0.2 -c:v libx264 "
                                  "-flags +ildct+ilme -x264opts tff=1"));
  ASSERT_EQ(items.size(), 5u);
  for (SmItem& item : items) {
    bool isInterlaced = false;
    bool topFirst = false;
    uint32_t layout = 9;
    ASSERT_TRUE(item.Video().GetInterlacing(isInterlaced, topFirst, layout));
    EXPECT_TRUE(isInterlaced && topFirst);
    EXPECT_EQ(layout, 0u) << "interleaved fields";
  }
}

TEST_F(MediaSourceTest, MotionJPEGGetsHuffmanTablesAndG726PCMH263MPEGAudioKeepWhatTheyHold) {
  const std::string avi =
      Make("cam.avi", "-f lavfi -i testsrc=size=64x48:rate=5 -t 1 -c:v mjpeg -huffman default");
  const std::vector<SmItem> original = Load(avi);
  ASSERT_EQ(original.size(), 5u);
  Bytes stripped;
  for (const SmItem& item : original) {
    const Bytes frame = NmJPEGTest::WithoutHuffmanTables(item.Payload());
    ASSERT_LT(frame.size(), item.Payload().size());
    stripped.insert(stripped.end(), frame.begin(), frame.end());
  }
  NmTestSupport::WriteBytes(scratch / "bare.mjpeg", stripped);
  const std::vector<SmItem> completed = Load(scratch / "bare.mjpeg");
  ASSERT_EQ(completed.size(), 5u);
  for (size_t i = 0; i < completed.size(); ++i) {
    EXPECT_EQ(completed[i].Payload().size(),
              NmJPEGTest::WithoutHuffmanTables(original[i].Payload()).size() + 420);
  }
  EXPECT_EQ(Decoded("-f mjpeg -i " + Dump(completed, 16, "out.mjpeg")), Decoded("-i " + avi));

  // 32 kbit/s G.726 is four bits a code word, packed from the most significant
  // bit; big-endian PCM becomes little-endian.
  const struct {
    std::string file, make, facts, raw;
    uint64_t samples;
    uint64_t samplesPerByte;
  } cases[] = {
      {"voice.wav", "-f lavfi -i sine=sample_rate=8000 -t 0.5 -c:a g726 -b:a 32k",
       "4/32771/16/1/8000", "-f g726 -code_size 4 -sample_rate 8000", 4000, 2},
      {"tone.aiff", "-f lavfi -i sine=sample_rate=22050 -t 0.3", "1/0/16/1/22050",
       "-f s16le -ar 22050 -ac 1", 6615, 0},
  };
  for (const auto& c : cases) {
    const std::string file = Make(c.file, c.make);
    const std::vector<SmItem> items = Load(file);
    ASSERT_FALSE(items.empty());
    uint64_t samples = 0;
    for (const SmItem& item : items) {
      EXPECT_EQ(AudioFacts(item), c.facts);
      if (c.samplesPerByte != 0) {
        EXPECT_EQ(item.Audio().GetSampleCount(), item.Payload().size() * c.samplesPerByte);
      }
      samples += item.Audio().GetSampleCount();
    }
    EXPECT_EQ(samples, c.samples);
    EXPECT_EQ(Decoded(c.raw + " -i " + Dump(items, 32, "out.raw")), Decoded("-i " + file));
  }

  const std::string mkv = Make("clip.mkv", "-f lavfi -i testsrc=size=128x96:rate=10 -f lavfi -i "
                                           "sine=sample_rate=16000 -t 0.5 -c:v h263 -g 3 -c:a mp2");
  const std::vector<SmItem> items = Load(mkv);
  // The container calls every frame a key frame; the pictures say otherwise.
  size_t videoFrames = 0;
  for (const SmItem& item : items) {
    if (item.IsVideo()) {
      EXPECT_EQ(item.Video().GetCodec(), 7u);
      EXPECT_EQ(item.Video().GetSync(), videoFrames % 3 == 0) << videoFrames;
      ++videoFrames;
    } else {
      EXPECT_EQ(item.Audio().GetCodec(), uint32_t{NmMediaProcessing::SmAudioCodec::MPEG1Audio});
      EXPECT_EQ(item.Audio().GetSampleCount(), 1152u);
    }
  }
  EXPECT_EQ(videoFrames, 5u);
  EXPECT_EQ(Decoded("-f h263 -i " + Dump(items, 16, "out.h263")),
            Decoded("-i " + mkv + " -map 0:v"));
  EXPECT_EQ(Decoded("-f mp3 -i " + Dump(items, 32, "out.mp2")), Decoded("-i " + mkv + " -map 0:a"));
}

TEST_F(MediaSourceTest, ConfigurationAndFileErrorsShowAtConnectCutFilesKeepWhatCameBefore) {
  for (const std::string config :
       {"<config/>", "<config><media/></config>", "<config><media url=''/></config>",
        "<config><movie url='a.mp4'/></config>"}) {
    OpenXml("<toolkit type='source'><provider>media</provider>" + config + "</toolkit>");
    EXPECT_EQ(ConnectError(), "The media plug-in needs <config><media url=\"...\"/></config>!");
  }
  EXPECT_THROW(live->StartLiveStream(), ImNotConnectedError);

  Open("/nonexistent/clip.mp4");
  EXPECT_EQ(ConnectError(),
            "Could not open media '/nonexistent/clip.mp4': No such file or directory!");
  try {
    playback->Connect(0);
    ADD_FAILURE() << "connected to a missing file";
  } catch (const ImFileError& error) {
    EXPECT_EQ(error.GetErrorCode(), 6u);
  }
  const std::string garbage = scratch / "garbage.mp4";
  NmTestSupport::WriteBytes(garbage, Bytes(3000, 0x5A));
  Open(garbage);
  EXPECT_EQ(ConnectError(),
            "Could not open media '" + garbage + "': Invalid data found when processing input!");
  NmTestSupport::WriteBytes(scratch / "empty.mkv", {});
  Open(scratch / "empty.mkv");
  EXPECT_NE(ConnectError(), "connected");
  const std::string unsupported = Make("float.wav", "-f lavfi -i sine -t 0.2 -c:a pcm_f32le");
  Open(unsupported);
  EXPECT_EQ(ConnectError(),
            "No stream of media '" + unsupported + "' has a supported codec (found: pcm_f32le)!");
  // An unreachable network address fails at Connect too, in words.
  Open("rtsp://127.0.0.1:1/none");
  EXPECT_EQ(ConnectError().rfind("Could not open media 'rtsp://127.0.0.1:1/none': ", 0), 0u);

  const std::string ts =
      Make("cut.ts", "-f lavfi -i testsrc=size=64x48:rate=10 -t 2 -c:v libx264 -g 5");
  std::filesystem::resize_file(ts, std::filesystem::file_size(ts) / 2 + 100);
  const std::vector<SmItem> items = Load(ts);
  EXPECT_GE(items.size(), 5u);
  EXPECT_LT(items.size(), 20u);
  EXPECT_EQ(Complaints(Dump(items, 16, "out.h264")), "") << "what is delivered decodes cleanly";
}

using CmRtspServer = NmTestSupport::CmRtspTestServer;

TEST_F(MediaSourceTest, LiveRtspStreamFromALoopbackServer) {
  CmRtspServer server;
  if (server.GetPort() == 0) {
    GTEST_SKIP() << "The GStreamer RTSP test server could not start (needs python3-gi, "
                    "gir1.2-gst-rtsp-server-1.0, gstreamer1.0-plugins-good and -bad)";
  }
  const std::string url = "rtsp://127.0.0.1:" + std::to_string(server.GetPort()) + "/cam";
  Open(url);
  CmPropertyNameSet supported;
  playback->Connect({"Sequence_Number"}, supported, 0);
  EXPECT_EQ(playback->MoveFirst(), StatusNoItem) << "a network stream has no playback";
  ImData* raw = nullptr;
  EXPECT_EQ(playback->GetData(&raw), StatusNoItem);

  live->StartLiveStream();
  std::vector<SmItem> video;
  std::vector<SmItem> audio;
  size_t syncFrames = 0;
  for (int pulls = 0; pulls < 2000 && (syncFrames < 2 || audio.size() < 5); ++pulls) {
    ASSERT_EQ(live->GetLiveData(&raw, 10000), StatusSuccess) << "the stream stalled";
    SmItem item = TakeItem(raw);
    if (item.IsVideo()) {
      EXPECT_EQ(item.Video().GetCodec(), 10u);
      syncFrames += item.Video().GetSync() ? 1 : 0;
      if (syncFrames > 0) {
        video.push_back(item);
      }
    } else {
      ASSERT_TRUE(item.IsAudio());
      EXPECT_EQ(AudioFacts(item), MuLaw);
      if (!audio.empty()) {
        EXPECT_EQ(item.Audio().GetSequenceNumber(),
                  static_cast<uint16_t>(audio.back().Audio().GetSequenceNumber() + 1));
      }
      audio.push_back(item);
    }
  }
  live->StopLiveStream();
  ASSERT_GE(video.size(), 2u);
  // Times lie on today's clock.
  const int64_t now = static_cast<int64_t>(std::time(nullptr)) * 1000;
  EXPECT_LT(std::llabs(video.back().time - now), 24 * 3600 * 1000LL);
  EXPECT_EQ(Complaints(Dump(video, 16, "live.h264")), "")
      << "the live frames from the first sync frame on decode cleanly";

  // Live again after a stop: the stream resumes.
  live->StartLiveStream();
  ASSERT_EQ(live->GetLiveData(&raw, 10000), StatusSuccess);
  delete raw;

  // The camera goes away and comes back on the same address: the stream is
  // opened again, and numbering starts over.
  const int port = server.GetPort();
  server.Kill();
  while (live->GetLiveData(&raw, 500) == StatusSuccess) {
    delete raw;
  }
  CmRtspServer restarted(port);
  ASSERT_EQ(restarted.GetPort(), port);
  ASSERT_EQ(live->GetLiveData(&raw, 20000), StatusSuccess) << "no reconnection";
  EXPECT_LT(std::stoi(TakeItem(raw).sequenceNumber), 20);
  live->StopLiveStream();
  playback->Disconnect();
}

} // namespace
