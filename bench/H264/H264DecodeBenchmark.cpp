// Our H.264 decoder beside libavcodec's, each with one thread and with two,
// in the same run, on 300 pictures of 1080p: Baseline, and High without and
// with CABAC (B pictures, the 8x8 transform, weighted prediction), and 1080i in frame and field
// macroblock pairs, High with CABAC. x264 makes the streams on the
// first run; they are kept beside the benchmark. Both decoders get the same access units from
// memory and produce every picture. The run ends with the ratios, libavcodec time / our time:
// processor time with one thread, wall time with two (tasks named "....2threads"), where the
// processor time would add up both threads.

extern "C" {
#include <libavcodec/avcodec.h>
}

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "BenchmarkRatios.h"
#include "H264/H264BenchmarkStreams.h"

namespace {

using NmH264Bench::Packets;

// Processor time of the calling thread alone, in milliseconds.
double CallerMilliseconds() {
  timespec now{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) * 1e3 + static_cast<double>(now.tv_nsec) * 1e-6;
}

// With two threads, "caller_ms" is the processor time that the decoding
// thread keeps; on a loaded machine it tells what the wall time would be
// with a core for each thread.
void Ours(benchmark::State& state, const std::string& name, int threads) {
  const auto packets = Packets(name);
  int pictures = 0;
  const double callerStart = CallerMilliseconds();
  for (auto _ : state) {
    pictures = NmH264Bench::DecodeWithOurs(packets, threads);
  }
  state.counters["pictures"] = pictures;
  state.counters["caller_ms"] =
      (CallerMilliseconds() - callerStart) / static_cast<double>(state.iterations());
}

// libavcodec as it threads by default: frame and slice threads.
void Libavcodec(benchmark::State& state, const std::string& name, int threads) {
  const auto packets = Packets(name);
  int pictures = 0;
  for (auto _ : state) {
    pictures = 0;
    NmH264Bench::DecodeWithLibavcodec(packets, threads, [&](const AVFrame&) {
      ++pictures;
      return true;
    });
  }
  state.counters["pictures"] = pictures;
}

// Wall time instead of processor time for the tasks that use two threads.
class CmThreadAwareReporter : public NmBenchmark::CmRatioReporter {
public:
  void ReportRuns(const std::vector<Run>& runs) override {
    std::vector<Run> adjusted = runs;
    for (Run& run : adjusted) {
      if (run.run_name.function_name.find(".2threads/") != std::string::npos) {
        run.cpu_accumulated_time = run.real_accumulated_time;
      }
    }
    CmRatioReporter::ReportRuns(adjusted);
  }
};

} // namespace

int main(int argc, char** argv) {
  for (const NmH264Bench::SmStream& stream : NmH264Bench::Streams) {
    for (const int threads : {1, 2}) {
      const std::string name = std::string(stream.name) + (threads == 1 ? "" : ".2threads");
      benchmark::RegisterBenchmark((name + "/ours").c_str(), Ours, stream.name, threads)
          ->Unit(benchmark::kMillisecond)
          ->Iterations(1);
      benchmark::RegisterBenchmark((name + "/libavcodec").c_str(), Libavcodec, stream.name, threads)
          ->Unit(benchmark::kMillisecond)
          ->Iterations(1);
    }
  }
  benchmark::Initialize(&argc, argv);
  CmThreadAwareReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  reporter.PrintRatios("ours", {"libavcodec"});
  benchmark::Shutdown();
  return 0;
}
