#pragma once

#include "Common/Error/Error.h"

namespace NmMediaProcessing {

// Failures of media processing that are neither misuse nor a broken record:
// a codec that cannot take the picture it is given, for instance.
class CmMediaProcessingError
    : public NmError::CmCloneable<CmMediaProcessingError, NmError::CmError> {
public:
  using CmCloneable::CmCloneable;
};

} // namespace NmMediaProcessing
