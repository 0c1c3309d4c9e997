#include <atomic>
#include <cerrno>
#include <cstring>
#include <thread>

#include <gtest/gtest.h>

#include "Common/Thread/CriticalSection.h"
#include "Common/Thread/Mutex.h"
#include "support/CaughtError.h"

using NmThread::CmCriticalSection;
using NmThread::CmMutex;
using NmThread::CmMutexError;

namespace {

// The mutex tests misuse a mutex on purpose to see the errors; the thread
// sanitizer reports exactly that misuse and fails the run.
#if defined(__SANITIZE_THREAD__)
constexpr bool ThreadSanitizer = true;
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
constexpr bool ThreadSanitizer = true;
#else
constexpr bool ThreadSanitizer = false;
#endif
#else
constexpr bool ThreadSanitizer = false;
#endif

// Whether another thread could take the section right now.
bool FreeForOthers(CmCriticalSection& section) {
  bool taken = false;
  std::thread other([&] {
    taken = section.TryLock();
    if (taken) {
      section.Unlock();
    }
  });
  other.join();
  return taken;
}

} // namespace

TEST(CriticalSection, IsRecursiveAndGuardsInBothModes) {
  CmCriticalSection section;
  EXPECT_TRUE(FreeForOthers(section));
  {
    const CmCriticalSection::CmScopedLock guard(section);
    EXPECT_FALSE(FreeForOthers(section));
    // The owner may take it again.
    {
      const CmCriticalSection::CmScopedLock again(section, true);
      EXPECT_FALSE(FreeForOthers(section));
    }
    EXPECT_FALSE(FreeForOthers(section));
    {
      // Left for a while, so that another thread may take it meanwhile...
      const CmCriticalSection::CmScopedLock leave(section, false);
      EXPECT_TRUE(FreeForOthers(section));
    }
    // ...and held again afterwards.
    EXPECT_FALSE(FreeForOthers(section));
  }
  EXPECT_TRUE(FreeForOthers(section));
}

TEST(CriticalSection, SerializesThreads) {
  CmCriticalSection section;
  long counter = 0;
  std::atomic<int> inside{0};
  std::atomic<bool> overlapped{false};
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&] {
      for (int i = 0; i < 10000; ++i) {
        const CmCriticalSection::CmScopedLock guard(section);
        if (inside.fetch_add(1) != 0) {
          overlapped = true;
        }
        ++counter;
        inside.fetch_sub(1);
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_FALSE(overlapped);
  EXPECT_EQ(counter, 40000);
}

TEST(Mutex, FailuresCarryTheSystemText) {
  if (ThreadSanitizer) {
    GTEST_SKIP() << "deliberate misuse, which the thread sanitizer reports";
  }
  CmMutex mutex;
  // Unlocking a mutex that nobody holds.
  const auto unlock = NmTestSupport::Caught<CmMutexError>([&] { mutex.Unlock(); });
  EXPECT_STREQ(unlock->what(), "Error unlocking mutex!");
  EXPECT_EQ(unlock->GetCode(), NmThread::CmMutexErrorCode::UnlockFailed);
  EXPECT_EQ(unlock->GetLocation().rfind(
                "NmThread::CmMutexOS::Unlock (line linux/ThreadMutex-OSD.cpp, ", 0),
            0u)
      << unlock->GetLocation();
  const auto& inner = dynamic_cast<const NmError::CmSystemError&>(*unlock->GetInnerError());
  EXPECT_EQ(inner.GetSystemErrorNumber(), EPERM);
  EXPECT_EQ(inner.GetDescription(), std::string("Error unlocking mutex! : ") + strerror(EPERM));

  mutex.Lock();
  // Taking it twice from one thread would deadlock; it is reported instead.
  const auto lock = NmTestSupport::Caught<CmMutexError>([&] { mutex.Lock(); });
  EXPECT_STREQ(lock->what(), "Error locking mutex!");
  EXPECT_EQ(lock->GetCode(), NmThread::CmMutexErrorCode::LockFailed);
  EXPECT_EQ(
      dynamic_cast<const NmError::CmSystemError&>(*lock->GetInnerError()).GetSystemErrorNumber(),
      EDEADLK);

  // Another thread may not unlock it.
  bool refused = false;
  std::thread other([&] {
    try {
      mutex.Unlock();
    } catch (const CmMutexError&) {
      refused = true;
    }
  });
  other.join();
  EXPECT_TRUE(refused);
  mutex.Unlock();
}

TEST(Mutex, DestroyingAHeldMutexFails) {
  if (ThreadSanitizer) {
    GTEST_SKIP() << "deliberate misuse, which the thread sanitizer reports";
  }
  try {
    CmMutex mutex;
    mutex.Lock();
    // Leaving the scope destroys a mutex that is still held.
  } catch (const CmMutexError& e) {
    EXPECT_STREQ(e.what(), "Error deinitializing mutex!");
    EXPECT_EQ(e.GetCode(), NmThread::CmMutexErrorCode::DeinitializeFailed);
    return;
  }
  FAIL() << "destroying a held mutex reported nothing";
}
