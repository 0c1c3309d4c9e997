#pragma once

#include "MediaProcessing/Video/VideoFactory.h"

namespace NmMediaProcessing {

// The MxPEG family. Its codec engine is not in this build yet: making a
// decoder or an analyser raises a not-implemented integrity error.
class CmVideoFactoryMxPEG : public ImVideoFactory {
public:
  ImVideoDecoder* CreateDecoder() override;
  ImVideoAnalyzer* CreateAnalyzer() override;
  ImVideoParser* CreateParser() override;
};

} // namespace NmMediaProcessing
