#pragma once

#include <cstdint>

#include "Common/TimeStamp/TimeStamp.h"
#include "MediaProcessing/GenericByteData/GenericByteData.h"
#include "MediaProcessing/GenericByteData/RawVideoByteDataAccess.h"
#include "MediaProcessing/GenericByteData/TimeMatch.h"

namespace NmMediaProcessing {

// The rule that says whether a record holds the frame wanted for a time, and
// the time of that frame.
class CmByteDataVideoAccess {
public:
  // view must be a view of byteData; matchedTimeOut may be null. Raises an
  // integrity error for an empty record, an invalid view or an unknown type.
  static bool IsByteDataMatched(const NmTimeStamp::CmTimeStamp& time, SmTimeMatchType matchType,
                                bool syncFramesOnly, const CmGenericByteData& byteData,
                                const CmRawVideoByteDataAccess& view,
                                NmTimeStamp::CmTimeStamp* matchedTimeOut);
};

} // namespace NmMediaProcessing
