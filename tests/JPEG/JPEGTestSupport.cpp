#include "JPEG/JPEGTestSupport.h"

#include <turbojpeg.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <stdexcept>

#include <unistd.h>

namespace NmJPEGTest {

CmBytes MakeCameraPicture(int width, int height, int channels, unsigned seed) {
  std::mt19937 random(seed);
  std::normal_distribution<double> noise(0.0, 4.0);
  CmBytes picture(static_cast<size_t>(width) * height * channels);
  const double cx = width * 0.6;
  const double cy = height * 0.4;
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      const double fx = static_cast<double>(x) / (width > 1 ? width - 1 : 1);
      const double fy = static_cast<double>(y) / (height > 1 ? height - 1 : 1);
      // Sky-to-ground gradient, a bright disc, a dark bar and fine texture.
      double base[3] = {60 + 120 * fy, 90 + 80 * fx, 170 - 90 * fy};
      const double r = std::hypot(x - cx, y - cy);
      if (r < std::min(width, height) * 0.25) {
        base[0] += 70;
        base[1] += 50;
        base[2] -= 40;
      }
      if (x % 97 < 9) {
        for (double& b : base) {
          b *= 0.4;
        }
      }
      const double texture = 12 * std::sin(x * 0.31 + y * 0.17) * std::cos(y * 0.23);
      for (int c = 0; c < channels; ++c) {
        const double value =
            (channels == 1 ? (base[0] + base[1] + base[2]) / 3 : base[c]) + texture + noise(random);
        picture[(static_cast<size_t>(y) * width + x) * channels + c] =
            static_cast<uint8_t>(std::clamp(std::lround(value), 0L, 255L));
      }
    }
  }
  return picture;
}

std::string CorpusDirectory() {
  const char* build = std::getenv("VZK_BUILD_DIR");
  const std::string directory = std::string(build != nullptr ? build : ".") + "/jpeg-corpus";
  std::filesystem::create_directories(directory);
  return directory;
}

CmBytes ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return CmBytes(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

void WriteFile(const std::string& path, const CmBytes& bytes) {
  std::ofstream out(path, std::ios::binary);
  out.write(reinterpret_cast<const char*>(bytes.data()),
            static_cast<std::streamsize>(bytes.size()));
}

namespace {
// Test cases run as separate processes at once: temporary names are unique to
// the process, and finished files appear by rename.
std::string Unique() {
  return "." + std::to_string(getpid());
}

std::string WriteSource(const std::string& name, int width, int height, int channels) {
  const std::string path =
      CorpusDirectory() + "/" + name + Unique() + (channels == 1 ? ".pgm" : ".ppm");
  const std::string header = std::string(channels == 1 ? "P5\n" : "P6\n") + std::to_string(width) +
                             " " + std::to_string(height) + "\n255\n";
  CmBytes bytes(header.begin(), header.end());
  const CmBytes picture = MakeCameraPicture(width, height, channels, 1234u + width * 7u + height);
  bytes.insert(bytes.end(), picture.begin(), picture.end());
  WriteFile(path, bytes);
  return path;
}

void Run(const std::string& command) {
  if (std::system((command + " 2>/dev/null").c_str()) != 0) {
    throw std::runtime_error("failed: " + command);
  }
}
} // namespace

CmBytes MakeJPEG(const std::string& name, int width, int height, bool gray,
                 const std::string& arguments) {
  const std::string path = CorpusDirectory() + "/" + name + ".jpg";
  if (!std::filesystem::exists(path)) {
    const std::string source = WriteSource(name, width, height, gray ? 1 : 3);
    const std::string temporary = path + Unique() + ".part";
    Run("cjpeg " + arguments + " -outfile " + temporary + " " + source);
    std::filesystem::rename(temporary, path);
    std::filesystem::remove(source);
  }
  return ReadFile(path);
}

CmBytes MakeLosslessJPEG(const std::string& name, int width, int height,
                         const std::string& pixelFormat, CmBytes& ffmpegPlanes) {
  const std::string path = CorpusDirectory() + "/" + name + ".jpg";
  const std::string planes = CorpusDirectory() + "/" + name + ".yuv";
  if (!std::filesystem::exists(path) || !std::filesystem::exists(planes)) {
    const std::string source = WriteSource(name, width, height, 3);
    const std::string temporary = path + Unique() + ".part";
    const std::string temporaryPlanes = planes + Unique() + ".part";
    Run("ffmpeg -nostdin -loglevel error -y -i " + source + " -c:v ljpeg -pix_fmt " + pixelFormat +
        " -strict -1 -frames:v 1 -f mjpeg " + temporary);
    Run("ffmpeg -nostdin -loglevel error -y -f mjpeg -i " + temporary + " -f rawvideo -pix_fmt " +
        pixelFormat + " " + temporaryPlanes);
    std::filesystem::rename(temporaryPlanes, planes);
    std::filesystem::rename(temporary, path);
    std::filesystem::remove(source);
  }
  ffmpegPlanes = ReadFile(planes);
  return ReadFile(path);
}

CmBytes MakeMotionJPEG(const std::string& name, int width, int height,
                       const std::string& pixelFormat) {
  const std::string path = CorpusDirectory() + "/" + name + ".jpg";
  if (!std::filesystem::exists(path)) {
    const std::string source = WriteSource(name, width, height, 3);
    const std::string temporary = path + Unique() + ".part";
    Run("ffmpeg -nostdin -loglevel error -y -i " + source + " -c:v mjpeg -q:v 3 -pix_fmt " +
        pixelFormat + " -frames:v 1 -f mjpeg " + temporary);
    std::filesystem::rename(temporary, path);
    std::filesystem::remove(source);
  }
  return ReadFile(path);
}

bool TurboDecodePlanes(const CmBytes& jpeg, int scale, SmPlanes& out) {
  tjhandle handle = tjInitDecompress();
  int width = 0;
  int height = 0;
  int subsampling = 0;
  int colorspace = 0;
  bool ok = tjDecompressHeader3(handle, jpeg.data(), static_cast<unsigned long>(jpeg.size()),
                                &width, &height, &subsampling, &colorspace) == 0;
  if (ok) {
    const int scaledWidth = (width + (1 << scale) - 1) >> scale;
    const int scaledHeight = (height + (1 << scale) - 1) >> scale;
    const int count = subsampling == TJSAMP_GRAY ? 1 : 3;
    out.planes.assign(count, {});
    unsigned char* planes[3] = {};
    int strides[3] = {};
    // Generous margins: what libjpeg-turbo writes beyond the plane sizes that
    // it reports is cut off below.
    constexpr int kMargin = 32;
    for (int i = 0; i < count; ++i) {
      out.width[i] = tjPlaneWidth(i, scaledWidth, subsampling);
      out.height[i] = tjPlaneHeight(i, scaledHeight, subsampling);
      out.planes[i].resize(static_cast<size_t>(out.width[i] + kMargin) * (out.height[i] + kMargin));
      planes[i] = out.planes[i].data();
      strides[i] = out.width[i] + kMargin;
    }
    ok = tjDecompressToYUVPlanes(handle, jpeg.data(), static_cast<unsigned long>(jpeg.size()),
                                 planes, scaledWidth, strides, scaledHeight,
                                 TJFLAG_ACCURATEDCT) == 0;
    for (int i = 0; i < count && ok; ++i) {
      CmBytes packed(static_cast<size_t>(out.width[i]) * out.height[i]);
      for (int y = 0; y < out.height[i]; ++y) {
        std::copy_n(out.planes[i].begin() + static_cast<std::ptrdiff_t>(y) * strides[i],
                    out.width[i], packed.begin() + static_cast<std::ptrdiff_t>(y) * out.width[i]);
      }
      out.planes[i] = std::move(packed);
    }
  }
  tjDestroy(handle);
  return ok;
}

bool TurboDecodeRGB(const CmBytes& jpeg, int& width, int& height, CmBytes& rgb) {
  tjhandle handle = tjInitDecompress();
  int subsampling = 0;
  int colorspace = 0;
  bool ok = tjDecompressHeader3(handle, jpeg.data(), static_cast<unsigned long>(jpeg.size()),
                                &width, &height, &subsampling, &colorspace) == 0;
  if (ok) {
    rgb.resize(static_cast<size_t>(width) * height * 3);
    ok = tjDecompress2(handle, jpeg.data(), static_cast<unsigned long>(jpeg.size()), rgb.data(),
                       width, width * 3, height, TJPF_RGB,
                       TJFLAG_ACCURATEDCT | TJFLAG_FASTUPSAMPLE) == 0;
  }
  tjDestroy(handle);
  return ok;
}

bool DjpegDecodeRGB(const std::string& name, const CmBytes& jpeg, int& width, int& height,
                    CmBytes& rgb) {
  const std::string input = CorpusDirectory() + "/" + name + Unique() + ".djpeg.jpg";
  const std::string output = CorpusDirectory() + "/" + name + Unique() + ".djpeg.ppm";
  WriteFile(input, jpeg);
  bool ok = std::system(
                ("djpeg -dct int -nosmooth -ppm -outfile " + output + " " + input + " 2>/dev/null")
                    .c_str()) == 0;
  const CmBytes ppm = ok ? ReadFile(output) : CmBytes();
  std::filesystem::remove(input);
  std::filesystem::remove(output);
  // "P6", width, height and 255, each followed by one white-space byte.
  size_t at = 2;
  int fields[3] = {};
  for (int& field : fields) {
    while (ok && at < ppm.size() && std::isspace(ppm[at])) {
      ++at;
    }
    for (; ok && at < ppm.size() && std::isdigit(ppm[at]); ++at) {
      field = field * 10 + (ppm[at] - '0');
    }
  }
  ++at;
  width = fields[0];
  height = fields[1];
  ok = ok && ppm.size() >= 2 && ppm[0] == 'P' && ppm[1] == '6' && fields[2] == 255 &&
       ppm.size() == at + static_cast<size_t>(width) * height * 3;
  if (ok) {
    rgb.assign(ppm.begin() + static_cast<std::ptrdiff_t>(at), ppm.end());
  }
  return ok;
}

CmBytes ReplaceJFIFWithAdobe(const CmBytes& jpeg, uint8_t transform) {
  if (jpeg.size() < 6 || jpeg[2] != 0xFF || jpeg[3] != 0xE0) {
    throw std::runtime_error("no APP0 after SOI");
  }
  const size_t length = static_cast<size_t>(jpeg[4] << 8 | jpeg[5]);
  CmBytes out = {0xFF, 0xD8, 0xFF, 0xEE, 0, 14, 'A', 'd', 'o',
                 'b',  'e',  0,    100,  0, 0,  0,   0,   transform};
  out.insert(out.end(), jpeg.begin() + 4 + static_cast<std::ptrdiff_t>(length), jpeg.end());
  return out;
}

CmBytes InsertSegment(const CmBytes& jpeg, uint8_t marker, const CmBytes& body) {
  const size_t length = body.size() + 2;
  CmBytes out = {
      0xFF, 0xD8, 0xFF, marker, static_cast<uint8_t>(length >> 8), static_cast<uint8_t>(length)};
  out.insert(out.end(), body.begin(), body.end());
  out.insert(out.end(), jpeg.begin() + 2, jpeg.end());
  return out;
}

} // namespace NmJPEGTest
