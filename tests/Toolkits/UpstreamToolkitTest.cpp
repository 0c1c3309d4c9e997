#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>

#include "Toolkits/ToolkitTestSupport.h"
#include "Toolkits/VZKSourceToolkitPlugin/Stream/Cache.h"
#include "Toolkits/VZKSourceToolkitPlugin/Tree/ToolkitFactory.h"
#include "Toolkits/VZKSourceToolkitPlugin/Tree/UpstreamToolkit.h"

using namespace NmToolkit;
using namespace NmToolkitTest;

namespace {

// A source of this library's own kind that counts its deletions.
class CmCountedSource : public ImLiveSourceToolkit {
public:
  explicit CmCountedSource(int& deleted) : m_Deleted(deleted) {}
  ~CmCountedSource() override { ++m_Deleted; }
  void Connect(const CmPropertyNameSet&, CmPropertyNameSet&, uint64_t) override {}
  void Connect(uint64_t) override {}
  void Disconnect() override {}
  void UpdateValues(const CmKeyValueList&) override {}
  void UpdateValue(const std::string&, const std::string&) override {}
  void StartLiveStream() override {}
  void StopLiveStream() override {}
  uint32_t GetLiveData(ImData** out, uint32_t) override {
    *out = nullptr;
    return StatusNoItem;
  }

private:
  int& m_Deleted;
};

// However often a plug-in's toolkit changes hands (moves, a cache around it),
// it goes back through the factory that made it once, when its last owner
// goes, and the factory is left with nothing of it to delete again.
TEST(UpstreamToolkitTest, AFactoryToolkitGoesBackThroughItsFactoryOnceWhoeverHoldsItLast) {
  ScriptedJournal journal(BinaryDirectory());
  ASSERT_TRUE(journal.IsOpen());
  const int before = journal.Instances();
  {
    CmToolkitFactory factory;
    NmThread::CmCriticalSection factoryLock;
    journal.Clear();
    ImToolkit* made = factory.CreateInstance(ScriptedToolkit().c_str());
    ASSERT_NE(made, nullptr);
    CmUpstreamToolkit first(made, factory, factoryLock);
    ASSERT_TRUE(first);
    EXPECT_NE(first.GetPlayback(), nullptr);
    EXPECT_NE(first.GetLive(), nullptr);

    CmUpstreamToolkit second(std::move(first));
    EXPECT_FALSE(first);
    EXPECT_EQ(first.GetPlayback(), nullptr);
    first.Reset();
    EXPECT_EQ(journal.Instances(), before + 1) << "a moved-from handle releases nothing";

    CmUpstreamToolkit third;
    third = std::move(second);
    auto cache = std::make_unique<CmCache>(std::move(third));
    EXPECT_FALSE(third);
    cache->Connect(0);
    ASSERT_EQ(cache->MoveFirst(), StatusSuccess);
    ImData* item = nullptr;
    ASSERT_EQ(cache->GetData(&item), StatusSuccess);
    std::unique_ptr<ImData> kept(item);
    EXPECT_EQ(journal.Instances(), before + 1);
    EXPECT_EQ(factory.GetToolkitCount("ToolkitSourcePlugin_scripted"), 1u);

    cache.reset();
    EXPECT_EQ(journal.Instances(), before) << "the cache released what it was given";
    EXPECT_EQ(factory.GetToolkitCount("ToolkitSourcePlugin_scripted"), 0u);
  }
  EXPECT_EQ(Count(journal.Text(), "Delete"), 1u) << journal.Text();
  EXPECT_EQ(journal.Instances(), before);
}

// A toolkit of this library is deleted directly, once; assigning over a
// handle releases what it held before.
TEST(UpstreamToolkitTest, AnOwnToolkitIsDeletedOnceAndAssignmentReleasesTheOldOne) {
  int firstDeleted = 0;
  int secondDeleted = 0;
  {
    CmUpstreamToolkit held(std::make_unique<CmCountedSource>(firstDeleted));
    EXPECT_EQ(held.GetPlayback(), nullptr) << "a live-only source cannot play back";
    EXPECT_NE(held.GetLive(), nullptr);
    held = CmUpstreamToolkit(std::make_unique<CmCountedSource>(secondDeleted));
    EXPECT_EQ(firstDeleted, 1);
    EXPECT_EQ(secondDeleted, 0);
    CmCache cache(std::move(held));
    EXPECT_EQ(secondDeleted, 0);
  }
  EXPECT_EQ(firstDeleted, 1);
  EXPECT_EQ(secondDeleted, 1);
}

} // namespace
