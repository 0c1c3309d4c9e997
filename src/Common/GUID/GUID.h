#pragma once

#include <array>
#include <cstdint>
#include <string>

namespace NmGUID {

class CmGUIDOS {
public:
  // Fills 16 bytes from the system's random source; false on failure.
  static bool Generate(std::array<uint8_t, 16>& bytes);
};

// 16 bytes, zero until GenerateNew.
class CmGUID {
public:
  void GenerateNew();
  // The usual 8-4-4-4-12 text in upper case.
  std::string ToString() const;
  const std::array<uint8_t, 16>& GetBytes() const { return m_Bytes; }
  bool operator==(const CmGUID&) const = default;

private:
  std::array<uint8_t, 16> m_Bytes{};
};

} // namespace NmGUID
