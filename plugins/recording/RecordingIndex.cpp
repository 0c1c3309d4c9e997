#include "RecordingIndex.h"

#include <sys/stat.h>

#include <cstdio>
#include <fstream>
#include <memory>

#include "Common/Error/Error.h"
#include "MediaProcessing/GenericByteData/GenericByteData.h"
#include "MediaProcessing/GenericByteData/GenericByteDataBlock.h"
#include "MediaProcessing/GenericByteData/GenericByteDataMultiPacket.h"

namespace NmRecording {

using namespace NmMediaProcessing;

namespace {

uint16_t Be16(const uint8_t* p) {
  return static_cast<uint16_t>(p[0] << 8 | p[1]);
}
uint32_t Be32(const uint8_t* p) {
  return static_cast<uint32_t>(p[0]) << 24 | static_cast<uint32_t>(p[1]) << 16 |
         static_cast<uint32_t>(p[2]) << 8 | p[3];
}

// A bare JPEG has no length field: walk its marker segments to the end of
// image. Entropy-coded data ends at the first marker that is neither a
// stuffed zero nor a restart marker.
uint64_t JPEGLength(const uint8_t* data, uint64_t available) {
  uint64_t at = 2;
  while (at + 2 <= available) {
    if (data[at] != 0xFF) {
      return 0;
    }
    const uint8_t marker = data[at + 1];
    if (marker == 0xFF) {
      // Fill bytes before a marker.
      ++at;
      continue;
    }
    if (marker == 0xD9) {
      return at + 2;
    }
    if (marker == 0x01 || (marker >= 0xD0 && marker <= 0xD7)) {
      at += 2;
      continue;
    }
    if (at + 4 > available) {
      return 0;
    }
    const uint64_t segment = Be16(data + at + 2);
    if (segment < 2) {
      return 0;
    }
    at += 2 + segment;
    if (marker == 0xDA) {
      while (at + 1 < available) {
        if (data[at] == 0xFF && data[at + 1] != 0x00 &&
            !(data[at + 1] >= 0xD0 && data[at + 1] <= 0xD7)) {
          break;
        }
        ++at;
      }
    }
  }
  return 0;
}

int64_t Milliseconds(const NmTimeStamp::CmTimeStamp& stamp) {
  return stamp.GetMilliseconds();
}

} // namespace

uint64_t RecordLength(const uint8_t* data, uint64_t available) {
  if (available < 2) {
    return 0;
  }
  const uint16_t type = Be16(data);
  uint64_t length = 0;
  uint64_t minimum = 0;
  if (type == SmByteDataType::RawJPEG) {
    // Shorter than six bytes is no raw JPEG, wherever its end of image lies.
    const uint64_t length = available >= 6 ? JPEGLength(data, available) : 0;
    return length >= 6 ? length : 0;
  }
  if (IsBlockHeaderType(type)) {
    if (available < 36) {
      return 0;
    }
    length = 36ULL + Be16(data + 2) + Be32(data + 8);
    minimum = 36;
  } else if (type == SmByteDataType::MultiPacket || (type >= SmByteDataType::FirstSinglePacket &&
                                                     type <= SmByteDataType::LastSinglePacket)) {
    if (available < 6) {
      return 0;
    }
    length = Be32(data + 2);
    minimum = type == SmByteDataType::VideoStreamDataPacket   ? 32
              : type == SmByteDataType::AudioStreamDataPacket ? 42
              : type == SmByteDataType::MultiPacket           ? 16
                                                              : 6;
  } else {
    return 0;
  }
  return (length >= minimum && length <= available) ? length : 0;
}

int64_t ModificationTime(const std::string& path) {
  struct stat status {};
  if (stat(path.c_str(), &status) != 0) {
    return 0;
  }
  return static_cast<int64_t>(status.st_mtim.tv_sec) * 1000 + status.st_mtim.tv_nsec / 1000000;
}

bool CmRecordingIndex::Update() {
  std::ifstream file(m_Path, std::ios::binary);
  if (!file) {
    return false;
  }
  if (m_IndexedBytes == 0) {
    m_UntimedBase = ModificationTime(m_Path);
  }
  file.seekg(0, std::ios::end);
  const uint64_t size = static_cast<uint64_t>(file.tellg());
  if (size <= m_IndexedBytes) {
    m_TrailingBytes = 0;
    return true;
  }
  std::vector<uint8_t> bytes(size - m_IndexedBytes);
  file.seekg(static_cast<std::streamoff>(m_IndexedBytes));
  file.read(reinterpret_cast<char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
  const uint64_t got = static_cast<uint64_t>(file.gcount());
  uint64_t at = 0;
  while (at < got) {
    const uint64_t length = RecordLength(bytes.data() + at, got - at);
    if (length == 0) {
      break;
    }
    Add(bytes.data() + at, m_IndexedBytes + at, length);
    at += length;
  }
  m_IndexedBytes += at;
  m_TrailingBytes = got - at;
  return true;
}

void CmRecordingIndex::Add(const uint8_t* record, uint64_t offset, uint64_t length) {
  SmRecordEntry entry;
  entry.offset = offset;
  entry.length = length;
  entry.type = Be16(record);
  auto* bytes = const_cast<uint8_t*>(record);

  SmByteDataSequenceResult result;
  bool analysed = false;
  try {
    if (IsBlockHeaderType(entry.type)) {
      const CmGenericVideoByteDataBlock block(bytes, length);
      entry.beginTime = Milliseconds(block.GetBeginTime());
      entry.endTime = Milliseconds(block.GetEndTime());
      analysed = m_Analyzer.AnalyzeBlock(block, result);
    } else if (entry.type == SmByteDataType::VideoStreamDataPacket) {
      const CmGenericVideoStreamDataPacket packet(bytes, length);
      entry.beginTime = entry.endTime = Milliseconds(packet.GetFrameTime());
      entry.hasSequenceNumber = true;
      entry.sequenceNumber = packet.GetSequenceNumber();
      analysed = m_Analyzer.AnalyzeVideo(packet, result);
    } else if (entry.type == SmByteDataType::AudioStreamDataPacket) {
      const CmGenericAudioStreamDataPacket packet(bytes, length);
      entry.beginTime = entry.endTime = Milliseconds(packet.GetTime());
      entry.hasSequenceNumber = true;
      entry.sequenceNumber = packet.GetSequenceNumber();
      analysed = m_Analyzer.AnalyzeAudio(packet, result);
    } else if (entry.type == SmByteDataType::MultiPacket) {
      const CmGenericByteDataMultiPacket multi(bytes, length);
      uint8_t* firstData = nullptr;
      uint64_t firstLength = 0;
      if (multi.GetVideoPacket(firstData, firstLength)) {
        const CmGenericVideoStreamDataPacket first(firstData, firstLength);
        entry.beginTime = entry.endTime = Milliseconds(first.GetFrameTime());
        entry.hasSequenceNumber = true;
        entry.sequenceNumber = first.GetSequenceNumber();
        // The record spans to its last video frame.
        uint8_t* data = nullptr;
        uint64_t size = 0;
        for (uint64_t index = 1;
             index < multi.GetPacketCount() &&
             multi.FindPacket(SmByteDataType::VideoStreamDataPacket, index, data, size);
             ++index) {
          entry.endTime = Milliseconds(CmGenericVideoStreamDataPacket(data, size).GetFrameTime());
        }
        analysed = m_Analyzer.AnalyzeVideo(first, result);
      }
    }
  } catch (const NmError::CmError&) {
    // A time beyond what a stamp can hold: keep the record, untimed.
    analysed = false;
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
      analysed && result.m_Status == SmByteDataSequenceResult::SequenceContinuous;
  if (!m_Entries.empty() && !continuous) {
    ++m_Sequence;
  }
  entry.sequence = m_Sequence;
  m_LastTime = entry.beginTime;
  m_Entries.push_back(entry);
}

std::vector<uint8_t> CmRecordingIndex::ReadRecord(const SmRecordEntry& entry) const {
  std::vector<uint8_t> bytes(entry.length);
  std::ifstream file(m_Path, std::ios::binary);
  file.seekg(static_cast<std::streamoff>(entry.offset));
  file.read(reinterpret_cast<char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
  bytes.resize(static_cast<size_t>(file.gcount()));
  return bytes;
}

} // namespace NmRecording
