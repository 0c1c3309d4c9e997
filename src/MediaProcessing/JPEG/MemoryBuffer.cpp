#include "MediaProcessing/JPEG/MemoryBuffer.h"

#include <hwy/aligned_allocator.h>

CMemoryBuffer::~CMemoryBuffer() {
  Free();
}

JStatus CMemoryBuffer::Allocate(size_t size) {
  Free();
  // Zero bytes still get a block, so that a successful Allocate always leaves
  // a usable pointer.
  m_Data = static_cast<uint8_t*>(hwy::AllocateAlignedBytes(size == 0 ? 1 : size, nullptr, nullptr));
  return m_Data == nullptr ? JStatusOutOfMemory : JStatusOk;
}

void CMemoryBuffer::Free() {
  if (m_Data != nullptr) {
    hwy::FreeAlignedBytes(m_Data, nullptr, nullptr);
    m_Data = nullptr;
  }
}

JStatus EnsureBuffer(CMemoryBuffer& buffer, uint32_t& held, uint32_t size) {
  if (buffer && held == size) {
    return JStatusOk;
  }
  held = 0;
  VZK_RETURN_IF_FAILED(buffer.Allocate(size));
  held = size;
  return JStatusOk;
}
