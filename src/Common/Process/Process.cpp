#include "Common/Process/Process.h"

#include "Common/Error/Precondition.h"

namespace NmProcess {
namespace {

// UTF-16 units needed for a UTF-8 text: characters above U+FFFF take two.
size_t Utf16Units(const std::string& text) {
  size_t units = 0;
  for (const unsigned char c : text) {
    if ((c & 0xC0) != 0x80) {
      units += (c >= 0xF0) ? 2 : 1;
    }
  }
  return units;
}

} // namespace

NmFile::CmFile CmProcess::CurrentModule() {
  std::string path;
  VZK_REQUIRE_AS(
      CmProcessError,
      CmProcessOS::ModulePath(reinterpret_cast<const void*>(&CmProcess::CurrentModule), path),
      "Failed to get parent module handle!", 3);
  const size_t units = Utf16Units(path);
  VZK_REQUIRE_AS(CmProcessError, units != 0 && units < MaximumPathUnits,
                 "Failed to get retrieve an un-truncated module name! " + std::to_string(units) +
                     " characters received.",
                 3);
  return NmFile::CmFile(path);
}

} // namespace NmProcess
