#include "Toolkits/VZKSourceToolkitPlugin/Tree/ToolkitProperties.h"

namespace NmToolkit {

CmVZKSourceToolkitProperties::CmVZKSourceToolkitProperties(
    const CmVZKSourceToolkitProperties& other) {
  for (const auto& [name, property] : other.m_Properties) {
    // Owned before the map allocates its entry, which may fail.
    std::unique_ptr<ImProperty> copy(property ? property->Clone() : nullptr);
    m_Properties.emplace(name, std::move(copy));
  }
}

CmVZKSourceToolkitProperties&
CmVZKSourceToolkitProperties::operator=(const CmVZKSourceToolkitProperties& other) {
  if (this != &other) {
    CmVZKSourceToolkitProperties copy(other);
    m_Properties.swap(copy.m_Properties);
  }
  return *this;
}

bool CmVZKSourceToolkitProperties::HasProperty(const std::string& name) const {
  return m_Properties.count(name) != 0;
}

const ImProperty* CmVZKSourceToolkitProperties::GetProperty(const std::string& name) const {
  const auto found = m_Properties.find(name);
  return found == m_Properties.end() ? nullptr : found->second.get();
}

void CmVZKSourceToolkitProperties::SetProperty(const std::string& name,
                                               std::unique_ptr<ImProperty> property) {
  m_Properties[name] = std::move(property);
}

} // namespace NmToolkit
