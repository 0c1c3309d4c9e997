#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <random>
#include <vector>

#include "MediaProcessing/Image/Image.h"

// Pictures as a camera delivers them: smooth shapes and edges under sensor
// noise. Flat patterns say little about a codec; noise is what it must carry.
namespace NmTestSupport {

// A full-range YCbCr 4:2:0 picture.
inline void FillCameraPicture(NmMediaProcessing::CmImage& image, uint64_t width, uint64_t height,
                              uint32_t seed, double noise = 5.0) {
  using namespace NmMediaProcessing;
  image.Reset();
  image.Allocate(width, height, YCbCr420_Planar);
  image.GetAttributes().subColorFormat = SubColorFormatFullRange;
  std::mt19937 random(seed);
  std::normal_distribution<double> grain(0.0, noise);
  auto& allocator = image.Allocator();
  for (uint64_t p = 0; p < 3; ++p) {
    const auto plane = allocator.GetWriteablePlane(p);
    const double scale = p == 0 ? 1.0 : 2.0;
    for (uint64_t y = 0; y < plane.height; ++y) {
      for (uint64_t x = 0; x < plane.width; ++x) {
        const double fx = x * scale;
        const double fy = y * scale;
        double v = p == 0 ? 110 + 70 * std::sin(fx * 0.013) * std::cos(fy * 0.021) +
                                (fx > width * 0.6 && fy < height * 0.4 ? 50 : 0)
                          : 128 + (p == 1 ? 30 : -25) * std::sin(fx * 0.008 + fy * 0.005);
        v += grain(random) / (p == 0 ? 1.0 : 2.0);
        plane.data[y * plane.rowStride + x] = static_cast<uint8_t>(std::clamp(v, 0.0, 255.0) + 0.5);
      }
    }
  }
}

} // namespace NmTestSupport
