#pragma once

#include "Toolkits/VZKSourceToolkitPlugin/Transform/ImageTransform.h"

namespace NmToolkit {

// Writes the text of "overlay" in the middle of every picture.
class CmImgTextOverlay : public CmImageTransform {
public:
  explicit CmImgTextOverlay(const NmXerces::CmXmlNodePtr& node) : CmImageTransform(node) {}
  void ReadConfiguration() override;
};

} // namespace NmToolkit
