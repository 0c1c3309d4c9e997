#pragma once

#include <map>
#include <memory>
#include <string>

#include "IndexedSource.h"
#include "RecordingIndex.h"
#include "vzk/vzk.h"

namespace NmRecording {

// A source toolkit over a recording file: every record is one item, in file
// order. Playback navigates the index; live mode follows the file as it grows.
class CmRecordingSource : public NmPluginBoundary::CmIndexedSource<SmRecordEntry> {
public:
  explicit CmRecordingSource(const char* xml);

  using CmIndexedSource::Connect;
  void Connect(const NmToolkit::CmPropertyNameSet& requested,
               NmToolkit::CmPropertyNameSet& supported, uint64_t argument) override;
  void Disconnect() override { m_Connected = false; }

  void StartLiveStream() override;
  void StopLiveStream() override;
  uint32_t GetLiveData(NmToolkit::ImData** out, uint32_t timeout) override;

private:
  const std::vector<SmRecordEntry>& GetEntries() const override { return m_Index->GetEntries(); }
  uint32_t Deliver(const SmRecordEntry& entry, NmToolkit::ImData** out) const override;

  std::string m_File;
  bool m_HasPrivacyMask = false;
  std::string m_PrivacyMask;
  std::unique_ptr<CmRecordingIndex> m_Index;
  NmToolkit::CmPropertyNameSet m_Passed;
  bool m_Live = false;
  size_t m_LivePosition = 0;
};

} // namespace NmRecording
