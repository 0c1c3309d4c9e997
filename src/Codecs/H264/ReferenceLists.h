#pragma once

#include <cstdint>
#include <vector>

#include "Codecs/H264/Picture.h"
#include "Codecs/H264/SliceHeader.h"

namespace NmH264 {

// A frame that may serve as a reference, with the numbers of clause 8.2.4.1.
struct SmReferenceFrame {
  const CmPicture* picture = nullptr;
  uint32_t frameNum = 0;
  bool longTerm = false;
  uint32_t longTermFrameIdx = 0;
  // Which fields are references: bit 0 the top, bit 1 the bottom. A frame
  // counts for frame lists only with both.
  uint8_t fields = 3;
};

// The reference picture lists of a P or B slice of a frame or a field: their initial
// order (8.2.4.2.1, 8.2.4.2.3) and the slice's modifications (8.2.4.3),
// each as long as the slice's number of active references; entries that no
// picture fills stay null. False when a modification names a picture that
// is not there. The current picture's order count orders B lists. A field's
// lists hold the reference frames' field pictures, which must exist.
bool BuildReferenceLists(const std::vector<SmReferenceFrame>& frames, const SmSliceHeader& header,
                         uint32_t maxFrameNum, int32_t currentPoc, SmReferenceList lists[2]);

} // namespace NmH264
