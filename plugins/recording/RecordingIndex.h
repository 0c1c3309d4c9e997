#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "IndexEntry.h"
#include "MediaProcessing/GenericByteData/ByteDataSequenceAnalyzer.h"
#include "RecordBytes.h"
#include "RecordCheck.h"

namespace NmRecording {

// When the file was last written, in milliseconds since 1970; 0 if unknown.
int64_t ModificationTime(const std::string& path);

// Where one record lies in the file and what the navigation needs of it.
struct SmRecordEntry : NmPluginBoundary::SmIndexEntry {
  int32_t type = 0;
  bool hasSequenceNumber = false;
  uint16_t sequenceNumber = 0;
};

// Bytes of the file that hold no record.
struct SmByteRange {
  uint64_t offset = 0;
  uint64_t length = 0;
};

// The records of a recording file, found once and extended as the file grows.
// Only offsets, lengths, times and sequence facts are kept; a record's bytes
// are read when it is asked for.
//
// Damage is passed over: where the bytes hold no valid record, the index
// looks for the next place where one starts and goes on from there. Payload
// bytes must not pass for a record there: a packet or block must pass every
// rule of its kind, whose times, codecs and lengths together random bytes
// practically never meet; a bare JPEG, which may hold whole JPEG thumbnails,
// must also be followed by another valid record or by the end of the file.
// A record whose length field leads to no record is damaged itself when a
// record starts inside the span it claims.
//
// A record that the file ends in the middle of is taken for one still being
// written, and waited for, until a valid record followed by another whole
// valid record turns up behind its start (behind the whole packets, for a
// multi packet): then the file went on without it, and it is damage. A
// finished file ending that way has lost its last bytes, which the tail of
// GetDamagedRanges reports.
class CmRecordingIndex {
public:
  explicit CmRecordingIndex(std::string path) : m_Path(std::move(path)) {}

  // Reads what was appended since the last call, and no more. False if the
  // path is not a readable regular file.
  bool Update();
  const std::vector<SmRecordEntry>& GetEntries() const { return m_Entries; }
  // The ranges passed over so far. With `tail`, also what follows the last
  // record, which a finished file will never complete.
  std::vector<SmByteRange> GetDamagedRanges(bool tail) const;
  // Bytes that hold no record: passed over, or not yet whole.
  bool HasBytesWithoutRecord() const { return !GetDamagedRanges(true).empty(); }
  // The bytes of one record; fewer than its length if the file shrank.
  std::vector<uint8_t> ReadRecord(const SmRecordEntry& entry) const;
  const std::string& GetPath() const { return m_Path; }
  uint64_t GetFileSize() const { return m_Size; }

private:
  enum class EmSearch { Found, Unresolved, None };
  struct SmSearch {
    EmSearch outcome = EmSearch::None;
    uint64_t offset = 0;
  };
  // Whether a record starts at `candidate` that the index may pick up at:
  // Found, None, or Unresolved while more bytes may still decide it. As
  // `proof` that an unfinished record before it is damage, it must be
  // followed by another whole record.
  // A record that ends at `within`, the end of a record being searched, is
  // that record's payload and proves nothing.
  EmSearch Classify(CmByteWindow& bytes, uint64_t candidate, bool proof, uint64_t within = 0) const;
  // The first Found place in [from, limit). Places still unresolved end the
  // search, or with `waiting` are collected there and passed over.
  SmSearch FindRecord(CmByteWindow& bytes, uint64_t from, uint64_t limit, bool proof,
                      std::vector<uint64_t>* waiting, uint64_t within = 0) const;
  // Whether the record at `offset` is followed as a record must be:
  // Valid, Incomplete (wait) or Invalid.
  EmRecordVerdict Follower(CmByteWindow& bytes, uint64_t offset) const;
  // Looks behind a record that is not yet whole for proof that it never will
  // be. True when the scan went on.
  bool PassOverUnfinished(CmByteWindow& bytes, uint64_t start);
  void Add(const SmRecordCheck& check, uint64_t offset);
  void Skip(uint64_t from, uint64_t to);
  void MoveScan(uint64_t offset);
  void Scan(CmByteWindow& bytes);

  std::string m_Path;
  CmRecordFile m_File;
  bool m_Opened = false;
  std::vector<SmRecordEntry> m_Entries;
  std::vector<SmByteRange> m_Skipped;
  uint64_t m_Size = 0;
  // Everything before this offset is decided: records or damage.
  uint64_t m_Scan = 0;
  // Between m_SkipStart and m_Scan lies damage whose end is not found yet.
  bool m_Resyncing = false;
  uint64_t m_SkipStart = 0;
  // How far the search behind an unfinished record got; 0 when none ran.
  uint64_t m_Lookahead = 0;
  // Places behind it that more bytes may still make into that proof.
  std::vector<uint64_t> m_Waiting;
  bool m_AfterSkip = false;
  NmMediaProcessing::CmByteDataSequenceSpecificAnalyzer m_Analyzer;
  uint32_t m_Sequence = 0;
  int64_t m_LastTime = 0;
  // Where untimed raw JPEGs at the start of the file begin, in ms since 1970.
  int64_t m_UntimedBase = 0;
};

} // namespace NmRecording
