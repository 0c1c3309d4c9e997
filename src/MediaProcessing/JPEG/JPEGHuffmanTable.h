#pragma once

#include <cstdint>
#include <memory>

#include "Codecs/Primitives/JPEGHuffman.h"
#include "MediaProcessing/JPEG/JPEGStatus.h"

// A Huffman table of the decoder, as read from DHT.
class CJPEGDecoderHuffmanTable {
public:
  // Allocates the primitive's table object; JStatusOutOfMemory when that fails.
  JStatus Create();
  // `values` holds as many symbols as `codeCounts` adds up to. -2 when the
  // counts do not describe a canonical code.
  JStatus Init(int tableId, int tableClassValue, const uint8_t codeCounts[16],
               const uint8_t* values);
  void Reset() { initialized = false; }
  const NmPrimitives::SmHuffmanDecodeTable* GetTable() const { return m_Table.get(); }

  int id = 0;
  int tableClass = 0; // 0 DC (or lossless), 1 AC
  bool initialized = false;
  uint8_t bits[16] = {};
  uint8_t vals[256] = {};

private:
  std::unique_ptr<NmPrimitives::SmHuffmanDecodeTable> m_Table;
};

// A Huffman table of the encoder: the code of every symbol.
class CJPEGEncoderHuffmanTable {
public:
  JStatus Create();
  JStatus Init(int tableId, int tableClassValue, const uint8_t codeCounts[16],
               const uint8_t* values);
  void Reset() { initialized = false; }
  const NmPrimitives::SmHuffmanEncodeTable* GetTable() const { return m_Table.get(); }

  int id = 0;
  int tableClass = 0;
  bool initialized = false;
  uint8_t bits[16] = {};
  uint8_t vals[256] = {};

private:
  std::unique_ptr<NmPrimitives::SmHuffmanEncodeTable> m_Table;
};
