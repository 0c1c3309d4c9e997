#include "MediaProcessing/Video/VideoFactory.h"

#include "Common/Error/Error.h"
#include "MediaProcessing/Video/H263/VideoFactoryH263.h"
#include "MediaProcessing/Video/H264/VideoFactoryH264.h"
#include "MediaProcessing/Video/JPEG/VideoFactoryJPEG.h"
#include "MediaProcessing/Video/JPEG2000/VideoFactoryJPEG2000.h"
#include "MediaProcessing/Video/MPEG4/VideoFactoryMPEG4.h"
#include "MediaProcessing/Video/MxPEG/VideoFactoryMxPEG.h"

namespace NmMediaProcessing {

std::unique_ptr<ImVideoFactory> CmVideoFactory::CreateFromCodec(uint32_t codec) {
  switch (codec) {
  case 1:
    return std::make_unique<CmVideoFactoryJPEG>();
  case 2:
  case 3:
  case 12:
  case 13:
    // Values that records may carry but that no decoder here understands.
    throw NmError::CmIntegrityError(VZK_LOCATION, "Codec type not supported",
                                    NmError::CmIntegrityErrorCode::InvalidPointer);
  case 4:
  case 5:
  case 6:
  case 11:
    return std::make_unique<CmVideoFactoryMPEG4>();
  case 7:
  case 9:
    return std::make_unique<CmVideoFactoryH263>();
  case 8:
    return std::make_unique<CmVideoFactoryJPEG2000>();
  case 10:
    return std::make_unique<CmVideoFactoryH264>();
  case 128:
    return std::make_unique<CmVideoFactoryMxPEG>();
  default:
    throw NmError::CmIntegrityError(VZK_LOCATION, "Unknown codec type",
                                    NmError::CmIntegrityErrorCode::InvalidPointer);
  }
}

} // namespace NmMediaProcessing
