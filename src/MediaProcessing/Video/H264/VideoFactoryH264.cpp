#include "MediaProcessing/Video/H264/VideoFactoryH264.h"

#include "Common/Error/Error.h"
#include "MediaProcessing/Video/H264/VideoDecoderH264.h"
#include "MediaProcessing/Video/MissingCodecEngine.h"

namespace NmMediaProcessing {

ImVideoDecoder* CmVideoFactoryH264::CreateDecoder() {
  return new CmVideoDecoderH264();
}

ImVideoAnalyzer* CmVideoFactoryH264::CreateAnalyzer() {
  return new CmVideoAnalyzerH264();
}

ImVideoParser* CmVideoFactoryH264::CreateParser() {
  // The stand-alone NAL unit parser belongs to this family; it is not in
  // this build yet either.
  RaiseMissingCodecEngine(VZK_LOCATION, "parser for H.264");
}

} // namespace NmMediaProcessing
