#pragma once

#include <cstdint>
#include <cstring>
#include <memory>
#include <new>

#include "Codecs/Primitives/JPEGHuffman.h"
#include "MediaProcessing/JPEG/JPEGStatus.h"

// A Huffman table as DHT carries it (code counts and symbols) together with
// the form the coder works from. Decoder and encoder differ only in that form.
template <typename PrimitiveTable,
          bool (*BuildPrimitive)(const uint8_t[16], const uint8_t*, PrimitiveTable&)>
class CJPEGHuffmanTable {
public:
  // Allocates the primitive's table object; JStatusOutOfMemory when that fails.
  JStatus Create() {
    if (!m_Table) {
      m_Table.reset(new (std::nothrow) PrimitiveTable);
    }
    return m_Table ? JStatusOk : JStatusOutOfMemory;
  }

  // `values` holds as many symbols as `codeCounts` adds up to. -2 when the
  // counts do not describe a canonical code.
  JStatus Init(int tableId, int tableClassValue, const uint8_t codeCounts[16],
               const uint8_t* values) {
    initialized = false;
    if (!m_Table || tableId < 0 || tableId > 3 || tableClassValue < 0 || tableClassValue > 1 ||
        codeCounts == nullptr || values == nullptr) {
      return JStatusFailed;
    }
    int count = 0;
    for (int i = 0; i < 16; ++i) {
      count += codeCounts[i];
    }
    if (count > 256) {
      return JStatusPrimitiveFailed;
    }
    std::memcpy(bits, codeCounts, 16);
    std::memset(vals, 0, sizeof vals);
    std::memcpy(vals, values, static_cast<size_t>(count));
    if (!BuildPrimitive(bits, vals, *m_Table)) {
      return JStatusPrimitiveFailed;
    }
    id = tableId;
    tableClass = tableClassValue;
    initialized = true;
    return JStatusOk;
  }

  void Reset() { initialized = false; }
  const PrimitiveTable* GetTable() const { return m_Table.get(); }

  int id = 0;
  int tableClass = 0; // 0 DC (or lossless), 1 AC
  bool initialized = false;
  uint8_t bits[16] = {};
  uint8_t vals[256] = {};

private:
  std::unique_ptr<PrimitiveTable> m_Table;
};

// A table of the decoder, as read from DHT.
using CJPEGDecoderHuffmanTable =
    CJPEGHuffmanTable<NmPrimitives::SmHuffmanDecodeTable, &NmPrimitives::BuildHuffmanDecodeTable>;
// A table of the encoder: the code of every symbol.
using CJPEGEncoderHuffmanTable =
    CJPEGHuffmanTable<NmPrimitives::SmHuffmanEncodeTable, &NmPrimitives::BuildHuffmanEncodeTable>;
