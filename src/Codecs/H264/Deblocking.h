#pragma once

#include <cstdint>
#include <vector>

#include "Codecs/H264/Picture.h"

namespace NmH264 {

// What the loop filter needs of each slice of a picture, by slice number.
struct SmSliceFilterParameters {
  uint32_t disableIdc = 0; // disable_deblocking_filter_idc
  int32_t alphaOffset = 0; // FilterOffsetA
  int32_t betaOffset = 0;  // FilterOffsetB
  int32_t chromaQpOffset[2] = {0, 0};
};

// The deblocking filter of clause 8.7 over a whole decoded frame, macroblock
// by macroblock in raster order. slices[n] belongs to slice number n.
void DeblockPicture(CmPicture& picture, const std::vector<SmSliceFilterParameters>& slices);

} // namespace NmH264
