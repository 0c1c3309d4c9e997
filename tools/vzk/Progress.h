#pragma once

#include <chrono>
#include <ostream>

#include "ItemWriter.h"

namespace NmVzkTool {

// The one progress line that a run keeps rewriting on a terminal, and the
// summary at its end.
class CmProgress {
public:
  CmProgress(bool onTerminal, std::ostream& terminal);
  // Rewrites the line at most four times a second.
  void Update(const SmRunCounts& counts);
  // Removes the line, so that what follows starts on a clean one.
  void Clear();
  double GetElapsedSeconds() const;

private:
  bool m_Enabled;
  std::ostream& m_Terminal;
  std::chrono::steady_clock::time_point m_Start;
  std::chrono::steady_clock::time_point m_LastUpdate;
  bool m_Shown = false;
};

// "250 items in 1.234 s, 202.6 per second: ...; 0 errors."
std::string Summary(const SmRunCounts& counts, double seconds);

} // namespace NmVzkTool
