#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "RecordBytes.h"

namespace NmRecording {

// What the bytes at an offset are.
enum class EmRecordVerdict {
  // No record starts here, however the file may grow.
  Invalid,
  // Everything there is fits a record, but the file ends before it does:
  // a record still being written, or a damaged one.
  Incomplete,
  // A whole record that passes every rule of its kind.
  Valid,
};

// One record as the index needs it; the header bytes let the sequence
// analysis run without the payload.
struct SmRecordCheck {
  EmRecordVerdict verdict = EmRecordVerdict::Invalid;
  uint64_t length = 0;
  int32_t type = 0;
  // The length is borne out by the record's own structure (the packets of a
  // multi packet, the markers of a JPEG), not by a length field alone.
  bool lengthConfirmed = false;
  // A kind whose every field has a meaning; other single packets carry no
  // more than a type and a length, which random bytes match too often for
  // them to count as a place where the recording picks up again.
  bool defined = false;
  // For an unfinished multi packet: where its packets stop being whole.
  // Up to there it is consistent with a record still being written.
  uint64_t wholeUpTo = 0;
  int64_t beginTime = 0;
  int64_t endTime = 0;
  bool hasSequenceNumber = false;
  uint16_t sequenceNumber = 0;
  // The fixed header of a block, video or audio packet; for a multi packet
  // the header of its first video packet, if it has one.
  std::array<uint8_t, 42> header{};
  size_t headerSize = 0;
  int32_t headerType = 0;
};

// Checks the record at `offset` against every rule of the record format:
// type, length fields, header fields and minimum sizes, times a time stamp
// can hold, the packets of a multi packet, the JPEG of a JPEG block, and the
// marker structure of a raw JPEG, whose length it finds.
SmRecordCheck CheckRecord(CmByteWindow& bytes, uint64_t offset);

// Length of the record at the start of `data`, or 0 if the bytes there do not
// hold one whole, valid record.
uint64_t RecordLength(const uint8_t* data, uint64_t available);

// Header length of a record of this type whose first bytes are `data`.
uint64_t RecordHeaderLength(const uint8_t* data, uint64_t size, int32_t type);

} // namespace NmRecording
