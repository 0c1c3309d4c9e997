#pragma once

#include <vector>

#include "Codecs/H264/Picture.h"
#include "Codecs/H264/ReferenceLists.h"

namespace NmH264 {

// Fills the macroblocks that no slice decoded (their slices were lost or
// broke off) from the same place of the reference picture nearest in output
// order, or with grey when there is none of the picture's size. A damaged
// picture still leaves, and later pictures predict from something close to
// what was lost instead of from what the frame buffer held before. Records
// that no macroblock wrote are cleared for the loop filter and the motion
// kept. Returns how
// many macroblocks it filled. Every picture whose decoding did not prove
// that its macroblocks were all decoded must come here before the loop
// filter reads its records.
uint32_t ConcealMissingMacroblocks(CmPicture& picture,
                                   const std::vector<SmReferenceFrame>& references);

} // namespace NmH264
