#pragma once

#include <cstdint>
#include <optional>
#include <vector>

// Builds generic byte data records field by field, straight into bytes, with
// no use of the record classes: tests of those classes and of everything that
// reads records need an independent writer to compare with. Every length
// field defaults to the value that is consistent with the contents and can be
// overridden to build damaged records.
namespace NmTestSupport {

using CmBytes = std::vector<uint8_t>;

// Big-endian stores into a byte vector, which grows as needed.
void PutU8(CmBytes& bytes, size_t offset, uint8_t value);
void PutU16(CmBytes& bytes, size_t offset, uint16_t value);
void PutU32(CmBytes& bytes, size_t offset, uint32_t value);
void PutU64(CmBytes& bytes, size_t offset, uint64_t value);
// A filler payload whose bytes differ from each other.
CmBytes Pattern(size_t size, uint8_t seed = 1);

// The image form bits of both flag words.
struct SmImageForm {
  bool interlaced = false;
  bool topFieldFirst = false;
  uint32_t layout = 0;
  bool flippedVertically = false;
  bool flippedHorizontally = false;
  bool rotatedQuarterTurn = false;

  uint32_t Bits() const;
};

struct SmBlockFields {
  uint16_t type = 10;
  // Bytes between the 36-byte header and the payload; ExtensionLength is
  // their count unless overridden.
  CmBytes extension{};
  std::optional<uint16_t> extensionLength{};
  bool lastImageAtEndTime = true;
  SmImageForm imageForm{};
  uint32_t extraFlags = 0;
  std::optional<uint32_t> payloadLength{};
  uint64_t beginTime = 0;
  uint64_t endTime = 0;
  uint16_t width = 0;
  uint16_t height = 0;
  uint16_t componentCount = 3;
  uint16_t imageCount = 1;
  CmBytes payload = Pattern(16);
};
CmBytes BuildBlock(const SmBlockFields& fields);

struct SmVideoPacketFields {
  uint16_t type = 16;
  std::optional<uint32_t> totalLength{};
  uint16_t codec = 10;
  uint16_t sequenceNumber = 0;
  bool sync = true;
  SmImageForm imageForm{};
  uint64_t syncTime = 0;
  uint64_t frameTime = 0;
  CmBytes payload = Pattern(16);
};
CmBytes BuildVideoPacket(const SmVideoPacketFields& fields);

struct SmAudioPacketFields {
  uint16_t type = 32;
  std::optional<uint32_t> totalLength{};
  uint16_t codec = 2;
  uint16_t sequenceNumber = 0;
  uint64_t time = 0;
  uint32_t sampleCount = 160;
  uint8_t channelCount = 1;
  uint8_t bitsPerSample = 8;
  uint32_t samplingFrequency = 8000;
  uint16_t codecOption = 0;
  CmBytes payload = Pattern(16);
};
CmBytes BuildAudioPacket(const SmAudioPacketFields& fields);

struct SmMultiPacketFields {
  std::optional<uint32_t> totalLength{};
  std::optional<uint16_t> packetCount{};
  std::vector<CmBytes> packets{};
};
CmBytes BuildMultiPacket(const SmMultiPacketFields& fields);

// A minimal JPEG-looking byte run: start-of-image, filler, end-of-image.
CmBytes BuildRawJPEG(size_t size);

} // namespace NmTestSupport
