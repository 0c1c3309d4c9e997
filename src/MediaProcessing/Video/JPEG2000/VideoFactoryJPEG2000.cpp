#include "MediaProcessing/Video/JPEG2000/VideoFactoryJPEG2000.h"

#include "Common/Error/Error.h"
#include "MediaProcessing/Video/JPEG2000/VideoAnalyzerJPEG2000.h"
#include "MediaProcessing/Video/JPEG2000/VideoDecoderJPEG2000.h"

namespace NmMediaProcessing {

ImVideoDecoder* CmVideoFactoryJPEG2000::CreateDecoder() {
  return new CmVideoDecoderJPEG2000();
}

ImVideoAnalyzer* CmVideoFactoryJPEG2000::CreateAnalyzer() {
  return new CmVideoAnalyzerJPEG2000();
}

ImVideoParser* CmVideoFactoryJPEG2000::CreateParser() {
  throw NmError::CmIntegrityError(VZK_LOCATION, "No parser for JPEG2000 implemented",
                                  NmError::CmIntegrityErrorCode::OutOfRange);
}

} // namespace NmMediaProcessing
