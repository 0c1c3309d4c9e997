#pragma once

// Records through a video decoder of the toolkits as they feed it: each
// record until the decoder wants no further call, with the choices of a
// fuzz input's first byte.

#include <cstddef>
#include <cstdint>

#include "Common/Error/Error.h"
#include "MediaProcessing/Image/Image.h"
#include "MediaProcessing/Video/VideoDecoder.h"

namespace NmFuzz {

// Decode mode, low delay, luminance only and scale as bits of `choice`.
inline NmMediaProcessing::SmVideoDecodeParameters DecodeParameters(uint8_t choice) {
  NmMediaProcessing::SmVideoDecodeParameters parameters;
  parameters.m_DecodeMode = (choice >> 1) % 3;
  parameters.m_LowDelay = (choice & 8) != 0;
  parameters.m_LuminanceOnly = (choice & 4) != 0;
  parameters.m_ScaleDivisor = 1u << ((choice >> 6) & 3);
  return parameters;
}

// The repeat protocol: a call that consumes nothing ends the record, as the
// codec would only say the same again.
inline void FeedRecord(NmMediaProcessing::ImVideoDecoder& decoder,
                       NmMediaProcessing::CmImage& image, const uint8_t* record, size_t length,
                       int32_t id) {
  NmMediaProcessing::SmVideoDecodeResult result;
  for (int calls = 0; calls < 64; ++calls) {
    try {
      if (!decoder.Decode(record, length, id, NmTimeStamp::CmTimeStamp::FromMilliseconds(40 * id),
                          image, result) ||
          !result.m_CallAgain || result.m_NothingConsumed) {
        return;
      }
    } catch (const NmError::CmError&) {
      return;
    }
  }
}

} // namespace NmFuzz
