#include "MediaProcessing/Video/JPEG/VideoFactoryJPEG.h"

#include "Common/Error/Error.h"
#include "MediaProcessing/Video/JPEG/VideoAnalyzerJPEG.h"
#include "MediaProcessing/Video/JPEG/VideoDecoderJPEG.h"

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
