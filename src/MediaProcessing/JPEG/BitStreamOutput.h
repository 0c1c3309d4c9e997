#pragma once

#include <cstddef>
#include <cstdint>

#include "MediaProcessing/JPEG/BaseStream.h"
#include "MediaProcessing/JPEG/MemoryBuffer.h"

// A buffered byte writer over a CBaseStreamOutput: bytes collect in one
// buffer and reach the stream only when it is full or flushed.
class CBitStreamOutput {
public:
  static constexpr uint32_t DefaultBufferSize = 64 * 1024;

  JStatus Attach(CBaseStreamOutput* stream, uint32_t bufferSize = DefaultBufferSize);
  // Forgets the stream without flushing.
  void Detach();

  JStatus WriteByte(uint8_t value);
  JStatus WriteWord(uint16_t value);
  JStatus Flush();

  // For an entropy coder that writes in bulk: a pointer with at least `size`
  // free bytes behind it (flushing first if need be), then Commit what was
  // written. `size` must not exceed the buffer size.
  JStatus Reserve(uint32_t size, uint8_t*& space);
  void Commit(uint32_t size) { m_Filled += size <= m_BufferSize - m_Filled ? size : 0; }
  uint32_t GetBufferSize() const { return m_BufferSize; }

private:
  CBaseStreamOutput* m_Stream = nullptr;
  CMemoryBuffer m_Buffer;
  uint32_t m_BufferSize = 0;
  uint32_t m_Filled = 0;
};
