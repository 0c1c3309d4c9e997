#pragma once

#include <memory>

#include "Codecs/H264/TaskSupplier.h"
#include "Codecs/MCL/MemoryAllocator.h"
#include "Codecs/MCL/VideoDecoder.h"

namespace MCL {

// The H.264 decoder as an MCL video decoder: parameter checks, the calling
// pattern and the catching of engine failures around the task supplier,
// which does the work.
class H264VideoDecoder : public VideoDecoder {
public:
  ~H264VideoDecoder() override;

  Status Init(BaseCodecParams* params) override;
  // Takes the input's units and hands the next picture that may leave to
  // the post-processing stage: 0 with a picture, -996 without. A null input
  // flushes.
  Status GetFrame(MediaData* input, MediaData* output) override;
  // The visible size and frame rate of the latest sequence.
  Status GetInfo(BaseCodecParams* params) override;
  Status Close() override;
  Status Reset() override;

private:
  Status Deliver(H264DecoderFrame& frame, MediaData* output);

  bool m_IsInitialised = false;
  std::unique_ptr<TaskSupplier> m_TaskSupplier;
  std::unique_ptr<DefaultMemoryAllocator> m_OwnedAllocator;
  MemoryAllocator* m_Allocator = nullptr;
};

} // namespace MCL
