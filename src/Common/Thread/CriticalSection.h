#pragma once

#include <mutex>

namespace NmThread {

// The platform lock beneath CmCriticalSection: recursive, and neither taking
// nor leaving it can fail.
class CmCriticalSectionOS {
public:
  void Lock() { m_Mutex.lock(); }
  void Unlock() { m_Mutex.unlock(); }
  bool TryLock() { return m_Mutex.try_lock(); }

private:
  std::recursive_mutex m_Mutex;
};

class CmCriticalSection {
public:
  CmCriticalSection() = default;
  CmCriticalSection(const CmCriticalSection&) = delete;
  CmCriticalSection& operator=(const CmCriticalSection&) = delete;

  void Lock() { m_OS.Lock(); }
  void Unlock() { m_OS.Unlock(); }
  bool TryLock() { return m_OS.TryLock(); }

  // Locks for its lifetime; with lock = false it does the reverse, leaving a
  // section that the caller holds and taking it again at the end.
  class CmScopedLock {
  public:
    explicit CmScopedLock(CmCriticalSection& section, bool lock = true)
        : m_Section(section), m_Locked(lock) {
      if (m_Locked) {
        m_Section.Lock();
      } else {
        m_Section.Unlock();
      }
    }
    ~CmScopedLock() {
      if (m_Locked) {
        m_Section.Unlock();
      } else {
        m_Section.Lock();
      }
    }
    CmScopedLock(const CmScopedLock&) = delete;
    CmScopedLock& operator=(const CmScopedLock&) = delete;

  private:
    CmCriticalSection& m_Section;
    bool m_Locked;
  };

private:
  CmCriticalSectionOS m_OS;
};

} // namespace NmThread
