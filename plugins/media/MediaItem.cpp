#include "MediaItem.h"

#include <algorithm>

#include "Common/BitStream/BigEndian.h"
#include "MediaProcessing/GenericByteData/GenericAudioStreamDataPacket.h"
#include "MediaProcessing/GenericByteData/GenericByteData.h"
#include "MediaProcessing/GenericByteData/GenericVideoStreamDataPacket.h"

namespace NmMedia {

size_t PacketHeaderLength(const std::vector<uint8_t>& bytes) {
  using NmMediaProcessing::SmByteDataType;
  if (bytes.size() < 2) {
    return 0;
  }
  const int type = NmBigEndian::Load16(bytes.data());
  const size_t header = type == SmByteDataType::AudioStreamDataPacket
                            ? NmMediaProcessing::CmGenericAudioStreamDataPacket::HeaderLength
                            : NmMediaProcessing::CmGenericVideoStreamDataPacket::HeaderLength;
  return std::min(header, bytes.size());
}

} // namespace NmMedia
