#include "MediaProcessing/JPEG/JPEGColorComponent.h"

JStatus CJPEGColorComponent::AllocateBuffer(BufferRole role, size_t size) {
  if (m_Buffers[role] && m_BufferSizes[role] >= size) {
    return JStatusOk;
  }
  m_BufferSizes[role] = 0;
  if (const JStatus status = m_Buffers[role].Allocate(size); status != JStatusOk) {
    return status;
  }
  m_BufferSizes[role] = size;
  return JStatusOk;
}

void CJPEGColorComponent::FreeBuffer(BufferRole role) {
  m_Buffers[role].Free();
  m_BufferSizes[role] = 0;
}

void CJPEGColorComponent::FreeBuffers() {
  for (int role = 0; role < BufferCount; ++role) {
    FreeBuffer(static_cast<BufferRole>(role));
  }
}
