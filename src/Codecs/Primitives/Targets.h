#pragma once

#include <cstdint>
#include <vector>

namespace NmPrimitives {

// The Highway targets compiled into the kernels that this CPU can run.
std::vector<int64_t> GetCompiledTargets();
const char* GetTargetName(int64_t target);

// Restricts run-time dispatch to one target for its lifetime, so that a test
// or a benchmark can hold each compiled version against the reference.
class CmScopedTarget {
public:
  explicit CmScopedTarget(int64_t target);
  ~CmScopedTarget();
  CmScopedTarget(const CmScopedTarget&) = delete;
  CmScopedTarget& operator=(const CmScopedTarget&) = delete;
};

} // namespace NmPrimitives
