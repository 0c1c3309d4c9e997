#pragma once

#include <cstddef>
#include <cstdint>

// Huffman coding of JPEG (ITU-T T.81 Annex C and F.2.2, G.2) on the decoding
// side: table construction, the bit reader over entropy-coded bytes and the
// block decoders of the sequential, progressive and lossless processes.
// Entropy decoding is serial by nature, so there is no vector version; the
// fast path is a lookup table on the next bits, and the reference decodes bit
// by bit as T.81 F.2.2.3 describes. The encoding side's table form is here
// too, because the codec's table classes own both.
namespace NmPrimitives {

constexpr int kHuffmanLookupBits = 9;

struct SmHuffmanDecodeTable {
  // Indexed by the next kHuffmanLookupBits bits: code length << 8 | symbol,
  // or 0 when the code is longer.
  uint16_t lookup[1 << kHuffmanLookupBits];
  // Largest code of each length 1..16, -1 when there is none; entry 17 stops
  // the search for codes that do not exist.
  int32_t maxCode[18];
  // Index into `values` of a code of length l is code + valueOffset[l].
  int32_t valueOffset[17];
  uint8_t values[256];
  // For AC decoding: code and extra bits together when both fit in the
  // lookup bits and the value fits in a byte: value << 8 | run << 4 |
  // total length; 0 otherwise. End of block (value and run 0) and a run of
  // 16 zeros (value 0, run 15) are there too when their codes fit.
  int16_t acLookup[1 << kHuffmanLookupBits];
  // Lengths 1..16 as in the stream, kept for the bit-wise reference.
  uint8_t bits[16];
};

// Code and length of each symbol, for the encoder.
struct SmHuffmanEncodeTable {
  uint16_t code[256];
  uint8_t size[256]; // 0: the symbol has no code
};

// What the bit reader keeps between calls.
struct SmHuffmanDecodeState {
  uint64_t bits = 0; // left-aligned: the next bit is bit 63
  int count = 0;     // valid bits in `bits`
  // A marker that stopped the reader (its second byte), 0 while none. The
  // reader then feeds zero bits, as T.81 expects of a decoder at a marker.
  uint8_t marker = 0;
  // Zero bytes fed because the data ran out or a marker came.
  uint32_t paddingBytes = 0;
  // Progressive AC: blocks still to skip in the current end-of-band run.
  uint32_t endOfBandRun = 0;
};

// The bytes in reach of the reader; the position moves as bytes are taken.
struct SmEntropySource {
  const uint8_t* data = nullptr;
  size_t size = 0;
  size_t position = 0;
};

// False when the table is not a valid canonical code: more than 256 symbols,
// or more codes of some length than that length allows.
bool BuildHuffmanDecodeTable(const uint8_t bits[16], const uint8_t* values,
                             SmHuffmanDecodeTable& table);
bool BuildHuffmanEncodeTable(const uint8_t bits[16], const uint8_t* values,
                             SmHuffmanEncodeTable& table);

// Drops buffered bits and the marker, as at a restart marker.
inline void ResetHuffmanState(SmHuffmanDecodeState& state) {
  state = SmHuffmanDecodeState{};
}

// True when the decoder has used bits that lie past the end of the data or
// beyond a marker: the segment was shorter than the picture needs.
inline bool HuffmanReadPastEnd(const SmHuffmanDecodeState& state) {
  return static_cast<int64_t>(state.paddingBytes) * 8 > state.count;
}

// The block decoders. Coefficients are written in natural order into a block
// that the caller has cleared (sequential) or that holds the earlier scans
// (progressive). A false answer means a code that the table does not have.
bool DecodeBlockSequential(SmEntropySource& source, SmHuffmanDecodeState& state,
                           const SmHuffmanDecodeTable& dc, const SmHuffmanDecodeTable& ac,
                           int16_t* block, int32_t& lastDC);
// Decodes and checks the AC codes without storing them: for the 1/8 scale,
// which only needs DC.
bool DecodeBlockSequentialDCOnly(SmEntropySource& source, SmHuffmanDecodeState& state,
                                 const SmHuffmanDecodeTable& dc, const SmHuffmanDecodeTable& ac,
                                 int16_t* block, int32_t& lastDC);

// One block of an MCU, in the order of the scan: where it goes in the first
// MCU of a run, how far the next MCU's block lies, its component's DC
// prediction and its tables.
struct SmHuffmanMcuBlock {
  int16_t* block = nullptr;
  size_t step = 0; // coefficients
  int32_t* lastDC = nullptr;
  const SmHuffmanDecodeTable* dc = nullptr;
  const SmHuffmanDecodeTable* ac = nullptr;
};

// Decodes up to `mcus` sequential MCUs of `count` blocks, with the bit reader
// held in registers from one block to the next. Each block is cleared first;
// with `dcOnly` only the DC term is written, to block[0], and the AC codes are
// checked and skipped. Before each MCU the source must hold `reserve` more
// bytes, else the run stops there (0 once the source holds all the data).
// Answers the MCUs decoded in full; `damaged` is set at a code that the tables
// lack, with the blocks before it in place.
size_t DecodeMcusSequential(SmEntropySource& source, SmHuffmanDecodeState& state,
                            const SmHuffmanMcuBlock* blocks, int count, size_t mcus, bool dcOnly,
                            size_t reserve, bool& damaged);

bool DecodeBlockDCFirst(SmEntropySource& source, SmHuffmanDecodeState& state,
                        const SmHuffmanDecodeTable& dc, int16_t* block, int32_t& lastDC,
                        int successiveLow);
bool DecodeBlockDCRefine(SmEntropySource& source, SmHuffmanDecodeState& state, int16_t* block,
                         int successiveLow);
bool DecodeBlockACFirst(SmEntropySource& source, SmHuffmanDecodeState& state,
                        const SmHuffmanDecodeTable& ac, int16_t* block, int spectralStart,
                        int spectralEnd, int successiveLow);
bool DecodeBlockACRefine(SmEntropySource& source, SmHuffmanDecodeState& state,
                         const SmHuffmanDecodeTable& ac, int16_t* block, int spectralStart,
                         int spectralEnd, int successiveLow);
// One lossless difference (T.81 H.1.2.2): category 16 means 32768 with no
// extra bits.
bool DecodeLosslessDifference(SmEntropySource& source, SmHuffmanDecodeState& state,
                              const SmHuffmanDecodeTable& table, int32_t& difference);

namespace NmReference {
bool DecodeBlockSequential(SmEntropySource& source, SmHuffmanDecodeState& state,
                           const SmHuffmanDecodeTable& dc, const SmHuffmanDecodeTable& ac,
                           int16_t* block, int32_t& lastDC);
size_t DecodeMcusSequential(SmEntropySource& source, SmHuffmanDecodeState& state,
                            const SmHuffmanMcuBlock* blocks, int count, size_t mcus, bool dcOnly,
                            size_t reserve, bool& damaged);
bool DecodeBlockDCFirst(SmEntropySource& source, SmHuffmanDecodeState& state,
                        const SmHuffmanDecodeTable& dc, int16_t* block, int32_t& lastDC,
                        int successiveLow);
bool DecodeBlockDCRefine(SmEntropySource& source, SmHuffmanDecodeState& state, int16_t* block,
                         int successiveLow);
bool DecodeBlockACFirst(SmEntropySource& source, SmHuffmanDecodeState& state,
                        const SmHuffmanDecodeTable& ac, int16_t* block, int spectralStart,
                        int spectralEnd, int successiveLow);
bool DecodeBlockACRefine(SmEntropySource& source, SmHuffmanDecodeState& state,
                         const SmHuffmanDecodeTable& ac, int16_t* block, int spectralStart,
                         int spectralEnd, int successiveLow);
bool DecodeLosslessDifference(SmEntropySource& source, SmHuffmanDecodeState& state,
                              const SmHuffmanDecodeTable& table, int32_t& difference);
} // namespace NmReference

} // namespace NmPrimitives
