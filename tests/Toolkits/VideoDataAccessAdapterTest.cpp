#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "GenericByteData/TestTimes.h"
#include "MediaProcessing/GenericByteData/RawVideoByteDataAccess.h"
#include "MediaProcessing/Video/RandomAccessVideoDecoder.h"
#include "Toolkits/VZKSourceToolkitPlugin/Decoding/VideoDataAccessAdapter.h"
#include "Toolkits/VZKSourceToolkitPlugin/Items/MediaData.h"
#include "Toolkits/VZKSourceToolkitPlugin/Stream/Cache.h"
#include "support/GenericByteDataBuilder.h"
#include "support/JPEGRecords.h"
#include "support/TimeMatchOracle.h"

using namespace NmToolkit;
using namespace NmTestSupport;
using NmMediaProcessing::CmGenericByteData;
using NmMediaProcessing::CmRawVideoByteDataAccess;
using NmMediaProcessing::SmTimeMatchType;
using NmTimeStamp::CmTimeStamp;

namespace {

constexpr int64_t T0 = 1700000000000;

// A recording in memory that navigates as a source plug-in does and counts
// every call that reaches it.
class CmMemorySource : public ImPlaybackSourceToolkit {
public:
  // Each item is made afresh at every GetData, as a plug-in would.
  using CmMaker = std::function<ImData*()>;
  void Add(CmMaker make, int64_t begin, int64_t end) {
    m_Items.push_back({std::move(make), begin, end});
  }

  void Connect(const CmPropertyNameSet&, CmPropertyNameSet&, uint64_t) override {}
  void Connect(uint64_t) override {}
  void Disconnect() override {}
  void UpdateValues(const CmKeyValueList&) override {}
  void UpdateValue(const std::string&, const std::string&) override {}
  uint32_t MoveFirst() override { return ++calls, Go(m_Items.empty() ? -1 : 0); }
  uint32_t MoveLast() override { return ++calls, Go(static_cast<int>(m_Items.size()) - 1); }
  uint32_t MoveNext() override { return ++calls, Go(m_Position + 1); }
  uint32_t MovePrevious() override { return ++calls, Go(m_Position - 1); }
  uint32_t MoveNextSequence() override { return ++calls, StatusNoItem; }
  uint32_t MovePreviousSequence() override { return ++calls, StatusNoItem; }
  uint32_t MoveTo(int64_t time, SmMoveMode mode) override {
    ++calls;
    const auto distance = [time](const SmItem& it) {
      return time < it.begin ? it.begin - time : time > it.end ? time - it.end : 0;
    };
    int found = -1;
    for (int i = 0; i < static_cast<int>(m_Items.size()); ++i) {
      const SmItem& item = m_Items[i];
      const bool take = mode == MoveBefore       ? item.end < time
                        : mode == MoveAtOrBefore ? item.begin <= time
                        : mode == MoveAfter      ? found < 0 && item.begin > time
                        : mode == MoveAtOrAfter
                            ? found < 0 && item.begin >= time
                            : found < 0 || distance(item) <= distance(m_Items[found]);
      found = take ? i : found;
    }
    return Go(found);
  }
  uint32_t GetData(ImData** out) override {
    ++calls;
    if (m_Position < 0) {
      return StatusNoItem;
    }
    *out = m_Items[m_Position].make();
    return StatusSuccess;
  }

  int calls = 0;

private:
  struct SmItem {
    CmMaker make;
    int64_t begin;
    int64_t end;
  };
  uint32_t Go(int index) {
    if (index < 0 || index >= static_cast<int>(m_Items.size())) {
      return StatusNoItem;
    }
    m_Position = index;
    return StatusSuccess;
  }
  std::vector<SmItem> m_Items;
  int m_Position = -1;
};

uint8_t LevelOf(size_t frame) {
  return static_cast<uint8_t>(30 + 20 * frame);
}

CmBytes JPEGPacket(int64_t time, const CmBytes& jpeg) {
  return JPEGRecord(SmJPEGForm::Packet, static_cast<uint64_t>(time), jpeg);
}

// One item of several packets, made afresh at every call.
ImData* VectorOf(const std::vector<CmBytes>& packets) {
  auto* vector = new CmMediaDataVector();
  for (const CmBytes& p : packets) {
    vector->AddElement(std::make_unique<CmToolkitMediaDataSinglePacket>(p.data(), p.size()));
  }
  return vector;
}

enum class Form { Packet, Vector };

// Eight pictures 40 ms apart in the given form. In the vector form each item
// holds four packets.
std::vector<int64_t> Fill(CmMemorySource& source, Form form) {
  std::vector<int64_t> times;
  std::vector<CmBytes> packets;
  for (size_t i = 0; i < 8; ++i) {
    const int64_t t = T0 + 40 * static_cast<int64_t>(i);
    times.push_back(t);
    const CmBytes jpeg = FlatJPEG(LevelOf(i));
    switch (form) {
    case Form::Packet: {
      const CmBytes packet = JPEGPacket(t, jpeg);
      source.Add(
          [packet] { return new CmToolkitMediaDataSinglePacket(packet.data(), packet.size()); }, t,
          t);
      break;
    }
    case Form::Vector:
      packets.push_back(JPEGPacket(t, jpeg));
      if (packets.size() == 4) {
        source.Add([packets] { return VectorOf(packets); }, t - 120, t);
        packets.clear();
      }
      break;
    }
  }
  return times;
}

} // namespace

// The decoder over the adapter over the cache steps to every picture, in items
// of one packet and in vectors of packets; every kind of move is the decoding
// toolkits' walk. Stepping picture by picture reaches upstream at most once a
// step (a move and a fetch), stepping back over pictures just seen not at all.
TEST(VideoDataAccessAdapter, DecoderFindsEveryPictureThroughTheCacheAtOneStepAStep) {
  for (const Form form : {Form::Packet, Form::Vector}) {
    SCOPED_TRACE(static_cast<int>(form));
    auto owned = std::make_unique<CmMemorySource>();
    CmMemorySource& source = *owned;
    const std::vector<int64_t> frames = Fill(source, form);
    CmCache cache(CmUpstreamToolkit(std::move(owned)));
    CmVideoDataAccessAdapter adapter(&cache);
    NmMediaProcessing::CmRandomAccessVideoDecoder decoder;
    decoder.SetDataAccess(&adapter);
    NmMediaProcessing::CmImage image;
    ASSERT_TRUE(decoder.GetImage(Ms(T0), NmMediaProcessing::TimeMatchNearest, image));
    for (size_t i = 1; i < frames.size(); ++i) {
      const int before = source.calls;
      ASSERT_TRUE(decoder.GetImage(Ms(frames[i - 1]), NmMediaProcessing::TimeMatchAfter, image));
      EXPECT_EQ(image.GetAttributes().timeStamp.GetMilliseconds(), frames[i]);
      // The step itself, and the look at the next record's begin.
      EXPECT_LE(source.calls - before, 4) << i;
    }
    const int before = source.calls;
    for (size_t i = frames.size() - 1; i > 4; --i) {
      ASSERT_TRUE(decoder.GetImage(Ms(frames[i]), NmMediaProcessing::TimeMatchBefore, image));
      EXPECT_EQ(image.GetAttributes().timeStamp.GetMilliseconds(), frames[i - 1]);
    }
    EXPECT_EQ(source.calls, before) << "the last items are all in the cache";
  }
}

TEST(VideoDataAccessAdapter, MovesAndLooksUpItems) {
  CmMemorySource source;
  const std::vector<int64_t> frames = Fill(source, Form::Vector);
  CmVideoDataAccessAdapter adapter(&source);
  CmTimeStamp begin;
  EXPECT_TRUE(adapter.MoveTo(Ms(T0 + 10), NmMediaProcessing::TimeMatchAfter, begin));
  EXPECT_EQ(begin, Ms(T0 + 160));
  EXPECT_TRUE(adapter.MoveTo(Ms(T0 + 10), NmMediaProcessing::TimeMatchAtOrBefore, begin));
  EXPECT_EQ(begin, Ms(T0));
  EXPECT_FALSE(adapter.MoveTo(Ms(T0 + 10), NmMediaProcessing::TimeMatchExact, begin));
  EXPECT_TRUE(adapter.MoveTo(Ms(T0 + 160), NmMediaProcessing::TimeMatchExact));
  EXPECT_FALSE(adapter.MoveTo(Ms(T0 - 1), NmMediaProcessing::TimeMatchBefore));
  EXPECT_FALSE(adapter.MoveTo(Ms(T0), 6));

  // The item in hand answers for its span; of a vector, the element at the time.
  ASSERT_NE(adapter.GetCurrentItem(), nullptr);
  EXPECT_EQ(adapter.GetCurrentItem()->GetBeginTime(), T0 + 160);
  const ImData* element = adapter.FindItem(T0 + 200);
  ASSERT_NE(element, nullptr);
  EXPECT_EQ(element->GetBeginTime(), T0 + 200);
  EXPECT_EQ(adapter.FindItem(T0 + 210), adapter.GetCurrentItem());
  EXPECT_EQ(adapter.FindItem(T0 + 100), nullptr);
  adapter.Forget();
  EXPECT_EQ(adapter.FindItem(T0 + 200), nullptr);

  // A record handed out owns its bytes and outlives every item.
  CmGenericByteData record;
  ASSERT_TRUE(adapter.GetByteData(Ms(T0 + 45), NmMediaProcessing::TimeMatchNearest, false, record));
  adapter.Forget();
  EXPECT_TRUE(record.GetOwnsBuffer());
  EXPECT_EQ(CmRawVideoByteDataAccess(record, false).GetTime(), Ms(T0 + 40));
  // Nothing found leaves the record as it was.
  EXPECT_FALSE(
      adapter.GetByteData(Ms(frames.back()), NmMediaProcessing::TimeMatchAfter, false, record));
  EXPECT_EQ(CmRawVideoByteDataAccess(record, false).GetTime(), Ms(T0 + 40));

  // A group of four frames in one item: late in the group the next item's
  // sync frame is nearer than the group's own, though the item the upstream
  // finds nearest is the group that holds the time.
  CmMemorySource groups;
  std::vector<CmBytes> group;
  for (uint64_t i = 0; i < 4; ++i) {
    group.push_back(
        BuildVideoPacket({.codec = 10, .sync = i == 0, .syncTime = T0, .frameTime = T0 + 40 * i}));
  }
  const CmBytes next =
      BuildVideoPacket({.codec = 10, .sync = true, .syncTime = T0 + 160, .frameTime = T0 + 160});
  groups.Add([group] { return VectorOf(group); }, T0, T0 + 120);
  groups.Add([next] { return new CmToolkitMediaDataSinglePacket(next.data(), next.size()); },
             T0 + 160, T0 + 160);
  CmVideoDataAccessAdapter nearest(&groups);
  ASSERT_TRUE(nearest.GetByteData(Ms(T0 + 110), NmMediaProcessing::TimeMatchNearest, true, record));
  EXPECT_EQ(CmRawVideoByteDataAccess(record, false).GetTime(), Ms(T0 + 160));
}

// With sync frames only, the search walks over the frames that need others.
TEST(VideoDataAccessAdapter, SyncFramesOnlyWalksToTheNearestSyncFrame) {
  auto owned = std::make_unique<CmMemorySource>();
  CmMemorySource& source = *owned;
  // Groups of four from T0, T0 + 160 and T0 + 320; every frame its own item.
  std::vector<int64_t> syncs;
  for (int i = 0; i < 12; ++i) {
    const int64_t t = T0 + 40 * i;
    const int64_t sync = T0 + 160 * (i / 4);
    if (t == sync) {
      syncs.push_back(t);
    }
    const CmBytes packet = BuildVideoPacket({.codec = 10,
                                             .sync = t == sync,
                                             .syncTime = static_cast<uint64_t>(sync),
                                             .frameTime = static_cast<uint64_t>(t)});
    source.Add(
        [packet] { return new CmToolkitMediaDataSinglePacket(packet.data(), packet.size()); }, t,
        t);
  }
  CmCache cache(CmUpstreamToolkit(std::move(owned)));
  CmVideoDataAccessAdapter adapter(&cache);
  for (const auto type : AllTimeMatchTypes) {
    for (int64_t t = T0 - 50; t < T0 + 520; t += 10) {
      SCOPED_TRACE(testing::Message() << "type " << type << " at T0+" << t - T0);
      const std::optional<int64_t> expected = WantedFrame(syncs, type, t);
      CmGenericByteData record;
      ASSERT_EQ(adapter.GetByteData(Ms(t), type, true, record), expected.has_value());
      if (expected) {
        const CmRawVideoByteDataAccess view(record, false);
        EXPECT_TRUE(view.GetSync());
        EXPECT_EQ(view.GetTime().GetMilliseconds(), *expected);
      }
    }
  }
}
