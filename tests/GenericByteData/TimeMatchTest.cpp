#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <optional>
#include <utility>
#include <vector>

#include "MediaProcessing/GenericByteData/TimeMatch.h"
#include "support/TimeMatchOracle.h"

using namespace NmMediaProcessing;
using namespace NmTimeMatch;

namespace {

constexpr int64_t Min = std::numeric_limits<int64_t>::min();
constexpr int64_t Max = std::numeric_limits<int64_t>::max();
using CmSpans = std::vector<std::pair<int64_t, int64_t>>;

std::optional<size_t> SelectIn(const CmSpans& spans, SmTimeMatchType type, SmReading reading,
                               int64_t time, SmTie tie = SmTie::Later) {
  return Select(
      type, reading, time, spans.size(), [&](size_t i) { return spans[i]; }, tie);
}

} // namespace

// A span is judged by a different edge in each reading; instants agree.
TEST(TimeMatch, EdgesOfEachReadingAndSelectionWithTiesEmptySetsAndTheWholeRange) {
  // Whether the span from 10 to 20 qualifies: an item that ends at the time
  // is not before it, but a record that begins before holds a frame before.
  constexpr SmReading I = SmReading::Items;
  constexpr SmReading F = SmReading::Frames;
  const std::tuple<SmReading, SmTimeMatchType, int64_t, bool> table[] = {
      {I, TimeMatchBefore, 20, false},    {I, TimeMatchBefore, 21, true},
      {F, TimeMatchBefore, 11, true},     {F, TimeMatchBefore, 10, false},
      {I, TimeMatchAfter, 10, false},     {I, TimeMatchAfter, 9, true},
      {F, TimeMatchAfter, 19, true},      {F, TimeMatchAfter, 20, false},
      {I, TimeMatchAtOrAfter, 10, true},  {I, TimeMatchAtOrAfter, 11, false},
      {F, TimeMatchAtOrAfter, 20, true},  {F, TimeMatchAtOrAfter, 21, false},
      {I, TimeMatchAtOrBefore, 10, true}, {I, TimeMatchAtOrBefore, 9, false},
      {F, TimeMatchAtOrBefore, 10, true}, {F, TimeMatchAtOrBefore, 9, false},
      {I, TimeMatchExact, 20, true},      {I, TimeMatchExact, 21, false},
      {F, TimeMatchExact, 20, true},      {F, TimeMatchExact, 21, false}};
  for (const auto& [reading, type, time, qualifies] : table) {
    EXPECT_EQ(Qualifies<int64_t>(type, reading, time, 10, 20), qualifies)
        << (reading == I ? "items " : "frames ") << type << " at " << time;
  }
  for (const SmTimeMatchType type : NmTestSupport::AllTimeMatchTypes) {
    for (const int64_t time : {Min, int64_t{4}, int64_t{5}, int64_t{6}, Max}) {
      EXPECT_EQ(Qualifies<int64_t>(type, SmReading::Items, time, 5, 5),
                Qualifies<int64_t>(type, SmReading::Frames, time, 5, 5))
          << type << " at " << time;
    }
  }

  for (const SmTimeMatchType type : NmTestSupport::AllTimeMatchTypes) {
    EXPECT_FALSE(SelectIn({}, type, SmReading::Items, 0)) << type;
  }
  const CmSpans spans = {{0, 9}, {10, 19}, {30, 30}};
  EXPECT_EQ(SelectIn(spans, TimeMatchBefore, SmReading::Items, 10), 0u);
  EXPECT_EQ(SelectIn(spans, TimeMatchBefore, SmReading::Frames, 11), 1u);
  EXPECT_EQ(SelectIn(spans, TimeMatchAfter, SmReading::Items, 10), 2u);
  EXPECT_EQ(SelectIn(spans, TimeMatchAfter, SmReading::Frames, 10), 1u);
  EXPECT_EQ(SelectIn(spans, TimeMatchAtOrAfter, SmReading::Items, 10), 1u);
  EXPECT_EQ(SelectIn(spans, TimeMatchExact, SmReading::Frames, 15), 1u);
  EXPECT_FALSE(SelectIn(spans, TimeMatchExact, SmReading::Frames, 25));
  EXPECT_FALSE(SelectIn(spans, TimeMatchAfter, SmReading::Frames, 30));
  EXPECT_EQ(SelectIn(spans, TimeMatchNearest, SmReading::Items, 25), 2u);
  EXPECT_EQ(SelectIn(spans, TimeMatchNearest, SmReading::Items, 24), 1u);
  EXPECT_EQ(SelectIn({{0, 0}, {10, 10}}, TimeMatchNearest, SmReading::Items, 5), 1u);
  EXPECT_EQ(SelectIn({{0, 0}, {10, 10}}, TimeMatchNearest, SmReading::Items, 5, SmTie::Earlier),
            0u);

  // Gaps across the whole range do not fit in int64_t.
  EXPECT_EQ(Gap(Min, Max), std::numeric_limits<uint64_t>::max());
  EXPECT_EQ(Gap(NmTimeStamp::CmTimeStamp::FromTicks(~0ULL), NmTimeStamp::CmTimeStamp::FromTicks(0)),
            std::numeric_limits<uint64_t>::max());
  const CmSpans far = {{Min, Min + 10}, {-5, 5}, {Max - 10, Max}};
  EXPECT_EQ(SelectIn(far, TimeMatchNearest, SmReading::Items, Min), 0u);
  EXPECT_EQ(SelectIn(far, TimeMatchNearest, SmReading::Items, Max), 2u);
  EXPECT_EQ(SelectIn(far, TimeMatchNearest, SmReading::Items, Max / 2 - 100), 1u);
  EXPECT_EQ(SelectIn(far, TimeMatchNearest, SmReading::Items, Max / 2 + 100), 2u);
  EXPECT_EQ(SelectIn(far, TimeMatchNearest, SmReading::Items, Min / 2 - 100), 0u);
  EXPECT_EQ(SelectIn(far, TimeMatchNearest, SmReading::Items, Min / 2 + 100), 1u);
  EXPECT_FALSE(SelectIn(far, TimeMatchBefore, SmReading::Items, Min));
  EXPECT_FALSE(SelectIn(far, TimeMatchAfter, SmReading::Items, Max));
  EXPECT_EQ(SelectIn(far, TimeMatchAtOrBefore, SmReading::Items, Max), 2u);
}

// Which frame of a record each match type picks is proven by the record's own
// match table and through the random-access decoder, at every time around
// every frame; here the stand-in between two frames at its edges.
TEST(TimeMatch, StandInBetweenTwoFramesMovesAndMatchTypes) {
  EXPECT_EQ(StandInBetween<int64_t>(TimeMatchBefore, 20, 10, 20), SmStandIn::Older);
  EXPECT_EQ(StandInBetween<int64_t>(TimeMatchAtOrBefore, 20, 10, 20), SmStandIn::Newer);
  EXPECT_EQ(StandInBetween<int64_t>(TimeMatchAtOrBefore, 19, 10, 20), SmStandIn::Older);
  EXPECT_EQ(StandInBetween<int64_t>(TimeMatchNearest, 15, 10, 20), SmStandIn::Newer);
  EXPECT_EQ(StandInBetween<int64_t>(TimeMatchNearest, 14, 10, 20), SmStandIn::Older);
  EXPECT_EQ(StandInBetween<int64_t>(TimeMatchNearest, 0, Min, Max), SmStandIn::Newer);
  EXPECT_EQ(StandInBetween<int64_t>(TimeMatchAfter, 15, 10, 20), SmStandIn::None);

  for (uint32_t mode = 0; IsMoveMode(mode); ++mode) {
    const auto move = static_cast<NmToolkit::SmMoveMode>(mode);
    EXPECT_EQ(ForMatch(ForMove(move)), move) << mode;
  }
  EXPECT_FALSE(IsMoveMode(5));
  EXPECT_FALSE(IsTimeMatchType(6));
  EXPECT_EQ(ForMove(NmToolkit::MoveClosest), TimeMatchNearest);
  EXPECT_EQ(ForMove(NmToolkit::MoveAtOrAfter), TimeMatchAtOrAfter);
  EXPECT_EQ(ForMatch(TimeMatchExact), NmToolkit::MoveAtOrBefore);

  // About begins: the two modes that look a millisecond back, at the bottom
  // of the range too.
  const auto about = [](NmToolkit::SmMoveMode mode, int64_t time) {
    const auto moved = AboutBegins(mode, time);
    return moved ? std::pair(moved->time, moved->mode) : std::pair(int64_t{0}, mode);
  };
  EXPECT_EQ(about(NmToolkit::MoveBefore, 0), std::pair(int64_t{-1}, NmToolkit::MoveAtOrBefore));
  EXPECT_EQ(about(NmToolkit::MoveAtOrAfter, Max), std::pair(Max - 1, NmToolkit::MoveAfter));
  EXPECT_FALSE(AboutBegins(NmToolkit::MoveBefore, Min));
  EXPECT_EQ(about(NmToolkit::MoveAtOrAfter, Min), std::pair(Min, NmToolkit::MoveAtOrAfter));
  EXPECT_EQ(about(NmToolkit::MoveAfter, Min), std::pair(Min, NmToolkit::MoveAfter));
}
