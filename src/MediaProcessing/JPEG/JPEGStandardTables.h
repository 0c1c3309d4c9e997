#pragma once

#include <cstdint>

// The example tables of ITU-T T.81 Annex K that a baseline encoder uses when
// it does not optimise its own: quantisation in natural order (K.1, K.2) and
// the Huffman tables as code counts per length and symbols (K.3 to K.6).
namespace NmJPEGStandardTables {

extern const uint8_t LuminanceQuant[64];
extern const uint8_t ChrominanceQuant[64];

struct SmHuffmanSpec {
  uint8_t bits[16];
  const uint8_t* values;
};

extern const SmHuffmanSpec LuminanceDC;
extern const SmHuffmanSpec ChrominanceDC;
extern const SmHuffmanSpec LuminanceAC;
extern const SmHuffmanSpec ChrominanceAC;

// Number of symbols of a table: the sum of its code counts.
int SymbolCount(const SmHuffmanSpec& spec);

} // namespace NmJPEGStandardTables
