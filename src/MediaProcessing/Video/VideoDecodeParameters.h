#pragma once

#include <cstdint>

namespace NmMediaProcessing {

// What a toolkit asks of a video decoder. Copied by value into every codec
// decoder, so that a codec change keeps the caller's choices.
struct SmVideoDecodeParameters {
  enum DecodeMode : uint32_t {
    DecodeAll = 0,
    DecodeReduced = 1,
    DecodeSyncFramesOnly = 2,
  };

  uint32_t m_DecodeMode = DecodeAll;
  // Non-zero: the decoder derives time stamps from the video stream.
  uint32_t m_VideoStreamTimestamping = 0;
  // Passed on to the codec; its meaning is the codec's.
  uint32_t m_FilterMode = 0;
  // False: decode for state only and give no image out.
  bool m_ProduceImage = true;
  // An interlaced image leaves as two field images.
  bool m_SplitFields = false;
  // Images leave the codec at once instead of in display order after a delay.
  bool m_LowDelay = false;
  bool m_LuminanceOnly = false;
  // Images come out shrunk by this whole factor.
  uint32_t m_ScaleDivisor = 1;
  // Below 2 means one thread.
  uint32_t m_ThreadCount = 0;
};

// What one Decode call of a codec decoder reports. Reset to the defaults
// before each call.
struct SmVideoDecodeResult {
  // The id given with the source data of the frame whose image is delivered.
  int32_t m_ImageId = -1;
  // The codec holds more output for the same source: call again with it.
  bool m_CallAgain = false;
  bool m_ImageProduced = false;
  bool m_NothingConsumed = false;
};

} // namespace NmMediaProcessing
