#pragma once

#include <cstddef>
#include <cstdint>

#include "Codecs/Primitives/JPEGHuffman.h"

// Huffman encoding of the sequential process (ITU-T T.81 F.1.2). Writing the
// codes is serial; the vector version finds the non-zero coefficients, their
// categories and their value bits for a whole block at once and then walks
// only the non-zero ones. The reference goes coefficient by coefficient and
// bit by bit. Both give the same bytes.
namespace NmPrimitives {

// Bits that did not yet fill a byte between blocks: right-aligned, fewer than 8.
struct SmHuffmanBitWriter {
  uint64_t bits = 0;
  int count = 0;
};

// No block needs more bytes than this, 0xFF stuffing included.
constexpr size_t kMaxHuffmanBlockBytes = 512;

// Encodes one quantised block (natural order) into `out`, which must have
// kMaxHuffmanBlockBytes free, and answers how many bytes were written. The
// DC difference is limited to +-2047 and AC values to +-1023, the ranges of
// 8-bit baseline, so that every value has a code in tables that cover them.
size_t EncodeBlockSequential(const int16_t* block, int32_t& lastDC, const SmHuffmanEncodeTable& dc,
                             const SmHuffmanEncodeTable& ac, SmHuffmanBitWriter& writer,
                             uint8_t* out);

// One block of a run to encode, with its tables and its component's DC
// prediction.
struct SmHuffmanBlock {
  const int16_t* block;
  int32_t* lastDC;
  const SmHuffmanEncodeTable* dc;
  const SmHuffmanEncodeTable* ac;
};

// Encodes a run of blocks, such as the blocks of one MCU, as the calls above
// would one after the other; `out` must have count * kMaxHuffmanBlockBytes
// free. The bits stay in registers from one block to the next.
size_t EncodeBlocksSequential(const SmHuffmanBlock* blocks, size_t count,
                              SmHuffmanBitWriter& writer, uint8_t* out);

// Ends the entropy-coded segment: the last byte is filled up with 1 bits.
// At most 2 bytes are written.
size_t FlushHuffmanBits(SmHuffmanBitWriter& writer, uint8_t* out);

namespace NmReference {
size_t EncodeBlockSequential(const int16_t* block, int32_t& lastDC, const SmHuffmanEncodeTable& dc,
                             const SmHuffmanEncodeTable& ac, SmHuffmanBitWriter& writer,
                             uint8_t* out);
size_t EncodeBlocksSequential(const SmHuffmanBlock* blocks, size_t count,
                              SmHuffmanBitWriter& writer, uint8_t* out);
} // namespace NmReference

} // namespace NmPrimitives
