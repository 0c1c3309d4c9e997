#include "Toolkits/VZKSourceToolkitPlugin/Transform/SetProperty.h"

#include "Toolkits/VZKSourceToolkitPlugin/Items/ImageData.h"
#include "Toolkits/VZKSourceToolkitPlugin/Tree/ToolkitErrors.h"

namespace NmToolkit {

void CmSetProperty::ReadConfiguration() {
  m_Name = GetConfigurationValue("name", std::string());
  m_Value = GetConfigurationValue("value", std::string());
}

void CmSetProperty::ProcessData(ImData* in, ImData** out) {
  auto* image = dynamic_cast<CmImageData*>(in);
  if (image == nullptr) {
    throw CmInvalidOperationError<0>(GetElementName());
  }
  CmVZKSourceToolkitProperties properties;
  CopyPassedProperties(in, properties);
  properties.SetProperty(m_Name, std::make_unique<CmStringProperty>(m_Value));
  *out = new CmImageData(image->GetImage(), properties);
}

} // namespace NmToolkit
