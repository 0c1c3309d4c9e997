#pragma once

// What each time mode selects, for every layer that answers one: the byte data
// access, the random-access decoder, the cache, the data access adapter, the
// decoding toolkits and the source plug-ins. A candidate is a span of time
// from begin to end; an instant has both equal. Two readings exist:
//
// - Items, between which a host navigates (SmMoveMode): an item lies before a
//   time only when it ends before it and after it when it begins after it;
//   "at or before" and "at or after" judge an item by its begin.
// - Frames, of which a record holds one or many (SmTimeMatchType): a record
//   answers for any of its frames, so it holds one before a time when it
//   begins before it and one after it when it ends after it.
//
// For instants both readings agree. The nearest match takes the candidate
// least far from the time, a span counting as no distance from the times it
// covers; a tie goes to the later candidate unless the caller asks otherwise.
//
// Everything here is inline, so that the source plug-ins can use it without
// the media libraries. Distances are unsigned: a time at one end of the
// int64_t range and candidates at the other lie further apart than int64_t
// holds.

#include <cstdint>
#include <cstdlib>
#include <limits>
#include <optional>

#include "Common/TimeStamp/TimeStamp.h"
#include "vzk/Toolkit.h"

namespace NmMediaProcessing {

// Which frame a time asks for.
enum SmTimeMatchType : uint32_t {
  TimeMatchAfter = 0,
  TimeMatchBefore = 1,
  TimeMatchAtOrAfter = 2,
  TimeMatchAtOrBefore = 3,
  TimeMatchNearest = 4,
  TimeMatchExact = 5,
};

} // namespace NmMediaProcessing

namespace NmTimeMatch {

using NmMediaProcessing::SmTimeMatchType;
using NmToolkit::SmMoveMode;

enum class SmReading { Items, Frames };

// Which of two equally near candidates the nearest match takes.
enum class SmTie { Later, Earlier };

inline constexpr bool IsMoveMode(uint32_t mode) {
  return mode <= NmToolkit::MoveAtOrAfter;
}

inline constexpr bool IsTimeMatchType(uint32_t type) {
  return type <= NmMediaProcessing::TimeMatchExact;
}

// The match type that answers a move, one for one. The mode must be valid.
inline constexpr SmTimeMatchType ForMove(SmMoveMode mode) {
  constexpr SmTimeMatchType Types[] = {
      NmMediaProcessing::TimeMatchNearest, NmMediaProcessing::TimeMatchBefore,
      NmMediaProcessing::TimeMatchAtOrBefore, NmMediaProcessing::TimeMatchAfter,
      NmMediaProcessing::TimeMatchAtOrAfter};
  return Types[mode];
}

// The move that finds the item for a match type. No move finds an exact time
// alone: the item at or before it is the one that can hold it, and the caller
// tests the time. The type must be valid.
inline constexpr SmMoveMode ForMatch(SmTimeMatchType type) {
  constexpr SmMoveMode Modes[] = {NmToolkit::MoveAfter,     NmToolkit::MoveBefore,
                                  NmToolkit::MoveAtOrAfter, NmToolkit::MoveAtOrBefore,
                                  NmToolkit::MoveClosest,   NmToolkit::MoveAtOrBefore};
  return Modes[type];
}

// Whether the answer can lie after the time, or before it; the nearest match
// looks both ways and the exact one neither.
inline constexpr bool LooksForward(SmTimeMatchType type) {
  return type == NmMediaProcessing::TimeMatchAfter ||
         type == NmMediaProcessing::TimeMatchAtOrAfter ||
         type == NmMediaProcessing::TimeMatchNearest;
}

inline constexpr bool LooksBackward(SmTimeMatchType type) {
  return type == NmMediaProcessing::TimeMatchBefore ||
         type == NmMediaProcessing::TimeMatchAtOrBefore ||
         type == NmMediaProcessing::TimeMatchNearest;
}

inline uint64_t Gap(int64_t a, int64_t b) {
  return a > b ? static_cast<uint64_t>(a) - static_cast<uint64_t>(b)
               : static_cast<uint64_t>(b) - static_cast<uint64_t>(a);
}

inline uint64_t Gap(const NmTimeStamp::CmTimeStamp& a, const NmTimeStamp::CmTimeStamp& b) {
  return a > b ? a.GetTicks() - b.GetTicks() : b.GetTicks() - a.GetTicks();
}

// How far a time lies from a span; inside it, nothing.
template <typename T> uint64_t Distance(const T& time, const T& begin, const T& end) {
  if (begin <= time && time <= end) {
    return 0;
  }
  const uint64_t toBegin = Gap(time, begin);
  const uint64_t toEnd = Gap(time, end);
  return toBegin < toEnd ? toBegin : toEnd;
}

// Of an earlier and a later candidate at these distances, whether the nearest
// match takes the later one.
inline bool LaterIsNearer(uint64_t toEarlier, uint64_t toLater, SmTie tie = SmTie::Later) {
  return tie == SmTie::Later ? toLater <= toEarlier : toLater < toEarlier;
}

// Whether a span is one that the type may select at the time. Every span may
// be the nearest; an exact match needs a span that covers the time, and the
// caller tests the frame itself.
template <typename T>
bool Qualifies(SmTimeMatchType type, SmReading reading, const T& time, const T& begin,
               const T& end) {
  const bool frames = reading == SmReading::Frames;
  switch (type) {
  case NmMediaProcessing::TimeMatchAfter:
    return (frames ? end : begin) > time;
  case NmMediaProcessing::TimeMatchAtOrAfter:
    return (frames ? end : begin) >= time;
  case NmMediaProcessing::TimeMatchBefore:
    return (frames ? begin : end) < time;
  case NmMediaProcessing::TimeMatchAtOrBefore:
    return begin <= time;
  case NmMediaProcessing::TimeMatchExact:
    return begin <= time && time <= end;
  case NmMediaProcessing::TimeMatchNearest:
    return true;
  }
  return false;
}

// Of the candidates that qualify, the backward types and the exact one take
// the last, the forward types the first.
inline constexpr bool TakesLast(SmTimeMatchType type) {
  return type == NmMediaProcessing::TimeMatchBefore ||
         type == NmMediaProcessing::TimeMatchAtOrBefore ||
         type == NmMediaProcessing::TimeMatchExact;
}

// The candidate the type selects among `count` in order, where spanOf(i)
// gives the begin and end of candidate i as a pair; none when none fits.
template <typename T, typename SpanOf>
std::optional<size_t> Select(SmTimeMatchType type, SmReading reading, const T& time, size_t count,
                             SpanOf spanOf, SmTie tie = SmTie::Later) {
  std::optional<size_t> found;
  uint64_t nearest = 0;
  for (size_t i = 0; i < count; ++i) {
    const auto [begin, end] = spanOf(i);
    if (type == NmMediaProcessing::TimeMatchNearest) {
      const uint64_t distance = Distance<T>(time, begin, end);
      if (!found || LaterIsNearer(nearest, distance, tie)) {
        found = i;
        nearest = distance;
      }
    } else if (Qualifies<T>(type, reading, time, begin, end)) {
      found = i;
      if (!TakesLast(type)) {
        break;
      }
    }
  }
  return found;
}

// Within a record of frames in time order: given the frame shown at the time
// (the last one at or before it), which frame the type wants. An exact match
// that misses points at the following frame, where the search goes on.
enum class SmFrameChoice { Previous, Shown, Following, NearerOfShownAndFollowing };

inline constexpr SmFrameChoice ChooseFrame(SmTimeMatchType type, bool shownIsAtTime) {
  switch (type) {
  case NmMediaProcessing::TimeMatchAfter:
    return SmFrameChoice::Following;
  case NmMediaProcessing::TimeMatchBefore:
    return shownIsAtTime ? SmFrameChoice::Previous : SmFrameChoice::Shown;
  case NmMediaProcessing::TimeMatchAtOrBefore:
    return SmFrameChoice::Shown;
  case NmMediaProcessing::TimeMatchNearest:
    return shownIsAtTime ? SmFrameChoice::Shown : SmFrameChoice::NearerOfShownAndFollowing;
  default: // at or after, exact
    return shownIsAtTime ? SmFrameChoice::Shown : SmFrameChoice::Following;
  }
}

// When the frame wanted never came out of the decoder but an older and a
// newer one did: which of them stands in for it. A backward match takes what
// lies on its side of the time; a forward match waits for more.
enum class SmStandIn { None, Older, Newer };

template <typename T>
SmStandIn StandInBetween(SmTimeMatchType type, const T& time, const T& older, const T& newer) {
  switch (type) {
  case NmMediaProcessing::TimeMatchBefore:
    return SmStandIn::Older;
  case NmMediaProcessing::TimeMatchAtOrBefore:
    return time == newer ? SmStandIn::Newer : SmStandIn::Older;
  case NmMediaProcessing::TimeMatchNearest:
    return LaterIsNearer(Gap(time, older), Gap(newer, time)) ? SmStandIn::Newer : SmStandIn::Older;
  default:
    return SmStandIn::None;
  }
}

// A move about the begins of items alone, as a reader of key frames sees
// them, put to a source that reads whole items. "Before" becomes "at or
// before" the millisecond before, since a whole item is before a time only
// when it ends before it. "At or after" becomes "after" the millisecond
// before: a list of items held above a source passes over an item that
// begins exactly at the time for both. The others stay. None when nothing can
// begin before the time.
struct SmMoveRequest {
  int64_t time;
  SmMoveMode mode;
};

inline std::optional<SmMoveRequest> AboutBegins(SmMoveMode mode, int64_t time) {
  if (mode != NmToolkit::MoveBefore && mode != NmToolkit::MoveAtOrAfter) {
    return SmMoveRequest{time, mode};
  }
  if (time == std::numeric_limits<int64_t>::min()) {
    return mode == NmToolkit::MoveBefore ? std::nullopt : std::optional(SmMoveRequest{time, mode});
  }
  return SmMoveRequest{time - 1, mode == NmToolkit::MoveBefore ? NmToolkit::MoveAtOrBefore
                                                               : NmToolkit::MoveAfter};
}

} // namespace NmTimeMatch
