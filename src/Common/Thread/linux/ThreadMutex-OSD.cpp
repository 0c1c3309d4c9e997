#include <cerrno>
#include <exception>

#include "Common/Thread/Mutex.h"

namespace NmThread {
namespace {

[[noreturn]] void ThrowMutexError(const std::string& location, int status, const char* text,
                                  uint32_t code) {
  // pthread functions return their error instead of setting errno.
  errno = status;
  const NmError::CmSystemError inner(location, text);
  throw CmMutexError(location, text, code, inner);
}

} // namespace

CmMutexOS::CmMutexOS() {
  pthread_mutexattr_t attributes;
  pthread_mutexattr_init(&attributes);
  // Error checking makes an unlock by a thread that does not own it a failure
  // that we can report instead of undefined behaviour.
  pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_ERRORCHECK);
  pthread_mutex_init(&m_Mutex, &attributes);
  pthread_mutexattr_destroy(&attributes);
}

CmMutexOS::~CmMutexOS() noexcept(false) {
  const int status = pthread_mutex_destroy(&m_Mutex);
  if (status != 0 && std::uncaught_exceptions() == 0) {
    ThrowMutexError(VZK_LOCATION, status, "Error deinitializing mutex!",
                    CmMutexErrorCode::DeinitializeFailed);
  }
}

void CmMutexOS::Lock() {
  const int status = pthread_mutex_lock(&m_Mutex);
  if (status != 0) {
    ThrowMutexError(VZK_LOCATION, status, "Error locking mutex!", CmMutexErrorCode::LockFailed);
  }
}

void CmMutexOS::Unlock() {
  const int status = pthread_mutex_unlock(&m_Mutex);
  if (status != 0) {
    ThrowMutexError(VZK_LOCATION, status, "Error unlocking mutex!", CmMutexErrorCode::UnlockFailed);
  }
}

} // namespace NmThread
