// Compiles against the installed headers only and loads the installed plug-in.
#include <dlfcn.h>

#include <cstdio>
#include <string>

#include "vzk/vzk.h"

int main(int argc, char** argv) {
  if (argc != 2) {
    return 2;
  }
  void* library = dlopen(argv[1], RTLD_NOW | RTLD_LOCAL);
  if (!library) {
    std::fprintf(stderr, "%s\n", dlerror());
    return 1;
  }
  auto create = reinterpret_cast<VzkCreateInstanceFunction>(dlsym(library, "CreateInstance"));
  auto destroy = reinterpret_cast<VzkDeleteInstanceFunction>(dlsym(library, "DeleteInstance"));
  NmToolkit::ImToolkit* root = create("<toolkit><config><unknown/></config></toolkit>");
  int result = 1;
  try {
    dynamic_cast<NmToolkit::ImSourceToolkit&>(*root).Connect(0);
  } catch (const NmToolkit::ImConfigurationError& error) {
    result = std::string(error.what()) == "Could not parse toolkit configuration xml!" ? 0 : 1;
  }
  destroy(root);
  dlclose(library);
  return result;
}
