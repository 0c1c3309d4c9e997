#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "vzk/vzk.h"

namespace NmMedia {

// A text property, as the sequence number travels.
class CmMediaStringProperty : public NmToolkit::ImStringProperty {
public:
  explicit CmMediaStringProperty(std::string value) : m_Value(std::move(value)) {}
  NmToolkit::ImProperty* Clone() const override { return new CmMediaStringProperty(m_Value); }
  std::string GetValue() const override { return m_Value; }

private:
  std::string m_Value;
};

// One video or audio stream data packet as an item; it owns the record.
class CmMediaItem : public NmToolkit::ImMediaData {
public:
  CmMediaItem(std::vector<uint8_t> bytes, int64_t time);
  int64_t GetBeginTime() const override { return m_Time; }
  int64_t GetEndTime() const override { return m_Time; }
  size_t GetDataSize() const override { return m_Bytes.size(); }
  const uint8_t* GetDataPointer() const override { return m_Bytes.data(); }
  size_t GetPayloadSize() const override { return m_Bytes.size() - m_HeaderLength; }
  const uint8_t* GetPayloadPointer() const override { return m_Bytes.data() + m_HeaderLength; }
  const NmToolkit::ImProperty* GetProperty(const std::string& name) const override;
  void SetProperty(const std::string& name, std::unique_ptr<NmToolkit::ImProperty> property);

private:
  std::vector<uint8_t> m_Bytes;
  int64_t m_Time;
  size_t m_HeaderLength;
  std::map<std::string, std::unique_ptr<NmToolkit::ImProperty>> m_Properties;
};

// The errors of this plug-in, in the toolkit error family that hosts catch.
template <typename I> class CmMediaError : public I {
public:
  CmMediaError(const char* name, uint32_t code, std::string text)
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

} // namespace NmMedia
