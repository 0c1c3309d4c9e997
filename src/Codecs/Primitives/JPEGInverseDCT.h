#pragma once

#include <cstddef>
#include <cstdint>

// Dequantisation and inverse DCT of one 8 x 8 block of JPEG coefficients
// (ITU-T T.81 A.3.3), with level shift and clamping to 8-bit samples. The
// reduced forms give 4 x 4, 2 x 2 and 1 x 1 samples from the lowest 4 x 4,
// 2 x 2 and 1 x 1 coefficients: an inverse DCT of that size, which is what
// decoding at 1/2, 1/4 and 1/8 of the size needs, at a fraction of the work.
// `coefficients` are in natural order; `quant` is the dequantisation table in
// natural order, as float. Results agree with the exact transform to within 1.
namespace NmPrimitives {

// log2 of the reduction: 0 for 8 x 8, 1 for 4 x 4, 2 for 2 x 2, 3 for 1 x 1.
void JPEGInverseDCT(int reduction, const int16_t* coefficients, const float* quant, uint8_t* out,
                    size_t stride);

namespace NmReference {
void JPEGInverseDCT(int reduction, const int16_t* coefficients, const float* quant, uint8_t* out,
                    size_t stride);
} // namespace NmReference

} // namespace NmPrimitives
