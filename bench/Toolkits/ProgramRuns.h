#pragma once

// What the benchmarks of whole trees share: a scratch directory, the vzk
// program beside the benchmark, the tree file a host would write, and the
// processor time of a program run, so that the load of a shared machine
// does not count.

#include <benchmark/benchmark.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "BenchmarkRatios.h"

namespace NmProgramRuns {

namespace fs = std::filesystem;

inline std::string Quote(const std::string& text) {
  return "'" + text + "'";
}

inline bool System(const std::string& command) {
  return std::system((command + " >/dev/null 2>&1").c_str()) == 0;
}

// The scratch directory of one run, with the recording, the tree and the
// vzk program that both benchmarks of a pair need; `error` says what could
// not be made.
struct SmMaterial {
  fs::path directory;
  fs::path vzk;
  std::string recording;
  std::string tree;
  std::string error;

  SmMaterial() {
    std::string pattern = (fs::temp_directory_path() / "vzk-bench-XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr) {
      error = "no scratch directory";
      return;
    }
    directory = pattern;
    vzk = fs::read_symlink("/proc/self/exe").parent_path() / "vzk";
    recording = (directory / "camera.gbd").string();
    tree = (directory / "tree.xml").string();
  }

  // Imports `clip` into the recording and writes the tree that decodes it,
  // scales it to 640 x 360 and encodes it as JPEG at `quality`.
  void ImportAndWriteTree(const std::string& clip, int quality,
                          const std::string& decoderAttributes) {
    if (!error.empty()) {
      return;
    }
    if (!System(Quote(vzk.string()) + " import " + Quote(clip) + " " + Quote(recording))) {
      error = "vzk import of " + clip + " failed";
    }
    std::ofstream out(tree);
    out << "<toolkit type=\"source\"><provider>vzk</provider><config>"
        << "<jpeg_encoder quality=\"" << quality << "\">"
        << "<image_resize width=\"640\" height=\"360\">"
        << "<video_decoder" << decoderAttributes << ">"
        << "<toolkit type=\"source\"><provider>recording</provider>"
        << "<config><recording file=\"" << recording << "\"/></config></toolkit>"
        << "</video_decoder></image_resize></jpeg_encoder></config></toolkit>\n";
  }

  void Remove() const {
    std::error_code ignored;
    if (!directory.empty()) {
      fs::remove_all(directory, ignored);
    }
  }
};

// The processor time (user and system) of a shell command and its children,
// or a negative value when it failed.
inline double ChildProcessorSeconds(const std::string& command) {
  const pid_t pid = fork();
  if (pid == 0) {
    execl("/bin/sh", "sh", "-c", (command + " >/dev/null 2>&1").c_str(), nullptr);
    _exit(127);
  }
  int status = 0;
  rusage usage{};
  if (pid < 0 || wait4(pid, &status, 0, &usage) != pid || !WIFEXITED(status) ||
      WEXITSTATUS(status) != 0) {
    return -1.0;
  }
  const auto seconds = [](const timeval& t) { return t.tv_sec + t.tv_usec / 1e6; };
  return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

// Times the command by its processor time, once an iteration.
inline void Measure(benchmark::State& state, const std::string& error, const std::string& command,
                    int pictures) {
  if (!error.empty()) {
    state.SkipWithError(error.c_str());
    return;
  }
  for (auto _ : state) {
    const double seconds = ChildProcessorSeconds(command);
    if (seconds < 0) {
      state.SkipWithError(("failed: " + command).c_str());
      return;
    }
    state.SetIterationTime(seconds);
  }
  state.counters["pictures/s"] =
      benchmark::Counter(static_cast<double>(pictures) * static_cast<double>(state.iterations()),
                         benchmark::Counter::kIsRate);
}

// The host's run of the tree, every item pulled and dropped.
inline std::string VzkRunCommand(const SmMaterial& material) {
  return Quote(material.vzk.string()) + " run " + Quote(material.tree) + " --quiet";
}

// The tree's job on the ffmpeg command line, one thread throughout: decode,
// scale to 640 x 360, encode every picture as JPEG at the quantiser scale.
inline std::string FfmpegTreeCommand(const std::string& clip, int qscale) {
  return "ffmpeg -nostdin -y -threads 1 -filter_threads 1 -i " + Quote(clip) +
         " -vf scale=640:360:flags=bilinear -c:v mjpeg -threads 1 -q:v " + std::to_string(qscale) +
         " -f null -";
}

// Registers NAME/ours and NAME/ffmpeg, three runs each, timed by hand.
template <typename Ours, typename Ffmpeg>
void RegisterPair(const std::string& name, Ours ours, Ffmpeg ffmpeg) {
  for (const auto& [side, function] :
       {std::pair<std::string, void (*)(benchmark::State&)>{"ours", ours}, {"ffmpeg", ffmpeg}}) {
    benchmark::RegisterBenchmark((name + "/" + side).c_str(), function)
        ->UseManualTime()
        ->Iterations(3)
        ->Unit(benchmark::kMillisecond);
  }
}

// Runs the pair and ends with the ratio ffmpeg / ours.
inline void RunPair(int* argc, char** argv, const std::string& name) {
  benchmark::Initialize(argc, argv);
  NmBenchmark::CmRatioReporter reporter(true);
  benchmark::RunSpecifiedBenchmarks(&reporter);
  reporter.PrintRatio(name, "ffmpeg");
}

// The whole run of a tree benchmark over the clip that Clip (derived from
// SmMaterial, with a `clip` path) makes once: our tree and the ffmpeg
// command over the same pictures, the ratio, and the scratch removed.
template <typename Clip>
int RunTreeBenchmark(int* argc, char** argv, const char* name, int pictures) {
  static const Clip material;
  static const int count = pictures;
  const auto ours = [](benchmark::State& state) {
    Measure(state, material.error, VzkRunCommand(material), count);
  };
  const auto ffmpeg = [](benchmark::State& state) {
    Measure(state, material.error, FfmpegTreeCommand(material.clip, 4), count);
  };
  RegisterPair(name, +ours, +ffmpeg);
  RunPair(argc, argv, name);
  if (!material.error.empty()) {
    std::printf("%s\n", material.error.c_str());
  }
  material.Remove();
  benchmark::Shutdown();
  return 0;
}

} // namespace NmProgramRuns
