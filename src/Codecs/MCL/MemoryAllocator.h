#pragma once

#include <cstddef>

#include "Codecs/MCL/Status.h"

namespace MCL {

// Where a codec takes its large buffers from, so that a host can hand it a
// pool of its own.
class MemoryAllocator {
public:
  virtual ~MemoryAllocator() = default;
  // alignment is a power of two; on failure *memory is null and the status
  // is StatusNoMemory.
  virtual Status Allocate(void** memory, size_t size, size_t alignment) = 0;
  virtual void Free(void* memory) = 0;
};

// The heap, through aligned allocation.
class DefaultMemoryAllocator : public MemoryAllocator {
public:
  Status Allocate(void** memory, size_t size, size_t alignment) override;
  void Free(void* memory) override;
};

} // namespace MCL
