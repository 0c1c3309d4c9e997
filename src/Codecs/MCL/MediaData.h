#pragma once

#include <cstddef>
#include <cstdint>

namespace MCL {

// A buffer of coded data, or the description of a decoded picture, with the
// part of it that is still to be read. Codecs move the data pointer forward as
// they consume.
class MediaData {
public:
  virtual ~MediaData() = default;

  // The whole buffer; the data part starts at its beginning and is empty.
  void SetBufferPointer(const uint8_t* buffer, size_t size) {
    m_Buffer = buffer;
    m_BufferSize = size;
    m_Data = buffer;
    m_DataSize = 0;
  }
  const uint8_t* GetBufferPointer() const { return m_Buffer; }
  size_t GetBufferSize() const { return m_BufferSize; }

  const uint8_t* GetDataPointer() const { return m_Data; }
  size_t GetDataSize() const { return m_DataSize; }
  // Capped at what the buffer holds behind the data pointer.
  void SetDataSize(size_t size);
  // Consumes up to `count` bytes of the data part.
  void MoveDataPointer(size_t count);

  // Seconds; negative means unknown.
  double GetTime() const { return m_Time; }
  void SetTime(double seconds) { m_Time = seconds; }

  // The caller's id of the frame; -1 when none.
  int32_t GetFrameId() const { return m_FrameId; }
  void SetFrameId(int32_t id) { m_FrameId = id; }

private:
  const uint8_t* m_Buffer = nullptr;
  size_t m_BufferSize = 0;
  const uint8_t* m_Data = nullptr;
  size_t m_DataSize = 0;
  double m_Time = -1.0;
  int32_t m_FrameId = -1;
};

} // namespace MCL
