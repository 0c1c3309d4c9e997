#pragma once

#include <cstddef>
#include <cstdint>

namespace NmPrimitives {

// The content-adaptive vertical filter over an interleaved plane: even rows
// are copied, odd rows are rebuilt from a five- to seven-row window in
// integer arithmetic. Where the row differs from its own field's neighbours by
// less than the threshold, the result is kept between the two rows of the
// other field around it. Returns 0, -8 for a null pointer, or -6 for a width
// of 0 or a height that is odd or below 8.
int32_t DeinterlaceCAVT(const uint8_t* src, size_t srcStride, uint8_t* dst, size_t dstStride,
                        size_t width, size_t height, uint16_t threshold);

namespace NmReference {
int32_t DeinterlaceCAVT(const uint8_t* src, size_t srcStride, uint8_t* dst, size_t dstStride,
                        size_t width, size_t height, uint16_t threshold);
} // namespace NmReference

} // namespace NmPrimitives
