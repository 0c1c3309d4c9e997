#include "MCL/FakeMCLDecoder.h"

namespace NmMCLTest {

SmFakeScript& Script() {
  static SmFakeScript script;
  return script;
}

namespace {
// Sample of plane `plane` at (x, y), byte `b` within the pixel.
uint8_t PatternSample(int plane, int32_t x, int32_t y, int b) {
  return static_cast<uint8_t>(x * 7 + y * 13 + plane * 61 + b * 29 + 3);
}
} // namespace

CmFakePictureBuffer::CmFakePictureBuffer(const SmFakePicture& picture) {
  m_Data.Init(picture.width, picture.height, picture.format);
  const int bytes = m_Data.GetBytesPerSample();
  for (int p = 0; p < m_Data.GetPlaneCount(); ++p) {
    const int32_t w = m_Data.GetPlaneWidth(p);
    const int32_t h = m_Data.GetPlaneHeight(p);
    const size_t pitch = static_cast<size_t>(w * bytes + 5);
    std::vector<uint8_t> plane(pitch * static_cast<size_t>(h), 0xEE);
    for (int32_t y = 0; y < h; ++y) {
      for (int32_t x = 0; x < w; ++x) {
        for (int b = 0; b < bytes; ++b) {
          plane[static_cast<size_t>(y) * pitch + static_cast<size_t>(x * bytes + b)] =
              PatternSample(p, x, y, b);
        }
      }
    }
    m_Planes.push_back(std::move(plane));
    m_Data.SetPlanePointer(p, m_Planes.back().data());
    m_Data.SetPlanePitch(p, pitch);
  }
  m_Data.SetTime(picture.time);
  m_Data.SetPictureStructure(picture.structure);
  m_Data.SetAspectRatio(picture.aspectHorizontal, picture.aspectVertical);
}

MCL::Status CmFakeMCLDecoder::Init(MCL::BaseCodecParams* params) {
  SmFakeScript& script = Script();
  ++script.initCalls;
  const MCL::Status status = MCL::VideoDecoder::Init(params);
  if (status != MCL::StatusOk) {
    return status;
  }
  auto* video = dynamic_cast<MCL::VideoDecoderParams*>(params);
  script.flags = video->flags;
  script.threads = video->numThreads;
  script.inputImageCount = GetInputImageCount();
  script.outputImageCount = GetOutputImageCount();
  script.hadPostProcessing = GetPostProcessing() != nullptr;
  script.initialData = video->initialData ? video->initialData->GetDataPointer() : nullptr;
  script.initialSize = video->initialData ? video->initialData->GetDataSize() : 0;
  return script.initStatus;
}

MCL::Status CmFakeMCLDecoder::GetFrame(MCL::MediaData* input, MCL::MediaData* output) {
  SmFakeScript& script = Script();
  ++script.getFrameCalls;
  script.inputs.push_back(input ? input->GetDataPointer() : nullptr);
  script.inputSizes.push_back(input ? input->GetDataSize() : 0);
  if (script.steps.empty()) {
    // Unscripted: a decoder that takes everything and waits for more.
    if (input != nullptr) {
      input->MoveDataPointer(input->GetDataSize());
    }
    return MCL::StatusNotEnoughData;
  }
  const SmFakeStep step = script.steps.front();
  script.steps.pop_front();
  if (input != nullptr) {
    input->MoveDataPointer(step.consume);
  }
  if (step.picture) {
    CmFakePictureBuffer picture(*step.picture);
    const MCL::Status processed = GetPostProcessing()->GetFrame(&picture.Data(), output);
    if (processed != MCL::StatusOk) {
      return processed;
    }
  }
  if (step.frameId >= 0) {
    output->SetFrameId(step.frameId);
  }
  return step.status;
}

MCL::Status CmFakeMCLDecoder::GetInfo(MCL::BaseCodecParams* params) {
  auto* video = dynamic_cast<MCL::VideoDecoderParams*>(params);
  if (video == nullptr) {
    return MCL::StatusNullPointer;
  }
  video->info.width = Script().infoWidth;
  video->info.height = Script().infoHeight;
  return Script().infoStatus;
}

MCL::Status CmFakeMCLDecoder::Close() {
  ++Script().closeCalls;
  return MCL::StatusOk;
}

MCL::Status CmFakeMCLDecoder::Reset() {
  ++Script().resetCalls;
  return Script().resetStatus;
}

} // namespace NmMCLTest
