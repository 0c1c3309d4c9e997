#pragma once

#include "Toolkits/VZKSourceToolkitPlugin/Transform/ImageTransform.h"

namespace NmToolkit {

// Cuts a rectangle out of every picture, given in pixels or, with
// "relative", as fractions of the picture's size.
class CmImgCrop : public CmImageTransform {
public:
  explicit CmImgCrop(const NmXerces::CmXmlNodePtr& node) : CmImageTransform(node) {}
  void ReadConfiguration() override;
  void ProcessData(ImData* in, ImData** out) override;

private:
  // The crop for a picture of this size: fractions are resolved against it
  // and kept inside it.
  std::unique_ptr<NmMediaProcessing::ImImageTransformation> MakeCrop(uint64_t imageWidth,
                                                                     uint64_t imageHeight) const;

  bool m_Relative = true;
  double m_OffsetX = 0.0;
  double m_OffsetY = 0.0;
  double m_Width = 1.0;
  double m_Height = 1.0;
};

} // namespace NmToolkit
