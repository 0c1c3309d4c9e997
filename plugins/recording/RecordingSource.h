#pragma once

#include <map>
#include <memory>
#include <string>

#include "IndexedNavigation.h"
#include "RecordingIndex.h"
#include "vzk/vzk.h"

namespace NmRecording {

inline int64_t EntryBeginTime(const SmRecordEntry& entry) {
  return entry.beginTime;
}
inline int64_t EntryEndTime(const SmRecordEntry& entry) {
  return entry.endTime;
}

// A source toolkit over a recording file: every record is one item, in file
// order. Playback navigates the index; live mode follows the file as it grows.
class CmRecordingSource : public NmToolkit::ImPlaybackSourceToolkit,
                          public NmToolkit::ImLiveSourceToolkit {
public:
  explicit CmRecordingSource(const char* xml);

  void Connect(const NmToolkit::CmPropertyNameSet& requested,
               NmToolkit::CmPropertyNameSet& supported, uint64_t argument) override;
  void Connect(uint64_t argument) override;
  void Disconnect() override { m_Connected = false; }
  void UpdateValues(const NmToolkit::CmKeyValueList&) override {}
  void UpdateValue(const std::string&, const std::string&) override {}

  void StartLiveStream() override;
  void StopLiveStream() override;
  uint32_t GetLiveData(NmToolkit::ImData** out, uint32_t timeout) override;

  uint32_t MoveFirst() override;
  uint32_t MoveLast() override;
  uint32_t MoveNext() override;
  uint32_t MovePrevious() override;
  uint32_t MoveNextSequence() override;
  uint32_t MovePreviousSequence() override;
  uint32_t MoveTo(int64_t time, NmToolkit::SmMoveMode mode) override;
  uint32_t GetData(NmToolkit::ImData** out) override;

private:
  void RequireConnected() const;
  using CmNavigation = NmIndexedNavigation::CmIndexedNavigation<SmRecordEntry>;
  CmNavigation Navigation() const;
  int64_t Count() const { return static_cast<int64_t>(m_Index->GetEntries().size()); }
  uint32_t Deliver(const SmRecordEntry& entry, NmToolkit::ImData** out) const;

  std::string m_File;
  bool m_HasPrivacyMask = false;
  std::string m_PrivacyMask;
  std::unique_ptr<CmRecordingIndex> m_Index;
  NmToolkit::CmPropertyNameSet m_Passed;
  bool m_Connected = false;
  bool m_Live = false;
  int64_t m_Position = -1;
  size_t m_LivePosition = 0;
};

} // namespace NmRecording
