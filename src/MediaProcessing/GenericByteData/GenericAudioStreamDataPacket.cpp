#include "MediaProcessing/GenericByteData/GenericAudioStreamDataPacket.h"

#include "MediaProcessing/GenericByteData/VideoCodec.h"

namespace NmMediaProcessing {

using CmScopedLock = NmThread::CmCriticalSection::CmScopedLock;
using NmTimeStamp::CmTimeStamp;

namespace {
constexpr uint64_t CodecOffset = 6;
constexpr uint64_t SequenceNumberOffset = 8;
constexpr uint64_t TimeOffset = 12;
constexpr uint64_t SampleCountOffset = 20;
constexpr uint64_t ChannelCountOffset = 24;
constexpr uint64_t BitsPerSampleOffset = 25;
constexpr uint64_t SamplingFrequencyOffset = 26;
constexpr uint64_t CodecOptionOffset = 30;
} // namespace

bool CmGenericAudioStreamDataPacket::IsValidType(int32_t type) const {
  return type == SmByteDataType::AudioStreamDataPacket;
}

uint64_t CmGenericAudioStreamDataPacket::GetHeaderLength(int32_t type) const {
  return IsValidType(type) ? HeaderLength : CmGenericByteDataSinglePacket::GetHeaderLength(type);
}

uint32_t CmGenericAudioStreamDataPacket::GetCodec() const {
  CmScopedLock lock(m_Lock);
  if (!CanAccessFields()) {
    return 0;
  }
  const uint32_t codec = ReadU16(CodecOffset);
  return IsKnownAudioCodecValue(codec) ? codec : 0;
}

bool CmGenericAudioStreamDataPacket::SetCodec(uint32_t codec) {
  CmScopedLock lock(m_Lock);
  if (!CanAccessFields() || !IsKnownAudioCodecValue(codec)) {
    return false;
  }
  WriteU16(CodecOffset, static_cast<uint16_t>(codec));
  return true;
}

uint16_t CmGenericAudioStreamDataPacket::GetSequenceNumber() const {
  CmScopedLock lock(m_Lock);
  return CanAccessFields() ? ReadSequenceNumber() : 0;
}

bool CmGenericAudioStreamDataPacket::SetSequenceNumber(uint16_t sequenceNumber) {
  CmScopedLock lock(m_Lock);
  if (!CanAccessFields()) {
    return false;
  }
  WriteU16(SequenceNumberOffset, sequenceNumber);
  return true;
}

uint16_t CmGenericAudioStreamDataPacket::GetPreviousSequenceNumber() const {
  CmScopedLock lock(m_Lock);
  return CanAccessFields() ? static_cast<uint16_t>(ReadSequenceNumber() - 1) : 0;
}

CmTimeStamp CmGenericAudioStreamDataPacket::GetTime() const {
  CmScopedLock lock(m_Lock);
  return CanAccessFields() ? ReadTime(TimeOffset) : CmTimeStamp();
}

bool CmGenericAudioStreamDataPacket::SetTime(const CmTimeStamp& time) {
  CmScopedLock lock(m_Lock);
  if (!CanAccessFields()) {
    return false;
  }
  WriteTime(TimeOffset, time);
  return true;
}

uint32_t CmGenericAudioStreamDataPacket::GetSampleCount() const {
  CmScopedLock lock(m_Lock);
  return CanAccessFields() ? ReadU32(SampleCountOffset) : 0;
}

bool CmGenericAudioStreamDataPacket::SetSampleCount(uint32_t sampleCount) {
  CmScopedLock lock(m_Lock);
  if (!CanAccessFields() || sampleCount < 2) {
    return false;
  }
  WriteU32(SampleCountOffset, sampleCount);
  return true;
}

uint32_t CmGenericAudioStreamDataPacket::GetChannelCount() const {
  CmScopedLock lock(m_Lock);
  return CanAccessFields() ? ReadU8(ChannelCountOffset) : 0;
}

bool CmGenericAudioStreamDataPacket::SetChannelCount(uint32_t channelCount) {
  CmScopedLock lock(m_Lock);
  if (!CanAccessFields() || channelCount < 1 || channelCount > 255) {
    return false;
  }
  WriteU8(ChannelCountOffset, static_cast<uint8_t>(channelCount));
  return true;
}

uint32_t CmGenericAudioStreamDataPacket::GetBitsPerSample() const {
  CmScopedLock lock(m_Lock);
  return CanAccessFields() ? ReadU8(BitsPerSampleOffset) : 0;
}

bool CmGenericAudioStreamDataPacket::SetBitsPerSample(uint32_t bitsPerSample) {
  CmScopedLock lock(m_Lock);
  if (!CanAccessFields() || bitsPerSample < 1 || bitsPerSample > 255) {
    return false;
  }
  WriteU8(BitsPerSampleOffset, static_cast<uint8_t>(bitsPerSample));
  return true;
}

uint32_t CmGenericAudioStreamDataPacket::GetSamplingFrequency() const {
  CmScopedLock lock(m_Lock);
  return CanAccessFields() ? ReadU32(SamplingFrequencyOffset) : 0;
}

bool CmGenericAudioStreamDataPacket::SetSamplingFrequency(uint32_t frequency) {
  CmScopedLock lock(m_Lock);
  if (!CanAccessFields() || frequency < 2) {
    return false;
  }
  WriteU32(SamplingFrequencyOffset, frequency);
  return true;
}

uint32_t CmGenericAudioStreamDataPacket::GetCodecOption() const {
  CmScopedLock lock(m_Lock);
  return CanAccessFields() ? ReadU16(CodecOptionOffset) : 0;
}

bool CmGenericAudioStreamDataPacket::SetCodecOption(uint32_t option) {
  CmScopedLock lock(m_Lock);
  if (!CanAccessFields() || option > 0xFFFF) {
    return false;
  }
  WriteU16(CodecOptionOffset, static_cast<uint16_t>(option));
  return true;
}

} // namespace NmMediaProcessing
