#pragma once

#include <cstdint>

#include "MediaProcessing/JPEG/JPEGStatus.h"

// Scales a quantisation table by a quality of 1..100 (0 gives
// JStatusBadQuality): factor 5000 / q below 50, else 200 - 2 q; each entry
// becomes (v * factor + 50) / 100, limited to 1..maximum.
JStatus ScaleQuantTable(uint16_t table[64], int quality, uint16_t maximum);

// What both sides keep of a quantisation table: its values in zig-zag order,
// as DQT carries them, and in natural (row-major) order, as the
// (de)quantisation primitives want them.
class CJPEGQuantTable {
public:
  void Reset() { initialized = false; }

  int id = 0;
  int precision = 0;
  bool initialized = false;
  uint16_t raw[64] = {};
  alignas(64) uint16_t natural[64] = {};

protected:
  void Store(int tableId, int tablePrecision, const uint16_t zigZag[64]);
};

// The decoder's quantisation table, as read from DQT.
class CJPEGDecoderQuantTable : public CJPEGQuantTable {
public:
  // `zigZag` is in stream order; precision 0 is 8-bit, 1 is 16-bit.
  JStatus Init(int tableId, const uint16_t zigZag[64], int tablePrecision);
};

// The encoder's quantisation table.
class CJPEGEncoderQuantTable : public CJPEGQuantTable {
public:
  // `table` is in natural (row-major) order, as T.81 Annex K prints the
  // example tables. Quality 0 leaves the values as they are.
  JStatus Init(int tableId, const uint8_t table[64], int quality);
  // The 16-bit form (precision 1), for 12-bit samples.
  JStatus Init(int tableId, const uint16_t table[64], int quality);

private:
  template <typename Value>
  JStatus Prepare(int tableId, const Value table[64], int quality, int tablePrecision);
};
