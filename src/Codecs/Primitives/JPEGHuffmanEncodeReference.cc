// The plain block encoder: T.81 F.1.2.1 and F.1.2.2 as the figures draw
// them, one bit at a time.
#include <algorithm>
#include <cstdlib>

#include "Codecs/Primitives/JPEGHuffmanEncode.h"
#include "Codecs/Primitives/JPEGTables.h"

namespace NmPrimitives {

namespace {

class CmBitByBit {
public:
  CmBitByBit(SmHuffmanBitWriter& writer, uint8_t* out) : m_Writer(writer), m_Out(out) {}

  void Put(uint32_t value, int size) {
    for (int i = size - 1; i >= 0; --i) {
      m_Writer.bits = (m_Writer.bits << 1) | ((value >> i) & 1);
      if (++m_Writer.count == 8) {
        const uint8_t byte = static_cast<uint8_t>(m_Writer.bits);
        m_Out[m_Written++] = byte;
        if (byte == 0xFF) {
          m_Out[m_Written++] = 0;
        }
        m_Writer.bits = 0;
        m_Writer.count = 0;
      }
    }
  }
  size_t Written() const { return m_Written; }

private:
  SmHuffmanBitWriter& m_Writer;
  uint8_t* m_Out;
  size_t m_Written = 0;
};

int Category(int32_t value) {
  int bits = 0;
  for (uint32_t a = static_cast<uint32_t>(std::abs(value)); a != 0; a >>= 1) {
    ++bits;
  }
  return bits;
}

// The low `size` bits of the value, or of value - 1 when it is negative.
uint32_t ValueBits(int32_t value, int size) {
  const int32_t v = value < 0 ? value - 1 : value;
  return static_cast<uint32_t>(v) & ((1u << size) - 1);
}

} // namespace

namespace NmReference {

size_t EncodeBlockSequential(const int16_t* block, int32_t& lastDC, const SmHuffmanEncodeTable& dc,
                             const SmHuffmanEncodeTable& ac, SmHuffmanBitWriter& writer,
                             uint8_t* out) {
  CmBitByBit bits(writer, out);
  const int32_t difference = std::clamp<int32_t>(block[0] - lastDC, -2047, 2047);
  lastDC = block[0];
  const int dcSize = Category(difference);
  bits.Put(dc.code[dcSize], dc.size[dcSize]);
  bits.Put(ValueBits(difference, dcSize), dcSize);
  int run = 0;
  for (int k = 1; k < 64; ++k) {
    const int32_t value = std::clamp<int32_t>(block[kJPEGNaturalOrder[k]], -1023, 1023);
    if (value == 0) {
      ++run;
      continue;
    }
    for (; run > 15; run -= 16) {
      bits.Put(ac.code[0xF0], ac.size[0xF0]);
    }
    const int size = Category(value);
    const int symbol = (run << 4) | size;
    bits.Put(ac.code[symbol], ac.size[symbol]);
    bits.Put(ValueBits(value, size), size);
    run = 0;
  }
  if (run > 0) {
    bits.Put(ac.code[0x00], ac.size[0x00]);
  }
  return bits.Written();
}

size_t EncodeBlocksSequential(const SmHuffmanBlock* blocks, size_t count,
                              SmHuffmanBitWriter& writer, uint8_t* out) {
  size_t written = 0;
  for (size_t i = 0; i < count; ++i) {
    written += NmReference::EncodeBlockSequential(blocks[i].block, *blocks[i].lastDC, *blocks[i].dc,
                                                  *blocks[i].ac, writer, out + written);
  }
  return written;
}

} // namespace NmReference
} // namespace NmPrimitives
