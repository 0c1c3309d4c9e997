#include "MediaProcessing/GenericByteData/GenericAudioStreamDataPacket.h"

#include "MediaProcessing/GenericByteData/VideoCodec.h"

namespace NmMediaProcessing {

using NmTimeStamp::CmTimeStamp;

namespace {
constexpr uint64_t TimeOffset = 12;
constexpr SmHeaderField SampleCountField{20, 4};
constexpr SmHeaderField ChannelCountField{24, 1};
constexpr SmHeaderField BitsPerSampleField{25, 1};
constexpr SmHeaderField SamplingFrequencyField{26, 4};
constexpr SmHeaderField CodecOptionField{30, 2};

bool FitsByte(uint32_t value) {
  return value >= 1 && value <= 255;
}
} // namespace

bool CmGenericAudioStreamDataPacket::IsKnownCodec(uint32_t codec) const {
  return IsKnownAudioCodecValue(codec);
}

CmTimeStamp CmGenericAudioStreamDataPacket::GetTime() const {
  return GetTimeField(TimeOffset);
}

bool CmGenericAudioStreamDataPacket::SetTime(const CmTimeStamp& time) {
  return SetTimeField(TimeOffset, time);
}

uint32_t CmGenericAudioStreamDataPacket::GetSampleCount() const {
  return GetField(SampleCountField);
}

bool CmGenericAudioStreamDataPacket::SetSampleCount(uint32_t sampleCount) {
  return SetField(SampleCountField, sampleCount, sampleCount >= 2);
}

uint32_t CmGenericAudioStreamDataPacket::GetChannelCount() const {
  return GetField(ChannelCountField);
}

bool CmGenericAudioStreamDataPacket::SetChannelCount(uint32_t channelCount) {
  return SetField(ChannelCountField, channelCount, FitsByte(channelCount));
}

uint32_t CmGenericAudioStreamDataPacket::GetBitsPerSample() const {
  return GetField(BitsPerSampleField);
}

bool CmGenericAudioStreamDataPacket::SetBitsPerSample(uint32_t bitsPerSample) {
  return SetField(BitsPerSampleField, bitsPerSample, FitsByte(bitsPerSample));
}

uint32_t CmGenericAudioStreamDataPacket::GetSamplingFrequency() const {
  return GetField(SamplingFrequencyField);
}

bool CmGenericAudioStreamDataPacket::SetSamplingFrequency(uint32_t frequency) {
  return SetField(SamplingFrequencyField, frequency, frequency >= 2);
}

uint32_t CmGenericAudioStreamDataPacket::GetCodecOption() const {
  return GetField(CodecOptionField);
}

bool CmGenericAudioStreamDataPacket::SetCodecOption(uint32_t option) {
  return SetField(CodecOptionField, option, option <= 0xFFFF);
}

} // namespace NmMediaProcessing
