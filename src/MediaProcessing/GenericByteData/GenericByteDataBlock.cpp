#include "MediaProcessing/GenericByteData/GenericByteDataBlock.h"

#include <cfenv>
#include <cmath>

namespace NmMediaProcessing {

using CmScopedLock = NmThread::CmCriticalSection::CmScopedLock;
using NmTimeStamp::CmTimeStamp;

namespace {
constexpr uint64_t BeginTimeOffset = 12;
constexpr uint64_t EndTimeOffset = 20;
constexpr SmHeaderField ImageWidthField{28, 2};
constexpr SmHeaderField ImageHeightField{30, 2};
constexpr SmHeaderField ComponentCountField{32, 2};
constexpr SmHeaderField ImageCountField{34, 2};
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

CmTimeStamp CmGenericByteDataBlock::GetBeginTime() const {
  return GetTimeField(BeginTimeOffset);
}

bool CmGenericByteDataBlock::SetBeginTime(const CmTimeStamp& time) {
  return SetTimeField(BeginTimeOffset, time);
}

CmTimeStamp CmGenericByteDataBlock::GetEndTime() const {
  return GetTimeField(EndTimeOffset);
}

bool CmGenericByteDataBlock::SetEndTime(const CmTimeStamp& time) {
  return SetTimeField(EndTimeOffset, time);
}

uint32_t CmGenericByteDataBlock::GetImageWidth() const {
  return GetField(ImageWidthField);
}

bool CmGenericByteDataBlock::SetImageWidth(uint32_t width) {
  return SetField(ImageWidthField, width, width <= U16Limit);
}

uint32_t CmGenericByteDataBlock::GetImageHeight() const {
  return GetField(ImageHeightField);
}

bool CmGenericByteDataBlock::SetImageHeight(uint32_t height) {
  return SetField(ImageHeightField, height, height <= U16Limit);
}

bool CmGenericByteDataBlock::SetComponentCount(uint32_t count) {
  return SetField(ComponentCountField, count, count <= U16Limit);
}

uint32_t CmGenericByteDataBlock::GetImageCount() const {
  return GetField(ImageCountField);
}

bool CmGenericByteDataBlock::SetImageCount(uint32_t count) {
  return SetField(ImageCountField, count, count <= U16Limit);
}

bool CmGenericByteDataBlock::SetEndTimeExclusive(bool exclusive) {
  return SetFlag(BlockFlagsField, LastImageAtEndTime, !exclusive);
}

bool CmGenericByteDataBlock::IsEndTimeExclusive() const {
  CmScopedLock lock(m_Lock);
  return CanAccessFields() && (ReadField(BlockFlagsField) & LastImageAtEndTime) == 0;
}

bool CmGenericByteDataBlock::AreTimesValid() const {
  CmScopedLock lock(m_Lock);
  if (!CanAccessFields()) {
    return false;
  }
  const uint32_t imageCount = ReadField(ImageCountField);
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
  const uint64_t imageCount = ReadField(ImageCountField);
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
      ImageInterval(duration, imageCount, (ReadField(BlockFlagsField) & LastImageAtEndTime) != 0);
  timeOut = AddMilliseconds(begin, std::ceil(static_cast<double>(index) * interval));
  return true;
}

bool CmGenericByteDataBlock::GetImageIndexForTime(const CmTimeStamp& time, uint64_t& indexOut,
                                                  CmTimeStamp& timeOut) const {
  CmScopedLock lock(m_Lock);
  if (!CanAccessFields()) {
    return false;
  }
  const uint64_t imageCount = ReadField(ImageCountField);
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
  const bool lastImageAtEndTime = (ReadField(BlockFlagsField) & LastImageAtEndTime) != 0;
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
