#pragma once

#include "MediaProcessing/Video/VideoFactory.h"

namespace NmMediaProcessing {

// The MPEG-4 family: decoder and analyser over the MCL engine; there is no
// stand-alone parser, and asking for one raises an integrity error.
class CmVideoFactoryMPEG4 : public ImVideoFactory {
public:
  ImVideoDecoder* CreateDecoder() override;
  ImVideoAnalyzer* CreateAnalyzer() override;
  ImVideoParser* CreateParser() override;
};

} // namespace NmMediaProcessing
