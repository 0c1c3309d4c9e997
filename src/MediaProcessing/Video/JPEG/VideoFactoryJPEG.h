#pragma once

#include "MediaProcessing/Video/VideoFactory.h"

namespace NmMediaProcessing {

// The JPEG family: our own baseline, progressive and lossless decoder.
class CmVideoFactoryJPEG : public ImVideoFactory {
public:
  ImVideoDecoder* CreateDecoder() override;
  ImVideoAnalyzer* CreateAnalyzer() override;
  ImVideoParser* CreateParser() override;
};

} // namespace NmMediaProcessing
