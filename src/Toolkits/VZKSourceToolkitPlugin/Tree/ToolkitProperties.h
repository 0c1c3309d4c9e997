#pragma once

#include <map>
#include <memory>
#include <string>

#include "vzk/Data.h"

namespace NmToolkit {

class CmBooleanProperty : public ImBooleanProperty {
public:
  explicit CmBooleanProperty(bool value) : m_Value(value) {}
  ImProperty* Clone() const override { return new CmBooleanProperty(m_Value); }
  bool GetValue() const override { return m_Value; }

private:
  bool m_Value;
};

class CmStringProperty : public ImStringProperty {
public:
  explicit CmStringProperty(std::string value) : m_Value(std::move(value)) {}
  ImProperty* Clone() const override { return new CmStringProperty(m_Value); }
  std::string GetValue() const override { return m_Value; }

private:
  std::string m_Value;
};

class CmUTCTimeProperty : public ImUTCTimeProperty {
public:
  explicit CmUTCTimeProperty(int64_t value) : m_Value(value) {}
  ImProperty* Clone() const override { return new CmUTCTimeProperty(m_Value); }
  int64_t GetValue() const override { return m_Value; }

private:
  int64_t m_Value;
};

// The properties of an item, ordered by name; it owns every value.
class CmVZKSourceToolkitProperties : public ImPropertySet {
public:
  CmVZKSourceToolkitProperties() = default;
  CmVZKSourceToolkitProperties(const CmVZKSourceToolkitProperties& other);
  CmVZKSourceToolkitProperties& operator=(const CmVZKSourceToolkitProperties& other);
  ~CmVZKSourceToolkitProperties() override = default;

  bool HasProperty(const std::string& name) const override;
  const ImProperty* GetProperty(const std::string& name) const override;
  ImPropertySet* Clone() const override { return new CmVZKSourceToolkitProperties(*this); }
  // A property of the same name is deleted.
  virtual void SetProperty(const std::string& name, std::unique_ptr<ImProperty> property);

  size_t GetCount() const { return m_Properties.size(); }

private:
  std::map<std::string, std::unique_ptr<ImProperty>> m_Properties;
};

} // namespace NmToolkit
