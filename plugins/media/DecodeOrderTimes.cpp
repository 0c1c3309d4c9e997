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
  if (m_Untimed && m_Untimed->run == m_Run) {
    m_Untimed->earliest = m_Untimed->following == 0 ? time : std::min(m_Untimed->earliest, time);
    ++m_Untimed->following;
  }
  if (m_Untimed && (m_Untimed->run != m_Run || m_Untimed->following > m_Window)) {
    SettleUntimed();
  }
  m_HavePushed = true;
  m_LastPushed = time;
  m_Pending.push_back(m_Run);
  m_Times.emplace(m_Run, time);
}

void CmDecodeOrderTimes::PushUntimed(int64_t frameDuration) {
  SettleUntimed();
  m_Untimed = SmUntimed{m_Run, frameDuration, 0, 0};
  m_Pending.push_back(m_Run);
}

void CmDecodeOrderTimes::SettleUntimed() {
  if (!m_Untimed) {
    return;
  }
  // With nothing after it, it follows the frame before.
  const int64_t time = m_Untimed->following > 0 ? m_Untimed->earliest - m_Untimed->duration
                       : m_HavePushed           ? m_LastPushed + m_Untimed->duration
                                                : 0;
  m_Times.emplace(m_Untimed->run, time);
  m_Untimed.reset();
}

bool CmDecodeOrderTimes::IsReady(bool atEnd) const {
  if (m_Pending.empty()) {
    return false;
  }
  if (m_Untimed && !atEnd) {
    // Its time is not known yet, and it may be the earliest.
    return false;
  }
  // A later run may not undercut the times of an earlier one.
  return atEnd || m_Pending.size() > m_Window || m_Pending.front() != m_Pending.back();
}

int64_t CmDecodeOrderTimes::Pop() {
  SettleUntimed();
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
