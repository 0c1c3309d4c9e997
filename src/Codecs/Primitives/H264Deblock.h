#pragma once

#include <cstddef>
#include <cstdint>

// The H.264 loop filter across one block edge. q points at the first sample
// on the edge's far side (right of a vertical edge, below a horizontal one);
// the near side lies before it. A luma edge is 16 samples long, a chroma
// edge of 4:2:0 is 8; each quarter of the edge is one segment with its own
// tc0 (the table value for its boundary strength), and a negative tc0 leaves
// that segment alone (strength 0). The "Intra" forms are strength 4, which
// holds along a whole macroblock edge.
namespace NmPrimitives {

// Vertical edges filter along rows (p samples to the left); horizontal edges
// along columns (p samples above). Luma reads four samples on either side.
void H264FilterLumaVerticalEdge(uint8_t* q, ptrdiff_t stride, int alpha, int beta,
                                const int8_t* tc0);
void H264FilterLumaHorizontalEdge(uint8_t* q, ptrdiff_t stride, int alpha, int beta,
                                  const int8_t* tc0);
void H264FilterLumaVerticalEdgeIntra(uint8_t* q, ptrdiff_t stride, int alpha, int beta);
void H264FilterLumaHorizontalEdgeIntra(uint8_t* q, ptrdiff_t stride, int alpha, int beta);
// Chroma reads two samples on either side; tc is tc0 + 1.
void H264FilterChromaVerticalEdge(uint8_t* q, ptrdiff_t stride, int alpha, int beta,
                                  const int8_t* tc0);
void H264FilterChromaHorizontalEdge(uint8_t* q, ptrdiff_t stride, int alpha, int beta,
                                    const int8_t* tc0);
void H264FilterChromaVerticalEdgeIntra(uint8_t* q, ptrdiff_t stride, int alpha, int beta);
void H264FilterChromaHorizontalEdgeIntra(uint8_t* q, ptrdiff_t stride, int alpha, int beta);
// The same vertical edge of both chroma planes (qCb and qCr, one stride) in
// one pass: alpha[0], beta[0] and tc0[0..3] are Cb's, alpha[1], beta[1] and
// tc0[4..7] Cr's, whose quantisers may differ.
void H264FilterChromaVerticalEdges(uint8_t* qCb, uint8_t* qCr, ptrdiff_t stride, const int* alpha,
                                   const int* beta, const int8_t* tc0);
void H264FilterChromaVerticalEdgesIntra(uint8_t* qCb, uint8_t* qCr, ptrdiff_t stride,
                                        const int* alpha, const int* beta);

// The motion of one macroblock as the filter compares it, for lists 0 and
// 1: the vectors of the sixteen 4x4 blocks in raster order (x, y in quarter
// samples), the reference index of each 8x8 block (below 0 where the list is
// unused) and the identity of the picture that index names.
struct SmH264Motion {
  const int16_t (*mv)[16][2];
  const int8_t (*refIdx)[4];
  const uint32_t (*refPicture)[4];
};

// Which pairs of neighbouring 4x4 blocks differ in motion, the boundary
// strength 1 of an edge without coefficients: bit b of edges[0] for block b
// and the block left of it, of edges[1] for block b and the block above it.
// The blocks of column 0 meet column 3 of `left`, those of row 0 row 3 of
// `top`. Blocks differ where they predict from different pictures or from a
// different number of them, or where vectors that predict from the same
// picture lie a whole sample apart or more (verticalLimit quarter samples
// vertically, 4 in frames and 2 in fields); two vectors for one picture
// twice differ only if they do whichever way they are paired. With `list` 0
// or 1, every block compared predicts from that list alone and only it is
// read; with -1 both lists are. Bits of blocks that use neither list mean
// nothing.
void H264GetMotionEdges(const SmH264Motion& q, const SmH264Motion& left, const SmH264Motion& top,
                        int list, int verticalLimit, uint16_t* edges);

// A vertical edge whose lines differ in strength and thresholds: beside a
// macroblock pair of the other kind (frame lines beside field lines) the
// neighbour changes from line to line. Line i filters with alpha[i] and
// beta[i] at strength[i]: 0 leaves it alone, 4 is the strong filter, 1 to 3
// the normal one with tc0[i]. Luma has 16 lines; the chroma form takes
// eight lines of each plane, Cb's first.
struct SmH264EdgeLines {
  uint8_t alpha[16];
  uint8_t beta[16];
  uint8_t strength[16];
  int8_t tc0[16];
};
void H264FilterLumaVerticalEdgeLines(uint8_t* q, ptrdiff_t stride, const SmH264EdgeLines& lines);
void H264FilterChromaVerticalEdgesLines(uint8_t* qCb, uint8_t* qCr, ptrdiff_t stride,
                                        const SmH264EdgeLines& lines);

namespace NmReference {
void H264FilterLumaVerticalEdge(uint8_t* q, ptrdiff_t stride, int alpha, int beta,
                                const int8_t* tc0);
void H264FilterLumaHorizontalEdge(uint8_t* q, ptrdiff_t stride, int alpha, int beta,
                                  const int8_t* tc0);
void H264FilterLumaVerticalEdgeIntra(uint8_t* q, ptrdiff_t stride, int alpha, int beta);
void H264FilterLumaHorizontalEdgeIntra(uint8_t* q, ptrdiff_t stride, int alpha, int beta);
void H264FilterChromaVerticalEdge(uint8_t* q, ptrdiff_t stride, int alpha, int beta,
                                  const int8_t* tc0);
void H264FilterChromaHorizontalEdge(uint8_t* q, ptrdiff_t stride, int alpha, int beta,
                                    const int8_t* tc0);
void H264FilterChromaVerticalEdgeIntra(uint8_t* q, ptrdiff_t stride, int alpha, int beta);
void H264FilterChromaHorizontalEdgeIntra(uint8_t* q, ptrdiff_t stride, int alpha, int beta);
void H264FilterChromaVerticalEdges(uint8_t* qCb, uint8_t* qCr, ptrdiff_t stride, const int* alpha,
                                   const int* beta, const int8_t* tc0);
void H264FilterChromaVerticalEdgesIntra(uint8_t* qCb, uint8_t* qCr, ptrdiff_t stride,
                                        const int* alpha, const int* beta);
void H264GetMotionEdges(const SmH264Motion& q, const SmH264Motion& left, const SmH264Motion& top,
                        int list, int verticalLimit, uint16_t* edges);

void H264FilterLumaVerticalEdgeLines(uint8_t* q, ptrdiff_t stride, const SmH264EdgeLines& lines);
void H264FilterChromaVerticalEdgesLines(uint8_t* qCb, uint8_t* qCr, ptrdiff_t stride,
                                        const SmH264EdgeLines& lines);
} // namespace NmReference

} // namespace NmPrimitives
