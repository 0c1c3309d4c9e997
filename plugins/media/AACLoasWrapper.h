#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace NmMedia {

// What the audio specific configuration of an AAC stream says.
struct SmAACConfig {
  uint32_t objectType = 0;
  uint32_t samplingFrequency = 0;
  uint32_t channelConfiguration = 0;
  // Spectral band replication signalled explicitly (HE-AAC).
  bool sbr = false;
  uint32_t extensionSamplingFrequency = 0;
};

// Parses the head of an AudioSpecificConfig (ISO/IEC 14496-3 1.6.2.1): object
// type, sampling frequency and channel configuration. False when it is cut
// short or names a reserved sampling frequency index.
bool ParseAudioSpecificConfig(const uint8_t* data, size_t size, SmAACConfig& config);

// Wraps AAC frames as LOAS frames (AudioSyncStream with an AudioMuxElement of
// one sub-frame, ISO/IEC 14496-3 1.7.2), the framing that the AAC decoder
// reads. Every frame repeats the stream mux configuration, so that decoding
// can start at any frame a host navigates to.
//
// Input is either raw frames with the configuration from the container (MP4,
// MKV), ADTS frames that carry their configuration in each header (raw .aac
// files, MPEG-TS), or frames that are LOAS already (LATM in MPEG-TS).
class CmAACLoasWrapper {
public:
  // The container's AudioSpecificConfig; empty when the frames are ADTS or
  // LOAS. False when a given configuration cannot be parsed.
  bool Configure(const uint8_t* data, size_t size);

  // One frame in, one LOAS frame out (replacing the contents of `out`). False
  // when the frame cannot be wrapped: a damaged ADTS header, ADTS with more
  // than one raw data block, no configuration at all, or a frame too large
  // for the 13-bit length of a LOAS frame.
  bool Wrap(const uint8_t* data, size_t size, std::vector<uint8_t>& out);

  // The configuration of the last frame wrapped, or the configured one.
  const SmAACConfig& GetConfig() const { return m_Config; }
  bool IsConfigured() const { return !m_SpecificConfig.empty(); }

  static constexpr size_t MaxLoasPayload = 8191;

private:
  bool WrapRaw(const uint8_t* data, size_t size, const std::vector<uint8_t>& specificConfig,
               std::vector<uint8_t>& out) const;

  std::vector<uint8_t> m_SpecificConfig;
  SmAACConfig m_Config;
};

// True when the bytes are exactly one LOAS frame: sync word and length.
bool IsLoasFrame(const uint8_t* data, size_t size);

} // namespace NmMedia
