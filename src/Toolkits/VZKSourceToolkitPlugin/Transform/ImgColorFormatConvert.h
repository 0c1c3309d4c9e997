#pragma once

#include <map>
#include <string>

#include "Toolkits/VZKSourceToolkitPlugin/Transform/ImageTransform.h"

namespace NmToolkit {

// Converts every picture to the colour format named by "format", with rows
// aligned to "row_alignment" bytes.
class CmImgColorFormatConvert : public CmImageTransform {
public:
  explicit CmImgColorFormatConvert(const NmXerces::CmXmlNodePtr& node);
  void ReadConfiguration() override;

private:
  std::map<std::string, NmMediaProcessing::ColorFormat> m_Formats;
};

} // namespace NmToolkit
