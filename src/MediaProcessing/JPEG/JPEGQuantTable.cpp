#include "MediaProcessing/JPEG/JPEGQuantTable.h"

#include "Codecs/Primitives/JPEGTables.h"

using NmPrimitives::kJPEGNaturalOrder;

JStatus ScaleQuantTable(uint16_t table[64], int quality, uint16_t maximum) {
  if (quality <= 0 || quality > 100) {
    return JStatusBadQuality;
  }
  const uint32_t factor = quality < 50 ? 5000u / static_cast<uint32_t>(quality)
                                       : 200u - 2u * static_cast<uint32_t>(quality);
  for (int i = 0; i < 64; ++i) {
    uint32_t value = (table[i] * factor + 50) / 100;
    value = value < 1 ? 1 : value > maximum ? maximum : value;
    table[i] = static_cast<uint16_t>(value);
  }
  return JStatusOk;
}

void CJPEGQuantTable::Store(int tableId, int tablePrecision, const uint16_t zigZag[64]) {
  for (int k = 0; k < 64; ++k) {
    raw[k] = zigZag[k];
    natural[kJPEGNaturalOrder[k]] = zigZag[k];
  }
  id = tableId;
  precision = tablePrecision;
  initialized = true;
}

JStatus CJPEGDecoderQuantTable::Init(int tableId, const uint16_t zigZag[64], int tablePrecision) {
  initialized = false;
  if (tableId < 0 || tableId > 3 || tablePrecision < 0 || tablePrecision > 1) {
    return JStatusFailed;
  }
  Store(tableId, tablePrecision, zigZag);
  return JStatusOk;
}

JStatus CJPEGEncoderQuantTable::Init(int tableId, const uint8_t table[64], int quality) {
  return Prepare(tableId, table, quality, 0);
}

JStatus CJPEGEncoderQuantTable::Init(int tableId, const uint16_t table[64], int quality) {
  return Prepare(tableId, table, quality, 1);
}

template <typename Value>
JStatus CJPEGEncoderQuantTable::Prepare(int tableId, const Value table[64], int quality,
                                        int tablePrecision) {
  initialized = false;
  if (tableId < 0 || tableId > 3) {
    return JStatusFailed;
  }
  uint16_t values[64];
  for (int i = 0; i < 64; ++i) {
    values[i] = table[i];
  }
  if (quality != 0 &&
      ScaleQuantTable(values, quality, tablePrecision == 0 ? 255 : 32767) != JStatusOk) {
    return JStatusPrimitiveFailed;
  }
  uint16_t zigZag[64];
  for (int k = 0; k < 64; ++k) {
    zigZag[k] = values[kJPEGNaturalOrder[k]];
    if (zigZag[k] == 0) {
      return JStatusPrimitiveFailed; // a zero step cannot quantise
    }
  }
  Store(tableId, tablePrecision, zigZag);
  return JStatusOk;
}
