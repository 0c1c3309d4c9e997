#pragma once

#include "MediaProcessing/Video/VideoFactory.h"

namespace NmMediaProcessing {

// The H.263 family: decoder and analyser over the MCL engine; there is no
// stand-alone parser, and asking for one raises an integrity error.
class CmVideoFactoryH263 : public ImVideoFactory {
public:
  ImVideoDecoder* CreateDecoder() override;
  ImVideoAnalyzer* CreateAnalyzer() override;
  ImVideoParser* CreateParser() override;
};

} // namespace NmMediaProcessing
