#pragma once

// A plug-in as a host loads it: the shared object from the build's bin
// directory, entered only through its two exports. It stays mapped until the
// process ends, so that the leak checker can still name the code that
// allocated what it finds, and its exit scan never reads the thread-local
// blocks of libraries the plug-in pulled in after they are gone.

#include <dlfcn.h>

#include <cstdlib>
#include <string>

#include "vzk/Plugin.h"

namespace NmTestSupport {

// Where the build puts the plug-ins: $VZK_BUILD_DIR/bin.
inline std::string BinaryDirectory() {
  const char* build = std::getenv("VZK_BUILD_DIR");
  return std::string(build ? build : ".") + "/bin";
}

struct SmLoadedPlugin {
  explicit SmLoadedPlugin(const std::string& name) {
    const std::string path = BinaryDirectory() + "/" + name + ".so";
    if (void* handle = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE)) {
      create = reinterpret_cast<VzkCreateInstanceFunction>(dlsym(handle, "CreateInstance"));
      destroy = reinterpret_cast<VzkDeleteInstanceFunction>(dlsym(handle, "DeleteInstance"));
    } else {
      error = dlerror();
    }
  }

  VzkCreateInstanceFunction create = nullptr;
  VzkDeleteInstanceFunction destroy = nullptr;
  std::string error; // why it could not be loaded
};

} // namespace NmTestSupport
