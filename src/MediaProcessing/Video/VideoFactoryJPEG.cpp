#include "MediaProcessing/Video/VideoFactoryJPEG.h"

#include "Common/Error/Error.h"
#include "MediaProcessing/Video/MissingCodecEngine.h"

namespace NmMediaProcessing {

ImVideoDecoder* CmVideoFactoryJPEG::CreateDecoder() {
  RaiseMissingCodecEngine(VZK_LOCATION, "decoder for JPEG");
}

ImVideoAnalyzer* CmVideoFactoryJPEG::CreateAnalyzer() {
  RaiseMissingCodecEngine(VZK_LOCATION, "analyzer for JPEG");
}

ImVideoParser* CmVideoFactoryJPEG::CreateParser() {
  throw NmError::CmIntegrityError(VZK_LOCATION, "No parser for JPEG implemented",
                                  NmError::CmIntegrityErrorCode::OutOfRange);
}

} // namespace NmMediaProcessing
