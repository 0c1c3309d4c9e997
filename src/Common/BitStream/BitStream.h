#pragma once

#include <cstddef>
#include <cstdint>

#include "Common/Error/Error.h"

namespace NmCommon {

struct ImStreamTypes {
  enum Mode : uint32_t { Default = 0, Blocking = 1, NonBlocking = 2 };
  virtual ~ImStreamTypes() = default;
};

// A source of bytes.
class ImInputStream : public virtual ImStreamTypes {
public:
  ~ImInputStream() override = default;
  virtual size_t Read(void* buffer, size_t size, Mode mode) = 0;
};

} // namespace NmCommon

namespace NmBitStream {

struct CmBitStreamErrorTag;
using CmBitStreamError = NmError::CmCodedError<CmBitStreamErrorTag>;

// Bytes from memory that the caller keeps alive.
class CmReadBuffer : public NmCommon::ImInputStream {
public:
  CmReadBuffer(const void* data, size_t size)
      : m_Data(static_cast<const uint8_t*>(data)), m_Size(size) {}
  ~CmReadBuffer() override;
  size_t Read(void* buffer, size_t size, Mode mode) override;

private:
  const uint8_t* m_Data;
  size_t m_Size;
  size_t m_Position = 0;
};

// Bit fields, most significant bit first, from any byte source.
class CmBitReader {
public:
  explicit CmBitReader(NmCommon::ImInputStream& stream);
  uint32_t ReadBits(unsigned count);
  void ByteAlign();
  // Bits consumed so far.
  int64_t GetBitPosition() const {
    return static_cast<int64_t>(m_BytesRead * 8 + m_BitPosition) - 8;
  }

private:
  NmCommon::ImInputStream* m_Stream;
  unsigned m_BitPosition = 8;
  uint8_t m_Current = 0;
  uint64_t m_BytesRead = 0;
};

} // namespace NmBitStream
