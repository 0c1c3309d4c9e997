#include "MediaProcessing/StreamCollector/VideoGOPLimiter.h"

#include <string>

namespace NmMediaProcessing {

namespace {

NmTimeStamp::CmTimeSpan MaximumTimeSpan(int64_t days) {
  return NmTimeStamp::CmTimeSpan(days, 0, 0, 0, 0);
}

} // namespace

template <typename Limits>
void CmVideoGOPLimiter<Limits>::Refuse(const char* operation, int line, const char* message,
                                       uint32_t code) {
  const std::string function =
      std::string("NmMediaProcessing::CmVideoGOPLimiter<") + Limits::Name + ">::" + operation;
  this->SetLastError(CmVideoStreamCollectorError(StreamCollectorLocation(function, __FILE__, line),
                                                 message, code));
}

template <typename Limits>
bool CmVideoGOPLimiter<Limits>::UpdateAndCheckLimits(uint64_t frameBytes,
                                                     const NmTimeStamp::CmTimeStamp& time) {
  if (m_FrameCount == Limits::MaximumFrameCount) {
    Refuse("UpdateAndCheckLimits", __LINE__, "Maximum GOP frame count exceeded",
           SmVideoStreamCollectorErrorCode::MaximumFrameCountExceeded);
    return false;
  }
  const uint64_t byteCount = m_ByteCount + frameBytes;
  if (byteCount < m_ByteCount || byteCount > Limits::MaximumByteCount) {
    Refuse("UpdateAndCheckLimits", __LINE__, "Maximum GOP byte size exceeded",
           SmVideoStreamCollectorErrorCode::MaximumByteSizeExceeded);
    return false;
  }
  if (m_FrameCount != 0) {
    if (time > m_TimeLimit) {
      Refuse("UpdateAndCheckLimits", __LINE__, "Maximum GOP time span exceeded",
             SmVideoStreamCollectorErrorCode::MaximumTimeSpanExceeded);
      return false;
    }
  } else {
    // Near the end of what a time stamp can hold the limit stays at the end.
    const NmTimeStamp::CmTimeSpan span = MaximumTimeSpan(Limits::MaximumTimeSpanDays);
    const NmTimeStamp::CmTimeStamp latest(NmTimeStamp::CmTimeStamp::Latest);
    m_TimeLimit = latest - span < time ? latest : time + span;
  }
  ++m_FrameCount;
  m_ByteCount = byteCount;
  this->ClearLastError();
  return true;
}

template <typename Limits>
bool CmVideoGOPLimiter<Limits>::CheckBlockLimits(const CmGenericVideoByteDataBlock& block) {
  if (block.GetImageCount() > Limits::MaximumFrameCount) {
    Refuse("CheckBlockLimits", __LINE__, "Maximum GOP frame count exceeded",
           SmVideoStreamCollectorErrorCode::MaximumFrameCountExceeded);
    return false;
  }
  if (block.GetPayloadLength() > Limits::MaximumByteCount) {
    Refuse("CheckBlockLimits", __LINE__, "Maximum GOP byte size exceeded",
           SmVideoStreamCollectorErrorCode::MaximumByteSizeExceeded);
    return false;
  }
  const NmTimeStamp::CmTimeStamp begin = block.GetBeginTime();
  const NmTimeStamp::CmTimeStamp end = block.GetEndTime();
  if (end > begin && end - begin > MaximumTimeSpan(Limits::MaximumTimeSpanDays)) {
    Refuse("CheckBlockLimits", __LINE__, "Maximum GOP time span exceeded",
           SmVideoStreamCollectorErrorCode::MaximumTimeSpanExceeded);
    return false;
  }
  this->ClearLastError();
  return true;
}

template class CmVideoGOPLimiter<CmVideoBlockGOPLimits>;

} // namespace NmMediaProcessing
