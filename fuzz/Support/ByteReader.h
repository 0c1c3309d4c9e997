#pragma once

// The parts of a fuzz input read in turn, the one way a target reports a
// finding, and the errors a target lets pass as answers.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace NmFuzz {

// What a target proves must hold; anything else is a finding.
inline void Require(bool condition) {
  if (!condition) {
    __builtin_trap();
  }
}

// Runs `f`; the errors listed are answers of the code under test, anything
// else that leaves it is a finding.
template <typename F> void Tolerate(F&& f) {
  f();
}
template <typename Error, typename... Others, typename F> void Tolerate(F&& f) {
  try {
    Tolerate<Others...>(f);
  } catch (const Error&) {
  }
}

// Reads an input a byte at a time; past its end every byte is 0.
class CmByteReader {
public:
  CmByteReader(const uint8_t* data, size_t size) : m_Data(data), m_Size(size) {}
  bool AtEnd() const { return m_Position >= m_Size; }
  uint8_t Byte() { return m_Position < m_Size ? m_Data[m_Position++] : 0; }
  uint16_t Word() {
    const uint16_t high = Byte();
    return static_cast<uint16_t>(high << 8 | Byte());
  }
  uint64_t Below(uint64_t limit) { return (Byte() | Byte() << 8) % limit; }
  double Double() {
    uint8_t bytes[sizeof(double)] = {};
    for (uint8_t& b : bytes) {
      b = Byte();
    }
    double value = 0;
    std::memcpy(&value, bytes, sizeof value);
    return value;
  }
  // What is left unread.
  const uint8_t* Rest(size_t& size) const {
    size = m_Size - std::min(m_Position, m_Size);
    return m_Data + (m_Size - size);
  }

private:
  const uint8_t* m_Data;
  size_t m_Size;
  size_t m_Position = 0;
};

} // namespace NmFuzz
