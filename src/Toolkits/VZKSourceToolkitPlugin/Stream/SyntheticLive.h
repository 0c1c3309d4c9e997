#pragma once

#include "Toolkits/VZKSourceToolkitPlugin/Tree/VZKSourceToolkit.h"

namespace NmToolkit {

// Replays a recording as if it were a live source: each item is delivered at
// its own time shifted to the wall clock, and the replay starts over at the end.
class CmSyntheticLive : public CmVZKSourceToolkit {
public:
  explicit CmSyntheticLive(const NmXerces::CmXmlNodePtr& node) : CmVZKSourceToolkit(node) {}

  void StartLiveStream() override;
  void StopLiveStream() override;
  uint32_t GetLiveData(ImData** out, uint32_t timeout) override;
  uint32_t GetData(ImData** out) override;

  // The first item of a (re)start falls this far ahead of the clock.
  static constexpr int64_t StartLeadMilliseconds = 125;

private:
  bool m_NeedsRestart = true;
  int64_t m_TimeOffset = 0;
};

} // namespace NmToolkit
