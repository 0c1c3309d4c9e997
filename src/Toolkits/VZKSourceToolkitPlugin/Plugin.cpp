// The library's two entries; nothing else is visible outside it.

#include <new>

#include "Toolkits/VZKSourceToolkitPlugin/VZKSourceToolkit.h"
#include "vzk/Plugin.h"

VZK_PLUGIN_EXPORT NmToolkit::ImToolkit* CreateInstance(const char* xml) {
  try {
    // Bad configuration is recorded in the object and reported at Connect.
    return new NmToolkit::CmVZKSourceToolkit(xml);
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

VZK_PLUGIN_EXPORT void DeleteInstance(NmToolkit::ImToolkit* toolkit) { delete toolkit; }
