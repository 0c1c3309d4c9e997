#pragma once

// The global operator new of this test binary, every form of it, counts the
// allocations made while counting is on and can be told to fail the Nth of
// them: the throwing forms throw std::bad_alloc, the nothrow forms return
// null. Allocations outside the counted calls never fail, so that the test's
// own bookkeeping is not what runs out of memory.
#include <cstdint>

namespace NmFailingAllocator {

// Counting on or off; off by default.
void SetCounting(bool on);
// Zeroes the count. With failAt > 0 the failAt-th counted allocation from
// now fails; with `persistent`, every one after it fails as well.
void Reset(uint64_t failAt = 0, bool persistent = false);
uint64_t GetCount();
// Whether an allocation has been failed since the last Reset.
bool HasFailed();

// Counting for the lifetime of the object.
class CmCounted {
public:
  CmCounted() { SetCounting(true); }
  ~CmCounted() { SetCounting(false); }
  CmCounted(const CmCounted&) = delete;
  CmCounted& operator=(const CmCounted&) = delete;
};

} // namespace NmFailingAllocator
