#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "MediaProcessing/GenericByteData/ByteDataSequenceAnalyzer.h"

namespace NmRecording {

// Length of the record at the start of `data`, or 0 if the bytes there do not
// hold one whole, well-formed record.
uint64_t RecordLength(const uint8_t* data, uint64_t available);

// When the file was last written, in milliseconds since 1970; 0 if unknown.
int64_t ModificationTime(const std::string& path);

// Where one record lies in the file and what the navigation needs of it.
struct SmRecordEntry {
  uint64_t offset = 0;
  uint64_t length = 0;
  int32_t type = 0;
  int64_t beginTime = 0;
  int64_t endTime = 0;
  // Index of the continuous run that the record belongs to.
  uint32_t sequence = 0;
  bool hasSequenceNumber = false;
  uint16_t sequenceNumber = 0;
};

// The records of a recording file, read once and extended as the file grows.
class CmRecordingIndex {
public:
  explicit CmRecordingIndex(std::string path) : m_Path(std::move(path)) {}

  // Reads what was appended since the last call. False if the file cannot be
  // read at all. A damaged record ends the index before it; it is read again
  // the next time, in case it was only half written.
  bool Update();
  const std::vector<SmRecordEntry>& GetEntries() const { return m_Entries; }
  // True when bytes follow the last good record that do not form one.
  bool HasTrailingBytes() const { return m_TrailingBytes > 0; }
  std::vector<uint8_t> ReadRecord(const SmRecordEntry& entry) const;
  const std::string& GetPath() const { return m_Path; }

private:
  void Add(const uint8_t* record, uint64_t offset, uint64_t length);

  std::string m_Path;
  std::vector<SmRecordEntry> m_Entries;
  uint64_t m_IndexedBytes = 0;
  uint64_t m_TrailingBytes = 0;
  NmMediaProcessing::CmByteDataSequenceSpecificAnalyzer m_Analyzer;
  uint32_t m_Sequence = 0;
  int64_t m_LastTime = 0;
  // Where untimed raw JPEGs at the start of the file begin, in ms since 1970.
  int64_t m_UntimedBase = 0;
};

} // namespace NmRecording
