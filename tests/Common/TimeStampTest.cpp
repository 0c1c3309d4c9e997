#include <cstdint>
#include <limits>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "Common/TimeStamp/TimeStamp.h"
#include "support/CaughtError.h"

using NmTimeStamp::CmTimeError;
using NmTimeStamp::CmTimeRange;
using NmTimeStamp::CmTimeSpan;
using NmTimeStamp::CmTimeStamp;
using NmTimeStamp::NmDetail::CmTimeCorrector;

namespace {

void ExpectInvalidMilliseconds(int64_t milliseconds) {
  SCOPED_TRACE(milliseconds);
  const auto e =
      NmTestSupport::Caught<CmTimeError>([&] { CmTimeStamp::FromMilliseconds(milliseconds); });
  EXPECT_EQ(e->GetCode(), 0u);
  EXPECT_STREQ(e->what(), "Error initializing time stamp. Invalid number of milliseconds given!");
}

} // namespace

TEST(TimeStamp, KindsLimitsConversionsComparisonsArithmeticAndRanges) {
  EXPECT_EQ(CmTimeStamp().GetTicks(), 116444736000000000ULL);
  EXPECT_EQ(CmTimeStamp(CmTimeStamp::Earliest).GetMilliseconds(), -11644473600000LL);
  EXPECT_EQ(CmTimeStamp(CmTimeStamp::Latest).GetMilliseconds(), 1833029933770955LL);

  // The accepted range: from 1601 up to one millisecond below the limit.
  EXPECT_EQ(CmTimeStamp::FromMilliseconds(-11644473600000LL).GetTicks(), 0u);
  const int64_t largest = 1844674407370955LL - 11644473600000LL;
  EXPECT_EQ(CmTimeStamp::FromMilliseconds(largest).GetTicks(), 1844674407370955ULL * 10000);
  for (const int64_t invalid :
       {int64_t{-11644473600001}, largest + 1, std::numeric_limits<int64_t>::max(),
        std::numeric_limits<int64_t>::min()}) {
    ExpectInvalidMilliseconds(invalid);
  }

  // A failed set leaves the stamp as it was.
  CmTimeStamp stamp = CmTimeStamp::FromMilliseconds(5);
  EXPECT_THROW(stamp.SetMilliseconds(largest + 1), CmTimeError);
  EXPECT_EQ(stamp.GetMilliseconds(), 5);

  for (const int64_t ms : {int64_t{-1}, int64_t{1700000000123}, int64_t{-11644473599999}}) {
    EXPECT_EQ(CmTimeStamp::FromMilliseconds(ms).GetMilliseconds(), ms);
  }
  // Sub-millisecond ticks are cut, counting from 1601, not from 1970.
  EXPECT_EQ(CmTimeStamp::FromTicks(116444736000000000ULL - 1).GetMilliseconds(), -1);
  EXPECT_EQ(CmTimeStamp::FromTicks(116444736000000000ULL + 9999).GetMilliseconds(), 0);

  const CmTimeStamp a = CmTimeStamp::FromMilliseconds(1000);
  const CmTimeStamp b = CmTimeStamp::FromMilliseconds(3500);
  EXPECT_TRUE(a < b && b > a && a == CmTimeStamp::FromMilliseconds(1000));
  EXPECT_TRUE(CmTimeStamp(CmTimeStamp::Earliest) < a && CmTimeStamp(CmTimeStamp::Latest) > b);
  EXPECT_EQ((a - b).GetTicks(), -25000000);
  EXPECT_EQ(b - (b - a), a);
  CmTimeStamp c = a;
  c += CmTimeSpan::FromMilliseconds(-2000);
  EXPECT_EQ(c.GetMilliseconds(), -1000);
  c -= CmTimeSpan::FromMilliseconds(-2000);
  EXPECT_EQ(c, a);

  EXPECT_EQ(CmTimeSpan(1, 2, 3, 4, 5).GetMilliseconds(),
            ((((1 * 24 + 2) * 60 + 3) * 60 + 4) * 1000 + 5));
  EXPECT_EQ(CmTimeSpan(1, -24, 0, 0, -1).GetTicks(), -10000);
  // Milliseconds are truncated towards zero in both directions.
  EXPECT_EQ(CmTimeSpan(int64_t{19999}).GetMilliseconds(), 1);
  EXPECT_EQ(CmTimeSpan(int64_t{-19999}).GetMilliseconds(), -1);
  EXPECT_LT(CmTimeSpan::FromMilliseconds(3) - CmTimeSpan::FromMilliseconds(4), CmTimeSpan());

  // The empty range runs from 1 back to 0; a point is not empty. Ranges are
  // ordered by begin first, then by end.
  const CmTimeRange empty;
  EXPECT_EQ(empty.GetBegin().GetMilliseconds() - empty.GetEnd().GetMilliseconds(), 1);
  const CmTimeStamp t0 = CmTimeStamp::FromMilliseconds(10);
  const CmTimeStamp t1 = CmTimeStamp::FromMilliseconds(20);
  CmTimeRange range(t0, t1);
  EXPECT_TRUE(empty.IsEmpty() && !CmTimeRange(t0, t0).IsEmpty() && !range.IsEmpty());
  EXPECT_TRUE(range == CmTimeRange(t0, t1) && range != CmTimeRange(t0, t0));
  EXPECT_TRUE(CmTimeRange(t0, t0) < range && CmTimeRange(t0, t1) < CmTimeRange(t1, t0));
  range.SetBegin(t1);
  range.SetEnd(t0);
  EXPECT_TRUE(range.IsEmpty());
}

TEST(TimeStamp, CurrentTimeIsNowAndDoesNotRunBackOnAnyThread) {
  const int64_t before = std::chrono::duration_cast<std::chrono::milliseconds>(
                             std::chrono::system_clock::now().time_since_epoch())
                             .count();
  const CmTimeStamp now(CmTimeStamp::Current);
  const int64_t after = std::chrono::duration_cast<std::chrono::milliseconds>(
                            std::chrono::system_clock::now().time_since_epoch())
                            .count();
  // The smoother may hold a reading back by up to 0.1 s, never more.
  EXPECT_GE(now.GetMilliseconds(), before - 100);
  EXPECT_LE(now.GetMilliseconds(), after + 100);

  // The corrector is shared by the process; each thread must still see its
  // own readings in order.
  std::vector<std::thread> threads;
  std::vector<int> failures(4, 0);
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([t, &failures] {
      CmTimeStamp previous(CmTimeStamp::Current);
      for (int i = 0; i < 2000; ++i) {
        CmTimeStamp next;
        next.SetCurrentTime();
        failures[t] += next < previous ? 1 : 0;
        previous = next;
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  for (const int failed : failures) {
    EXPECT_EQ(failed, 0);
  }
}

namespace {
constexpr uint64_t Second = 10000000;   // ticks
constexpr int64_t CounterSecond = 1000; // a counter of 1 kHz
constexpr uint64_t Base = 133000000000000000ULL;
} // namespace

// Each run feeds a fresh corrector clock and counter readings in turn and
// expects the corrected clock after every one.
TEST(TimeCorrector, CounterWinsSmallStepsClockWinsLargeOnesAndBackStepsAreHeld) {
  struct SmReading {
    uint64_t clock;
    int64_t counter;
    uint64_t corrected;
  };
  const uint64_t huge = (uint64_t{2000000000} + 1) << 32;
  const uint64_t top = uint64_t{2000000000} << 32;
  const uint64_t past = Base + 5 * Second + Second / 10 + 1 + 100000;
  const struct {
    const char* name;
    int64_t frequency;
    std::vector<SmReading> readings;
  } runs[] = {
      // A coarse clock step of 15.6 ms against 10 ms of counter, a clock
      // that did not move, and exactly 0.1 s of disagreement: the counter.
      {"small steps",
       CounterSecond,
       {{Base, 0, Base},
        {Base + 156000, 10, Base + 100000},
        {Base + 100000, 15, Base + 150000},
        {Base + 150000 + Second / 10 + 20000, 17, Base + 170000}}},
      // A jump of 5 s, then 0.1 s and a tick more than the counter: the clock.
      {"large",
       CounterSecond,
       {{Base, 0, Base}, {Base + 5 * Second, 10, Base + 5 * Second}, {past, 20, past}}},
      // Beyond 10 s of clock advance the counter is never taken.
      {"far",
       CounterSecond,
       {{Base, 0, Base}, {Base + 10 * Second + 1, 10 * CounterSecond + 1, Base + 10 * Second + 1}}},
      // Backwards by 0.05 s and by exactly 0.1 s is held; more is a real change.
      {"backwards",
       CounterSecond,
       {{Base, 0, Base},
        {Base - Second / 20, -5, Base},
        {Base - Second / 10, -100, Base},
        {Base - Second / 10 - 1, -200, Base - Second / 10 - 1}}},
      {"no counter", 0, {{Base, 0, Base}, {Base + 156000, 10, Base + 156000}}},
      // Stamps above the largest smoothed high word pass unchanged.
      {"huge", CounterSecond, {{huge, 0, huge}, {huge + 156000, 10, huge + 156000}}},
      {"edge", CounterSecond, {{top, 0, top}, {top + 156000, 10, top + 100000}}},
      // Extreme counter readings must not overflow the arithmetic.
      {"extreme",
       CounterSecond,
       {{Base, std::numeric_limits<int64_t>::min(), Base},
        {Base + Second, std::numeric_limits<int64_t>::max(), Base + Second}}},
  };
  for (const auto& run : runs) {
    CmTimeCorrector corrector(run.frequency);
    for (size_t i = 0; i < run.readings.size(); ++i) {
      const SmReading& r = run.readings[i];
      EXPECT_EQ(corrector.Correct(r.clock, r.counter), r.corrected) << run.name << " " << i;
    }
  }
}
