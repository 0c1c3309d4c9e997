#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "Codecs/H264/ParameterSets.h"

namespace NmH264 {

// Positions of the zig-zag (frame) scans as raster indices.
extern const std::array<uint8_t, 16> ZigZag4x4;
extern const std::array<uint8_t, 64> ZigZag8x8;

// Dequantisation factors by qP % 6, in raster order: the scaling lists times
// the norm adjustment of clauses 8.5.9.
struct SmLevelScale {
  int32_t scale4x4[6][6][16]; // [list 0..5][qP % 6][raster position]
  int32_t scale8x8[2][6][64]; // [intra, inter luma][qP % 6][raster position]

  void Build(const SmScalingMatrices& matrices);
};

// QPc from qPI (Table 8-15), for qPI in 0 to 51.
int ChromaQp(int qpi);

// Scales a 4x4 block's levels (raster) in place; with hasDc false the first
// coefficient is left as it is (a DC that was scaled on its own).
void Scale4x4(int32_t* coefficients, const int32_t* levelScale, int qp, bool scaleDc);
void Scale8x8(int32_t* coefficients, const int32_t* levelScale, int qp);
// The luma DC of Intra_16x16: Hadamard transform and scaling (8.5.10);
// coefficients in raster order of the sixteen 4x4 blocks.
void TransformLumaDc(int32_t* coefficients, int32_t levelScaleDc, int qp);
// The 2x2 chroma DC of 4:2:0 (8.5.11).
void TransformChromaDc2x2(int32_t* coefficients, int32_t levelScaleDc, int qp);

// Neighbouring samples of a block for intra prediction: left[-1] is the
// corner (p[-1,-1]), left[0..] the column, top[0..] the row above and beyond.
struct SmIntraNeighbours {
  bool hasLeft, hasTop, hasTopRight, hasCorner;
};

// Intra prediction of a 4x4, 8x8 or 16x16 luma block, or an 8x8 chroma block
// of 4:2:0, at dst (which holds the decoded neighbours around it).
void PredictIntra4x4(uint8_t* dst, ptrdiff_t stride, int mode, const SmIntraNeighbours& n);
void PredictIntra8x8(uint8_t* dst, ptrdiff_t stride, int mode, const SmIntraNeighbours& n);
void PredictIntra16x16(uint8_t* dst, ptrdiff_t stride, int mode, const SmIntraNeighbours& n);
void PredictIntraChroma8x8(uint8_t* dst, ptrdiff_t stride, int mode, const SmIntraNeighbours& n);

} // namespace NmH264
