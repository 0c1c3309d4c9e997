#pragma once

#include <cstddef>
#include <cstdint>

#include "MediaProcessing/JPEG/BaseStream.h"
#include "MediaProcessing/JPEG/MemoryBuffer.h"

// A buffered byte reader over a CBaseStreamInput. The per-byte operations and
// the entropy decoder work on the buffer alone; the stream is only called when
// the buffer runs dry.
class CBitStreamInput {
public:
  static constexpr uint32_t DefaultBufferSize = 64 * 1024;

  JStatus Attach(CBaseStreamInput* stream, uint32_t bufferSize = DefaultBufferSize);
  void Detach();

  // Makes sure that `needed` bytes lie after the position (as far as the
  // stream has them); 0 always refills. -4 when nothing is left.
  JStatus FillBuffer(uint32_t needed);

  JStatus ReadByte(uint8_t& value);
  JStatus PeekByte(uint32_t offset, uint8_t& value);
  JStatus ReadWord(uint16_t& value);
  // Origin 1 (from the position) may skip past the buffer; origin 0 rewinds the
  // stream itself.
  JStatus Seek(int64_t offset, int origin);

  // Direct access for the entropy decoder, which reads bytes in bulk.
  const uint8_t* GetData() const { return m_Buffer.Data(); }
  uint32_t GetPosition() const { return m_Position; }
  uint32_t GetFilled() const { return m_Filled; }
  void SetPosition(uint32_t position) { m_Position = position <= m_Filled ? position : m_Filled; }
  bool IsEndOfStream() const { return m_EndOfStream; }
  uint32_t GetBufferSize() const { return m_BufferSize; }

private:
  CBaseStreamInput* m_Stream = nullptr;
  CMemoryBuffer m_Buffer;
  uint32_t m_BufferSize = 0;
  uint32_t m_Filled = 0;
  uint32_t m_Position = 0;
  bool m_EndOfStream = false;
};
