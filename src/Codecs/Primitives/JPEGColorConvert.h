#pragma once

#include <cstddef>
#include <cstdint>

// The JFIF colour transform from YCbCr to RGB (full range, ITU-T T.871) for
// one row of samples, in 16-bit fixed point so that every target gives the
// same bytes. Output is packed R G B, or B G R when `bgr` is set.
namespace NmPrimitives {

void JPEGYCbCrToRGBRow(const uint8_t* y, const uint8_t* cb, const uint8_t* cr, uint8_t* out,
                       size_t width, bool bgr);

namespace NmReference {
void JPEGYCbCrToRGBRow(const uint8_t* y, const uint8_t* cb, const uint8_t* cr, uint8_t* out,
                       size_t width, bool bgr);
} // namespace NmReference

// Fixed-point factors: round(f * 65536) of 1.402, 0.344136, 0.714136, 1.772.
constexpr int32_t kJFIFCrToR = 91881;
constexpr int32_t kJFIFCbToG = 22554;
constexpr int32_t kJFIFCrToG = 46802;
constexpr int32_t kJFIFCbToB = 116130;

} // namespace NmPrimitives
