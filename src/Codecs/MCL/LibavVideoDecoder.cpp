#include "Codecs/MCL/LibavVideoDecoder.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <mutex>
#include <string>
#include <vector>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/frame.h>
#include <libavutil/log.h>
}

#include "Codecs/MCL/VideoData.h"

namespace MCL {

namespace {

constexpr int MostThreads = 8;
// A waiting input time older than this many inputs behind the picture that
// leaves belongs to an input that gave no picture (headers only, skipped or
// damaged): it must not hand its time to a later picture.
constexpr int64_t StaleDistance = 16;

// What a libavcodec error means in MCL terms.
Status StatusOf(int error) {
  if (error == AVERROR(ENOMEM)) {
    return StatusNoMemory;
  }
  if (error == AVERROR(EAGAIN)) {
    return StatusNotEnoughData;
  }
  if (error == AVERROR_INVALIDDATA || error == AVERROR_BUG || error == AVERROR_PATCHWELCOME ||
      error == AVERROR(EINVAL)) {
    return StatusInvalidStream;
  }
  return StatusFailed;
}

// The coding types of the MPEG-4 VOPs of the data, in order: 0 I, 1 P, 2 B,
// 3 S.
std::vector<int> VopCodingTypes(const uint8_t* data, size_t size) {
  std::vector<int> types;
  for (size_t i = 0; i + 4 < size; ++i) {
    if (data[i] == 0 && data[i + 1] == 0 && data[i + 2] == 1 && data[i + 3] == 0xB6) {
      types.push_back(data[i + 4] >> 6);
      i += 3;
    }
  }
  return types;
}

bool StartCodeAt(const uint8_t* data, size_t size, size_t i) {
  return i + 3 < size && data[i] == 0 && data[i + 1] == 0 && data[i + 2] == 1;
}

// DivX's "packed" streams put a B VOP behind the P VOP that it precedes, in
// one input; their user data ends in "p". Such a pair stays together.
bool SaysPacked(const uint8_t* data, size_t size) {
  for (size_t i = 0; i < size; ++i) {
    if (!StartCodeAt(data, size, i) || data[i + 3] != 0xB2) {
      continue;
    }
    size_t end = i + 4;
    while (end < size && !StartCodeAt(data, size, end)) {
      ++end;
    }
    while (end > i + 4 && data[end - 1] == 0) {
      --end;
    }
    const std::string text(reinterpret_cast<const char*>(data + i + 4), end - i - 4);
    if (text.rfind("DivX", 0) == 0 && !text.empty() && text.back() == 'p') {
      return true;
    }
  }
  return false;
}

// Where the first picture of the data ends: before the next VOP or the
// headers of one (MPEG-4), or the next picture start code (H.263). An input
// that holds a whole group of pictures is taken one picture a call, so that
// each picture keeps the time its caller gives it. In a packed stream a B VOP
// right behind an I, P or S VOP went in with it, and goes in with it again.
size_t FirstPictureLength(bool mpeg4, bool packed, const uint8_t* data, size_t size) {
  bool picture = false;
  int vops = 0;
  int firstType = -1;
  for (size_t i = 0; i + 3 < size; ++i) {
    if (!StartCodeAt(data, size, i) &&
        !(!mpeg4 && data[i] == 0 && data[i + 1] == 0 && (data[i + 2] & 0xFC) == 0x80)) {
      continue;
    }
    if (!mpeg4) {
      if (picture) {
        return i;
      }
      picture = true;
      i += 2;
      continue;
    }
    const uint8_t code = data[i + 3];
    const bool headers = code == 0xB0 || code == 0xB3 || code == 0xB5 || code <= 0x2F;
    const int type = code == 0xB6 && i + 4 < size ? data[i + 4] >> 6 : -1;
    if (picture && (code == 0xB6 || headers)) {
      const bool packedPair = packed && vops == 1 && firstType != 2 && type == 2;
      if (!packedPair) {
        return i;
      }
    }
    if (code == 0xB6) {
      firstType = vops == 0 ? type : firstType;
      ++vops;
      picture = true;
    }
    i += 3;
  }
  return size;
}

struct Waiting {
  int64_t order;
  double time;
  int32_t frameId;
  // The input of a picture that libavcodec dropped: only its time counts.
  bool dropped = false;
};

} // namespace

struct LibavVideoDecoder::State {
  ~State() {
    av_frame_free(&frame);
    av_packet_free(&packet);
    avcodec_free_context(&context);
  }

  AVCodecContext* context = nullptr;
  AVPacket* packet = nullptr;
  AVFrame* frame = nullptr;
  // Inputs whose pictures have not left yet, in decoding order.
  std::vector<Waiting> waiting;
  int64_t nextOrder = 0;
  bool draining = false;
  // After a start or a reset, pictures that depend on others are not shown
  // until an intra picture has been: they would refer to nothing.
  bool awaitIntra = true;
  // Skipping modes give each picture its own time: the pictures dropped
  // before it would otherwise leave their earlier times behind.
  bool ownTimes = false;
  // Only the luma plane is decoded and handed on.
  bool luminanceOnly = false;
  // Pictures that others refer to, decoded since the start or the reset.
  int anchors = 0;
  // How many of the smallest waiting times belong to pictures that were
  // dropped and never leave.
  int timesToDrop = 0;
  int width = 0;
  int height = 0;
  // The stream packs B VOPs behind P VOPs (told by its configuration).
  bool packed = false;
};

LibavVideoDecoder::LibavVideoDecoder(Engine engine) : m_Engine(engine) {}

LibavVideoDecoder::~LibavVideoDecoder() {
  Close();
}

Status LibavVideoDecoder::Init(BaseCodecParams* params) {
  auto* videoParams = dynamic_cast<VideoDecoderParams*>(params);
  if (videoParams == nullptr) {
    return StatusNullPointer;
  }
  Close();
  const Status base = VideoDecoder::Init(params);
  if (base != StatusOk) {
    return base;
  }
  // Damage is told through the statuses; libavcodec's own account of it
  // would go to the host's standard error.
  static std::once_flag quiet;
  std::call_once(quiet, [] { av_log_set_level(AV_LOG_QUIET); });
  const AVCodec* codec =
      avcodec_find_decoder(m_Engine == Engine::MPEG4 ? AV_CODEC_ID_MPEG4 : AV_CODEC_ID_H263);
  if (codec == nullptr) {
    return StatusFailed;
  }
  auto state = std::make_unique<State>();
  state->context = avcodec_alloc_context3(codec);
  state->packet = av_packet_alloc();
  state->frame = av_frame_alloc();
  if (state->context == nullptr || state->packet == nullptr || state->frame == nullptr) {
    return StatusNoMemory;
  }
  AVCodecContext& context = *state->context;
  const uint32_t flags = videoParams->flags;
  const bool lowDelay = (flags & VideoDecoderParams::FlagBase) != 0 &&
                        (flags & VideoDecoderParams::FlagLowDelay) != 0;
  int threads = videoParams->numThreads;
  if (threads <= 0) {
    threads = MostThreads;
  }
  // Frame threads hold pictures back by one each: not for a caller that
  // wants each picture as soon as it is whole.
  if (lowDelay) {
    threads = 1;
    context.flags |= AV_CODEC_FLAG_LOW_DELAY;
  }
  context.thread_count = std::min(threads, MostThreads);
  context.thread_type = FF_THREAD_FRAME;
  if ((flags & VideoDecoderParams::FlagSyncFramesOnly) != 0) {
    context.skip_frame = AVDISCARD_NONKEY;
    state->ownTimes = true;
  } else if ((flags & VideoDecoderParams::FlagReducedDecoding) != 0) {
    context.skip_frame = AVDISCARD_NONREF;
    state->ownTimes = true;
  }
  if ((flags & VideoDecoderParams::FlagLuminanceOnly) != 0) {
    context.flags |= AV_CODEC_FLAG_GRAY;
    state->luminanceOnly = true;
  }
  const int opened = avcodec_open2(&context, codec, nullptr);
  if (opened < 0) {
    return StatusOf(opened);
  }
  m_State = std::move(state);

  // Headers given at the start tell the picture size; the pictures they may
  // bring along are not for showing.
  MediaData* initial = videoParams->initialData;
  if (initial != nullptr && initial->GetDataSize() > 0) {
    const Status fed = Feed(initial->GetDataPointer(), initial->GetDataSize(), -1.0, -1);
    initial->MoveDataPointer(initial->GetDataSize());
    if (fed == StatusNoMemory) {
      Close();
      return fed;
    }
    if (m_State->context->width > 0 && m_State->context->height > 0) {
      m_State->width = m_State->context->width;
      m_State->height = m_State->context->height;
    }
    Reset();
  }
  return StatusOk;
}

Status LibavVideoDecoder::Feed(const uint8_t* data, size_t size, double time, int32_t frameId) {
  State& state = *m_State;
  if (size > static_cast<size_t>(std::numeric_limits<int>::max()) - AV_INPUT_BUFFER_PADDING_SIZE) {
    return StatusInvalidStream;
  }
  av_packet_unref(state.packet);
  // libavcodec reads a little beyond the end of its input: the one copy of
  // the coded data gives it the padding it needs.
  if (av_new_packet(state.packet, static_cast<int>(size)) < 0) {
    return StatusNoMemory;
  }
  std::memcpy(state.packet->data, data, size);
  state.packet->pts = state.nextOrder;
  const int sent = avcodec_send_packet(state.context, state.packet);
  av_packet_unref(state.packet);
  if (sent == AVERROR(EAGAIN)) {
    return StatusFrameHeld;
  }
  ++state.nextOrder;
  if (sent < 0) {
    // An input refused outright gives no picture, and so no time to hand on.
    return StatusOf(sent);
  }
  if (m_Engine == Engine::MPEG4) {
    // libavcodec drops a B picture that lacks its earlier reference, as
    // those of an open group do when decoding starts at its intra picture:
    // such a picture never leaves, so its time must not wait for it.
    // Those pictures come before the intra picture in display order, so it
    // is the smallest times that go, not theirs.
    // A packed input holds a B picture behind its anchor; that B picture
    // shares the input's time, which the plane that is not coded after it
    // makes up for.
    bool first = true;
    for (const int type : VopCodingTypes(data, size)) {
      if (type == 2 && state.anchors < 2) {
        ++state.timesToDrop;
        if (first) {
          state.waiting.push_back({state.nextOrder - 1, time, frameId, true});
          return StatusOk;
        }
      } else if (type == 0 || type == 1 || type == 3) {
        ++state.anchors;
      }
      first = false;
    }
  }
  state.waiting.push_back({state.nextOrder - 1, time, frameId});
  return StatusOk;
}

Status LibavVideoDecoder::GetFrame(MediaData* input, MediaData* output) {
  if (!m_State) {
    return StatusNotInitialised;
  }
  if (output == nullptr) {
    return StatusNullPointer;
  }
  State& state = *m_State;
  if (input != nullptr) {
    if (state.draining) {
      // New data after a flush: libavcodec must be opened for input again.
      avcodec_flush_buffers(state.context);
      state.draining = false;
      state.waiting.clear();
      state.awaitIntra = true;
      state.anchors = 0;
      state.timesToDrop = 0;
    }
    if (input->GetDataSize() == 0) {
      return StatusNotEnoughData;
    }
    const uint8_t* data = input->GetDataPointer();
    size_t size = input->GetDataSize();
    if (m_Engine == Engine::MPEG4 && SaysPacked(data, size)) {
      state.packed = true;
    }
    size = FirstPictureLength(m_Engine == Engine::MPEG4, state.packed, data, size);
    const Status fed = Feed(data, size, input->GetTime(), input->GetFrameId());
    if (fed != StatusFrameHeld) {
      input->MoveDataPointer(size);
    }
    if (fed != StatusOk && fed != StatusFrameHeld) {
      return fed;
    }
  } else if (!state.draining) {
    state.draining = true;
    const int sent = avcodec_send_packet(state.context, nullptr);
    if (sent < 0 && sent != AVERROR_EOF) {
      return StatusOf(sent);
    }
  }
  for (;;) {
    const int received = avcodec_receive_frame(state.context, state.frame);
    if (received == AVERROR(EAGAIN) || received == AVERROR_EOF) {
      return StatusNotEnoughData;
    }
    if (received < 0) {
      return StatusOf(received);
    }
    const bool intra = state.frame->pict_type == AV_PICTURE_TYPE_I || state.frame->key_frame;
    if (state.awaitIntra && !intra) {
      // Shown, it would be drawn over nothing; its input is forgotten with it.
      const int64_t order = state.frame->pts;
      std::erase_if(state.waiting, [order](const Waiting& w) { return w.order == order; });
      av_frame_unref(state.frame);
      continue;
    }
    state.awaitIntra = false;
    return Deliver(output);
  }
}

Status LibavVideoDecoder::Deliver(MediaData* output) {
  State& state = *m_State;
  AVFrame& frame = *state.frame;
  struct Unref {
    AVFrame* frame;
    ~Unref() { av_frame_unref(frame); }
  } unref{&frame};

  DropTimesOfDroppedPictures();
  // The picture's own input, and the earliest time still waiting.
  const int64_t order = frame.pts;
  std::erase_if(state.waiting,
                [order](const Waiting& w) { return w.order + StaleDistance < order; });
  double time = -1.0;
  int32_t frameId = -1;
  auto own = std::find_if(state.waiting.begin(), state.waiting.end(),
                          [order](const Waiting& w) { return w.order == order; });
  if (own != state.waiting.end()) {
    frameId = own->frameId;
    time = own->time;
    if (!state.ownTimes) {
      // The earliest time waiting is this picture's; an input whose time
      // went to a dropped picture takes one from the others.
      auto earliest = state.waiting.end();
      for (auto it = state.waiting.begin(); it != state.waiting.end(); ++it) {
        if (it->time >= 0 && (earliest == state.waiting.end() || it->time < earliest->time)) {
          earliest = it;
        }
      }
      if (earliest != state.waiting.end()) {
        std::swap(own->time, earliest->time);
      }
      time = own->time;
    }
    if (state.ownTimes) {
      // The pictures before it were skipped and give out nothing.
      std::erase_if(state.waiting, [order](const Waiting& w) { return w.order < order; });
      own = std::find_if(state.waiting.begin(), state.waiting.end(),
                         [order](const Waiting& w) { return w.order == order; });
    }
    state.waiting.erase(own);
  }

  if (frame.format != AV_PIX_FMT_YUV420P && frame.format != AV_PIX_FMT_YUVJ420P) {
    return StatusInvalidStream;
  }
  state.width = frame.width;
  state.height = frame.height;
  VideoData decoded;
  const Status init = decoded.Init(frame.width, frame.height, state.luminanceOnly ? GRAY : YUV420);
  if (init != StatusOk) {
    return init;
  }
  for (int c = 0; c < decoded.GetPlaneCount(); ++c) {
    decoded.SetPlanePointer(c, frame.data[c]);
    decoded.SetPlanePitch(c, static_cast<size_t>(frame.linesize[c]));
  }
  decoded.SetPictureStructure(Frame);
  if (frame.sample_aspect_ratio.num > 0 && frame.sample_aspect_ratio.den > 0) {
    decoded.SetAspectRatio(frame.sample_aspect_ratio.num, frame.sample_aspect_ratio.den);
  }
  decoded.SetTime(time);
  decoded.SetFrameId(frameId);
  output->SetTime(time);
  output->SetFrameId(frameId);
  if (m_PostProcessing == nullptr) {
    return StatusOk;
  }
  return m_PostProcessing->GetFrame(&decoded, output);
}

void LibavVideoDecoder::DropTimesOfDroppedPictures() {
  State& state = *m_State;
  if (state.timesToDrop == 0) {
    return;
  }
  // The smallest times go; the others stay with the inputs still waiting,
  // in the order of their times.
  std::vector<double> times;
  for (const Waiting& w : state.waiting) {
    if (w.time >= 0) {
      times.push_back(w.time);
    }
  }
  std::sort(times.begin(), times.end());
  const auto dropped = std::min<size_t>(static_cast<size_t>(state.timesToDrop), times.size());
  times.erase(times.begin(), times.begin() + static_cast<std::ptrdiff_t>(dropped));
  std::erase_if(state.waiting, [](const Waiting& w) { return w.dropped; });
  std::vector<Waiting*> byTime;
  for (Waiting& w : state.waiting) {
    byTime.push_back(&w);
  }
  // Inputs that hold no time stay behind those that do.
  std::stable_sort(byTime.begin(), byTime.end(), [](const Waiting* a, const Waiting* b) {
    return (a->time < 0) != (b->time < 0) ? b->time < 0 : a->time < b->time;
  });
  // A packed input whose B picture was dropped still waits for its anchor:
  // there are then more inputs than times left, and the latest inputs hold
  // none. Keeping their old times would hand one time to two pictures.
  for (size_t i = 0; i < byTime.size(); ++i) {
    byTime[i]->time = i < times.size() ? times[i] : -1.0;
  }
  state.timesToDrop = 0;
}

Status LibavVideoDecoder::GetInfo(BaseCodecParams* params) {
  auto* videoParams = dynamic_cast<VideoDecoderParams*>(params);
  if (videoParams == nullptr) {
    return StatusNullPointer;
  }
  if (!m_State) {
    return StatusNotInitialised;
  }
  const Status base = VideoDecoder::GetInfo(params);
  if (base != StatusOk) {
    return base;
  }
  int width = m_State->context->width;
  int height = m_State->context->height;
  if (width <= 0 || height <= 0) {
    width = m_State->width;
    height = m_State->height;
  }
  if (width <= 0 || height <= 0) {
    return StatusNotEnoughData;
  }
  videoParams->info.width = width;
  videoParams->info.height = height;
  const AVRational rate = m_State->context->framerate;
  if (rate.num > 0 && rate.den > 0) {
    videoParams->info.frameRate = static_cast<double>(rate.num) / rate.den;
  }
  return StatusOk;
}

Status LibavVideoDecoder::Close() {
  m_State.reset();
  return VideoDecoder::Close();
}

Status LibavVideoDecoder::Reset() {
  if (!m_State) {
    return StatusNotInitialised;
  }
  avcodec_flush_buffers(m_State->context);
  m_State->waiting.clear();
  m_State->draining = false;
  m_State->awaitIntra = true;
  m_State->anchors = 0;
  m_State->timesToDrop = 0;
  return StatusOk;
}

} // namespace MCL
