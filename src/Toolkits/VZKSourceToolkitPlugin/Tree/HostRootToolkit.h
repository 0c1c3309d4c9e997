#pragma once

#include "Toolkits/VZKSourceToolkitPlugin/Tree/SourceToolkitOperations.h"
#include "Toolkits/VZKSourceToolkitPlugin/Tree/VZKSourceToolkit.h"

namespace NmToolkit {

// The root that CreateInstance hands to a host. It is the root of the tree as
// any other, and each operation of the interfaces runs behind the host
// boundary: only toolkit errors reach the host, other failures become the
// interfaces' answer for them.
class CmHostRootToolkit final : public CmVZKSourceToolkit {
public:
  explicit CmHostRootToolkit(const char* xml) : CmVZKSourceToolkit(xml) {}

  VZK_SOURCE_TOOLKIT_OPERATIONS;

  VZK_LIVE_SOURCE_TOOLKIT_OPERATIONS;

  VZK_PLAYBACK_SOURCE_TOOLKIT_OPERATIONS;
};

} // namespace NmToolkit
