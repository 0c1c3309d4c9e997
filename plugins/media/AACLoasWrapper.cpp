#include "AACLoasWrapper.h"

#include <optional>

namespace NmMedia {
namespace {

constexpr uint32_t LoasSyncWord = 0x2B7;
constexpr uint32_t SamplingFrequencies[13] = {96000, 88200, 64000, 48000, 44100, 32000, 24000,
                                              22050, 16000, 12000, 11025, 8000,  7350};

class CmBitReader {
public:
  CmBitReader(const uint8_t* data, size_t size) : m_Data(data), m_Size(size) {}
  std::optional<uint32_t> Bits(unsigned count) {
    uint32_t value = 0;
    for (unsigned i = 0; i < count; ++i) {
      if (m_Position >= m_Size * 8) {
        return std::nullopt;
      }
      value = value << 1 | ((m_Data[m_Position / 8] >> (7 - m_Position % 8)) & 1);
      ++m_Position;
    }
    return value;
  }

private:
  const uint8_t* m_Data;
  size_t m_Size;
  size_t m_Position = 0;
};

class CmBitWriter {
public:
  explicit CmBitWriter(std::vector<uint8_t>& out) : m_Out(out) {}
  void Bits(uint32_t value, unsigned count) {
    for (unsigned i = count; i-- > 0;) {
      if (m_Position % 8 == 0) {
        m_Out.push_back(0);
      }
      m_Out.back() |= static_cast<uint8_t>(((value >> i) & 1) << (7 - m_Position % 8));
      ++m_Position;
    }
  }
  void Bytes(const uint8_t* data, size_t size) {
    if (m_Position % 8 == 0) {
      m_Out.insert(m_Out.end(), data, data + size);
      m_Position += size * 8;
      return;
    }
    for (size_t i = 0; i < size; ++i) {
      Bits(data[i], 8);
    }
  }
  // LatmGetValue's counterpart: the number of bytes less one, then the bytes.
  void LatmValue(uint32_t value) {
    unsigned bytes = 1;
    while (bytes < 4 && (value >> (8 * bytes)) != 0) {
      ++bytes;
    }
    Bits(bytes - 1, 2);
    Bits(value, 8 * bytes);
  }

private:
  std::vector<uint8_t>& m_Out;
  size_t m_Position = 0;
};

std::optional<uint32_t> ObjectType(CmBitReader& reader) {
  const auto type = reader.Bits(5);
  if (type && *type == 31) {
    const auto extended = reader.Bits(6);
    return extended ? std::optional<uint32_t>(32 + *extended) : std::nullopt;
  }
  return type;
}

std::optional<uint32_t> SamplingFrequency(CmBitReader& reader) {
  const auto index = reader.Bits(4);
  if (!index) {
    return std::nullopt;
  }
  if (*index == 15) {
    return reader.Bits(24);
  }
  return *index < 13 ? std::optional<uint32_t>(SamplingFrequencies[*index]) : std::nullopt;
}

// An ADTS header (ISO/IEC 13818-7 6.2) that spans exactly `size` bytes.
struct SmAdtsFrame {
  size_t headerLength = 0;
  uint32_t profile = 0;
  uint32_t frequencyIndex = 0;
  uint32_t channelConfiguration = 0;
  uint32_t rawBlocks = 0;
};

std::optional<SmAdtsFrame> ParseAdts(const uint8_t* data, size_t size) {
  if (size < 7 || data[0] != 0xFF || (data[1] & 0xF6) != 0xF0) {
    return std::nullopt;
  }
  SmAdtsFrame frame;
  frame.headerLength = (data[1] & 1) ? 7 : 9;
  frame.profile = data[2] >> 6;
  frame.frequencyIndex = (data[2] >> 2) & 0xF;
  frame.channelConfiguration = (data[2] & 1) << 2 | data[3] >> 6;
  const size_t frameLength = (data[3] & 3u) << 11 | data[4] << 3 | data[5] >> 5;
  frame.rawBlocks = data[6] & 3;
  if (frameLength != size || frameLength < frame.headerLength) {
    return std::nullopt;
  }
  return frame;
}

} // namespace

bool ParseAudioSpecificConfig(const uint8_t* data, size_t size, SmAACConfig& config) {
  CmBitReader reader(data, size);
  SmAACConfig parsed;
  const auto type = ObjectType(reader);
  const auto frequency = type ? SamplingFrequency(reader) : std::nullopt;
  const auto channels = frequency ? reader.Bits(4) : std::nullopt;
  if (!channels || *type == 0) {
    return false;
  }
  parsed.objectType = *type;
  parsed.samplingFrequency = *frequency;
  parsed.channelConfiguration = *channels;
  // HE-AAC (5) and HE-AAC v2 (29) name the core object type after the
  // extension's sampling frequency.
  if (*type == 5 || *type == 29) {
    const auto extension = SamplingFrequency(reader);
    const auto core = extension ? ObjectType(reader) : std::nullopt;
    if (!core) {
      return false;
    }
    parsed.sbr = true;
    parsed.extensionSamplingFrequency = *extension;
    parsed.objectType = *core;
  }
  config = parsed;
  return true;
}

bool IsLoasFrame(const uint8_t* data, size_t size) {
  return size >= 3 && (static_cast<uint32_t>(data[0]) << 3 | data[1] >> 5) == LoasSyncWord &&
         ((data[1] & 0x1Fu) << 8 | data[2]) + 3u == size;
}

bool CmAACLoasWrapper::Configure(const uint8_t* data, size_t size) {
  m_SpecificConfig.clear();
  m_Config = {};
  if (data == nullptr || size == 0) {
    return true;
  }
  SmAACConfig config;
  if (!ParseAudioSpecificConfig(data, size, config)) {
    return false;
  }
  m_SpecificConfig.assign(data, data + size);
  m_Config = config;
  return true;
}

bool CmAACLoasWrapper::Wrap(const uint8_t* data, size_t size, std::vector<uint8_t>& out) {
  out.clear();
  if (data == nullptr || size == 0) {
    return false;
  }
  if (IsLoasFrame(data, size)) {
    out.assign(data, data + size);
    return true;
  }
  if (const auto adts = ParseAdts(data, size)) {
    // More than one raw data block would need sub-frames, which the decoder
    // refuses; an index of 13 and above is reserved.
    if (adts->rawBlocks != 0 || adts->frequencyIndex >= 13 || adts->profile == 3) {
      return false;
    }
    // The two-byte AudioSpecificConfig that the header stands for.
    const uint32_t objectType = adts->profile + 1;
    const std::vector<uint8_t> specificConfig = {
        static_cast<uint8_t>(objectType << 3 | adts->frequencyIndex >> 1),
        static_cast<uint8_t>((adts->frequencyIndex & 1) << 7 | adts->channelConfiguration << 3)};
    if (adts->channelConfiguration == 0) {
      // The channels would come from a program configuration in the raw data.
      return false;
    }
    if (!WrapRaw(data + adts->headerLength, size - adts->headerLength, specificConfig, out)) {
      return false;
    }
    m_Config = {objectType, SamplingFrequencies[adts->frequencyIndex], adts->channelConfiguration,
                false, 0};
    return true;
  }
  return IsConfigured() && WrapRaw(data, size, m_SpecificConfig, out);
}

bool CmAACLoasWrapper::WrapRaw(const uint8_t* data, size_t size,
                               const std::vector<uint8_t>& specificConfig,
                               std::vector<uint8_t>& out) const {
  if (size == 0) {
    return false;
  }
  out.clear();
  CmBitWriter writer(out);
  writer.Bits(LoasSyncWord, 11);
  writer.Bits(0, 13); // audioMuxLengthBytes, filled in below
  writer.Bits(0, 1);  // useSameStreamMux: every frame carries the configuration
  // StreamMuxConfig, version 1: the configuration travels with its length, so
  // it is copied as the container gave it, whatever it holds.
  writer.Bits(1, 1);      // audioMuxVersion
  writer.Bits(0, 1);      // audioMuxVersionA
  writer.LatmValue(0xFF); // taraBufferFullness: not known
  writer.Bits(1, 1);      // allStreamsSameTimeFraming
  writer.Bits(0, 6);      // numSubFrames
  writer.Bits(0, 4);      // numProgram
  writer.Bits(0, 3);      // numLayer
  writer.LatmValue(static_cast<uint32_t>(specificConfig.size() * 8));
  writer.Bytes(specificConfig.data(), specificConfig.size());
  writer.Bits(0, 3);    // frameLengthType: payload lengths in bytes
  writer.Bits(0xFF, 8); // latmBufferFullness
  writer.Bits(0, 1);    // otherDataPresent
  writer.Bits(0, 1);    // crcCheckPresent
  // PayloadLengthInfo, then the payload.
  for (size_t rest = size;; rest -= 255) {
    if (rest < 255) {
      writer.Bits(static_cast<uint32_t>(rest), 8);
      break;
    }
    writer.Bits(255, 8);
  }
  writer.Bytes(data, size);
  const size_t length = out.size() - 3;
  if (length > MaxLoasPayload) {
    out.clear();
    return false;
  }
  out[1] = static_cast<uint8_t>((out[1] & 0xE0) | length >> 8);
  out[2] = static_cast<uint8_t>(length & 0xFF);
  return true;
}

} // namespace NmMedia
