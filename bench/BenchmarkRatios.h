#pragma once

#include <benchmark/benchmark.h>

#include <cstdio>
#include <map>
#include <string>
#include <vector>

// Keeps each benchmark's time per iteration so that a run can close its
// report with the ratios of a peer's time to ours, both measured in this very
// run. Benchmarks are named "task/who": "Decode420/ours", "Decode420/turbo".
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
      // With repetitions the median stands for a benchmark; it comes after
      // the single runs and replaces them.
      const bool median = run.run_type == Run::RT_Aggregate && run.aggregate_name == "median";
      if (!median && !(run.run_type == Run::RT_Iteration && run.iterations > 0)) {
        continue;
      }
      const double adjusted = m_ManualTime ? run.GetAdjustedRealTime() : run.GetAdjustedCPUTime();
      m_Seconds[run.run_name.function_name] =
          adjusted / benchmark::GetTimeUnitMultiplier(run.time_unit);
    }
  }

  // Prints "task: ratio peer / ours = r" when both were measured.
  void PrintRatio(const std::string& task, const std::string& peer) const {
    const double ratio = Ratio(task, "ours", peer);
    if (ratio > 0) {
      std::printf("%s: ratio %s / ours = %.2f\n", task.c_str(), peer.c_str(), ratio);
    }
  }

  // A table of every task that `ours` ran against each of the peers.
  void PrintRatios(const std::string& ours, const std::vector<std::string>& peers) const {
    std::printf("\nspeed of %s relative to each peer (peer time / %s time):\n", ours.c_str(),
                ours == "ours" ? "our" : ours.c_str());
    const std::string suffix = "/" + ours;
    for (const auto& [name, seconds] : m_Seconds) {
      if (name.size() <= suffix.size() ||
          name.compare(name.size() - suffix.size(), suffix.size(), suffix) != 0) {
        continue;
      }
      const std::string task = name.substr(0, name.size() - suffix.size());
      for (const std::string& peer : peers) {
        const double ratio = Ratio(task, ours, peer);
        if (ratio > 0) {
          std::printf("  %-20s vs %-9s %6.2f\n", task.c_str(), peer.c_str(), ratio);
        }
      }
    }
  }

private:
  // Peer time over ours, or 0 when either was not measured.
  double Ratio(const std::string& task, const std::string& ours, const std::string& peer) const {
    const auto mine = m_Seconds.find(task + "/" + ours);
    const auto theirs = m_Seconds.find(task + "/" + peer);
    if (mine == m_Seconds.end() || theirs == m_Seconds.end() || mine->second <= 0) {
      return 0;
    }
    return theirs->second / mine->second;
  }

  bool m_ManualTime;
  std::map<std::string, double> m_Seconds;
};

} // namespace NmBenchmark
