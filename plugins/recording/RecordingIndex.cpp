#include "RecordingIndex.h"

#include <sys/stat.h>

#include <algorithm>
#include <cstring>
#include <optional>

#include "Common/Error/Error.h"
#include "MediaProcessing/GenericByteData/GenericAudioStreamDataPacket.h"
#include "MediaProcessing/GenericByteData/GenericByteData.h"
#include "MediaProcessing/GenericByteData/GenericByteDataBlock.h"
#include "MediaProcessing/GenericByteData/GenericVideoStreamDataPacket.h"

namespace NmRecording {

using namespace NmMediaProcessing;

namespace {

// Places behind an unfinished record that more bytes may make into proof of
// its damage, looked at again at each update.
constexpr size_t MaximumWaiting = 64;

// Where a defined record may start: the first two bytes are one of its types.
bool CouldStartRecord(uint8_t first, uint8_t second) {
  if (first == 0x00) {
    return (second >= 1 && second <= 12) || second == 15 || second == 16 || second == 32;
  }
  return (first == 0xFE && second == 0xF0) || (first == 0xFF && second == 0xD8);
}

// The fixed header of a record with its length fields set for a one-byte
// payload: the record classes then view it as whole, and the sequence
// analysis, which reads header fields only, needs no more of the record.
std::vector<uint8_t> HeaderOnlyRecord(const SmRecordCheck& check) {
  std::vector<uint8_t> bytes(check.header.begin(), check.header.begin() + check.headerSize);
  bytes.push_back(0);
  const auto put32 = [&bytes](size_t at, uint32_t value) {
    for (int i = 0; i < 4; ++i) {
      bytes[at + i] = static_cast<uint8_t>(value >> (24 - 8 * i));
    }
  };
  if (IsBlockHeaderType(check.headerType)) {
    bytes[2] = bytes[3] = 0; // no extension
    put32(8, 1);
  } else {
    put32(2, static_cast<uint32_t>(bytes.size()));
  }
  return bytes;
}

} // namespace

int64_t ModificationTime(const std::string& path) {
  struct stat status {};
  if (stat(path.c_str(), &status) != 0) {
    return 0;
  }
  return static_cast<int64_t>(status.st_mtim.tv_sec) * 1000 + status.st_mtim.tv_nsec / 1000000;
}

bool CmRecordingIndex::Update() {
  if (!m_Opened) {
    if (!m_File.Open(m_Path)) {
      return false;
    }
    m_Opened = true;
    m_UntimedBase = ModificationTime(m_Path);
  }
  const uint64_t size = m_File.Size();
  if (size < m_Size) {
    // Cut short under us: what is indexed stays, reads of it fail.
    return true;
  }
  m_Size = size;
  CmByteWindow bytes(m_File, size);
  Scan(bytes);
  return true;
}

EmRecordVerdict CmRecordingIndex::Follower(CmByteWindow& bytes, uint64_t offset) const {
  if (offset == bytes.Size()) {
    return EmRecordVerdict::Valid;
  }
  const SmRecordCheck next = CheckRecord(bytes, offset);
  if (next.defined || next.verdict == EmRecordVerdict::Invalid) {
    return next.verdict;
  }
  // A type without a layout and a length that fits: payload bytes look like
  // that all the time. It counts only with a record of a defined kind, or
  // the end of the file, behind it.
  if (next.verdict == EmRecordVerdict::Incomplete) {
    return EmRecordVerdict::Invalid;
  }
  const uint64_t after = offset + next.length;
  if (after == bytes.Size()) {
    return EmRecordVerdict::Valid;
  }
  const SmRecordCheck second = CheckRecord(bytes, after);
  return second.defined ? second.verdict : EmRecordVerdict::Invalid;
}

CmRecordingIndex::EmSearch CmRecordingIndex::Classify(CmByteWindow& bytes, uint64_t candidate,
                                                      bool proof, uint64_t within) const {
  const SmRecordCheck check = CheckRecord(bytes, candidate);
  if (!check.defined || check.verdict == EmRecordVerdict::Invalid) {
    return EmSearch::None;
  }
  if (check.verdict == EmRecordVerdict::Valid && candidate + check.length == within) {
    return EmSearch::None; // the payload of the record searched, ending with it
  }
  if (check.verdict == EmRecordVerdict::Incomplete) {
    return EmSearch::Unresolved;
  }
  // Headers with times, codecs and lengths that all hold are beyond what
  // payload bytes match by chance. A bare JPEG is not: cameras put whole
  // thumbnails into their pictures, so it needs a record behind it.
  if (!proof && check.type != SmByteDataType::RawJPEG) {
    return EmSearch::Found;
  }
  const uint64_t end = candidate + check.length;
  if (end == bytes.Size()) {
    return proof ? EmSearch::Unresolved : EmSearch::Found;
  }
  switch (Follower(bytes, end)) {
  case EmRecordVerdict::Valid:
    return EmSearch::Found;
  case EmRecordVerdict::Incomplete:
    return EmSearch::Unresolved;
  default:
    return EmSearch::None;
  }
}

CmRecordingIndex::SmSearch CmRecordingIndex::FindRecord(CmByteWindow& bytes, uint64_t from,
                                                        uint64_t limit, bool proof,
                                                        std::vector<uint64_t>* waiting,
                                                        uint64_t within) const {
  limit = std::min(limit, bytes.Size());
  uint64_t at = from;
  while (at < limit) {
    size_t got = 0;
    const uint8_t* data = bytes.Stream(at, got);
    got = static_cast<size_t>(std::min<uint64_t>(got, limit - at));
    if (got == 0) {
      break;
    }
    // Most bytes are ruled out by their first two; only candidates get the
    // full check, which may move the window.
    std::vector<uint64_t> candidates;
    for (size_t i = 0; i + 1 < got; ++i) {
      if (CouldStartRecord(data[i], data[i + 1])) {
        candidates.push_back(at + i);
      }
    }
    // The window's last byte pairs with the next one; the file's last byte
    // may begin a record that is still coming.
    const uint64_t last = at + got - 1;
    const int next = bytes.At(last + 1);
    const int first = bytes.At(last);
    if (next >= 0 ? CouldStartRecord(static_cast<uint8_t>(first), static_cast<uint8_t>(next))
                  : (first == 0x00 || first == 0xFE || first == 0xFF)) {
      candidates.push_back(last);
    }
    for (const uint64_t candidate : candidates) {
      const EmSearch outcome = Classify(bytes, candidate, proof, within);
      if (outcome == EmSearch::Found || (outcome == EmSearch::Unresolved && waiting == nullptr)) {
        return {outcome, candidate};
      }
      if (outcome == EmSearch::Unresolved) {
        if (waiting->size() >= MaximumWaiting) {
          // Looked at again each time: a few only. The search goes on from
          // here when they are settled.
          return {EmSearch::Unresolved, candidate};
        }
        waiting->push_back(candidate);
      }
    }
    at += got;
  }
  return {EmSearch::None, limit};
}

bool CmRecordingIndex::PassOverUnfinished(CmByteWindow& bytes, uint64_t start) {
  // Places that more bytes could make into proof are looked at again; the
  // rest of the search goes on where it stopped.
  std::optional<uint64_t> proof;
  std::vector<uint64_t> waiting;
  for (const uint64_t candidate : m_Waiting) {
    const EmSearch outcome = Classify(bytes, candidate, true);
    if (outcome == EmSearch::Found) {
      proof = candidate;
      break;
    }
    if (outcome == EmSearch::Unresolved) {
      waiting.push_back(candidate);
    }
  }
  if (!proof) {
    const SmSearch found =
        FindRecord(bytes, std::max({m_Lookahead, start + 1, CheckRecord(bytes, start).wholeUpTo}),
                   UINT64_MAX, true, &waiting);
    m_Lookahead = found.offset;
    if (found.outcome == EmSearch::Found) {
      proof = found.offset;
    }
  }
  m_Waiting = std::move(waiting);
  if (!proof) {
    return false;
  }
  Skip(m_Resyncing ? m_SkipStart : start, *proof);
  m_Resyncing = false;
  MoveScan(*proof);
  return true;
}

void CmRecordingIndex::Scan(CmByteWindow& bytes) {
  const uint64_t size = bytes.Size();
  while (m_Scan < size) {
    if (m_Resyncing) {
      const SmSearch found = FindRecord(bytes, m_Scan, UINT64_MAX, false, nullptr);
      if (found.outcome == EmSearch::Found) {
        Skip(m_SkipStart, found.offset);
        m_Resyncing = false;
        MoveScan(found.offset);
        continue;
      }
      MoveScan(found.offset);
      // A place that may yet become a record, or may be damage that claims
      // more than the file holds: look behind it for proof.
      if (found.outcome == EmSearch::Unresolved && PassOverUnfinished(bytes, m_Scan)) {
        continue;
      }
      return;
    }

    const SmRecordCheck check = CheckRecord(bytes, m_Scan);
    if (check.verdict == EmRecordVerdict::Invalid) {
      m_Resyncing = true;
      m_SkipStart = m_Scan;
      MoveScan(m_Scan + 1);
      continue;
    }
    if (check.verdict == EmRecordVerdict::Incomplete) {
      if (PassOverUnfinished(bytes, m_Scan)) {
        continue;
      }
      return;
    }
    const uint64_t end = m_Scan + check.length;
    if (check.lengthConfirmed) {
      Add(check, m_Scan);
      continue;
    }
    const EmRecordVerdict follower = Follower(bytes, end);
    if (follower == EmRecordVerdict::Valid && (end != size || !check.defined)) {
      Add(check, m_Scan);
      continue;
    }
    if (follower == EmRecordVerdict::Incomplete) {
      if (check.defined) {
        Add(check, m_Scan);
        continue;
      }
      return; // a packet of no defined kind waits for what follows it
    }
    if (!check.defined) {
      m_Resyncing = true;
      m_SkipStart = m_Scan;
      MoveScan(m_Scan + 1);
      continue;
    }
    // What follows is no record, or nothing: either this record's length is
    // damaged or the next record is, or the length runs to the end of the
    // file. A record found inside this one's extent says that its length is
    // wrong.
    std::vector<uint64_t> undecided;
    const SmSearch found = FindRecord(bytes, m_Scan + 1, end, false, &undecided, end);
    if (found.outcome == EmSearch::Found) {
      Skip(m_Scan, found.offset);
      MoveScan(found.offset);
      continue;
    }
    Add(check, m_Scan);
    if (end == size) {
      continue;
    }
    m_Resyncing = true;
    m_SkipStart = end;
  }
}

void CmRecordingIndex::MoveScan(uint64_t offset) {
  if (offset != m_Scan) {
    // What was learnt behind an unfinished record is about that record.
    m_Lookahead = 0;
    m_Waiting.clear();
  }
  m_Scan = offset;
}

void CmRecordingIndex::Skip(uint64_t from, uint64_t to) {
  if (to <= from) {
    return;
  }
  if (!m_Skipped.empty() && m_Skipped.back().offset + m_Skipped.back().length == from) {
    m_Skipped.back().length += to - from;
  } else {
    m_Skipped.push_back({from, to - from});
  }
  m_AfterSkip = true;
}

std::vector<SmByteRange> CmRecordingIndex::GetDamagedRanges(bool tail) const {
  std::vector<SmByteRange> ranges = m_Skipped;
  const uint64_t start = m_Resyncing ? m_SkipStart : m_Scan;
  const uint64_t end = tail ? m_Size : m_Scan;
  if (end > start && (tail || m_Resyncing)) {
    ranges.push_back({start, end - start});
  }
  return ranges;
}

void CmRecordingIndex::Add(const SmRecordCheck& check, uint64_t offset) {
  SmRecordEntry entry;
  entry.offset = offset;
  entry.length = check.length;
  entry.type = check.type;
  entry.beginTime = check.beginTime;
  entry.endTime = check.endTime;
  entry.hasSequenceNumber = check.hasSequenceNumber;
  entry.sequenceNumber = check.sequenceNumber;
  MoveScan(offset + check.length);

  SmByteDataSequenceResult result;
  bool analysed = false;
  if (check.headerSize != 0) {
    std::vector<uint8_t> header = HeaderOnlyRecord(check);
    try {
      if (IsBlockHeaderType(check.headerType)) {
        analysed = m_Analyzer.AnalyzeBlock(
            CmGenericVideoByteDataBlock(header.data(), header.size()), result);
      } else if (check.headerType == SmByteDataType::VideoStreamDataPacket) {
        analysed = m_Analyzer.AnalyzeVideo(
            CmGenericVideoStreamDataPacket(header.data(), header.size()), result);
      } else if (check.headerType == SmByteDataType::AudioStreamDataPacket) {
        analysed = m_Analyzer.AnalyzeAudio(
            CmGenericAudioStreamDataPacket(header.data(), header.size()), result);
      }
    } catch (const NmError::CmError&) {
      // Audio after video or the like: the stream changed, a new sequence.
      analysed = false;
    }
  }
  if (entry.type == SmByteDataType::RawJPEG) {
    // Bare JPEGs carry no time: they follow each other at 25 per second, the
    // first at the time the file was last written. Times close to 1970 would
    // read as stream-relative to the decoders, which move them to the present.
    entry.beginTime = m_Entries.empty() ? m_UntimedBase : m_LastTime + 40;
    entry.endTime = entry.beginTime + 39;
    result.m_Status = SmByteDataSequenceResult::SequenceContinuous;
    analysed = !m_Entries.empty() && m_Entries.back().type == SmByteDataType::RawJPEG;
  }
  const bool continuous =
      analysed && !m_AfterSkip && result.m_Status == SmByteDataSequenceResult::SequenceContinuous;
  if (!m_Entries.empty() && !continuous) {
    ++m_Sequence;
  }
  m_AfterSkip = false;
  entry.sequence = m_Sequence;
  m_LastTime = entry.beginTime;
  m_Entries.push_back(entry);
}

std::vector<uint8_t> CmRecordingIndex::ReadRecord(const SmRecordEntry& entry) const {
  std::vector<uint8_t> bytes(entry.length);
  if (!m_File.IsOpen() || !m_File.ReadAt(entry.offset, bytes.data(), bytes.size())) {
    bytes.clear();
  }
  return bytes;
}

} // namespace NmRecording
