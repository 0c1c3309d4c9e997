#include <dlfcn.h>
#include <unistd.h>

#include <climits>
#include <cstdlib>

#include "Common/Process/Process.h"

namespace NmProcess {

bool CmProcessOS::ModulePath(const void* address, std::string& path) {
  Dl_info info{};
  if (dladdr(address, &info) == 0 || info.dli_fname == nullptr) {
    return false;
  }
  // The loader keeps the name as it was given, possibly relative to a working
  // directory that has changed since; resolve it, and fall back to the
  // running program's own link when the code lies in the executable.
  char resolved[PATH_MAX];
  if (info.dli_fname[0] != '\0' && realpath(info.dli_fname, resolved) != nullptr) {
    path = resolved;
    return true;
  }
  const ssize_t length = readlink("/proc/self/exe", resolved, sizeof resolved - 1);
  if (length <= 0) {
    path = info.dli_fname;
    return true;
  }
  path.assign(resolved, static_cast<size_t>(length));
  return true;
}

} // namespace NmProcess
