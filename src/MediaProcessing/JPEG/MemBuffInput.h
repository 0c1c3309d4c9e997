#pragma once

#include <cstdint>

#include "MediaProcessing/JPEG/BaseStream.h"

// Reads from memory that the caller keeps alive for as long as the stream is open.
class CMemBuffInput : public CBaseStreamInput {
public:
  // Memory needs its address: the argument-free form cannot open anything.
  JStatus Open() override { return JStatusFailed; }
  JStatus Open(const uint8_t* data, uint32_t size);
  JStatus Close() override;
  JStatus Seek(int64_t offset, int origin) override;
  JStatus Read(void* buffer, uint32_t size, uint32_t& bytesRead) override;
  JStatus TellPos(uint32_t& position) override;

private:
  const uint8_t* m_Data = nullptr;
  uint32_t m_Size = 0;
  uint32_t m_Position = 0;
};
