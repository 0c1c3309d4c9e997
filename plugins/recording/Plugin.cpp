// The two entries of the recording source plug-in.

#include "RecordingSource.h"

VZK_PLUGIN_EXPORT NmToolkit::ImToolkit* CreateInstance(const char* xml) {
  try {
    return new NmRecording::CmRecordingSource(xml);
  } catch (...) {
    return nullptr;
  }
}

VZK_PLUGIN_EXPORT void DeleteInstance(NmToolkit::ImToolkit* toolkit) {
  delete toolkit;
}
