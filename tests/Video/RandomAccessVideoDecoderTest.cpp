#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <deque>
#include <memory>
#include <optional>
#include <vector>

#include "Common/Error/Error.h"
#include "GenericByteData/TestTimes.h"
#include "MediaProcessing/GenericByteData/RawVideoByteDataAccess.h"
#include "MediaProcessing/Video/RandomAccessVideoDecoder.h"
#include "MediaProcessing/Video/VideoFactory.h"
#include "ScriptedVideoCodec.h"
#include "support/GenericByteDataBuilder.h"
#include "support/ImageTestSupport.h"
#include "support/JPEGRecords.h"
#include "support/TimeMatchOracle.h"

using namespace NmMediaProcessing;
using namespace NmTestSupport;
using NmImageTest::ExpectError;
using NmTimeStamp::CmTimeStamp;
using Code = NmError::CmIntegrityErrorCode;

namespace {

// 2023-11-14: far from 1970.
constexpr int64_t T0 = 1700000000000;

// One record in the store with the times under which the store finds it.
struct SmStoredRecord {
  CmBytes bytes;
  int64_t begin;
  int64_t end;
  bool sync;
  std::vector<int64_t> imageTimes;
};

// A store of records searched by time as a recording index would: by the
// span of each record. Counts every call, the decoder's cost in upstream
// fetches.
class CmMemoryStore : public ImVideoDataAccess {
public:
  void Add(CmBytes bytes, std::vector<int64_t> imageTimes, bool sync = true) {
    const int64_t begin = imageTimes.front();
    const int64_t end = imageTimes.back();
    m_Records.push_back({std::move(bytes), begin, end, sync, std::move(imageTimes)});
  }

  bool GetByteData(const CmTimeStamp& time, SmTimeMatchType matchType, bool syncFramesOnly,
                   CmGenericByteData& recordOut) override {
    ++m_Calls;
    const int64_t t = time.GetMilliseconds();
    const SmStoredRecord* found = nullptr;
    int64_t best = 0;
    for (const auto& r : m_Records) {
      // Asked for sync frames only, a record is its first frame.
      const int64_t end = syncFramesOnly ? r.begin : r.end;
      const int64_t distance = t < r.begin ? r.begin - t : t > end ? t - end : 0;
      const bool exact =
          std::find(r.imageTimes.begin(), r.imageTimes.end(), t) != r.imageTimes.end();
      const bool fits[] = {end > t && !found,
                           r.begin < t,
                           end >= t && !found,
                           r.begin <= t, // ties of the nearest go to the later record,
                           !found || distance <= best,
                           exact}; // as inside the decoder
      static_assert(TimeMatchAfter == 0 && TimeMatchExact == 5);
      if ((r.sync || !syncFramesOnly) && fits[matchType]) {
        found = &r;
        best = distance;
      }
    }
    if (found == nullptr) {
      return false;
    }
    CmBytes copy = found->bytes;
    recordOut = CmGenericByteData(copy.data(), copy.size()); // a deep copy, which owns its bytes
    if (m_HandOutViews) {
      // The store keeps the bytes, as the owner of a view would.
      recordOut.SetOwnsBuffer(false);
      m_Lent.emplace_back(recordOut.GetData());
    }
    return true;
  }
  bool MoveTo(const CmTimeStamp&, uint32_t) override { return false; }
  bool MoveTo(const CmTimeStamp&, uint32_t, CmTimeStamp&) override { return false; }

  std::vector<SmStoredRecord> m_Records;
  int m_Calls = 0;
  bool m_HandOutViews = false;
  std::vector<std::unique_ptr<uint8_t[]>> m_Lent;
};

uint8_t LevelOf(size_t frame) {
  return static_cast<uint8_t>(30 + 25 * frame);
}

using Form = SmJPEGForm;

// Five single-image JPEG records 40 ms apart in the given form.
std::vector<int64_t> FillJPEGStore(CmMemoryStore& store, Form form, size_t count = 5) {
  std::vector<int64_t> times;
  for (size_t i = 0; i < count; ++i) {
    const int64_t t = T0 + 40 * static_cast<int64_t>(i);
    store.Add(JPEGRecord(form, static_cast<uint64_t>(t), FlatJPEG(LevelOf(i))), {t});
    times.push_back(t);
  }
  return times;
}

// A codec whose frames name the frame they depend on, so that a frame decoded
// without its predecessor fails as a real one would give garbage. A payload is
// a run of pairs (tag, tag of the frame it needs, 0 for none); every pair is
// one image, flat at 20 times its tag, and a payload of several pairs is
// given out one image a call.
struct SmChainLog {
  int dataCalls = 0;
  std::vector<int> tags;
};

class CmChainDecoder : public ImVideoDecoder {
public:
  // With a delay, each image comes out that many frames after its own, as
  // from a codec that reorders; a flush gives the held ones out one a call.
  CmChainDecoder(std::shared_ptr<SmChainLog> log, size_t delay)
      : m_Log(std::move(log)), m_Delay(delay) {}

  bool Decode(const uint8_t* data, uint64_t size, int32_t imageId, const CmTimeStamp& time,
              CmImage& image, SmVideoDecodeResult& result) override {
    result = SmVideoDecodeResult();
    if (data == nullptr) {
      if (!m_Held.empty()) {
        GiveOut(image, result);
        result.m_CallAgain = true;
      }
      return true;
    }
    ++m_Log->dataCalls;
    // The framework comes back with the same payload only when asked to.
    m_Position = m_CallAgain ? m_Position : 0;
    if (m_Position + 2 > size) {
      m_CallAgain = false;
      return false;
    }
    const int tag = data[m_Position];
    const int needs = data[m_Position + 1];
    m_Position += 2;
    result.m_CallAgain = m_CallAgain = m_Position + 2 <= size;
    if (needs != 0 && needs != m_LastTag) {
      m_LastTag = 0;
      return false;
    }
    m_LastTag = tag;
    m_Log->tags.push_back(tag);
    m_Held.push_back({tag, time, imageId});
    if (m_Held.size() > m_Delay) {
      GiveOut(image, result);
    }
    return true;
  }
  void Reset() override {
    m_LastTag = 0;
    m_CallAgain = false;
    m_Held.clear();
  }
  SmVideoDecodeParameters GetParameters() const override { return m_Parameters; }
  void SetParameters(const SmVideoDecodeParameters& parameters) override {
    m_Parameters = parameters;
  }

private:
  struct SmHeld {
    int tag;
    CmTimeStamp time;
    int32_t id;
  };
  void GiveOut(CmImage& image, SmVideoDecodeResult& result) {
    const SmHeld held = m_Held.front();
    m_Held.pop_front();
    image.Reset();
    image.Allocate(16, 8, Gray);
    const auto plane = image.Allocator().GetWriteablePlane(0);
    std::fill_n(plane.data, plane.rowStride * plane.height, static_cast<uint8_t>(20 * held.tag));
    image.GetAttributes().timeStamp = held.time;
    result.m_ImageProduced = true;
    result.m_ImageId = held.id;
  }

  std::shared_ptr<SmChainLog> m_Log;
  size_t m_Delay;
  SmVideoDecodeParameters m_Parameters;
  bool m_CallAgain = false;
  uint64_t m_Position = 0;
  int m_LastTag = 0;
  std::deque<SmHeld> m_Held;
};

// The middle sample of a chain picture for a frame time.
int ChainLuma(int64_t time) {
  return 20 * (1 + static_cast<int>((time - T0) / 40));
}

struct SmChainHarness {
  std::shared_ptr<SmChainLog> log = std::make_shared<SmChainLog>();
  size_t delay = 0;
  CmRandomAccessVideoDecoder decoder{
      NmVideoTest::MakerOf([log = log, &delay = delay] { return new CmChainDecoder(log, delay); })};
  CmMemoryStore store;

  explicit SmChainHarness(uint32_t mode = 0, size_t codecDelay = 0) : delay(codecDelay) {
    decoder.SetDataAccess(&store);
    SetMode(mode);
  }
  void SetMode(uint32_t mode) { decoder.SetParameters({.m_DecodeMode = mode}); }
  // The time of the picture given, which must show its own frame; -1 for none.
  int64_t Get(int64_t t, SmTimeMatchType type) {
    CmImage image;
    if (!decoder.GetImage(Ms(t), type, image)) {
      return -1;
    }
    const int64_t time = image.GetAttributes().timeStamp.GetMilliseconds();
    EXPECT_EQ(MiddleLuma(image), ChainLuma(time));
    return time;
  }
};

// The payload of one chain frame; the first of each group needs none.
CmBytes ChainFrame(int tag, int frame) {
  return {static_cast<uint8_t>(tag), static_cast<uint8_t>(frame == 0 ? 0 : tag - 1)};
}

// Three groups of pictures of four frames, 40 ms apart, of codec 10: one sync
// frame, then frames that each need the one before; as H.264-like packets, or
// a multi-image block for each group.
std::vector<int64_t> FillChain(CmMemoryStore& store, bool blocks) {
  std::vector<int64_t> times;
  for (int group = 0; group < 3; ++group) {
    const uint64_t begin = T0 + 160 * group;
    CmBytes payload;
    std::vector<int64_t> imageTimes;
    for (int frame = 0; frame < 4; ++frame) {
      const int tag = 1 + group * 4 + frame;
      const uint64_t t = begin + 40 * frame;
      const CmBytes bytes = ChainFrame(tag, frame);
      payload.insert(payload.end(), bytes.begin(), bytes.end());
      imageTimes.push_back(static_cast<int64_t>(t));
      if (!blocks) {
        store.Add(BuildVideoPacket({.codec = 10,
                                    .sync = frame == 0,
                                    .syncTime = begin,
                                    .frameTime = t,
                                    .payload = bytes}),
                  {static_cast<int64_t>(t)}, frame == 0);
      }
    }
    if (blocks) {
      store.Add(BuildBlock({.type = 10,
                            .beginTime = begin,
                            .endTime = begin + 120,
                            .width = 16,
                            .height = 8,
                            .imageCount = 4,
                            .payload = payload}),
                imageTimes);
    }
    times.insert(times.end(), imageTimes.begin(), imageTimes.end());
  }
  return times;
}

// Probe times around every frame: before all, at each, between each pair,
// after all.
std::vector<int64_t> ProbeTimes(const std::vector<int64_t>& frames) {
  std::vector<int64_t> probes{frames.front() - 1000, frames.front() - 1};
  for (size_t i = 0; i < frames.size(); ++i) {
    probes.push_back(frames[i]);
    if (i + 1 < frames.size()) {
      probes.insert(probes.end(),
                    {frames[i] + 1, (frames[i] + frames[i + 1]) / 2, frames[i + 1] - 1});
    }
  }
  probes.insert(probes.end(), {frames.back() + 1, frames.back() + 1000});
  return probes;
}

// The decoder gives the frame that the time and match type ask for, which
// `luma` tells by its middle sample, or nothing when none is asked for.
void ExpectAnswer(CmRandomAccessVideoDecoder& decoder, const std::vector<int64_t>& frames,
                  SmTimeMatchType type, int64_t t, int (*luma)(int64_t)) {
  SCOPED_TRACE(testing::Message() << "type " << type << " at T0+" << t - T0);
  const std::optional<int64_t> expected = WantedFrame(frames, type, t);
  CmImage image;
  ASSERT_EQ(decoder.GetImage(Ms(t), type, image), expected.has_value());
  if (expected) {
    EXPECT_EQ(image.GetAttributes().timeStamp.GetMilliseconds(), *expected);
    EXPECT_NEAR(MiddleLuma(image), luma(*expected), 3);
  }
}

} // namespace

TEST(RandomAccessVideoDecoder, RefusesParametersItCannotServeInOrder) {
  CmRandomAccessVideoDecoder decoder;
  SmVideoDecodeParameters all{.m_VideoStreamTimestamping = 1,
                              .m_ProduceImage = false,
                              .m_SplitFields = true,
                              .m_LowDelay = true};
  const char* const messages[] = {
      "Video-stream timestamping parameter is not supported by this decoder",
      "Split-fields decoding parameter is not supported by this decoder",
      "Produce-image decoding parameter must be set for this decoder",
      "Low-delay decoding parameter is not supported by this decoder"};
  for (int i = 0; i < 4; ++i) {
    ExpectError([&] { decoder.SetParameters(all); }, messages[i], Code::InvalidArgument,
                "NmMediaProcessing::CmRandomAccessVideoDecoder::ValidateParameters");
    // Each refusal in turn put right.
    all.m_VideoStreamTimestamping = 0;
    all.m_SplitFields = i < 1;
    all.m_ProduceImage = i >= 2;
    all.m_LowDelay = i < 3;
  }
  all.m_DecodeMode = SmVideoDecodeParameters::DecodeSyncFramesOnly;
  decoder.SetParameters(all);
  EXPECT_EQ(decoder.GetParameters().m_DecodeMode, SmVideoDecodeParameters::DecodeSyncFramesOnly);
}

TEST(RandomAccessVideoDecoder, StoreFailuresAndMisuse) {
  CmRandomAccessVideoDecoder decoder;
  CmImage image;
  ExpectError([&] { decoder.GetImage(Ms(T0), TimeMatchNearest, image); },
              "No video data store specified", Code::InvalidPointer);

  // An empty store answers false, and so does the decoder, raising nothing.
  CmMemoryStore store;
  decoder.SetDataAccess(&store);
  for (const auto type : AllTimeMatchTypes) {
    EXPECT_FALSE(decoder.GetImage(Ms(T0), type, image));
  }

  // A record that is no video is no image.
  store.Add(BuildAudioPacket({.time = T0}), {T0});
  EXPECT_FALSE(decoder.GetImage(Ms(T0), TimeMatchNearest, image));

  // A record that does not own its bytes is refused before it is looked at.
  CmMemoryStore views;
  FillJPEGStore(views, Form::Packet, 1);
  views.m_HandOutViews = true;
  decoder.SetDataAccess(&views);
  ExpectError([&] { decoder.GetImage(Ms(T0), TimeMatchNearest, image); },
              "Ownership integrity violated", Code::InvalidPointer);
  // The decoder stays usable once the store behaves.
  views.m_HandOutViews = false;
  ASSERT_TRUE(decoder.GetImage(Ms(T0), TimeMatchNearest, image));
  EXPECT_EQ(image.GetAttributes().timeStamp, Ms(T0));

  decoder.ClearDataAccess();
  EXPECT_THROW(decoder.GetImage(Ms(T0), TimeMatchNearest, image), NmError::CmIntegrityError);
}

// Every match type at every interesting time, over real JPEG records in each
// single-image form and over frames that need their predecessors (in packets
// and in multi-image blocks), decoding each probe from a fresh start and
// again right after the previous probe, so that the kept state is tested too.
TEST(RandomAccessVideoDecoder, FindsTheRightPictureInEveryForm) {
  for (const Form form : {Form::Packet, Form::Block, Form::MultiPacket}) {
    CmMemoryStore store;
    const std::vector<int64_t> frames = FillJPEGStore(store, form);
    for (const uint32_t mode : {0u, 1u, 2u}) {
      SCOPED_TRACE(testing::Message()
                   << "JPEG form " << static_cast<int>(form) << " mode " << mode);
      const SmVideoDecodeParameters parameters{.m_DecodeMode = mode};
      CmRandomAccessVideoDecoder kept;
      kept.SetParameters(parameters);
      kept.SetDataAccess(&store);
      for (const auto type : AllTimeMatchTypes) {
        for (const int64_t t : ProbeTimes(frames)) {
          CmRandomAccessVideoDecoder fresh;
          fresh.SetParameters(parameters);
          fresh.SetDataAccess(&store);
          for (CmRandomAccessVideoDecoder* decoder : {&fresh, &kept}) {
            ExpectAnswer(*decoder, frames, type, t,
                         [](int64_t time) -> int { return LevelOf((time - T0) / 40); });
          }
        }
      }
    }
  }
  // Sync frames only sees the first frame of each group, and never decodes
  // a frame that needs another.
  for (const bool blocks : {false, true}) {
    for (const uint32_t mode : {0u, 1u, 2u}) {
      SCOPED_TRACE(testing::Message() << (blocks ? "blocks" : "packets") << " mode " << mode);
      SmChainHarness kept(mode);
      std::vector<int64_t> frames = FillChain(kept.store, blocks);
      if (mode == 2) {
        frames = {frames[0], frames[4], frames[8]};
      }
      for (const auto type : AllTimeMatchTypes) {
        for (const int64_t t : ProbeTimes(frames)) {
          if (mode == 2 && type == TimeMatchExact) {
            break; // exact times are not held to the sync frames here
          }
          SmChainHarness fresh(mode);
          fresh.store.m_Records = kept.store.m_Records;
          for (SmChainHarness* h : {&fresh, &kept}) {
            ExpectAnswer(h->decoder, frames, type, t, ChainLuma);
          }
        }
      }
      for (const int tag : kept.log->tags) {
        EXPECT_TRUE(mode != 2 || (tag - 1) % 4 == 0) << tag;
      }
    }
  }
}

TEST(RandomAccessVideoDecoder, RawJPEGTakesTheClockTime) {
  CmMemoryStore store;
  store.Add(FlatJPEG(LevelOf(2)), {T0});
  CmRandomAccessVideoDecoder decoder;
  decoder.SetDataAccess(&store);
  const auto now = [] {
    return std::chrono::duration_cast<std::chrono::milliseconds>(
               std::chrono::system_clock::now().time_since_epoch())
        .count();
  };
  for (const auto type : {TimeMatchNearest, TimeMatchAtOrAfter, TimeMatchAfter}) {
    const int64_t before = now();
    CmImage image;
    ASSERT_TRUE(decoder.GetImage(Ms(T0 - 10), type, image)) << type;
    const int64_t time = image.GetAttributes().timeStamp.GetMilliseconds();
    EXPECT_GE(time, before);
    EXPECT_LE(time, now());
    EXPECT_NEAR(MiddleLuma(image), LevelOf(2), 3);
  }
}

// Stepping forwards costs one frame and few store calls; stepping back in the
// reduced mode takes the image just passed without decoding anything; a
// change of mode starts from the store again.
TEST(RandomAccessVideoDecoder, SteppingKeepsTheDecoderRunning) {
  for (const bool blocks : {false, true}) {
    SCOPED_TRACE(blocks ? "blocks" : "packets");
    SmChainHarness h(1);
    const std::vector<int64_t> frames = FillChain(h.store, blocks);
    EXPECT_EQ(h.Get(frames.front() - 5, TimeMatchAfter), frames.front());
    for (size_t i = 1; i < frames.size(); ++i) {
      const int callsBefore = h.log->dataCalls;
      const int storeBefore = h.store.m_Calls;
      EXPECT_EQ(h.Get(frames[i - 1], TimeMatchAfter), frames[i]);
      EXPECT_EQ(h.log->dataCalls - callsBefore, 1) << i;
      EXPECT_LE(h.store.m_Calls - storeBefore, 2) << i;
    }
    EXPECT_EQ(h.Get(frames.back(), TimeMatchAfter), -1);

    // Back one frame from the middle of the last group: the image just passed.
    EXPECT_EQ(h.Get(frames[9], TimeMatchAtOrBefore), frames[9]);
    EXPECT_EQ(h.Get(frames[10], TimeMatchAtOrBefore), frames[10]);
    const int callsBefore = h.log->dataCalls;
    EXPECT_EQ(h.Get(frames[10], TimeMatchBefore), frames[9]);
    // Asking again for the same picture, still looking back, decodes nothing either.
    EXPECT_EQ(h.Get(frames[9], TimeMatchAtOrBefore), frames[9]);
    EXPECT_EQ(h.log->dataCalls, callsBefore);
    // Forwards again: the image kept is the codec's newest, so the step is one frame.
    EXPECT_EQ(h.Get(frames[9], TimeMatchAfter), frames[10]);
    EXPECT_EQ(h.Get(frames[10], TimeMatchAfter), frames[11]);
    EXPECT_EQ(h.log->dataCalls, callsBefore + 1);

    // Setting the same mode again forgets nothing; another mode forgets the record.
    const int storeBefore = h.store.m_Calls;
    h.SetMode(1);
    EXPECT_EQ(h.Get(frames[11], TimeMatchExact), frames[11]);
    EXPECT_EQ(h.store.m_Calls, storeBefore);
    h.SetMode(0);
    EXPECT_EQ(h.Get(frames[11], TimeMatchExact), frames[11]);
    EXPECT_GT(h.store.m_Calls, storeBefore);
  }
}

// A codec that gives each image out two frames after its own, as H.264 does
// with B pictures. Its images come later than their records go in, yet
// stepping on decodes one more frame, not the group again; a new group costs
// its sync frame and the two behind it. Backwards and jumps land right.
TEST(RandomAccessVideoDecoder, ACodecThatHoldsImagesBackIsSteppedWithoutStartingAgain) {
  SmChainHarness h(0, 2);
  const std::vector<int64_t> frames = FillChain(h.store, false);
  EXPECT_EQ(h.Get(frames.front() - 5, TimeMatchAfter), frames.front());
  for (size_t i = 1; i < frames.size(); ++i) {
    const int callsBefore = h.log->dataCalls;
    EXPECT_EQ(h.Get(frames[i - 1], TimeMatchAfter), frames[i]);
    EXPECT_LE(h.log->dataCalls - callsBefore, i % 4 == 0 ? 3 : 1) << i;
  }
  EXPECT_EQ(h.Get(frames.back(), TimeMatchAfter), -1);
  for (size_t i = frames.size() - 1; i > 0; --i) {
    EXPECT_EQ(h.Get(frames[i], TimeMatchBefore), frames[i - 1]);
  }
  for (const size_t i : {7u, 2u, 11u, 0u, 5u, 6u, 3u, 9u}) {
    EXPECT_EQ(h.Get(frames[i], TimeMatchExact), frames[i]);
  }
}

// A codec that keeps asking to be called and gives nothing is cut off after
// a thousand calls; an image in between starts the count again.
TEST(RandomAccessVideoDecoder, DecodingBudget) {
  for (const int imageEvery : {0, 999}) {
    auto script = std::make_shared<NmVideoTest::CmScript>();
    for (int call = 1; call <= 3000; ++call) {
      // Images older than wanted, of no frame the tracker knows: the decoder
      // has to go on.
      script->steps.push_back({.produce = imageEvery != 0 && call % imageEvery == 0,
                               .id = 100000,
                               .timeMs = T0 - 1,
                               .callAgain = call < 3000});
    }
    CmRandomAccessVideoDecoder decoder(NmVideoTest::ScriptedFactoryMaker(script));
    CmMemoryStore store;
    store.Add(BuildVideoPacket({.codec = 10, .syncTime = T0, .frameTime = T0}), {T0});
    decoder.SetDataAccess(&store);
    CmImage image;
    if (imageEvery == 0) {
      ExpectError([&] { decoder.GetImage(Ms(T0), TimeMatchExact, image); },
                  "Decoding sanity limit reached", Code::InvalidPointer);
      EXPECT_EQ(script->calls.size(), 1000u);
    } else {
      // Images now and then keep it going until the codec stops asking.
      EXPECT_FALSE(decoder.GetImage(Ms(T0), TimeMatchExact, image));
      EXPECT_GE(script->calls.size(), 3000u);
    }
  }
}

// A frame whose predecessor is missing fails, and the decoder says so instead
// of giving out a wrong picture; the pictures around it still come. When the
// sync frame of a group fails, every frame that needs it fails too, each
// named by its own time so that playback can stand on it and step past; the
// next group decodes again. A time with no frame at all names nothing.
TEST(RandomAccessVideoDecoder, BrokenChainsGiveNoPictureAndNameTheUndecodableFrame) {
  SmChainHarness broken;
  std::vector<int64_t> frames = FillChain(broken.store, false);
  // Frame 6 (tag 7) now needs a frame that never comes.
  CmBytes& seventh = broken.store.m_Records[6].bytes;
  seventh.back() = 99;
  EXPECT_EQ(broken.Get(frames[6], TimeMatchExact), -1);
  EXPECT_EQ(broken.Get(frames[5], TimeMatchExact), frames[5]);
  EXPECT_EQ(broken.Get(frames[8], TimeMatchExact), frames[8]);

  for (const bool blocks : {false, true}) {
    SCOPED_TRACE(blocks ? "blocks" : "packets");
    SmChainHarness h;
    frames = FillChain(h.store, blocks);
    // The second group's first frame now needs one that never comes.
    CmBytes& bytes = h.store.m_Records[blocks ? 1 : 4].bytes;
    bytes[bytes.size() - (blocks ? 7 : 1)] = 99;
    CmTimeStamp failed;
    // The time of the undecodable picture named after a call, or -1.
    auto undecodable = [&] {
      return h.decoder.GetUndecodableTime(failed) ? failed.GetMilliseconds() : -1;
    };
    EXPECT_EQ(h.Get(frames[2], TimeMatchAfter), frames[3]);
    EXPECT_EQ(undecodable(), -1) << "a success names nothing";
    // Forwards and backwards through the broken group, as playback steps.
    for (size_t k = 4; k < 8; ++k) {
      EXPECT_EQ(h.Get(frames[k - 1], TimeMatchAfter), -1) << k;
      EXPECT_EQ(undecodable(), frames[k]);
    }
    EXPECT_EQ(h.Get(frames[7], TimeMatchAfter), frames[8]);
    for (size_t k = 7; k >= 4; --k) {
      EXPECT_EQ(h.Get(frames[k + 1], TimeMatchBefore), -1) << k;
      EXPECT_EQ(undecodable(), frames[k]);
    }
    EXPECT_EQ(h.Get(frames[4], TimeMatchBefore), frames[3]);
    EXPECT_EQ(h.Get(frames[5], TimeMatchExact), -1);
    EXPECT_EQ(undecodable(), frames[5]);
    EXPECT_EQ(h.Get(frames.back(), TimeMatchAfter), -1);
    EXPECT_EQ(undecodable(), -1) << "nothing after the last frame";
    EXPECT_EQ(h.Get(frames[5] + 1, TimeMatchExact), -1);
    EXPECT_EQ(undecodable(), -1) << "no frame at that time";
  }
}
