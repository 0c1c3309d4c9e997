#include <ctime>
#include <mutex>

#include "Common/TimeStamp/TimeStamp.h"
#include "Common/TimeStamp/TimeStampOS.h"

namespace NmTimeStamp {
namespace {

constexpr int64_t NanosecondsPerSecond = 1000000000;

struct CmCorrectorState {
  std::mutex lock;
  NmDetail::CmTimeCorrector corrector{NanosecondsPerSecond};
};

CmCorrectorState& Corrector() {
  static CmCorrectorState state;
  return state;
}

} // namespace

bool CmTimeStampOS::ReadSystemTicks(uint64_t& ticks) {
  timespec now{};
  if (clock_gettime(CLOCK_REALTIME, &now) != 0) {
    return false;
  }
  const __int128 value =
      (static_cast<__int128>(now.tv_sec) + MillisecondsFrom1601To1970 / 1000) * 10000000 +
      now.tv_nsec / 100;
  if (value < 0) {
    return false;
  }
  ticks = static_cast<uint64_t>(value);
  return true;
}

uint64_t CmTimeStampOS::Smooth(uint64_t systemTicks) {
  timespec now{};
  if (clock_gettime(CLOCK_MONOTONIC, &now) != 0) {
    return systemTicks;
  }
  const int64_t counter = static_cast<int64_t>(now.tv_sec) * NanosecondsPerSecond + now.tv_nsec;
  CmCorrectorState& state = Corrector();
  std::lock_guard guard(state.lock);
  return state.corrector.Correct(systemTicks, counter);
}

} // namespace NmTimeStamp
