#pragma once

#include <benchmark/benchmark.h>

#include <cstdio>
#include <map>
#include <string>
#include <vector>

// Keeps each run's time per iteration so that a run can close its report with
// the ratios of a peer's time to ours, both measured in this very run.
namespace NmBenchmark {

class CmRatioReporter : public benchmark::ConsoleReporter {
public:
  // With manualTime the benchmarks measure their own time (for example the
  // processor time of a child process), which the library reports as real
  // time. Otherwise the library's processor time counts: the machine is
  // shared, and waiting is not work.
  explicit CmRatioReporter(bool manualTime = false) : m_ManualTime(manualTime) {}

  void ReportRuns(const std::vector<Run>& runs) override {
    ConsoleReporter::ReportRuns(runs);
    for (const Run& run : runs) {
      if (run.run_type == Run::RT_Iteration && run.iterations > 0) {
        times[run.run_name.function_name] =
            (m_ManualTime ? run.real_accumulated_time : run.cpu_accumulated_time) /
            static_cast<double>(run.iterations);
      }
    }
  }

  // Prints "name: ratio peer / ours = r" when both were measured.
  void PrintRatio(const std::string& name, const std::string& peer) {
    const std::string ours = name + "/ours";
    const std::string theirs = name + "/" + peer;
    if (times.count(ours) != 0 && times.count(theirs) != 0 && times[ours] > 0) {
      std::printf("%s: ratio %s / ours = %.2f\n", name.c_str(), peer.c_str(),
                  times[theirs] / times[ours]);
    }
  }

  std::map<std::string, double> times;

private:
  bool m_ManualTime;
};

} // namespace NmBenchmark
