#include <gtest/gtest.h>

#include <cstdlib>
#include <limits>
#include <memory>
#include <string>

#include "Toolkits/ToolkitTestSupport.h"
#include "Toolkits/VZKSourceToolkitPlugin/Items/SharedData.h"
#include "Toolkits/VZKSourceToolkitPlugin/Stream/Cache.h"
#include "Toolkits/VZKSourceToolkitPlugin/Tree/ToolkitFactory.h"

using namespace NmToolkit;
using namespace NmToolkitTest;

namespace {

// A cache over the scripted source, with the source's journal to count the
// calls that reach it.
class CacheTest : public ::testing::Test {
protected:
  void Build(const std::string& items = DefaultItems) {
    journal = std::make_unique<ScriptedJournal>(BinaryDirectory());
    ASSERT_TRUE(journal->IsOpen());
    ImToolkit* source = factory.CreateInstance(ScriptedToolkit(items).c_str());
    ASSERT_NE(source, nullptr);
    cache = std::make_unique<CmCache>(CmUpstreamToolkit(source, factory, factoryLock));
    cache->Connect(0);
    journal->Clear();
  }
  void TearDown() override { cache.reset(); }
  // What the move landed on, fetched.
  std::string At(uint32_t status) { return status == StatusSuccess ? Fetch() : "no move"; }
  std::string Fetch() {
    ImData* raw = nullptr;
    if (cache->GetData(&raw) != StatusSuccess) {
      return "none";
    }
    std::unique_ptr<ImData> item(raw);
    return std::string(reinterpret_cast<const char*>(item->GetDataPointer()), item->GetDataSize());
  }

  CmToolkitFactory factory;
  NmThread::CmCriticalSection factoryLock;
  std::unique_ptr<CmCache> cache;
  std::unique_ptr<ScriptedJournal> journal;
};

TEST_F(CacheTest, SteppingInsideTheListMakesNoUpstreamCall) {
  Build();
  EXPECT_EQ(At(cache->MoveFirst()), "a");
  EXPECT_EQ(Fetch(), "a");
  EXPECT_EQ(Count(journal->Text(), "GetData"), 1u) << "a second GetData is served from the list";
  ASSERT_EQ(cache->MoveNext(), StatusSuccess);
  EXPECT_EQ(At(cache->MoveNext()), "c");
  EXPECT_EQ(cache->GetEntryCount(), 3u);
  const std::string before = journal->Text();
  EXPECT_EQ(before, "MoveFirst;GetData;MoveNext;GetData;MoveNext;GetData;")
      << "steps next to the last fetched item are single upstream steps";

  journal->Clear();
  EXPECT_EQ(At(cache->MovePrevious()), "b");
  EXPECT_EQ(At(cache->MovePrevious()), "a");
  EXPECT_EQ(At(cache->MoveNext()), "b");
  EXPECT_EQ(At(cache->MoveTo(1045, MoveClosest)), "b");
  EXPECT_EQ(At(cache->MoveTo(1039, MoveAtOrBefore)), "a");
  EXPECT_EQ(journal->Text(), "") << "all of these lie in the list";

  // Leaving the list goes upstream by time.
  ASSERT_EQ(cache->MovePrevious(), StatusNoItem);
  EXPECT_EQ(journal->Text(), "MoveTo(1000,1);");

  // The upstream stands at c; a sequence step must start from a, the item seen.
  Build();
  cache->MoveFirst();
  Fetch();
  cache->MoveNext();
  cache->MoveNext();
  cache->MovePrevious();
  cache->MovePrevious();
  EXPECT_EQ(Fetch(), "a");
  journal->Clear();
  EXPECT_EQ(At(cache->MoveNextSequence()), "c");
  EXPECT_EQ(journal->Text(), "MoveTo(1000,2);MoveNextSequence;GetData;");
  EXPECT_EQ(At(cache->MovePreviousSequence()), "a");
}

TEST_F(CacheTest, ListKeepsAtMostFiveItems) {
  std::string items;
  for (int i = 0; i < 8; ++i) {
    items += "<item begin='" + std::to_string(i * 100) + "' end='" + std::to_string(i * 100 + 99) +
             "' payload='" + std::to_string(i) + "'/>";
  }
  Build(items);
  cache->MoveFirst();
  Fetch();
  for (int i = 1; i < 8; ++i) {
    ASSERT_EQ(cache->MoveNext(), StatusSuccess);
    EXPECT_EQ(Fetch(), std::to_string(i));
    EXPECT_EQ(cache->GetEntryCount(), std::min<size_t>(i + 1, CmCache::Limit));
  }
  journal->Clear();
  // Items 3 to 7 are kept; 2 was dropped from the far end.
  for (int i = 6; i >= 3; --i) {
    ASSERT_EQ(cache->MovePrevious(), StatusSuccess);
    EXPECT_EQ(Fetch(), std::to_string(i));
  }
  EXPECT_EQ(journal->Text(), "");
  EXPECT_EQ(At(cache->MovePrevious()), "2");
  EXPECT_EQ(journal->Text(), "MoveTo(300,1);GetData;");
  EXPECT_EQ(cache->GetEntryCount(), CmCache::Limit)
      << "an item just before the list goes to its front, and the far end drops";
  journal->Clear();
  EXPECT_EQ(At(cache->MoveNext()), "3");
  EXPECT_EQ(At(cache->MoveTo(650, MoveAtOrAfter)), "7");
  EXPECT_EQ(journal->Text(), "MoveTo(650,4);GetData;") << "7 was dropped from the far end";
  EXPECT_EQ(cache->GetEntryCount(), 1u) << "a jump by time starts afresh";
}

// Items at both ends of the time range lie further apart than int64_t holds,
// and no millisecond lies beyond them: the list still answers, rightly.
TEST_F(CacheTest, ListAnswersAcrossTheWholeTimeRange) {
  const std::string min = std::to_string(std::numeric_limits<int64_t>::min());
  const std::string max = std::to_string(std::numeric_limits<int64_t>::max());
  Build("<item begin='" + min + "' end='" + min + "' payload='a'/><item begin='" + max + "' end='" +
        max + "' payload='b'/>");
  cache->MoveFirst();
  Fetch();
  cache->MoveNext();
  Fetch();
  journal->Clear();
  ASSERT_EQ(cache->MoveTo(0, MoveClosest), StatusSuccess);
  EXPECT_EQ(Fetch(), "b") << "0 lies a millisecond nearer to the top of the range";
  EXPECT_EQ(At(cache->MoveTo(-1, MoveClosest)), "a");
  EXPECT_EQ(At(cache->MoveTo(std::numeric_limits<int64_t>::max(), MoveBefore)), "a");
  EXPECT_EQ(At(cache->MoveTo(std::numeric_limits<int64_t>::min(), MoveAfter)), "b");
  EXPECT_EQ(journal->Text(), "") << "all of these lie in the list";
}

TEST_F(CacheTest, WrappersShareOneItemAndKeepItsKind) {
  Build("<item begin='1' payload='m'/><item begin='2' kind='outofband' payload='o'/>");
  cache->MoveFirst();
  ImData* first = nullptr;
  ImData* second = nullptr;
  ASSERT_EQ(cache->GetData(&first), StatusSuccess);
  ASSERT_EQ(cache->GetData(&second), StatusSuccess);
  std::unique_ptr<ImData> one(first);
  std::unique_ptr<ImData> two(second);
  EXPECT_NE(first, second);
  EXPECT_EQ(first->GetDataPointer(), second->GetDataPointer()) << "two wrappers of one item";
  ASSERT_NE(dynamic_cast<ImMediaData*>(first), nullptr);
  EXPECT_EQ(dynamic_cast<ImMediaData*>(first)->GetPayloadSize(), 1u);
  EXPECT_EQ(dynamic_cast<ImOutOfBandData*>(first), nullptr);

  // The item outlives the cache's own reference.
  cache->Disconnect();
  EXPECT_EQ(*first->GetDataPointer(), 'm');
  cache->Connect(0);
  cache->MoveLast();
  ImData* raw = nullptr;
  ASSERT_EQ(cache->GetData(&raw), StatusSuccess);
  std::unique_ptr<ImData> outOfBand(raw);
  EXPECT_NE(dynamic_cast<ImOutOfBandData*>(raw), nullptr);
  EXPECT_EQ(dynamic_cast<ImMediaData*>(raw), nullptr);

  EXPECT_EQ(WrapSharedData(nullptr), nullptr);
}

} // namespace
