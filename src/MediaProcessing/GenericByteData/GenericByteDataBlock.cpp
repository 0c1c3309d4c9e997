#include "MediaProcessing/GenericByteData/GenericByteDataBlock.h"

#include <cfenv>
#include <cmath>

#include "MediaProcessing/GenericByteData/ImageFormBits.h"

namespace NmMediaProcessing {

using CmScopedLock = NmThread::CmCriticalSection::CmScopedLock;
using NmTimeStamp::CmTimeStamp;

namespace {
constexpr uint64_t FlagsOffset = 4;
constexpr uint64_t BeginTimeOffset = 12;
constexpr uint64_t EndTimeOffset = 20;
constexpr uint64_t ImageWidthOffset = 28;
constexpr uint64_t ImageHeightOffset = 30;
constexpr uint64_t ComponentCountOffset = 32;
constexpr uint64_t ImageCountOffset = 34;
constexpr uint32_t LastImageAtEndTime = 1u << 1;
constexpr uint32_t U16Limit = 0xFFFF;

// The spacing of images in milliseconds. The quotient is taken rounding
// towards minus infinity: a quotient rounded up can push the ceiling of
// index x interval one millisecond late, so that the last image of a block
// would fall behind the block's own end time (29 ms over 7 intervals).
double ImageInterval(uint64_t durationMs, uint64_t imageCount, bool lastImageAtEndTime) {
  if (imageCount < 2) {
    return 0.0;
  }
  volatile double numerator = static_cast<double>(durationMs);
  volatile double denominator =
      static_cast<double>(lastImageAtEndTime ? imageCount - 1 : imageCount);
  const int savedMode = std::fegetround();
  std::fesetround(FE_DOWNWARD);
  // The volatile operands keep the division between the two mode switches.
  volatile double interval = numerator / denominator;
  std::fesetround(savedMode);
  return interval;
}

CmTimeStamp AddMilliseconds(const CmTimeStamp& time, double milliseconds) {
  return WireTimeToTimeStamp(TimeStampToWireTime(time) + static_cast<uint64_t>(milliseconds));
}
} // namespace

bool CmGenericByteDataBlock::IsValidType(int32_t type) const {
  return IsBlockHeaderType(type) || type == SmByteDataType::RawJPEG;
}

uint32_t CmGenericByteDataBlock::ReadFlags() const {
  return ReadU32(FlagsOffset);
}

bool CmGenericByteDataBlock::UpdateFlags(uint32_t flags) {
  WriteU32(FlagsOffset, flags);
  return true;
}

CmTimeStamp CmGenericByteDataBlock::GetBeginTime() const {
  CmScopedLock lock(m_Lock);
  return CanAccessFields() ? ReadTime(BeginTimeOffset) : CmTimeStamp();
}

bool CmGenericByteDataBlock::SetBeginTime(const CmTimeStamp& time) {
  CmScopedLock lock(m_Lock);
  if (!CanAccessFields()) {
    return false;
  }
  WriteTime(BeginTimeOffset, time);
  return true;
}

CmTimeStamp CmGenericByteDataBlock::GetEndTime() const {
  CmScopedLock lock(m_Lock);
  return CanAccessFields() ? ReadTime(EndTimeOffset) : CmTimeStamp();
}

bool CmGenericByteDataBlock::SetEndTime(const CmTimeStamp& time) {
  CmScopedLock lock(m_Lock);
  if (!CanAccessFields()) {
    return false;
  }
  WriteTime(EndTimeOffset, time);
  return true;
}

uint32_t CmGenericByteDataBlock::GetImageWidth() const {
  CmScopedLock lock(m_Lock);
  return CanAccessFields() ? ReadU16(ImageWidthOffset) : 0;
}

bool CmGenericByteDataBlock::SetImageWidth(uint32_t width) {
  CmScopedLock lock(m_Lock);
  if (!CanAccessFields() || width > U16Limit) {
    return false;
  }
  WriteU16(ImageWidthOffset, static_cast<uint16_t>(width));
  return true;
}

uint32_t CmGenericByteDataBlock::GetImageHeight() const {
  CmScopedLock lock(m_Lock);
  return CanAccessFields() ? ReadU16(ImageHeightOffset) : 0;
}

bool CmGenericByteDataBlock::SetImageHeight(uint32_t height) {
  CmScopedLock lock(m_Lock);
  if (!CanAccessFields() || height > U16Limit) {
    return false;
  }
  WriteU16(ImageHeightOffset, static_cast<uint16_t>(height));
  return true;
}

bool CmGenericByteDataBlock::SetComponentCount(uint32_t count) {
  CmScopedLock lock(m_Lock);
  if (!CanAccessFields() || count > U16Limit) {
    return false;
  }
  WriteU16(ComponentCountOffset, static_cast<uint16_t>(count));
  return true;
}

uint32_t CmGenericByteDataBlock::GetImageCount() const {
  CmScopedLock lock(m_Lock);
  return CanAccessFields() ? ReadU16(ImageCountOffset) : 0;
}

bool CmGenericByteDataBlock::SetImageCount(uint32_t count) {
  CmScopedLock lock(m_Lock);
  if (!CanAccessFields() || count > U16Limit) {
    return false;
  }
  WriteU16(ImageCountOffset, static_cast<uint16_t>(count));
  return true;
}

bool CmGenericByteDataBlock::GetInterlacing(bool& interlaced, bool& topFieldFirst,
                                            uint32_t& layout) const {
  CmScopedLock lock(m_Lock);
  if (!CanAccessFields()) {
    interlaced = false;
    topFieldFirst = false;
    layout = 0;
    return false;
  }
  NmImageFormBits::DecodeInterlacing(ReadFlags(), interlaced, topFieldFirst, layout);
  return true;
}

bool CmGenericByteDataBlock::SetInterlacing(bool interlaced, bool topFieldFirst, uint32_t layout) {
  CmScopedLock lock(m_Lock);
  if (!CanAccessFields() || layout > 3) {
    return false;
  }
  return UpdateFlags(
      NmImageFormBits::EncodeInterlacing(ReadFlags(), interlaced, topFieldFirst, layout));
}

bool CmGenericByteDataBlock::GetPictureFormat(uint32_t& pictureFormat) const {
  CmScopedLock lock(m_Lock);
  pictureFormat = 0;
  if (!CanAccessFields()) {
    return false;
  }
  pictureFormat = NmImageFormBits::DecodePictureFormat(ReadFlags());
  return true;
}

bool CmGenericByteDataBlock::SetPictureFormat(uint32_t pictureFormat) {
  CmScopedLock lock(m_Lock);
  if (!CanAccessFields() || pictureFormat >= NmImageFormBits::PictureFormatCount) {
    return false;
  }
  return UpdateFlags(NmImageFormBits::EncodePictureFormat(ReadFlags(), pictureFormat));
}

bool CmGenericByteDataBlock::SetEndTimeExclusive(bool exclusive) {
  CmScopedLock lock(m_Lock);
  if (!CanAccessFields()) {
    return false;
  }
  const uint32_t flags = ReadFlags();
  return UpdateFlags(exclusive ? flags & ~LastImageAtEndTime : flags | LastImageAtEndTime);
}

bool CmGenericByteDataBlock::IsEndTimeExclusive() const {
  CmScopedLock lock(m_Lock);
  return CanAccessFields() && (ReadFlags() & LastImageAtEndTime) == 0;
}

bool CmGenericByteDataBlock::AreTimesValid() const {
  CmScopedLock lock(m_Lock);
  if (!CanAccessFields()) {
    return false;
  }
  const uint32_t imageCount = ReadU16(ImageCountOffset);
  const CmTimeStamp begin = ReadTime(BeginTimeOffset);
  const CmTimeStamp end = ReadTime(EndTimeOffset);
  if (imageCount == 0 || begin > end) {
    return false;
  }
  if (imageCount == 1) {
    return end == begin;
  }
  // Intra-only codecs store one image per block.
  const int32_t type = GetType();
  if (type == 1 || type == 8 || type == SmByteDataType::RawJPEG) {
    return false;
  }
  return end != begin;
}

bool CmGenericByteDataBlock::GetTimeStampForImage(uint64_t index, CmTimeStamp& timeOut) const {
  CmScopedLock lock(m_Lock);
  if (!CanAccessFields()) {
    return false;
  }
  const uint64_t imageCount = ReadU16(ImageCountOffset);
  if (imageCount == 0 || index >= imageCount) {
    return false;
  }
  const CmTimeStamp begin = ReadTime(BeginTimeOffset);
  const CmTimeStamp end = ReadTime(EndTimeOffset);
  if (end < begin) {
    return false;
  }
  if (index == 0) {
    timeOut = begin;
    return true;
  }
  const uint64_t duration = TimeStampToWireTime(end) - TimeStampToWireTime(begin);
  const double interval =
      ImageInterval(duration, imageCount, (ReadFlags() & LastImageAtEndTime) != 0);
  timeOut = AddMilliseconds(begin, std::ceil(static_cast<double>(index) * interval));
  return true;
}

bool CmGenericByteDataBlock::GetImageIndexForTime(const CmTimeStamp& time, uint64_t& indexOut,
                                                  CmTimeStamp& timeOut) const {
  CmScopedLock lock(m_Lock);
  if (!CanAccessFields()) {
    return false;
  }
  const uint64_t imageCount = ReadU16(ImageCountOffset);
  const CmTimeStamp begin = ReadTime(BeginTimeOffset);
  const CmTimeStamp end = ReadTime(EndTimeOffset);
  if (imageCount == 0 || begin > end) {
    return false;
  }
  indexOut = 0;
  if (time < begin) {
    return false;
  }
  if (time == begin && begin == end) {
    timeOut = begin;
    return true;
  }
  const bool lastImageAtEndTime = (ReadFlags() & LastImageAtEndTime) != 0;
  if (lastImageAtEndTime ? time > end : time >= end) {
    return false;
  }
  if (time > begin && imageCount >= 2) {
    const uint64_t duration = TimeStampToWireTime(end) - TimeStampToWireTime(begin);
    if (duration == 0) {
      return false;
    }
    // In wire milliseconds: a span in ticks overflows for far-apart times.
    const uint64_t elapsed = TimeStampToWireTime(time) - TimeStampToWireTime(begin);
    const uint64_t slots = lastImageAtEndTime ? imageCount - 1 : imageCount;
    // Elapsed times the image count can pass 64 bits for far-apart times.
    const uint64_t index =
        static_cast<uint64_t>(static_cast<unsigned __int128>(elapsed) * slots / duration);
    indexOut = index;
    timeOut =
        AddMilliseconds(begin, std::ceil(static_cast<double>(index) *
                                         ImageInterval(duration, imageCount, lastImageAtEndTime)));
    return true;
  }
  timeOut = begin;
  return true;
}

} // namespace NmMediaProcessing
