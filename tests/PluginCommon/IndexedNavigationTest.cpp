#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <vector>

#include "IndexedNavigation.h"

namespace {

struct SmSpan {
  int64_t begin;
  int64_t end;
  uint32_t sequence = 0;
};

int64_t EntryBeginTime(const SmSpan& span) {
  return span.begin;
}
int64_t EntryEndTime(const SmSpan& span) {
  return span.end;
}

constexpr int64_t Min = std::numeric_limits<int64_t>::min();
constexpr int64_t Max = std::numeric_limits<int64_t>::max();

int64_t Closest(const std::vector<SmSpan>& spans, int64_t time) {
  const NmIndexedNavigation::CmIndexedNavigation<SmSpan> navigation(spans);
  int64_t position = -1;
  return navigation.MoveTo(position, time, NmToolkit::MoveClosest) == NmToolkit::StatusSuccess
             ? position
             : -2;
}

// The gap between a time at one end of the range and records near the other
// end is wider than int64_t holds; the nearest record must still win. Spans
// at both ends of the range are the time match's own test.
TEST(IndexedNavigation, ClosestAcrossTheWholeTimeRange) {
  const std::vector<SmSpan> recorded = {{1700000000000, 1700000000039},
                                        {1700000000040, 1700000000079},
                                        {1700000090000, 1700000090000}};
  EXPECT_EQ(Closest(recorded, Min), 0);
  EXPECT_EQ(Closest(recorded, Min + 38), 0);
  EXPECT_EQ(Closest(recorded, -1), 0);
  EXPECT_EQ(Closest(recorded, Max), 2);
  EXPECT_EQ(Closest(recorded, 1700000000041), 1);
}

} // namespace
