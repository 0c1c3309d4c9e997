#pragma once

#include <cstdint>

#include "MediaProcessing/JPEG/SimpleJPEGEncoderWrapper.h"
#include "Toolkits/VZKSourceToolkitPlugin/Tree/VZKSourceToolkit.h"

namespace NmToolkit {

// Encodes every picture as a JPEG record. The item it delivers is a vector
// of one JPEG block, or of none when the picture could not be encoded.
class CmJPEGEncoder : public CmVZKSourceToolkit {
public:
  explicit CmJPEGEncoder(const NmXerces::CmXmlNodePtr& node) : CmVZKSourceToolkit(node) {}

  void ReadConfiguration() override;
  void ProcessData(ImData* in, ImData** out) override;

private:
  uint64_t m_Quality = 75;
  bool m_Normalize = true;
  bool m_KeepPixelAspectRatio = true;
  bool m_PassNonBitmaps = false;
  NmMediaProcessing::CmSimpleJPEGEncoderWrapper m_Encoder;
};

} // namespace NmToolkit
