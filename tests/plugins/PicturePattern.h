#pragma once

// The pixels that the "pictures" test source fills its planes with, so that a
// test can tell byte for byte what a host received. Shared by the plug-in and
// the tests that read what hosts write.

#include <cstdint>
#include <vector>

namespace NmTestPictures {

struct SmPlaneShape {
  uint32_t width;       // pixels
  uint32_t height;      // rows
  uint32_t pixelStride; // bytes a pixel
};

// Plane sizes of the ten colour formats of the image interface; empty for any
// other format.
inline std::vector<SmPlaneShape> PlaneShapes(uint32_t format, uint32_t width, uint32_t height) {
  const uint32_t half = (width + 1) / 2;
  switch (format) {
  case 0:
    return {{width, height, 1}};
  case 1:
  case 2:
    return {{width, height, 3}};
  case 3:
  case 4:
  case 8:
  case 9:
    return {{width, height, 4}};
  case 5:
    return {{width, height, 1}, {half, (height + 1) / 2, 1}, {half, (height + 1) / 2, 1}};
  case 6:
    return {{width, height, 1}, {half, height, 1}, {half, height, 1}};
  case 7:
    return {{width, height, 1}, {width, height, 1}, {width, height, 1}};
  default:
    return {};
  }
}

// Byte `column` (counted in bytes, not pixels) of stored row `row` of a plane.
inline uint8_t PatternByte(uint32_t seed, uint32_t plane, uint32_t column, uint32_t row) {
  return static_cast<uint8_t>(seed * 31 + plane * 67 + column * 7 + row * 13 + (column * row) % 5);
}

// What fills the bytes beyond a row: a host must never write them out.
inline constexpr uint8_t PaddingByte = 0xEE;

} // namespace NmTestPictures
