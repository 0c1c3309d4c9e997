#pragma once

#include <cstdint>

// Whole numbers as the wire formats store them, most significant byte first.
// The caller has made sure that the bytes are there.
namespace NmBigEndian {

inline uint16_t Load16(const uint8_t* p) {
  return static_cast<uint16_t>(p[0] << 8 | p[1]);
}

inline uint32_t Load32(const uint8_t* p) {
  return static_cast<uint32_t>(p[0]) << 24 | static_cast<uint32_t>(p[1]) << 16 |
         static_cast<uint32_t>(p[2]) << 8 | p[3];
}

inline uint64_t Load64(const uint8_t* p) {
  return static_cast<uint64_t>(Load32(p)) << 32 | Load32(p + 4);
}

} // namespace NmBigEndian
