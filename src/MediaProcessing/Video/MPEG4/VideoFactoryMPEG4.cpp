#include "MediaProcessing/Video/MPEG4/VideoFactoryMPEG4.h"

#include "Common/Error/Error.h"
#include "MediaProcessing/Video/MPEG4/VideoDecoderMPEG4.h"

namespace NmMediaProcessing {

ImVideoDecoder* CmVideoFactoryMPEG4::CreateDecoder() {
  return new CmVideoDecoderMPEG4();
}

ImVideoAnalyzer* CmVideoFactoryMPEG4::CreateAnalyzer() {
  return new CmVideoAnalyzerMPEG4();
}

ImVideoParser* CmVideoFactoryMPEG4::CreateParser() {
  throw NmError::CmIntegrityError(VZK_LOCATION, "No parser for MPEG-4 implemented",
                                  NmError::CmIntegrityErrorCode::OutOfRange);
}

} // namespace NmMediaProcessing
