#include "MediaProcessing/GenericByteData/GenericByteDataMultiPacket.h"

#include "MediaProcessing/GenericByteData/GenericByteDataSinglePacket.h"

namespace NmMediaProcessing {

using CmScopedLock = NmThread::CmCriticalSection::CmScopedLock;

namespace {
constexpr uint64_t PacketCountOffset = 6;
} // namespace

bool CmGenericByteDataMultiPacket::IsValidType(int32_t type) const {
  return type == SmByteDataType::MultiPacket;
}

uint64_t CmGenericByteDataMultiPacket::GetHeaderLength(int32_t type) const {
  return IsValidType(type) ? HeaderLength : CmGenericByteData::GetHeaderLength(type);
}

uint32_t CmGenericByteDataMultiPacket::GetPacketCount() const {
  CmScopedLock lock(m_Lock);
  return CanAccessFields() ? ReadU16(PacketCountOffset) : 0;
}

bool CmGenericByteDataMultiPacket::GetVideoPacket(uint8_t*& dataOut, uint64_t& lengthOut) const {
  return FindPacket(SmByteDataType::VideoStreamDataPacket, 0, dataOut, lengthOut);
}

bool CmGenericByteDataMultiPacket::GetAudioPacket(uint8_t*& dataOut, uint64_t& lengthOut) const {
  return FindPacket(SmByteDataType::AudioStreamDataPacket, 0, dataOut, lengthOut);
}

bool CmGenericByteDataMultiPacket::FindPacket(int32_t wantedType, uint64_t wantedIndex,
                                              uint8_t*& dataOut, uint64_t& lengthOut) const {
  CmScopedLock lock(m_Lock);
  dataOut = nullptr;
  lengthOut = 0;
  const uint64_t packetCount = GetPacketCount();
  if (packetCount == 0 || wantedIndex >= packetCount) {
    return false;
  }
  uint8_t* const payload = m_Data + m_HeaderLength;
  uint64_t consumed = 0;
  uint64_t matches = 0;
  for (uint64_t walked = 0; walked < packetCount && matches <= wantedIndex; ++walked) {
    // Each packet is viewed with all the rest of the payload as its buffer;
    // its own length says where it ends.
    const CmGenericByteDataSinglePacket packet(payload + consumed, m_PayloadLength - consumed);
    consumed += packet.GetLength();
    if (packet.IsEmpty() || consumed > m_PayloadLength) {
      return false;
    }
    if (packet.IsTypeValid() && packet.GetType() == wantedType) {
      if (matches == wantedIndex) {
        dataOut = packet.GetData();
        lengthOut = packet.GetLength();
        return true;
      }
      ++matches;
    }
    if (consumed >= m_PayloadLength) {
      return false;
    }
  }
  return false;
}

} // namespace NmMediaProcessing
