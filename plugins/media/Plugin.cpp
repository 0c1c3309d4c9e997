// The two entries of the media source plug-in.

#include "GuardedSource.h"
#include "MediaSource.h"

VZK_PLUGIN_EXPORT NmToolkit::ImToolkit* CreateInstance(const char* xml) {
  return NmPluginBoundary::CreateGuardedSource<NmMedia::CmMediaSource>(xml);
}

VZK_PLUGIN_EXPORT void DeleteInstance(NmToolkit::ImToolkit* toolkit) noexcept {
  delete toolkit;
}
