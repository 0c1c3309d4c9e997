#pragma once

#include <cstddef>
#include <cstdint>

namespace NmPrimitives {

// Writes the transpose of a width x height plane of pixelBytes (1, 3 or 4)
// bytes a pixel into a height x width destination. flipColumns mirrors the
// destination left to right and flipRows top to bottom, in the same pass:
// flipColumns alone is a quarter turn clockwise, flipRows alone one
// counter-clockwise. Source and destination must not overlap.
void TransposePlane(const uint8_t* src, size_t srcStride, uint8_t* dst, size_t dstStride,
                    size_t width, size_t height, size_t pixelBytes, bool flipColumns,
                    bool flipRows);

namespace NmReference {
void TransposePlane(const uint8_t* src, size_t srcStride, uint8_t* dst, size_t dstStride,
                    size_t width, size_t height, size_t pixelBytes, bool flipColumns,
                    bool flipRows);
} // namespace NmReference

} // namespace NmPrimitives
