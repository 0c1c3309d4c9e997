#pragma once

#include <cstdint>

#include "Common/TimeStamp/TimeStamp.h"
#include "MediaProcessing/GenericByteData/GenericByteData.h"
#include "MediaProcessing/GenericByteData/RawVideoByteDataAccess.h"

namespace NmMediaProcessing {

// Which frame a time asks for.
enum SmTimeMatchType : uint32_t {
  TimeMatchAfter = 0,
  TimeMatchBefore = 1,
  TimeMatchAtOrAfter = 2,
  TimeMatchAtOrBefore = 3,
  TimeMatchNearest = 4,
  TimeMatchExact = 5,
};

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
