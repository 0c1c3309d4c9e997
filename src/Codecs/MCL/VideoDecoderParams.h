#pragma once

#include <cstdint>

#include "Codecs/MCL/BaseCodec.h"
#include "Codecs/MCL/MediaData.h"

namespace MCL {

// What a stream says of its pictures, filled by GetInfo.
struct VideoStreamInfo {
  int32_t width = 0;
  int32_t height = 0;
  // Frames per second; 0 when unknown.
  double frameRate = 0.0;
  // Codec-specific form of the stream, e.g. length-prefixed units for H.264.
  int32_t streamSubtype = 0;
};

struct VideoDecoderParams : BaseCodecParams {
  // Flag word of the decoder; the meaning of each bit is the codec's.
  static constexpr uint32_t FlagBase = 0x4;
  static constexpr uint32_t FlagLuminanceOnly = 0x8000000;
  static constexpr uint32_t FlagFilterMode = 0x10000000;
  static constexpr uint32_t FlagLowDelay = 0x20000000;
  static constexpr uint32_t FlagReducedDecoding = 0x40000000;
  static constexpr uint32_t FlagSyncFramesOnly = 0x80000000;

  // Data fed at Init with no output, e.g. the headers of the stream. Not owned.
  MediaData* initialData = nullptr;
  VideoStreamInfo info;
  // 0: as many as the machine offers.
  int32_t numThreads = 1;
  uint32_t flags = 0;
  double playbackRate = 1.0;
};

struct H264VideoDecoderParams : VideoDecoderParams {};

} // namespace MCL
