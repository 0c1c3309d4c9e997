#include "support/GenericByteDataBuilder.h"

namespace NmTestSupport {

void PutU8(CmBytes& bytes, size_t offset, uint8_t value) {
  if (bytes.size() < offset + 1) {
    bytes.resize(offset + 1);
  }
  bytes[offset] = value;
}

void PutU16(CmBytes& bytes, size_t offset, uint16_t value) {
  PutU8(bytes, offset, static_cast<uint8_t>(value >> 8));
  PutU8(bytes, offset + 1, static_cast<uint8_t>(value));
}

void PutU32(CmBytes& bytes, size_t offset, uint32_t value) {
  PutU16(bytes, offset, static_cast<uint16_t>(value >> 16));
  PutU16(bytes, offset + 2, static_cast<uint16_t>(value));
}

void PutU64(CmBytes& bytes, size_t offset, uint64_t value) {
  PutU32(bytes, offset, static_cast<uint32_t>(value >> 32));
  PutU32(bytes, offset + 4, static_cast<uint32_t>(value));
}

CmBytes Pattern(size_t size, uint8_t seed) {
  CmBytes bytes(size);
  for (size_t i = 0; i < size; ++i) {
    bytes[i] = static_cast<uint8_t>(seed + i * 7);
  }
  return bytes;
}

uint32_t SmImageForm::Bits() const {
  return uint32_t{interlaced} << 4 | uint32_t{topFieldFirst} << 5 | (layout & 3u) << 6 |
         uint32_t{flippedVertically} << 8 | uint32_t{flippedHorizontally} << 9 |
         uint32_t{rotatedQuarterTurn} << 10;
}

CmBytes BuildBlock(const SmBlockFields& f) {
  CmBytes bytes(36, 0);
  PutU16(bytes, 0, f.type);
  PutU16(bytes, 2, f.extensionLength.value_or(static_cast<uint16_t>(f.extension.size())));
  PutU32(bytes, 4, f.imageForm.Bits() | (f.lastImageAtEndTime ? 2u : 0u) | f.extraFlags);
  PutU32(bytes, 8, f.payloadLength.value_or(static_cast<uint32_t>(f.payload.size())));
  PutU64(bytes, 12, f.beginTime);
  PutU64(bytes, 20, f.endTime);
  PutU16(bytes, 28, f.width);
  PutU16(bytes, 30, f.height);
  PutU16(bytes, 32, f.componentCount);
  PutU16(bytes, 34, f.imageCount);
  bytes.insert(bytes.end(), f.extension.begin(), f.extension.end());
  bytes.insert(bytes.end(), f.payload.begin(), f.payload.end());
  return bytes;
}

CmBytes BuildVideoPacket(const SmVideoPacketFields& f) {
  CmBytes bytes(32, 0);
  PutU16(bytes, 0, f.type);
  PutU32(bytes, 2, f.totalLength.value_or(static_cast<uint32_t>(32 + f.payload.size())));
  PutU16(bytes, 6, f.codec);
  PutU16(bytes, 8, f.sequenceNumber);
  PutU16(bytes, 10, static_cast<uint16_t>(f.imageForm.Bits() | (f.sync ? 1u : 0u)));
  PutU64(bytes, 12, f.syncTime);
  PutU64(bytes, 20, f.frameTime);
  bytes.insert(bytes.end(), f.payload.begin(), f.payload.end());
  return bytes;
}

CmBytes BuildAudioPacket(const SmAudioPacketFields& f) {
  CmBytes bytes(42, 0);
  PutU16(bytes, 0, f.type);
  PutU32(bytes, 2, f.totalLength.value_or(static_cast<uint32_t>(42 + f.payload.size())));
  PutU16(bytes, 6, f.codec);
  PutU16(bytes, 8, f.sequenceNumber);
  PutU64(bytes, 12, f.time);
  PutU32(bytes, 20, f.sampleCount);
  PutU8(bytes, 24, f.channelCount);
  PutU8(bytes, 25, f.bitsPerSample);
  PutU32(bytes, 26, f.samplingFrequency);
  PutU16(bytes, 30, f.codecOption);
  bytes.insert(bytes.end(), f.payload.begin(), f.payload.end());
  return bytes;
}

CmBytes BuildMultiPacket(const SmMultiPacketFields& f) {
  CmBytes bytes(16, 0);
  for (const CmBytes& packet : f.packets) {
    bytes.insert(bytes.end(), packet.begin(), packet.end());
  }
  PutU16(bytes, 0, 65264);
  PutU32(bytes, 2, f.totalLength.value_or(static_cast<uint32_t>(bytes.size())));
  PutU16(bytes, 6, f.packetCount.value_or(static_cast<uint16_t>(f.packets.size())));
  return bytes;
}

CmBytes BuildRawJPEG(size_t size) {
  CmBytes bytes = Pattern(size, 0x40);
  if (size >= 2) {
    bytes[0] = 0xFF;
    bytes[1] = 0xD8;
  }
  if (size >= 4) {
    bytes[size - 2] = 0xFF;
    bytes[size - 1] = 0xD9;
  }
  return bytes;
}

} // namespace NmTestSupport
