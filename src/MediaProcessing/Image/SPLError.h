#pragma once

#include <cstdint>
#include <new>

#include "Common/Error/Error.h"

namespace NmMediaProcessing {

// A failing status of a plane primitive, kept with its number.
class CmSPLError : public NmError::CmIntegrityError {
public:
  CmSPLError(std::string location, int32_t status);
  NmError::CmError* Clone() const override { return new CmSPLError(*this); }
  int32_t GetStatus() const { return m_Status; }

private:
  int32_t m_Status;
};

// The standard allocation failure, with the text that callers show.
class CmBadAllocation : public std::bad_alloc {
public:
  const char* what() const noexcept override { return "bad allocation"; }
};

// Negative statuses are failures: -9 and -4 mean memory ran out, all others
// become a CmSPLError. Zero and the positive warnings pass.
void ThrowStatus(int32_t status);

} // namespace NmMediaProcessing
