#pragma once

#include <cstddef>
#include <cstdint>

#include "MediaProcessing/JPEG/MemoryBuffer.h"

// One image component while a frame is coded: its identity and tables from
// the frame and scan headers, the DC prediction, and three working buffers
// that live as long as the frame.
class CJPEGColorComponent {
public:
  enum BufferRole { SampleRows = 0, Coefficients = 1, Scratch = 2, BufferCount = 3 };

  // Keeps the memory when it is already large enough.
  JStatus AllocateBuffer(BufferRole role, size_t size);
  uint8_t* GetBuffer(BufferRole role) const { return m_Buffers[role].Data(); }
  size_t GetBufferSize(BufferRole role) const { return m_BufferSizes[role]; }
  void FreeBuffer(BufferRole role);
  // At the end of a frame.
  void FreeBuffers();

  int id = 0;
  int hSampling = 1;
  int vSampling = 1;
  int quantSelector = 0;
  int dcSelector = 0;
  int acSelector = 0;
  int32_t lastDC = 0;

private:
  CMemoryBuffer m_Buffers[BufferCount];
  size_t m_BufferSizes[BufferCount] = {};
};
