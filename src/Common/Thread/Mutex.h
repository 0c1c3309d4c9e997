#pragma once

#include <pthread.h>

#include "Common/Error/Error.h"

namespace NmThread {

struct CmMutexErrorTag;
using CmMutexError = NmError::CmCodedError<CmMutexErrorTag>;

struct CmMutexErrorCode {
  enum Code : uint32_t { LockFailed = 1, UnlockFailed = 2, DeinitializeFailed = 3 };
};

// A system mutex; failures carry the system's own text.
class CmMutexOS {
public:
  CmMutexOS();
  ~CmMutexOS() noexcept(false);
  CmMutexOS(const CmMutexOS&) = delete;
  CmMutexOS& operator=(const CmMutexOS&) = delete;

  void Lock();
  void Unlock();

private:
  pthread_mutex_t m_Mutex;
};

class CmMutex {
public:
  void Lock() { m_OS.Lock(); }
  void Unlock() { m_OS.Unlock(); }

private:
  CmMutexOS m_OS;
};

} // namespace NmThread
