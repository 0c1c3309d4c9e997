#include "Common/GUID/GUID.h"

#include "Common/Error/Error.h"

namespace NmGUID {

void CmGUID::GenerateNew() {
  std::array<uint8_t, 16> bytes{};
  if (!CmGUIDOS::Generate(bytes)) {
    throw NmError::CmError(VZK_LOCATION, "Error generating new GUID!");
  }
  // A version 4 (random) identifier of the RFC 4122 variant.
  bytes[6] = static_cast<uint8_t>((bytes[6] & 0x0F) | 0x40);
  bytes[8] = static_cast<uint8_t>((bytes[8] & 0x3F) | 0x80);
  m_Bytes = bytes;
}

std::string CmGUID::ToString() const {
  static const char digits[] = "0123456789ABCDEF";
  std::string text;
  text.reserve(36);
  for (size_t i = 0; i < m_Bytes.size(); ++i) {
    if (i == 4 || i == 6 || i == 8 || i == 10) {
      text += '-';
    }
    text += digits[m_Bytes[i] >> 4];
    text += digits[m_Bytes[i] & 0x0F];
  }
  return text;
}

} // namespace NmGUID
