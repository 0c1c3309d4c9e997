#include "RecordingInfo.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <fstream>
#include <iomanip>
#include <map>
#include <optional>
#include <sstream>
#include <vector>

#include "Common/BitStream/BigEndian.h"
#include "Common/Error/Error.h"
#include "MediaProcessing/GenericByteData/ByteDataSequenceAnalyzer.h"
#include "MediaProcessing/GenericByteData/GenericAudioStreamDataPacket.h"
#include "MediaProcessing/GenericByteData/GenericByteDataBlock.h"
#include "MediaProcessing/GenericByteData/GenericByteDataMultiPacket.h"
#include "MediaProcessing/GenericByteData/GenericVideoStreamDataPacket.h"
#include "MediaProcessing/GenericByteData/RawVideoByteDataAccess.h"
#include "MediaProcessing/Video/VideoAnalyzer.h"
#include "MediaProcessing/Video/VideoFactory.h"
#include "PluginHost.h"
#include "RecordingIndex.h"

using namespace NmMediaProcessing;

namespace NmVzkTool {
namespace {

void ReadPayload(const CmGenericByteData& record, SmRecordFacts& facts) {
  facts.payload = record.GetPayload();
  facts.payloadSize = record.GetPayloadLength();
}

void ReadStreamPacket(const CmGenericStreamDataPacket& packet, SmRecordFacts& facts) {
  facts.codec = packet.GetCodec();
  facts.hasSequenceNumber = true;
  facts.sequenceNumber = packet.GetSequenceNumber();
  ReadPayload(packet, facts);
}

// Times are read last: one beyond what a time stamp holds throws, and what was
// read before it stays.
void ReadTimes(const NmTimeStamp::CmTimeStamp& begin, const NmTimeStamp::CmTimeStamp& end,
               SmRecordFacts& facts) {
  facts.beginTime = begin.GetMilliseconds();
  facts.endTime = end.GetMilliseconds();
  facts.timed = true;
}

void ReadInstant(const NmTimeStamp::CmTimeStamp& time, SmRecordFacts& facts) {
  ReadTimes(time, time, facts);
}

void ReadVideoPacket(uint8_t* data, uint64_t size, SmRecordFacts& facts) {
  const CmGenericVideoStreamDataPacket packet(data, size);
  facts.hasSync = true;
  facts.sync = packet.GetSync();
  ReadStreamPacket(packet, facts);
  ReadInstant(packet.GetFrameTime(), facts);
}

const char* StatusName(uint32_t status) {
  switch (status) {
  case SmByteDataSequenceResult::SequenceContinuous:
    return "continuous";
  case SmByteDataSequenceResult::SequenceLegacy:
    return "stand-alone";
  case SmByteDataSequenceResult::SequenceTimeWarp:
    return "time warp";
  case SmByteDataSequenceResult::SequenceSyncLost:
    return "sync lost";
  case SmByteDataSequenceResult::SequenceGap:
    return "gap";
  default:
    return "not analysed";
  }
}

// One analyser for video and one for audio: each follows its own stream.
struct SmAnalysers {
  CmByteDataSequenceSpecificAnalyzer video;
  CmByteDataSequenceSpecificAnalyzer audio;

  std::string Analyse(uint8_t* data, uint64_t size, const SmRecordFacts& facts) {
    SmByteDataSequenceResult result;
    bool analysed = false;
    try {
      if (facts.type == SmByteDataType::RawJPEG) {
        return StatusName(SmByteDataSequenceResult::SequenceLegacy);
      }
      if (IsBlockHeaderType(static_cast<int32_t>(facts.type))) {
        analysed = video.AnalyzeBlock(CmGenericVideoByteDataBlock(data, size), result);
      } else if (facts.type == SmByteDataType::VideoStreamDataPacket) {
        analysed = video.AnalyzeVideo(CmGenericVideoStreamDataPacket(data, size), result);
      } else if (facts.type == SmByteDataType::AudioStreamDataPacket) {
        analysed = audio.AnalyzeAudio(CmGenericAudioStreamDataPacket(data, size), result);
      } else if (facts.type == SmByteDataType::MultiPacket) {
        const CmGenericByteDataMultiPacket multi(data, size);
        uint8_t* first = nullptr;
        uint64_t length = 0;
        if (multi.GetVideoPacket(first, length)) {
          analysed = video.AnalyzeVideo(CmGenericVideoStreamDataPacket(first, length), result);
        }
      }
    } catch (const NmError::CmError&) {
      analysed = false;
    }
    return analysed ? StatusName(result.m_Status) : "not analysed";
  }
};

std::string Plural(uint64_t count, const std::string& word) {
  return std::to_string(count) + " " + word + (count == 1 ? "" : "s");
}

std::string Seconds(int64_t milliseconds) {
  std::ostringstream text;
  text << std::fixed << std::setprecision(3) << static_cast<double>(milliseconds) / 1000.0 << " s";
  return text.str();
}

} // namespace

std::string VideoCodecName(uint32_t codec) {
  switch (codec) {
  case 1:
    return "JPEG";
  case 4:
  case 5:
  case 6:
  case 11:
    return "MPEG-4";
  case 7:
  case 9:
    return "H.263";
  case 8:
    return "JPEG 2000";
  case 10:
    return "H.264";
  case 128:
    return "MxPEG";
  case 0:
    return "unknown codec";
  default:
    return "unsupported codec " + std::to_string(codec);
  }
}

std::string AudioCodecName(uint32_t codec) {
  switch (codec) {
  case 1:
    return "PCM";
  case 2:
  case 3:
    return "G.711";
  case 4:
  case 7:
  case 9:
    return "G.726";
  case 16:
    return "MPEG-1 audio";
  case 17:
  case 18:
    return "AAC";
  case 0:
    return "unknown audio codec";
  default:
    return "audio codec " + std::to_string(codec);
  }
}

// The picture size that a sync frame of a stream codec tells (H.264: its
// sequence parameter set, after cropping), read by the codec's analyser
// without decoding. Codecs without an analyser leave the size unknown.
void ReadStreamPictureSize(SmRecordFacts& facts) {
  using namespace NmMediaProcessing;
  try {
    const std::unique_ptr<ImVideoFactory> factory = CmVideoFactory::CreateFromCodec(facts.codec);
    const std::unique_ptr<ImVideoAnalyzer> analyzer(factory ? factory->CreateAnalyzer() : nullptr);
    SmVideoSize size;
    if (analyzer && analyzer->Analyze(facts.payload, facts.payloadSize, size) &&
        size.first <= UINT32_MAX && size.second <= UINT32_MAX) {
      facts.width = static_cast<uint32_t>(size.first);
      facts.height = static_cast<uint32_t>(size.second);
    }
  } catch (const NmError::CmError&) {
    // No analyser for this codec, or data it refuses: the size stays unknown.
  }
}

bool ReadJPEGSize(const uint8_t* data, uint64_t size, uint32_t& width, uint32_t& height) {
  if (data == nullptr || size < 4 || data[0] != 0xFF || data[1] != 0xD8) {
    return false;
  }
  uint64_t at = 2;
  while (at + 4 <= size) {
    if (data[at] != 0xFF) {
      return false;
    }
    const uint8_t marker = data[at + 1];
    if (marker == 0xFF) {
      ++at;
      continue;
    }
    if (marker == 0xD8 || marker == 0x01 || (marker >= 0xD0 && marker <= 0xD7)) {
      at += 2;
      continue;
    }
    if (marker == 0xD9 || marker == 0xDA) {
      return false; // no frame header before the scan
    }
    const uint64_t length = NmBigEndian::Load16(data + at + 2);
    const bool frameHeader =
        marker >= 0xC0 && marker <= 0xCF && marker != 0xC4 && marker != 0xC8 && marker != 0xCC;
    if (frameHeader) {
      if (length < 8 || at + 9 > size) {
        return false;
      }
      height = NmBigEndian::Load16(data + at + 5);
      width = NmBigEndian::Load16(data + at + 7);
      return width != 0 && height != 0;
    }
    if (length < 2) {
      return false;
    }
    at += 2 + length;
  }
  return false;
}

std::string FormatUtc(int64_t milliseconds) {
  int64_t seconds = milliseconds / 1000;
  int64_t rest = milliseconds % 1000;
  if (rest < 0) {
    rest += 1000;
    --seconds;
  }
  const time_t time = static_cast<time_t>(seconds);
  std::tm parts{};
  if (gmtime_r(&time, &parts) == nullptr) {
    return std::to_string(milliseconds) + " ms";
  }
  char text[64];
  std::snprintf(text, sizeof text, "%04d-%02d-%02d %02d:%02d:%02d.%03d UTC", parts.tm_year + 1900,
                parts.tm_mon + 1, parts.tm_mday, parts.tm_hour, parts.tm_min, parts.tm_sec,
                static_cast<int>(rest));
  return text;
}

SmRecordFacts ReadRecordFacts(const uint8_t* constData, uint64_t size) {
  SmRecordFacts facts;
  if (constData == nullptr || size < 2) {
    return facts;
  }
  // The record classes are views that could also write; nothing here does.
  auto* data = const_cast<uint8_t*>(constData);
  facts.type = NmBigEndian::Load16(data);
  // A raw JPEG has no length of its own: whatever holds it says how long it
  // is, and its start-of-image marker is all that makes it one.
  const bool rawJPEG = facts.type == SmByteDataType::RawJPEG && size >= 6;
  const uint64_t length = rawJPEG ? size : NmRecording::RecordLength(data, size);
  if (length != size) {
    facts.kind = length == 0 ? "no record" : "record with trailing bytes";
    return facts;
  }
  facts.isRecord = true;
  try {
    if (facts.type == SmByteDataType::RawJPEG) {
      facts.kind = "raw JPEG";
      facts.isVideo = true;
      facts.codec = 1;
      facts.hasSync = facts.sync = true;
      facts.jpeg = facts.payload = data;
      facts.jpegSize = facts.payloadSize = size;
      facts.imageCount = 1;
    } else if (IsBlockHeaderType(static_cast<int32_t>(facts.type))) {
      const CmGenericVideoByteDataBlock block(data, size);
      const CmRawVideoByteDataAccess access(block, true);
      facts.kind = "block";
      facts.isVideo = true;
      facts.codec = access.GetCodec();
      facts.width = block.GetImageWidth();
      facts.height = block.GetImageHeight();
      facts.imageCount = block.GetImageCount();
      facts.hasSync = true;
      facts.sync = access.GetSync();
      ReadPayload(block, facts);
      ReadTimes(block.GetBeginTime(), block.GetEndTime(), facts);
    } else if (facts.type == SmByteDataType::VideoStreamDataPacket) {
      facts.kind = "video packet";
      facts.isVideo = true;
      ReadVideoPacket(data, size, facts);
    } else if (facts.type == SmByteDataType::AudioStreamDataPacket) {
      const CmGenericAudioStreamDataPacket packet(data, size);
      facts.kind = "audio packet";
      facts.isAudio = true;
      facts.channels = packet.GetChannelCount();
      facts.samplingFrequency = packet.GetSamplingFrequency();
      facts.bitsPerSample = packet.GetBitsPerSample();
      facts.sampleCount = packet.GetSampleCount();
      ReadStreamPacket(packet, facts);
      ReadInstant(packet.GetTime(), facts);
    } else if (facts.type == SmByteDataType::MultiPacket) {
      const CmGenericByteDataMultiPacket multi(data, size);
      facts.kind = "multi packet";
      facts.packetCount = multi.GetPacketCount();
      uint8_t* first = nullptr;
      uint64_t firstLength = 0;
      if (multi.GetVideoPacket(first, firstLength)) {
        facts.isVideo = true;
        ReadVideoPacket(first, firstLength, facts);
        facts.jpeg = nullptr;
        facts.payload = nullptr;
        facts.payloadSize = 0;
      }
    } else {
      facts.kind = "packet of type " + std::to_string(facts.type);
    }
  } catch (const NmError::CmError&) {
    // A time beyond what a time stamp holds: the record stays, untimed.
    facts.timed = false;
  }
  if (facts.isAudio) {
    facts.codecName = AudioCodecName(facts.codec);
  } else if (facts.isVideo) {
    facts.codecName = VideoCodecName(facts.codec);
  }
  if (facts.isVideo && facts.codec == 1 && facts.payload != nullptr &&
      (facts.type != SmByteDataType::MultiPacket) && facts.imageCount <= 1) {
    facts.jpeg = facts.payload;
    facts.jpegSize = facts.payloadSize;
  }
  if (facts.jpeg != nullptr && facts.width == 0) {
    ReadJPEGSize(facts.jpeg, facts.jpegSize, facts.width, facts.height);
  } else if (facts.isVideo && facts.sync && facts.codec != 1 && facts.payload != nullptr &&
             facts.width == 0) {
    ReadStreamPictureSize(facts);
  }
  return facts;
}

namespace {

// The file behind a recording must be a regular file that can be read.
uint64_t CheckRecordingFile(const std::string& path) {
  struct stat status {};
  if (stat(path.c_str(), &status) != 0) {
    throw CmRunError("The recording " + path + " cannot be read: " + std::strerror(errno) + ".");
  }
  if (S_ISDIR(status.st_mode)) {
    throw CmRunError("The recording " + path + " is a directory, not a file.");
  }
  if (!S_ISREG(status.st_mode)) {
    throw CmRunError("The recording " + path + " is not a regular file.");
  }
  return static_cast<uint64_t>(status.st_size);
}

// Records that the index found continuous, numbered from 1.
struct SmSequence {
  uint64_t firstRecord, lastRecord;
  bool timed;
  int64_t begin, end;
  std::string start;
};

// What the summary counts, one record at a time.
struct SmRecordingTally {
  std::map<std::string, uint64_t> kinds;
  std::map<std::string, uint64_t> codecs;
  std::map<std::string, uint64_t> sizes;
  std::map<std::string, uint64_t> audioForms;
  std::map<std::string, uint64_t> analysis;
  uint64_t records = 0, videoRecords = 0, syncRecords = 0, totalBytes = 0;
  uint64_t smallest = UINT64_MAX, largest = 0;
  // Blocks: the images they hold, and the fewest and most in one.
  uint64_t blocks = 0, blockImages = 0, fewestImages = UINT64_MAX, mostImages = 0;
  bool anyTime = false, untimedJPEG = false;
  int64_t first = 0, last = 0;
  std::vector<SmSequence> sequences;

  void Add(const NmRecording::SmRecordEntry& entry, bool startsSequence, const SmRecordFacts& facts,
           const std::string& verdict);
};

void SmRecordingTally::Add(const NmRecording::SmRecordEntry& entry, bool startsSequence,
                           const SmRecordFacts& facts, const std::string& verdict) {
  const uint64_t number = ++records;
  ++kinds[facts.kind];
  ++analysis[verdict];
  if (!facts.codecName.empty()) {
    ++codecs[facts.codecName];
  }
  if (facts.width != 0) {
    ++sizes[std::to_string(facts.width) + "x" + std::to_string(facts.height)];
  }
  if (facts.isAudio) {
    ++audioForms[facts.codecName + ", " + std::to_string(facts.samplingFrequency) + " Hz, " +
                 Plural(facts.channels, "channel") + ", " + std::to_string(facts.bitsPerSample) +
                 " bits"];
  }
  if (facts.kind == "block") {
    ++blocks;
    blockImages += facts.imageCount;
    fewestImages = std::min(fewestImages, facts.imageCount);
    mostImages = std::max(mostImages, facts.imageCount);
  }
  if (facts.isVideo) {
    ++videoRecords;
    syncRecords += facts.sync ? 1 : 0;
  }
  totalBytes += entry.length;
  smallest = std::min<uint64_t>(smallest, entry.length);
  largest = std::max<uint64_t>(largest, entry.length);
  if (facts.timed) {
    first = anyTime ? std::min(first, facts.beginTime) : facts.beginTime;
    last = anyTime ? std::max(last, facts.endTime) : facts.endTime;
    anyTime = true;
  } else if (facts.type == SmByteDataType::RawJPEG) {
    untimedJPEG = true;
  }
  const bool timed = entry.type != SmByteDataType::RawJPEG;
  if (startsSequence) {
    sequences.push_back({number, number, timed, entry.beginTime, entry.endTime,
                         number == 1 ? "start of the recording" : verdict});
  }
  SmSequence& current = sequences.back();
  current.lastRecord = number;
  current.end = std::max(current.end, entry.endTime);
  current.timed = current.timed && timed;
}

void PrintRecordHeader(std::ostream& out) {
  out << "  record      offset     bytes  kind          codec         time                       "
         " "
         "sync  number  picture    analysis\n";
}

void PrintRecordLine(std::ostream& out, uint64_t number, const NmRecording::SmRecordEntry& entry,
                     const SmRecordFacts& facts, const std::string& verdict) {
  char line[320];
  const std::string time = facts.timed ? FormatUtc(facts.beginTime) : "untimed";
  const std::string sequenceNumber =
      facts.hasSequenceNumber ? std::to_string(facts.sequenceNumber) : "-";
  std::string picture =
      facts.width != 0 ? std::to_string(facts.width) + "x" + std::to_string(facts.height) : "-";
  if (facts.kind == "block") {
    picture += " x" + std::to_string(facts.imageCount);
  }
  std::snprintf(
      line, sizeof line, "  %6llu %11llu %9llu  %-13s %-13s %-27s %-5s %-7s %-10s %s\n",
      static_cast<unsigned long long>(number), static_cast<unsigned long long>(entry.offset),
      static_cast<unsigned long long>(entry.length), facts.kind.c_str(), facts.codecName.c_str(),
      time.c_str(), facts.hasSync ? (facts.sync ? "yes" : "no") : "-", sequenceNumber.c_str(),
      picture.c_str(), verdict.c_str());
  out << line;
}

// "2 blocks, 1 raw JPEG": counts in the order of their names.
std::string CountList(const std::map<std::string, uint64_t>& counts, bool plural = false) {
  std::string text;
  for (const auto& [name, count] : counts) {
    text += (text.empty() ? "" : ", ") + std::to_string(count) + " " + name +
            (plural && count != 1 ? "s" : "");
  }
  return text;
}

void PrintSummary(std::ostream& out, const SmRecordingTally& tally) {
  out << "  kinds:      " << CountList(tally.kinds, true) << "\n";
  if (!tally.codecs.empty()) {
    out << "  codecs:     " << CountList(tally.codecs) << "\n";
  }
  if (!tally.sizes.empty()) {
    out << "  pictures:   " << CountList(tally.sizes) << "\n";
  }
  for (const auto& [form, count] : tally.audioForms) {
    out << "  audio:      " << form << " (" << Plural(count, "packet") << ")\n";
  }
  if (tally.anyTime) {
    out << "  time:       " << FormatUtc(tally.first) << " .. " << FormatUtc(tally.last) << " ("
        << Seconds(tally.last - tally.first) << ")\n";
  }
  if (tally.untimedJPEG) {
    out << "  untimed:    raw JPEG records carry no time; playback numbers them 40 ms apart "
           "from the time the file was last written\n";
  }
  if (tally.blocks != 0) {
    out << "  blocks:     " << Plural(tally.blocks, "block") << " hold "
        << Plural(tally.blockImages, "image") << ", " << tally.fewestImages;
    if (tally.mostImages != tally.fewestImages) {
      out << " to " << tally.mostImages;
    }
    out << " a block\n";
  }
  if (tally.videoRecords != 0) {
    out << "  sync:       " << tally.syncRecords << " of "
        << Plural(tally.videoRecords, "video record") << " decode alone\n";
  }
  out << "  sizes:      smallest " << tally.smallest << ", largest " << tally.largest << ", mean "
      << tally.totalBytes / tally.records << " bytes a record\n";
  out << "  analysis:   " << CountList(tally.analysis) << "\n";
  out << "  sequences:  " << tally.sequences.size() << "\n";
  for (size_t s = 0; s < tally.sequences.size(); ++s) {
    const SmSequence& sequence = tally.sequences[s];
    out << "    " << s + 1 << ": records " << sequence.firstRecord << "-" << sequence.lastRecord
        << " (" << sequence.lastRecord - sequence.firstRecord + 1 << "), ";
    if (sequence.timed) {
      out << FormatUtc(sequence.begin) << " .. " << FormatUtc(sequence.end) << ", ";
    }
    out << "starts with " << sequence.start << "\n";
  }
}

// Ranges passed over, then what follows the last whole record.
void PrintDamage(std::ostream& out, const NmRecording::CmRecordingIndex& index) {
  std::vector<NmRecording::SmByteRange> damaged = index.GetDamagedRanges(true);
  std::optional<NmRecording::SmByteRange> tail;
  if (!damaged.empty() && damaged.back().offset + damaged.back().length == index.GetFileSize()) {
    tail = damaged.back();
    damaged.pop_back();
  }
  constexpr size_t ListedRanges = 20;
  for (size_t i = 0; i < damaged.size() && i < ListedRanges; ++i) {
    out << "  damaged:    " << Plural(damaged[i].length, "byte") << " at offset "
        << damaged[i].offset << " hold no valid record and were skipped\n";
  }
  if (damaged.size() > ListedRanges) {
    uint64_t rest = 0;
    for (size_t i = ListedRanges; i < damaged.size(); ++i) {
      rest += damaged[i].length;
    }
    out << "  damaged:    " << Plural(rest, "more byte") << " in "
        << Plural(damaged.size() - ListedRanges, "more place") << " were skipped\n";
  }
  if (tail) {
    out << "  damaged:    the last " << Plural(tail->length, "byte")
        << " form no whole record (a damaged or half-written record)\n";
  }
}

} // namespace

void PrintRecordingInfo(const SmInfoOptions& options, std::ostream& out) {
  const std::string& path = options.recording;
  const uint64_t fileSize = CheckRecordingFile(path);
  NmRecording::CmRecordingIndex index(path);
  if (!index.Update()) {
    throw CmRunError("The recording " + path + " cannot be read: " + std::strerror(errno) + ".");
  }
  const auto& entries = index.GetEntries();
  if (options.perRecord && !entries.empty()) {
    PrintRecordHeader(out);
  }
  SmRecordingTally tally;
  SmAnalysers analysers;
  std::vector<uint8_t> bytes;
  for (size_t i = 0; i < entries.size(); ++i) {
    const NmRecording::SmRecordEntry& entry = entries[i];
    // One record at a time: a recording of any length fits in memory.
    bytes = index.ReadRecord(entry);
    if (bytes.size() != entry.length) {
      throw CmRunError("The recording " + path + " changed while it was read.");
    }
    const SmRecordFacts facts = ReadRecordFacts(bytes.data(), bytes.size());
    const std::string verdict = analysers.Analyse(bytes.data(), bytes.size(), facts);
    tally.Add(entry, i == 0 || entry.sequence != entries[i - 1].sequence, facts, verdict);
    if (options.perRecord) {
      PrintRecordLine(out, i + 1, entry, facts, verdict);
    }
  }
  out << path << ": " << Plural(entries.size(), "record") << ", " << fileSize << " bytes\n";
  if (tally.records != 0) {
    PrintSummary(out, tally);
  }
  PrintDamage(out, index);
}

} // namespace NmVzkTool
