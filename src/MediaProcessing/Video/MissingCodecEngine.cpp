#include "MediaProcessing/Video/MissingCodecEngine.h"

#include "Common/Error/Error.h"

namespace NmMediaProcessing {

void RaiseMissingCodecEngine(std::string location, const std::string& what) {
  throw NmError::CmIntegrityError(std::move(location), "No " + what + " implemented",
                                  NmError::CmIntegrityErrorCode::NotImplemented);
}

} // namespace NmMediaProcessing
