#include "Codecs/Primitives/Targets.h"

#include <hwy/highway.h>
#include <hwy/targets.h>

namespace NmPrimitives {

std::vector<int64_t> GetCompiledTargets() {
  return hwy::SupportedAndGeneratedTargets();
}

const char* GetTargetName(int64_t target) {
  return hwy::TargetName(target);
}

CmScopedTarget::CmScopedTarget(int64_t target) {
  hwy::SetSupportedTargetsForTest(target);
}

CmScopedTarget::~CmScopedTarget() {
  hwy::SetSupportedTargetsForTest(0);
}

} // namespace NmPrimitives
