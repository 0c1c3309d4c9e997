#include "MediaProcessing/JPEG/JPEGHuffmanTable.h"

#include <cstring>
#include <new>

namespace {
int CountSymbols(const uint8_t codeCounts[16]) {
  int count = 0;
  for (int i = 0; i < 16; ++i) {
    count += codeCounts[i];
  }
  return count;
}
} // namespace

JStatus CJPEGDecoderHuffmanTable::Create() {
  if (!m_Table) {
    m_Table.reset(new (std::nothrow) NmPrimitives::SmHuffmanDecodeTable);
  }
  return m_Table ? JStatusOk : JStatusOutOfMemory;
}

JStatus CJPEGDecoderHuffmanTable::Init(int tableId, int tableClassValue,
                                       const uint8_t codeCounts[16], const uint8_t* values) {
  initialized = false;
  if (!m_Table || tableId < 0 || tableId > 3 || tableClassValue < 0 || tableClassValue > 1 ||
      codeCounts == nullptr || values == nullptr) {
    return JStatusFailed;
  }
  const int count = CountSymbols(codeCounts);
  if (count > 256) {
    return JStatusPrimitiveFailed;
  }
  std::memcpy(bits, codeCounts, 16);
  std::memset(vals, 0, sizeof vals);
  std::memcpy(vals, values, static_cast<size_t>(count));
  if (!NmPrimitives::BuildHuffmanDecodeTable(bits, vals, *m_Table)) {
    return JStatusPrimitiveFailed;
  }
  id = tableId;
  tableClass = tableClassValue;
  initialized = true;
  return JStatusOk;
}

JStatus CJPEGEncoderHuffmanTable::Create() {
  if (!m_Table) {
    m_Table.reset(new (std::nothrow) NmPrimitives::SmHuffmanEncodeTable);
  }
  return m_Table ? JStatusOk : JStatusOutOfMemory;
}

JStatus CJPEGEncoderHuffmanTable::Init(int tableId, int tableClassValue,
                                       const uint8_t codeCounts[16], const uint8_t* values) {
  initialized = false;
  if (!m_Table || tableId < 0 || tableId > 3 || tableClassValue < 0 || tableClassValue > 1 ||
      codeCounts == nullptr || values == nullptr) {
    return JStatusFailed;
  }
  const int count = CountSymbols(codeCounts);
  if (count > 256) {
    return JStatusPrimitiveFailed;
  }
  std::memcpy(bits, codeCounts, 16);
  std::memset(vals, 0, sizeof vals);
  std::memcpy(vals, values, static_cast<size_t>(count));
  if (!NmPrimitives::BuildHuffmanEncodeTable(bits, vals, *m_Table)) {
    return JStatusPrimitiveFailed;
  }
  id = tableId;
  tableClass = tableClassValue;
  initialized = true;
  return JStatusOk;
}
