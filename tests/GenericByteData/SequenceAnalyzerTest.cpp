#include <gtest/gtest.h>

#include "MediaProcessing/GenericByteData/ByteDataSequenceAnalyzer.h"
#include "TestTimes.h"
#include "support/GenericByteDataBuilder.h"
#include "support/ImageTestSupport.h"

using namespace NmMediaProcessing;
using namespace NmTestSupport;
using Result = SmByteDataSequenceResult;

namespace {
// Feeds records to one analyser and reports each status.
class CmFeeder {
public:
  uint32_t Feed(CmBytes bytes) {
    const CmGenericByteData record(bytes.data(), bytes.size());
    Result result;
    result.m_Status = 99;
    m_LastAccepted = m_Analyzer.Analyze(record, result);
    m_LastSync = result.m_Sync;
    return result.m_Status;
  }
  uint32_t Video(uint16_t sequence, bool sync, uint64_t syncTime, uint64_t frameTime) {
    return Feed(BuildVideoPacket(
        {.sequenceNumber = sequence, .sync = sync, .syncTime = syncTime, .frameTime = frameTime}));
  }
  uint32_t Audio(uint16_t sequence, uint64_t time) {
    return Feed(BuildAudioPacket({.sequenceNumber = sequence, .time = time}));
  }
  uint32_t Block(uint64_t begin, uint64_t end, uint16_t images, bool lastImageAtEndTime = true) {
    return Feed(BuildBlock({.lastImageAtEndTime = lastImageAtEndTime,
                            .beginTime = begin,
                            .endTime = end,
                            .imageCount = images}));
  }

  CmByteDataSequenceSpecificAnalyzer m_Analyzer;
  bool m_LastAccepted = false;
  bool m_LastSync = false;
};
} // namespace

TEST(ByteDataSequenceAnalyzer, VideoPacketsContinuityGapsWarpsAndSyncLoss) {
  constexpr uint32_t C = Result::SequenceContinuous, G = Result::SequenceGap,
                     W = Result::SequenceTimeWarp, L = Result::SequenceSyncLost;
  // Sequence number, sync, sync time, frame time; the status and the last
  // sync time after it. In order: sequence number 0 follows 65535; a skipped
  // number in the same GOP, then in a new GOP; the same frame time again; a
  // frame before its own sync time; a sync frame that names another frame as
  // its sync frame; a frame of a GOP whose sync frame never came, and one of
  // an older GOP; a sync frame not newer than the last sync time.
  const std::tuple<uint16_t, bool, uint64_t, uint64_t, uint32_t, int64_t> packets[] = {
      {65534, true, 1000, 1000, C, 1000}, {65535, false, 1000, 1040, C, 1000},
      {0, false, 1000, 1080, C, 1000},    {2, false, 1000, 1120, G, 1000},
      {4, true, 1160, 1160, G, 1160},     {5, false, 1160, 1200, C, 1160},
      {6, false, 1160, 1200, W, 1160},    {7, false, 1300, 1240, W, 1160},
      {8, true, 1250, 1280, W, 1250},     {9, false, 1300, 1320, L, 1250},
      {10, false, 1000, 1360, W, 1250},   {11, true, 1250, 1250, W, 1250}};
  CmFeeder f;
  EXPECT_EQ(f.m_Analyzer.GetLastKind(), 3u);
  for (const auto& [sequence, sync, syncTime, frameTime, status, lastSync] : packets) {
    EXPECT_EQ(f.Video(sequence, sync, syncTime, frameTime), status) << sequence;
    EXPECT_EQ(f.m_LastSync, sync) << sequence;
    EXPECT_EQ(f.m_Analyzer.GetLastSyncTime(), Ms(lastSync)) << sequence;
  }
  EXPECT_EQ(f.m_Analyzer.GetLastSequenceNumber(), 11);

  // The first packet of a stream: a sync frame at time 0 cannot be after
  // the initial state, and a frame without sync has lost its GOP.
  CmFeeder first;
  EXPECT_EQ(first.Video(7, false, 10, 20), Result::SequenceSyncLost);
  CmFeeder zero;
  EXPECT_EQ(zero.Video(0, true, 0, 0), Result::SequenceTimeWarp);
}

TEST(ByteDataSequenceAnalyzer, BlocksAndTheirJoinsWithPackets) {
  CmFeeder f;
  EXPECT_EQ(f.Block(1000, 2000, 3, false), Result::SequenceContinuous);
  EXPECT_TRUE(f.m_LastSync);
  EXPECT_TRUE(f.m_Analyzer.GetLastEndExclusive());
  // An exclusive end lets the next block start on it.
  EXPECT_EQ(f.Block(2000, 3000, 3, true), Result::SequenceContinuous);
  EXPECT_FALSE(f.m_Analyzer.GetLastEndExclusive());
  // An inclusive end does not.
  EXPECT_EQ(f.Block(3000, 4000, 3, false), Result::SequenceTimeWarp);
  EXPECT_EQ(f.Block(3500, 4500, 2), Result::SequenceTimeWarp); // before the last end
  EXPECT_EQ(f.Block(5000, 5000, 2), Result::SequenceTimeWarp); // times invalid
  EXPECT_EQ(f.Block(5000, 5000, 1), Result::SequenceTimeWarp); // not after last sync
  EXPECT_EQ(f.Block(6000, 6000, 1, false), Result::SequenceContinuous);
  // One image: begin equals end, never exclusive.
  EXPECT_FALSE(f.m_Analyzer.GetLastEndExclusive());
  EXPECT_EQ(f.m_Analyzer.GetLastSequenceNumber(), 0);

  // After a block the first video packet is not compared by number.
  EXPECT_EQ(f.Video(4321, true, 7000, 7000), Result::SequenceContinuous);
  EXPECT_EQ(f.Video(4322, false, 7000, 7040), Result::SequenceContinuous);
  EXPECT_EQ(f.Block(8000, 9000, 2), Result::SequenceContinuous);
  // A non-sync packet after a block: its GOP's sync frame was not seen;
  // one that names the block's own time as its sync time refers back.
  CmFeeder back = f;
  EXPECT_EQ(back.Video(1, false, 8000, 9600), Result::SequenceTimeWarp);
  EXPECT_EQ(f.Video(1, false, 9500, 9600), Result::SequenceSyncLost);

  // Raw JPEG is legacy and leaves the state alone.
  const auto lastTime = f.m_Analyzer.GetLastTime();
  EXPECT_EQ(f.Feed(BuildRawJPEG(32)), Result::SequenceLegacy);
  EXPECT_TRUE(f.m_LastSync);
  EXPECT_EQ(f.m_Analyzer.GetLastTime(), lastTime);
  EXPECT_EQ(f.m_Analyzer.GetLastKind(), 0u);
}

TEST(ByteDataSequenceAnalyzer, AudioStreamsMixingErrorsAndRecordsThatCannotBeAnalysed) {
  CmFeeder audio;
  EXPECT_EQ(audio.Audio(65535, 100), Result::SequenceContinuous);
  EXPECT_EQ(audio.Audio(0, 120), Result::SequenceContinuous);
  EXPECT_EQ(audio.Audio(2, 140), Result::SequenceGap);
  EXPECT_EQ(audio.Audio(3, 140), Result::SequenceTimeWarp);
  EXPECT_EQ(audio.m_Analyzer.GetLastSyncTime(), Ms(140));
  using NmImageTest::ExpectError;
  ExpectError([&] { audio.Video(0, true, 200, 200); },
              "Cannot analyze video packets after audio packets!", 0);
  ExpectError([&] { audio.Block(200, 300, 2); }, "Cannot analyze video blocks after audio packets!",
              0);
  CmFeeder video;
  video.Video(0, true, 100, 100);
  ExpectError([&] { video.Audio(1, 200); },
              "Cannot analyze audio packets after other types of Generic Byte Data", 0);

  CmFeeder afterBlock;
  afterBlock.Block(100, 200, 2);
  EXPECT_THROW(afterBlock.Audio(1, 300), NmError::CmIntegrityError);

  // A multi packet is analysed through its audio first, else its video.
  CmFeeder mixed;
  EXPECT_EQ(mixed.Feed(BuildMultiPacket(
                {.packets = {BuildVideoPacket({.frameTime = 50}),
                             BuildAudioPacket({.sequenceNumber = 1, .time = 60})}})),
            Result::SequenceContinuous);
  EXPECT_EQ(mixed.m_Analyzer.GetLastKind(), 1u);
  CmFeeder videoMulti;
  EXPECT_EQ(videoMulti.Feed(BuildMultiPacket(
                {.packets = {BuildVideoPacket({.syncTime = 50, .frameTime = 50})}})),
            Result::SequenceContinuous);
  EXPECT_EQ(videoMulti.m_Analyzer.GetLastKind(), 0u);

  CmFeeder f;
  f.Video(1, true, 100, 100);
  const CmBytes rejects[] = {
      BuildVideoPacket({.type = 100}),
      BuildBlock({.type = 13}),
      BuildMultiPacket({.packets = {BuildVideoPacket({.type = 200})}}),
      BuildMultiPacket({.packetCount = 0, .packets = {BuildVideoPacket({})}}),
  };
  for (const CmBytes& bytes : rejects) {
    f.Feed(bytes);
    EXPECT_FALSE(f.m_LastAccepted);
  }
  CmByteDataSequenceSpecificAnalyzer& a = f.m_Analyzer;
  Result result;
  EXPECT_FALSE(a.Analyze(CmGenericByteData(), result));
  EXPECT_EQ(a.GetLastTime(), Ms(100));
  EXPECT_EQ(f.Video(2, false, 100, 140), Result::SequenceContinuous);
}
