#pragma once

#include <cstdint>
#include <memory>

#include "Codecs/Primitives/JPEGHuffman.h"
#include "MediaProcessing/JPEG/JPEGStatus.h"

// The bit-level state of the entropy decoder between calls.
class CJPEGDecoderHuffmanState {
public:
  JStatus Create();
  void Reset();
  NmPrimitives::SmHuffmanDecodeState* Get() const { return m_State.get(); }

private:
  std::unique_ptr<NmPrimitives::SmHuffmanDecodeState> m_State;
};

// The bit-level state of the entropy encoder between calls: bits that do not
// yet fill a byte.
struct SmHuffmanEncodeState {
  uint64_t bits = 0; // right-aligned pending bits
  int count = 0;     // number of pending bits
};

class CJPEGEncoderHuffmanState {
public:
  JStatus Create();
  void Reset();
  SmHuffmanEncodeState* Get() const { return m_State.get(); }

private:
  std::unique_ptr<SmHuffmanEncodeState> m_State;
};
