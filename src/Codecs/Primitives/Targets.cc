// Compiled once per target like the kernels, so that dispatch here chooses
// among exactly the targets that the kernels were built for.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "Codecs/Primitives/Targets.cc"
#include <hwy/foreach_target.h> // IWYU pragma: keep
#include <hwy/highway.h>
#include <hwy/targets.h>

#include "Codecs/Primitives/Targets.h"

HWY_BEFORE_NAMESPACE();
namespace NmPrimitives {
namespace HWY_NAMESPACE {

int64_t CurrentTarget() {
  return HWY_TARGET;
}

} // namespace HWY_NAMESPACE
} // namespace NmPrimitives
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace NmPrimitives {

HWY_EXPORT(CurrentTarget);

namespace {
// What the CPU offers, read before any test restriction can mask it.
int64_t CpuTargets() {
  static const int64_t targets = hwy::SupportedTargets();
  return targets;
}
} // namespace

std::vector<int64_t> GetCompiledTargets() {
  std::vector<int64_t> targets;
  // Better targets have lower bits.
  for (int64_t left = HWY_TARGETS; left != 0; left &= left - 1) {
    targets.push_back(left & -left);
  }
  return targets;
}

bool IsTargetSupported(int64_t target) {
  return (CpuTargets() & target) != 0;
}

const char* GetTargetName(int64_t target) {
  return hwy::TargetName(target);
}

int64_t GetDispatchedTarget() {
  return HWY_DYNAMIC_DISPATCH(CurrentTarget)();
}

CmScopedTarget::CmScopedTarget(int64_t target) {
  CpuTargets();
  hwy::SetSupportedTargetsForTest(target);
}

CmScopedTarget::~CmScopedTarget() {
  hwy::SetSupportedTargetsForTest(0);
}

} // namespace NmPrimitives
#endif
