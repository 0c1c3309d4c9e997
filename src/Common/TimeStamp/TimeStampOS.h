#pragma once

#include <cstdint>

namespace NmTimeStamp {

// The clocks beneath CmTimeStamp.
class CmTimeStampOS {
public:
  // Wall-clock time in 100-nanosecond ticks since 1601; false if unreadable.
  static bool ReadSystemTicks(uint64_t& ticks);
  // Runs the process-wide corrector over a fresh reading of the monotonic clock.
  static uint64_t Smooth(uint64_t systemTicks);
};

} // namespace NmTimeStamp
