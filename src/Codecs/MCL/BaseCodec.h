#pragma once

#include "Codecs/MCL/MediaData.h"
#include "Codecs/MCL/MemoryAllocator.h"
#include "Codecs/MCL/Status.h"

namespace MCL {

struct BaseCodecParams {
  virtual ~BaseCodecParams() = default;
  // Null: the codec uses a DefaultMemoryAllocator of its own.
  MemoryAllocator* allocator = nullptr;
};

// The calling pattern of every codec: Init, then GetFrame as often as there
// is data, GetInfo for what the stream says, Reset to start afresh, Close.
class BaseCodec {
public:
  virtual ~BaseCodec() = default;
  virtual Status Init(BaseCodecParams* params) = 0;
  // A null input flushes what the codec still holds.
  virtual Status GetFrame(MediaData* input, MediaData* output) = 0;
  virtual Status GetInfo(BaseCodecParams* params) = 0;
  virtual Status Close() = 0;
  virtual Status Reset() = 0;
};

} // namespace MCL
