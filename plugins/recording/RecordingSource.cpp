#include "RecordingSource.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <thread>
#include <vector>

#include "Common/Xerces/Xerces.h"

using namespace NmToolkit;

namespace NmRecording {
namespace {

// The errors of this plug-in, in the toolkit error family that hosts catch.
template <typename I> class CmRecordingError : public I {
public:
  CmRecordingError(const char* name, uint32_t code, std::string text)
      : m_Name(name), m_Code(code), m_Text(std::move(text)) {}
  const char* what() const noexcept override { return m_Text.c_str(); }
  std::string GetErrorName() const override { return m_Name; }
  uint32_t GetErrorCode() const override { return m_Code; }
  std::vector<std::string> GetArguments() const override { return {}; }
  std::string GetDescription() const override { return m_Text; }
  const ImToolkitError* GetInnerError() const override { return nullptr; }

private:
  std::string m_Name;
  uint32_t m_Code;
  std::string m_Text;
};

using CmRecordingFileError = CmRecordingError<ImFileError>;
using CmRecordingConfigurationError = CmRecordingError<ImConfigurationError>;

class CmStringValue : public ImStringProperty {
public:
  explicit CmStringValue(std::string value) : m_Value(std::move(value)) {}
  ImProperty* Clone() const override { return new CmStringValue(m_Value); }
  std::string GetValue() const override { return m_Value; }

private:
  std::string m_Value;
};

// One record as an item; it owns a copy of the record's bytes, read from the
// file when the item is delivered.
class CmRecordItem : public ImMediaData {
public:
  CmRecordItem(std::vector<uint8_t> bytes, const SmRecordEntry& entry, uint64_t headerLength)
      : m_Bytes(std::move(bytes)), m_Begin(entry.beginTime), m_End(entry.endTime),
        m_HeaderLength(std::min<uint64_t>(headerLength, m_Bytes.size())) {}
  int64_t GetBeginTime() const override { return m_Begin; }
  int64_t GetEndTime() const override { return m_End; }
  size_t GetDataSize() const override { return m_Bytes.size(); }
  const uint8_t* GetDataPointer() const override { return m_Bytes.data(); }
  size_t GetPayloadSize() const override { return m_Bytes.size() - m_HeaderLength; }
  const uint8_t* GetPayloadPointer() const override { return m_Bytes.data() + m_HeaderLength; }
  const ImProperty* GetProperty(const std::string& name) const override {
    const auto found = m_Properties.find(name);
    return found == m_Properties.end() ? nullptr : found->second.get();
  }
  void SetProperty(const std::string& name, std::unique_ptr<ImProperty> property) {
    m_Properties[name] = std::move(property);
  }

private:
  std::vector<uint8_t> m_Bytes;
  int64_t m_Begin;
  int64_t m_End;
  uint64_t m_HeaderLength;
  std::map<std::string, std::unique_ptr<ImProperty>> m_Properties;
};

} // namespace

CmRecordingSource::CmRecordingSource(const char* xml) {
  // Configuration faults show at Connect, in words; construction never fails.
  try {
    const auto document = NmXerces::CmXmlWrapper::LoadXml(xml ? xml : "");
    if (const auto node = document->SelectSingleNode("/toolkit/config/recording")) {
      node->GetAttributeValue("file", m_File);
      m_HasPrivacyMask = node->GetAttributeValue("privacy_mask", m_PrivacyMask);
    }
  } catch (const NmError::CmError&) {
    m_File.clear();
  }
  m_Index = std::make_unique<CmRecordingIndex>(m_File);
}

void CmRecordingSource::Connect(const CmPropertyNameSet& requested, CmPropertyNameSet& supported,
                                uint64_t) {
  if (m_File.empty()) {
    throw CmRecordingConfigurationError(
        "NmToolkit::ImConfigurationError", 0,
        "The recording plug-in needs <config><recording file=\"...\"/></config>!");
  }
  if (!m_Index->Update()) {
    throw CmRecordingFileError("NmToolkit::ImFileError", 6,
                               "Could not open recording '" + m_File + "'!");
  }
  if (m_Index->GetEntries().empty() && m_Index->HasBytesWithoutRecord()) {
    throw CmRecordingFileError("NmToolkit::ImFileError", 7,
                               "The file '" + m_File + "' holds no readable record!");
  }
  m_Passed.clear();
  for (const std::string& name : requested) {
    if (name == NmPropertyNames::SequenceNumber ||
        (name == NmPropertyNames::PrivacyMask && m_HasPrivacyMask)) {
      m_Passed.insert(name);
    }
  }
  supported = m_Passed;
  m_Connected = true;
  m_Live = false;
}

void CmRecordingSource::Connect(uint64_t argument) {
  CmPropertyNameSet supported;
  Connect({}, supported, argument);
}

void CmRecordingSource::RequireConnected() const {
  if (!m_Connected) {
    throw CmRecordingError<ImNotConnectedError>("NmToolkit::ImNotConnectedError", 1,
                                                "Not connected to toolkit!");
  }
}

CmRecordingSource::CmNavigation CmRecordingSource::Navigation() const {
  return CmNavigation(m_Index->GetEntries());
}

uint32_t CmRecordingSource::MoveFirst() {
  RequireConnected();
  return Navigation().MoveFirst(m_Position);
}

uint32_t CmRecordingSource::MoveLast() {
  RequireConnected();
  return Navigation().MoveLast(m_Position);
}

uint32_t CmRecordingSource::MoveNext() {
  RequireConnected();
  return Navigation().MoveNext(m_Position);
}

uint32_t CmRecordingSource::MovePrevious() {
  RequireConnected();
  return Navigation().MovePrevious(m_Position);
}

uint32_t CmRecordingSource::MoveNextSequence() {
  RequireConnected();
  return Navigation().MoveNextSequence(m_Position);
}

uint32_t CmRecordingSource::MovePreviousSequence() {
  RequireConnected();
  return Navigation().MovePreviousSequence(m_Position);
}

uint32_t CmRecordingSource::MoveTo(int64_t time, SmMoveMode mode) {
  RequireConnected();
  return Navigation().MoveTo(m_Position, time, mode);
}

uint32_t CmRecordingSource::Deliver(const SmRecordEntry& entry, ImData** out) const {
  std::vector<uint8_t> bytes = m_Index->ReadRecord(entry);
  if (bytes.size() != entry.length) {
    // The file shrank under us.
    return StatusNoItem;
  }
  const uint64_t header = RecordHeaderLength(bytes.data(), bytes.size(), entry.type);
  auto item = std::make_unique<CmRecordItem>(std::move(bytes), entry, header);
  if (m_Passed.count(NmPropertyNames::SequenceNumber) != 0 && entry.hasSequenceNumber) {
    item->SetProperty(NmPropertyNames::SequenceNumber,
                      std::make_unique<CmStringValue>(std::to_string(entry.sequenceNumber)));
  }
  if (m_Passed.count(NmPropertyNames::PrivacyMask) != 0) {
    item->SetProperty(NmPropertyNames::PrivacyMask, std::make_unique<CmStringValue>(m_PrivacyMask));
  }
  *out = item.release();
  return StatusSuccess;
}

uint32_t CmRecordingSource::GetData(ImData** out) {
  RequireConnected();
  *out = nullptr;
  if (m_Position < 0 || m_Position >= Count()) {
    return StatusNoItem;
  }
  return Deliver(m_Index->GetEntries()[m_Position], out);
}

void CmRecordingSource::StartLiveStream() {
  RequireConnected();
  m_Index->Update();
  // Live delivers what is appended from now on.
  m_LivePosition = m_Index->GetEntries().size();
  m_Live = true;
}

void CmRecordingSource::StopLiveStream() {
  RequireConnected();
  m_Live = false;
}

uint32_t CmRecordingSource::GetLiveData(ImData** out, uint32_t timeout) {
  RequireConnected();
  *out = nullptr;
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeout);
  for (;;) {
    m_Index->Update();
    if (m_LivePosition < m_Index->GetEntries().size()) {
      return Deliver(m_Index->GetEntries()[m_LivePosition++], out);
    }
    const auto now = std::chrono::steady_clock::now();
    if (now >= deadline) {
      return StatusNoItem;
    }
    std::this_thread::sleep_for(std::min<std::chrono::steady_clock::duration>(
        deadline - now, std::chrono::milliseconds(10)));
  }
}

} // namespace NmRecording
