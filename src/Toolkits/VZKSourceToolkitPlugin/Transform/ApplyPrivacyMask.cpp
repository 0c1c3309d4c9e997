#include "Toolkits/VZKSourceToolkitPlugin/Transform/ApplyPrivacyMask.h"

namespace NmToolkit {

void CmApplyPrivacyMask::Connect(const CmPropertyNameSet& requested, CmPropertyNameSet& supported,
                                 uint64_t argument) {
  if (IsConnected()) {
    return;
  }
  ReadConfiguration();
  if (m_HasFixedMask) {
    CmImageTransform::Connect(requested, supported, argument);
    return;
  }
  ConnectFetchingPrivacyMask(requested, supported, argument);
}

void CmApplyPrivacyMask::ReadConfiguration() {
  CmImageTransform::ReadConfiguration();
  std::string text;
  m_HasFixedMask = GetConfigurationValue("mask", text);
  if (m_HasFixedMask) {
    m_Mask.SetMask(text);
  }
}

void CmApplyPrivacyMask::ProcessData(ImData* in, ImData** out) {
  if (!m_HasFixedMask) {
    const auto* property =
        in ? dynamic_cast<const ImStringProperty*>(in->GetProperty(NmPropertyNames::PrivacyMask))
           : nullptr;
    m_Mask.SetMask(property ? property->GetValue() : std::string());
  }
  CmImageTransform::ProcessData(in, out);
}

} // namespace NmToolkit
