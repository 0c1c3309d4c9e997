#pragma once

// Kernel tests draw new random inputs on every run, so that over many runs
// they see far more cases than any fixed list; each run's seed is printed and
// attached to every failure, and VZK_TEST_SEED=<seed> replays it. A test's
// generator is seeded from the run's seed and the test's full name, so a
// single test replays alone with --gtest_filter.
//
// Tests of vector kernels run once per compiled Highway target as their own
// named case ("PlaneFlip.MatchesTheReference/AVX2"), with dispatch held on
// that target, so a fault on one target neither hides nor is hidden by the
// others. Targets this CPU lacks are skipped by name.

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <optional>
#include <random>
#include <string>

#include "Codecs/Primitives/Targets.h"

namespace NmKernelTest {

inline uint32_t RunSeed() {
  static const uint32_t seed = [] {
    if (const char* chosen = std::getenv("VZK_TEST_SEED"); chosen != nullptr && *chosen != 0) {
      return static_cast<uint32_t>(std::strtoul(chosen, nullptr, 0));
    }
    return static_cast<uint32_t>(std::random_device()() ^
                                 std::chrono::steady_clock::now().time_since_epoch().count());
  }();
  return seed;
}

// Seeds a test's generator and keeps the replay hint on every failure of it.
class CmSeededRandom {
public:
  void Start() {
    const ::testing::TestInfo* test = ::testing::UnitTest::GetInstance()->current_test_info();
    const std::string name = std::string(test->test_suite_name()) + "." + test->name();
    std::seed_seq sequence{RunSeed(), static_cast<uint32_t>(std::hash<std::string>()(name))};
    m_Random.seed(sequence);
    const std::string hint =
        "replay with VZK_TEST_SEED=" + std::to_string(RunSeed()) + " --gtest_filter=" + name;
    std::printf("[   SEED   ] %s\n", hint.c_str());
    m_Trace.emplace(__FILE__, __LINE__, hint);
  }
  std::mt19937& Get() { return m_Random; }

private:
  std::mt19937 m_Random;
  std::optional<::testing::ScopedTrace> m_Trace;
};

// A test with a freshly seeded generator.
class CmSeededTest : public ::testing::Test {
protected:
  void SetUp() override { m_Random.Start(); }
  std::mt19937& Random() { return m_Random.Get(); }

private:
  CmSeededRandom m_Random;
};

// One case per compiled target; the dispatched kernels run that target's code.
class CmTargetTest : public ::testing::TestWithParam<int64_t> {
protected:
  void SetUp() override {
    const int64_t target = GetParam();
    if (!NmPrimitives::IsTargetSupported(target)) {
      GTEST_SKIP() << "this CPU cannot run " << NmPrimitives::GetTargetName(target);
    }
    m_Target.emplace(target);
    ASSERT_EQ(NmPrimitives::GetDispatchedTarget(), target)
        << "dispatch does not follow the chosen target " << NmPrimitives::GetTargetName(target);
    m_Random.Start();
  }
  std::mt19937& Random() { return m_Random.Get(); }

private:
  std::optional<NmPrimitives::CmScopedTarget> m_Target;
  CmSeededRandom m_Random;
};

inline std::string TargetCaseName(const ::testing::TestParamInfo<int64_t>& info) {
  return NmPrimitives::GetTargetName(info.param);
}

} // namespace NmKernelTest

// Declares the suite SUITE whose TEST_P cases run on every compiled target.
#define VZK_TEST_ON_EVERY_TARGET(SUITE)                                                            \
  class SUITE : public ::NmKernelTest::CmTargetTest {};                                            \
  INSTANTIATE_TEST_SUITE_P(, SUITE, ::testing::ValuesIn(::NmPrimitives::GetCompiledTargets()),     \
                           ::NmKernelTest::TargetCaseName)
