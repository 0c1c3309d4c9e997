#pragma once

#include <cstdint>

namespace NmMediaProcessing {

// Video codec values as packets carry them and the video factory takes them.
// Blocks number their codecs differently, in their type field.
struct SmVideoCodec {
  enum : uint32_t {
    Unknown = 0,
    JPEG = 1,
    H264 = 10,
    JPEG2000 = 8,
    MxPEG = 128,
  };
};

// Block type (or raw JPEG) to codec value and back; false outside the table.
// Codec 11 is written as block type 4 on purpose and so reads back as 4.
bool ByteDataTypeToCodec(int32_t type, uint32_t& codecOut);
bool CodecToByteDataType(uint32_t codec, int32_t& typeOut);
// Intra-only codecs have only sync frames, and their blocks hold one image.
bool IsIntraOnlyCodec(uint32_t codec);

// Range of the codec fields as the getters accept them.
bool IsKnownVideoCodecValue(uint32_t codec);
bool IsKnownAudioCodecValue(uint32_t codec);

} // namespace NmMediaProcessing
