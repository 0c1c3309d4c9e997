#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "Codecs/H264/ParameterSets.h"
#include "Codecs/Primitives/H264IntraPrediction.h"

namespace NmH264 {

// Positions of the zig-zag (frame) scans as raster indices.
extern const std::array<uint8_t, 16> ZigZag4x4;
// The scan of 4x4 blocks of field macroblocks: down the columns first, since
// a field's vertical neighbours lie twice as far apart.
extern const std::array<uint8_t, 16> FieldScan4x4;
extern const std::array<uint8_t, 64> ZigZag8x8;
extern const std::array<uint8_t, 64> FieldScan8x8;

// Dequantisation factors by qP % 6, in raster order: the scaling lists times
// the norm adjustment of clauses 8.5.9.
struct SmLevelScale {
  int32_t scale4x4[6][6][16]; // [list 0..5][qP % 6][raster position]
  int32_t scale8x8[2][6][64]; // [intra, inter luma][qP % 6][raster position]

  void Build(const SmScalingMatrices& matrices);
};

// QPc from qPI (Table 8-15), for qPI in 0 to 51.
int ChromaQp(int qpi);

// One level of a 4x4 block, scaled (a block of the DC alone); 8x8 blocks
// are scaled in place, in raster order.
inline int32_t ScaleLevel4x4(int32_t level, int32_t levelScale, int qp) {
  return qp >= 24 ? (level * levelScale) * (1 << (qp / 6 - 4))
                  : (level * levelScale + (1 << (3 - qp / 6))) >> (4 - qp / 6);
}
void Scale8x8(int32_t* coefficients, const int32_t* levelScale, int qp);
// The luma DC of Intra_16x16: Hadamard transform and scaling (8.5.10);
// coefficients in raster order of the sixteen 4x4 blocks.
void TransformLumaDc(int32_t* coefficients, int32_t levelScaleDc, int qp);
// The 2x2 chroma DC of 4:2:0 (8.5.11).
void TransformChromaDc2x2(int32_t* coefficients, int32_t levelScaleDc, int qp);

// Which neighbours of a block intra prediction may use.
using SmIntraNeighbours = NmPrimitives::SmH264IntraNeighbours;

} // namespace NmH264
