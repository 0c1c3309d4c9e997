#include "MediaProcessing/Video/H264/VideoFactoryH264.h"

#include "Common/Error/Error.h"
#include "MediaProcessing/Video/MissingCodecEngine.h"

namespace NmMediaProcessing {

ImVideoDecoder* CmVideoFactoryH264::CreateDecoder() {
  RaiseMissingCodecEngine(VZK_LOCATION, "decoder for H.264");
}

ImVideoAnalyzer* CmVideoFactoryH264::CreateAnalyzer() {
  RaiseMissingCodecEngine(VZK_LOCATION, "analyzer for H.264");
}

ImVideoParser* CmVideoFactoryH264::CreateParser() {
  // The stand-alone NAL unit parser belongs to this family; it is not in
  // this build yet either.
  RaiseMissingCodecEngine(VZK_LOCATION, "parser for H.264");
}

} // namespace NmMediaProcessing
