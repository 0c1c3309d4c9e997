// The block encoder with a vector front end, compiled once per Highway
// target: one comparison per vector finds the non-zero coefficients, a table
// reorders that mask from natural into zig-zag order eight bits at a time,
// the categories and value bits of all coefficients come from a few vector
// steps, and the serial part jumps from one non-zero coefficient to the
// next, so that zeros, most of a block, cost nothing.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "Codecs/Primitives/JPEGHuffmanEncode.cc"
#include <hwy/foreach_target.h> // IWYU pragma: keep
#include <hwy/highway.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "Codecs/Primitives/JPEGHuffmanEncode.h"
#include "Codecs/Primitives/JPEGTables.h"

#ifndef VZK_JPEG_HUFFMAN_ENCODE_ONCE
#define VZK_JPEG_HUFFMAN_ENCODE_ONCE
namespace NmPrimitives {
namespace {

// Bits collect in a 64-bit accumulator and leave 32 at a time; 0xFF bytes,
// rare in coded data, take the slow path that stuffs a zero behind them.
class CmFastBitWriter {
public:
  CmFastBitWriter(const SmHuffmanBitWriter& writer, uint8_t* out)
      : m_Bits(writer.bits), m_Count(writer.count), m_Out(out), m_Start(out) {}

  // size up to 27: a code of at most 16 bits with at most 11 value bits.
  HWY_INLINE void Put(uint64_t value, int size) {
    m_Bits = (m_Bits << size) | value;
    m_Count += size;
    if (m_Count >= 32) {
      m_Count -= 32;
      Emit32(static_cast<uint32_t>(m_Bits >> m_Count));
    }
  }

  size_t Finish(SmHuffmanBitWriter& writer) {
    while (m_Count >= 8) {
      m_Count -= 8;
      EmitByte(static_cast<uint8_t>(m_Bits >> m_Count));
    }
    writer.bits = m_Bits & ((uint64_t{1} << m_Count) - 1);
    writer.count = m_Count;
    return static_cast<size_t>(m_Out - m_Start);
  }

private:
  HWY_INLINE void EmitByte(uint8_t byte) {
    *m_Out++ = byte;
    if (byte == 0xFF) {
      *m_Out++ = 0;
    }
  }

  HWY_INLINE void Emit32(uint32_t word) {
    const uint32_t inverted = ~word;
    // A zero byte in the inverted word is an 0xFF byte in the word.
    if (((inverted - 0x01010101u) & ~inverted & 0x80808080u) == 0) {
      m_Out[0] = static_cast<uint8_t>(word >> 24);
      m_Out[1] = static_cast<uint8_t>(word >> 16);
      m_Out[2] = static_cast<uint8_t>(word >> 8);
      m_Out[3] = static_cast<uint8_t>(word);
      m_Out += 4;
      return;
    }
    EmitByte(static_cast<uint8_t>(word >> 24));
    EmitByte(static_cast<uint8_t>(word >> 16));
    EmitByte(static_cast<uint8_t>(word >> 8));
    EmitByte(static_cast<uint8_t>(word));
  }

  uint64_t m_Bits;
  int m_Count;
  uint8_t* m_Out;
  uint8_t* m_Start;
};

// For each byte of the natural-order mask (one row of the block) and each
// value of it: the same bits at their zig-zag positions.
struct SmZigZagSpread {
  uint64_t bits[8][256];
  SmZigZagSpread() {
    uint8_t zigZagOf[64];
    for (int k = 0; k < 64; ++k) {
      zigZagOf[kJPEGNaturalOrder[k]] = static_cast<uint8_t>(k);
    }
    for (int row = 0; row < 8; ++row) {
      for (int value = 0; value < 256; ++value) {
        uint64_t spread = 0;
        for (int j = 0; j < 8; ++j) {
          if (value & (1 << j)) {
            spread |= uint64_t{1} << zigZagOf[row * 8 + j];
          }
        }
        bits[row][value] = spread;
      }
    }
  }
};

const SmZigZagSpread ZigZagSpread;

// The natural order as 16-bit lanes, for permutations that take a block into
// zig-zag order: lane k holds the coefficient of zig-zag position k.
struct SmZigZagIndices {
  alignas(64) int16_t natural[64];
  SmZigZagIndices() {
    for (int k = 0; k < 64; ++k) {
      natural[k] = static_cast<int16_t>(kJPEGNaturalOrder[k]);
    }
  }
};

const SmZigZagIndices ZigZagIndices;

HWY_INLINE int Category(uint32_t magnitude) {
  return magnitude == 0 ? 0 : 32 - __builtin_clz(magnitude);
}

} // namespace
} // namespace NmPrimitives
#endif

HWY_BEFORE_NAMESPACE();
namespace NmPrimitives {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

// Bit i set where coefficient i (natural order) is not zero.
HWY_INLINE uint64_t NonZeroMask(const int16_t* block) {
  const hn::CappedTag<int16_t, 32> d;
  const size_t n = hn::Lanes(d);
  const auto zero = hn::Zero(d);
  uint64_t zeros = 0;
  HWY_UNROLL(8)
  for (size_t i = 0; i < 64; i += n) {
    uint8_t bytes[8] = {};
    hn::StoreMaskBits(d, hn::Eq(hn::LoadU(d, block + i), zero), bytes);
    uint64_t chunk = 0;
    std::memcpy(&chunk, bytes, sizeof chunk);
    zeros |= (n >= 64 ? chunk : chunk & ((uint64_t{1} << n) - 1)) << i;
  }
  return ~zeros;
}

// Per coefficient, in the block's order, for the whole block at once: the
// category of its value limited to +-1023, and the value itself as it is
// sent, v - 1 for negative ones, whose low `category` bits are the code.
struct SmCategorized {
  alignas(64) int16_t category[64];
  alignas(64) int16_t bits[64];
};

HWY_INLINE void Categorize(const int16_t* block, SmCategorized& out) {
  const hn::CappedTag<int16_t, 32> d;
  const auto one = hn::Set(d, 1);
  HWY_UNROLL(4)
  for (size_t i = 0; i < 64; i += hn::Lanes(d)) {
    const auto value =
        hn::Min(hn::Max(hn::LoadU(d, block + i), hn::Set(d, -1023)), hn::Set(d, 1023));
    // The number of significant bits of the magnitude, below 1024, by
    // halving the range three times; what is left below 4 has min(m, 2).
    auto magnitude = hn::Abs(value);
    const auto above8 = hn::Gt(magnitude, hn::Set(d, 255));
    auto category = hn::IfThenElseZero(above8, hn::Set(d, 8));
    magnitude = hn::IfThenElse(above8, hn::ShiftRight<8>(magnitude), magnitude);
    const auto above4 = hn::Gt(magnitude, hn::Set(d, 15));
    category = hn::Add(category, hn::IfThenElseZero(above4, hn::Set(d, 4)));
    magnitude = hn::IfThenElse(above4, hn::ShiftRight<4>(magnitude), magnitude);
    const auto above2 = hn::Gt(magnitude, hn::Set(d, 3));
    category = hn::Add(category, hn::IfThenElseZero(above2, hn::Set(d, 2)));
    magnitude = hn::IfThenElse(above2, hn::ShiftRight<2>(magnitude), magnitude);
    category = hn::Add(category, hn::Min(magnitude, hn::Add(one, one)));
    hn::Store(category, d, out.category + i);
    hn::Store(hn::Add(value, hn::ShiftRight<15>(value)), d, out.bits + i);
  }
}

#if HWY_ARCH_X86 && HWY_TARGET <= HWY_AVX3
// Targets with a permutation of 16-bit lanes across two vectors put the
// block in zig-zag order first; the mask and the categories then come in
// that order, and the serial part reads them by position.
constexpr bool InZigZagOrder = true;

HWY_INLINE void ToZigZag(const int16_t* block, int16_t* out) {
  const __m512i low = _mm512_loadu_si512(block);
  const __m512i high = _mm512_loadu_si512(block + 32);
  _mm512_store_si512(
      out, _mm512_permutex2var_epi16(low, _mm512_load_si512(ZigZagIndices.natural), high));
  _mm512_store_si512(out + 32, _mm512_permutex2var_epi16(
                                   low, _mm512_load_si512(ZigZagIndices.natural + 32), high));
}
#else
constexpr bool InZigZagOrder = false;
#endif

HWY_INLINE void EncodeOne(const int16_t* block, int32_t& lastDC, const SmHuffmanEncodeTable& dc,
                          const SmHuffmanEncodeTable& ac, CmFastBitWriter& bits) {
  uint64_t zigZag = 0;
  SmCategorized coded;
#if HWY_ARCH_X86 && HWY_TARGET <= HWY_AVX3
  alignas(64) int16_t ordered[64];
  ToZigZag(block, ordered);
  zigZag = NonZeroMask(ordered);
  Categorize(ordered, coded);
#else
  const uint64_t natural = NonZeroMask(block);
  HWY_UNROLL(8)
  for (int row = 0; row < 8; ++row) {
    zigZag |= ZigZagSpread.bits[row][(natural >> (8 * row)) & 0xFF];
  }
  Categorize(block, coded);
#endif

  const int32_t difference = std::clamp<int32_t>(block[0] - lastDC, -2047, 2047);
  lastDC = block[0];
  const int dcSize = Category(static_cast<uint32_t>(std::abs(difference)));
  // Negative values are sent as v - 1 in their low bits.
  const uint32_t dcBits = static_cast<uint32_t>(difference + (difference >> 31));
  bits.Put((uint64_t{dc.code[dcSize]} << dcSize) | (dcBits & ((1u << dcSize) - 1)),
           dc.size[dcSize] + dcSize);
  uint64_t remaining = zigZag & ~uint64_t{1};
  int last = 0;
  while (remaining != 0) {
    const int position = static_cast<int>(hwy::Num0BitsBelowLS1Bit_Nonzero64(remaining));
    int run = position - last - 1;
    for (; run > 15; run -= 16) {
      bits.Put(ac.code[0xF0], ac.size[0xF0]);
    }
    const int at = InZigZagOrder ? position : kJPEGNaturalOrder[position];
    const int size = coded.category[at];
    const int symbol = (run << 4) | size;
    const uint32_t valueBits = static_cast<uint16_t>(coded.bits[at]);
    bits.Put((uint64_t{ac.code[symbol]} << size) | (valueBits & ((1u << size) - 1)),
             ac.size[symbol] + size);
    last = position;
    remaining &= remaining - 1;
  }
  if (last != 63) {
    bits.Put(ac.code[0x00], ac.size[0x00]);
  }
}

size_t EncodeBlockSequentialImpl(const int16_t* block, int32_t& lastDC,
                                 const SmHuffmanEncodeTable& dc, const SmHuffmanEncodeTable& ac,
                                 SmHuffmanBitWriter& writer, uint8_t* out) {
  CmFastBitWriter bits(writer, out);
  EncodeOne(block, lastDC, dc, ac, bits);
  return bits.Finish(writer);
}

size_t EncodeBlocksSequentialImpl(const SmHuffmanBlock* blocks, size_t count,
                                  SmHuffmanBitWriter& writer, uint8_t* out) {
  CmFastBitWriter bits(writer, out);
  for (size_t i = 0; i < count; ++i) {
    EncodeOne(blocks[i].block, *blocks[i].lastDC, *blocks[i].dc, *blocks[i].ac, bits);
  }
  return bits.Finish(writer);
}

} // namespace HWY_NAMESPACE
} // namespace NmPrimitives
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace NmPrimitives {
HWY_EXPORT(EncodeBlockSequentialImpl);
HWY_EXPORT(EncodeBlocksSequentialImpl);

size_t EncodeBlocksSequential(const SmHuffmanBlock* blocks, size_t count,
                              SmHuffmanBitWriter& writer, uint8_t* out) {
  return HWY_DYNAMIC_DISPATCH(EncodeBlocksSequentialImpl)(blocks, count, writer, out);
}

size_t EncodeBlockSequential(const int16_t* block, int32_t& lastDC, const SmHuffmanEncodeTable& dc,
                             const SmHuffmanEncodeTable& ac, SmHuffmanBitWriter& writer,
                             uint8_t* out) {
  return HWY_DYNAMIC_DISPATCH(EncodeBlockSequentialImpl)(block, lastDC, dc, ac, writer, out);
}

size_t FlushHuffmanBits(SmHuffmanBitWriter& writer, uint8_t* out) {
  size_t written = 0;
  if (writer.count > 0) {
    const int pad = 8 - writer.count;
    const uint8_t byte = static_cast<uint8_t>((writer.bits << pad) | ((1u << pad) - 1));
    out[written++] = byte;
    if (byte == 0xFF) {
      out[written++] = 0;
    }
  }
  writer.bits = 0;
  writer.count = 0;
  return written;
}

} // namespace NmPrimitives
#endif
