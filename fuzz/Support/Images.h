#pragma once

// Pictures of the targets that need one, filled and turned as the input says.

#include <cstdint>

#include "MediaProcessing/Image/Image.h"

namespace NmFuzz {

// Every byte of every plane, stride gaps left out, from `sample(plane, x, y)`
// with x counted in bytes.
template <typename Sample> void FillPlanes(NmMediaProcessing::CmImage& image, Sample&& sample) {
  for (uint64_t p = 0; p < image.Allocator().GetPlaneCount(); ++p) {
    const auto plane = image.Allocator().GetWriteablePlane(p);
    for (uint64_t y = 0; y < plane.height; ++y) {
      for (uint64_t x = 0; x < plane.width * plane.pixelStride; ++x) {
        plane.data[y * plane.rowStride + x] = static_cast<uint8_t>(sample(p, x, y));
      }
    }
  }
}

// The quarter turns in the low two bits, the vertical mirror in bit 2 and the
// horizontal one in bit 3.
inline NmMediaProcessing::Orientation OrientationFrom(uint8_t bits) {
  NmMediaProcessing::Orientation orientation;
  orientation.rotation = bits & 3;
  orientation.flippedVertically = (bits & 4) != 0;
  orientation.flippedHorizontally = (bits & 8) != 0;
  return orientation;
}

} // namespace NmFuzz
