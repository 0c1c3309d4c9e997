#pragma once

#include "MediaProcessing/Video/VideoFactory.h"

namespace NmMediaProcessing {

// The H.264 family: decoder and analyser over our engine; the stand-alone
// unit parser is not in this build yet and raises a not-implemented error.
class CmVideoFactoryH264 : public ImVideoFactory {
public:
  ImVideoDecoder* CreateDecoder() override;
  ImVideoAnalyzer* CreateAnalyzer() override;
  ImVideoParser* CreateParser() override;
};

} // namespace NmMediaProcessing
