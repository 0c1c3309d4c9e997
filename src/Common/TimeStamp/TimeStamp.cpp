#include "Common/TimeStamp/TimeStamp.h"

#include "Common/Error/Precondition.h"
#include "Common/TimeStamp/TimeStampOS.h"

namespace NmTimeStamp {

CmTimeSpan::CmTimeSpan(int64_t days, int64_t hours, int64_t minutes, int64_t seconds,
                       int64_t milliseconds)
    : m_Ticks(((((days * 24 + hours) * 60 + minutes) * 60 + seconds) * 1000 + milliseconds) *
              static_cast<int64_t>(TicksPerMillisecond)) {}

CmTimeSpan CmTimeSpan::FromMilliseconds(int64_t milliseconds) {
  return CmTimeSpan(milliseconds * static_cast<int64_t>(TicksPerMillisecond));
}

CmTimeStamp::CmTimeStamp(Kind kind) {
  switch (kind) {
  case Current:
    SetCurrentTime();
    break;
  case Earliest:
    m_Ticks = 0;
    break;
  case Latest:
    m_Ticks = ~0ULL;
    break;
  }
}

CmTimeStamp CmTimeStamp::FromMilliseconds(int64_t millisecondsSince1970) {
  CmTimeStamp stamp;
  stamp.SetMilliseconds(millisecondsSince1970);
  return stamp;
}

CmTimeStamp CmTimeStamp::FromTicks(uint64_t ticks) {
  CmTimeStamp stamp;
  stamp.m_Ticks = ticks;
  return stamp;
}

void CmTimeStamp::SetMilliseconds(int64_t millisecondsSince1970) {
  // Checked in a wider type: the sum may not wrap before it is compared.
  const __int128 since1601 =
      static_cast<__int128>(millisecondsSince1970) + MillisecondsFrom1601To1970;
  VZK_REQUIRE_AS(CmTimeError,
                 since1601 >= 0 && since1601 < static_cast<__int128>(MillisecondsLimit),
                 "Error initializing time stamp. Invalid number of milliseconds given!", 0);
  m_Ticks = static_cast<uint64_t>(since1601) * TicksPerMillisecond;
}

int64_t CmTimeStamp::GetMilliseconds() const {
  return static_cast<int64_t>(m_Ticks / TicksPerMillisecond) - MillisecondsFrom1601To1970;
}

void CmTimeStamp::SetCurrentTime() {
  uint64_t ticks = 0;
  if (!CmTimeStampOS::ReadSystemTicks(ticks)) {
    const NmError::CmSystemError inner(VZK_LOCATION, "Error converting system time to file time!");
    throw CmTimeError(VZK_LOCATION, "Error setting time stamp to current time of day!", 11, inner);
  }
  m_Ticks = CmTimeStampOS::Smooth(ticks);
}

CmTimeSpan CmTimeStamp::operator-(const CmTimeStamp& other) const {
  return CmTimeSpan(static_cast<int64_t>(m_Ticks - other.m_Ticks));
}

CmTimeStamp CmTimeStamp::operator+(const CmTimeSpan& span) const {
  return FromTicks(m_Ticks + static_cast<uint64_t>(span.GetTicks()));
}

CmTimeStamp CmTimeStamp::operator-(const CmTimeSpan& span) const {
  return FromTicks(m_Ticks - static_cast<uint64_t>(span.GetTicks()));
}

CmTimeStamp& CmTimeStamp::operator+=(const CmTimeSpan& span) {
  return *this = *this + span;
}
CmTimeStamp& CmTimeStamp::operator-=(const CmTimeSpan& span) {
  return *this = *this - span;
}

CmTimeRange::CmTimeRange()
    : m_Begin(CmTimeStamp::FromMilliseconds(1)), m_End(CmTimeStamp::FromMilliseconds(0)) {}

namespace NmDetail {

uint64_t CmTimeCorrector::Correct(uint64_t systemTicks, int64_t counter) {
  constexpr int64_t TenthSecond = 1000000;
  if (m_Frequency <= 0 || (systemTicks >> 32) > 2000000000ULL) {
    return systemTicks;
  }
  uint64_t result = systemTicks;
  if (m_HasLast) {
    const __int128 elapsed128 =
        (static_cast<__int128>(counter) - m_LastCounter) * 10000000 / m_Frequency;
    const __int128 d = static_cast<__int128>(systemTicks) - static_cast<__int128>(m_LastResult);
    if (elapsed128 >= 0 && d + TenthSecond < 101000001 && elapsed128 <= d + TenthSecond &&
        d <= elapsed128 + TenthSecond) {
      result = m_LastResult + static_cast<uint64_t>(elapsed128);
    }
    // The clock may not run back by a small amount; a large step is a real
    // change of the system time and is taken as it is.
    if (result < m_LastResult && m_LastResult - result <= static_cast<uint64_t>(TenthSecond)) {
      result = m_LastResult;
    }
  }
  m_HasLast = true;
  m_LastCounter = counter;
  m_LastResult = result;
  return result;
}

} // namespace NmDetail
} // namespace NmTimeStamp
