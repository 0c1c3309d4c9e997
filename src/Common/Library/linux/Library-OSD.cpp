#include <dlfcn.h>

#include "Common/Library/Library.h"

namespace NmLibrary {

void* CmLibraryOS::Open(const std::string& path, const std::string& location) {
  dlerror();
  void* handle = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (handle == nullptr) {
    const char* text = dlerror();
    throw NmError::CmSystemError(location, "LoadLibrary failed!", 0, text);
  }
  return handle;
}

void CmLibraryOS::Close(void* handle, const std::string& location) {
  dlerror();
  if (dlclose(handle) != 0) {
    const char* text = dlerror();
    throw NmError::CmSystemError(location, "FreeLibrary failed!", 0, text);
  }
}

void* CmLibraryOS::Symbol(void* handle, const std::string& name) {
  return dlsym(handle, name.c_str());
}

} // namespace NmLibrary
