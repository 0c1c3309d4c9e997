#pragma once

// What both source plug-ins hand to their hosts: their errors, text
// properties, and records as items.

#include <algorithm>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "vzk/vzk.h"

namespace NmPluginBoundary {

// The errors of a plug-in, in the toolkit error family that hosts catch.
template <typename I> class CmPluginError : public I {
public:
  CmPluginError(const char* name, uint32_t code, std::string text)
      : m_Name(name), m_Code(code), m_Text(std::move(text)) {}
  const char* what() const noexcept override { return m_Text.c_str(); }
  std::string GetErrorName() const override { return m_Name; }
  uint32_t GetErrorCode() const override { return m_Code; }
  std::vector<std::string> GetArguments() const override { return {}; }
  std::string GetDescription() const override { return m_Text; }
  const NmToolkit::ImToolkitError* GetInnerError() const override { return nullptr; }

private:
  std::string m_Name;
  uint32_t m_Code;
  std::string m_Text;
};

// A text property, as the sequence number and the privacy mask travel.
class CmStringProperty : public NmToolkit::ImStringProperty {
public:
  explicit CmStringProperty(std::string value) : m_Value(std::move(value)) {}
  NmToolkit::ImProperty* Clone() const override { return new CmStringProperty(m_Value); }
  std::string GetValue() const override { return m_Value; }

private:
  std::string m_Value;
};

// One record as an item; it owns a copy of the record's bytes. A header
// longer than the bytes is cut to them.
class CmRecordItem : public NmToolkit::ImMediaData {
public:
  CmRecordItem(std::vector<uint8_t> bytes, int64_t begin, int64_t end, uint64_t headerLength)
      : m_Bytes(std::move(bytes)), m_Begin(begin), m_End(end),
        m_HeaderLength(std::min<uint64_t>(headerLength, m_Bytes.size())) {}
  int64_t GetBeginTime() const override { return m_Begin; }
  int64_t GetEndTime() const override { return m_End; }
  size_t GetDataSize() const override { return m_Bytes.size(); }
  const uint8_t* GetDataPointer() const override { return m_Bytes.data(); }
  size_t GetPayloadSize() const override { return m_Bytes.size() - m_HeaderLength; }
  const uint8_t* GetPayloadPointer() const override { return m_Bytes.data() + m_HeaderLength; }
  const NmToolkit::ImProperty* GetProperty(const std::string& name) const override {
    const auto found = m_Properties.find(name);
    return found == m_Properties.end() ? nullptr : found->second.get();
  }
  void SetProperty(const std::string& name, std::unique_ptr<NmToolkit::ImProperty> property) {
    m_Properties[name] = std::move(property);
  }
  // Sets the property when the host asked for it.
  void PassProperty(const NmToolkit::CmPropertyNameSet& passed, const std::string& name,
                    std::string value) {
    if (passed.count(name) != 0) {
      SetProperty(name, std::make_unique<CmStringProperty>(std::move(value)));
    }
  }

private:
  std::vector<uint8_t> m_Bytes;
  int64_t m_Begin;
  int64_t m_End;
  uint64_t m_HeaderLength;
  std::map<std::string, std::unique_ptr<NmToolkit::ImProperty>> m_Properties;
};

} // namespace NmPluginBoundary
