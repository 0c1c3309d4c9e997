#pragma once

#include <cstdint>

#include "Common/TimeStamp/TimeStamp.h"
#include "MediaProcessing/Image/Image.h"
#include "MediaProcessing/Video/VideoDecodeParameters.h"

namespace NmMediaProcessing {

// One codec's decoder. It may hold frames back and reorder them; the id given
// with each frame's data comes back in the result with the image made from it.
class ImVideoDecoder {
public:
  virtual ~ImVideoDecoder() = default;
  // data null and size 0: give out what is still held. False: the codec failed
  // on this input; the decoder stays usable.
  virtual bool Decode(const uint8_t* data, uint64_t size, int32_t imageId,
                      const NmTimeStamp::CmTimeStamp& time, CmImage& image,
                      SmVideoDecodeResult& result) = 0;
  virtual void Reset() = 0;
  virtual SmVideoDecodeParameters GetParameters() const = 0;
  virtual void SetParameters(const SmVideoDecodeParameters& parameters) = 0;
};

} // namespace NmMediaProcessing
