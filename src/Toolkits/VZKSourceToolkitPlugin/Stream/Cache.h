#pragma once

#include <deque>
#include <memory>

#include "Toolkits/VZKSourceToolkitPlugin/Tree/SourceToolkitOperations.h"
#include "Toolkits/VZKSourceToolkitPlugin/Tree/UpstreamToolkit.h"
#include "vzk/Toolkit.h"

namespace NmToolkit {

// Sits between a decoder and its upstream and keeps the last few items, so
// that stepping back and forth around the current position fetches nothing.
class CmCache : public ImPlaybackSourceToolkit, public ImLiveSourceToolkit {
public:
  // Takes `source` over: it goes when the cache goes, after the cached items.
  explicit CmCache(CmUpstreamToolkit source);

  VZK_SOURCE_TOOLKIT_OPERATIONS;

  VZK_LIVE_SOURCE_TOOLKIT_OPERATIONS;

  VZK_PLAYBACK_SOURCE_TOOLKIT_OPERATIONS;

  static constexpr size_t Limit = 5;
  size_t GetEntryCount() const { return m_Entries.size(); }

private:
  using CmItem = std::shared_ptr<ImData>;
  void Clear();
  // Whether no item beyond the list can be the one `time` and `mode` select.
  bool CanAnswer(int64_t time, SmMoveMode mode) const;
  // The entry that `time` and `mode` select, or null if the list cannot answer.
  CmItem Search(int64_t time, SmMoveMode mode) const;
  void PositionUpstreamAtCurrent();
  void Remember(const CmItem& item, int64_t time, SmMoveMode mode);
  ImPlaybackSourceToolkit& Playback(const char* operation) const;
  ImLiveSourceToolkit& Live(const char* operation) const;

  // First, so that it outlives the items that came from it.
  CmUpstreamToolkit m_Owned;
  ImSourceToolkit* m_Source;
  ImPlaybackSourceToolkit* m_Playback;
  ImLiveSourceToolkit* m_Live;
  CmItem m_Current;
  CmItem m_LastFetched;
  std::deque<CmItem> m_Entries;
};

} // namespace NmToolkit
