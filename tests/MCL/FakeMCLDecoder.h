#pragma once

#include <cstdint>
#include <deque>
#include <optional>
#include <vector>

#include "Codecs/MCL/VideoData.h"
#include "Codecs/MCL/VideoDecoder.h"

namespace NmMCLTest {

// A picture the fake hands to the post-processing stage. Its samples follow a
// pattern that differs per plane, and rows are padded, so that a copy that
// ignores the pitch or swaps planes shows.
struct SmFakePicture {
  MCL::ColorFormat format = MCL::YUV420;
  int32_t width = 16;
  int32_t height = 8;
  double time = 1.0;
  MCL::PictureStructure structure = MCL::Frame;
  int32_t aspectHorizontal = 1;
  int32_t aspectVertical = 1;
};

// What one GetFrame call does.
struct SmFakeStep {
  MCL::Status status = MCL::StatusNotEnoughData;
  size_t consume = 0;
  std::optional<SmFakePicture> picture;
  // Set on the output when >= 0.
  int32_t frameId = -1;
};

// Scripted behaviour and a record of what the adapter did. One per process,
// because the adapter makes its decoders itself; tests reset it.
struct SmFakeScript {
  // Once they run out, each call consumes all input and answers -996.
  std::deque<SmFakeStep> steps;
  MCL::Status initStatus = MCL::StatusOk;
  MCL::Status resetStatus = MCL::StatusOk;
  MCL::Status infoStatus = MCL::StatusOk;
  int32_t infoWidth = 0;
  int32_t infoHeight = 0;

  int initCalls = 0;
  int resetCalls = 0;
  int closeCalls = 0;
  int getFrameCalls = 0;
  uint32_t flags = 0;
  int32_t threads = -1;
  int32_t inputImageCount = 0;
  int32_t outputImageCount = 0;
  bool hadPostProcessing = false;
  const uint8_t* initialData = nullptr;
  size_t initialSize = 0;
  // Per GetFrame call: the input's data pointer and size; null for a flush.
  std::vector<const uint8_t*> inputs;
  std::vector<size_t> inputSizes;
};

SmFakeScript& Script();

// Holds the planes of one picture.
class CmFakePictureBuffer {
public:
  explicit CmFakePictureBuffer(const SmFakePicture& picture);
  MCL::VideoData& Data() { return m_Data; }

private:
  MCL::VideoData m_Data;
  std::vector<std::vector<uint8_t>> m_Planes;
};

class CmFakeMCLDecoder : public MCL::VideoDecoder {
public:
  ~CmFakeMCLDecoder() override = default;
  MCL::Status Init(MCL::BaseCodecParams* params) override;
  MCL::Status GetFrame(MCL::MediaData* input, MCL::MediaData* output) override;
  MCL::Status GetInfo(MCL::BaseCodecParams* params) override;
  MCL::Status Close() override;
  MCL::Status Reset() override;
};

} // namespace NmMCLTest
