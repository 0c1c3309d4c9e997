#include "MediaProcessing/GenericByteData/VideoCodec.h"

#include "MediaProcessing/GenericByteData/GenericByteData.h"

namespace NmMediaProcessing {

bool ByteDataTypeToCodec(int32_t type, uint32_t& codecOut) {
  if (type >= 1 && type <= 10) {
    codecOut = static_cast<uint32_t>(type);
  } else if (type == 11) {
    codecOut = 12;
  } else if (type == 12) {
    codecOut = 13;
  } else if (type == 15) {
    codecOut = SmVideoCodec::MxPEG;
  } else if (type == SmByteDataType::RawJPEG) {
    codecOut = SmVideoCodec::JPEG;
  } else {
    return false;
  }
  return true;
}

bool CodecToByteDataType(uint32_t codec, int32_t& typeOut) {
  if (codec >= 1 && codec <= 10) {
    typeOut = static_cast<int32_t>(codec);
  } else if (codec == 11) {
    // A variant of MPEG-4 that the block numbering never had a type for.
    typeOut = 4;
  } else if (codec == 12) {
    typeOut = 11;
  } else if (codec == 13) {
    typeOut = 12;
  } else if (codec == SmVideoCodec::MxPEG) {
    typeOut = 15;
  } else {
    return false;
  }
  return true;
}

bool IsIntraOnlyCodec(uint32_t codec) {
  return codec == SmVideoCodec::JPEG || codec == SmVideoCodec::JPEG2000;
}

bool IsKnownVideoCodecValue(uint32_t codec) {
  return (codec >= 1 && codec <= 13) || codec == SmVideoCodec::MxPEG;
}

bool IsKnownAudioCodecValue(uint32_t codec) {
  return (codec >= 1 && codec <= 12) || (codec >= 16 && codec <= 20);
}

} // namespace NmMediaProcessing
