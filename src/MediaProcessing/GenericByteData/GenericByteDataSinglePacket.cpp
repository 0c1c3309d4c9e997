#include "MediaProcessing/GenericByteData/GenericByteDataSinglePacket.h"

namespace NmMediaProcessing {

bool CmGenericByteDataSinglePacket::IsValidType(int32_t type) const {
  return type >= SmByteDataType::FirstSinglePacket && type <= SmByteDataType::LastSinglePacket;
}

uint16_t CmGenericByteDataSinglePacket::ReadSequenceNumber() const {
  return ReadU16(8);
}

} // namespace NmMediaProcessing
