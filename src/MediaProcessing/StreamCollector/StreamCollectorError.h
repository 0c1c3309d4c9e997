#pragma once

#include <cstdint>
#include <string>

#include "Common/Error/Error.h"

namespace NmMediaProcessing {

// Why the collector refused a record or closed a group of pictures early.
struct SmVideoStreamCollectorErrorCode {
  enum Code : uint32_t {
    UnusableData = 1,
    MaximumByteSizeExceeded = 2,
    MaximumTimeSpanExceeded = 3,
    MaximumFrameCountExceeded = 4,
    TimeWarp = 5,
  };
};

using CmVideoStreamCollectorError =
    NmError::CmGenericError<SmVideoStreamCollectorErrorCode, NmError::CmError>;

// The collector's classes are templates whose compiler-made names differ from
// the names that their errors carry; the name is therefore given in full.
std::string StreamCollectorLocation(const std::string& function, const char* file, int line);

} // namespace NmMediaProcessing
