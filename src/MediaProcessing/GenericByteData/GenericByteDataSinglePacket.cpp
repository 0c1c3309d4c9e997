#include "MediaProcessing/GenericByteData/GenericByteDataSinglePacket.h"

namespace NmMediaProcessing {

bool CmGenericByteDataSinglePacket::IsValidType(int32_t type) const {
  return type >= SmByteDataType::FirstSinglePacket && type <= SmByteDataType::LastSinglePacket;
}

namespace {
constexpr SmHeaderField CodecField{6, 2};
constexpr SmHeaderField SequenceNumberField{8, 2};
} // namespace

uint64_t CmGenericStreamDataPacket::GetHeaderLength(int32_t type) const {
  return IsValidType(type) ? GetFixedHeaderLength()
                           : CmGenericByteDataSinglePacket::GetHeaderLength(type);
}

uint32_t CmGenericStreamDataPacket::GetCodec() const {
  const uint32_t codec = GetField(CodecField);
  return IsKnownCodec(codec) ? codec : 0;
}

bool CmGenericStreamDataPacket::SetCodec(uint32_t codec) {
  return SetField(CodecField, codec, IsKnownCodec(codec));
}

uint16_t CmGenericStreamDataPacket::GetSequenceNumber() const {
  return static_cast<uint16_t>(GetField(SequenceNumberField));
}

bool CmGenericStreamDataPacket::SetSequenceNumber(uint16_t sequenceNumber) {
  return SetField(SequenceNumberField, sequenceNumber);
}

uint16_t CmGenericStreamDataPacket::GetPreviousSequenceNumber() const {
  NmThread::CmCriticalSection::CmScopedLock lock(m_Lock);
  return CanAccessFields() ? static_cast<uint16_t>(ReadField(SequenceNumberField) - 1) : 0;
}

} // namespace NmMediaProcessing
