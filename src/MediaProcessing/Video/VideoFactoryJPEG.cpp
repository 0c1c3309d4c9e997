#include "MediaProcessing/Video/VideoFactoryJPEG.h"

#include "Common/Error/Error.h"
#include "MediaProcessing/JPEG/VideoAnalyzerJPEG.h"
#include "MediaProcessing/JPEG/VideoDecoderJPEG.h"

namespace NmMediaProcessing {

ImVideoDecoder* CmVideoFactoryJPEG::CreateDecoder() {
  return new CmVideoDecoderJPEG();
}

ImVideoAnalyzer* CmVideoFactoryJPEG::CreateAnalyzer() {
  return new CmVideoAnalyzerJPEG();
}

ImVideoParser* CmVideoFactoryJPEG::CreateParser() {
  throw NmError::CmIntegrityError(VZK_LOCATION, "No parser for JPEG implemented",
                                  NmError::CmIntegrityErrorCode::OutOfRange);
}

} // namespace NmMediaProcessing
