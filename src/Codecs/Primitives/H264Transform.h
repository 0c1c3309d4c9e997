#pragma once

#include <cstddef>
#include <cstdint>

// The inverse transforms of H.264 reconstruction: dequantised coefficients in
// raster order (row by row) are transformed and added to the prediction that
// dst already holds, each sample clipped to 0..255. Coefficients stay 32-bit
// because a stream may scale them past 16 bits; results match the plain
// loops for every input whose sums fit in 32 bits.
namespace NmPrimitives {

void H264AddInverseTransform4x4(const int32_t* coefficients, uint8_t* dst, ptrdiff_t stride);
void H264AddInverseTransform8x8(const int32_t* coefficients, uint8_t* dst, ptrdiff_t stride);
// A block whose only coefficient is the DC adds the same (dc + 32) >> 6 to
// every sample, which is what the full transforms give for it.
void H264AddDc4x4(int32_t dc, uint8_t* dst, ptrdiff_t stride);
void H264AddDc8x8(int32_t dc, uint8_t* dst, ptrdiff_t stride);

namespace NmReference {
void H264AddInverseTransform4x4(const int32_t* coefficients, uint8_t* dst, ptrdiff_t stride);
void H264AddInverseTransform8x8(const int32_t* coefficients, uint8_t* dst, ptrdiff_t stride);
void H264AddDc4x4(int32_t dc, uint8_t* dst, ptrdiff_t stride);
void H264AddDc8x8(int32_t dc, uint8_t* dst, ptrdiff_t stride);
} // namespace NmReference

} // namespace NmPrimitives
