#include "MediaProcessing/Video/MPEG4/VideoFactoryMPEG4.h"

#include "Common/Error/Error.h"
#include "MediaProcessing/Video/MissingCodecEngine.h"

namespace NmMediaProcessing {

ImVideoDecoder* CmVideoFactoryMPEG4::CreateDecoder() {
  RaiseMissingCodecEngine(VZK_LOCATION, "decoder for MPEG-4");
}

ImVideoAnalyzer* CmVideoFactoryMPEG4::CreateAnalyzer() {
  RaiseMissingCodecEngine(VZK_LOCATION, "analyzer for MPEG-4");
}

ImVideoParser* CmVideoFactoryMPEG4::CreateParser() {
  throw NmError::CmIntegrityError(VZK_LOCATION, "No parser for MPEG-4 implemented",
                                  NmError::CmIntegrityErrorCode::OutOfRange);
}

} // namespace NmMediaProcessing
