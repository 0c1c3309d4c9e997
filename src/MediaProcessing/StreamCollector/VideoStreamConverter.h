#pragma once

#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

#include "Common/TimeStamp/TimeStamp.h"
#include "MediaProcessing/GenericByteData/GenericByteDataBlock.h"
#include "MediaProcessing/StreamCollector/VideoStreamCollector.h"

namespace NmMediaProcessing {

using SmRecordBytes = std::pair<const uint8_t*, uint64_t>;

// Turns the records of one group of pictures into one block.
class CmVideoStreamConverterImpl : public CmVideoStreamCollector<SmVideoStreamConverterTraits> {
public:
  // Null when a record is refused or the records make no block or more
  // than one. `time` is the time of legacy JPEG data, which has none.
  std::unique_ptr<CmGenericVideoByteDataBlock> Convert(const std::vector<SmRecordBytes>& records,
                                                       const NmTimeStamp::CmTimeStamp& time,
                                                       bool copyIfNotOwned, bool endTimeIsLastFrame,
                                                       bool keyFramesOnly);

private:
  CmVideoBlockPointer<Count> Collect(const std::vector<SmRecordBytes>& records,
                                     const NmTimeStamp::CmTimeStamp& time, bool endTimeIsLastFrame,
                                     bool keyFramesOnly);
};

// The door to the converter that the rest of the system uses.
class CmVideoStreamConverter {
public:
  CmVideoStreamConverter();
  ~CmVideoStreamConverter();
  CmVideoStreamConverter(const CmVideoStreamConverter&) = delete;
  CmVideoStreamConverter& operator=(const CmVideoStreamConverter&) = delete;

  std::unique_ptr<CmGenericVideoByteDataBlock> Convert(const std::vector<SmRecordBytes>& records,
                                                       const NmTimeStamp::CmTimeStamp& time,
                                                       bool copyIfNotOwned, bool endTimeIsLastFrame,
                                                       bool keyFramesOnly);

private:
  std::unique_ptr<CmVideoStreamConverterImpl> m_Impl;
};

} // namespace NmMediaProcessing
