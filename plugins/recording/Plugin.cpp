// The two entries of the recording source plug-in.

#include "GuardedSource.h"
#include "RecordingSource.h"

VZK_PLUGIN_EXPORT NmToolkit::ImToolkit* CreateInstance(const char* xml) {
  return NmPluginBoundary::CreateGuardedSource<NmRecording::CmRecordingSource>(xml);
}

VZK_PLUGIN_EXPORT void DeleteInstance(NmToolkit::ImToolkit* toolkit) noexcept {
  delete toolkit;
}
