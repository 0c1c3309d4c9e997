#include "Codecs/MCL/MediaData.h"

namespace MCL {

void MediaData::SetDataSize(size_t size) {
  const size_t available =
      m_Buffer == nullptr ? 0 : m_BufferSize - static_cast<size_t>(m_Data - m_Buffer);
  m_DataSize = size < available ? size : available;
}

void MediaData::MoveDataPointer(size_t count) {
  if (count > m_DataSize) {
    count = m_DataSize;
  }
  m_Data += count;
  m_DataSize -= count;
}

} // namespace MCL
