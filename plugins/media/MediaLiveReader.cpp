#include "MediaLiveReader.h"

#include "MediaIndex.h"

#include <chrono>

extern "C" {
#include <libavutil/error.h>
}

namespace NmMedia {

CmMediaLiveReader::CmMediaLiveReader(const std::string& url) : m_Url(url) {
  m_Demuxer = std::make_unique<CmMediaDemuxer>(url, true, &m_Stop);
  m_Builders = CreateRecordBuilders(*m_Demuxer, url);
}

CmMediaLiveReader::~CmMediaLiveReader() {
  Stop();
}

void CmMediaLiveReader::Start() {
  Stop();
  {
    std::lock_guard lock(m_Mutex);
    m_Queue.clear();
    m_QueuedBytes = 0;
    m_Ended = false;
  }
  m_Stop = false;
  m_Thread = std::thread(&CmMediaLiveReader::Run, this);
}

void CmMediaLiveReader::Stop() {
  if (!m_Thread.joinable()) {
    return;
  }
  m_Stop = true;
  m_Thread.join();
  // The pause request must not be cut off by the stop flag.
  m_Stop = false;
  if (m_Demuxer) {
    m_Demuxer->Pause();
  }
}

void CmMediaLiveReader::Run() {
  // A session that was paused does not resume cleanly: libavformat starts
  // the times of what follows over at the position that the server names,
  // which a server of stored streams takes from the frame it sends in
  // decoding order, a server of live ones from the moment it resumes; times
  // would jump back either way. A fresh session starts them right. The old
  // one goes first: a server may hold a shared stream for a paused session,
  // or allow one session only. A file served over HTTP just goes on.
  if (IsLiveProtocol(m_Url)) {
    m_Demuxer.reset();
    m_Builders.clear();
    if (!Open() && !Reconnect()) {
      std::lock_guard lock(m_Mutex);
      m_Ended = true;
      m_Arrived.notify_all();
      return;
    }
  } else {
    m_Demuxer->Play();
  }
  SmDemuxedPacket packet;
  while (!m_Stop) {
    const int result = m_Demuxer->Read(packet);
    if (result == AVERROR(EAGAIN)) {
      continue;
    }
    if (result < 0) {
      if (m_Stop || !IsLiveProtocol(m_Url) || !Reconnect()) {
        break;
      }
      continue;
    }
    const auto builder = m_Builders.find(packet.stream);
    if (builder == m_Builders.end()) {
      continue;
    }
    SmLiveRecord record;
    if (!builder->second->Build(packet.packet, record.bytes, record.info)) {
      continue;
    }
    std::lock_guard lock(m_Mutex);
    m_QueuedBytes += record.bytes.size();
    m_Queue.push_back(std::move(record));
    while (m_Queue.size() > 1 &&
           (m_Queue.size() > MaxQueuedRecords || m_QueuedBytes > MaxQueuedBytes)) {
      m_QueuedBytes -= m_Queue.front().bytes.size();
      m_Queue.pop_front();
      ++m_Dropped;
    }
    m_Arrived.notify_all();
  }
  std::lock_guard lock(m_Mutex);
  m_Ended = true;
  m_Arrived.notify_all();
}

bool CmMediaLiveReader::IsLiveProtocol(const std::string& url) {
  // A file served over HTTP or FTP ends for good; a camera's stream does not.
  const std::string scheme = url.substr(0, url.find("://"));
  for (const char* live : {"rtsp", "rtsps", "rtmp", "rtp", "udp", "srt", "tcp"}) {
    if (scheme == live) {
      return true;
    }
  }
  return false;
}

bool CmMediaLiveReader::Reconnect() {
  while (!m_Stop) {
    // A pause between attempts, cut short by a stop.
    for (int step = 0; step < 20 && !m_Stop; ++step) {
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    if (!m_Stop && Open()) {
      return true;
    }
  }
  return false;
}

bool CmMediaLiveReader::Open() {
  try {
    auto demuxer = std::make_unique<CmMediaDemuxer>(m_Url, true, &m_Stop, true);
    auto builders = CreateRecordBuilders(*demuxer, m_Url);
    m_Demuxer = std::move(demuxer);
    m_Builders = std::move(builders);
    return true;
  } catch (const CmMediaOpenError&) {
    // Not there (yet), or stopped while opening.
    return false;
  }
}

bool CmMediaLiveReader::Next(SmLiveRecord& record, uint32_t timeout) {
  std::unique_lock lock(m_Mutex);
  m_Arrived.wait_for(lock, std::chrono::milliseconds(timeout),
                     [this] { return !m_Queue.empty() || m_Ended || !m_Thread.joinable(); });
  if (m_Queue.empty()) {
    return false;
  }
  record = std::move(m_Queue.front());
  m_Queue.pop_front();
  m_QueuedBytes -= record.bytes.size();
  return true;
}

uint64_t CmMediaLiveReader::GetDropped() const {
  std::lock_guard lock(m_Mutex);
  return m_Dropped;
}

} // namespace NmMedia
