#pragma once

#include "Toolkits/VZKSourceToolkitPlugin/Tree/VZKSourceToolkit.h"

namespace NmToolkit {

// Adds one string property, named and valued by its keys, to every picture.
class CmSetProperty : public CmVZKSourceToolkit {
public:
  explicit CmSetProperty(const NmXerces::CmXmlNodePtr& node) : CmVZKSourceToolkit(node) {}

  void ReadConfiguration() override;
  void ProcessData(ImData* in, ImData** out) override;

private:
  std::string m_Name;
  std::string m_Value;
};

} // namespace NmToolkit
