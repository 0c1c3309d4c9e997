#include "Toolkits/VZKSourceToolkitPlugin/Tree/ToolkitGlobals.h"

namespace NmToolkit {
namespace {

// Built at library load, before CreateInstance can be called; the factory is
// destroyed first at unload and unloads every plug-in it loaded.
NmThread::CmCriticalSection toolkitFactoryLock;
CmToolkitFactory toolkitFactory;

} // namespace

CmToolkitFactory& ToolkitFactory() {
  return toolkitFactory;
}
NmThread::CmCriticalSection& ToolkitFactoryLock() {
  return toolkitFactoryLock;
}

} // namespace NmToolkit
