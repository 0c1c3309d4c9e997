// The two entries of the media source plug-in.

#include "MediaSource.h"

VZK_PLUGIN_EXPORT NmToolkit::ImToolkit* CreateInstance(const char* xml) {
  try {
    return new NmMedia::CmMediaSource(xml);
  } catch (...) {
    return nullptr;
  }
}

VZK_PLUGIN_EXPORT void DeleteInstance(NmToolkit::ImToolkit* toolkit) {
  delete toolkit;
}
