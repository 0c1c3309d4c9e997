// The example tree of a host, end to end, beside the ffmpeg command that does
// the same work: a recording of 1920 x 1080 camera-like JPEG pictures is
// decoded, scaled to 640 x 360 and encoded as JPEG again, every picture, one
// thread each. Both run as programs (vzk and ffmpeg) over the same pictures,
// and each is timed by the processor time its process used, so the load of a
// shared machine does not count. The run ends with the ratio ffmpeg / ours and
// the mean output size of each, which shows whether the qualities compare.

#include <turbojpeg.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <random>
#include <string>
#include <vector>

#include "ProgramRuns.h"

namespace {

using namespace NmProgramRuns;

constexpr int kWidth = 1920;
constexpr int kHeight = 1080;
constexpr int kPictures = 50;
constexpr int kQuality = 75;

// ffmpeg's MJPEG encoder has no IJG quality scale; the run picks the
// quantiser scale whose pictures come closest in size to ours.
constexpr int kFfmpegQscales[] = {2, 3, 4, 5, 6, 8};

// Pictures as a camera delivers them: gradients, an object that moves, edges
// and sensor noise. The noise is drawn once and shifted per picture.
std::vector<uint8_t> CameraPicture(int index, const std::vector<int8_t>& noise) {
  std::vector<uint8_t> rgb(static_cast<size_t>(kWidth) * kHeight * 3);
  const double cx = 500.0 + 18.0 * index;
  const double cy = 420.0 + 6.0 * index;
  const size_t shift = static_cast<size_t>(index) * 7919;
  for (int y = 0; y < kHeight; ++y) {
    for (int x = 0; x < kWidth; ++x) {
      double base[3] = {60 + 120.0 * y / kHeight, 90 + 80.0 * x / kWidth, 170 - 90.0 * y / kHeight};
      if (std::hypot(x - cx, y - cy) < 260) {
        base[0] += 70;
        base[1] += 50;
        base[2] -= 40;
      }
      if ((x + index) % 97 < 9) {
        for (double& b : base) {
          b *= 0.4;
        }
      }
      const double texture = 12 * std::sin(x * 0.31 + y * 0.17) * std::cos(y * 0.23);
      const size_t at = static_cast<size_t>(y) * kWidth + x;
      for (int c = 0; c < 3; ++c) {
        const int grain = noise[(at * 3 + c + shift) % noise.size()];
        rgb[at * 3 + c] =
            static_cast<uint8_t>(std::clamp(std::lround(base[c] + texture + grain), 0L, 255L));
      }
    }
  }
  return rgb;
}

// What both programs read: the pictures as one MJPEG stream for ffmpeg, and
// the recording that vzk import makes of it for the tree.
struct SmPictures : SmMaterial {
  std::string stream = (directory / "camera.mjpeg").string();
  int ffmpegQscale = 0;

  SmPictures();
};

std::string VzkCommand(const SmPictures& material, const std::string& out);
std::string FfmpegCommand(const SmPictures& material, const std::string& out);
std::pair<size_t, double> Outputs(const std::string& command, const fs::path& directory);

// The quantiser scale of ffmpeg whose pictures are closest in mean size to
// those of the tree, which is as near to the same quality as the two come.
int MatchingQscale(SmPictures& material) {
  const fs::path ours = material.directory / "ours";
  const double target = Outputs(VzkCommand(material, ours.string()), ours).second;
  int best = 0;
  double bestDistance = 0;
  for (const int qscale : kFfmpegQscales) {
    material.ffmpegQscale = qscale;
    const fs::path theirs = material.directory / ("ffmpeg-" + std::to_string(qscale));
    const double size = Outputs(FfmpegCommand(material, theirs.string()), theirs).second;
    if (size > 0 && (best == 0 || std::abs(size - target) < bestDistance)) {
      best = qscale;
      bestDistance = std::abs(size - target);
    }
  }
  return target > 0 ? best : 0;
}

SmPictures::SmPictures() {
  if (!error.empty()) {
    return;
  }
  std::mt19937 random(11);
  std::normal_distribution<double> grain(0.0, 4.0);
  std::vector<int8_t> noise(static_cast<size_t>(kWidth) * kHeight * 3 + 1);
  for (int8_t& n : noise) {
    n = static_cast<int8_t>(std::clamp(std::lround(grain(random)), -127L, 127L));
  }
  tjhandle handle = tjInitCompress();
  std::ofstream out(stream, std::ios::binary);
  for (int i = 0; i < kPictures; ++i) {
    const std::vector<uint8_t> rgb = CameraPicture(i, noise);
    unsigned char* jpeg = nullptr;
    unsigned long size = 0;
    if (tjCompress2(handle, rgb.data(), kWidth, kWidth * 3, kHeight, TJPF_RGB, &jpeg, &size,
                    TJSAMP_420, 85, 0) != 0) {
      error = "the camera pictures could not be encoded";
    } else {
      out.write(reinterpret_cast<const char*>(jpeg), static_cast<std::streamsize>(size));
    }
    tjFree(jpeg);
  }
  tjDestroy(handle);
  out.close();
  ImportAndWriteTree(stream, kQuality, " luminance_only=\"false\"");
  if (error.empty()) {
    ffmpegQscale = MatchingQscale(*this);
    if (ffmpegQscale == 0) {
      error = "the tree or ffmpeg delivered no pictures";
    }
  }
}

const SmPictures& Material() {
  static const SmPictures material;
  return material;
}

std::string VzkCommand(const SmPictures& material, const std::string& out) {
  return Quote(material.vzk.string()) + " run " + Quote(material.tree) + " --quiet" +
         (out.empty() ? "" : " --out " + Quote(out));
}

std::string FfmpegCommand(const SmPictures& material, const std::string& out) {
  return "ffmpeg -nostdin -y -threads 1 -filter_threads 1 -f mjpeg -i " + Quote(material.stream) +
         " -vf scale=640:360:flags=bilinear -c:v mjpeg -threads 1 -q:v " +
         std::to_string(material.ffmpegQscale) +
         (out.empty() ? " -f null -" : " -f image2 " + Quote(out + "/frame-%06d.jpg"));
}

void Ours(benchmark::State& state) {
  Measure(state, Material().error, VzkCommand(Material(), ""), kPictures);
}

void Ffmpeg(benchmark::State& state) {
  Measure(state, Material().error, FfmpegCommand(Material(), ""), kPictures);
}

// Writes each program's pictures once and returns how many there are and
// their mean size in bytes.
std::pair<size_t, double> Outputs(const std::string& command, const fs::path& directory) {
  fs::create_directories(directory);
  if (ChildProcessorSeconds(command) < 0) {
    return {0, 0.0};
  }
  size_t count = 0;
  uintmax_t bytes = 0;
  for (const auto& entry : fs::directory_iterator(directory)) {
    if (entry.path().extension() == ".jpg") {
      ++count;
      bytes += entry.file_size();
    }
  }
  return {count, count == 0 ? 0.0 : static_cast<double>(bytes) / static_cast<double>(count)};
}

} // namespace

int main(int argc, char** argv) {
  RegisterPair("ExampleTree", Ours, Ffmpeg);
  RunPair(&argc, argv, "ExampleTree");
  const SmPictures& material = Material();
  if (material.error.empty()) {
    const auto ours = Outputs(VzkCommand(material, (material.directory / "ours").string()),
                              material.directory / "ours");
    const std::string qscale = "ffmpeg-" + std::to_string(material.ffmpegQscale);
    const auto theirs = Outputs(FfmpegCommand(material, (material.directory / qscale).string()),
                                material.directory / qscale);
    std::printf("outputs: ours %zu pictures of %.0f bytes (quality %d), ffmpeg %zu of %.0f bytes "
                "(qscale %d)\n",
                ours.first, ours.second, kQuality, theirs.first, theirs.second,
                material.ffmpegQscale);
  } else {
    std::printf("%s\n", material.error.c_str());
  }
  material.Remove();
  benchmark::Shutdown();
  return 0;
}
