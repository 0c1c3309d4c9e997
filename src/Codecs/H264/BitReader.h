#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace NmH264 {

// Reads the bits of a raw byte sequence payload (emulation prevention bytes
// already removed), most significant bit first. Reading past the end gives
// zero bits and marks the reader as overrun, so that syntax loops stay
// simple and the caller checks once per structure instead of once per field.
class CmBitReader {
public:
  CmBitReader(const uint8_t* data, size_t size) : m_Data(data), m_Size(size), m_Bits(size * 8) {}

  // Up to 32 bits as an unsigned number.
  uint32_t ReadBits(unsigned count) {
    if (count == 0) {
      return 0;
    }
    const uint64_t bits = Peek();
    m_Position += count;
    return static_cast<uint32_t>(bits >> (64 - count));
  }
  bool ReadFlag() { return ReadBits(1) != 0; }
  // The next count bits (up to 32) without moving on.
  uint32_t PeekBits(unsigned count) const {
    return count == 0 ? 0 : static_cast<uint32_t>(Peek() >> (64 - count));
  }
  void Skip(size_t count) { m_Position += count; }
  // The next 64 bits, of which at least the first 57 are the stream's
  // (zeros beyond its end), for readers that take many short codes at once.
  uint64_t PeekWindow() const { return Peek(); }

  // ue(v): Exp-Golomb code of up to 32 leading zeros.
  uint32_t ReadUE() {
    const uint64_t bits = Peek();
    const int zeros = bits == 0 ? 64 : std::countl_zero(bits);
    if (zeros <= 28) {
      // The whole code lies in the 57 bits that one peek always holds.
      const unsigned length = 2 * static_cast<unsigned>(zeros) + 1;
      m_Position += length;
      return static_cast<uint32_t>(bits >> (64 - length)) - 1;
    }
    if (zeros > 31) {
      // No value of this syntax needs more: the stream is damaged.
      m_Position = m_Bits + 1;
      return 0;
    }
    // The stop bit and the zeros information bits that follow it read as
    // 2^zeros + information, which is one more than the code number.
    m_Position += static_cast<size_t>(zeros);
    return ReadBits(static_cast<unsigned>(zeros + 1)) - 1;
  }

  // se(v): the mapping of clause 9.1.1 onto signed values.
  int32_t ReadSE() {
    const uint32_t k = ReadUE();
    return (k & 1) != 0 ? static_cast<int32_t>((k >> 1) + 1) : -static_cast<int32_t>(k >> 1);
  }

  // te(v) with the largest value the syntax element can take.
  uint32_t ReadTE(uint32_t largest) { return largest > 1 ? ReadUE() : (ReadFlag() ? 0u : 1u); }

  // more_rbsp_data(): whether anything but the trailing stop bit and its
  // zero padding is left.
  bool HasMoreData() {
    if (m_StopBit == Unknown) {
      m_StopBit = FindStopBit();
    }
    return m_Position < m_StopBit;
  }

  bool IsByteAligned() const { return m_Position % 8 == 0; }
  void AlignToByte() { m_Position = (m_Position + 7) / 8 * 8; }
  bool IsOverrun() const { return m_Position > m_Bits; }
  size_t GetPosition() const { return m_Position; }
  size_t GetSizeInBits() const { return m_Bits; }
  const uint8_t* GetData() const { return m_Data; }

private:
  static constexpr size_t Unknown = ~size_t{0};

  // The next 64 bits from the position, of which at least 57 are valid;
  // zeros beyond the end.
  uint64_t Peek() const {
    const size_t byte = m_Position / 8;
    uint64_t word = 0;
    if (byte + 8 <= m_Size) {
      std::memcpy(&word, m_Data + byte, 8);
      word = Swap(word);
    } else {
      for (size_t i = 0; i < 8; ++i) {
        word = word << 8 | (byte + i < m_Size ? m_Data[byte + i] : 0u);
      }
    }
    return word << (m_Position % 8);
  }

  static uint64_t Swap(uint64_t word) {
    if constexpr (std::endian::native == std::endian::little) {
      return __builtin_bswap64(word);
    }
    return word;
  }

  size_t FindStopBit() const {
    size_t end = m_Size;
    while (end > 0 && m_Data[end - 1] == 0) {
      --end;
    }
    if (end == 0) {
      return 0;
    }
    return end * 8 - 1 -
           static_cast<size_t>(std::countr_zero(static_cast<unsigned>(m_Data[end - 1])));
  }

  const uint8_t* m_Data;
  size_t m_Size;
  size_t m_Bits;
  size_t m_Position = 0;
  size_t m_StopBit = Unknown;
};

// The reader's next bits held in a register while many short codes are
// taken in a row (the residual of a macroblock): the position moves only
// when the window is refilled, instead of a load, byte swap and shift for
// every code. A value, so that a decoder of many codes keeps it in
// registers; CmBitWindow hands the bits taken back to the reader.
class CmBitCursor {
public:
  explicit CmBitCursor(const CmBitReader& reader)
      : m_Data(reader.GetData()), m_Size(reader.GetSizeInBits() / 8),
        m_Position(reader.GetPosition()) {
    Refill();
  }

  // Moves the window to the next bit taken: then at least 57 bits are
  // there. A refill at a fixed point costs less than a branch per code on
  // whether the window runs low, which no predictor can guess.
  void Refill() {
    m_Position += m_Used;
    m_Used = 0;
    const size_t byte = m_Position / 8;
    uint64_t word = 0;
    if (byte + 8 <= m_Size) [[likely]] {
      std::memcpy(&word, m_Data + byte, 8);
      if constexpr (std::endian::native == std::endian::little) {
        word = __builtin_bswap64(word);
      }
    } else {
      for (size_t i = 0; i < 8; ++i) {
        word = word << 8 | (byte + i < m_Size ? m_Data[byte + i] : 0u);
      }
    }
    m_Bits = word << (m_Position % 8);
  }
  // The next 32 bits, of which at least Valid are the stream's: the window
  // is refilled if fewer than Valid remain.
  template <unsigned Valid = 32> uint32_t Peek() {
    static_assert(Valid <= 57);
    if (m_Used > 57 - Valid) [[unlikely]] {
      Refill();
    }
    return PeekFilled();
  }
  // The next 32 bits as they are, where the caller knows how many are
  // valid: 57 less those taken since the last refill.
  uint32_t PeekFilled() const { return static_cast<uint32_t>((m_Bits << m_Used) >> 32); }
  // The next Count bits as a number, for a table indexed by them: one
  // shift less than taking them from Peek().
  template <unsigned Count> uint32_t PeekIndex() {
    static_assert(Count > 0 && Count <= 32);
    if (m_Used > 57 - Count) [[unlikely]] {
      Refill();
    }
    return static_cast<uint32_t>((m_Bits << m_Used) >> (64 - Count));
  }
  void Skip(unsigned count) { m_Used += count; }
  // 1 to 32 bits.
  uint32_t Read(unsigned count) {
    const uint32_t bits = Peek() >> (32 - count);
    m_Used += count;
    return bits;
  }
  size_t GetPosition() const { return m_Position + m_Used; }
  // Whether the bits taken so far run past the end of the data.
  bool IsOverrun() const { return GetPosition() > m_Size * 8; }

private:
  const uint8_t* m_Data;
  size_t m_Size;     // bytes
  size_t m_Position; // of the window's first bit
  uint64_t m_Bits = 0;
  unsigned m_Used = 0;
};

class CmBitWindow {
public:
  explicit CmBitWindow(CmBitReader& reader) : m_Reader(reader), m_Cursor(reader) {}
  CmBitWindow(const CmBitWindow&) = delete;
  CmBitWindow& operator=(const CmBitWindow&) = delete;
  ~CmBitWindow() { m_Reader.Skip(m_Cursor.GetPosition() - m_Reader.GetPosition()); }

  CmBitCursor& GetCursor() { return m_Cursor; }
  bool IsOverrun() const { return m_Cursor.IsOverrun(); }

private:
  CmBitReader& m_Reader;
  CmBitCursor m_Cursor;
};

} // namespace NmH264
