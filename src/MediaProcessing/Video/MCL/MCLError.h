#pragma once

#include <cstdint>
#include <string>

#include "Codecs/MCL/Status.h"
#include "Common/Error/Error.h"
#include "MediaProcessing/Image/SPLError.h"

namespace NmMediaProcessing {

// A failing status of a Media Codec Layer decoder, kept with its number. The
// sibling of CmSPLError, which does the same for the plane primitives.
class CmMCLError : public NmError::CmIntegrityError {
public:
  CmMCLError(std::string location, MCL::Status status);
  NmError::CmError* Clone() const override { return new CmMCLError(*this); }
  MCL::Status GetStatus() const { return m_Status; }

private:
  MCL::Status m_Status;
};

// Success returns; running out of memory is the standard allocation failure
// (CmBadAllocation); every other status becomes a CmMCLError. Callers decide
// before calling which statuses are not failures for them.
void ThrowStatus(MCL::Status status);

} // namespace NmMediaProcessing
