#include "MediaIndex.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>

extern "C" {
#include <libavutil/error.h>
}

namespace NmMedia {
namespace {

// A jump of a stream's time by more than this, or backwards by more than the
// reordering of frames explains, ends a continuous run.
constexpr int64_t MaxForwardGap = 10'000;
constexpr int64_t MaxBackwardStep = 1'000;

} // namespace

std::map<int, std::unique_ptr<CmMediaRecordBuilder>>
CreateRecordBuilders(const CmMediaDemuxer& demuxer, const std::string& url) {
  std::map<int, std::unique_ptr<CmMediaRecordBuilder>> builders;
  std::string found;
  for (const SmMediaStream& stream : demuxer.GetStreams()) {
    found += (found.empty() ? "" : ", ") + stream.codecName;
    if (!stream.format) {
      continue;
    }
    auto builder = std::make_unique<CmMediaRecordBuilder>(*stream.format);
    if (builder->Configure(stream.configuration.data(), stream.configuration.size())) {
      builders.emplace(stream.index, std::move(builder));
    }
  }
  if (builders.empty()) {
    throw CmMediaOpenError("No stream of media '" + url + "' has a supported codec (found: " +
                           (found.empty() ? std::string("no stream") : found) + ")!");
  }
  return builders;
}

CmMediaIndex::CmMediaIndex(const std::string& path) {
  CmMediaDemuxer demuxer(path, false);
  for (auto& [index, builder] : CreateRecordBuilders(demuxer, path)) {
    m_Streams[index].builder = std::move(builder);
  }
  m_Spool.reset(std::tmpfile());
  if (!m_Spool) {
    throw CmMediaOpenError("Could not index media '" + path + "': no temporary file (" +
                           std::strerror(errno) + ")!");
  }
  SmDemuxedPacket packet;
  std::vector<uint8_t> record;
  for (;;) {
    const int result = demuxer.Read(packet);
    if (result == AVERROR_EOF) {
      break;
    }
    if (result < 0) {
      // A read error ends the file where it is: what came before stays usable.
      break;
    }
    const auto state = m_Streams.find(packet.stream);
    if (state == m_Streams.end()) {
      ++m_Ignored;
      continue;
    }
    SmRecordInfo info;
    if (!state->second.builder->Build(packet.packet, record, info)) {
      ++m_Rejected;
      continue;
    }
    Add(packet.stream, record, info);
  }
  if (std::fflush(m_Spool.get()) != 0) {
    throw CmMediaOpenError("Could not index media '" + path + "': " + std::strerror(errno) + "!");
  }
}

void CmMediaIndex::Add(int stream, const std::vector<uint8_t>& record, const SmRecordInfo& info) {
  if (std::fwrite(record.data(), 1, record.size(), m_Spool.get()) != record.size()) {
    throw CmMediaOpenError(std::string("Could not index media: ") + std::strerror(errno) + "!");
  }
  SmStreamState& state = m_Streams[stream];
  if (state.seen && !m_Entries.empty() &&
      (info.time - state.lastTime > MaxForwardGap ||
       state.lastTime - info.time > MaxBackwardStep)) {
    ++m_Sequence;
  }
  state.seen = true;
  state.lastTime = info.time;
  SmMediaEntry entry;
  entry.offset = m_SpoolSize;
  entry.length = record.size();
  entry.stream = stream;
  entry.beginTime = entry.endTime = info.time;
  entry.sequenceNumber = info.sequenceNumber;
  entry.sync = info.sync;
  entry.sequence = m_Sequence;
  m_Entries.push_back(entry);
  m_SpoolSize += record.size();
}

std::vector<uint8_t> CmMediaIndex::ReadRecord(const SmMediaEntry& entry) const {
  std::vector<uint8_t> bytes(entry.length);
  size_t done = 0;
  while (done < bytes.size()) {
    const ssize_t got = pread(fileno(m_Spool.get()), bytes.data() + done, bytes.size() - done,
                              static_cast<off_t>(entry.offset + done));
    if (got <= 0) {
      if (got < 0 && errno == EINTR) {
        continue;
      }
      bytes.resize(done);
      break;
    }
    done += static_cast<size_t>(got);
  }
  return bytes;
}

} // namespace NmMedia
