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
void H264FilterLumaVerticalEdgeLines(uint8_t* q, ptrdiff_t stride, const SmH264EdgeLines& lines);
void H264FilterChromaVerticalEdgesLines(uint8_t* qCb, uint8_t* qCr, ptrdiff_t stride,
                                        const SmH264EdgeLines& lines);
} // namespace NmReference

} // namespace NmPrimitives
