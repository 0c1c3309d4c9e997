#pragma once

#include "Toolkits/VZKSourceToolkitPlugin/Transform/ImageTransform.h"

namespace NmToolkit {

// Scales every picture to "width" x "height".
class CmImgResize : public CmImageTransform {
public:
  explicit CmImgResize(const NmXerces::CmXmlNodePtr& node) : CmImageTransform(node) {}
  void ReadConfiguration() override;
};

// Scales every picture to fit a box of "width" x "height", keeping its shape.
class CmImgBoxedResize : public CmImageTransform {
public:
  explicit CmImgBoxedResize(const NmXerces::CmXmlNodePtr& node) : CmImageTransform(node) {}
  void ReadConfiguration() override;
};

// Scales every picture to fit a box and fills the rest of the box with black,
// so that every picture comes out at the box's size.
class CmImgFilledResize : public CmImageTransform {
public:
  explicit CmImgFilledResize(const NmXerces::CmXmlNodePtr& node) : CmImageTransform(node) {}
  void ReadConfiguration() override;
};

} // namespace NmToolkit
