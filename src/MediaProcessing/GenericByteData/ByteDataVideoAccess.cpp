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
  if (!NmTimeMatch::Qualifies(matchType, NmTimeMatch::SmReading::Frames, time, first, last)) {
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
    // `found` is the image shown at the time.
    switch (NmTimeMatch::ChooseFrame(matchType, found == time)) {
    case NmTimeMatch::SmFrameChoice::Shown:
      result = found;
      break;
    case NmTimeMatch::SmFrameChoice::Previous:
      if (index == 0 || !block.GetTimeStampForImage(index - 1, result)) {
        return false;
      }
      break;
    case NmTimeMatch::SmFrameChoice::Following:
      if (!block.GetTimeStampForImage(index + 1, result)) {
        return false;
      }
      break;
    case NmTimeMatch::SmFrameChoice::NearerOfShownAndFollowing: {
      CmTimeStamp next;
      if (!block.GetTimeStampForImage(index + 1, next)) {
        return false;
      }
      const bool later =
          NmTimeMatch::LaterIsNearer(NmTimeMatch::Gap(time, found), NmTimeMatch::Gap(next, time));
      result = later ? next : found;
      break;
    }
    }
  }
  *matchedTimeOut = result;
  return true;
}

} // namespace NmMediaProcessing
