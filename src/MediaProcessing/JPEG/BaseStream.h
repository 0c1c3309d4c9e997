#pragma once

#include <cstdint>

#include "MediaProcessing/JPEG/JPEGStatus.h"

// The byte sources and sinks that the JPEG codec reads from and writes to.
class CBaseStream {
public:
  virtual ~CBaseStream() = default;
  virtual JStatus Open() = 0;
  virtual JStatus Close() = 0;
};

class CBaseStreamInput : public CBaseStream {
public:
  // Origin 0 is the start, 1 the current position, 2 the end.
  virtual JStatus Seek(int64_t offset, int origin) = 0;
  virtual JStatus Read(void* buffer, uint32_t size, uint32_t& bytesRead) = 0;
  virtual JStatus TellPos(uint32_t& position) = 0;
};

class CBaseStreamOutput : public CBaseStream {
public:
  virtual JStatus Write(const void* buffer, uint32_t size, uint32_t& bytesWritten) = 0;
};
