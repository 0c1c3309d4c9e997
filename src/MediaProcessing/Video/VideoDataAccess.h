#pragma once

#include <cstdint>

#include "Common/TimeStamp/TimeStamp.h"
#include "MediaProcessing/GenericByteData/ByteDataVideoAccess.h"
#include "MediaProcessing/GenericByteData/GenericByteData.h"

namespace NmMediaProcessing {

// A store of encoded video records that can be searched by time. The access
// modes of the two move operations number like SmTimeMatchType.
class ImVideoDataAccess {
public:
  virtual ~ImVideoDataAccess() = default;
  // True when a record was delivered; it then owns its bytes. On false the
  // output is left as it was.
  virtual bool GetByteData(const NmTimeStamp::CmTimeStamp& time, SmTimeMatchType matchType,
                           bool syncFramesOnly, CmGenericByteData& recordOut) = 0;
  // Positions the store at the item for the time.
  virtual bool MoveTo(const NmTimeStamp::CmTimeStamp& time, uint32_t accessMode) = 0;
  // Positions as above and reports the begin time of the item reached.
  virtual bool MoveTo(const NmTimeStamp::CmTimeStamp& time, uint32_t accessMode,
                      NmTimeStamp::CmTimeStamp& beginOut) = 0;
};

} // namespace NmMediaProcessing
