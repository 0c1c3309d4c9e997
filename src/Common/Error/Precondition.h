#pragma once

#include "Common/Error/Error.h"

// One line a precondition: the condition that must hold, the message and the
// code (or codes, for errors that stack two) of the error that its failure
// throws. A run of them reads in the order the checks are made, which callers
// rely on: the first failed check is the one reported. The location names the
// caller, and it and the message are only put together when the check fails.
#define VZK_REQUIRE_AS(ErrorType, condition, message, ...)                                         \
  do {                                                                                             \
    if (!(condition)) {                                                                            \
      throw ErrorType(VZK_LOCATION, message, __VA_ARGS__);                                         \
    }                                                                                              \
  } while (false)

// The integrity family, which nearly every precondition below the toolkit
// layer throws.
#define VZK_REQUIRE(condition, message, code)                                                      \
  VZK_REQUIRE_AS(::NmError::CmIntegrityError, condition, message, code)
