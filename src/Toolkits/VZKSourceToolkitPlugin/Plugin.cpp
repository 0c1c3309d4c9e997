// The library's two entries; nothing else is visible outside it.

#include <new>

#include "MediaProcessing/Image/TextOverlayOS.h"
#include "Toolkits/VZKSourceToolkitPlugin/VZKSourceToolkit.h"
#include "vzk/Plugin.h"

namespace {
// Runs when the library is loaded, before any host call.
[[maybe_unused]] const bool textLibrariesKept = (NmMediaProcessing::KeepTextLibrariesLoaded(), true);
} // namespace

VZK_PLUGIN_EXPORT NmToolkit::ImToolkit* CreateInstance(const char* xml) {
  try {
    // Bad configuration is recorded in the object and reported at Connect.
    return new NmToolkit::CmVZKSourceToolkit(xml);
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

VZK_PLUGIN_EXPORT void DeleteInstance(NmToolkit::ImToolkit* toolkit) { delete toolkit; }
