#include "Progress.h"

#include <cstdio>
#include <string>

namespace NmVzkTool {

CmProgress::CmProgress(bool onTerminal, std::ostream& terminal)
    : m_Enabled(onTerminal), m_Terminal(terminal), m_Start(std::chrono::steady_clock::now()),
      m_LastUpdate(m_Start) {}

double CmProgress::GetElapsedSeconds() const {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - m_Start).count();
}

void CmProgress::Update(const SmRunCounts& counts) {
  if (!m_Enabled) {
    return;
  }
  const auto now = std::chrono::steady_clock::now();
  if (m_Shown && now - m_LastUpdate < std::chrono::milliseconds(250)) {
    return;
  }
  m_LastUpdate = now;
  const double seconds = GetElapsedSeconds();
  const auto plural = [](uint64_t count, const char* word) {
    return std::to_string(count) + " " + word + (count == 1 ? "" : "s");
  };
  char rate[48];
  std::snprintf(rate, sizeof rate, "%.1f per second",
                seconds > 0 ? static_cast<double>(counts.items) / seconds : 0.0);
  const std::string line = "\r" + plural(counts.items, "item") + ", " +
                           plural(counts.pictures, "picture") + ", " +
                           plural(counts.jpegRecords, "JPEG record") + ", " + rate + ", " +
                           plural(counts.errors, "error") + "\033[K";
  m_Terminal << line << std::flush;
  m_Shown = true;
}

void CmProgress::Clear() {
  if (m_Shown) {
    m_Terminal << "\r\033[K" << std::flush;
    m_Shown = false;
  }
}

std::string Summary(const SmRunCounts& counts, double seconds) {
  const auto plural = [](uint64_t count, const char* word) {
    return std::to_string(count) + " " + word + (count == 1 ? "" : "s");
  };
  char rate[64];
  std::snprintf(rate, sizeof rate, "%.3f s, %.1f per second", seconds,
                seconds > 0 ? static_cast<double>(counts.items) / seconds : 0.0);
  std::string text = plural(counts.items, "item") + " in " + rate + ": " +
                     plural(counts.pictures, "picture") + ", " +
                     plural(counts.jpegRecords, "JPEG record") + ", " +
                     plural(counts.audioPackets, "audio packet") + ", " +
                     plural(counts.otherRecords, "other record");
  if (counts.otherItems != 0) {
    text += ", " + plural(counts.otherItems, "other item");
  }
  return text + "; " + plural(counts.errors, "error") + ".";
}

} // namespace NmVzkTool
