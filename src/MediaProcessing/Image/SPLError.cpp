#include "MediaProcessing/Image/SPLError.h"

#include <string>

namespace NmMediaProcessing {

CmSPLError::CmSPLError(std::string location, int32_t status)
    : NmError::CmIntegrityError(std::move(location),
                                "Signal Primitives Library (SPL) error " + std::to_string(status),
                                NmError::CmIntegrityErrorCode::InvalidArgument),
      m_Status(status) {}

void ThrowStatus(int32_t status) {
  if (status >= 0) {
    return;
  }
  if (status == -9 || status == -4) {
    throw CmBadAllocation();
  }
  throw CmSPLError(VZK_LOCATION, status);
}

} // namespace NmMediaProcessing
