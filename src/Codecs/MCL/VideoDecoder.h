#pragma once

#include <cstdint>

#include "Codecs/MCL/BaseCodec.h"
#include "Codecs/MCL/VideoDecoderParams.h"
#include "Codecs/MCL/VideoProcessing.h"

namespace MCL {

// A video codec: GetFrame takes coded data and hands each finished picture to
// the post-processing stage together with the caller's output.
class VideoDecoder : public BaseCodec {
public:
  // Keeps a copy of the parameters; -995 when they are not VideoDecoderParams.
  Status Init(BaseCodecParams* params) override;
  // Fills the stream info of VideoDecoderParams from what Init kept.
  Status GetInfo(BaseCodecParams* params) override;
  Status Close() override;

  // Not owned. Without one a decoder delivers nothing.
  void SetPostProcessing(VideoProcessing* stage) { m_PostProcessing = stage; }
  VideoProcessing* GetPostProcessing() const { return m_PostProcessing; }

  // How many pictures the caller gives per call and how many it may hold at
  // once; a decoder that writes straight into the caller's image needs one each.
  void SetImageCounts(int32_t input, int32_t output) {
    m_InputImageCount = input;
    m_OutputImageCount = output;
  }
  int32_t GetInputImageCount() const { return m_InputImageCount; }
  int32_t GetOutputImageCount() const { return m_OutputImageCount; }

protected:
  VideoDecoderParams m_Params;
  VideoProcessing* m_PostProcessing = nullptr;
  int32_t m_InputImageCount = 0;
  int32_t m_OutputImageCount = 0;
};

} // namespace MCL
