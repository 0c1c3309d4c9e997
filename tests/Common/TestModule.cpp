// Loaded by the library and process tests; exports plain C symbols only.
#include <cstring>
#include <string>

#include "Common/Process/Process.h"

extern "C" __attribute__((visibility("default"))) int VzkTestModuleAnswer() {
  return 42;
}

// Copies the path of the module that holds this code into `buffer`; returns
// false if it does not fit.
extern "C" __attribute__((visibility("default"))) bool VzkTestModulePath(char* buffer,
                                                                         size_t size) {
  const std::string path = NmProcess::CmProcess::CurrentModule().GetPath();
  if (path.size() + 1 > size) {
    return false;
  }
  std::memcpy(buffer, path.c_str(), path.size() + 1);
  return true;
}
