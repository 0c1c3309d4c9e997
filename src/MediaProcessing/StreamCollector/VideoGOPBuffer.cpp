#include "MediaProcessing/StreamCollector/VideoGOPBuffer.h"

#include "Common/Error/Error.h"
#include "MediaProcessing/StreamCollector/StreamCollectorError.h"

namespace NmMediaProcessing {

void RaiseEmptyGOPBuffer(const char* countName, const char* operation) {
  throw NmError::CmIntegrityError(
      StreamCollectorLocation(std::string("NmMediaProcessing::CmGenericVideoPacketGOPBuffer<") +
                                  countName + ">::" + operation,
                              __FILE__, __LINE__),
      "GOP buffer is empty", NmError::CmIntegrityErrorCode::InvalidPointer);
}

void RaiseNoVideoBlockReady(const char* countName) {
  throw NmError::CmIntegrityError(
      StreamCollectorLocation(std::string("NmMediaProcessing::CmGenericVideoBlockBuffer<") +
                                  countName + ">::RetrieveBlock",
                              __FILE__, __LINE__),
      "No video block is ready for retrieval", NmError::CmIntegrityErrorCode::InvalidPointer);
}

} // namespace NmMediaProcessing
