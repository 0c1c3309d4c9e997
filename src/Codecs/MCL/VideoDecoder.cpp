#include "Codecs/MCL/VideoDecoder.h"

namespace MCL {

Status VideoDecoder::Init(BaseCodecParams* params) {
  auto* video = dynamic_cast<VideoDecoderParams*>(params);
  if (video == nullptr) {
    return StatusNullPointer;
  }
  m_Params = *video;
  // The initial data belongs to the caller and is only valid during Init.
  m_Params.initialData = nullptr;
  return StatusOk;
}

Status VideoDecoder::GetInfo(BaseCodecParams* params) {
  auto* video = dynamic_cast<VideoDecoderParams*>(params);
  if (video == nullptr) {
    return StatusNullPointer;
  }
  video->info = m_Params.info;
  return StatusOk;
}

Status VideoDecoder::Close() {
  return StatusOk;
}

} // namespace MCL
