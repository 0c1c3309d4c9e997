#include "MediaProcessing/GenericByteData/GenericByteData.h"

#include <cstring>
#include <limits>
#include <new>

namespace NmMediaProcessing {

using CmScopedLock = NmThread::CmCriticalSection::CmScopedLock;

namespace {
constexpr uint64_t MinimumHeaderLength = 6;
constexpr uint64_t BlockFixedHeaderLength = 36;
constexpr uint64_t TypeOffset = 0;
constexpr uint64_t BlockExtensionLengthOffset = 2;
constexpr uint64_t BlockPayloadLengthOffset = 8;
constexpr uint64_t TotalLengthOffset = 2;

bool IsWithin(const void* pointer, const uint8_t* begin, uint64_t length) {
  const auto p = reinterpret_cast<uintptr_t>(pointer);
  const auto b = reinterpret_cast<uintptr_t>(begin);
  return p >= b && p - b < length;
}
} // namespace

bool IsBlockHeaderType(int32_t type) {
  return (type >= 1 && type <= 12) || type == 15;
}

NmTimeStamp::CmTimeStamp WireTimeToTimeStamp(uint64_t wireTime) {
  if (wireTime > static_cast<uint64_t>(std::numeric_limits<int64_t>::max())) {
    // Far beyond what a time stamp holds: let the time stamp refuse it in its
    // own words rather than wrapping to a negative count.
    return NmTimeStamp::CmTimeStamp::FromMilliseconds(std::numeric_limits<int64_t>::max());
  }
  return NmTimeStamp::CmTimeStamp::FromMilliseconds(static_cast<int64_t>(wireTime));
}

uint64_t TimeStampToWireTime(const NmTimeStamp::CmTimeStamp& time) {
  return static_cast<uint64_t>(time.GetMilliseconds());
}

CmGenericByteData::CmGenericByteData(bool freeOnDestruction)
    : CmGenericByteDataOS(freeOnDestruction) {}

CmGenericByteData::CmGenericByteData(uint8_t* buffer, uint64_t size) {
  Attach(buffer, size);
}

CmGenericByteData::CmGenericByteData(const CmGenericByteData& other) : CmGenericByteDataOS() {
  DeepCopyFrom(other);
}

CmGenericByteData& CmGenericByteData::operator=(const CmGenericByteData& other) {
  if (this != &other) {
    CmScopedLock lock(m_Lock);
    DeepCopyFrom(other);
  }
  return *this;
}

CmGenericByteData::~CmGenericByteData() {
  if (m_FreeOnDestruction) {
    CmScopedLock lock(m_Lock);
    Release();
  }
}

void CmGenericByteData::DeepCopyFrom(const CmGenericByteData& other) {
  Release();
  m_OwnsBuffer = true;
  CmScopedLock lock(other.m_Lock);
  const uint64_t length = other.GetRecordLength();
  if (other.m_Data == nullptr || length == 0) {
    return;
  }
  m_Data = new uint8_t[length];
  m_Allocated = true;
  m_HeaderLength = other.m_HeaderLength;
  m_PayloadLength = other.m_PayloadLength;
  if (SafeCopy(m_Data, other.m_Data, length)) {
    m_FreeOnDestruction = true;
  } else {
    Release();
  }
}

bool CmGenericByteData::IsValidType(int32_t type) const {
  return IsBlockHeaderType(type) || type == SmByteDataType::RawJPEG ||
         (type >= SmByteDataType::FirstSinglePacket && type <= SmByteDataType::LastSinglePacket) ||
         type == SmByteDataType::MultiPacket;
}

uint64_t CmGenericByteData::GetHeaderLength(int32_t type) const {
  CmScopedLock lock(m_Lock);
  if (type == SmByteDataType::RawJPEG) {
    return 0;
  }
  if (IsBlockHeaderType(type)) {
    // A record too short to hold the field reads it as 0.
    return BlockFixedHeaderLength + ReadU16(BlockExtensionLengthOffset);
  }
  return MinimumHeaderLength;
}

void CmGenericByteData::ClearView() {
  m_Data = nullptr;
  m_Allocated = false;
  m_HeaderLength = 0;
  m_PayloadLength = 0;
}

bool CmGenericByteData::Attach(uint8_t* buffer, uint64_t size) {
  CmScopedLock lock(m_Lock);
  if (buffer == nullptr || size < MinimumHeaderLength) {
    ClearView();
    return false;
  }
  // Provisional lengths so that the type and length fields can be read.
  m_Data = buffer;
  m_HeaderLength = MinimumHeaderLength;
  m_PayloadLength = size - MinimumHeaderLength;
  const uint64_t headerLength = GetHeaderLength(GetType());
  uint64_t declaredLength = size;
  if (headerLength >= MinimumHeaderLength && headerLength <= size) {
    m_HeaderLength = headerLength;
    m_PayloadLength = size - headerLength;
    if (const uint64_t declared = GetDeclaredLength(); declared != 0) {
      declaredLength = declared;
    }
  }
  // A record must have a payload and must fit its buffer; a buffer longer
  // than the record is fine, the tail belongs to somebody else.
  if (declaredLength > size || headerLength >= declaredLength) {
    ClearView();
    return false;
  }
  m_HeaderLength = headerLength;
  m_PayloadLength = declaredLength - headerLength;
  m_Allocated = false;
  m_OwnsBuffer = false;
  return true;
}

uint64_t CmGenericByteData::GetDeclaredLength() const {
  CmScopedLock lock(m_Lock);
  const int32_t type = GetType();
  if (type == SmByteDataType::RawJPEG) {
    return 0;
  }
  if (IsBlockHeaderType(type)) {
    return ReadU16(BlockExtensionLengthOffset) + uint64_t{ReadU32(BlockPayloadLengthOffset)} +
           BlockFixedHeaderLength;
  }
  return ReadU32(TotalLengthOffset);
}

bool CmGenericByteData::CanAccessFields() const {
  CmScopedLock lock(m_Lock);
  return m_Data != nullptr && m_HeaderLength >= MinimumHeaderLength && IsValidType(GetType());
}

void CmGenericByteData::Release() {
  CmScopedLock lock(m_Lock);
  if (m_OwnsBuffer && m_Data != nullptr) {
    delete[] m_Data;
  }
  ClearView();
}

bool CmGenericByteData::Allocate(uint64_t payloadLength) {
  CmScopedLock lock(m_Lock);
  if (payloadLength == 0 || !CanAllocate()) {
    return false;
  }
  Release();
  const int32_t type = GetDefaultType();
  const uint64_t headerLength = GetHeaderLength(type);
  const bool isBlock = IsBlockHeaderType(type);
  // The length must fit the record's own 32-bit length field.
  const uint64_t fieldLimit = std::numeric_limits<uint32_t>::max();
  if (isBlock ? payloadLength > fieldLimit
              : type != SmByteDataType::RawJPEG &&
                    (payloadLength > fieldLimit || headerLength + payloadLength > fieldLimit)) {
    return false;
  }
  const uint64_t length = headerLength + payloadLength;
  if (length < payloadLength || length > std::numeric_limits<size_t>::max()) {
    return false;
  }
  m_Data = new (std::nothrow) uint8_t[length];
  if (m_Data == nullptr) {
    ClearView();
    return false;
  }
  m_Allocated = true;
  std::memset(m_Data, 0, headerLength);
  m_HeaderLength = headerLength;
  m_PayloadLength = payloadLength;
  WriteU16(TypeOffset, static_cast<uint16_t>(type));
  if (isBlock) {
    WriteU32(BlockPayloadLengthOffset, static_cast<uint32_t>(payloadLength));
  } else if (type != SmByteDataType::RawJPEG) {
    WriteU32(TotalLengthOffset, static_cast<uint32_t>(length));
  }
  return true;
}

bool CmGenericByteData::Clear() {
  CmScopedLock lock(m_Lock);
  Release();
  return true;
}

bool CmGenericByteData::IsEmpty() const {
  CmScopedLock lock(m_Lock);
  return m_Data == nullptr;
}

int32_t CmGenericByteData::GetType() const {
  CmScopedLock lock(m_Lock);
  if (m_Data == nullptr) {
    return SmByteDataType::MultiPacket;
  }
  if (GetRecordLength() < 2) {
    return SmByteDataType::Invalid;
  }
  return ReadU16(TypeOffset);
}

bool CmGenericByteData::SetType(int32_t type) {
  CmScopedLock lock(m_Lock);
  if (m_Data == nullptr || m_HeaderLength < MinimumHeaderLength || !IsValidType(type)) {
    return false;
  }
  const uint64_t length = GetRecordLength();
  const uint64_t headerLength = GetHeaderLength(type);
  if (headerLength < MinimumHeaderLength || headerLength > length) {
    return false;
  }
  m_HeaderLength = headerLength;
  m_PayloadLength = length - headerLength;
  WriteU16(TypeOffset, static_cast<uint16_t>(type));
  return true;
}

bool CmGenericByteData::IsTypeValid() const {
  CmScopedLock lock(m_Lock);
  return IsValidType(GetType());
}

bool CmGenericByteData::IsRawJPEG() const {
  return GetType() == SmByteDataType::RawJPEG;
}

bool CmGenericByteData::IsBlock() const {
  const int32_t type = GetType();
  return IsBlockHeaderType(type) || type == SmByteDataType::RawJPEG;
}

bool CmGenericByteData::IsPacket() const {
  const int32_t type = GetType();
  return type >= SmByteDataType::FirstSinglePacket && type <= SmByteDataType::LastSinglePacket;
}

bool CmGenericByteData::IsMultiPacket() const {
  return GetType() == SmByteDataType::MultiPacket;
}

uint8_t* CmGenericByteData::GetData() const {
  CmScopedLock lock(m_Lock);
  return m_Data;
}

uint8_t* CmGenericByteData::GetPayload() const {
  CmScopedLock lock(m_Lock);
  return m_Data == nullptr ? nullptr : m_Data + m_HeaderLength;
}

uint64_t CmGenericByteData::GetLength() const {
  CmScopedLock lock(m_Lock);
  return GetRecordLength();
}

uint64_t CmGenericByteData::GetPayloadLength() const {
  CmScopedLock lock(m_Lock);
  return m_PayloadLength;
}

bool CmGenericByteData::CopyTo(uint8_t* destination, uint64_t capacity) const {
  CmScopedLock lock(m_Lock);
  const uint64_t length = GetRecordLength();
  if (m_Data == nullptr || destination == nullptr || capacity < length) {
    return false;
  }
  if (destination == m_Data) {
    return capacity == length;
  }
  if (IsWithin(destination, m_Data, length)) {
    return false;
  }
  return SafeCopy(destination, m_Data, length);
}

bool CmGenericByteData::CopyPayloadFrom(const uint8_t* source, uint64_t size) {
  CmScopedLock lock(m_Lock);
  if (m_Data == nullptr || source == nullptr || size > m_PayloadLength) {
    return false;
  }
  if (IsWithin(source, m_Data, GetRecordLength())) {
    return source == GetPayload() && size == m_PayloadLength;
  }
  // The whole payload is filled whatever size says: callers hand over the
  // payload's complete contents, and size only guards against an overrun of
  // the record.
  return SafeCopy(GetPayload(), source, m_PayloadLength);
}

void CmGenericByteData::SetFreeOnDestruction(bool freeOnDestruction) {
  CmScopedLock lock(m_Lock);
  m_FreeOnDestruction = freeOnDestruction;
}

void CmGenericByteData::SetOwnsBuffer(bool ownsBuffer) {
  CmScopedLock lock(m_Lock);
  m_OwnsBuffer = ownsBuffer;
}

bool CmGenericByteData::GetOwnsBuffer() const {
  CmScopedLock lock(m_Lock);
  return m_OwnsBuffer;
}

NmTimeStamp::CmTimeStamp CmGenericByteData::ReadTime(uint64_t offset) const {
  return WireTimeToTimeStamp(ReadU64(offset));
}

void CmGenericByteData::WriteTime(uint64_t offset, const NmTimeStamp::CmTimeStamp& time) {
  WriteU64(offset, TimeStampToWireTime(time));
}

uint32_t CmGenericByteData::ReadField(SmHeaderField field) const {
  switch (field.width) {
  case 1:
    return ReadU8(field.offset);
  case 2:
    return ReadU16(field.offset);
  default:
    return ReadU32(field.offset);
  }
}

void CmGenericByteData::WriteField(SmHeaderField field, uint32_t value) {
  switch (field.width) {
  case 1:
    WriteU8(field.offset, static_cast<uint8_t>(value));
    break;
  case 2:
    WriteU16(field.offset, static_cast<uint16_t>(value));
    break;
  default:
    WriteU32(field.offset, value);
    break;
  }
}

uint32_t CmGenericByteData::GetField(SmHeaderField field) const {
  CmScopedLock lock(m_Lock);
  return CanAccessFields() ? ReadField(field) : 0;
}

bool CmGenericByteData::SetField(SmHeaderField field, uint32_t value, bool accepted) {
  CmScopedLock lock(m_Lock);
  if (!CanAccessFields() || !accepted) {
    return false;
  }
  WriteField(field, value);
  return true;
}

NmTimeStamp::CmTimeStamp CmGenericByteData::GetTimeField(uint64_t offset) const {
  CmScopedLock lock(m_Lock);
  return CanAccessFields() ? ReadTime(offset) : NmTimeStamp::CmTimeStamp();
}

bool CmGenericByteData::SetTimeField(uint64_t offset, const NmTimeStamp::CmTimeStamp& time) {
  CmScopedLock lock(m_Lock);
  if (!CanAccessFields()) {
    return false;
  }
  WriteTime(offset, time);
  return true;
}

bool CmGenericByteData::GetFlag(SmHeaderField flags, uint32_t bit) const {
  return (GetField(flags) & bit) != 0;
}

bool CmGenericByteData::SetFlag(SmHeaderField flags, uint32_t bit, bool set) {
  CmScopedLock lock(m_Lock);
  if (!CanAccessFields()) {
    return false;
  }
  const uint32_t value = ReadField(flags);
  WriteField(flags, set ? value | bit : value & ~bit);
  return true;
}

} // namespace NmMediaProcessing
