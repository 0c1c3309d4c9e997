#pragma once

#include <cstdint>
#include <cstdio>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "IndexEntry.h"
#include "MediaDemuxer.h"

namespace NmMedia {

// Where one record lies in the spool and what navigation needs of it. A
// packet is an instant: it ends where it begins.
struct SmMediaEntry : NmPluginBoundary::SmIndexEntry {
  int stream = 0;
  uint16_t sequenceNumber = 0;
  bool sync = false;
};

// Every usable packet of a media file as a record, in the file's order. The
// file is demuxed and converted once, on the first open; the records go to an
// unlinked temporary file so that navigation can jump anywhere without
// seeking the demuxer, which not every container does exactly.
class CmMediaIndex {
public:
  // Throws CmMediaOpenError when the file cannot be opened or holds no stream
  // of a supported codec.
  explicit CmMediaIndex(const std::string& path);

  const std::vector<SmMediaEntry>& GetEntries() const { return m_Entries; }
  std::vector<uint8_t> ReadRecord(const SmMediaEntry& entry) const;
  // Packets of supported streams that could not be made records (damaged
  // framing), and packets of streams without a record form.
  uint64_t GetRejectedPackets() const { return m_Rejected; }
  uint64_t GetIgnoredPackets() const { return m_Ignored; }

private:
  struct SmStreamState {
    std::unique_ptr<CmMediaRecordBuilder> builder;
    bool seen = false;
    int64_t lastTime = 0;
  };
  void Add(int stream, const std::vector<uint8_t>& record, const SmRecordInfo& info);

  std::unique_ptr<std::FILE, int (*)(std::FILE*)> m_Spool{nullptr, &std::fclose};
  uint64_t m_SpoolSize = 0;
  std::vector<SmMediaEntry> m_Entries;
  std::map<int, SmStreamState> m_Streams;
  uint32_t m_Sequence = 0;
  uint64_t m_Rejected = 0;
  uint64_t m_Ignored = 0;
};

// The record builders for the usable streams of a demuxer. Throws
// CmMediaOpenError, naming what the input holds, when no stream is usable.
std::map<int, std::unique_ptr<CmMediaRecordBuilder>>
CreateRecordBuilders(const CmMediaDemuxer& demuxer, const std::string& url);

} // namespace NmMedia
