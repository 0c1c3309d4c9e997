#pragma once

#include <cstdint>
#include <ostream>
#include <string>

#include "CommandLine.h"

namespace NmVzkTool {

// What one generic byte data record says about itself. Every field is read
// defensively: bytes that are no record give isRecord false and nothing else.
struct SmRecordFacts {
  bool isRecord = false;
  bool isVideo = false;
  bool isAudio = false;
  std::string kind = "no record";
  uint32_t type = 0;
  uint32_t codec = 0;
  std::string codecName;
  bool timed = false;
  int64_t beginTime = 0;
  int64_t endTime = 0;
  bool hasSync = false;
  bool sync = false;
  bool hasSequenceNumber = false;
  uint16_t sequenceNumber = 0;
  uint32_t width = 0;
  uint32_t height = 0;
  uint64_t imageCount = 0;
  uint64_t packetCount = 0;
  // Audio packets.
  uint32_t channels = 0;
  uint32_t samplingFrequency = 0;
  uint32_t bitsPerSample = 0;
  uint32_t sampleCount = 0;
  const uint8_t* payload = nullptr;
  uint64_t payloadSize = 0;
  // The JPEG that the record carries, when it carries exactly one.
  const uint8_t* jpeg = nullptr;
  uint64_t jpegSize = 0;
};

SmRecordFacts ReadRecordFacts(const uint8_t* data, uint64_t size);

std::string VideoCodecName(uint32_t codec);
std::string AudioCodecName(uint32_t codec);

// The pixel size from a JPEG's frame header; false if there is none.
bool ReadJPEGSize(const uint8_t* data, uint64_t size, uint32_t& width, uint32_t& height);

// Milliseconds since 1970 as "YYYY-MM-DD hh:mm:ss.mmm UTC".
std::string FormatUtc(int64_t milliseconds);

// Prints the summary (and with perRecord one line a record) of a recording.
// Throws CmRunError when the file cannot be read.
void PrintRecordingInfo(const SmInfoOptions& options, std::ostream& out);

} // namespace NmVzkTool
