#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "MediaProcessing/GenericByteData/TimeMatch.h"

// What each time match asks for, straight from the definitions, for the tests
// of everything that finds frames by time.
namespace NmTestSupport {

inline constexpr NmMediaProcessing::SmTimeMatchType AllTimeMatchTypes[] = {
    NmMediaProcessing::TimeMatchAfter,     NmMediaProcessing::TimeMatchBefore,
    NmMediaProcessing::TimeMatchAtOrAfter, NmMediaProcessing::TimeMatchAtOrBefore,
    NmMediaProcessing::TimeMatchNearest,   NmMediaProcessing::TimeMatchExact};

// The frame a time asks for among frames in time order: the first after, the
// last before, and so on; a tie for the nearest goes to the later frame.
inline std::optional<int64_t> WantedFrame(const std::vector<int64_t>& frames,
                                          NmMediaProcessing::SmTimeMatchType type, int64_t time) {
  using namespace NmMediaProcessing;
  // Unsigned, so that gaps across the whole range do not overflow.
  const auto gap = [time](int64_t f) {
    return f > time ? uint64_t(f) - uint64_t(time) : uint64_t(time) - uint64_t(f);
  };
  std::optional<int64_t> out;
  for (const int64_t f : frames) {
    const bool take = type == TimeMatchAfter        ? f > time && !out
                      : type == TimeMatchAtOrAfter  ? f >= time && !out
                      : type == TimeMatchBefore     ? f < time
                      : type == TimeMatchAtOrBefore ? f <= time
                      : type == TimeMatchExact      ? f == time
                                                    : !out || gap(f) <= gap(*out);
    out = take ? std::optional(f) : out;
  }
  return out;
}

} // namespace NmTestSupport
