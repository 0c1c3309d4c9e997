#pragma once

#include "Toolkits/VZKSourceToolkitPlugin/Transform/ImageTransform.h"
#include "Toolkits/VZKSourceToolkitPlugin/Transform/StandAloneAPM.h"

namespace NmToolkit {

// Burns a privacy mask into every picture: the fixed one of "mask", or else
// the one that each item carries as "Privacy_Mask".
class CmApplyPrivacyMask : public CmImageTransform {
public:
  explicit CmApplyPrivacyMask(const NmXerces::CmXmlNodePtr& node)
      : CmImageTransform(node), m_Mask(m_Transformation) {}

  using CmImageTransform::Connect;
  // Without a fixed mask the items' masks are asked for, whether or not the
  // host wants to see them.
  void Connect(const CmPropertyNameSet& requested, CmPropertyNameSet& supported,
               uint64_t argument) override;
  void ReadConfiguration() override;
  void ProcessData(ImData* in, ImData** out) override;

private:
  bool m_HasFixedMask = false;
  CmStandAloneAPM m_Mask;
};

} // namespace NmToolkit
