// The block encoder with a vector front end, compiled once per Highway
// target: categories by the exponent of the value as a float, and a 64-bit
// mask of the non-zero coefficients in zig-zag order, so that the serial part
// jumps from one non-zero coefficient to the next.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "Codecs/Primitives/JPEGHuffmanEncode.cc"
#include <hwy/foreach_target.h> // IWYU pragma: keep
#include <hwy/highway.h>

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

// The largest magnitude that each zig-zag position may carry.
struct SmLimits {
  int32_t values[64];
  SmLimits() {
    values[0] = 2047;
    for (int i = 1; i < 64; ++i) {
      values[i] = 1023;
    }
  }
};

} // namespace
} // namespace NmPrimitives
#endif

HWY_BEFORE_NAMESPACE();
namespace NmPrimitives {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

size_t EncodeBlockSequentialImpl(const int16_t* block, int32_t& lastDC,
                                 const SmHuffmanEncodeTable& dc, const SmHuffmanEncodeTable& ac,
                                 SmHuffmanBitWriter& writer, uint8_t* out) {
  static const SmLimits limits;
  HWY_ALIGN int32_t values[64];
  values[0] = block[0] - lastDC;
  lastDC = block[0];
  for (int k = 1; k < 64; ++k) {
    values[k] = block[kJPEGNaturalOrder[k]];
  }
  const hn::CappedTag<int32_t, 16> di;
  const hn::Rebind<float, decltype(di)> df;
  const size_t n = hn::Lanes(di);
  HWY_ALIGN int32_t sizes[64];
  uint64_t nonZero = 0;
  const auto zero = hn::Zero(di);
  const auto bias = hn::Set(di, 126);
  for (size_t i = 0; i < 64; i += n) {
    const auto limit = hn::Load(di, limits.values + i);
    auto v = hn::Min(hn::Max(hn::Load(di, values + i), hn::Neg(limit)), limit);
    // |v| below 2^11 is exact as a float; its exponent less 126 is the
    // category, and 0 has exponent field 0.
    const auto exponent = hn::ShiftRight<23>(hn::BitCast(di, hn::ConvertTo(df, hn::Abs(v))));
    hn::Store(hn::Max(hn::Sub(exponent, bias), zero), di, sizes + i);
    // Negative values are sent as v - 1 in their low bits.
    hn::Store(hn::Add(v, hn::ShiftRight<31>(v)), di, values + i);
    uint8_t maskBytes[8] = {};
    hn::StoreMaskBits(di, hn::Ne(v, zero), maskBytes);
    uint64_t chunk = 0;
    std::memcpy(&chunk, maskBytes, sizeof chunk);
    nonZero |= (chunk & ((n >= 64 ? 0 : uint64_t{1} << n) - 1)) << i;
  }

  CmFastBitWriter bits(writer, out);
  const int dcSize = sizes[0];
  bits.Put((uint64_t{dc.code[dcSize]} << dcSize) |
               (static_cast<uint32_t>(values[0]) & ((1u << dcSize) - 1)),
           dc.size[dcSize] + dcSize);
  uint64_t remaining = nonZero & ~uint64_t{1};
  int last = 0;
  while (remaining != 0) {
    const int position = static_cast<int>(hwy::Num0BitsBelowLS1Bit_Nonzero64(remaining));
    int run = position - last - 1;
    for (; run > 15; run -= 16) {
      bits.Put(ac.code[0xF0], ac.size[0xF0]);
    }
    const int size = sizes[position];
    const int symbol = (run << 4) | size;
    bits.Put((uint64_t{ac.code[symbol]} << size) |
                 (static_cast<uint32_t>(values[position]) & ((1u << size) - 1)),
             ac.size[symbol] + size);
    last = position;
    remaining &= remaining - 1;
  }
  if (last != 63) {
    bits.Put(ac.code[0x00], ac.size[0x00]);
  }
  return bits.Finish(writer);
}

} // namespace HWY_NAMESPACE
} // namespace NmPrimitives
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace NmPrimitives {
HWY_EXPORT(EncodeBlockSequentialImpl);

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
