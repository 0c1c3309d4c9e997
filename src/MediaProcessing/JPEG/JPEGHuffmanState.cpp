#include "MediaProcessing/JPEG/JPEGHuffmanState.h"

#include <new>

JStatus CJPEGDecoderHuffmanState::Create() {
  if (!m_State) {
    m_State.reset(new (std::nothrow) NmPrimitives::SmHuffmanDecodeState);
  }
  return m_State ? JStatusOk : JStatusOutOfMemory;
}

void CJPEGDecoderHuffmanState::Reset() {
  if (m_State) {
    *m_State = NmPrimitives::SmHuffmanDecodeState{};
  }
}

JStatus CJPEGEncoderHuffmanState::Create() {
  if (!m_State) {
    m_State.reset(new (std::nothrow) SmHuffmanEncodeState);
  }
  return m_State ? JStatusOk : JStatusOutOfMemory;
}

void CJPEGEncoderHuffmanState::Reset() {
  if (m_State) {
    *m_State = SmHuffmanEncodeState{};
  }
}
