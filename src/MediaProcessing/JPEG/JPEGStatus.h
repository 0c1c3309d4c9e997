#pragma once

#include <cstdint>

// The JPEG stream, table and codec classes never throw: every operation
// answers one of these 32-bit statuses, and the adapters above turn them into
// exceptions or missing pictures.
using JStatus = int32_t;

constexpr JStatus JStatusOk = 0;
// A general failure, or an argument that is not understood.
constexpr JStatus JStatusFailed = -1;
// A table or signal primitive refused its input.
constexpr JStatus JStatusPrimitiveFailed = -2;
constexpr JStatus JStatusUnsupported = -3;
// End of the data, or a position out of range.
constexpr JStatus JStatusEndOfData = -4;
// Quality 0 handed to the quant table scaling primitive.
constexpr JStatus JStatusBadQuality = -5;
constexpr JStatus JStatusOutOfMemory = -6;
constexpr JStatus JStatusSecondFrameHeader = -8;

// Hands a failed status on to the caller at once.
#define VZK_RETURN_IF_FAILED(expression)                                                           \
  do {                                                                                             \
    if (const JStatus status_ = (expression); status_ != JStatusOk) {                              \
      return status_;                                                                              \
    }                                                                                              \
  } while (false)
