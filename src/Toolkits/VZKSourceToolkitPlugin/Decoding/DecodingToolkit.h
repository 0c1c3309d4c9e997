#pragma once

#include "MediaProcessing/Image/Image.h"
#include "MediaProcessing/Video/VideoDecodeParameters.h"
#include "Toolkits/VZKSourceToolkitPlugin/Decoding/DecodedImageOutput.h"
#include "Toolkits/VZKSourceToolkitPlugin/Transform/StandAloneAPM.h"
#include "Toolkits/VZKSourceToolkitPlugin/Tree/VZKSourceToolkit.h"

namespace NmToolkit {

// What every decoding toolkit shares: the keys that shape its pictures, the
// privacy mask burnt in from each item's own property, and a connection that
// fetches that property whenever masks are applied, whether or not the host
// asked for it.
class CmDecodingToolkit : public CmVZKSourceToolkit {
public:
  explicit CmDecodingToolkit(const NmXerces::CmXmlNodePtr& node) : CmVZKSourceToolkit(node) {}

  void Connect(const CmPropertyNameSet& requested, CmPropertyNameSet& supported,
               uint64_t argument) override;
  void Connect(uint64_t argument) override;

protected:
  // Reads the output keys into the output stage; true when the luminance-only
  // choice changed, which the decoders themselves must then be told.
  bool ReadOutputConfiguration();
  // Burns in the mask an item carries, when masks are applied. A mask that
  // cannot be applied leaves no picture rather than an unmasked one.
  void ApplyMask(const ImProperty* mask, NmMediaProcessing::CmImage& image);
  bool AppliesMasks() const { return m_ApplyMask; }

  NmMediaProcessing::SmVideoDecodeParameters m_Options;
  CmDecodedImageOutput m_Output;

private:
  bool m_ApplyMask = true;
  CmStandAloneAPM m_Mask;
};

} // namespace NmToolkit
