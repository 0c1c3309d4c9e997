#include "Codecs/MCL/VideoProcessing.h"

namespace MCL {

Status VideoProcessing::Init(const VideoProcessingParams&) {
  m_Initialised = true;
  return StatusOk;
}

} // namespace MCL
