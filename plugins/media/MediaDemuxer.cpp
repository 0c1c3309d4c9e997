#include "MediaDemuxer.h"

#include <dlfcn.h>

#include <chrono>
#include <mutex>
#include <string_view>

extern "C" {
#include <libavformat/avformat.h>
#include <libavutil/parseutils.h>
#include <libavutil/time.h>
}

#include "MediaProcessing/GenericByteData/AudioCodec.h"
#include "MediaProcessing/GenericByteData/VideoCodec.h"

namespace NmMedia {

using NmMediaProcessing::SmAudioCodec;
using NmMediaProcessing::SmVideoCodec;

namespace {

constexpr int64_t NetworkOpenTimeoutMicroseconds = 15'000'000;
// Video codec values beyond those the record library names.
constexpr uint32_t CodecMPEG4 = 4;
constexpr uint32_t CodecH263 = 7;
constexpr uint32_t CodecH263Plus = 9;

std::optional<SmMediaStreamFormat> VideoFormat(const AVCodecParameters& parameters) {
  SmMediaStreamFormat format;
  format.kind = SmMediaStreamFormat::Video;
  switch (parameters.codec_id) {
  case AV_CODEC_ID_H264:
    format.codec = SmVideoCodec::H264;
    format.payload = SmMediaStreamFormat::H264;
    break;
  case AV_CODEC_ID_MPEG4:
    format.codec = CodecMPEG4;
    format.payload = SmMediaStreamFormat::MPEG4;
    break;
  case AV_CODEC_ID_H263:
    format.codec = CodecH263;
    format.payload = SmMediaStreamFormat::H263;
    break;
  case AV_CODEC_ID_H263P:
    format.codec = CodecH263Plus;
    format.payload = SmMediaStreamFormat::H263;
    break;
  case AV_CODEC_ID_MJPEG:
    format.codec = SmVideoCodec::JPEG;
    format.payload = SmMediaStreamFormat::JPEG;
    format.intraOnly = true;
    break;
  case AV_CODEC_ID_JPEG2000:
    format.codec = SmVideoCodec::JPEG2000;
    format.intraOnly = true;
    break;
  case AV_CODEC_ID_MXPEG:
    format.codec = SmVideoCodec::MxPEG;
    break;
  default:
    return std::nullopt;
  }
  format.interlaced =
      parameters.field_order == AV_FIELD_TT || parameters.field_order == AV_FIELD_BB ||
      parameters.field_order == AV_FIELD_TB || parameters.field_order == AV_FIELD_BT;
  // TB and BT are coded in one order and shown in the other; what counts for
  // the picture is the order of display.
  format.topFieldFirst =
      parameters.field_order == AV_FIELD_TT || parameters.field_order == AV_FIELD_BT;
  return format;
}

std::optional<SmMediaStreamFormat> AudioFormat(const AVCodecParameters& parameters) {
  SmMediaStreamFormat format;
  format.kind = SmMediaStreamFormat::Audio;
  format.channels = static_cast<uint32_t>(std::max(parameters.ch_layout.nb_channels, 0));
  format.samplingFrequency = static_cast<uint32_t>(std::max(parameters.sample_rate, 0));
  if (format.channels == 0 || format.channels > 255 || format.samplingFrequency < 2) {
    return std::nullopt;
  }
  const auto pcm = [&format](uint32_t bits, SmMediaStreamFormat::Payload payload) {
    format.codec = SmAudioCodec::PCM;
    format.bitsPerSample = format.bitsPerCodedSample = bits;
    format.payload = payload;
  };
  const auto g711 = [&format](uint32_t law) {
    const bool telephony = format.channels == 1 && format.samplingFrequency == 8000;
    format.codec = telephony ? SmAudioCodec::G711Telephony : SmAudioCodec::G711;
    format.codecOption = law;
    format.bitsPerSample = 16;
    format.bitsPerCodedSample = 8;
  };
  switch (parameters.codec_id) {
  case AV_CODEC_ID_PCM_S16LE:
    pcm(16, SmMediaStreamFormat::AsIs);
    break;
  case AV_CODEC_ID_PCM_S16BE:
    pcm(16, SmMediaStreamFormat::PCMSwap16);
    break;
  case AV_CODEC_ID_PCM_U8:
    pcm(8, SmMediaStreamFormat::AsIs);
    break;
  case AV_CODEC_ID_PCM_S8:
    pcm(8, SmMediaStreamFormat::PCMSigned8);
    break;
  case AV_CODEC_ID_PCM_S24LE:
    pcm(24, SmMediaStreamFormat::AsIs);
    break;
  case AV_CODEC_ID_PCM_S24BE:
    pcm(24, SmMediaStreamFormat::PCMSwap24);
    break;
  case AV_CODEC_ID_PCM_ALAW:
    g711(NmMediaProcessing::SmG711Law::ALaw);
    break;
  case AV_CODEC_ID_PCM_MULAW:
    g711(NmMediaProcessing::SmG711Law::MuLaw);
    break;
  case AV_CODEC_ID_ADPCM_G726:
  case AV_CODEC_ID_ADPCM_G726LE: {
    const int bits = parameters.bits_per_coded_sample;
    if (bits < 2 || bits > 5) {
      return std::nullopt;
    }
    using NmMediaProcessing::SmG726Option;
    format.codec = SmAudioCodec::G726;
    format.codecOption = SmG726Option::RateIndex(static_cast<uint32_t>(bits)) |
                         (parameters.codec_id == AV_CODEC_ID_ADPCM_G726
                              ? uint32_t{SmG726Option::MostSignificantFirst}
                              : 0u);
    format.bitsPerSample = 16;
    format.bitsPerCodedSample = static_cast<uint32_t>(bits);
    break;
  }
  case AV_CODEC_ID_MP1:
  case AV_CODEC_ID_MP2:
  case AV_CODEC_ID_MP3:
    format.codec = SmAudioCodec::MPEG1Audio;
    format.bitsPerSample = 16;
    format.frameSamples = parameters.codec_id == AV_CODEC_ID_MP1 ? 384 : 1152;
    break;
  case AV_CODEC_ID_AAC:
  case AV_CODEC_ID_AAC_LATM:
    format.codec = SmAudioCodec::AACLoas;
    format.payload = SmMediaStreamFormat::AAC;
    format.bitsPerSample = 16;
    format.frameSamples = 1024;
    break;
  default:
    return std::nullopt;
  }
  return format;
}

int64_t NowMilliseconds() {
  return std::chrono::duration_cast<std::chrono::milliseconds>(
             std::chrono::system_clock::now().time_since_epoch())
      .count();
}

// The creation time that MP4, MOV and Matroska files carry, in milliseconds
// since 1970, or nothing.
std::optional<int64_t> CreationTime(const AVFormatContext& context) {
  const AVDictionaryEntry* entry = av_dict_get(context.metadata, "creation_time", nullptr, 0);
  for (unsigned i = 0; entry == nullptr && i < context.nb_streams; ++i) {
    entry = av_dict_get(context.streams[i]->metadata, "creation_time", nullptr, 0);
  }
  int64_t microseconds = 0;
  if (entry == nullptr || av_parse_time(&microseconds, entry->value, 0) < 0 || microseconds <= 0) {
    return std::nullopt;
  }
  return microseconds / 1000;
}

int64_t FloorDivide(int64_t value, int64_t divisor) {
  const int64_t quotient = value / divisor;
  return (value % divisor != 0 && (value < 0) != (divisor < 0)) ? quotient - 1 : quotient;
}

// Milliseconds from one frame to the next, as far as the stream tells; 0
// when it does not.
int64_t FrameDuration(const AVStream& stream) {
  const AVRational rate =
      stream.avg_frame_rate.num > 0 ? stream.avg_frame_rate : stream.r_frame_rate;
  return rate.num > 0 && rate.den > 0 ? av_rescale_q(1, av_inv_q(rate), {1, 1000}) : 0;
}

// libavcodec and libavformat build some tables once per process and keep them
// for good. The plug-in may be unloaded and loaded again, but these libraries
// must stay: unloading them with it would drop those tables on the floor.
void PinLibraries() {
  static std::once_flag pinned;
  std::call_once(pinned, [] {
    for (void* symbol :
         {reinterpret_cast<void*>(&avformat_open_input), reinterpret_cast<void*>(&avcodec_get_name),
          reinterpret_cast<void*>(&av_strerror)}) {
      Dl_info info{};
      if (dladdr(symbol, &info) != 0 && info.dli_fname != nullptr) {
        // The handle is deliberately never closed.
        dlopen(info.dli_fname, RTLD_NOW | RTLD_NOLOAD | RTLD_NODELETE);
      }
    }
  });
}

} // namespace

std::string CmMediaDemuxer::ErrorText(int error) {
  char text[AV_ERROR_MAX_STRING_SIZE] = {};
  av_strerror(error, text, sizeof text);
  return text;
}

int CmMediaDemuxer::Interrupt(void* opaque) {
  const auto* self = static_cast<const CmMediaDemuxer*>(opaque);
  if (self->m_Stop != nullptr && self->m_Stop->load()) {
    return 1;
  }
  return self->m_OpenDeadline != 0 && av_gettime_relative() > self->m_OpenDeadline;
}

CmMediaDemuxer::CmMediaDemuxer(const std::string& url, bool network, const std::atomic<bool>* stop,
                               bool sending)
    : m_Stop(stop) {
  PinLibraries();
  m_Context = avformat_alloc_context();
  m_Packet = av_packet_alloc();
  if (m_Context == nullptr || m_Packet == nullptr) {
    avformat_free_context(m_Context);
    av_packet_free(&m_Packet);
    throw CmMediaOpenError("Could not open media '" + url + "': out of memory!");
  }
  m_Context->interrupt_callback = {&CmMediaDemuxer::Interrupt, this};
  AVDictionary* options = nullptr;
  if (network) {
    m_OpenDeadline = av_gettime_relative() + NetworkOpenTimeoutMicroseconds;
    av_dict_set(&options, "timeout", "10000000", 0);
  }
  // On failure avformat_open_input frees the context itself.
  int result = avformat_open_input(&m_Context, url.c_str(), nullptr, &options);
  av_dict_free(&options);
  if (result >= 0) {
    result = avformat_find_stream_info(m_Context, nullptr);
    if (result < 0) {
      avformat_close_input(&m_Context);
    }
  }
  m_OpenDeadline = 0;
  m_RealTimeTransport = result >= 0 && (std::string_view(m_Context->iformat->name) == "rtsp" ||
                                        std::string_view(m_Context->iformat->name) == "sdp");
  if (result < 0) {
    av_packet_free(&m_Packet);
    throw CmMediaOpenError("Could not open media '" + url + "': " + ErrorText(result) + "!");
  }

  // The destructor does not run for a constructor that throws; what the
  // library opened must not be lost with it.
  try {
    for (unsigned i = 0; i < m_Context->nb_streams; ++i) {
      const AVCodecParameters& parameters = *m_Context->streams[i]->codecpar;
      SmMediaStream stream;
      stream.index = static_cast<int>(i);
      stream.codecName = avcodec_get_name(parameters.codec_id);
      // Cover art of an audio file is a picture, not a video stream.
      const bool attachedPicture =
          (m_Context->streams[i]->disposition & AV_DISPOSITION_ATTACHED_PIC) != 0;
      if (parameters.codec_type == AVMEDIA_TYPE_VIDEO && !attachedPicture) {
        stream.format = VideoFormat(parameters);
      } else if (parameters.codec_type == AVMEDIA_TYPE_AUDIO) {
        stream.format = AudioFormat(parameters);
      }
      if (parameters.extradata != nullptr && parameters.extradata_size > 0) {
        stream.configuration.assign(parameters.extradata,
                                    parameters.extradata + parameters.extradata_size);
      }
      m_Streams.push_back(std::move(stream));
    }
    m_Timing.resize(m_Streams.size());
    for (const SmMediaStream& stream : m_Streams) {
      if (stream.format && stream.format->payload == SmMediaStreamFormat::H264) {
        m_FieldPairs.AddStream(stream.index, stream.configuration.data(),
                               stream.configuration.size());
      }
    }
    m_DecodeOrder.resize(m_Streams.size());
    for (const SmMediaStream& stream : m_Streams) {
      if (stream.format && stream.format->kind == SmMediaStreamFormat::Video &&
          !stream.format->intraOnly) {
        // The depth of reordering that the stream declares: 0 without B frames.
        const int delay = m_Context->streams[stream.index]->codecpar->video_delay;
        m_DecodeOrder[static_cast<size_t>(stream.index)].emplace(
            static_cast<size_t>(std::max(delay, 0)));
      }
    }

    if (m_Context->start_time_realtime != AV_NOPTS_VALUE && m_Context->start_time_realtime > 0) {
      m_BaseTime = m_Context->start_time_realtime / 1000;
    } else if (const auto created = CreationTime(*m_Context)) {
      m_BaseTime = *created;
    } else {
      m_BaseTime = NowMilliseconds();
    }
    m_Origin = m_Context->start_time != AV_NOPTS_VALUE ? m_Context->start_time : 0;
    if (network && !sending) {
      // The streams are known only from what the server sent; from here on it
      // holds until the host starts the live stream.
      Pause();
    }
  } catch (...) {
    av_packet_free(&m_Packet);
    avformat_close_input(&m_Context);
    throw;
  }
}

CmMediaDemuxer::~CmMediaDemuxer() {
  av_packet_free(&m_Packet);
  avformat_close_input(&m_Context);
}

void CmMediaDemuxer::SmPacketDeleter::operator()(AVPacket* packet) const {
  av_packet_free(&packet);
}

int CmMediaDemuxer::Read(SmDemuxedPacket& out) {
  for (;;) {
    if (DeliverHeld(out, m_End.has_value())) {
      return 0;
    }
    if (m_End) {
      // Told once; a caller that goes on reading tries the input again.
      const int end = *m_End;
      m_End.reset();
      return end;
    }
    av_packet_unref(m_Packet);
    const int result = m_FieldPairs.Read(m_Context, m_Packet);
    if (result == AVERROR(EAGAIN)) {
      return result;
    }
    if (result < 0) {
      // The held frames leave first, with the times they have.
      m_End = result;
      continue;
    }
    const int index = m_Packet->stream_index;
    if (index < 0 || static_cast<size_t>(index) >= m_Streams.size()) {
      // A stream that appeared after opening: not one we can describe.
      out = {};
      out.stream = -1;
      return 0;
    }
    // Over RTP, libavformat's parser loses the time of a reordering stream's
    // first frame, and guesses it one reordering delay early if at all.
    const bool untimed = m_RealTimeTransport && m_Packet->pts == AV_NOPTS_VALUE &&
                         !m_Timing[static_cast<size_t>(index)].seen;
    const int64_t time = PacketTime();
    auto& order = m_DecodeOrder[static_cast<size_t>(index)];
    if (!order) {
      Deliver(out, time);
      return 0;
    }
    SmHeldPacket held{std::unique_ptr<AVPacket, SmPacketDeleter>(av_packet_alloc()), index};
    if (held.packet == nullptr) {
      return AVERROR(ENOMEM);
    }
    av_packet_move_ref(held.packet.get(), m_Packet);
    const int64_t duration = FrameDuration(*m_Context->streams[index]);
    if (untimed && duration > 0) {
      order->PushUntimed(duration);
    } else {
      order->Push(time);
    }
    m_Held.push_back(std::move(held));
  }
}

bool CmMediaDemuxer::DeliverHeld(SmDemuxedPacket& out, bool atEnd) {
  for (auto held = m_Held.begin(); held != m_Held.end(); ++held) {
    CmDecodeOrderTimes& order = *m_DecodeOrder[static_cast<size_t>(held->stream)];
    // Only the oldest held frame of each stream may leave.
    bool oldest = true;
    for (auto before = m_Held.begin(); before != held; ++before) {
      oldest = oldest && before->stream != held->stream;
    }
    if (oldest && order.IsReady(atEnd)) {
      av_packet_unref(m_Packet);
      av_packet_move_ref(m_Packet, held->packet.get());
      m_Held.erase(held);
      Deliver(out, order.Pop());
      return true;
    }
  }
  return false;
}

int64_t CmMediaDemuxer::PacketTime() {
  const int index = m_Packet->stream_index;
  const AVStream& stream = *m_Context->streams[index];
  SmTiming& timing = m_Timing[static_cast<size_t>(index)];
  const int64_t stamp = m_Packet->pts != AV_NOPTS_VALUE ? m_Packet->pts : m_Packet->dts;
  const int64_t duration =
      m_Packet->duration > 0 ? av_rescale_q(m_Packet->duration, stream.time_base, {1, 1000}) : 0;
  int64_t time = 0;
  if (stamp != AV_NOPTS_VALUE) {
    const int64_t microseconds = av_rescale_q(stamp, stream.time_base, AV_TIME_BASE_Q) - m_Origin;
    // Wild stamps saturate rather than wrap.
    if (__builtin_add_overflow(m_BaseTime, FloorDivide(microseconds, 1000), &time)) {
      time = microseconds < 0 ? INT64_MIN : INT64_MAX;
    }
  } else if (timing.seen) {
    // Untimed packets follow the one before.
    if (__builtin_add_overflow(timing.lastTime, timing.lastDuration, &time)) {
      time = INT64_MAX;
    }
  } else {
    time = m_BaseTime;
  }
  timing = {time, duration, true};
  return time;
}

void CmMediaDemuxer::Deliver(SmDemuxedPacket& out, int64_t time) {
  const int index = m_Packet->stream_index;
  const AVStream& stream = *m_Context->streams[index];
  out.stream = index;
  out.packet.data = m_Packet->data;
  out.packet.size = static_cast<size_t>(m_Packet->size);
  out.packet.key = (m_Packet->flags & AV_PKT_FLAG_KEY) != 0;
  out.packet.time = time;
  out.packet.samples = 0;
  out.packet.fieldPair = CmH264FieldPairJoiner::IsFieldPair(*m_Packet, out.packet.topFieldFirst);
  if (m_Packet->duration > 0 && stream.codecpar->sample_rate > 0) {
    const int64_t samples =
        av_rescale_q(m_Packet->duration, stream.time_base, {1, stream.codecpar->sample_rate});
    out.packet.samples = samples > 0 && samples < UINT32_MAX ? static_cast<uint32_t>(samples) : 0;
  }
}

void CmMediaDemuxer::Play() {
  av_read_play(m_Context);
}

void CmMediaDemuxer::Pause() {
  av_read_pause(m_Context);
}

} // namespace NmMedia
