#pragma once

#include <cstdint>

#include "Codecs/H264/ParameterSets.h"
#include "Codecs/H264/SliceHeader.h"

namespace NmH264 {

// Picture order counts of frames (clause 8.2.1), carrying the state that
// each count type keeps from picture to picture.
class CmPictureOrderCounter {
public:
  // The counts of the picture whose first slice this is: top and bottom.
  void Compute(const SmSequenceParameterSet& sps, const SmSliceHeader& header, int32_t& top,
               int32_t& bottom);
  // After the picture is decoded: what the next picture's counts start
  // from. A picture with memory management operation 5 starts afresh.
  void Finish(const SmSliceHeader& header, int32_t top, int32_t bottom);
  void Reset() { *this = CmPictureOrderCounter(); }

private:
  int64_t m_PrevMsb = 0;
  uint32_t m_PrevLsb = 0;
  int64_t m_PrevFrameNumOffset = 0;
  uint32_t m_PrevFrameNum = 0;
  int64_t m_FrameNumOffset = 0;
  int64_t m_Msb = 0;
};

} // namespace NmH264
