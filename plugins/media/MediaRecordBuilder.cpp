#include "MediaRecordBuilder.h"

#include <algorithm>

#include "Common/TimeStamp/TimeStamp.h"
#include "JPEGTableCompleter.h"
#include "MediaProcessing/GenericByteData/AudioCodec.h"
#include "MediaProcessing/GenericByteData/GenericAudioStreamDataPacket.h"
#include "MediaProcessing/GenericByteData/GenericVideoStreamDataPacket.h"
#include "PictureCodingType.h"

namespace NmMedia {

using NmMediaProcessing::CmGenericAudioStreamDataPacket;
using NmMediaProcessing::CmGenericVideoStreamDataPacket;
using NmTimeStamp::CmTimeStamp;

namespace {

// MPEG-4 part 2 headers that make a frame decodable on its own: visual
// object sequence, visual object, video object and video object layer.
bool StartsWithMPEG4Configuration(const uint8_t* data, size_t size) {
  return size >= 4 && data[0] == 0 && data[1] == 0 && data[2] == 1 &&
         (data[3] == 0xB0 || data[3] == 0xB5 || data[3] <= 0x2F);
}

// Wire times are unsigned; a time before 1970 (say, priming samples ahead of
// a stream's start) is held at the epoch, and one beyond what a time stamp can hold at its end.
CmTimeStamp WireTime(int64_t milliseconds) {
  constexpr int64_t latest = static_cast<int64_t>(NmTimeStamp::MillisecondsLimit) -
                             NmTimeStamp::MillisecondsFrom1601To1970 - 1;
  return CmTimeStamp::FromMilliseconds(std::clamp<int64_t>(milliseconds, 0, latest));
}

// The record's bytes from a record object that owns them.
template <typename Record> void CopyOut(const Record& source, std::vector<uint8_t>& record) {
  record.assign(source.GetData(), source.GetData() + source.GetLength());
}

} // namespace

bool CmMediaRecordBuilder::Configure(const uint8_t* data, size_t size) {
  switch (m_Format.payload) {
  case SmMediaStreamFormat::H264:
    return m_H264.Configure(data, size);
  case SmMediaStreamFormat::AAC:
    return m_AAC.Configure(data, size);
  case SmMediaStreamFormat::MPEG4:
    if (data != nullptr && StartsWithMPEG4Configuration(data, size)) {
      m_Configuration.assign(data, data + size);
    }
    return true;
  default:
    return true;
  }
}

bool CmMediaRecordBuilder::ConvertPayload(const SmMediaPacket& packet, bool& sync) {
  const uint8_t* data = packet.data;
  const size_t size = packet.size;
  switch (m_Format.payload) {
  case SmMediaStreamFormat::H264: {
    bool idr = false;
    const bool converted = m_H264.Convert(data, size, packet.key, m_Payload, idr);
    // Containers also flag I pictures that are no IDR as key frames (open
    // GOPs, intra refresh), but only at an IDR, or a recovery point with
    // nothing to recover, may decoding start afresh: pictures after any
    // other may refer to pictures before it.
    sync = idr || m_H264.HadRecoveryPoint();
    return converted;
  }
  case SmMediaStreamFormat::AAC:
    return m_AAC.Wrap(data, size, m_Payload);
  case SmMediaStreamFormat::MPEG4:
    if (const auto intra = IsIntraMPEG4Picture(
            data, size, MPEG4TimeIncrementBits(m_Configuration.data(), m_Configuration.size()))) {
      sync = *intra;
    }
    m_Payload.clear();
    if (sync && !m_Configuration.empty() && !StartsWithMPEG4Configuration(data, size)) {
      m_Payload = m_Configuration;
    }
    m_Payload.insert(m_Payload.end(), data, data + size);
    return true;
  case SmMediaStreamFormat::JPEG:
    if (!CompleteJPEGHuffmanTables(data, size, m_Payload)) {
      m_Payload.assign(data, data + size);
    }
    return true;
  case SmMediaStreamFormat::H263:
    if (const auto intra = IsIntraH263Picture(data, size)) {
      sync = *intra;
    }
    m_Payload.assign(data, data + size);
    return true;
  case SmMediaStreamFormat::PCMSwap16:
  case SmMediaStreamFormat::PCMSwap24: {
    const size_t width = m_Format.payload == SmMediaStreamFormat::PCMSwap16 ? 2 : 3;
    m_Payload.assign(data, data + size - size % width);
    for (size_t at = 0; at + width <= m_Payload.size(); at += width) {
      std::reverse(m_Payload.begin() + static_cast<ptrdiff_t>(at),
                   m_Payload.begin() + static_cast<ptrdiff_t>(at + width));
    }
    return !m_Payload.empty();
  }
  case SmMediaStreamFormat::PCMSigned8:
    m_Payload.resize(size);
    std::transform(data, data + size, m_Payload.begin(),
                   [](uint8_t sample) { return static_cast<uint8_t>(sample ^ 0x80); });
    return true;
  case SmMediaStreamFormat::AsIs:
    m_Payload.assign(data, data + size);
    return true;
  }
  return false;
}

bool CmMediaRecordBuilder::Build(const SmMediaPacket& packet, std::vector<uint8_t>& record,
                                 SmRecordInfo& info) {
  record.clear();
  if (packet.data == nullptr || packet.size == 0) {
    return false;
  }
  bool sync = m_Format.kind == SmMediaStreamFormat::Video && (packet.key || m_Format.intraOnly);
  if (!ConvertPayload(packet, sync) || m_Payload.empty()) {
    return false;
  }
  const bool built = m_Format.kind == SmMediaStreamFormat::Video
                         ? BuildVideo(packet, sync, record, info)
                         : BuildAudio(packet, record, info);
  if (built) {
    ++m_NextSequenceNumber;
  }
  return built;
}

bool CmMediaRecordBuilder::BuildVideo(const SmMediaPacket& packet, bool sync,
                                      std::vector<uint8_t>& record, SmRecordInfo& info) {
  CmGenericVideoStreamDataPacket video(true);
  if (!video.Allocate(m_Payload.size()) ||
      !video.CopyPayloadFrom(m_Payload.data(), m_Payload.size())) {
    return false;
  }
  const int64_t time = WireTime(packet.time).GetMilliseconds();
  if (sync) {
    m_SyncTime = time;
  }
  video.SetCodec(m_Format.codec);
  video.SetSequenceNumber(m_NextSequenceNumber);
  video.SetSync(sync);
  // A frame of two field pictures tells its own order of fields.
  if (packet.fieldPair) {
    video.SetInterlacing(true, packet.topFieldFirst, 0);
  } else if (m_Format.interlaced) {
    video.SetInterlacing(true, m_Format.topFieldFirst, 0);
  }
  video.SetFrameTime(WireTime(time));
  video.SetSyncTime(WireTime(m_SyncTime));
  CopyOut(video, record);
  info = {time, m_NextSequenceNumber, sync};
  return true;
}

bool CmMediaRecordBuilder::BuildAudio(const SmMediaPacket& packet, std::vector<uint8_t>& record,
                                      SmRecordInfo& info) {
  CmGenericAudioStreamDataPacket audio(true);
  if (!audio.Allocate(m_Payload.size()) ||
      !audio.CopyPayloadFrom(m_Payload.data(), m_Payload.size())) {
    return false;
  }
  uint32_t samples = packet.samples;
  if (m_Format.bitsPerCodedSample != 0 && m_Format.channels != 0) {
    // The bytes themselves tell how many samples there are.
    samples = static_cast<uint32_t>(m_Payload.size() * 8 / m_Format.bitsPerCodedSample /
                                    m_Format.channels);
  } else if (samples == 0) {
    samples = m_Format.frameSamples;
  }
  uint32_t codecOption = m_Format.codecOption;
  if (m_Format.payload == SmMediaStreamFormat::AAC) {
    const SmAACConfig& config = m_AAC.GetConfig();
    using NmMediaProcessing::SmAACProfile;
    codecOption = config.sbr               ? SmAACProfile::HighEfficiency
                  : config.objectType == 1 ? SmAACProfile::Main
                  : config.objectType == 3 ? SmAACProfile::Scalable
                  : config.objectType == 4 ? SmAACProfile::LongTermPrediction
                                           : SmAACProfile::LowComplexity;
  }
  const int64_t time = WireTime(packet.time).GetMilliseconds();
  audio.SetCodec(m_Format.codec);
  audio.SetCodecOption(codecOption);
  audio.SetSequenceNumber(m_NextSequenceNumber);
  audio.SetTime(WireTime(time));
  audio.SetSampleCount(samples);
  audio.SetChannelCount(m_Format.channels);
  audio.SetBitsPerSample(m_Format.bitsPerSample);
  audio.SetSamplingFrequency(m_Format.samplingFrequency);
  CopyOut(audio, record);
  info = {time, m_NextSequenceNumber, false};
  return true;
}

} // namespace NmMedia
