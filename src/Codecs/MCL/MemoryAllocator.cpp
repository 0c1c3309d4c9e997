#include "Codecs/MCL/MemoryAllocator.h"

#include <cstdlib>

namespace MCL {

Status DefaultMemoryAllocator::Allocate(void** memory, size_t size, size_t alignment) {
  if (memory == nullptr) {
    return StatusNullPointer;
  }
  *memory = nullptr;
  if (alignment < alignof(std::max_align_t)) {
    alignment = alignof(std::max_align_t);
  }
  if ((alignment & (alignment - 1)) != 0) {
    return StatusFailed;
  }
  // aligned_alloc wants a size that is a multiple of the alignment.
  const size_t rounded = (size + alignment - 1) / alignment * alignment;
  if (rounded < size) {
    return StatusNoMemory;
  }
  *memory = std::aligned_alloc(alignment, rounded == 0 ? alignment : rounded);
  return *memory == nullptr ? StatusNoMemory : StatusOk;
}

void DefaultMemoryAllocator::Free(void* memory) {
  std::free(memory);
}

} // namespace MCL
