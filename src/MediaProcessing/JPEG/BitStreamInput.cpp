#include "MediaProcessing/JPEG/BitStreamInput.h"

#include <cstring>

JStatus CBitStreamInput::Attach(CBaseStreamInput* stream, uint32_t bufferSize) {
  if (stream == nullptr || bufferSize == 0) {
    return JStatusFailed;
  }
  VZK_RETURN_IF_FAILED(EnsureBuffer(m_Buffer, m_BufferSize, bufferSize));
  m_Stream = stream;
  m_Filled = 0;
  m_Position = 0;
  m_EndOfStream = false;
  return JStatusOk;
}

void CBitStreamInput::Detach() {
  m_Stream = nullptr;
  m_Filled = 0;
  m_Position = 0;
  m_EndOfStream = false;
}

JStatus CBitStreamInput::FillBuffer(uint32_t needed) {
  if (m_Stream == nullptr) {
    return JStatusFailed;
  }
  if (needed != 0 && m_Filled - m_Position >= needed) {
    return JStatusOk;
  }
  const uint32_t remaining = m_Filled - m_Position;
  if (remaining > 0 && m_Position > 0) {
    std::memmove(m_Buffer.Data(), m_Buffer.Data() + m_Position, remaining);
  }
  m_Filled = remaining;
  m_Position = 0;
  if (!m_EndOfStream && m_Filled < m_BufferSize) {
    uint32_t read = 0;
    const JStatus status =
        m_Stream->Read(m_Buffer.Data() + m_Filled, m_BufferSize - m_Filled, read);
    if (read > m_BufferSize - m_Filled) {
      read = 0; // a misbehaving stream must not move us outside the buffer
    }
    m_Filled += read;
    if (status != JStatusOk || read < m_BufferSize - remaining) {
      m_EndOfStream = true;
    }
  }
  return m_Position < m_Filled ? JStatusOk : JStatusEndOfData;
}

JStatus CBitStreamInput::ReadByte(uint8_t& value) {
  if (m_Position >= m_Filled) {
    if (const JStatus status = FillBuffer(1); status != JStatusOk) {
      return status;
    }
  }
  value = m_Buffer.Data()[m_Position++];
  return JStatusOk;
}

JStatus CBitStreamInput::PeekByte(uint32_t offset, uint8_t& value) {
  if (offset >= m_BufferSize) {
    return JStatusEndOfData;
  }
  if (m_Filled - m_Position <= offset) {
    if (const JStatus status = FillBuffer(offset + 1); status != JStatusOk) {
      return status;
    }
    if (m_Filled - m_Position <= offset) {
      return JStatusEndOfData;
    }
  }
  value = m_Buffer.Data()[m_Position + offset];
  return JStatusOk;
}

JStatus CBitStreamInput::ReadWord(uint16_t& value) {
  uint8_t high = 0;
  uint8_t low = 0;
  if (const JStatus status = ReadByte(high); status != JStatusOk) {
    return status;
  }
  if (const JStatus status = ReadByte(low); status != JStatusOk) {
    return status;
  }
  value = static_cast<uint16_t>(high << 8 | low);
  return JStatusOk;
}

JStatus CBitStreamInput::Seek(int64_t offset, int origin) {
  if (m_Stream == nullptr) {
    return JStatusFailed;
  }
  if (origin == 0) {
    // Memory streams refuse origin 0 at their end, so go back by the
    // distance travelled instead.
    uint32_t travelled = 0;
    if (const JStatus status = m_Stream->TellPos(travelled); status != JStatusOk) {
      return status;
    }
    if (travelled > 0) {
      if (const JStatus status = m_Stream->Seek(-static_cast<int64_t>(travelled), 1);
          status != JStatusOk) {
        return status;
      }
    }
    m_Filled = 0;
    m_Position = 0;
    m_EndOfStream = false;
    return offset == 0 ? JStatusOk : Seek(offset, 1);
  }
  if (origin != 1) {
    return JStatusFailed;
  }
  if (offset < 0) {
    if (-offset > static_cast<int64_t>(m_Position)) {
      return JStatusEndOfData;
    }
    m_Position -= static_cast<uint32_t>(-offset);
    return JStatusOk;
  }
  uint64_t left = static_cast<uint64_t>(offset);
  while (left > m_Filled - m_Position) {
    left -= m_Filled - m_Position;
    m_Position = m_Filled;
    if (const JStatus status = FillBuffer(0); status != JStatusOk) {
      return status;
    }
  }
  m_Position += static_cast<uint32_t>(left);
  return JStatusOk;
}
