#include "FailingAllocator.h"

#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <new>

namespace NmFailingAllocator {
namespace {

std::atomic<bool> counting{false};
std::atomic<uint64_t> count{0};
std::atomic<uint64_t> failAtCount{0};
std::atomic<bool> failPersistently{false};
std::atomic<bool> failed{false};

bool ShouldFail() {
  if (!counting.load(std::memory_order_relaxed)) {
    return false;
  }
  const uint64_t number = count.fetch_add(1) + 1;
  const uint64_t target = failAtCount.load();
  if (target == 0 || number < target || (number > target && !failPersistently.load())) {
    return false;
  }
  failed = true;
  return true;
}

void* Allocate(std::size_t size, std::size_t alignment) noexcept {
  if (ShouldFail()) {
    return nullptr;
  }
  if (size == 0) {
    size = 1;
  }
  if (alignment <= alignof(std::max_align_t)) {
    return std::malloc(size);
  }
  void* memory = nullptr;
  return posix_memalign(&memory, alignment, size) == 0 ? memory : nullptr;
}

void* AllocateOrThrow(std::size_t size, std::size_t alignment) {
  void* memory = Allocate(size, alignment);
  if (memory == nullptr) {
    throw std::bad_alloc();
  }
  return memory;
}

} // namespace

void SetCounting(bool on) {
  counting = on;
}

void Reset(uint64_t failAt, bool persistent) {
  count = 0;
  failed = false;
  failPersistently = persistent;
  failAtCount = failAt;
}

uint64_t GetCount() {
  return count;
}

bool HasFailed() {
  return failed;
}

} // namespace NmFailingAllocator

using NmFailingAllocator::Allocate;
using NmFailingAllocator::AllocateOrThrow;

constexpr std::size_t Plain = alignof(std::max_align_t);

// Every form, so that none of them falls back to a library's own allocator.
// clang-format off
void* operator new(std::size_t size) { return AllocateOrThrow(size, Plain); }
void* operator new[](std::size_t size) { return AllocateOrThrow(size, Plain); }
void* operator new(std::size_t size, const std::nothrow_t&) noexcept { return Allocate(size, Plain); }
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept { return Allocate(size, Plain); }
void* operator new(std::size_t size, std::align_val_t a) { return AllocateOrThrow(size, std::size_t(a)); }
void* operator new[](std::size_t size, std::align_val_t a) { return AllocateOrThrow(size, std::size_t(a)); }
void* operator new(std::size_t size, std::align_val_t a, const std::nothrow_t&) noexcept { return Allocate(size, std::size_t(a)); }
void* operator new[](std::size_t size, std::align_val_t a, const std::nothrow_t&) noexcept { return Allocate(size, std::size_t(a)); }
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete[](void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
void operator delete[](void* memory, std::size_t) noexcept { std::free(memory); }
void operator delete(void* memory, const std::nothrow_t&) noexcept { std::free(memory); }
void operator delete[](void* memory, const std::nothrow_t&) noexcept { std::free(memory); }
void operator delete(void* memory, std::align_val_t) noexcept { std::free(memory); }
void operator delete[](void* memory, std::align_val_t) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t, std::align_val_t) noexcept { std::free(memory); }
void operator delete[](void* memory, std::size_t, std::align_val_t) noexcept { std::free(memory); }
void operator delete(void* memory, std::align_val_t, const std::nothrow_t&) noexcept { std::free(memory); }
void operator delete[](void* memory, std::align_val_t, const std::nothrow_t&) noexcept { std::free(memory); }
// clang-format on
