#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <vector>

#include "MediaProcessing/GenericByteData/GenericByteDataBlock.h"
#include "MediaProcessing/StreamCollector/VideoStreamConverter.h"
#include "support/FlatJPEG.h"
#include "support/GenericByteDataBuilder.h"
#include "support/H264StreamWriter.h"
#include "support/ImageTestSupport.h"

using namespace NmMediaProcessing;
using namespace NmTestSupport;
using NmTimeStamp::CmTimeStamp;

namespace {

constexpr uint64_t T0 = 1700000000000ULL;
const std::string Collector = "NmMediaProcessing::CmVideoStreamCollector<struct NmMediaProcessing::"
                              "SmVideoStreamConverterTraits>::";

// Parameter sets of a 64 x 48 picture: what a sync frame must carry for the
// collector to learn the picture size.
CmBytes ParameterSets() {
  CmH264StreamWriter writer;
  writer.WriteSps({});
  writer.WritePps({});
  return writer.AnnexB();
}

// A frame of an H.264 stream; sync frames carry parameter sets, the others a
// payload that tells them apart.
CmBytes Frame(uint16_t sequence, bool sync, uint64_t syncTime, uint64_t frameTime,
              SmImageForm form = {}) {
  CmBytes payload = sync ? ParameterSets() : Pattern(5 + sequence % 7, uint8_t(sequence));
  return BuildVideoPacket({.sequenceNumber = sequence,
                           .sync = sync,
                           .imageForm = form,
                           .syncTime = syncTime,
                           .frameTime = frameTime,
                           .payload = payload});
}

CmBytes PayloadOf(const CmBytes& packet) {
  return CmBytes(packet.begin() + CmGenericVideoStreamDataPacket::HeaderLength, packet.end());
}

// Drives a collector record by record, as a recorder would.
class CmCollectorDriver {
public:
  explicit CmCollectorDriver(bool endTimeIsLastFrame, bool keyFramesOnly = false) {
    m_Collector.SetEndTimeIsLastFrame(endTimeIsLastFrame);
    m_Collector.SetKeyFramesOnly(keyFramesOnly);
  }
  // Keeps the bytes alive as long as the collector may view them.
  bool Feed(const CmBytes& bytes) {
    m_Records.push_back(bytes);
    CmBytes& kept = m_Records.back();
    return m_Collector.HandleData(CmByteDataPointer<NmCountedPtr::CmUnserializedReferenceCount>(
        new CmGenericByteData(kept.data(), kept.size())));
  }
  uint32_t Code() const {
    return m_Collector.GetLastError() ? m_Collector.GetLastError()->GetErrorCode() : 0;
  }
  std::string Message() const {
    return m_Collector.GetLastError() ? m_Collector.GetLastError()->GetDescription() : "";
  }
  std::vector<CmGenericVideoByteDataBlock> Blocks() {
    std::vector<CmGenericVideoByteDataBlock> blocks;
    while (m_Collector.GetBlockCount() != 0) {
      blocks.push_back(*m_Collector.RetrieveBlock());
    }
    return blocks;
  }
  CmVideoStreamConverterImpl& operator*() { return m_Collector; }
  CmVideoStreamConverterImpl* operator->() { return &m_Collector; }

private:
  std::deque<CmBytes> m_Records;
  CmVideoStreamConverterImpl m_Collector;
};

uint64_t Wire(const CmTimeStamp& time) {
  return static_cast<uint64_t>(time.GetMilliseconds());
}

CmBytes BlockPayload(const CmGenericVideoByteDataBlock& block) {
  return CmBytes(block.GetPayload(), block.GetPayload() + block.GetPayloadLength());
}

} // namespace

TEST(StreamCollector, GOPsEndAtTheirLastFrameOrAtTheNextSyncFrame) {
  // GOPs of three frames, of one, of two with a gap in the numbers that lets
  // its second frame in, and of two behind a sync frame after a gap.
  const std::vector<CmBytes> frames = {Frame(0, true, T0, T0),
                                       Frame(1, false, T0, T0 + 40),
                                       Frame(2, false, T0, T0 + 80),
                                       Frame(3, true, T0 + 120, T0 + 120),
                                       Frame(4, true, T0 + 160, T0 + 160),
                                       Frame(6, false, T0 + 160, T0 + 200),
                                       Frame(8, true, T0 + 240, T0 + 240),
                                       Frame(9, false, T0 + 240, T0 + 280)};
  struct Expected {
    uint64_t begin, end;
    bool exclusive;
    uint32_t images;
  };
  const struct {
    bool endTimeIsLastFrame;
    std::vector<Expected> blocks;
  } cases[] = {
      {true,
       {{T0, T0 + 80, false, 3},
        {T0 + 120, T0 + 120, false, 1},
        {T0 + 160, T0 + 200, false, 2},
        {T0 + 240, T0 + 280, false, 2}}},
      // A GOP closed by a gap, and the last GOP of the stream, end 1 ms
      // behind their last frame.
      {false,
       {{T0, T0 + 120, true, 3},
        {T0 + 120, T0 + 120, false, 1},
        {T0 + 160, T0 + 201, true, 2},
        {T0 + 240, T0 + 281, true, 2}}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.endTimeIsLastFrame);
    CmCollectorDriver driver(c.endTimeIsLastFrame);
    for (const CmBytes& frame : frames) {
      ASSERT_TRUE(driver.Feed(frame)) << driver.Message();
    }
    driver->FlushGOP();
    const auto blocks = driver.Blocks();
    ASSERT_EQ(blocks.size(), c.blocks.size());
    size_t next = 0;
    for (size_t i = 0; i < blocks.size(); ++i) {
      const CmGenericVideoByteDataBlock& block = blocks[i];
      const Expected& e = c.blocks[i];
      EXPECT_EQ(Wire(block.GetBeginTime()), e.begin) << i;
      EXPECT_EQ(Wire(block.GetEndTime()), e.end) << i;
      EXPECT_EQ(block.IsEndTimeExclusive(), e.exclusive) << i;
      EXPECT_EQ(block.GetImageCount(), e.images) << i;
      EXPECT_TRUE(block.AreTimesValid()) << i;
      EXPECT_EQ(std::tuple(block.GetType(), block.GetImageWidth(), block.GetImageHeight()),
                std::tuple(10, 64u, 48u));
      // The frames' payloads back to back, nothing else.
      CmBytes expected;
      for (uint32_t k = 0; k < e.images; ++k) {
        const CmBytes payload = PayloadOf(frames[next++]);
        expected.insert(expected.end(), payload.begin(), payload.end());
      }
      EXPECT_EQ(BlockPayload(block), expected) << i;
    }
  }
}

TEST(StreamCollector, ConvertMakesExactlyOneBlockOrNothing) {
  const CmBytes s0 = Frame(0, true, T0, T0), p1 = Frame(1, false, T0, T0 + 40),
                s2 = Frame(2, true, T0 + 80, T0 + 80), audio = BuildAudioPacket({.time = T0});
  auto list = [](std::initializer_list<const CmBytes*> records) {
    std::vector<SmRecordBytes> pairs;
    for (const CmBytes* r : records) {
      pairs.emplace_back(r->data(), r->size());
    }
    return pairs;
  };
  CmVideoStreamConverter converter;
  const auto block = converter.Convert(list({&s0, &p1}), CmTimeStamp(), false, true, false);
  ASSERT_TRUE(block);
  EXPECT_TRUE(block->GetOwnsBuffer());
  EXPECT_EQ(block->GetImageCount(), 2u);
  EXPECT_EQ(Wire(block->GetEndTime()), T0 + 40);
  // The same frames inside a multi packet each.
  const CmBytes m0 = BuildMultiPacket({.packets = {audio, s0}}),
                m1 = BuildMultiPacket({.packets = {p1}});
  const auto fromMulti = converter.Convert(list({&m0, &m1}), CmTimeStamp(), true, true, false);
  ASSERT_TRUE(fromMulti);
  EXPECT_EQ(BlockPayload(*fromMulti), BlockPayload(*block));

  // Frames of two GOPs would make two blocks: refused.
  EXPECT_FALSE(converter.Convert(list({&s0, &p1, &s2}), CmTimeStamp(), false, true, false));
  // Empty lists, empty records, audio and a failure after success.
  const uint8_t* none = nullptr;
  for (const auto& records :
       {std::vector<SmRecordBytes>{}, std::vector<SmRecordBytes>{{none, 10}},
        std::vector<SmRecordBytes>{{s0.data(), 0}}, list({&audio}), list({&s0, &audio})}) {
    EXPECT_FALSE(converter.Convert(records, CmTimeStamp(), false, true, false));
  }
  // Each conversion starts afresh: the same frames convert again.
  EXPECT_TRUE(converter.Convert(list({&s0, &p1}), CmTimeStamp(), false, true, false));
}

TEST(StreamCollector, GatheredFramesViewTheirRecords) {
  CmCollectorDriver driver(true);
  CmBytes s0 = Frame(0, true, T0, T0);
  const CmByteDataPointer<NmCountedPtr::CmUnserializedReferenceCount> record(
      new CmGenericByteData(s0.data(), s0.size()));
  ASSERT_TRUE(driver->HandleData(record));
  EXPECT_EQ(driver->GetKeyFrame().GetData(), s0.data());
  // The collector holds the record until the block is written.
  EXPECT_EQ(record.UseCount(), 2u);
  driver->FlushGOP();
  EXPECT_EQ(record.UseCount(), 1u);
  NmImageTest::ExpectError([&] { driver->GetKeyFrame(); }, "GOP buffer is empty", 1);
  NmImageTest::ExpectError([&] { driver->GetLastTimeStamp(); }, "GOP buffer is empty", 1);
  driver.Blocks();
  NmImageTest::ExpectError([&] { driver->RetrieveBlock(); },
                           "No video block is ready for retrieval", 1);
}

TEST(StreamCollector, BrokenStreamsCloseTheGOPAndRefuseTheFrame) {
  const SmImageForm rotated{.rotatedQuarterTurn = true};
  const struct {
    const char* name;
    std::vector<CmBytes> tail; // after S0, P1; the last is refused
    const char* message;
    uint32_t code;
    uint32_t blocksBefore; // blocks queued after the refusal
  } cases[] = {
      {"time warp", {Frame(2, false, T0, T0 + 20)}, "Skipping frame due to time warp", 5, 1},
      {"sync point lost",
       {Frame(2, false, T0 + 60, T0 + 80)},
       "Skipping rest of synchronization sequence due to synchronization point loss",
       1,
       1},
      {"attributes changed",
       {Frame(2, false, T0, T0 + 80, rotated)},
       "Invalid video stream attributes detected",
       1,
       1},
      {"header unreadable",
       {BuildVideoPacket({.type = 17})},
       "Error extracting video data from Generic Byte Data",
       1,
       0},
      {"audio",
       {BuildAudioPacket({.time = T0 + 80})},
       "Error extracting video data from Generic Byte Data",
       1,
       0},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    CmCollectorDriver driver(true);
    ASSERT_TRUE(driver.Feed(Frame(0, true, T0, T0)));
    ASSERT_TRUE(driver.Feed(Frame(1, false, T0, T0 + 40)));
    EXPECT_FALSE(driver.Feed(c.tail.back()));
    EXPECT_EQ(driver.Message(), c.message);
    EXPECT_EQ(driver.Code(), c.code);
    ASSERT_EQ(driver->GetBlockCount(), c.blocksBefore);
    if (c.blocksBefore == 0) {
      EXPECT_EQ(driver->GetLastError()->GetLocation().rfind(
                    Collector + "SetDataError (line VideoStreamCollector.cpp, ", 0),
                0u);
    }
    if (c.blocksBefore == 1) {
      const auto blocks = driver.Blocks();
      EXPECT_EQ(blocks[0].GetImageCount(), 2u);
      // The stream goes on only at its next sync frame.
      EXPECT_FALSE(driver.Feed(Frame(3, false, T0, T0 + 100)));
      EXPECT_TRUE(driver.Feed(Frame(4, true, T0 + 120, T0 + 120))) << driver.Message();
    }
  }
  // A first frame of a GOP whose sync frame was never seen.
  CmCollectorDriver driver(true);
  EXPECT_FALSE(driver.Feed(Frame(7, false, T0, T0 + 40)));
  EXPECT_EQ(driver.Message(), "Cannot add non-synchronization frame at this point");
  EXPECT_EQ(driver->GetLastError()->GetLocation().rfind(
                Collector + "HandleFrame (line VideoStreamCollector.cpp, ", 0),
            0u);
}

TEST(StreamCollector, CountByteAndTimeLimitsAtTheirBoundaries) {
  CmCollectorDriver driver(true);
  ASSERT_TRUE(driver.Feed(Frame(0, true, T0, T0)));
  uint32_t sequence = 1; // frame number and milliseconds since the first
  for (; sequence < 65535; ++sequence) {
    ASSERT_TRUE(driver.Feed(BuildVideoPacket({.sequenceNumber = static_cast<uint16_t>(sequence),
                                              .sync = false,
                                              .syncTime = T0,
                                              .frameTime = T0 + sequence,
                                              .payload = {static_cast<uint8_t>(sequence)}})));
  }
  EXPECT_EQ(driver->GetFrameCount(), 65535u);
  EXPECT_EQ(driver->GetBlockCount(), 0u);
  const auto frame = [&](uint32_t n, bool sync, uint64_t time) {
    return BuildVideoPacket({.sequenceNumber = static_cast<uint16_t>(n),
                             .sync = sync,
                             .syncTime = sync ? time : T0,
                             .frameTime = time});
  };
  EXPECT_FALSE(driver.Feed(frame(sequence, false, T0 + sequence)));
  EXPECT_EQ(driver.Code(), 4u);
  EXPECT_EQ(driver.Message(), "Maximum GOP frame count exceeded");
  EXPECT_EQ(driver->GetLastError()->GetLocation().rfind(
                "NmMediaProcessing::CmVideoGOPLimiter<class NmMediaProcessing::"
                "CmVideoBlockGOPLimits>::UpdateAndCheckLimits (line VideoGOPLimiter.cpp, ",
                0),
            0u);
  const auto blocks = driver.Blocks();
  ASSERT_EQ(blocks.size(), 1u);
  EXPECT_EQ(blocks[0].GetImageCount(), 65535u);
  EXPECT_EQ(Wire(blocks[0].GetEndTime()), T0 + 65534);
  ++sequence;
  EXPECT_FALSE(driver.Feed(frame(sequence, false, T0 + sequence)));
  EXPECT_EQ(driver.Message(), "A GOP must start with a packet with the sync flag set");
  ++sequence;
  // A sync frame whose payload tells no size opens nothing either.
  EXPECT_FALSE(driver.Feed(frame(sequence, true, T0 + sequence)));
  EXPECT_EQ(driver.Message(), "Invalid video stream size analysis result");
  ++sequence;
  EXPECT_TRUE(
      driver.Feed(Frame(static_cast<uint16_t>(sequence), true, T0 + sequence, T0 + sequence)));
  EXPECT_EQ(driver->GetFrameCount(), 1u);

  CmVideoGOPLimiter<CmVideoBlockGOPLimits> limiter;
  const CmTimeStamp t0 = CmTimeStamp::FromMilliseconds(T0);
  const NmTimeStamp::CmTimeSpan span(1001, 0, 0, 0, 0);
  const NmTimeStamp::CmTimeSpan ms = NmTimeStamp::CmTimeSpan::FromMilliseconds(1);
  ASSERT_TRUE(limiter.UpdateAndCheckLimits(4294967294ULL, t0));
  const struct {
    uint64_t bytes;
    CmTimeStamp time;
    uint32_t code; // 0: accepted
  } steps[] = {
      {2, t0, 2}, {~0ULL, t0, 2}, {0, t0 + span + ms, 3}, {1, t0 + span, 0}, {1, t0 + span, 2},
  };
  for (const auto& s : steps) {
    const uint64_t frames = limiter.GetFrameCount(), bytes = limiter.GetByteCount();
    EXPECT_EQ(limiter.UpdateAndCheckLimits(s.bytes, s.time), s.code == 0);
    const auto* error = limiter.GetLastError();
    EXPECT_EQ(error ? error->GetErrorCode() : 0u, s.code);
    if (s.code != 0) {
      EXPECT_EQ(limiter.GetFrameCount(), frames);
      EXPECT_EQ(limiter.GetByteCount(), bytes);
    }
  }
  // A whole block is measured by its header.
  const auto block = [](uint64_t end) {
    return BuildBlock({.beginTime = T0, .endTime = end, .imageCount = 2});
  };
  const uint64_t days = 1001ULL * 86400000ULL;
  for (const auto& [end, code] : {std::pair{T0 + days, 0u}, std::pair{T0 + days + 1, 3u}}) {
    CmBytes bytes = block(end);
    EXPECT_EQ(limiter.CheckBlockLimits(CmGenericVideoByteDataBlock(bytes.data(), bytes.size())),
              code == 0);
    EXPECT_EQ(limiter.GetLastError() ? limiter.GetLastError()->GetErrorCode() : 0u, code);
  }
}

TEST(StreamCollector, BlocksPassThroughAndCloseTheGOPBeingGathered) {
  CmCollectorDriver driver(true);
  ASSERT_TRUE(driver.Feed(Frame(0, true, T0, T0)));
  ASSERT_TRUE(driver.Feed(Frame(1, false, T0, T0 + 40)));
  const CmBytes incoming = BuildBlock({.beginTime = T0 + 80, .endTime = T0 + 160, .imageCount = 3});
  ASSERT_TRUE(driver.Feed(incoming)) << driver.Message();
  // A block that goes back in time, and legacy data handed in as a block.
  EXPECT_FALSE(driver.Feed(BuildBlock({.beginTime = T0 + 100, .endTime = T0 + 100})));
  EXPECT_EQ(driver.Code(), 5u);
  EXPECT_EQ(driver.Message(), "Skipping block due to time warp");
  CmBytes raw = BuildRawJPEG(64);
  EXPECT_FALSE(
      driver->HandleBlock(std::make_shared<CmGenericVideoByteDataBlock>(raw.data(), raw.size())));
  EXPECT_EQ(driver.Message(), "Legacy data is skipped");
  EXPECT_FALSE(driver->HandleBlock(std::shared_ptr<CmGenericVideoByteDataBlock>()));
  EXPECT_EQ(driver.Message(), "Empty block passed to Stream Collector");
  const auto blocks = driver.Blocks();
  ASSERT_EQ(blocks.size(), 2u);
  EXPECT_EQ(blocks[0].GetImageCount(), 2u);
  EXPECT_EQ(CmBytes(blocks[1].GetData(), blocks[1].GetData() + blocks[1].GetLength()), incoming);
}

TEST(StreamCollector, LegacyJPEGTakesTheTimeGivenOnceKeyFramesOnlyTheRestUncounted) {
  const CmBytes jpeg = FlatJPEG(90);
  ASSERT_FALSE(jpeg.empty());
  CmVideoStreamConverter converter;
  const CmTimeStamp given = CmTimeStamp::FromMilliseconds(T0);
  const auto block = converter.Convert({{jpeg.data(), jpeg.size()}}, given, false, true, false);
  ASSERT_TRUE(block);
  EXPECT_EQ(std::tuple(block->GetType(), block->GetImageWidth(), block->GetImageHeight()),
            std::tuple(1, 48u, 32u));
  EXPECT_TRUE(block->GetBeginTime() == given && block->GetEndTime() == given);
  EXPECT_EQ(BlockPayload(*block), jpeg);
  // Without a time the picture lies at the very start of 1970, where no
  // stream can start.
  EXPECT_FALSE(converter.Convert({{jpeg.data(), jpeg.size()}}, CmTimeStamp(), false, true, false));
  // The time serves the first picture only: the second falls back to 1970.
  EXPECT_FALSE(converter.Convert({{jpeg.data(), jpeg.size()}, {jpeg.data(), jpeg.size()}}, given,
                                 false, true, false));
  // JPEG that no analyser can size is no video.
  const CmBytes fake = BuildRawJPEG(64);
  EXPECT_FALSE(converter.Convert({{fake.data(), fake.size()}}, given, false, true, false));

  CmCollectorDriver driver(true, true);
  ASSERT_TRUE(driver.Feed(Frame(0, true, T0, T0)));
  CmBytes p1 = Frame(1, false, T0, T0 + 40);
  EXPECT_EQ(driver->HandleFrame(CmGenericVideoStreamDataPacket(p1.data(), p1.size())), 1u);
  EXPECT_TRUE(driver.Feed(Frame(2, false, T0, T0 + 80)));
  EXPECT_EQ(driver->GetFrameCount(), 1u);
  EXPECT_EQ(driver->GetByteCount(), ParameterSets().size());
  ASSERT_TRUE(driver.Feed(Frame(3, true, T0 + 120, T0 + 120)));
  driver->FlushGOP();
  const auto blocks = driver.Blocks();
  ASSERT_EQ(blocks.size(), 2u);
  EXPECT_EQ(blocks[0].GetImageCount(), 1u);
  EXPECT_EQ(BlockPayload(blocks[1]), ParameterSets());
}
