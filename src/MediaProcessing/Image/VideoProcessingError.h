#pragma once

#include "Common/Error/Error.h"

namespace NmMediaProcessing {

// Failures of a drawing device (its surface, its formats), as distinct from
// integrity errors: callers catch this one to fall back on plain memory.
struct CmVideoProcessingErrorTag;
using CmVideoProcessingError = NmError::CmCodedError<CmVideoProcessingErrorTag>;

} // namespace NmMediaProcessing
