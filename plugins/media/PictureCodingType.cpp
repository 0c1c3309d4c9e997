#include "PictureCodingType.h"

namespace NmMedia {
namespace {

class CmHeaderBits {
public:
  CmHeaderBits(const uint8_t* data, size_t size) : m_Data(data), m_Size(size) {}
  std::optional<uint32_t> Read(unsigned count) {
    uint32_t value = 0;
    for (unsigned i = 0; i < count; ++i, ++m_Position) {
      if (m_Position >= m_Size * 8) {
        return std::nullopt;
      }
      value = value << 1 | ((m_Data[m_Position / 8] >> (7 - m_Position % 8)) & 1);
    }
    return value;
  }

private:
  const uint8_t* m_Data;
  size_t m_Size;
  size_t m_Position = 0;
};

constexpr uint32_t PictureStartCode = 0x20; // 0000 0000 0000 0000 1 00000
constexpr uint32_t ExtendedSourceFormat = 7;
constexpr uint32_t IntraPictureType = 0;

} // namespace

std::optional<bool> IsIntraH263Picture(const uint8_t* data, size_t size) {
  if (data == nullptr) {
    return std::nullopt;
  }
  CmHeaderBits bits(data, size);
  const auto start = bits.Read(22);
  const auto reference = bits.Read(8);
  const auto marker = bits.Read(2);
  if (!start || *start != PictureStartCode || !reference || !marker || *marker != 2) {
    return std::nullopt;
  }
  // Split screen, document camera and freeze release, then the source format.
  const auto flags = bits.Read(3);
  const auto format = bits.Read(3);
  if (!flags || !format || *format == 0) {
    return std::nullopt;
  }
  if (*format != ExtendedSourceFormat) {
    const auto coding = bits.Read(1);
    return coding ? std::optional<bool>(*coding == 0) : std::nullopt;
  }
  // PLUSPTYPE: the optional part is present when UFEP says so.
  const auto update = bits.Read(3);
  if (!update || *update > 1) {
    return std::nullopt;
  }
  if (*update == 1 && !bits.Read(18)) {
    return std::nullopt;
  }
  const auto type = bits.Read(3);
  return type ? std::optional<bool>(*type == IntraPictureType) : std::nullopt;
}

std::optional<bool> IsIntraMPEG4Picture(const uint8_t* data, size_t size) {
  if (data == nullptr) {
    return std::nullopt;
  }
  constexpr uint8_t VideoObjectPlane = 0xB6;
  for (size_t at = 0; at + 4 < size; ++at) {
    if (data[at] == 0 && data[at + 1] == 0 && data[at + 2] == 1 &&
        data[at + 3] == VideoObjectPlane) {
      // vop_coding_type: 0 intra, 1 predicted, 2 bidirectional, 3 sprite.
      return (data[at + 4] >> 6) == 0;
    }
  }
  return std::nullopt;
}

} // namespace NmMedia
