#pragma once

#include <cstdint>

#include "MediaProcessing/JPEG/JPEGStatus.h"

// Scales a quantisation table by a quality of 1..100 (0 gives
// JStatusBadQuality): factor 5000 / q below 50, else 200 - 2 q; each entry
// becomes (v * factor + 50) / 100, limited to 1..maximum.
JStatus ScaleQuantTable(uint16_t table[64], int quality, uint16_t maximum);

// The decoder's quantisation table, as read from DQT.
class CJPEGDecoderQuantTable {
public:
  // `zigZag` is in stream order; precision 0 is 8-bit, 1 is 16-bit.
  JStatus Init(int tableId, const uint16_t zigZag[64], int tablePrecision);
  void Reset() { initialized = false; }

  int id = 0;
  int precision = 0;
  bool initialized = false;
  uint16_t raw[64] = {};
  // Natural (row-major) order, as the dequantisation primitive wants it.
  alignas(64) uint16_t natural[64] = {};
};

// The encoder's quantisation table.
class CJPEGEncoderQuantTable {
public:
  // `table` is in natural (row-major) order, as T.81 Annex K prints the
  // example tables. Quality 0 leaves the values as they are.
  JStatus Init(int tableId, const uint8_t table[64], int quality);
  // The 16-bit form (precision 1), for 12-bit samples.
  JStatus Init(int tableId, const uint16_t table[64], int quality);
  void Reset() { initialized = false; }

  int id = 0;
  int precision = 0;
  bool initialized = false;
  // Zig-zag order, as DQT carries it.
  uint16_t raw[64] = {};
  // Natural order, for the quantisation primitive.
  alignas(64) uint16_t natural[64] = {};

private:
  JStatus Prepare(int tableId, uint16_t values[64], int quality, int tablePrecision);
};
