#include "MediaProcessing/GenericByteData/ByteDataVideoAccess.h"

#include "Common/Error/Error.h"
#include "MediaProcessing/GenericByteData/GenericByteDataBlock.h"

namespace NmMediaProcessing {

using NmTimeStamp::CmTimeStamp;

namespace {

// The time of the last image, or the first when it cannot be had.
CmTimeStamp LastImageTime(const CmRawVideoByteDataAccess& view, bool syncFramesOnly) {
  CmTimeStamp last = view.GetTime();
  if (syncFramesOnly || view.GetImageCount() == 0) {
    return last;
  }
  CmTimeStamp time;
  if (view.GetTimeStampForImage(view.GetImageCount() - 1, time)) {
    last = time;
  }
  return last;
}

bool IsRefusedByType(SmTimeMatchType matchType, const CmTimeStamp& time, const CmTimeStamp& first,
                     const CmTimeStamp& last) {
  switch (matchType) {
  case TimeMatchAfter:
    return time >= last;
  case TimeMatchBefore:
    return time <= first;
  case TimeMatchAtOrAfter:
    return time > last;
  case TimeMatchAtOrBefore:
    return time < first;
  default:
    return false;
  }
}

} // namespace

bool CmByteDataVideoAccess::IsByteDataMatched(const CmTimeStamp& time, SmTimeMatchType matchType,
                                              bool syncFramesOnly,
                                              const CmGenericByteData& byteData,
                                              const CmRawVideoByteDataAccess& view,
                                              CmTimeStamp* matchedTimeOut) {
  if (byteData.IsEmpty() || !view.IsValid()) {
    throw NmError::CmIntegrityError(VZK_LOCATION, "Byte data is not valid for video access",
                                    NmError::CmIntegrityErrorCode::InvalidArgument);
  }
  if (matchType > TimeMatchExact) {
    throw NmError::CmIntegrityError(VZK_LOCATION, "Unknown time match type",
                                    NmError::CmIntegrityErrorCode::InvalidArgument);
  }
  const CmTimeStamp first = view.GetTime();
  const CmTimeStamp last = LastImageTime(view, syncFramesOnly);
  if (syncFramesOnly && !view.GetSync()) {
    return false;
  }
  if (IsRefusedByType(matchType, time, first, last)) {
    return false;
  }
  // Only the first image of a record can be a sync frame.
  const bool firstImageOnly = syncFramesOnly || view.GetImageCount() == 1;
  const CmGenericVideoByteDataBlock block(byteData.GetData(), byteData.GetLength());

  if (matchType == TimeMatchExact) {
    CmTimeStamp found = first;
    if (firstImageOnly) {
      if (time != first) {
        return false;
      }
    } else {
      uint64_t index = 0;
      if (time < first || time > last || !byteData.IsBlock() ||
          !block.GetImageIndexForTime(time, index, found) || found != time) {
        return false;
      }
    }
    if (matchedTimeOut != nullptr) {
      *matchedTimeOut = found;
    }
    return true;
  }

  if (matchedTimeOut == nullptr) {
    return true;
  }
  CmTimeStamp result;
  if (time < first) {
    result = first;
  } else if (time > last) {
    result = last;
  } else if (firstImageOnly) {
    result = first;
  } else {
    uint64_t index = 0;
    CmTimeStamp found;
    if (!byteData.IsBlock() || !block.GetImageIndexForTime(time, index, found)) {
      return false;
    }
    switch (matchType) {
    case TimeMatchAfter:
      if (!block.GetTimeStampForImage(index + 1, result)) {
        return false;
      }
      break;
    case TimeMatchBefore:
      if (found >= time) {
        if (index == 0 || !block.GetTimeStampForImage(index - 1, result)) {
          return false;
        }
      } else {
        result = found;
      }
      break;
    case TimeMatchAtOrAfter:
      if (found != time) {
        if (!block.GetTimeStampForImage(index + 1, result)) {
          return false;
        }
      } else {
        result = found;
      }
      break;
    case TimeMatchAtOrBefore:
      result = found;
      break;
    default: {
      result = found;
      if (found != time) {
        CmTimeStamp next;
        if (!block.GetTimeStampForImage(index + 1, next)) {
          return false;
        }
        // A tie goes to the later image. Distances in unsigned ticks, since
        // found <= time <= next and a signed span could overflow.
        if (next.GetTicks() - time.GetTicks() <= time.GetTicks() - found.GetTicks()) {
          result = next;
        }
      }
      break;
    }
    }
  }
  *matchedTimeOut = result;
  return true;
}

} // namespace NmMediaProcessing
