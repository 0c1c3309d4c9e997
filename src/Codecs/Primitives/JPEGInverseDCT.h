#pragma once

#include <cstddef>
#include <cstdint>

// Dequantisation and inverse DCT of JPEG coefficient blocks (ITU-T T.81
// A.3.3), with level shift and clamping to 8-bit samples. The reduced forms
// give 4 x 4, 2 x 2 and 1 x 1 samples per block, each the mean of the area of
// the full-size result that it covers: what decoding at 1/2, 1/4 and 1/8 of
// the size needs, at a fraction of the work.
//
// `blocks` holds `count` blocks of 64 coefficients in natural order, one after
// the other, that lie side by side in the picture: block b's samples start at
// column b * (8 >> reduction) of `out`. `quant` is the dequantisation table in
// natural order. Results agree with the exact transform to within 1, and
// rarely differ from it at all (the accuracy of IEEE 1180).
namespace NmPrimitives {

// log2 of the reduction: 0 for 8 x 8, 1 for 4 x 4, 2 for 2 x 2, 3 for 1 x 1.
void JPEGInverseDCTBlocks(int reduction, const int16_t* blocks, size_t count, const int16_t* quant,
                          uint8_t* out, size_t stride);

namespace NmReference {
void JPEGInverseDCTBlocks(int reduction, const int16_t* blocks, size_t count, const int16_t* quant,
                          uint8_t* out, size_t stride);
} // namespace NmReference

} // namespace NmPrimitives
