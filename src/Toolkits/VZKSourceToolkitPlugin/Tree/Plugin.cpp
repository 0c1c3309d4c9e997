// The library's two entries; nothing else is visible outside it.

#include "vzk/Plugin.h"
#include "MediaProcessing/Image/TextOverlayOS.h"
#include "Toolkits/VZKSourceToolkitPlugin/Tree/HostRootToolkit.h"

namespace {
// Runs when the library is loaded, before any host call.
[[maybe_unused]] const bool textLibrariesKept =
    (NmMediaProcessing::KeepTextLibrariesLoaded(), true);
} // namespace

VZK_PLUGIN_EXPORT NmToolkit::ImToolkit* CreateInstance(const char* xml) {
  try {
    // Bad configuration, and running out of memory while building the tree,
    // are recorded in the object and reported at Connect.
    return new NmToolkit::CmHostRootToolkit(xml);
  } catch (...) {
    // No memory even for the root itself.
    return nullptr;
  }
}

VZK_PLUGIN_EXPORT void DeleteInstance(NmToolkit::ImToolkit* toolkit) noexcept {
  delete toolkit;
}
