#include "Common/BitStream/BitStream.h"

#include <algorithm>
#include <cstring>

#include "Common/Error/Precondition.h"

namespace NmBitStream {

CmReadBuffer::~CmReadBuffer() {
  m_Data = nullptr;
  m_Size = 0;
  m_Position = 0;
}

size_t CmReadBuffer::Read(void* buffer, size_t size, Mode mode) {
  VZK_REQUIRE_AS(CmBitStreamError, mode != NonBlocking,
                 "Only blocking mode is supported by CmReadBuffer", 0);
  VZK_REQUIRE_AS(CmBitStreamError, m_Data != nullptr, "No data has been set", 1);
  const size_t count = std::min(size, m_Size - m_Position);
  if (count > 0) {
    std::memcpy(buffer, m_Data + m_Position, count);
  }
  m_Position += count;
  return count;
}

CmBitReader::CmBitReader(NmCommon::ImInputStream& stream) : m_Stream(&stream) {
  if (m_Stream->Read(&m_Current, 1, NmCommon::ImStreamTypes::Blocking) == 1) {
    m_BitPosition = 0;
    m_BytesRead = 1;
  } else {
    // An empty source: every later read fails at its first bit.
    m_Stream = nullptr;
    m_BitPosition = 8;
    m_BytesRead = 0;
  }
}

uint32_t CmBitReader::ReadBits(unsigned count) {
  VZK_REQUIRE_AS(CmBitStreamError, count <= 32, "Cannot read more than 32 bits at the time", 2);
  uint32_t result = 0;
  for (unsigned i = 1; i <= count; ++i) {
    if (m_BitPosition == 8) {
      // The position moves into the new byte only once it has arrived: a
      // failed read must not leave the bits of the old byte to be read again.
      VZK_REQUIRE_AS(CmBitStreamError,
                     m_Stream != nullptr &&
                         m_Stream->Read(&m_Current, 1, NmCommon::ImStreamTypes::Blocking) == 1,
                     "Unable to read from input stream", 1);
      m_BitPosition = 0;
      ++m_BytesRead;
    }
    const uint32_t bit = (m_Current >> (7 - m_BitPosition)) & 1u;
    result |= bit << (count - i);
    ++m_BitPosition;
  }
  return result;
}

void CmBitReader::ByteAlign() {
  m_BitPosition = 8;
  m_Current = 0;
}

} // namespace NmBitStream
