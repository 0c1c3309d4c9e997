#include "MediaSource.h"

#include <algorithm>
#include <cstdlib>
#include <thread>

#include "Common/Xerces/Xerces.h"
#include "MediaItem.h"

using namespace NmToolkit;

namespace NmMedia {
namespace {

using NmPluginBoundary::CmPluginError;
using CmMediaFileError = CmPluginError<ImFileError>;
using CmMediaConfigurationError = CmPluginError<ImConfigurationError>;

} // namespace

bool CmMediaSource::IsNetworkAddress(const std::string& url) {
  const size_t scheme = url.find("://");
  if (scheme == std::string::npos || scheme == 0) {
    return false;
  }
  const std::string name = url.substr(0, scheme);
  const bool isScheme = std::all_of(name.begin(), name.end(), [](char c) {
    return std::isalnum(static_cast<unsigned char>(c)) || c == '+' || c == '-' || c == '.';
  });
  return isScheme && name != "file";
}

CmMediaSource::CmMediaSource(const char* xml) {
  // Configuration faults show at Connect, in words; construction never fails.
  try {
    const auto document = NmXerces::CmXmlWrapper::LoadXml(xml ? xml : "");
    if (const auto node = document->SelectSingleNode("/toolkit/config/media")) {
      node->GetAttributeValue("url", m_Url);
    }
  } catch (const NmError::CmError&) {
    m_Url.clear();
  }
  m_Network = IsNetworkAddress(m_Url);
}

CmMediaSource::~CmMediaSource() = default;

void CmMediaSource::Open() {
  if (m_Url.empty()) {
    throw CmMediaConfigurationError(
        "NmToolkit::ImConfigurationError", 0,
        "The media plug-in needs <config><media url=\"...\"/></config>!");
  }
  if (m_Index || m_LiveReader) {
    return;
  }
  try {
    if (m_Network) {
      m_LiveReader = std::make_unique<CmMediaLiveReader>(m_Url);
    } else {
      m_Index = std::make_unique<CmMediaIndex>(m_Url);
    }
  } catch (const CmMediaOpenError& error) {
    throw CmMediaFileError("NmToolkit::ImFileError", 6, error.what());
  }
}

void CmMediaSource::Connect(const CmPropertyNameSet& requested, CmPropertyNameSet& supported,
                            uint64_t) {
  if (m_Connected) {
    return;
  }
  Open();
  m_Passed.clear();
  if (requested.count(NmPropertyNames::SequenceNumber) != 0) {
    m_Passed.insert(NmPropertyNames::SequenceNumber);
  }
  supported = m_Passed;
  m_Connected = true;
  m_Live = false;
}

void CmMediaSource::Disconnect() {
  if (m_LiveReader) {
    m_LiveReader->Stop();
  }
  m_Connected = false;
}

const std::vector<SmMediaEntry>& CmMediaSource::GetEntries() const {
  static const std::vector<SmMediaEntry> none;
  return m_Index ? m_Index->GetEntries() : none;
}

uint32_t CmMediaSource::MoveTo(int64_t time, SmMoveMode mode) {
  RequireConnected();
  if (!NmTimeMatch::IsMoveMode(mode)) {
    // The toolkit contract ends the process on a mode outside the five.
    std::abort();
  }
  return CmIndexedSource::MoveTo(time, mode);
}

uint32_t CmMediaSource::DeliverRecord(std::vector<uint8_t> bytes, int64_t time,
                                      uint16_t sequenceNumber, ImData** out) const {
  const uint64_t header = PacketHeaderLength(bytes);
  auto item =
      std::make_unique<NmPluginBoundary::CmRecordItem>(std::move(bytes), time, time, header);
  item->PassProperty(m_Passed, NmPropertyNames::SequenceNumber, std::to_string(sequenceNumber));
  *out = item.release();
  return StatusSuccess;
}

uint32_t CmMediaSource::Deliver(const SmMediaEntry& entry, ImData** out) const {
  std::vector<uint8_t> bytes = m_Index->ReadRecord(entry);
  if (bytes.size() != entry.length) {
    return StatusNoItem;
  }
  return DeliverRecord(std::move(bytes), entry.beginTime, entry.sequenceNumber, out);
}

void CmMediaSource::StartLiveStream() {
  RequireConnected();
  if (m_LiveReader) {
    m_LiveReader->Start();
  } else {
    // A file replays from where playback stands, else from its start.
    m_LivePosition = std::max<int64_t>(m_Position, 0);
    m_LiveClockStart = std::chrono::steady_clock::now();
    m_LiveTimeStart =
        m_LivePosition < Count() ? m_Index->GetEntries()[m_LivePosition].beginTime : 0;
  }
  m_Live = true;
}

void CmMediaSource::StopLiveStream() {
  RequireConnected();
  if (m_LiveReader) {
    m_LiveReader->Stop();
  }
  m_Live = false;
}

uint32_t CmMediaSource::GetLiveFileData(ImData** out, uint32_t timeout) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeout);
  if (m_LivePosition >= Count()) {
    // Nothing more will come: the host learns it after the wait it allowed.
    std::this_thread::sleep_until(deadline);
    return StatusNoItem;
  }
  const SmMediaEntry& entry = m_Index->GetEntries()[m_LivePosition];
  const auto due = m_LiveClockStart + std::chrono::milliseconds(
                                          std::max<int64_t>(entry.beginTime - m_LiveTimeStart, 0));
  if (due > deadline) {
    std::this_thread::sleep_until(deadline);
    return StatusNoItem;
  }
  std::this_thread::sleep_until(due);
  std::vector<uint8_t> bytes = m_Index->ReadRecord(entry);
  ++m_LivePosition;
  if (bytes.size() != entry.length) {
    return StatusNoItem;
  }
  return DeliverRecord(std::move(bytes), entry.beginTime, entry.sequenceNumber, out);
}

uint32_t CmMediaSource::GetLiveData(ImData** out, uint32_t timeout) {
  RequireConnected();
  *out = nullptr;
  if (!m_Live) {
    return StatusNoItem;
  }
  if (!m_LiveReader) {
    return GetLiveFileData(out, timeout);
  }
  SmLiveRecord record;
  if (!m_LiveReader->Next(record, timeout)) {
    return StatusNoItem;
  }
  return DeliverRecord(std::move(record.bytes), record.info.time, record.info.sequenceNumber, out);
}

} // namespace NmMedia
