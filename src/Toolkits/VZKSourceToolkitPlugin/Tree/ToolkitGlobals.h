#pragma once

#include "Common/Thread/CriticalSection.h"
#include "Toolkits/VZKSourceToolkitPlugin/Tree/ToolkitFactory.h"

namespace NmToolkit {

// The two process-wide objects: they exist from library load to unload.
CmToolkitFactory& ToolkitFactory();
NmThread::CmCriticalSection& ToolkitFactoryLock();

} // namespace NmToolkit
