#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "MediaDemuxer.h"

namespace NmMedia {

// A record read live, with what the item needs of it.
struct SmLiveRecord {
  std::vector<uint8_t> bytes;
  SmRecordInfo info;
};

// Reads a network stream on a thread of its own while the host's live stream
// runs, so that a host's timeout never cuts a read of libavformat in half;
// records wait in a queue until the host pulls them. A live stream that
// breaks off (a camera restarting, a network outage) is opened again until it
// answers; the record numbering starts over then.
class CmMediaLiveReader {
public:
  // Opens the address at once, so that errors show at Connect. Throws
  // CmMediaOpenError.
  explicit CmMediaLiveReader(const std::string& url);
  ~CmMediaLiveReader();
  CmMediaLiveReader(const CmMediaLiveReader&) = delete;
  CmMediaLiveReader& operator=(const CmMediaLiveReader&) = delete;

  // Records from now on, from a session opened afresh; what was queued
  // before is dropped.
  void Start();
  void Stop();
  // Waits up to `timeout` milliseconds for a record. False when none came,
  // or the stream has ended.
  bool Next(SmLiveRecord& record, uint32_t timeout);
  // Records dropped because the host did not pull them in time.
  uint64_t GetDropped() const;

  // Queue bounds: a host that stops pulling loses the oldest records first.
  static constexpr size_t MaxQueuedRecords = 4096;
  static constexpr size_t MaxQueuedBytes = 64u << 20;

private:
  void Run();
  // Opens the address again after the stream broke off; false once stopped.
  bool Reconnect();
  // A new session in place of the current one, sending; false when the
  // address does not open.
  bool Open();
  static bool IsLiveProtocol(const std::string& url);

  std::string m_Url;
  std::atomic<bool> m_Stop{false};
  std::unique_ptr<CmMediaDemuxer> m_Demuxer;
  std::map<int, std::unique_ptr<CmMediaRecordBuilder>> m_Builders;
  std::thread m_Thread;

  mutable std::mutex m_Mutex;
  std::condition_variable m_Arrived;
  std::deque<SmLiveRecord> m_Queue;
  size_t m_QueuedBytes = 0;
  bool m_Ended = false;
  uint64_t m_Dropped = 0;
};

} // namespace NmMedia
