#include "JPEG/JPEGTestSupport.h"

#include <gtest/gtest.h>
#include <turbojpeg.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <random>
#include <stdexcept>

#include <unistd.h>

#include "Image/ImageFixtures.h"
#include "support/ExternalTools.h"

namespace NmJPEGTest {

CmBytes MakeCameraPicture(int width, int height, int channels, unsigned seed) {
  std::mt19937 random(seed);
  std::normal_distribution<double> noise(0.0, 4.0);
  CmBytes picture;
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      // Gradients, a bright disc, dark bars every 97 columns and fine texture.
      const bool disc =
          std::hypot(x - width * 0.6, y - height * 0.4) < std::min(width, height) * 0.25;
      const double shade = x % 97 < 9 ? 0.4 : 1.0;
      const double texture = 12 * std::sin(x * 0.31 + y * 0.17) * std::cos(y * 0.23);
      for (int c = 0; c < channels; ++c) {
        const double base = 60 + 40 * c + 120.0 * (c == 1 ? x : y) / (c == 1 ? width : height);
        picture.push_back(static_cast<uint8_t>(std::clamp(
            std::round((base + (disc ? 60 - 40 * c : 0)) * shade + texture + noise(random)), 0.0,
            255.0)));
      }
    }
  }
  return picture;
}

namespace {

using CmCommand = std::function<std::string(const std::string& source, const std::string& out)>;

// Makes the file once per build tree by the command, from a camera picture
// of the given size when `channels` is not 0. Test cases run as separate
// processes at once: scratch names are unique to the process, and finished
// files appear by rename.
CmBytes Cached(const std::string& file, int width, int height, int channels,
               const CmCommand& command) {
  const char* build = std::getenv("VZK_BUILD_DIR");
  const std::string directory = std::string(build != nullptr ? build : ".") + "/jpeg-corpus";
  std::filesystem::create_directories(directory);
  const std::string path = directory + "/" + file;
  if (!std::filesystem::exists(path)) {
    const std::string scratch = path + "." + std::to_string(getpid()) + ".part";
    const std::string source = scratch + (channels == 1 ? ".pgm" : ".ppm");
    if (channels != 0) {
      const std::string header = std::string(channels == 1 ? "P5\n" : "P6\n") +
                                 std::to_string(width) + " " + std::to_string(height) + "\n255\n";
      CmBytes bytes(header.begin(), header.end());
      const CmBytes picture =
          MakeCameraPicture(width, height, channels, 1234u + width * 7u + height);
      bytes.insert(bytes.end(), picture.begin(), picture.end());
      NmTestSupport::WriteBytes(source, bytes);
    }
    if (!NmTestSupport::Run(command(source, scratch))) {
      throw std::runtime_error("failed: " + command(source, scratch));
    }
    std::filesystem::remove(source);
    std::filesystem::rename(scratch, path);
  }
  return NmTestSupport::ReadBytes(path);
}

const std::string kFfmpeg = "ffmpeg -nostdin -loglevel error -y ";

} // namespace

CmBytes MakeJPEG(const std::string& name, int width, int height, bool gray,
                 const std::string& arguments) {
  return Cached(name + ".jpg", width, height, gray ? 1 : 3, [&](auto& source, auto& out) {
    return "cjpeg " + arguments + " -outfile " + out + " " + source;
  });
}

CmBytes MakeLosslessJPEG(const std::string& name, int width, int height,
                         const std::string& pixelFormat, CmBytes& ffmpegPlanes) {
  const CmBytes jpeg = Cached(name + ".jpg", width, height, 3, [&](auto& source, auto& out) {
    return kFfmpeg + "-i " + source + " -c:v ljpeg -pix_fmt " + pixelFormat +
           " -strict -1 -frames:v 1 -f mjpeg " + out;
  });
  ffmpegPlanes = Cached(name + ".yuv", 0, 0, 0, [&](auto&, auto& out) {
    const std::string in = out + ".jpg";
    NmTestSupport::WriteBytes(in, jpeg);
    return kFfmpeg + "-f mjpeg -i " + in + " -f rawvideo -pix_fmt " + pixelFormat + " " + out +
           " && rm " + in;
  });
  return jpeg;
}

SmPlanes PlanesOf(const NmMediaProcessing::CmImage& image) {
  SmPlanes out;
  out.planes = NmImageTest::Planes(image);
  for (size_t p = 0; p < out.planes.size(); ++p) {
    out.width[p] = static_cast<int>(image.Allocator().GetPlane(p).width);
    out.height[p] = static_cast<int>(image.Allocator().GetPlane(p).height);
  }
  return out;
}

SmDifference Compare(const SmPlanes& ours, const SmPlanes& reference, size_t p, int rows) {
  const int height = rows < 0 ? ours.height[p] : rows;
  if (p >= ours.planes.size() || p >= reference.planes.size() ||
      reference.width[p] < ours.width[p] || reference.height[p] < height || height == 0) {
    return {};
  }
  SmDifference result{0, 0};
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < ours.width[p]; ++x) {
      const int difference =
          std::abs(ours.planes[p][static_cast<size_t>(y) * ours.width[p] + x] -
                   reference.planes[p][static_cast<size_t>(y) * reference.width[p] + x]);
      result.worst = std::max(result.worst, difference);
      result.mean += difference;
    }
  }
  result.mean /= static_cast<double>(ours.width[p]) * height;
  return result;
}

void ExpectClose(const SmPlanes& ours, const SmPlanes& reference, int worst, double mean) {
  ASSERT_EQ(ours.planes.size(), reference.planes.size());
  for (size_t p = 0; p < ours.planes.size(); ++p) {
    const SmDifference difference = Compare(ours, reference, p);
    EXPECT_LE(difference.worst, worst) << "plane " << p;
    EXPECT_LE(difference.mean, mean) << "plane " << p;
  }
}

bool TurboDecodePlanes(const CmBytes& jpeg, int scale, SmPlanes& out) {
  tjhandle handle = tjInitDecompress();
  int width = 0;
  int height = 0;
  int colorspace = 0;
  bool ok = tjDecompressHeader3(handle, jpeg.data(), static_cast<unsigned long>(jpeg.size()),
                                &width, &height, &out.subsampling, &colorspace) == 0;
  if (ok) {
    const int scaledWidth = (width + (1 << scale) - 1) >> scale;
    const int scaledHeight = (height + (1 << scale) - 1) >> scale;
    const int count = out.subsampling == TJSAMP_GRAY ? 1 : 3;
    out.planes.assign(count, {});
    unsigned char* planes[3] = {};
    int strides[3] = {};
    // Generous margins: what libjpeg-turbo writes beyond the plane sizes that
    // it reports is cut off below, and so is the luma padding to whole
    // chroma samples.
    constexpr int kMargin = 32;
    for (int i = 0; i < count; ++i) {
      out.width[i] = i == 0 ? scaledWidth : tjPlaneWidth(i, scaledWidth, out.subsampling);
      out.height[i] = i == 0 ? scaledHeight : tjPlaneHeight(i, scaledHeight, out.subsampling);
      strides[i] = out.width[i] + kMargin;
      out.planes[i].resize(static_cast<size_t>(strides[i]) * (out.height[i] + kMargin));
      planes[i] = out.planes[i].data();
    }
    ok = tjDecompressToYUVPlanes(handle, jpeg.data(), static_cast<unsigned long>(jpeg.size()),
                                 planes, scaledWidth, strides, scaledHeight,
                                 TJFLAG_ACCURATEDCT) == 0;
    for (int i = 0; i < count && ok; ++i) {
      CmBytes packed;
      for (int y = 0; y < out.height[i]; ++y) {
        const auto row = out.planes[i].begin() + static_cast<std::ptrdiff_t>(y) * strides[i];
        packed.insert(packed.end(), row, row + out.width[i]);
      }
      out.planes[i] = std::move(packed);
    }
  }
  tjDestroy(handle);
  return ok;
}

CmBytes TurboEncode420(const SmPlanes& in, int quality) {
  tjhandle handle = tjInitCompress();
  CmBytes padded[3];
  const unsigned char* planes[3] = {};
  int strides[3] = {};
  for (int i = 0; i < 3; ++i) {
    // TurboJPEG takes luma in whole chroma samples: the edges are repeated.
    strides[i] = tjPlaneWidth(i, in.width[0], TJSAMP_420);
    for (int y = 0; y < tjPlaneHeight(i, in.height[0], TJSAMP_420); ++y) {
      const auto row = in.planes[i].begin() + std::min(y, in.height[i] - 1) * in.width[i];
      padded[i].insert(padded[i].end(), row, row + in.width[i]);
      padded[i].resize(padded[i].size() + strides[i] - in.width[i], row[in.width[i] - 1]);
    }
    planes[i] = padded[i].data();
  }
  unsigned char* jpeg = nullptr;
  unsigned long size = 0;
  CmBytes out;
  if (tjCompressFromYUVPlanes(handle, planes, in.width[0], strides, in.height[0], TJSAMP_420, &jpeg,
                              &size, quality, 0) == 0) {
    out.assign(jpeg, jpeg + size);
  }
  tjFree(jpeg);
  tjDestroy(handle);
  return out;
}

bool DjpegDecodeRGB(const CmBytes& jpeg, int& width, int& height, CmBytes& rgb) {
  NmTestSupport::CmTempDirectory directory;
  const std::string input = directory / "in.jpg";
  const std::string output = directory / "out.ppm";
  const CmBytes ppm =
      NmTestSupport::WriteBytes(input, jpeg) &&
              NmTestSupport::Run("djpeg -dct int -nosmooth -ppm -outfile " + output + " " + input)
          ? NmTestSupport::ReadBytes(output)
          : CmBytes();
  // "P6", width, height and 255, the last followed by one white-space byte.
  const std::string header(ppm.begin(), ppm.begin() + std::min<std::ptrdiff_t>(ppm.size(), 32));
  int maximum = 0;
  int at = 0;
  if (std::sscanf(header.c_str(), "P6 %d %d %d%n", &width, &height, &maximum, &at) != 3 ||
      maximum != 255 || ppm.size() != at + 1 + static_cast<size_t>(width) * height * 3) {
    return false;
  }
  rgb.assign(ppm.begin() + at + 1, ppm.end());
  return true;
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
