#pragma once

#include <functional>
#include <memory>

#include "MediaProcessing/Video/JPEG2000/ThirdPartyJPEG2000.h"
#include "MediaProcessing/Video/VideoDecoder.h"

namespace NmMediaProcessing {

// Makes the codec object for one call; JPEG 2000 frames stand alone, so a
// fresh codec per frame costs nothing that could be kept.
using CmJPEG2000CodecMaker = std::function<std::unique_ptr<ImThirdPartyJPEG2000>()>;

// The JPEG 2000 codec behind the video decoder interface. Every frame is a
// sync frame and leaves in the call that brings it.
class CmVideoDecoderJPEG2000 : public ImVideoDecoder {
public:
  // Decodes with OpenJPEG.
  CmVideoDecoderJPEG2000();
  explicit CmVideoDecoderJPEG2000(CmJPEG2000CodecMaker makeCodec);

  bool Decode(const uint8_t* data, uint64_t size, int32_t imageId,
              const NmTimeStamp::CmTimeStamp& time, CmImage& image,
              SmVideoDecodeResult& result) override;
  void Reset() override {}
  SmVideoDecodeParameters GetParameters() const override { return m_Parameters; }
  void SetParameters(const SmVideoDecodeParameters& parameters) override {
    m_Parameters = parameters;
  }

private:
  CmJPEG2000CodecMaker m_MakeCodec;
  SmVideoDecodeParameters m_Parameters;
};

} // namespace NmMediaProcessing
