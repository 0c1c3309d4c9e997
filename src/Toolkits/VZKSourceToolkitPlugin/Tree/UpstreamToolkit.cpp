#include "Toolkits/VZKSourceToolkitPlugin/Tree/UpstreamToolkit.h"

#include <utility>

namespace NmToolkit {

CmUpstreamToolkit::CmUpstreamToolkit(std::unique_ptr<ImSourceToolkit> toolkit) noexcept
    : m_Source(toolkit.release()), m_Playback(dynamic_cast<ImPlaybackSourceToolkit*>(m_Source)),
      m_Live(dynamic_cast<ImLiveSourceToolkit*>(m_Source)) {}

CmUpstreamToolkit::CmUpstreamToolkit(ImToolkit* made, ImToolkitFactory& factory,
                                     NmThread::CmCriticalSection& factoryLock) noexcept
    : m_Source(dynamic_cast<ImSourceToolkit*>(made)),
      m_Playback(dynamic_cast<ImPlaybackSourceToolkit*>(m_Source)),
      m_Live(dynamic_cast<ImLiveSourceToolkit*>(m_Source)), m_Made(made), m_Factory(&factory),
      m_FactoryLock(&factoryLock) {}

CmUpstreamToolkit::CmUpstreamToolkit(CmUpstreamToolkit&& other) noexcept {
  Take(other);
}

CmUpstreamToolkit& CmUpstreamToolkit::operator=(CmUpstreamToolkit&& other) noexcept {
  if (this != &other) {
    Release();
    Take(other);
  }
  return *this;
}

void CmUpstreamToolkit::Reset() noexcept {
  Release();
}

void CmUpstreamToolkit::Take(CmUpstreamToolkit& other) noexcept {
  m_Source = std::exchange(other.m_Source, nullptr);
  m_Playback = std::exchange(other.m_Playback, nullptr);
  m_Live = std::exchange(other.m_Live, nullptr);
  m_Made = std::exchange(other.m_Made, nullptr);
  m_Factory = std::exchange(other.m_Factory, nullptr);
  m_FactoryLock = std::exchange(other.m_FactoryLock, nullptr);
}

void CmUpstreamToolkit::Release() noexcept {
  ImSourceToolkit* source = std::exchange(m_Source, nullptr);
  ImToolkit* made = std::exchange(m_Made, nullptr);
  ImToolkitFactory* factory = std::exchange(m_Factory, nullptr);
  NmThread::CmCriticalSection* factoryLock = std::exchange(m_FactoryLock, nullptr);
  m_Playback = nullptr;
  m_Live = nullptr;
  if (factory == nullptr) {
    delete source;
    return;
  }
  if (made == nullptr) {
    return;
  }
  // A plug-in's DeleteInstance is foreign code, and nothing it throws may end
  // the process from inside a destructor.
  try {
    NmThread::CmCriticalSection::CmScopedLock guard(*factoryLock);
    factory->DeleteInstance(made);
  } catch (...) {
  }
}

} // namespace NmToolkit
