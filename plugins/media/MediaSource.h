#pragma once

#include <chrono>
#include <memory>
#include <string>

#include "IndexedSource.h"
#include "MediaIndex.h"
#include "MediaLiveReader.h"
#include "vzk/vzk.h"

namespace NmMedia {

// A source toolkit over a media file or a network stream, read through
// libavformat. Each packet of a supported stream is one item: a video or an
// audio stream data packet. Files are indexed on the first Connect and can be
// navigated; their live mode replays them paced by the clock. Network
// streams have live mode only.
class CmMediaSource : public NmPluginBoundary::CmIndexedSource<SmMediaEntry> {
public:
  explicit CmMediaSource(const char* xml);
  ~CmMediaSource() override;

  using CmIndexedSource::Connect;
  void Connect(const NmToolkit::CmPropertyNameSet& requested,
               NmToolkit::CmPropertyNameSet& supported, uint64_t argument) override;
  void Disconnect() override;

  void StartLiveStream() override;
  void StopLiveStream() override;
  uint32_t GetLiveData(NmToolkit::ImData** out, uint32_t timeout) override;

  uint32_t MoveTo(int64_t time, NmToolkit::SmMoveMode mode) override;

  // A URL with a scheme other than file: is read as a network stream.
  static bool IsNetworkAddress(const std::string& url);

private:
  void Open();
  const std::vector<SmMediaEntry>& GetEntries() const override;
  uint32_t Deliver(const SmMediaEntry& entry, NmToolkit::ImData** out) const override;
  uint32_t DeliverRecord(std::vector<uint8_t> bytes, int64_t time, uint16_t sequenceNumber,
                         NmToolkit::ImData** out) const;
  uint32_t GetLiveFileData(NmToolkit::ImData** out, uint32_t timeout);

  std::string m_Url;
  bool m_Network = false;
  std::unique_ptr<CmMediaIndex> m_Index;
  std::unique_ptr<CmMediaLiveReader> m_LiveReader;
  NmToolkit::CmPropertyNameSet m_Passed;
  bool m_Live = false;
  // Live replay of a file: the next entry, and where the clock started.
  int64_t m_LivePosition = 0;
  std::chrono::steady_clock::time_point m_LiveClockStart;
  int64_t m_LiveTimeStart = 0;
};

} // namespace NmMedia
