#pragma once

#include <benchmark/benchmark.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "Codecs/Primitives/Targets.h"

// Times a kernel on each compiled Highway target that this CPU runs, not only
// on the one that dispatch picks, so that a run shows what each target gains
// over the next and over the plain reference. Benchmarks are named
// "task/<target>" ("CopyPlane/AVX2"), beside "task/ours" and the peers.
namespace NmBenchmark {

inline std::vector<int64_t> RunnableTargets() {
  std::vector<int64_t> runnable;
  for (const int64_t target : NmPrimitives::GetCompiledTargets()) {
    if (NmPrimitives::IsTargetSupported(target)) {
      runnable.push_back(target);
    }
  }
  return runnable;
}

// `body` calls the dispatched kernel; dispatch is held on each target in turn.
inline void RegisterOnEveryTarget(const std::string& task, const std::function<void()>& body) {
  for (const int64_t target : RunnableTargets()) {
    const std::string name = task + "/" + NmPrimitives::GetTargetName(target);
    benchmark::RegisterBenchmark(name.c_str(), [body, target](benchmark::State& state) {
      const NmPrimitives::CmScopedTarget scope(target);
      for (auto _ : state) {
        body();
        benchmark::ClobberMemory();
      }
    })->Unit(benchmark::kMicrosecond);
  }
}

} // namespace NmBenchmark
