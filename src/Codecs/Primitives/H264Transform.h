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

// The two scans of 4x4 blocks: the raster position of each scan position.
inline constexpr uint8_t H264ZigZag4x4[16] = {0, 1, 4, 8, 5, 2, 3, 6, 9, 12, 13, 10, 7, 11, 14, 15};
inline constexpr uint8_t H264FieldScan4x4[16] = {0, 4, 1,  8,  12, 5, 9,  13,
                                                 2, 6, 10, 14, 3,  7, 11, 15};

// A 4x4 block straight from its levels in scan order (zig-zag, or the field
// scan where field is true): each level is placed, multiplied by the factor
// of its raster position in levelScale and scaled by qp (0 to 51) as the
// decoder of H.264 does, then transformed and added as above. In one pass,
// since the levels, placed one by one, would otherwise be read back as
// vectors at once. Products and sums must fit in 32 bits.
void H264AddLevels4x4(const int16_t* levels, bool field, const int32_t* levelScale, int qp,
                      uint8_t* dst, ptrdiff_t stride);
// The same for a block whose DC was scaled on its own (the DC transforms of
// Intra 16x16 and chroma): levels holds the 15 AC levels from scan position
// 1 on, and one more entry that is read and ignored.
void H264AddAcLevels4x4(const int16_t* levels, int32_t dc, bool field, const int32_t* levelScale,
                        int qp, uint8_t* dst, ptrdiff_t stride);

namespace NmReference {
void H264AddLevels4x4(const int16_t* levels, bool field, const int32_t* levelScale, int qp,
                      uint8_t* dst, ptrdiff_t stride);
void H264AddAcLevels4x4(const int16_t* levels, int32_t dc, bool field, const int32_t* levelScale,
                        int qp, uint8_t* dst, ptrdiff_t stride);
void H264AddInverseTransform4x4(const int32_t* coefficients, uint8_t* dst, ptrdiff_t stride);
void H264AddInverseTransform8x8(const int32_t* coefficients, uint8_t* dst, ptrdiff_t stride);
void H264AddDc4x4(int32_t dc, uint8_t* dst, ptrdiff_t stride);
void H264AddDc8x8(int32_t dc, uint8_t* dst, ptrdiff_t stride);
} // namespace NmReference

} // namespace NmPrimitives
