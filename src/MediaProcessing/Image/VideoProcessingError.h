#pragma once

#include "Common/Error/Error.h"

namespace NmMediaProcessing {

// Failures of a drawing device (its surface, its formats), as distinct from
// integrity errors: callers catch this type to fall back on plain memory.
// The codes are those of the integrity family.
struct CmVideoProcessingErrorCode : NmError::CmIntegrityErrorCode {};
using CmVideoProcessingError = NmError::CmGenericError<CmVideoProcessingErrorCode>;

} // namespace NmMediaProcessing
