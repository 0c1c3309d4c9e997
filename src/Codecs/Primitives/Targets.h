#pragma once

#include <cstdint>
#include <vector>

namespace NmPrimitives {

// Every Highway target compiled into the kernels, whether or not this CPU can
// run it, best first: tests name each one, and skip those the CPU lacks.
std::vector<int64_t> GetCompiledTargets();
bool IsTargetSupported(int64_t target);
const char* GetTargetName(int64_t target);

// The target that run-time dispatch chooses now. A kernel library whose
// dispatch did not follow CmScopedTarget would test one target many times
// over; this lets the caller see that it does.
int64_t GetDispatchedTarget();

// Restricts run-time dispatch to one target for its lifetime, so that a test
// or a benchmark can hold each compiled version against the reference. The
// CPU must support the target.
class CmScopedTarget {
public:
  explicit CmScopedTarget(int64_t target);
  ~CmScopedTarget();
  CmScopedTarget(const CmScopedTarget&) = delete;
  CmScopedTarget& operator=(const CmScopedTarget&) = delete;
};

} // namespace NmPrimitives
