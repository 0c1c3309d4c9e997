#pragma once

#include <memory>

#include "Common/Thread/CriticalSection.h"
#include "vzk/Toolkit.h"

namespace NmToolkit {

// The one owner of an upstream toolkit. It knows how the toolkit must go: a
// toolkit of this library is deleted, one that a factory made goes back
// through that factory's DeleteInstance under the factory's lock, into the
// library that made it. Moving the handle moves the ownership, so wrapping an
// upstream (in a cache, say) hands the wrapper its owner. The playback and
// live casts are taken once; either may be null.
class CmUpstreamToolkit {
public:
  CmUpstreamToolkit() = default;
  // A toolkit that this library built and that is deleted directly.
  explicit CmUpstreamToolkit(std::unique_ptr<ImSourceToolkit> toolkit) noexcept;
  // A toolkit that `factory` made as `made`; it is released exactly once,
  // through `factory`, with `factoryLock` held. Both must outlive the handle.
  CmUpstreamToolkit(ImToolkit* made, ImToolkitFactory& factory,
                    NmThread::CmCriticalSection& factoryLock) noexcept;
  ~CmUpstreamToolkit() { Release(); }

  CmUpstreamToolkit(CmUpstreamToolkit&& other) noexcept;
  CmUpstreamToolkit& operator=(CmUpstreamToolkit&& other) noexcept;
  CmUpstreamToolkit(const CmUpstreamToolkit&) = delete;
  CmUpstreamToolkit& operator=(const CmUpstreamToolkit&) = delete;

  ImSourceToolkit* Get() const { return m_Source; }
  ImPlaybackSourceToolkit* GetPlayback() const { return m_Playback; }
  ImLiveSourceToolkit* GetLive() const { return m_Live; }
  explicit operator bool() const { return m_Source != nullptr; }

  // Releases the toolkit now; the handle is empty afterwards.
  void Reset() noexcept;

private:
  void Release() noexcept;
  void Take(CmUpstreamToolkit& other) noexcept;

  ImSourceToolkit* m_Source = nullptr;
  ImPlaybackSourceToolkit* m_Playback = nullptr;
  ImLiveSourceToolkit* m_Live = nullptr;
  // The pointer exactly as the factory returned it, which is what its
  // bookkeeping knows; null for a toolkit that is deleted directly.
  ImToolkit* m_Made = nullptr;
  ImToolkitFactory* m_Factory = nullptr;
  NmThread::CmCriticalSection* m_FactoryLock = nullptr;
};

} // namespace NmToolkit
