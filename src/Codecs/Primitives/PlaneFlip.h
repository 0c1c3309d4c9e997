#pragma once

#include <cstddef>
#include <cstdint>

namespace NmPrimitives {

enum SmFlipAxis : int {
  FlipRows = 0,    // top to bottom
  FlipColumns = 1, // left to right
  FlipBoth = 2,
};

// Mirrored copy of a plane of width x height pixels of pixelBytes (1, 3 or 4)
// bytes. Source and destination must not overlap.
void FlipPlane(const uint8_t* src, size_t srcStride, uint8_t* dst, size_t dstStride, size_t width,
               size_t height, size_t pixelBytes, SmFlipAxis axis);
// The same in place; uses one row of scratch memory.
void FlipPlaneInPlace(uint8_t* data, size_t stride, size_t width, size_t height, size_t pixelBytes,
                      SmFlipAxis axis);

namespace NmReference {
void FlipPlane(const uint8_t* src, size_t srcStride, uint8_t* dst, size_t dstStride, size_t width,
               size_t height, size_t pixelBytes, SmFlipAxis axis);
} // namespace NmReference

} // namespace NmPrimitives
