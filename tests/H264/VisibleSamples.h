#pragma once

#include <cstdint>
#include <vector>

#include "Codecs/H264/FrameStore.h"
#include "Codecs/H264/ParameterSets.h"

namespace NmH264Test {

// A decoded frame's visible samples, the crop of its sequence applied: the
// planes one after the other, rows tight, as ffmpeg writes raw video.
inline std::vector<uint8_t> VisibleSamples(const MCL::H264DecoderFrame& frame,
                                           const NmH264::SmSequenceParameterSet& sps) {
  const NmH264::CmPicture& picture = frame.GetPicture();
  std::vector<uint8_t> out;
  for (int c = 0; c < (picture.IsMonochrome() ? 1 : 3); ++c) {
    const uint32_t shift = c == 0 ? 0 : 1;
    for (uint32_t y = sps.cropTop >> shift; y < (sps.GetHeight() - sps.cropBottom) >> shift; ++y) {
      const uint8_t* row = picture.GetPlane(c) + y * picture.GetStride(c);
      out.insert(out.end(), row + (sps.cropLeft >> shift),
                 row + ((sps.GetWidth() - sps.cropRight) >> shift));
    }
  }
  return out;
}

} // namespace NmH264Test
