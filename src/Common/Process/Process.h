#pragma once

#include "Common/Error/Error.h"
#include "Common/File/File.h"

namespace NmProcess {

struct CmProcessErrorTag;
using CmProcessError = NmError::CmCodedError<CmProcessErrorTag>;

class CmProcessOS {
public:
  // Path of the module that holds `address`; false if the loader knows none.
  static bool ModulePath(const void* address, std::string& path);
};

class CmProcess {
public:
  // The shared library (or program) that contains this code, not the host.
  static NmFile::CmFile CurrentModule();
  // The longest module path accepted, in UTF-16 units as the format allows.
  static constexpr size_t MaximumPathUnits = 1260;
};

} // namespace NmProcess
