#pragma once

#include <cstdint>

#include "Common/TimeStamp/TimeStamp.h"

// Tests speak of times in wire milliseconds.
inline NmTimeStamp::CmTimeStamp Ms(int64_t milliseconds) {
  return NmTimeStamp::CmTimeStamp::FromMilliseconds(milliseconds);
}
