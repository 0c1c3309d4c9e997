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

using NmPluginBoundary::CmPluginError;
using NmPluginBoundary::CmRecordItem;
using CmRecordingFileError = CmPluginError<ImFileError>;
using CmRecordingConfigurationError = CmPluginError<ImConfigurationError>;

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

uint32_t CmRecordingSource::Deliver(const SmRecordEntry& entry, ImData** out) const {
  std::vector<uint8_t> bytes = m_Index->ReadRecord(entry);
  if (bytes.size() != entry.length) {
    // The file shrank under us.
    return StatusNoItem;
  }
  const uint64_t header = RecordHeaderLength(bytes.data(), bytes.size(), entry.type);
  auto item =
      std::make_unique<CmRecordItem>(std::move(bytes), entry.beginTime, entry.endTime, header);
  if (entry.hasSequenceNumber) {
    item->PassProperty(m_Passed, NmPropertyNames::SequenceNumber,
                       std::to_string(entry.sequenceNumber));
  }
  item->PassProperty(m_Passed, NmPropertyNames::PrivacyMask, m_PrivacyMask);
  *out = item.release();
  return StatusSuccess;
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
