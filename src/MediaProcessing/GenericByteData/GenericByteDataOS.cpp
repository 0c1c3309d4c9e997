#include "MediaProcessing/GenericByteData/GenericByteDataOS.h"

#include <cstring>

#include "Common/BitStream/BigEndian.h"

namespace NmMediaProcessing {

bool CmGenericByteDataOS::IsFieldReadable(uint64_t offset, uint64_t width) const {
  return m_Data != nullptr && offset <= GetRecordLength() && width <= GetRecordLength() - offset;
}

uint8_t CmGenericByteDataOS::ReadU8(uint64_t offset) const {
  return IsFieldReadable(offset, 1) ? m_Data[offset] : 0;
}

uint16_t CmGenericByteDataOS::ReadU16(uint64_t offset) const {
  return IsFieldReadable(offset, 2) ? NmBigEndian::Load16(m_Data + offset) : 0;
}

uint32_t CmGenericByteDataOS::ReadU32(uint64_t offset) const {
  return IsFieldReadable(offset, 4) ? NmBigEndian::Load32(m_Data + offset) : 0;
}

uint64_t CmGenericByteDataOS::ReadU64(uint64_t offset) const {
  return IsFieldReadable(offset, 8) ? NmBigEndian::Load64(m_Data + offset) : 0;
}

void CmGenericByteDataOS::WriteBytes(uint64_t offset, const uint8_t* bytes, uint64_t width) {
  if (m_Data == nullptr || offset > m_HeaderLength || width > m_HeaderLength - offset) {
    return;
  }
  if (m_Allocated) {
    // Our own allocation is known to be writable; no need to probe.
    std::memcpy(m_Data + offset, bytes, width);
  } else {
    WriteAllOrNothing(m_Data + offset, bytes, width);
  }
}

void CmGenericByteDataOS::WriteU8(uint64_t offset, uint8_t value) {
  WriteBytes(offset, &value, 1);
}

void CmGenericByteDataOS::WriteU16(uint64_t offset, uint16_t value) {
  const uint8_t bytes[2] = {static_cast<uint8_t>(value >> 8), static_cast<uint8_t>(value)};
  WriteBytes(offset, bytes, 2);
}

void CmGenericByteDataOS::WriteU32(uint64_t offset, uint32_t value) {
  const uint8_t bytes[4] = {static_cast<uint8_t>(value >> 24), static_cast<uint8_t>(value >> 16),
                            static_cast<uint8_t>(value >> 8), static_cast<uint8_t>(value)};
  WriteBytes(offset, bytes, 4);
}

void CmGenericByteDataOS::WriteU64(uint64_t offset, uint64_t value) {
  uint8_t bytes[8];
  for (int i = 0; i < 8; ++i) {
    bytes[i] = static_cast<uint8_t>(value >> (56 - 8 * i));
  }
  WriteBytes(offset, bytes, 8);
}

} // namespace NmMediaProcessing
