// A host's tree over an MPEG-4 recording, end to end, beside the ffmpeg
// command that does the same work: 1280 x 720 MPEG-4 Part 2 with B pictures
// is decoded, scaled to 640 x 360 and encoded as JPEG, every picture, one
// thread each. Both run as programs (vzk and ffmpeg) over the same clip, each
// timed by the processor time its process used, so the load of a shared
// machine does not count. The run ends with the ratio ffmpeg / ours.

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

namespace {

namespace fs = std::filesystem;

constexpr int kPictures = 50;

std::string Quote(const std::string& text) {
  return "'" + text + "'";
}

struct SmMaterial {
  fs::path directory;
  fs::path vzk;
  std::string clip;
  std::string recording;
  std::string tree;
  std::string error;
};

bool System(const std::string& command) {
  return std::system((command + " >/dev/null 2>&1").c_str()) == 0;
}

SmMaterial MakeMaterial() {
  SmMaterial material;
  std::string pattern = (fs::temp_directory_path() / "vzk-bench-XXXXXX").string();
  if (mkdtemp(pattern.data()) == nullptr) {
    material.error = "no scratch directory";
    return material;
  }
  material.directory = pattern;
  material.vzk = fs::read_symlink("/proc/self/exe").parent_path() / "vzk";
  material.clip = (material.directory / "camera.avi").string();
  material.recording = (material.directory / "camera.gbd").string();
  material.tree = (material.directory / "tree.xml").string();
  // A camera-like scene: moving test pattern with sensor noise, two B
  // pictures between anchors, in closed groups (the B pictures that open a
  // group refer back across it and are lost when playback starts a group
  // afresh, which would fail the run).
  if (!System("ffmpeg -nostdin -y -f lavfi -i testsrc2=size=1280x720:rate=25 -frames:v " +
              std::to_string(kPictures) +
              " -vf noise=alls=8:allf=t -pix_fmt yuv420p -c:v mpeg4 -bf 2 -flags +cgop "
              "-sc_threshold 1000000000 -q:v 4 -g 25 " +
              Quote(material.clip))) {
    material.error = "ffmpeg could not make the clip";
    return material;
  }
  if (!System(Quote(material.vzk.string()) + " import " + Quote(material.clip) + " " +
              Quote(material.recording))) {
    material.error = "vzk import of the clip failed";
  }
  std::ofstream tree(material.tree);
  tree << "<toolkit type=\"source\"><provider>vzk</provider><config>"
       << "<jpeg_encoder quality=\"75\">"
       << "<image_resize width=\"640\" height=\"360\">"
       << "<video_decoder>"
       << "<toolkit type=\"source\"><provider>recording</provider>"
       << "<config><recording file=\"" << material.recording << "\"/></config></toolkit>"
       << "</video_decoder></image_resize></jpeg_encoder></config></toolkit>\n";
  return material;
}

const SmMaterial& Material() {
  static const SmMaterial material = MakeMaterial();
  return material;
}

// The processor time (user and system) of a shell command and its children,
// or a negative value when it failed.
double ChildProcessorSeconds(const std::string& command) {
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

void Measure(benchmark::State& state, const std::string& command) {
  const SmMaterial& material = Material();
  if (!material.error.empty()) {
    state.SkipWithError(material.error.c_str());
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
      benchmark::Counter(static_cast<double>(kPictures) * static_cast<double>(state.iterations()),
                         benchmark::Counter::kIsRate);
}

void Ours(benchmark::State& state) {
  const SmMaterial& material = Material();
  Measure(state, Quote(material.vzk.string()) + " run " + Quote(material.tree) + " --quiet");
}

void Ffmpeg(benchmark::State& state) {
  Measure(state, "ffmpeg -nostdin -y -threads 1 -filter_threads 1 -i " + Quote(Material().clip) +
                     " -vf scale=640:360:flags=bilinear -c:v mjpeg -threads 1 -q:v 4 -f null -");
}

BENCHMARK(Ours)
    ->Name("MPEG4Tree/ours")
    ->UseManualTime()
    ->Iterations(3)
    ->Unit(benchmark::kMillisecond);
BENCHMARK(Ffmpeg)
    ->Name("MPEG4Tree/ffmpeg")
    ->UseManualTime()
    ->Iterations(3)
    ->Unit(benchmark::kMillisecond);

} // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  NmBenchmark::CmRatioReporter reporter(true);
  benchmark::RunSpecifiedBenchmarks(&reporter);
  reporter.PrintRatio("MPEG4Tree", "ffmpeg");
  const SmMaterial& material = Material();
  if (!material.error.empty()) {
    std::printf("%s\n", material.error.c_str());
  }
  std::error_code ignored;
  if (!material.directory.empty()) {
    fs::remove_all(material.directory, ignored);
  }
  benchmark::Shutdown();
  return 0;
}
