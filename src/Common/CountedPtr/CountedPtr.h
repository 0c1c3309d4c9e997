#pragma once

#include <atomic>
#include <cstddef>
#include <utility>

namespace NmCountedPtr {

// A plain count for objects used from one thread.
class CmUnserializedReferenceCount {
public:
  void Increment() { ++m_Count; }
  // True when the count has reached zero.
  bool Decrement() { return --m_Count == 0; }
  size_t Get() const { return m_Count; }

private:
  size_t m_Count = 1;
};

// A count that several threads may change at once.
class CmSerializedReferenceCount {
public:
  void Increment() { m_Count.fetch_add(1, std::memory_order_relaxed); }
  bool Decrement() { return m_Count.fetch_sub(1, std::memory_order_acq_rel) == 1; }
  size_t Get() const { return m_Count.load(std::memory_order_acquire); }

private:
  std::atomic<size_t> m_Count{1};
};

// A counted pointer whose counting policy is chosen by the owner; the object
// is deleted when the last pointer lets go.
template <typename T, typename Count = CmUnserializedReferenceCount> class CmCountedPtr {
public:
  CmCountedPtr() = default;
  // Takes the object over; it is deleted even if the count cannot be made.
  explicit CmCountedPtr(T* object) : m_Object(object) {
    if (object != nullptr) {
      try {
        m_Count = new Count;
      } catch (...) {
        delete object;
        throw;
      }
    }
  }
  CmCountedPtr(const CmCountedPtr& other) : m_Object(other.m_Object), m_Count(other.m_Count) {
    if (m_Count) {
      m_Count->Increment();
    }
  }
  CmCountedPtr(CmCountedPtr&& other) noexcept
      : m_Object(std::exchange(other.m_Object, nullptr)),
        m_Count(std::exchange(other.m_Count, nullptr)) {}
  CmCountedPtr& operator=(CmCountedPtr other) noexcept {
    std::swap(m_Object, other.m_Object);
    std::swap(m_Count, other.m_Count);
    return *this;
  }
  ~CmCountedPtr() { Release(); }

  T* Get() const { return m_Object; }
  T& operator*() const { return *m_Object; }
  T* operator->() const { return m_Object; }
  explicit operator bool() const { return m_Object != nullptr; }
  size_t UseCount() const { return m_Count ? m_Count->Get() : 0; }
  void Reset() { CmCountedPtr().Swap(*this); }
  void Swap(CmCountedPtr& other) noexcept {
    std::swap(m_Object, other.m_Object);
    std::swap(m_Count, other.m_Count);
  }

private:
  void Release() {
    if (m_Count && m_Count->Decrement()) {
      Destroy(m_Object, m_Count);
    }
    m_Object = nullptr;
    m_Count = nullptr;
  }

  // Out of line on purpose: inlined, the compiler's use-after-free analysis
  // cannot know that a count held by another pointer is above zero, and
  // flags every copy that is released before the original is used again.
  [[gnu::noinline]] static void Destroy(T* object, Count* count) {
    delete object;
    delete count;
  }

  T* m_Object = nullptr;
  Count* m_Count = nullptr;
};

} // namespace NmCountedPtr
