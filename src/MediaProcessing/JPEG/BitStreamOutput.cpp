#include "MediaProcessing/JPEG/BitStreamOutput.h"

JStatus CBitStreamOutput::Attach(CBaseStreamOutput* stream, uint32_t bufferSize) {
  if (stream == nullptr || bufferSize == 0) {
    return JStatusFailed;
  }
  VZK_RETURN_IF_FAILED(EnsureBuffer(m_Buffer, m_BufferSize, bufferSize));
  m_Stream = stream;
  m_Filled = 0;
  return JStatusOk;
}

void CBitStreamOutput::Detach() {
  m_Stream = nullptr;
  m_Filled = 0;
}

JStatus CBitStreamOutput::WriteByte(uint8_t value) {
  if (m_Filled == m_BufferSize) {
    if (const JStatus status = Flush(); status != JStatusOk) {
      return status;
    }
  }
  m_Buffer.Data()[m_Filled++] = value;
  return JStatusOk;
}

JStatus CBitStreamOutput::WriteWord(uint16_t value) {
  if (const JStatus status = WriteByte(static_cast<uint8_t>(value >> 8)); status != JStatusOk) {
    return status;
  }
  return WriteByte(static_cast<uint8_t>(value));
}

JStatus CBitStreamOutput::Flush() {
  if (m_Stream == nullptr) {
    return JStatusFailed;
  }
  if (m_Filled == 0) {
    return JStatusOk;
  }
  uint32_t written = 0;
  const JStatus status = m_Stream->Write(m_Buffer.Data(), m_Filled, written);
  if (status != JStatusOk) {
    return status;
  }
  if (written != m_Filled) {
    return JStatusEndOfData;
  }
  m_Filled = 0;
  return JStatusOk;
}

JStatus CBitStreamOutput::Reserve(uint32_t size, uint8_t*& space) {
  space = nullptr;
  if (size > m_BufferSize) {
    return JStatusFailed;
  }
  if (m_BufferSize - m_Filled < size) {
    if (const JStatus status = Flush(); status != JStatusOk) {
      return status;
    }
  }
  space = m_Buffer.Data() + m_Filled;
  return JStatusOk;
}
