#pragma once

#include <cstddef>
#include <cstdint>

// Intra prediction of H.264 blocks in place: dst is the block's top left in
// the picture, whose decoded neighbours around it (the row above from one
// before the block to as far as the mode reaches, the column to the left)
// are read as the flags allow. Modes are those of the standard: 0 to 8 for
// 4x4 and 8x8 luma, 0 to 3 for 16x16 luma (vertical, horizontal, DC, plane)
// and for 8x8 chroma of 4:2:0 (DC, horizontal, vertical, plane).
namespace NmPrimitives {

// Which neighbours are available for prediction; the top right one counts
// only for 4x4 and 8x8 luma, where its absence repeats the last sample above.
struct SmH264IntraNeighbours {
  bool hasLeft, hasTop, hasTopRight, hasCorner;
};

void H264PredictIntra4x4(uint8_t* dst, ptrdiff_t stride, int mode, const SmH264IntraNeighbours& n);
// 8x8 luma filters the neighbours first.
void H264PredictIntra8x8(uint8_t* dst, ptrdiff_t stride, int mode, const SmH264IntraNeighbours& n);
void H264PredictIntra16x16(uint8_t* dst, ptrdiff_t stride, int mode,
                           const SmH264IntraNeighbours& n);
void H264PredictIntraChroma8x8(uint8_t* dst, ptrdiff_t stride, int mode,
                               const SmH264IntraNeighbours& n);

namespace NmReference {
void H264PredictIntra4x4(uint8_t* dst, ptrdiff_t stride, int mode, const SmH264IntraNeighbours& n);
void H264PredictIntra8x8(uint8_t* dst, ptrdiff_t stride, int mode, const SmH264IntraNeighbours& n);
void H264PredictIntra16x16(uint8_t* dst, ptrdiff_t stride, int mode,
                           const SmH264IntraNeighbours& n);
void H264PredictIntraChroma8x8(uint8_t* dst, ptrdiff_t stride, int mode,
                               const SmH264IntraNeighbours& n);
} // namespace NmReference

} // namespace NmPrimitives
