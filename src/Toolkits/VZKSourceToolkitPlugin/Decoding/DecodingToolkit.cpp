#include "Toolkits/VZKSourceToolkitPlugin/Decoding/DecodingToolkit.h"

#include <string>

#include "Common/Error/Error.h"

namespace NmToolkit {

bool CmDecodingToolkit::ReadOutputConfiguration() {
  const bool luminanceOnly = GetConfigurationValue("luminance_only", "false") == "true";
  const bool normalize = GetConfigurationValue("normalize_pixel_aspect_ratio", "false") == "true";
  const bool cavt = GetConfigurationValue("deinterlacing_filter", "CAVT") == "CAVT";
  const bool flipped = GetConfigurationValue("flipped_vertically", "false") == "true";
  m_Output.Configure(luminanceOnly, normalize, cavt, flipped);
  if (m_Options.m_LuminanceOnly == luminanceOnly) {
    return false;
  }
  m_Options.m_LuminanceOnly = luminanceOnly;
  return true;
}

void CmDecodingToolkit::Connect(const CmPropertyNameSet& requested, CmPropertyNameSet& supported,
                                uint64_t argument) {
  if (IsConnected()) {
    return;
  }
  m_ApplyMask = GetConfigurationValue("apply_privacy_mask", "true") != "false";
  if (!m_ApplyMask) {
    CmVZKSourceToolkit::Connect(requested, supported, argument);
  } else {
    ConnectFetchingPrivacyMask(requested, supported, argument);
  }
  m_Output.BuildPerFrameNames(GetPassedProperties());
}

void CmDecodingToolkit::Connect(uint64_t argument) {
  CmPropertyNameSet supported;
  Connect(CmPropertyNameSet(), supported, argument);
}

void CmDecodingToolkit::ApplyMask(const ImProperty* mask, NmMediaProcessing::CmImage& image) {
  if (!m_ApplyMask) {
    return;
  }
  try {
    const auto* text = dynamic_cast<const ImStringProperty*>(mask);
    m_Mask.SetMask(text != nullptr ? text->GetValue() : std::string());
    m_Mask.Apply(image);
  } catch (const NmError::CmError&) {
    image.Reset();
  }
}

} // namespace NmToolkit
