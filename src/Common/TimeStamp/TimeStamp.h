#pragma once

#include <cstdint>

#include "Common/Error/Error.h"

namespace NmTimeStamp {

struct CmTimeErrorTag;
using CmTimeError = NmError::CmCodedError<CmTimeErrorTag>;

inline constexpr uint64_t TicksPerMillisecond = 10000;
inline constexpr int64_t MillisecondsFrom1601To1970 = 11644473600000LL;
// Milliseconds since 1601 must stay below this so that the ticks fit 64 bits.
inline constexpr uint64_t MillisecondsLimit = 1844674407370956ULL;

// A signed count of 100-nanosecond ticks.
class CmTimeSpan {
public:
  CmTimeSpan() = default;
  explicit CmTimeSpan(int64_t ticks) : m_Ticks(ticks) {}
  CmTimeSpan(int64_t days, int64_t hours, int64_t minutes, int64_t seconds, int64_t milliseconds);
  static CmTimeSpan FromMilliseconds(int64_t milliseconds);

  int64_t GetTicks() const { return m_Ticks; }
  int64_t GetMilliseconds() const { return m_Ticks / static_cast<int64_t>(TicksPerMillisecond); }

  auto operator<=>(const CmTimeSpan&) const = default;
  CmTimeSpan operator+(const CmTimeSpan& other) const {
    return CmTimeSpan(m_Ticks + other.m_Ticks);
  }
  CmTimeSpan operator-(const CmTimeSpan& other) const {
    return CmTimeSpan(m_Ticks - other.m_Ticks);
  }
  CmTimeSpan operator-() const { return CmTimeSpan(-m_Ticks); }

private:
  int64_t m_Ticks = 0;
};

// A point in time: unsigned 100-nanosecond ticks since 1601-01-01 UTC.
class CmTimeStamp {
public:
  enum Kind { Current = 0, Earliest = 1, Latest = 2 };

  // 1970-01-01 00:00:00 UTC.
  CmTimeStamp() = default;
  explicit CmTimeStamp(Kind kind);
  static CmTimeStamp FromMilliseconds(int64_t millisecondsSince1970);
  static CmTimeStamp FromTicks(uint64_t ticks);

  // Reads the system clock, smoothed by the process-wide corrector.
  void SetCurrentTime();
  void SetMilliseconds(int64_t millisecondsSince1970);

  int64_t GetMilliseconds() const;
  uint64_t GetTicks() const { return m_Ticks; }

  auto operator<=>(const CmTimeStamp&) const = default;
  CmTimeSpan operator-(const CmTimeStamp& other) const;
  CmTimeStamp operator+(const CmTimeSpan& span) const;
  CmTimeStamp operator-(const CmTimeSpan& span) const;
  CmTimeStamp& operator+=(const CmTimeSpan& span);
  CmTimeStamp& operator-=(const CmTimeSpan& span);

private:
  uint64_t m_Ticks = 116444736000000000ULL;
};

// Two stamps; the default range (1 ms, 0 ms) is empty.
class CmTimeRange {
public:
  CmTimeRange();
  CmTimeRange(const CmTimeStamp& begin, const CmTimeStamp& end) : m_Begin(begin), m_End(end) {}

  const CmTimeStamp& GetBegin() const { return m_Begin; }
  const CmTimeStamp& GetEnd() const { return m_End; }
  void SetBegin(const CmTimeStamp& begin) { m_Begin = begin; }
  void SetEnd(const CmTimeStamp& end) { m_End = end; }
  bool IsEmpty() const { return m_End < m_Begin; }

  auto operator<=>(const CmTimeRange&) const = default;

private:
  CmTimeStamp m_Begin;
  CmTimeStamp m_End;
};

namespace NmDetail {
// The smoothing step of SetCurrentTime, separated from the clocks so that it
// can be exercised with chosen readings.
class CmTimeCorrector {
public:
  explicit CmTimeCorrector(int64_t counterFrequency) : m_Frequency(counterFrequency) {}
  uint64_t Correct(uint64_t systemTicks, int64_t counter);

private:
  int64_t m_Frequency;
  bool m_HasLast = false;
  int64_t m_LastCounter = 0;
  uint64_t m_LastResult = 0;
};
} // namespace NmDetail

} // namespace NmTimeStamp
