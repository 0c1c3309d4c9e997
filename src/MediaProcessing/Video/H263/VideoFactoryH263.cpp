#include "MediaProcessing/Video/H263/VideoFactoryH263.h"

#include "Common/Error/Error.h"
#include "MediaProcessing/Video/H263/VideoDecoderH263.h"

namespace NmMediaProcessing {

ImVideoDecoder* CmVideoFactoryH263::CreateDecoder() {
  return new CmVideoDecoderH263();
}

ImVideoAnalyzer* CmVideoFactoryH263::CreateAnalyzer() {
  return new CmVideoAnalyzerH263();
}

ImVideoParser* CmVideoFactoryH263::CreateParser() {
  throw NmError::CmIntegrityError(VZK_LOCATION, "No parser for H.263 implemented",
                                  NmError::CmIntegrityErrorCode::OutOfRange);
}

} // namespace NmMediaProcessing
