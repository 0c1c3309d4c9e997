#pragma once

#include <cstdint>
#include <vector>

#include "Codecs/H264/ReferenceLists.h"
#include "Codecs/H264/SliceHeader.h"

namespace NmH264 {

// The frames marked as references, and the largest long-term index allowed
// (-1 for none).
struct SmReferenceState {
  std::vector<SmReferenceFrame> frames;
  int64_t maxLongTermFrameIdx = -1;
};

// The decoded reference picture marking of clause 8.2.5 for a decoded
// reference frame: an IDR frame's, the sliding window or the memory
// management operations of its slice header, and the frame itself added.
// False when an operation names a frame that is not there; the others are
// still carried out. A field (parity 0 top, 1 bottom; -1 for a frame) joins
// the entry of its frame when the first field of that frame is a reference
// already, and counts as a frame of its own otherwise.
bool MarkReferences(SmReferenceState& state, const SmSliceHeader& header, const CmPicture* current,
                    uint32_t maxNumRefFrames, uint32_t maxFrameNum, int parity = -1);

} // namespace NmH264
