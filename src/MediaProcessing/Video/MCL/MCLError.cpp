#include "MediaProcessing/Video/MCL/MCLError.h"

namespace NmMediaProcessing {

CmMCLError::CmMCLError(std::string location, MCL::Status status)
    : NmError::CmIntegrityError(std::move(location),
                                "Media Codec Layer (MCL) error " +
                                    std::to_string(static_cast<int32_t>(status)),
                                NmError::CmIntegrityErrorCode::InvalidArgument),
      m_Status(status) {}

void ThrowStatus(MCL::Status status) {
  if (status == MCL::StatusOk) {
    return;
  }
  if (status == MCL::StatusNoMemory) {
    throw CmBadAllocation();
  }
  throw CmMCLError(VZK_LOCATION, status);
}

} // namespace NmMediaProcessing
