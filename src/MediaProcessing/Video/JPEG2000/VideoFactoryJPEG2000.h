#pragma once

#include "MediaProcessing/Video/VideoFactory.h"

namespace NmMediaProcessing {

// JPEG 2000, decoded through OpenJPEG.
class CmVideoFactoryJPEG2000 : public ImVideoFactory {
public:
  ImVideoDecoder* CreateDecoder() override;
  ImVideoAnalyzer* CreateAnalyzer() override;
  // Raises: there is no stream parser for JPEG 2000.
  ImVideoParser* CreateParser() override;
};

} // namespace NmMediaProcessing
