#pragma once

#include <cstddef>
#include <cstdint>

#include "MediaProcessing/JPEG/JPEGStatus.h"

// An owned, vector-aligned block of bytes. The user class keeps the size it
// asked for; this only owns the memory.
class CMemoryBuffer {
public:
  CMemoryBuffer() = default;
  ~CMemoryBuffer();
  CMemoryBuffer(const CMemoryBuffer&) = delete;
  CMemoryBuffer& operator=(const CMemoryBuffer&) = delete;

  // Frees the old block first; JStatusOutOfMemory leaves the buffer empty.
  JStatus Allocate(size_t size);
  void Free();
  uint8_t* Data() const { return m_Data; }
  explicit operator bool() const { return m_Data != nullptr; }

private:
  uint8_t* m_Data = nullptr;
};

// A stream's buffer of `size` bytes, kept when it already has that size.
// `held` is the size the stream keeps beside the buffer: 0 after a failure.
JStatus EnsureBuffer(CMemoryBuffer& buffer, uint32_t& held, uint32_t size);
