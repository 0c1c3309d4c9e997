#include "MediaProcessing/Video/H263/VideoFactoryH263.h"

#include "Common/Error/Error.h"
#include "MediaProcessing/Video/MissingCodecEngine.h"

namespace NmMediaProcessing {

ImVideoDecoder* CmVideoFactoryH263::CreateDecoder() {
  RaiseMissingCodecEngine(VZK_LOCATION, "decoder for H.263");
}

ImVideoAnalyzer* CmVideoFactoryH263::CreateAnalyzer() {
  RaiseMissingCodecEngine(VZK_LOCATION, "analyzer for H.263");
}

ImVideoParser* CmVideoFactoryH263::CreateParser() {
  throw NmError::CmIntegrityError(VZK_LOCATION, "No parser for H.263 implemented",
                                  NmError::CmIntegrityErrorCode::OutOfRange);
}

} // namespace NmMediaProcessing
