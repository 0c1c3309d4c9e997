#include "MediaProcessing/JPEG/MemBuffInput.h"

#include <cstring>

JStatus CMemBuffInput::Open(const uint8_t* data, uint32_t size) {
  if (data == nullptr) {
    return JStatusUnsupported;
  }
  m_Data = data;
  m_Size = size;
  m_Position = 0;
  return JStatusOk;
}

JStatus CMemBuffInput::Close() {
  m_Data = nullptr;
  m_Size = 0;
  m_Position = 0;
  return JStatusOk;
}

JStatus CMemBuffInput::Seek(int64_t offset, int origin) {
  // The range check uses the offset whatever the origin, so that a seek to
  // the start with a wild offset is refused like any other wild seek.
  const int64_t target = static_cast<int64_t>(m_Position) + offset;
  if (target < 0 || target >= static_cast<int64_t>(m_Size)) {
    return JStatusEndOfData;
  }
  switch (origin) {
  case 0:
    m_Position = 0;
    return JStatusOk;
  case 1:
    m_Position = static_cast<uint32_t>(target);
    return JStatusOk;
  case 2:
    m_Position = m_Size;
    return JStatusOk;
  default:
    return JStatusFailed;
  }
}

JStatus CMemBuffInput::Read(void* buffer, uint32_t size, uint32_t& bytesRead) {
  const uint32_t left = m_Size - m_Position;
  const uint32_t count = size < left ? size : left;
  if (count > 0) {
    std::memcpy(buffer, m_Data + m_Position, count);
  }
  m_Position += count;
  bytesRead = count;
  return count < size ? JStatusEndOfData : JStatusOk;
}

JStatus CMemBuffInput::TellPos(uint32_t& position) {
  position = m_Position;
  return JStatusOk;
}
