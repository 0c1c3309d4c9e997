#pragma once

#include <cstdint>

#include "MediaProcessing/JPEG/JPEGDecoder.h"
#include "MediaProcessing/JPEG/MemBuffInput.h"
#include "MediaProcessing/Video/VideoDecoder.h"

namespace NmMediaProcessing {

// Starts the decoder on one compressed frame held by `input`, which must
// outlive the decoding. Throws on misuse and on exhausted memory.
void AttachJPEGFrame(CJPEGDecoder& decoder, CMemBuffInput& input, const uint8_t* data,
                     uint32_t size);

// JPEG behind the video decoder interface: one compressed frame in, one
// image out, in the frame's own YCbCr layout or gray. A damaged frame gives no
// image and false; only misuse and exhausted memory throw.
class CmVideoDecoderJPEG : public ImVideoDecoder {
public:
  bool Decode(const uint8_t* data, uint64_t size, int32_t imageId,
              const NmTimeStamp::CmTimeStamp& time, CmImage& image,
              SmVideoDecodeResult& result) override;
  void Reset() override {}
  SmVideoDecodeParameters GetParameters() const override { return m_Parameters; }
  void SetParameters(const SmVideoDecodeParameters& parameters) override;

private:
  bool DecodeUsingJPEGView(const uint8_t* data, uint32_t size, int32_t imageId,
                           const NmTimeStamp::CmTimeStamp& time, CmImage& image,
                           SmVideoDecodeResult& result);

  CJPEGDecoder m_Decoder;
  SmVideoDecodeParameters m_Parameters;
  bool m_DecodingEnabled = true;
  bool m_GrayOnly = false;
  uint32_t m_ScaleDenominator = 1; // 1, 2, 4 or 8
};

} // namespace NmMediaProcessing
