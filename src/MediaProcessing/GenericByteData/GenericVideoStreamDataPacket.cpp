#include "MediaProcessing/GenericByteData/GenericVideoStreamDataPacket.h"

#include "MediaProcessing/GenericByteData/ImageFormBits.h"
#include "MediaProcessing/GenericByteData/VideoCodec.h"

namespace NmMediaProcessing {

using CmScopedLock = NmThread::CmCriticalSection::CmScopedLock;
using NmTimeStamp::CmTimeStamp;

namespace {
constexpr uint64_t CodecOffset = 6;
constexpr uint64_t SequenceNumberOffset = 8;
constexpr uint64_t FlagsOffset = 10;
constexpr uint64_t SyncTimeOffset = 12;
constexpr uint64_t FrameTimeOffset = 20;
constexpr uint16_t SyncFlag = 1;
} // namespace

bool CmGenericVideoStreamDataPacket::IsValidType(int32_t type) const {
  return type == SmByteDataType::VideoStreamDataPacket;
}

uint64_t CmGenericVideoStreamDataPacket::GetHeaderLength(int32_t type) const {
  return IsValidType(type) ? HeaderLength : CmGenericByteDataSinglePacket::GetHeaderLength(type);
}

uint32_t CmGenericVideoStreamDataPacket::GetCodec() const {
  CmScopedLock lock(m_Lock);
  if (!CanAccessFields()) {
    return 0;
  }
  const uint32_t codec = ReadU16(CodecOffset);
  return IsKnownVideoCodecValue(codec) ? codec : 0;
}

bool CmGenericVideoStreamDataPacket::SetCodec(uint32_t codec) {
  CmScopedLock lock(m_Lock);
  if (!CanAccessFields() || !IsKnownVideoCodecValue(codec)) {
    return false;
  }
  WriteU16(CodecOffset, static_cast<uint16_t>(codec));
  return true;
}

uint16_t CmGenericVideoStreamDataPacket::GetSequenceNumber() const {
  CmScopedLock lock(m_Lock);
  return CanAccessFields() ? ReadSequenceNumber() : 0;
}

bool CmGenericVideoStreamDataPacket::SetSequenceNumber(uint16_t sequenceNumber) {
  CmScopedLock lock(m_Lock);
  if (!CanAccessFields()) {
    return false;
  }
  WriteU16(SequenceNumberOffset, sequenceNumber);
  return true;
}

uint16_t CmGenericVideoStreamDataPacket::GetPreviousSequenceNumber() const {
  CmScopedLock lock(m_Lock);
  return CanAccessFields() ? static_cast<uint16_t>(ReadSequenceNumber() - 1) : 0;
}

bool CmGenericVideoStreamDataPacket::GetSync() const {
  CmScopedLock lock(m_Lock);
  return CanAccessFields() && (ReadU16(FlagsOffset) & SyncFlag) != 0;
}

bool CmGenericVideoStreamDataPacket::SetSync(bool sync) {
  CmScopedLock lock(m_Lock);
  if (!CanAccessFields()) {
    return false;
  }
  const uint16_t flags = ReadU16(FlagsOffset);
  WriteU16(FlagsOffset, static_cast<uint16_t>(sync ? flags | SyncFlag : flags & ~SyncFlag));
  return true;
}

CmTimeStamp CmGenericVideoStreamDataPacket::GetSyncTime() const {
  CmScopedLock lock(m_Lock);
  return CanAccessFields() ? ReadTime(SyncTimeOffset) : CmTimeStamp();
}

bool CmGenericVideoStreamDataPacket::SetSyncTime(const CmTimeStamp& time) {
  CmScopedLock lock(m_Lock);
  if (!CanAccessFields()) {
    return false;
  }
  WriteTime(SyncTimeOffset, time);
  return true;
}

CmTimeStamp CmGenericVideoStreamDataPacket::GetFrameTime() const {
  CmScopedLock lock(m_Lock);
  return CanAccessFields() ? ReadTime(FrameTimeOffset) : CmTimeStamp();
}

bool CmGenericVideoStreamDataPacket::SetFrameTime(const CmTimeStamp& time) {
  CmScopedLock lock(m_Lock);
  if (!CanAccessFields()) {
    return false;
  }
  WriteTime(FrameTimeOffset, time);
  return true;
}

bool CmGenericVideoStreamDataPacket::GetInterlacing(bool& interlaced, bool& topFieldFirst,
                                                    uint32_t& layout) const {
  CmScopedLock lock(m_Lock);
  if (!CanAccessFields()) {
    interlaced = false;
    topFieldFirst = false;
    layout = 0;
    return false;
  }
  NmImageFormBits::DecodeInterlacing(ReadU16(FlagsOffset), interlaced, topFieldFirst, layout);
  return true;
}

bool CmGenericVideoStreamDataPacket::SetInterlacing(bool interlaced, bool topFieldFirst,
                                                    uint32_t layout) {
  CmScopedLock lock(m_Lock);
  if (!CanAccessFields() || layout > 3) {
    return false;
  }
  WriteU16(FlagsOffset, static_cast<uint16_t>(NmImageFormBits::EncodeInterlacing(
                            ReadU16(FlagsOffset), interlaced, topFieldFirst, layout)));
  return true;
}

bool CmGenericVideoStreamDataPacket::GetPictureFormat(uint32_t& pictureFormat) const {
  CmScopedLock lock(m_Lock);
  pictureFormat = 0;
  if (!CanAccessFields()) {
    return false;
  }
  pictureFormat = NmImageFormBits::DecodePictureFormat(ReadU16(FlagsOffset));
  return true;
}

bool CmGenericVideoStreamDataPacket::SetPictureFormat(uint32_t pictureFormat) {
  CmScopedLock lock(m_Lock);
  if (!CanAccessFields() || pictureFormat >= NmImageFormBits::PictureFormatCount) {
    return false;
  }
  WriteU16(FlagsOffset, static_cast<uint16_t>(NmImageFormBits::EncodePictureFormat(
                            ReadU16(FlagsOffset), pictureFormat)));
  return true;
}

} // namespace NmMediaProcessing
