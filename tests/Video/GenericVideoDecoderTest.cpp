#include <gtest/gtest.h>

#include "GenericByteData/TestTimes.h"
#include "MediaProcessing/Video/GenericVideoDecoder.h"
#include "ScriptedVideoCodec.h"
#include "support/GenericByteDataBuilder.h"
#include "support/ImageTestSupport.h"

using namespace NmMediaProcessing;
using namespace NmTestSupport;
using NmImageTest::ExpectError;
using NmVideoTest::CmScript;
using NmVideoTest::SmStep;

namespace {

// 2023-11-14: far from 1970, so nothing here is taken for stream-relative.
constexpr int64_t T0 = 1700000000000;

CmBytes Packet(uint16_t codec, uint64_t time, SmImageForm form = {}, bool sync = true) {
  return BuildVideoPacket(
      {.codec = codec, .sync = sync, .imageForm = form, .syncTime = time, .frameTime = time});
}

CmBytes Block(uint16_t type, uint64_t begin, uint64_t end, uint16_t images, SmImageForm form = {}) {
  return BuildBlock(
      {.type = type, .imageForm = form, .beginTime = begin, .endTime = end, .imageCount = images});
}

struct SmOutput {
  bool ok = false;
  bool callAgain = false;
  bool gotImage = false;
  CmImage image;
};

// One decoder over scripted codecs, fed with byte vectors.
class CmHarness {
public:
  explicit CmHarness(const SmVideoDecodeParameters& parameters = {})
      : m_Decoder(NmVideoTest::ScriptedFactoryMaker(m_Script)) {
    m_Decoder.SetParameters(parameters);
  }

  SmOutput Feed(CmBytes bytes) {
    m_Bytes = std::move(bytes);
    const CmGenericByteData record(m_Bytes.data(), m_Bytes.size());
    SmOutput out;
    out.ok = m_Decoder.Decode(record, out.image, out.callAgain, out.gotImage);
    return out;
  }
  SmOutput Flush() { return Feed({}); }
  // A call's result in short: "fail", "none", or the image's time after T0
  // and its height, marked "~" when the time is estimated; then "+" when the
  // decoder asks to be called again. One summary for each of `count` calls
  // with the same bytes.
  std::string Summary(const CmBytes& bytes, int count = 1) {
    std::string all;
    for (int i = 0; i < count; ++i) {
      const SmOutput out = Feed(bytes);
      const auto& a = out.image.GetAttributes();
      all += (all.empty() ? "" : " ") +
             (!out.ok ? std::string("fail")
              : !out.gotImage
                  ? std::string("none")
                  : std::to_string(a.timeStamp.GetMilliseconds() - T0) + "h" +
                        std::to_string(out.image.GetHeight()) + (a.attribute3 != 0 ? "~" : "")) +
             (out.callAgain ? "+" : "");
    }
    return all;
  }
  void Script(std::initializer_list<SmStep> steps) {
    m_Script->steps.insert(m_Script->steps.end(), steps);
  }

  std::shared_ptr<CmScript> m_Script = std::make_shared<CmScript>();
  CmGenericVideoDecoder m_Decoder;
  CmBytes m_Bytes;
};

} // namespace

TEST(GenericVideoDecoder, BlockImagesGetTheBlockTimesThenEstimatedOnes) {
  CmHarness h;
  h.Script({{.produce = true, .callAgain = true},
            {.produce = true, .callAgain = true},
            {.produce = true, .callAgain = true},
            {.produce = true}});
  EXPECT_EQ(h.Summary(Block(10, T0, T0 + 200, 3), 4), "0h8+ 100h8+ 200h8+ 201h8~");
  // A fresh id for the first image, continuation ids after it.
  std::vector<int32_t> ids;
  for (const auto& call : h.m_Script->calls) {
    ids.push_back(call.id);
  }
  EXPECT_EQ(ids, (std::vector<int32_t>{1, 2, 3, 4}));

  // A call that consumed nothing does not move on to the next image's time,
  // and a next block starts over at its own first time.
  h.Script({{.callAgain = true, .nothingConsumed = true},
            {.produce = true, .callAgain = true},
            {.produce = true}});
  EXPECT_EQ(h.Summary(Block(10, T0 + 1000, T0 + 1040, 2), 3), "none+ 1000h8+ 1040h8");
  EXPECT_EQ(h.m_Script->calls[4].timeMs, T0 + 1000);
  EXPECT_EQ(h.m_Script->calls[5].timeMs, T0 + 1000);

  // A time the codec gives relative to the stream counts from the first
  // frame's; an id the codec makes up gets an estimated time.
  h.Script({{.produce = true, .timeMs = 40}, {.produce = true, .id = 9999}});
  EXPECT_EQ(h.Summary(Packet(10, T0 + 2000)), "40h8");
  EXPECT_EQ(h.Summary(Packet(10, T0 + 2040)).back(), '~');
}

TEST(GenericVideoDecoder, CodecChangeDrainsTheOldCodecAndTrackerIdsWrapTrimAndRebase) {
  CmHarness h({.m_ThreadCount = 3});
  // A flush before any data makes no codec.
  EXPECT_EQ(h.Summary({}), "none");
  EXPECT_TRUE(h.m_Script->madeCodecs.empty());
  h.Script({{.produce = false},
            {.produce = true, .back = 1},
            // the drain: one held frame, then none
            {.produce = true},
            {.produce = false}});
  EXPECT_EQ(h.Summary(Packet(10, T0)), "none");
  EXPECT_EQ(h.Summary(Packet(10, T0 + 40)), "0h8");
  EXPECT_EQ(h.Summary(Packet(4, T0 + 80)), "40h8+");
  EXPECT_EQ(h.m_Script->madeCodecs, (std::vector<uint32_t>{10}));
  EXPECT_EQ(h.Summary(Packet(4, T0 + 80)), "80h8");
  EXPECT_EQ(h.m_Script->madeCodecs, (std::vector<uint32_t>{10, 4}));
  std::vector<std::pair<uint32_t, bool>> calls;
  for (const auto& call : h.m_Script->calls) {
    calls.emplace_back(call.codec, call.flush);
  }
  EXPECT_EQ(calls, (std::vector<std::pair<uint32_t, bool>>{
                       {10, false}, {10, false}, {10, true}, {10, true}, {4, false}}));
  // The new codec got the stored parameters before its first frame.
  ASSERT_EQ(h.m_Script->parameters.size(), 2u);
  EXPECT_EQ(h.m_Script->parameters[1].m_ThreadCount, 3u);

  // A codec that cannot be made: the drained decoder stays the present one.
  ExpectError([&] { h.Feed(Packet(12, T0 + 120)); }, "Codec type not supported", 1);
  EXPECT_EQ(h.m_Decoder.GetCodec(), 4u);
  EXPECT_EQ(h.Summary(Packet(4, T0 + 160)), "160h8");

  CmDecodedFrameTracker tracker;
  tracker.Reset();
  CmBytes bytes = Packet(10, T0,
                         {.interlaced = true,
                          .topFieldFirst = true,
                          .flippedVertically = true,
                          .rotatedQuarterTurn = true});
  const CmGenericByteData record(bytes.data(), bytes.size());
  const CmRawVideoByteDataAccess view(record, false);
  ASSERT_TRUE(view.IsValid());

  for (int32_t i = 1; i <= 10000; ++i) {
    ASSERT_EQ(tracker.GetNewId(view), i);
  }
  EXPECT_EQ(tracker.GetBaseTime(), Ms(T0));
  EXPECT_EQ(tracker.GetNewId(view), 1);
  CmStandardImageAttributes attributes;
  attributes.timeStamp = Ms(T0 + 5);
  attributes.attribute0 = 1;
  ASSERT_TRUE(tracker.Apply(1, attributes));
  EXPECT_EQ(attributes.interlacing, InterleavedTopFirst);
  EXPECT_EQ(attributes.orientation.rotation, 1u);
  EXPECT_TRUE(attributes.orientation.flippedVertically);
  // Wrapped: ids 5000 to 10000 go, 1 to 4999 stay.
  auto expectEntries = [&](size_t count, std::initializer_list<std::pair<int32_t, bool>> ids) {
    EXPECT_EQ(tracker.GetEntryCount(), count);
    for (const auto& [id, has] : ids) {
      EXPECT_EQ(tracker.HasEntry(id), has) << id;
    }
  };
  expectEntries(4999, {{4999, true}, {5000, false}, {10000, false}});

  // Plain: the 5000 ids below the delivered one go, older and newer stay.
  tracker.Reset();
  for (int32_t i = 1; i <= 6000; ++i) {
    tracker.GetNewId(view);
  }
  attributes = {};
  attributes.attribute0 = 0;
  ASSERT_TRUE(tracker.Apply(6000, attributes));
  EXPECT_EQ(tracker.GetEntryCount(), 6000u);
  attributes.attribute0 = 7;
  ASSERT_TRUE(tracker.Apply(6000, attributes));
  expectEntries(999, {{998, true}, {999, false}, {5999, false}, {6000, true}});

  // Continuation ids copy the last entry; without one the same id returns.
  EXPECT_EQ(tracker.GetContinuationId(), 6001);
  EXPECT_TRUE(tracker.HasEntry(6001));
  tracker.ClearFrames();
  EXPECT_EQ(tracker.GetContinuationId(), 6001);

  // Unknown ids change nothing.
  CmStandardImageAttributes untouched;
  untouched.timeStamp = Ms(40);
  EXPECT_FALSE(tracker.Apply(77, untouched));
  EXPECT_EQ(untouched.timeStamp, Ms(40));

  // Times within ten years of 1970 count from the first frame.
  tracker.Reset();
  const int32_t id = tracker.GetNewId(view);
  const int64_t year1975 = 157766400000;
  const int64_t year1985 = 473385600000;
  for (const auto& [in, expected] :
       std::vector<std::pair<int64_t, int64_t>>{{40, T0 + 40},
                                                {year1975, T0 + year1975},
                                                {315360000000 - 1, T0 + 315360000000 - 1},
                                                {315360000000, 315360000000},
                                                {year1985, year1985}}) {
    CmStandardImageAttributes a;
    a.timeStamp = Ms(in);
    ASSERT_TRUE(tracker.Apply(id, a));
    EXPECT_EQ(a.timeStamp.GetMilliseconds(), expected) << in;
  }
}

// Split fields come one call after the other, the second without looking at
// the source; a reset drops a pending field, applies the parameters again
// and starts the ids over.
TEST(GenericVideoDecoder, SplitFieldsComeOneCallAfterTheOther) {
  CmHarness h({.m_SplitFields = true, .m_ScaleDivisor = 2});
  EXPECT_EQ(h.Summary(Packet(10, T0, {.interlaced = true, .topFieldFirst = true})), "0h4+");
  const size_t calls = h.m_Script->calls.size();
  EXPECT_EQ(h.Summary({}), "0h4");

  // Separate fields split too; a single field stays whole.
  EXPECT_EQ(h.Summary(Packet(10, T0 + 40, {.interlaced = true, .layout = 1})), "40h4+");
  EXPECT_EQ(h.Summary({}), "40h4");
  const SmOutput single =
      h.Feed(Packet(10, T0 + 80, {.interlaced = true, .topFieldFirst = true, .layout = 3}));
  EXPECT_FALSE(single.callAgain);
  EXPECT_EQ(single.image.GetHeight(), 8u);
  EXPECT_EQ(single.image.GetAttributes().interlacing, TopFieldOnly);

  // A block's further images and a split field: the field first, then the
  // block goes on.
  h.Script({{.produce = true, .callAgain = true}, {.produce = true}});
  EXPECT_EQ(
      h.Summary(Block(10, T0 + 200, T0 + 240, 2, {.interlaced = true, .topFieldFirst = true}), 4),
      "200h4+ 200h4+ 240h4+ 240h4");
  EXPECT_EQ(h.m_Script->calls.size(), calls + 4);

  EXPECT_EQ(h.Summary(Packet(10, T0 + 300, {.interlaced = true, .topFieldFirst = true})), "300h4+");
  const size_t applied = h.m_Script->parameters.size();
  h.m_Decoder.Reset();
  EXPECT_EQ(h.m_Script->resets, 1u);
  EXPECT_EQ(h.m_Script->parameters.size(), applied + 1);
  EXPECT_EQ(h.m_Script->parameters.back().m_ScaleDivisor, 2u);
  EXPECT_EQ(h.Summary({}), "none");
  h.Feed(Packet(10, T0 + 340));
  EXPECT_EQ(h.m_Script->calls.back().id, 1);
}

TEST(GenericVideoDecoder, SyncFramesOnlyDropsTheRestOfABlock) {
  CmHarness h({.m_DecodeMode = SmVideoDecodeParameters::DecodeSyncFramesOnly, .m_LowDelay = false});
  EXPECT_TRUE(h.m_Decoder.GetParameters().m_LowDelay);
  h.Script({{.produce = true, .callAgain = true}});
  EXPECT_EQ(h.Summary(Block(10, T0, T0 + 80, 3)), "0h8");
  EXPECT_EQ(h.m_Script->resets, 1u);
  EXPECT_EQ(h.m_Decoder.GetFrameTracker().GetEntryCount(), 0u);
  ASSERT_FALSE(h.m_Script->parameters.empty());
  EXPECT_TRUE(h.m_Script->parameters.back().m_LowDelay);
}

TEST(GenericVideoDecoder, FailuresLeaveTheDecoderUsableAndTurnedFieldsAreTurnedFirst) {
  CmHarness h;
  h.Script({{.succeed = false}, {.produce = true, .leaveImageEmpty = true}});
  EXPECT_EQ(h.Summary(Packet(10, T0)), "fail");
  EXPECT_EQ(h.Summary(Packet(10, T0 + 40)), "fail");
  EXPECT_EQ(h.Summary(Packet(10, T0 + 80)), "80h8");

  // Records that are no valid video.
  ExpectError([&] { h.Feed(Block(10, T0, T0, 0)); }, "Invalid source data for decoding", 2,
              "NmMediaProcessing::CmGenericVideoDecoder::Decode");
  ExpectError([&] { h.Feed(Packet(8, T0, {}, false)); }, "Invalid source data for decoding", 2);
  ExpectError([&] { h.Feed(BuildAudioPacket({})); }, "Invalid source data for decoding", 2);
  // Bytes that no record class attaches to are no record at all: a flush.
  EXPECT_EQ(h.Summary(CmBytes(40, 0xAB)), "none");
  // A codec value of 0 in an otherwise sound packet.
  ExpectError([&] { h.Feed(Packet(0, T0 + 100)); }, "Unknown codec type", 2);
  EXPECT_EQ(h.Summary(Packet(10, T0 + 120)), "120h8");

  // Interlaced pictures on their side are turned first; progressive pictures
  // keep their turn for later.
  SmOutput out = h.Feed(Packet(
      10, T0 + 200, {.interlaced = true, .topFieldFirst = true, .rotatedQuarterTurn = true}));
  ASSERT_TRUE(out.gotImage);
  EXPECT_EQ(std::make_pair(out.image.GetWidth(), out.image.GetHeight()), std::make_pair(8ul, 16ul));
  const CmStandardImageAttributes& a = out.image.GetAttributes();
  EXPECT_TRUE(a.orientation.rotation == 0 && a.orientation.flippedVertically &&
              a.orientation.flippedHorizontally);
  EXPECT_EQ(a.interlacing, InterleavedTopFirst);

  out = h.Feed(Packet(10, T0 + 240, {.rotatedQuarterTurn = true}));
  EXPECT_EQ(out.image.GetWidth(), 16u);
  EXPECT_EQ(out.image.GetAttributes().orientation.rotation, 1u);
}
