#pragma once

#include "MediaProcessing/GenericByteData/GenericByteDataSinglePacket.h"

namespace NmMediaProcessing {

// One piece of encoded audio behind a 42-byte header.
class CmGenericAudioStreamDataPacket : public CmGenericStreamDataPacket {
public:
  static constexpr uint64_t HeaderLength = 42;

  CmGenericAudioStreamDataPacket() = default;
  explicit CmGenericAudioStreamDataPacket(bool freeOnDestruction)
      : CmGenericStreamDataPacket(freeOnDestruction) {}
  CmGenericAudioStreamDataPacket(uint8_t* buffer, uint64_t size) { Attach(buffer, size); }
  CmGenericAudioStreamDataPacket(const CmGenericAudioStreamDataPacket&) = default;
  CmGenericAudioStreamDataPacket& operator=(const CmGenericAudioStreamDataPacket&) = default;
  ~CmGenericAudioStreamDataPacket() override = default;

  int32_t GetDefaultType() const override { return SmByteDataType::AudioStreamDataPacket; }

  NmTimeStamp::CmTimeStamp GetTime() const;
  bool SetTime(const NmTimeStamp::CmTimeStamp& time);
  // Samples per channel; fewer than 2 is refused.
  uint32_t GetSampleCount() const;
  bool SetSampleCount(uint32_t sampleCount);
  uint32_t GetChannelCount() const;
  bool SetChannelCount(uint32_t channelCount);
  uint32_t GetBitsPerSample() const;
  bool SetBitsPerSample(uint32_t bitsPerSample);
  uint32_t GetSamplingFrequency() const;
  bool SetSamplingFrequency(uint32_t frequency);
  uint32_t GetCodecOption() const;
  bool SetCodecOption(uint32_t option);

protected:
  uint64_t GetFixedHeaderLength() const override { return HeaderLength; }
  bool IsKnownCodec(uint32_t codec) const override;
};

} // namespace NmMediaProcessing
