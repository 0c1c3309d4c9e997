#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Common/Error/Error.h"
#include "MediaProcessing/GenericByteData/RawVideoByteDataAccess.h"
#include "MediaProcessing/Video/RandomAccessVideoDecoder.h"
#include "MediaProcessing/Video/VideoFactory.h"
#include "support/FlatJPEG.h"
#include "support/GenericByteDataBuilder.h"

using namespace NmMediaProcessing;
using namespace NmTestSupport;
using NmTimeStamp::CmTimeStamp;

namespace {

// 2023-11-14: far from 1970.
constexpr int64_t T0 = 1700000000000;

CmTimeStamp Ms(int64_t milliseconds) {
  return CmTimeStamp::FromMilliseconds(milliseconds);
}

const SmTimeMatchType AllMatchTypes[] = {TimeMatchAfter,      TimeMatchBefore,  TimeMatchAtOrAfter,
                                         TimeMatchAtOrBefore, TimeMatchNearest, TimeMatchExact};

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
    auto candidate = [&](const SmStoredRecord& r) { return r.sync || !syncFramesOnly; };
    // Asked for sync frames only, a record is its first frame.
    auto endOf = [&](const SmStoredRecord& r) { return syncFramesOnly ? r.begin : r.end; };
    switch (matchType) {
    case TimeMatchAfter:
    case TimeMatchAtOrAfter:
      for (const auto& r : m_Records) {
        if (candidate(r) && (matchType == TimeMatchAfter ? endOf(r) > t : endOf(r) >= t)) {
          found = &r;
          break;
        }
      }
      break;
    case TimeMatchBefore:
    case TimeMatchAtOrBefore:
      for (const auto& r : m_Records) {
        if (candidate(r) && (matchType == TimeMatchBefore ? r.begin < t : r.begin <= t)) {
          found = &r;
        }
      }
      break;
    case TimeMatchNearest: {
      int64_t best = 0;
      for (const auto& r : m_Records) {
        const int64_t distance = t < r.begin ? r.begin - t : t > endOf(r) ? t - endOf(r) : 0;
        // Ties go to the later record, as they do inside the decoder.
        if (candidate(r) && (found == nullptr || distance <= best)) {
          found = &r;
          best = distance;
        }
      }
      break;
    }
    case TimeMatchExact:
      for (const auto& r : m_Records) {
        if (candidate(r) &&
            std::find(r.imageTimes.begin(), r.imageTimes.end(), t) != r.imageTimes.end()) {
          found = &r;
        }
      }
      break;
    }
    if (found == nullptr) {
      return false;
    }
    CmBytes copy = found->bytes;
    const CmGenericByteData view(copy.data(), copy.size());
    recordOut = view; // a deep copy, which owns its bytes
    if (m_HandOutViews) {
      // The store keeps the bytes, as the owner of a view would.
      recordOut.SetOwnsBuffer(false);
      m_Lent.push_back(recordOut.GetData());
    }
    return true;
  }
  ~CmMemoryStore() override {
    for (uint8_t* bytes : m_Lent) {
      delete[] bytes;
    }
  }
  CmMemoryStore() = default;
  CmMemoryStore(const CmMemoryStore& other) : m_Records(other.m_Records) {}
  CmMemoryStore& operator=(const CmMemoryStore& other) {
    m_Records = other.m_Records;
    return *this;
  }
  bool MoveTo(const CmTimeStamp&, uint32_t) override { return false; }
  bool MoveTo(const CmTimeStamp&, uint32_t, CmTimeStamp&) override { return false; }

  std::vector<SmStoredRecord> m_Records;
  int m_Calls = 0;
  bool m_HandOutViews = false;
  std::vector<uint8_t*> m_Lent;
};

// The frame that a time and match type ask for, among frames in time order.
std::optional<int64_t> Expected(const std::vector<int64_t>& frames, int64_t t,
                                SmTimeMatchType matchType) {
  std::optional<int64_t> out;
  for (const int64_t f : frames) {
    switch (matchType) {
    case TimeMatchAfter:
      if (f > t && !out) {
        out = f;
      }
      break;
    case TimeMatchAtOrAfter:
      if (f >= t && !out) {
        out = f;
      }
      break;
    case TimeMatchBefore:
      if (f < t) {
        out = f;
      }
      break;
    case TimeMatchAtOrBefore:
      if (f <= t) {
        out = f;
      }
      break;
    case TimeMatchExact:
      if (f == t) {
        out = f;
      }
      break;
    case TimeMatchNearest:
      if (!out || std::llabs(f - t) <= std::llabs(*out - t)) {
        out = f;
      }
      break;
    }
  }
  return out;
}

uint8_t LevelOf(size_t frame) {
  return static_cast<uint8_t>(30 + 25 * frame);
}

enum class Form { Packet, Block, MultiPacket };

// Five single-image JPEG records 40 ms apart in the given form.
std::vector<int64_t> FillJPEGStore(CmMemoryStore& store, Form form, size_t count = 5) {
  std::vector<int64_t> times;
  for (size_t i = 0; i < count; ++i) {
    const int64_t t = T0 + 40 * static_cast<int64_t>(i);
    const CmBytes jpeg = FlatJPEG(LevelOf(i));
    const uint64_t wire = static_cast<uint64_t>(t);
    CmBytes record;
    const CmBytes packet = BuildVideoPacket(
        {.codec = 1, .sync = true, .syncTime = wire, .frameTime = wire, .payload = jpeg});
    switch (form) {
    case Form::Packet:
      record = packet;
      break;
    case Form::Block:
      record = BuildBlock({.type = 1,
                           .beginTime = wire,
                           .endTime = wire,
                           .width = 48,
                           .height = 32,
                           .imageCount = 1,
                           .payload = jpeg});
      break;
    case Form::MultiPacket:
      record = BuildMultiPacket({.packets = {BuildAudioPacket({.time = wire}), packet}});
      break;
    }
    store.Add(record, {t});
    times.push_back(t);
  }
  return times;
}

// A codec whose frames name the frame they depend on, so that a frame decoded
// without its predecessor fails as a real one would give garbage. A payload is
// a run of pairs (tag, tag of the frame it needs, 0 for none); every pair is
// one image, and a payload of several pairs is given out one image a call.
struct SmChainLog {
  int dataCalls = 0;
  int flushes = 0;
  std::vector<int> tags;
};

class CmChainDecoder : public ImVideoDecoder {
public:
  explicit CmChainDecoder(std::shared_ptr<SmChainLog> log) : m_Log(std::move(log)) {}

  bool Decode(const uint8_t* data, uint64_t size, int32_t imageId, const CmTimeStamp& time,
              CmImage& image, SmVideoDecodeResult& result) override {
    result = SmVideoDecodeResult();
    if (data == nullptr) {
      ++m_Log->flushes;
      return true;
    }
    ++m_Log->dataCalls;
    // The framework comes back with the same payload only when asked to.
    if (!m_CallAgain) {
      m_Position = 0;
    }
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
    image.Reset();
    image.Allocate(16, 8, Gray);
    const auto plane = image.Allocator().GetWriteablePlane(0);
    std::fill_n(plane.data, plane.rowStride * plane.height, static_cast<uint8_t>(tag));
    image.GetAttributes().timeStamp = time;
    result.m_ImageProduced = true;
    result.m_ImageId = imageId;
    return true;
  }
  void Reset() override {
    m_LastTag = 0;
    m_CallAgain = false;
  }
  SmVideoDecodeParameters GetParameters() const override { return m_Parameters; }
  void SetParameters(const SmVideoDecodeParameters& parameters) override {
    m_Parameters = parameters;
  }

private:
  std::shared_ptr<SmChainLog> m_Log;
  SmVideoDecodeParameters m_Parameters;
  bool m_CallAgain = false;
  uint64_t m_Position = 0;
  int m_LastTag = 0;
};

class CmChainFactory : public ImVideoFactory {
public:
  explicit CmChainFactory(std::shared_ptr<SmChainLog> log) : m_Log(std::move(log)) {}
  ImVideoDecoder* CreateDecoder() override { return new CmChainDecoder(m_Log); }
  ImVideoAnalyzer* CreateAnalyzer() override { return nullptr; }
  ImVideoParser* CreateParser() override { return nullptr; }

private:
  std::shared_ptr<SmChainLog> m_Log;
};

struct SmChainHarness {
  std::shared_ptr<SmChainLog> log = std::make_shared<SmChainLog>();
  CmRandomAccessVideoDecoder decoder{[log = log](uint32_t) -> std::unique_ptr<ImVideoFactory> {
    return std::make_unique<CmChainFactory>(log);
  }};
  CmMemoryStore store;

  SmChainHarness() { decoder.SetDataAccess(&store); }
  void SetMode(uint32_t mode) {
    SmVideoDecodeParameters parameters;
    parameters.m_DecodeMode = mode;
    decoder.SetParameters(parameters);
  }
};

// Three groups of pictures of four frames, 40 ms apart, as H.264-like
// packets: one sync frame, then frames that each need the one before.
std::vector<int64_t> FillChainPackets(CmMemoryStore& store) {
  std::vector<int64_t> times;
  for (int group = 0; group < 3; ++group) {
    const uint64_t syncTime = T0 + 160 * group;
    for (int frame = 0; frame < 4; ++frame) {
      const int tag = 1 + group * 4 + frame;
      const uint64_t t = syncTime + 40 * frame;
      const CmBytes payload{static_cast<uint8_t>(tag),
                            static_cast<uint8_t>(frame == 0 ? 0 : tag - 1)};
      store.Add(BuildVideoPacket({.codec = 10,
                                  .sync = frame == 0,
                                  .syncTime = syncTime,
                                  .frameTime = t,
                                  .payload = payload}),
                {static_cast<int64_t>(t)}, frame == 0);
      times.push_back(static_cast<int64_t>(t));
    }
  }
  return times;
}

// The same three groups as multi-image blocks of codec 10.
std::vector<int64_t> FillChainBlocks(CmMemoryStore& store) {
  std::vector<int64_t> times;
  for (int group = 0; group < 3; ++group) {
    const uint64_t begin = T0 + 160 * group;
    CmBytes payload;
    std::vector<int64_t> imageTimes;
    for (int frame = 0; frame < 4; ++frame) {
      const int tag = 1 + group * 4 + frame;
      payload.push_back(static_cast<uint8_t>(tag));
      payload.push_back(static_cast<uint8_t>(frame == 0 ? 0 : tag - 1));
      imageTimes.push_back(static_cast<int64_t>(begin) + 40 * frame);
    }
    store.Add(BuildBlock({.type = 10,
                          .beginTime = begin,
                          .endTime = begin + 120,
                          .width = 16,
                          .height = 8,
                          .imageCount = 4,
                          .payload = payload}),
              imageTimes);
    times.insert(times.end(), imageTimes.begin(), imageTimes.end());
  }
  return times;
}

int TagOf(int64_t time) {
  return 1 + static_cast<int>((time - T0) / 40);
}

// Probe times around every frame: before all, at each, between each pair,
// after all.
std::vector<int64_t> ProbeTimes(const std::vector<int64_t>& frames) {
  std::vector<int64_t> probes{frames.front() - 1000, frames.front() - 1};
  for (size_t i = 0; i < frames.size(); ++i) {
    probes.push_back(frames[i]);
    if (i + 1 < frames.size()) {
      probes.push_back(frames[i] + 1);
      probes.push_back((frames[i] + frames[i + 1]) / 2);
      probes.push_back(frames[i + 1] - 1);
    }
  }
  probes.push_back(frames.back() + 1);
  probes.push_back(frames.back() + 1000);
  return probes;
}

} // namespace

TEST(RandomAccessVideoDecoder, RefusesParametersItCannotServeInOrder) {
  CmRandomAccessVideoDecoder decoder;
  auto refused = [&](const SmVideoDecodeParameters& p) -> std::string {
    try {
      decoder.SetParameters(p);
    } catch (const NmError::CmIntegrityError& error) {
      EXPECT_EQ(error.GetErrorCode(), NmError::CmIntegrityErrorCode::InvalidArgument);
      EXPECT_NE(std::string(error.GetLocation())
                    .find("NmMediaProcessing::CmRandomAccessVideoDecoder::ValidateParameters"),
                std::string::npos);
      return error.GetDescription();
    }
    return "accepted";
  };
  SmVideoDecodeParameters all;
  all.m_VideoStreamTimestamping = 1;
  all.m_SplitFields = true;
  all.m_ProduceImage = false;
  all.m_LowDelay = true;
  EXPECT_EQ(refused(all), "Video-stream timestamping parameter is not supported by this decoder");
  all.m_VideoStreamTimestamping = 0;
  EXPECT_EQ(refused(all), "Split-fields decoding parameter is not supported by this decoder");
  all.m_SplitFields = false;
  EXPECT_EQ(refused(all), "Produce-image decoding parameter must be set for this decoder");
  all.m_ProduceImage = true;
  EXPECT_EQ(refused(all), "Low-delay decoding parameter is not supported by this decoder");
  all.m_DecodeMode = SmVideoDecodeParameters::DecodeSyncFramesOnly;
  EXPECT_EQ(refused(all), "accepted");
  EXPECT_EQ(decoder.GetParameters().m_DecodeMode, SmVideoDecodeParameters::DecodeSyncFramesOnly);
}

TEST(RandomAccessVideoDecoder, StoreFailuresAndMisuse) {
  CmRandomAccessVideoDecoder decoder;
  CmImage image;
  try {
    decoder.GetImage(Ms(T0), TimeMatchNearest, image);
    ADD_FAILURE() << "no store accepted";
  } catch (const NmError::CmIntegrityError& error) {
    EXPECT_EQ(std::string(error.GetDescription()), "No video data store specified");
    EXPECT_EQ(error.GetErrorCode(), NmError::CmIntegrityErrorCode::InvalidPointer);
  }

  // An empty store answers false, and so does the decoder, raising nothing.
  CmMemoryStore store;
  decoder.SetDataAccess(&store);
  for (const auto type : AllMatchTypes) {
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
  try {
    decoder.GetImage(Ms(T0), TimeMatchNearest, image);
    ADD_FAILURE() << "a view accepted";
  } catch (const NmError::CmIntegrityError& error) {
    EXPECT_EQ(std::string(error.GetDescription()), "Ownership integrity violated");
  }
  // The decoder stays usable once the store behaves.
  views.m_HandOutViews = false;
  ASSERT_TRUE(decoder.GetImage(Ms(T0), TimeMatchNearest, image));
  EXPECT_EQ(image.GetAttributes().timeStamp, Ms(T0));

  decoder.ClearDataAccess();
  EXPECT_THROW(decoder.GetImage(Ms(T0), TimeMatchNearest, image), NmError::CmIntegrityError);
}

// Every match type at every interesting time, over real JPEG records in each
// single-image form, decoding each probe from a fresh start and again right
// after the previous probe, so that the kept state is tested too.
TEST(RandomAccessVideoDecoder, FindsTheRightJPEGPictureInEveryForm) {
  for (const Form form : {Form::Packet, Form::Block, Form::MultiPacket}) {
    CmMemoryStore store;
    const std::vector<int64_t> frames = FillJPEGStore(store, form);
    for (const uint32_t mode : {0u, 1u, 2u}) {
      CmRandomAccessVideoDecoder kept;
      SmVideoDecodeParameters parameters;
      parameters.m_DecodeMode = mode;
      kept.SetParameters(parameters);
      kept.SetDataAccess(&store);
      for (const auto type : AllMatchTypes) {
        for (const int64_t t : ProbeTimes(frames)) {
          SCOPED_TRACE(testing::Message() << "form " << static_cast<int>(form) << " mode " << mode
                                          << " type " << type << " at T0+" << t - T0);
          const std::optional<int64_t> expected = Expected(frames, t, type);
          CmRandomAccessVideoDecoder fresh;
          fresh.SetParameters(parameters);
          fresh.SetDataAccess(&store);
          for (CmRandomAccessVideoDecoder* decoder : {&fresh, &kept}) {
            CmImage image;
            const bool found = decoder->GetImage(Ms(t), type, image);
            ASSERT_EQ(found, expected.has_value());
            if (found) {
              EXPECT_EQ(image.GetAttributes().timeStamp.GetMilliseconds(), *expected);
              const size_t index = static_cast<size_t>((*expected - T0) / 40);
              EXPECT_NEAR(MiddleLuma(image), LevelOf(index), 3);
            }
          }
        }
      }
    }
  }
}

TEST(RandomAccessVideoDecoder, RawJPEGTakesTheClockTime) {
  CmMemoryStore store;
  store.Add(FlatJPEG(LevelOf(2)), {T0});
  CmRandomAccessVideoDecoder decoder;
  decoder.SetDataAccess(&store);
  for (const auto type : {TimeMatchNearest, TimeMatchAtOrAfter, TimeMatchAfter}) {
    const auto before = std::chrono::system_clock::now();
    CmImage image;
    ASSERT_TRUE(decoder.GetImage(Ms(T0 - 10), type, image)) << type;
    const auto after = std::chrono::system_clock::now();
    const int64_t time = image.GetAttributes().timeStamp.GetMilliseconds();
    EXPECT_GE(
        time,
        std::chrono::duration_cast<std::chrono::milliseconds>(before.time_since_epoch()).count());
    EXPECT_LE(
        time,
        std::chrono::duration_cast<std::chrono::milliseconds>(after.time_since_epoch()).count());
    EXPECT_NEAR(MiddleLuma(image), LevelOf(2), 3);
  }
}

// Frames that need their predecessors, in packets and in multi-image blocks:
// every answer is right from a fresh start, and a kept decoder gets there too.
TEST(RandomAccessVideoDecoder, DecodesFromTheSyncFrameUpToTheWantedFrame) {
  for (const bool blocks : {false, true}) {
    for (const uint32_t mode : {0u, 1u}) {
      SmChainHarness kept;
      kept.SetMode(mode);
      const std::vector<int64_t> frames =
          blocks ? FillChainBlocks(kept.store) : FillChainPackets(kept.store);
      for (const auto type : AllMatchTypes) {
        for (const int64_t t : ProbeTimes(frames)) {
          SCOPED_TRACE(testing::Message() << (blocks ? "blocks" : "packets") << " mode " << mode
                                          << " type " << type << " at T0+" << t - T0);
          const std::optional<int64_t> expected = Expected(frames, t, type);
          SmChainHarness fresh;
          fresh.SetMode(mode);
          fresh.store = kept.store;
          for (SmChainHarness* h : {&fresh, &kept}) {
            CmImage image;
            const bool found = h->decoder.GetImage(Ms(t), type, image);
            ASSERT_EQ(found, expected.has_value());
            if (found) {
              EXPECT_EQ(image.GetAttributes().timeStamp.GetMilliseconds(), *expected);
              EXPECT_EQ(MiddleLuma(image), TagOf(*expected));
            }
          }
        }
      }
    }
  }
}

// Stepping forwards costs one frame and few store calls; stepping back in the
// reduced mode takes the image just passed without decoding anything.
TEST(RandomAccessVideoDecoder, SteppingKeepsTheDecoderRunning) {
  for (const bool blocks : {false, true}) {
    SCOPED_TRACE(blocks ? "blocks" : "packets");
    SmChainHarness h;
    h.SetMode(1);
    const std::vector<int64_t> frames =
        blocks ? FillChainBlocks(h.store) : FillChainPackets(h.store);
    CmImage image;
    ASSERT_TRUE(h.decoder.GetImage(Ms(frames.front() - 5), TimeMatchAfter, image));
    EXPECT_EQ(image.GetAttributes().timeStamp.GetMilliseconds(), frames.front());
    for (size_t i = 1; i < frames.size(); ++i) {
      const int callsBefore = h.log->dataCalls;
      const int storeBefore = h.store.m_Calls;
      ASSERT_TRUE(h.decoder.GetImage(Ms(frames[i - 1]), TimeMatchAfter, image)) << i;
      EXPECT_EQ(image.GetAttributes().timeStamp.GetMilliseconds(), frames[i]);
      EXPECT_EQ(h.log->dataCalls - callsBefore, 1) << i;
      EXPECT_LE(h.store.m_Calls - storeBefore, 2) << i;
    }
    EXPECT_FALSE(h.decoder.GetImage(Ms(frames.back()), TimeMatchAfter, image));

    // Back one frame from the middle of the last group: the image just passed.
    ASSERT_TRUE(h.decoder.GetImage(Ms(frames[9]), TimeMatchAtOrBefore, image));
    ASSERT_TRUE(h.decoder.GetImage(Ms(frames[10]), TimeMatchAtOrBefore, image));
    EXPECT_EQ(image.GetAttributes().timeStamp.GetMilliseconds(), frames[10]);
    const int callsBefore = h.log->dataCalls;
    ASSERT_TRUE(h.decoder.GetImage(Ms(frames[10]), TimeMatchBefore, image));
    EXPECT_EQ(image.GetAttributes().timeStamp.GetMilliseconds(), frames[9]);
    EXPECT_EQ(h.log->dataCalls, callsBefore);
    // Asking again for the same picture, still looking back, decodes nothing either.
    ASSERT_TRUE(h.decoder.GetImage(Ms(frames[9]), TimeMatchAtOrBefore, image));
    EXPECT_EQ(image.GetAttributes().timeStamp.GetMilliseconds(), frames[9]);
    EXPECT_EQ(h.log->dataCalls, callsBefore);
    // Forwards again: the image kept is the codec's newest, so the step is one frame.
    ASSERT_TRUE(h.decoder.GetImage(Ms(frames[9]), TimeMatchAfter, image));
    EXPECT_EQ(image.GetAttributes().timeStamp.GetMilliseconds(), frames[10]);
    ASSERT_TRUE(h.decoder.GetImage(Ms(frames[10]), TimeMatchAfter, image));
    EXPECT_EQ(image.GetAttributes().timeStamp.GetMilliseconds(), frames[11]);
    EXPECT_EQ(h.log->dataCalls, callsBefore + 1);
  }
}

TEST(RandomAccessVideoDecoder, SyncFramesOnlySeesTheFirstFrameOfEachGroup) {
  for (const bool blocks : {false, true}) {
    SCOPED_TRACE(blocks ? "blocks" : "packets");
    SmChainHarness h;
    h.SetMode(2);
    const std::vector<int64_t> frames =
        blocks ? FillChainBlocks(h.store) : FillChainPackets(h.store);
    const std::vector<int64_t> syncs{frames[0], frames[4], frames[8]};
    for (const auto type : {TimeMatchAfter, TimeMatchBefore, TimeMatchAtOrAfter,
                            TimeMatchAtOrBefore, TimeMatchNearest}) {
      for (const int64_t t : ProbeTimes(syncs)) {
        SCOPED_TRACE(testing::Message() << "type " << type << " at T0+" << t - T0);
        const std::optional<int64_t> expected = Expected(syncs, t, type);
        CmImage image;
        const bool found = h.decoder.GetImage(Ms(t), type, image);
        ASSERT_EQ(found, expected.has_value());
        if (found) {
          EXPECT_EQ(image.GetAttributes().timeStamp.GetMilliseconds(), *expected);
          EXPECT_EQ(MiddleLuma(image), TagOf(*expected));
        }
      }
    }
    // No frame that needs another was ever decoded.
    for (const int tag : h.log->tags) {
      EXPECT_EQ((tag - 1) % 4, 0) << tag;
    }
  }
}

TEST(RandomAccessVideoDecoder, ChangingTheModeForgetsTheRecord) {
  SmChainHarness h;
  FillChainPackets(h.store);
  CmImage image;
  ASSERT_TRUE(h.decoder.GetImage(Ms(T0 + 40), TimeMatchExact, image));
  const int storeBefore = h.store.m_Calls;
  ASSERT_TRUE(h.decoder.GetImage(Ms(T0 + 40), TimeMatchExact, image));
  EXPECT_EQ(h.store.m_Calls, storeBefore);
  h.SetMode(0); // the same mode: nothing forgotten
  ASSERT_TRUE(h.decoder.GetImage(Ms(T0 + 40), TimeMatchExact, image));
  EXPECT_EQ(h.store.m_Calls, storeBefore);
  h.SetMode(1);
  ASSERT_TRUE(h.decoder.GetImage(Ms(T0 + 40), TimeMatchExact, image));
  EXPECT_GT(h.store.m_Calls, storeBefore);
}

// A codec that keeps asking to be called and gives nothing is cut off after
// a thousand calls; an image in between starts the count again.
namespace {

struct SmStuckLog {
  int calls = 0;
  int imageEvery = 0;
};

class CmStuckDecoder : public ImVideoDecoder {
public:
  explicit CmStuckDecoder(std::shared_ptr<SmStuckLog> log) : m_Log(std::move(log)) {}
  bool Decode(const uint8_t* data, uint64_t, int32_t id, const CmTimeStamp&, CmImage& image,
              SmVideoDecodeResult& result) override {
    result = SmVideoDecodeResult();
    const int call = ++m_Log->calls;
    result.m_CallAgain = data != nullptr && call < 3000;
    if (m_Log->imageEvery != 0 && call % m_Log->imageEvery == 0) {
      image.Reset();
      image.Allocate(4, 4, Gray);
      // Older than wanted: the decoder has to go on.
      image.GetAttributes().timeStamp = Ms(T0 - 1);
      result.m_ImageProduced = true;
      result.m_ImageId = id + 1000; // no frame the tracker knows: the time stays
    }
    return true;
  }
  void Reset() override {}
  SmVideoDecodeParameters GetParameters() const override { return {}; }
  void SetParameters(const SmVideoDecodeParameters&) override {}

private:
  std::shared_ptr<SmStuckLog> m_Log;
};

class CmStuckFactory : public ImVideoFactory {
public:
  explicit CmStuckFactory(std::shared_ptr<SmStuckLog> log) : m_Log(std::move(log)) {}
  ImVideoDecoder* CreateDecoder() override { return new CmStuckDecoder(m_Log); }
  ImVideoAnalyzer* CreateAnalyzer() override { return nullptr; }
  ImVideoParser* CreateParser() override { return nullptr; }

private:
  std::shared_ptr<SmStuckLog> m_Log;
};

} // namespace

TEST(RandomAccessVideoDecoder, DecodingBudget) {
  for (const int imageEvery : {0, 999}) {
    auto log = std::make_shared<SmStuckLog>();
    log->imageEvery = imageEvery;
    CmRandomAccessVideoDecoder decoder([log](uint32_t) -> std::unique_ptr<ImVideoFactory> {
      return std::make_unique<CmStuckFactory>(log);
    });
    CmMemoryStore store;
    store.Add(BuildVideoPacket({.codec = 10, .syncTime = T0, .frameTime = T0}), {T0});
    decoder.SetDataAccess(&store);
    CmImage image;
    if (imageEvery == 0) {
      try {
        decoder.GetImage(Ms(T0), TimeMatchExact, image);
        ADD_FAILURE() << "no limit";
      } catch (const NmError::CmIntegrityError& error) {
        EXPECT_EQ(std::string(error.GetDescription()), "Decoding sanity limit reached");
      }
      EXPECT_EQ(log->calls, 1000);
    } else {
      // Images now and then keep it going until the codec stops asking.
      EXPECT_FALSE(decoder.GetImage(Ms(T0), TimeMatchExact, image));
      EXPECT_GE(log->calls, 3000);
    }
  }
}

// A frame whose predecessor is missing fails, and the decoder says so instead
// of giving out a wrong picture; the pictures around it still come.
TEST(RandomAccessVideoDecoder, BrokenChainGivesNoPicture) {
  SmChainHarness h;
  const std::vector<int64_t> frames = FillChainPackets(h.store);
  // Frame 6 (tag 7) now needs a frame that never comes.
  auto& broken = h.store.m_Records[6];
  broken.bytes = BuildVideoPacket({.codec = 10,
                                   .sync = false,
                                   .syncTime = T0 + 160,
                                   .frameTime = static_cast<uint64_t>(frames[6]),
                                   .payload = {7, 99}});
  CmImage image;
  EXPECT_FALSE(h.decoder.GetImage(Ms(frames[6]), TimeMatchExact, image));
  ASSERT_TRUE(h.decoder.GetImage(Ms(frames[5]), TimeMatchExact, image));
  EXPECT_EQ(MiddleLuma(image), 6);
  ASSERT_TRUE(h.decoder.GetImage(Ms(frames[8]), TimeMatchExact, image));
  EXPECT_EQ(MiddleLuma(image), 9);
}

// When the sync frame of a group fails, every frame that needs it fails too,
// each named by its own time so that playback can stand on it and step past;
// the next group decodes again. A time with no frame at all names nothing.
TEST(RandomAccessVideoDecoder, FailedSyncFrameMakesItsGroupUndecodable) {
  for (const bool blocks : {false, true}) {
    SCOPED_TRACE(blocks ? "blocks" : "packets");
    SmChainHarness h;
    const std::vector<int64_t> frames =
        blocks ? FillChainBlocks(h.store) : FillChainPackets(h.store);
    if (blocks) {
      // The second block's first frame now needs one that never comes.
      CmBytes payload{5, 99, 6, 5, 7, 6, 8, 7};
      h.store.m_Records[1].bytes = BuildBlock({.type = 10,
                                               .beginTime = static_cast<uint64_t>(T0 + 160),
                                               .endTime = static_cast<uint64_t>(T0 + 280),
                                               .width = 16,
                                               .height = 8,
                                               .imageCount = 4,
                                               .payload = payload});
    } else {
      h.store.m_Records[4].bytes = BuildVideoPacket({.codec = 10,
                                                     .sync = true,
                                                     .syncTime = static_cast<uint64_t>(T0 + 160),
                                                     .frameTime = static_cast<uint64_t>(T0 + 160),
                                                     .payload = {5, 99}});
    }
    CmImage image;
    CmTimeStamp failed;
    ASSERT_TRUE(h.decoder.GetImage(Ms(frames[2]), TimeMatchAfter, image));
    EXPECT_EQ(MiddleLuma(image), 4);
    EXPECT_FALSE(h.decoder.GetUndecodableTime(failed)) << "a success names nothing";
    // Forwards and backwards through the broken group, as playback steps.
    for (size_t k = 4; k < 8; ++k) {
      EXPECT_FALSE(h.decoder.GetImage(Ms(frames[k - 1]), TimeMatchAfter, image)) << k;
      ASSERT_TRUE(h.decoder.GetUndecodableTime(failed)) << k;
      EXPECT_EQ(failed, Ms(frames[k]));
    }
    ASSERT_TRUE(h.decoder.GetImage(Ms(frames[7]), TimeMatchAfter, image));
    EXPECT_EQ(MiddleLuma(image), 9);
    for (size_t k = 7; k >= 4; --k) {
      EXPECT_FALSE(h.decoder.GetImage(Ms(frames[k + 1]), TimeMatchBefore, image)) << k;
      ASSERT_TRUE(h.decoder.GetUndecodableTime(failed)) << k;
      EXPECT_EQ(failed, Ms(frames[k]));
    }
    ASSERT_TRUE(h.decoder.GetImage(Ms(frames[4]), TimeMatchBefore, image));
    EXPECT_EQ(MiddleLuma(image), 4);
    EXPECT_FALSE(h.decoder.GetImage(Ms(frames[5]), TimeMatchExact, image));
    ASSERT_TRUE(h.decoder.GetUndecodableTime(failed));
    EXPECT_EQ(failed, Ms(frames[5]));

    EXPECT_FALSE(h.decoder.GetImage(Ms(frames.back()), TimeMatchAfter, image));
    EXPECT_FALSE(h.decoder.GetUndecodableTime(failed)) << "nothing after the last frame";
    EXPECT_FALSE(h.decoder.GetImage(Ms(frames[5] + 1), TimeMatchExact, image));
    EXPECT_FALSE(h.decoder.GetUndecodableTime(failed)) << "no frame at that time";
  }
}
