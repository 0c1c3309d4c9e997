#include "RecordCheck.h"

#include <algorithm>
#include <cstring>
#include <vector>

#include "Common/BitStream/BigEndian.h"
#include "Common/TimeStamp/TimeStamp.h"
#include "MediaProcessing/GenericByteData/GenericByteData.h"

namespace NmRecording {

using NmMediaProcessing::SmByteDataType;

namespace {

constexpr uint64_t BlockHeaderLength = 36;
constexpr uint64_t VideoHeaderLength = 32;
constexpr uint64_t AudioHeaderLength = 42;
constexpr uint64_t MultiHeaderLength = 16;
constexpr uint64_t SinglePacketHeaderLength = 6;
// A bare JPEG has no length field; one that runs on longer than this is
// taken for bytes that only began like a JPEG.
constexpr uint64_t MaximumRawJPEGLength = 64ull << 20;
constexpr size_t MaximumRememberedWalks = 1 << 18;
// Wire times from here on overflow a time stamp.
constexpr uint64_t WireTimeLimit =
    NmTimeStamp::MillisecondsLimit - static_cast<uint64_t>(NmTimeStamp::MillisecondsFrom1601To1970);

bool IsBlockType(uint32_t type) {
  return (type >= 1 && type <= 12) || type == 15;
}
bool IsSinglePacketType(uint32_t type) {
  return type >= SmByteDataType::FirstSinglePacket && type <= SmByteDataType::LastSinglePacket;
}
bool IsVideoCodec(uint32_t codec) {
  return (codec >= 1 && codec <= 13) || codec == 128;
}
bool IsAudioCodec(uint32_t codec) {
  return (codec >= 1 && codec <= 12) || (codec >= 16 && codec <= 20);
}

// The header bytes at an offset, as many as there are, so that the fields
// already written can be judged while the rest is still missing.
struct SmHeader {
  std::array<uint8_t, 42> bytes{};
  size_t have = 0;

  bool Has(size_t offset, size_t width) const { return offset + width <= have; }
  uint16_t U16(size_t offset) const { return NmBigEndian::Load16(bytes.data() + offset); }
  uint32_t U32(size_t offset) const { return NmBigEndian::Load32(bytes.data() + offset); }
  uint64_t U64(size_t offset) const { return NmBigEndian::Load64(bytes.data() + offset); }
  // A time field that is there and out of range.
  bool BadTime(size_t offset) const { return Has(offset, 8) && U64(offset) >= WireTimeLimit; }
};

SmHeader ReadHeader(CmByteWindow& bytes, uint64_t offset, size_t length) {
  SmHeader header;
  length = std::min(length, header.bytes.size());
  size_t got = 0;
  const uint8_t* data = bytes.Bytes(offset, length, got);
  if (data != nullptr) {
    std::memcpy(header.bytes.data(), data, got);
  }
  header.have = got;
  return header;
}

// Where a JPEG's marker structure ends: the byte behind its end-of-image
// marker. Needs a frame header before the first scan, a scan, and segment
// lengths that fit the marker they belong to.
// With `visited`, a walk that reaches a marker where an earlier walk stood
// in the same state takes that walk's outcome, and its own markers are
// noted: candidates inside one another's segments are walked once.
EmRecordVerdict WalkJPEGFrom(CmByteWindow& bytes, uint64_t start, uint64_t limit, uint64_t& end,
                             std::vector<uint64_t>* visited, bool& capped) {
  const auto byte = [&bytes, limit](uint64_t at) { return at < limit ? bytes.At(at) : -2; };
  const auto missing = [limit, &bytes](uint64_t at) {
    // Past the end of the file: more may come. Past the record's limit: no.
    return at >= bytes.Size() && at < limit ? EmRecordVerdict::Incomplete
                                            : EmRecordVerdict::Invalid;
  };
  for (uint64_t at = start; at < start + 2; ++at) {
    const int value = byte(at);
    if (value < 0) {
      return missing(at);
    }
    if (value != (at == start ? 0xFF : 0xD8)) {
      return EmRecordVerdict::Invalid;
    }
  }
  uint64_t at = start + 2;
  bool frame = false, scan = false;
  for (;;) {
    if (visited != nullptr) {
      const uint64_t key = at * 4 + (frame ? 2 : 0) + (scan ? 1 : 0);
      const auto known = bytes.walks.find(key);
      if (known != bytes.walks.end()) {
        end = known->second.second;
        return static_cast<EmRecordVerdict>(known->second.first);
      }
      visited->push_back(key);
    }
    if (at - start > MaximumRawJPEGLength) {
      capped = true;
      return EmRecordVerdict::Invalid;
    }
    int value = byte(at);
    if (value < 0) {
      return missing(at);
    }
    if (value != 0xFF) {
      return EmRecordVerdict::Invalid;
    }
    // Fill bytes before a marker.
    while ((value = byte(at + 1)) == 0xFF) {
      ++at;
    }
    if (value < 0) {
      return missing(at + 1);
    }
    const uint8_t marker = static_cast<uint8_t>(value);
    if (marker == 0xD9) {
      if (!scan) {
        return EmRecordVerdict::Invalid;
      }
      end = at + 2;
      return EmRecordVerdict::Valid;
    }
    const bool frameHeader =
        marker >= 0xC0 && marker <= 0xCF && marker != 0xC4 && marker != 0xC8 && marker != 0xCC;
    const bool known = frameHeader || marker == 0xC4 || marker == 0xCC ||
                       (marker >= 0xDA && marker <= 0xDF) || (marker >= 0xE0 && marker <= 0xEF) ||
                       marker == 0xFE || marker == 0xDB;
    if (!known) {
      return EmRecordVerdict::Invalid;
    }
    uint8_t head[10] = {};
    size_t have = 0;
    while (have < sizeof head && byte(at + 2 + have) >= 0) {
      head[have] = static_cast<uint8_t>(byte(at + 2 + have));
      ++have;
    }
    if (have < 2) {
      return missing(at + 2 + have);
    }
    const uint64_t segment = NmBigEndian::Load16(head);
    if (segment < 2) {
      return EmRecordVerdict::Invalid;
    }
    if (frameHeader) {
      // Length, precision, height, width, component count, 3 bytes a
      // component. What the values say is for the decoder to judge.
      if (have < 8) {
        return missing(at + 2 + have);
      }
      const uint8_t components = head[7];
      if (components == 0 || segment != 8u + 3u * components) {
        return EmRecordVerdict::Invalid;
      }
      frame = true;
    } else if (marker == 0xDA) {
      if (have < 3) {
        return missing(at + 2 + have);
      }
      const uint8_t components = head[2];
      if (!frame || components == 0 || components > 4 || segment != 6u + 2u * components) {
        return EmRecordVerdict::Invalid;
      }
      scan = true;
    } else if (marker == 0xDD && segment != 4) {
      return EmRecordVerdict::Invalid;
    }
    at += 2 + segment;
    if (marker != 0xDA) {
      continue;
    }
    // Entropy-coded data runs to the first marker that is neither a stuffed
    // zero nor a restart marker.
    for (;;) {
      if (at - start > MaximumRawJPEGLength) {
        capped = true;
        return EmRecordVerdict::Invalid;
      }
      size_t got = 0;
      const uint8_t* data = at < limit ? bytes.Stream(at, got) : nullptr;
      got = static_cast<size_t>(std::min<uint64_t>(got, at < limit ? limit - at : 0));
      if (got == 0) {
        return missing(at);
      }
      const auto* found = static_cast<const uint8_t*>(std::memchr(data, 0xFF, got));
      if (found == nullptr) {
        at += got;
        continue;
      }
      at += static_cast<uint64_t>(found - data);
      const int next = byte(at + 1);
      if (next < 0) {
        return missing(at + 1);
      }
      if (next == 0x00 || (next >= 0xD0 && next <= 0xD7)) {
        at += 2;
        continue;
      }
      break;
    }
  }
}

EmRecordVerdict WalkJPEG(CmByteWindow& bytes, uint64_t start, uint64_t limit, uint64_t& end) {
  if (limit != UINT64_MAX) {
    bool capped = false;
    return WalkJPEGFrom(bytes, start, limit, end, nullptr, capped);
  }
  std::vector<uint64_t> visited;
  bool capped = false;
  EmRecordVerdict verdict = WalkJPEGFrom(bytes, start, limit, end, &visited, capped);
  // Only walks that found no JPEG are looked into again, for the next one;
  // a whole JPEG is passed by as a record. Memory stays bounded: what does
  // not fit is walked again.
  if (!capped && verdict != EmRecordVerdict::Valid &&
      bytes.walks.size() + visited.size() <= MaximumRememberedWalks) {
    for (const uint64_t key : visited) {
      bytes.walks.emplace(key, std::make_pair(static_cast<int>(verdict), end));
    }
  }
  if (verdict == EmRecordVerdict::Valid && end - start > MaximumRawJPEGLength) {
    verdict = EmRecordVerdict::Invalid;
  }
  return verdict;
}

struct SmCheckContext {
  CmByteWindow& bytes;
  uint64_t offset;
  // Where the record must end at the latest: the end of the multi packet
  // that holds it, or no limit.
  uint64_t limit;
};

// The length a record claims must fit its container; past the end of the
// file it may still be coming.
EmRecordVerdict Fits(const SmCheckContext& context, uint64_t length) {
  if (length > context.limit - context.offset) {
    return EmRecordVerdict::Invalid;
  }
  return length > context.bytes.Size() - std::min(context.bytes.Size(), context.offset)
             ? EmRecordVerdict::Incomplete
             : EmRecordVerdict::Valid;
}

EmRecordVerdict HeaderVerdict(const SmHeader& header, size_t needed) {
  return header.have < needed ? EmRecordVerdict::Incomplete : EmRecordVerdict::Valid;
}

void KeepHeader(SmRecordCheck& check, const SmHeader& header, size_t length, int32_t type) {
  std::memcpy(check.header.data(), header.bytes.data(), length);
  check.headerSize = length;
  check.headerType = type;
}

// A video or audio packet whose header passed: its length, its one time and
// its sequence number, read where its kind keeps them.
EmRecordVerdict AcceptStreamPacket(const SmCheckContext& context, const SmHeader& header,
                                   SmRecordCheck& check, size_t headerLength, size_t timeOffset,
                                   int32_t type) {
  check.length = header.U32(2);
  check.beginTime = check.endTime = static_cast<int64_t>(header.U64(timeOffset));
  check.hasSequenceNumber = true;
  check.sequenceNumber = header.U16(8);
  KeepHeader(check, header, headerLength, type);
  return Fits(context, check.length);
}

EmRecordVerdict CheckVideoPacket(const SmCheckContext& context, const SmHeader& header,
                                 SmRecordCheck& check) {
  if (header.Has(2, 4) && header.U32(2) <= VideoHeaderLength) {
    return EmRecordVerdict::Invalid;
  }
  if (header.Has(6, 2) && !IsVideoCodec(header.U16(6))) {
    return EmRecordVerdict::Invalid;
  }
  if (header.BadTime(12) || header.BadTime(20)) {
    return EmRecordVerdict::Invalid;
  }
  // Intra-only codecs have only sync frames.
  if (header.Has(10, 2) && (header.U16(6) == 1 || header.U16(6) == 8) && !(header.U16(10) & 1)) {
    return EmRecordVerdict::Invalid;
  }
  if (header.have < VideoHeaderLength) {
    return HeaderVerdict(header, VideoHeaderLength);
  }
  return AcceptStreamPacket(context, header, check, VideoHeaderLength, 20,
                            SmByteDataType::VideoStreamDataPacket);
}

EmRecordVerdict CheckAudioPacket(const SmCheckContext& context, const SmHeader& header,
                                 SmRecordCheck& check) {
  if (header.Has(2, 4) && header.U32(2) <= AudioHeaderLength) {
    return EmRecordVerdict::Invalid;
  }
  if ((header.Has(6, 2) && !IsAudioCodec(header.U16(6))) || header.BadTime(12)) {
    return EmRecordVerdict::Invalid;
  }
  // A sample count of 1 is never written; 0 stands for a single sample.
  if ((header.Has(20, 4) && header.U32(20) == 1) || (header.Has(24, 1) && header.bytes[24] == 0) ||
      (header.Has(25, 1) && header.bytes[25] == 0) || (header.Has(26, 4) && header.U32(26) < 2)) {
    return EmRecordVerdict::Invalid;
  }
  if (header.have < AudioHeaderLength) {
    return HeaderVerdict(header, AudioHeaderLength);
  }
  return AcceptStreamPacket(context, header, check, AudioHeaderLength, 12,
                            SmByteDataType::AudioStreamDataPacket);
}

EmRecordVerdict CheckSinglePacket(const SmCheckContext& context, SmRecordCheck& check) {
  const SmHeader header = ReadHeader(context.bytes, context.offset, AudioHeaderLength);
  const uint32_t type = header.U16(0);
  if (type == SmByteDataType::VideoStreamDataPacket) {
    check.defined = true;
    return CheckVideoPacket(context, header, check);
  }
  if (type == SmByteDataType::AudioStreamDataPacket) {
    check.defined = true;
    return CheckAudioPacket(context, header, check);
  }
  // A packet of a type without a layout: a length, and a payload.
  if (header.Has(2, 4) && header.U32(2) <= SinglePacketHeaderLength) {
    return EmRecordVerdict::Invalid;
  }
  if (header.have < SinglePacketHeaderLength) {
    return EmRecordVerdict::Incomplete;
  }
  check.length = header.U32(2);
  return Fits(context, check.length);
}

EmRecordVerdict CheckMultiPacket(const SmCheckContext& context, const SmHeader& header,
                                 SmRecordCheck& check) {
  if (header.Has(2, 4) && header.U32(2) <= MultiHeaderLength) {
    return EmRecordVerdict::Invalid;
  }
  if (header.Has(6, 2) && header.U16(6) == 0) {
    return EmRecordVerdict::Invalid;
  }
  if (header.have < MultiHeaderLength) {
    return HeaderVerdict(header, MultiHeaderLength);
  }
  check.length = header.U32(2);
  const EmRecordVerdict fits = Fits(context, check.length);
  if (fits == EmRecordVerdict::Invalid) {
    return fits;
  }
  // The packets must fill the payload exactly, each a valid single packet.
  const uint64_t end = context.offset + check.length;
  uint64_t at = context.offset + MultiHeaderLength;
  bool firstVideo = true;
  for (uint32_t index = 0; index < header.U16(6); ++index) {
    if (at >= end) {
      return EmRecordVerdict::Invalid;
    }
    SmRecordCheck inner;
    const SmCheckContext innerContext{context.bytes, at, end};
    check.wholeUpTo = at;
    const SmHeader innerHeader = ReadHeader(context.bytes, at, 2);
    if (innerHeader.have < 2) {
      return EmRecordVerdict::Incomplete;
    }
    if (!IsSinglePacketType(innerHeader.U16(0))) {
      return EmRecordVerdict::Invalid;
    }
    const EmRecordVerdict verdict = CheckSinglePacket(innerContext, inner);
    if (verdict != EmRecordVerdict::Valid) {
      return verdict;
    }
    if (inner.headerType == SmByteDataType::VideoStreamDataPacket) {
      if (firstVideo) {
        check.beginTime = inner.beginTime;
        check.hasSequenceNumber = true;
        check.sequenceNumber = inner.sequenceNumber;
        check.header = inner.header;
        check.headerSize = inner.headerSize;
        check.headerType = inner.headerType;
        firstVideo = false;
      }
      // The record spans to its last video frame.
      check.endTime = inner.endTime;
    }
    at += inner.length;
  }
  if (at != end) {
    return EmRecordVerdict::Invalid;
  }
  check.lengthConfirmed = true;
  return fits;
}

EmRecordVerdict CheckBlock(const SmCheckContext& context, const SmHeader& header,
                           SmRecordCheck& check) {
  const uint32_t type = header.U16(0);
  if ((header.Has(8, 4) && header.U32(8) == 0) || header.BadTime(12) || header.BadTime(20)) {
    return EmRecordVerdict::Invalid;
  }
  if (header.Has(12, 16) && header.U64(12) > header.U64(20)) {
    return EmRecordVerdict::Invalid;
  }
  if (header.Has(34, 2)) {
    // One image has one time; several have a span, and intra-only codecs
    // hold one image a block.
    const uint16_t images = header.U16(34);
    const bool sameTime = header.U64(12) == header.U64(20);
    if (images == 0 || (images == 1 && !sameTime) ||
        (images > 1 && (type == 1 || type == 8 || sameTime))) {
      return EmRecordVerdict::Invalid;
    }
  }
  if (header.have < BlockHeaderLength) {
    return HeaderVerdict(header, BlockHeaderLength);
  }
  const uint64_t headerLength = BlockHeaderLength + header.U16(2);
  check.length = headerLength + header.U32(8);
  check.beginTime = static_cast<int64_t>(header.U64(12));
  check.endTime = static_cast<int64_t>(header.U64(20));
  KeepHeader(check, header, BlockHeaderLength, static_cast<int32_t>(type));
  const EmRecordVerdict fits = Fits(context, check.length);
  if (fits != EmRecordVerdict::Valid || type != 1) {
    return fits;
  }
  // A JPEG block holds one JPEG.
  uint64_t end = 0;
  const uint64_t payload = context.offset + headerLength;
  return WalkJPEG(context.bytes, payload, context.offset + check.length, end);
}

} // namespace

SmRecordCheck CheckRecord(CmByteWindow& bytes, uint64_t offset) {
  SmRecordCheck check;
  const SmHeader header = ReadHeader(bytes, offset, BlockHeaderLength);
  if (header.have < 2) {
    // The first byte of a type that records of a defined kind have, or none.
    check.defined = header.have == 0 || header.bytes[0] == 0x00 || header.bytes[0] == 0xFE ||
                    header.bytes[0] == 0xFF;
    check.verdict = check.defined ? EmRecordVerdict::Incomplete : EmRecordVerdict::Invalid;
    return check;
  }
  const uint32_t type = header.U16(0);
  check.type = static_cast<int32_t>(type);
  const SmCheckContext context{bytes, offset, UINT64_MAX};
  if (type == SmByteDataType::RawJPEG) {
    check.defined = true;
    uint64_t end = 0;
    check.verdict = WalkJPEG(bytes, offset, UINT64_MAX, end);
    if (check.verdict == EmRecordVerdict::Valid) {
      check.length = end - offset;
      check.lengthConfirmed = true;
    }
  } else if (IsBlockType(type)) {
    check.defined = true;
    check.verdict = CheckBlock(context, header, check);
  } else if (type == SmByteDataType::MultiPacket) {
    check.defined = true;
    check.verdict = CheckMultiPacket(context, header, check);
  } else if (IsSinglePacketType(type)) {
    check.verdict = CheckSinglePacket(context, check);
  }
  return check;
}

uint64_t RecordLength(const uint8_t* data, uint64_t available) {
  CmByteWindow bytes(data, available);
  const SmRecordCheck check = CheckRecord(bytes, 0);
  return check.verdict == EmRecordVerdict::Valid ? check.length : 0;
}

uint64_t RecordHeaderLength(const uint8_t* data, uint64_t size, int32_t type) {
  if (type == SmByteDataType::RawJPEG) {
    return 0;
  }
  if (IsBlockType(static_cast<uint32_t>(type))) {
    return size >= 4 ? BlockHeaderLength + NmBigEndian::Load16(data + 2) : BlockHeaderLength;
  }
  switch (type) {
  case SmByteDataType::VideoStreamDataPacket:
    return VideoHeaderLength;
  case SmByteDataType::AudioStreamDataPacket:
    return AudioHeaderLength;
  case SmByteDataType::MultiPacket:
    return MultiHeaderLength;
  default:
    return SinglePacketHeaderLength;
  }
}

} // namespace NmRecording
