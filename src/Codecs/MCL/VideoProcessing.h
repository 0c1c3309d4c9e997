#pragma once

#include <cstdint>

#include "Codecs/MCL/MediaData.h"
#include "Codecs/MCL/Status.h"

namespace MCL {

struct VideoProcessingParams {
  virtual ~VideoProcessingParams() = default;
};

// The stage that takes each decoded picture to the caller's output: a decoder
// calls GetFrame once per picture it delivers, with the picture as input.
class VideoProcessing {
public:
  virtual ~VideoProcessing() = default;
  virtual Status Init(const VideoProcessingParams& params);
  virtual Status GetFrame(MediaData* input, MediaData* output) = 0;
  bool IsInitialised() const { return m_Initialised; }

protected:
  bool m_Initialised = false;
};

} // namespace MCL
