#pragma once

#include <cstddef>
#include <cstdint>

// The forward side of JPEG's transform (ITU-T T.81 A.3.3): the 8x8 DCT of
// level-shifted samples, and the quantisation of its coefficients. The
// separate transform is floating point, so the vector versions agree with the
// reference to rounding, not bit for bit; quantisation of the same
// coefficients is bit-exact.
namespace NmPrimitives {

// DCT of `blocks` 8x8 blocks that lie side by side from `samples` (rows
// `stride` apart). Block b's 64 coefficients go to coefficients[64 b ...] in
// natural order, scaled as T.81 defines them: F(0,0) is 8 times the mean
// minus 1024.
void ForwardDCT8x8Blocks(const uint8_t* samples, size_t stride, size_t blocks, float* coefficients);

// The multipliers that make quantisation one multiplication: 1 / q for each
// entry of a natural-order table.
void MakeQuantReciprocals(const uint16_t natural[64], float reciprocals[64]);

// Each coefficient times its reciprocal, rounded to the nearest integer (ties
// to even) and limited to the 16-bit range; natural order in and out.
void QuantizeBlocks(const float* coefficients, size_t blocks, const float reciprocals[64],
                    int16_t* quantized);

// Both at once, without the coefficients leaving registers, in 16-bit fixed
// point: within one step of the two above, and of the same value most of the
// time (only values close to half a step can round the other way).
void ForwardDCTQuantizeBlocks(const uint8_t* samples, size_t stride, size_t blocks,
                              const float reciprocals[64], int16_t* quantized);

namespace NmReference {
void ForwardDCTQuantizeBlocks(const uint8_t* samples, size_t stride, size_t blocks,
                              const float reciprocals[64], int16_t* quantized);
void ForwardDCT8x8Blocks(const uint8_t* samples, size_t stride, size_t blocks, float* coefficients);
void QuantizeBlocks(const float* coefficients, size_t blocks, const float reciprocals[64],
                    int16_t* quantized);
} // namespace NmReference

// The DCT basis: row k is c(k) / 2 * cos((2n + 1) k pi / 16).
extern const float kForwardDCTMatrix[64];

} // namespace NmPrimitives
