#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "Common/CountedPtr/CountedPtr.h"

using NmCountedPtr::CmCountedPtr;
using NmCountedPtr::CmSerializedReferenceCount;
using NmCountedPtr::CmUnserializedReferenceCount;

namespace {

struct CmTracked {
  explicit CmTracked(int& alive) : m_Alive(alive) { ++m_Alive; }
  ~CmTracked() { --m_Alive; }
  int& m_Alive;
  int m_Value = 7;
};

template <typename Count> void ExerciseOwnership() {
  int alive = 0;
  {
    CmCountedPtr<CmTracked, Count> first(new CmTracked(alive));
    EXPECT_EQ(std::tuple(alive, first.UseCount(), first->m_Value), std::tuple(1, size_t{1}, 7));
    {
      CmCountedPtr<CmTracked, Count> second = first;
      EXPECT_EQ(first.UseCount(), 2u);
      EXPECT_EQ(second.Get(), first.Get());
      CmCountedPtr<CmTracked, Count> moved = std::move(second);
      EXPECT_FALSE(second);
      EXPECT_EQ(std::pair(second.UseCount(), moved.UseCount()), std::pair(size_t{0}, size_t{2}));
      // Assigning over a pointer releases what it held.
      int otherAlive = 0;
      CmCountedPtr<CmTracked, Count> other(new CmTracked(otherAlive));
      other = moved;
      other = other;
      EXPECT_EQ(std::pair(otherAlive, first.UseCount()), std::pair(0, size_t{3}));
    }
    EXPECT_EQ(std::pair(alive, first.UseCount()), std::pair(1, size_t{1}));
    first.Reset();
    EXPECT_EQ(alive, 0);
    EXPECT_FALSE(first);
    first.Reset();
  }
  EXPECT_EQ(alive, 0);

  const CmCountedPtr<CmTracked, Count> empty;
  const CmCountedPtr<CmTracked, Count> null(nullptr);
  const CmCountedPtr<CmTracked, Count> copyOfNull = null;
  EXPECT_FALSE(empty);
  EXPECT_EQ(empty.UseCount() + null.UseCount() + copyOfNull.UseCount(), 0u);
}

} // namespace

TEST(CountedPtr, BothCountsOwnAndReleaseAlsoFromSeveralThreads) {
  ExerciseOwnership<CmUnserializedReferenceCount>();
  ExerciseOwnership<CmSerializedReferenceCount>();

  int alive = 0;
  using Ptr = CmCountedPtr<CmTracked, CmSerializedReferenceCount>;
  Ptr shared(new CmTracked(alive));
  constexpr int Threads = 4;
  constexpr int Copies = 20000;
  std::vector<std::thread> threads;
  for (int t = 0; t < Threads; ++t) {
    // Each thread gets its own pointer and drops it at the end, so that the
    // last release may happen on any of them.
    threads.emplace_back([copy = shared]() mutable {
      std::vector<Ptr> held;
      held.reserve(64);
      for (int i = 0; i < Copies; ++i) {
        held.push_back(copy);
        if (held.size() == 64) {
          held.clear();
        }
      }
      copy.Reset();
    });
  }
  shared.Reset();
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(alive, 0);

  Ptr kept(new CmTracked(alive));
  std::vector<std::thread> copiers;
  for (int t = 0; t < Threads; ++t) {
    copiers.emplace_back([&kept] {
      for (int i = 0; i < Copies; ++i) {
        Ptr copy = kept;
      }
    });
  }
  for (std::thread& thread : copiers) {
    thread.join();
  }
  EXPECT_EQ(kept.UseCount(), 1u);
  EXPECT_EQ(alive, 1);
}
