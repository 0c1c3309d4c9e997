#include "Codecs/H264/H264VideoDecoder.h"

#include <cmath>
#include <new>
#include <thread>

#include "Codecs/MCL/H264Exception.h"
#include "Codecs/MCL/VideoData.h"

namespace MCL {

namespace {

// Stream subtype of units that follow 4-byte lengths instead of start codes.
constexpr int32_t LengthPrefixedSubtype = 8;
constexpr int32_t MostThreads = 8;

} // namespace

H264VideoDecoder::~H264VideoDecoder() {
  Close();
}

Status H264VideoDecoder::Init(BaseCodecParams* params) {
  auto* videoParams = dynamic_cast<VideoDecoderParams*>(params);
  if (videoParams == nullptr) {
    return StatusNullPointer;
  }
  Close();
  const Status base = VideoDecoder::Init(params);
  if (base != StatusOk) {
    return base;
  }
  try {
    m_Allocator = videoParams->allocator;
    if (m_Allocator == nullptr) {
      m_OwnedAllocator = std::make_unique<DefaultMemoryAllocator>();
      m_Allocator = m_OwnedAllocator.get();
    }
    SmTaskSupplierSettings settings;
    settings.playbackMode = std::fabs(videoParams->playbackRate - 1.0) > 0.0001 ? 2 : 1;
    int32_t threads = videoParams->numThreads;
    if (threads == 0) {
      threads =
          std::min<int32_t>(static_cast<int32_t>(std::thread::hardware_concurrency()), MostThreads);
      threads = threads > 0 ? threads : 1;
    }
    settings.threadCount = threads;
    settings.lengthPrefixed = videoParams->info.streamSubtype == LengthPrefixedSubtype;
    settings.frameTime =
        videoParams->info.frameRate > 0 ? 1.0 / videoParams->info.frameRate : 1.0 / 30.0;
    const uint32_t flags = videoParams->flags;
    settings.lowDelay = (flags & VideoDecoderParams::FlagBase) != 0 &&
                        (flags & VideoDecoderParams::FlagLowDelay) != 0;
    settings.skipMode = (flags & VideoDecoderParams::FlagSyncFramesOnly) != 0    ? 2
                        : (flags & VideoDecoderParams::FlagReducedDecoding) != 0 ? 1
                                                                                 : 0;
    settings.luminanceOnly = (flags & VideoDecoderParams::FlagLuminanceOnly) != 0;
    // Records hold one frame each: a picture is complete at the end of its
    // input, not only when the next one begins.
    settings.wholeFramePerBuffer = true;
    m_TaskSupplier = std::make_unique<TaskSupplier>(settings);
    MediaData* initial = videoParams->initialData;
    if (initial != nullptr && initial->GetDataSize() > 0) {
      const Status fed = static_cast<Status>(
          m_TaskSupplier->AddSource(initial->GetDataPointer(), initial->GetDataSize(), -1.0, -1));
      initial->MoveDataPointer(initial->GetDataSize());
      if (fed != StatusOk && fed != StatusNullPointer && fed != StatusNotEnoughData) {
        return fed;
      }
    }
    m_IsInitialised = true;
    return StatusOk;
  } catch (const h264_exception& error) {
    return StatusFailed;
  } catch (const std::bad_alloc&) {
    return StatusNoMemory;
  }
}

Status H264VideoDecoder::GetFrame(MediaData* input, MediaData* output) {
  if (!m_IsInitialised) {
    return StatusNotInitialised;
  }
  if (output == nullptr) {
    return StatusNullPointer;
  }
  try {
    if (input != nullptr) {
      if (input->GetDataSize() < 4) {
        input->MoveDataPointer(input->GetDataSize());
        return StatusNotEnoughData;
      }
      size_t consumed = 0;
      const Status fed = static_cast<Status>(
          m_TaskSupplier->AddSource(input->GetDataPointer(), input->GetDataSize(), input->GetTime(),
                                    input->GetFrameId(), &consumed));
      input->MoveDataPointer(consumed);
      if (fed != StatusOk) {
        return fed;
      }
      if (m_TaskSupplier->TakeUnsupported()) {
        // A stream of a kind not decoded yet: no picture, and no wrong one.
        return StatusInvalidStreamSync;
      }
    } else {
      m_TaskSupplier->Flush();
    }
    // An intake that stopped for want of a free frame needs one to leave,
    // even before its turn: the rest of the input comes with the next call.
    const bool stalled = m_TaskSupplier->IsStalled();
    H264DecoderFrame* frame = m_TaskSupplier->GetFrameToDisplay(input == nullptr);
    if (frame == nullptr && stalled) {
      frame = m_TaskSupplier->GetFrameToDisplay(true);
    }
    if (frame == nullptr) {
      return StatusNotEnoughData;
    }
    return Deliver(*frame, output);
  } catch (const h264_exception& error) {
    // A decoder survives a bad stream: it starts clean at the next key unit.
    m_TaskSupplier->RecoveryReset();
    return error.GetStatus();
  } catch (const std::bad_alloc&) {
    m_TaskSupplier->RecoveryReset();
    return StatusNoMemory;
  }
}

Status H264VideoDecoder::Deliver(H264DecoderFrame& frame, MediaData* output) {
  const NmH264::CmPicture& picture = frame.GetPicture();
  const bool gray = picture.IsMonochrome();
  VideoData decoded;
  const Status init = decoded.Init(static_cast<int32_t>(frame.visibleWidth),
                                   static_cast<int32_t>(frame.visibleHeight), gray ? GRAY : YUV420);
  if (init != StatusOk) {
    return init;
  }
  // The visible part of each plane: the crop of the frame's own sequence.
  for (int c = 0; c < (gray ? 1 : 3); ++c) {
    const uint32_t shift = c == 0 ? 0 : 1;
    uint8_t* origin = picture.GetPlane(c) + (frame.cropTop >> shift) * picture.GetStride(c) +
                      (frame.cropLeft >> shift);
    decoded.SetPlanePointer(c, origin);
    decoded.SetPlanePitch(c, static_cast<size_t>(picture.GetStride(c)));
  }
  // Interlaced frames say which field came first, by their order counts, so
  // that a deinterlacer downstream knows; a lone field says which it is.
  PictureStructure structure = Frame;
  if (frame.loneField >= 0) {
    structure = frame.loneField == 0 ? TopField : BottomField;
  } else if (!frame.progressive) {
    structure =
        frame.picOrderCnt[1] < frame.picOrderCnt[0] ? FrameBottomFieldFirst : FrameTopFieldFirst;
  }
  decoded.SetPictureStructure(structure);
  if (frame.sarWidth != 0 && frame.sarHeight != 0) {
    decoded.SetAspectRatio(static_cast<int32_t>(frame.sarWidth),
                           static_cast<int32_t>(frame.sarHeight));
  }
  decoded.SetTime(frame.time);
  decoded.SetFrameId(frame.frameId);
  output->SetTime(frame.time);
  output->SetFrameId(frame.frameId);
  if (m_PostProcessing == nullptr) {
    return StatusOk;
  }
  return m_PostProcessing->GetFrame(&decoded, output);
}

Status H264VideoDecoder::GetInfo(BaseCodecParams* params) {
  auto* videoParams = dynamic_cast<VideoDecoderParams*>(params);
  if (videoParams == nullptr) {
    return StatusNullPointer;
  }
  if (!m_IsInitialised) {
    return StatusNotInitialised;
  }
  const Status base = VideoDecoder::GetInfo(params);
  if (base != StatusOk) {
    return base;
  }
  const NmH264::SmSequenceParameterSet* sps = m_TaskSupplier->GetLatestSequence();
  if (sps == nullptr) {
    return StatusNotEnoughData;
  }
  videoParams->info.width = static_cast<int32_t>(sps->GetVisibleWidth());
  videoParams->info.height = static_cast<int32_t>(sps->GetVisibleHeight());
  if (sps->vuiPresent && sps->vui.timingPresent && sps->vui.unitsInTick != 0) {
    videoParams->info.frameRate = sps->vui.timeScale / (2.0 * sps->vui.unitsInTick);
  }
  return StatusOk;
}

Status H264VideoDecoder::Close() {
  m_TaskSupplier.reset();
  m_OwnedAllocator.reset();
  m_Allocator = nullptr;
  m_IsInitialised = false;
  return StatusOk;
}

Status H264VideoDecoder::Reset() {
  if (!m_IsInitialised) {
    return StatusNotInitialised;
  }
  m_TaskSupplier->Reset();
  return StatusOk;
}

} // namespace MCL
