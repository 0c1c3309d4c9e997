#include "DecodeOrderTimes.h"

#include <algorithm>

namespace NmMedia {
namespace {

// Reordering moves a time by a few frame durations; a step beyond these is a
// break in the stream's clock.
constexpr int64_t MaxForwardStep = 10'000;
constexpr int64_t MaxBackwardStep = 1'000;

} // namespace

CmDecodeOrderTimes::CmDecodeOrderTimes(size_t window)
    : m_Window(std::min(window, MostReordering)) {}

void CmDecodeOrderTimes::Push(int64_t time) {
  if (m_HavePushed &&
      (time > m_LastPushed + MaxForwardStep || time < m_LastPushed - MaxBackwardStep)) {
    ++m_Run;
  }
  m_HavePushed = true;
  m_LastPushed = time;
  m_Pending.push_back(m_Run);
  m_Times.emplace(m_Run, time);
}

bool CmDecodeOrderTimes::IsReady(bool atEnd) const {
  if (m_Pending.empty()) {
    return false;
  }
  // A later run may not undercut the times of an earlier one.
  return atEnd || m_Pending.size() > m_Window || m_Pending.front() != m_Pending.back();
}

int64_t CmDecodeOrderTimes::Pop() {
  const uint64_t run = m_Pending.front();
  m_Pending.pop_front();
  const auto smallest = m_Times.begin();
  int64_t time = smallest->second;
  m_Times.erase(smallest);
  if (m_HavePopped && m_LastPoppedRun == run && time <= m_LastPopped) {
    // This frame's time was given away before it arrived.
    time = m_LastPopped + 1;
    m_Window = std::min(m_Window + 1, MostReordering);
  }
  m_HavePopped = true;
  m_LastPopped = time;
  m_LastPoppedRun = run;
  return time;
}

} // namespace NmMedia
