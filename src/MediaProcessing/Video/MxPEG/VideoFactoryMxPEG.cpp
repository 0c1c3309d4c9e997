#include "MediaProcessing/Video/MxPEG/VideoFactoryMxPEG.h"

#include "Common/Error/Error.h"
#include "MediaProcessing/Video/MissingCodecEngine.h"

namespace NmMediaProcessing {

ImVideoDecoder* CmVideoFactoryMxPEG::CreateDecoder() {
  RaiseMissingCodecEngine(VZK_LOCATION, "decoder for MxPEG");
}

ImVideoAnalyzer* CmVideoFactoryMxPEG::CreateAnalyzer() {
  RaiseMissingCodecEngine(VZK_LOCATION, "analyzer for MxPEG");
}

ImVideoParser* CmVideoFactoryMxPEG::CreateParser() {
  throw NmError::CmIntegrityError(VZK_LOCATION, "No parser for MxPEG implemented",
                                  NmError::CmIntegrityErrorCode::OutOfRange);
}

} // namespace NmMediaProcessing
