// Plug-ins that break the contract in one way each, chosen at compile time.

#include "vzk/vzk.h"

namespace {

int deletedCount = 0;

// A toolkit that is no source toolkit.
class NotASource : public NmToolkit::ImToolkit {
public:
  ~NotASource() override { ++deletedCount; }
};

} // namespace

#if defined(BROKEN_NULL_CREATE)
VZK_PLUGIN_EXPORT NmToolkit::ImToolkit* CreateInstance(const char*) { return nullptr; }
VZK_PLUGIN_EXPORT void DeleteInstance(NmToolkit::ImToolkit* toolkit) { delete toolkit; }
#elif defined(BROKEN_NO_DELETE)
VZK_PLUGIN_EXPORT NmToolkit::ImToolkit* CreateInstance(const char*) { return new NotASource; }
#elif defined(BROKEN_NOT_SOURCE)
VZK_PLUGIN_EXPORT NmToolkit::ImToolkit* CreateInstance(const char*) { return new NotASource; }
VZK_PLUGIN_EXPORT void DeleteInstance(NmToolkit::ImToolkit* toolkit) { delete toolkit; }
#endif

VZK_PLUGIN_EXPORT int BrokenPluginDeletedCount() { return deletedCount; }
