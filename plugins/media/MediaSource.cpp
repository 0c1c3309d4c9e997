#include "MediaSource.h"

#include <algorithm>
#include <cstdlib>
#include <thread>

#include "Common/Xerces/Xerces.h"

using namespace NmToolkit;

namespace NmMedia {
namespace {

using CmMediaFileError = CmMediaError<ImFileError>;
using CmMediaConfigurationError = CmMediaError<ImConfigurationError>;

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

void CmMediaSource::Connect(uint64_t argument) {
  CmPropertyNameSet supported;
  Connect({}, supported, argument);
}

void CmMediaSource::Disconnect() {
  if (m_LiveReader) {
    m_LiveReader->Stop();
  }
  m_Connected = false;
}

void CmMediaSource::RequireConnected() const {
  if (!m_Connected) {
    throw CmMediaError<ImNotConnectedError>("NmToolkit::ImNotConnectedError", 1,
                                            "Not connected to toolkit!");
  }
}

int64_t CmMediaSource::Count() const {
  return m_Index ? static_cast<int64_t>(m_Index->GetEntries().size()) : 0;
}

CmMediaSource::CmNavigation CmMediaSource::Navigation() const {
  static const std::vector<SmMediaEntry> none;
  return CmNavigation(m_Index ? m_Index->GetEntries() : none);
}

uint32_t CmMediaSource::MoveFirst() {
  RequireConnected();
  return Navigation().MoveFirst(m_Position);
}

uint32_t CmMediaSource::MoveLast() {
  RequireConnected();
  return Navigation().MoveLast(m_Position);
}

uint32_t CmMediaSource::MoveNext() {
  RequireConnected();
  return Navigation().MoveNext(m_Position);
}

uint32_t CmMediaSource::MovePrevious() {
  RequireConnected();
  return Navigation().MovePrevious(m_Position);
}

uint32_t CmMediaSource::MoveNextSequence() {
  RequireConnected();
  return Navigation().MoveNextSequence(m_Position);
}

uint32_t CmMediaSource::MovePreviousSequence() {
  RequireConnected();
  return Navigation().MovePreviousSequence(m_Position);
}

uint32_t CmMediaSource::MoveTo(int64_t time, SmMoveMode mode) {
  RequireConnected();
  if (!NmTimeMatch::IsMoveMode(mode)) {
    // The toolkit contract ends the process on a mode outside the five.
    std::abort();
  }
  return Navigation().MoveTo(m_Position, time, mode);
}

uint32_t CmMediaSource::Deliver(std::vector<uint8_t> bytes, int64_t time, uint16_t sequenceNumber,
                                ImData** out) const {
  auto item = std::make_unique<CmMediaItem>(std::move(bytes), time);
  if (m_Passed.count(NmPropertyNames::SequenceNumber) != 0) {
    item->SetProperty(NmPropertyNames::SequenceNumber,
                      std::make_unique<CmMediaStringProperty>(std::to_string(sequenceNumber)));
  }
  *out = item.release();
  return StatusSuccess;
}

uint32_t CmMediaSource::GetData(ImData** out) {
  RequireConnected();
  *out = nullptr;
  if (m_Position < 0 || m_Position >= Count()) {
    return StatusNoItem;
  }
  const SmMediaEntry& entry = m_Index->GetEntries()[m_Position];
  std::vector<uint8_t> bytes = m_Index->ReadRecord(entry);
  if (bytes.size() != entry.length) {
    return StatusNoItem;
  }
  return Deliver(std::move(bytes), entry.time, entry.sequenceNumber, out);
}

void CmMediaSource::StartLiveStream() {
  RequireConnected();
  if (m_LiveReader) {
    m_LiveReader->Start();
  } else {
    // A file replays from where playback stands, else from its start.
    m_LivePosition = std::max<int64_t>(m_Position, 0);
    m_LiveClockStart = std::chrono::steady_clock::now();
    m_LiveTimeStart = m_LivePosition < Count() ? m_Index->GetEntries()[m_LivePosition].time : 0;
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
  const auto due = m_LiveClockStart +
                   std::chrono::milliseconds(std::max<int64_t>(entry.time - m_LiveTimeStart, 0));
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
  return Deliver(std::move(bytes), entry.time, entry.sequenceNumber, out);
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
  return Deliver(std::move(record.bytes), record.info.time, record.info.sequenceNumber, out);
}

} // namespace NmMedia
