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

std::optional<unsigned> MPEG4TimeIncrementBits(const uint8_t* data, size_t size) {
  if (data == nullptr) {
    return std::nullopt;
  }
  for (size_t at = 0; at + 4 < size; ++at) {
    // video_object_layer_start_code: 0x120 to 0x12F.
    if (data[at] != 0 || data[at + 1] != 0 || data[at + 2] != 1 || (data[at + 3] & 0xF0) != 0x20) {
      continue;
    }
    CmHeaderBits bits(data + at + 4, size - at - 4);
    const auto typeFields = bits.Read(9); // random_accessible_vol, video_object_type_indication
    const auto identified = bits.Read(1);
    if (!typeFields || !identified) {
      return std::nullopt;
    }
    uint32_t verid = 1;
    if (*identified == 1) {
      const auto id = bits.Read(4);
      if (!id || !bits.Read(3)) {
        return std::nullopt;
      }
      verid = *id;
    }
    const auto aspect = bits.Read(4);
    if (!aspect || (*aspect == 0xF && !bits.Read(16))) {
      return std::nullopt;
    }
    const auto control = bits.Read(1);
    if (!control) {
      return std::nullopt;
    }
    if (*control == 1) {
      const auto chromaAndDelay = bits.Read(3);
      const auto vbv = bits.Read(1);
      // The buffer parameters: 79 bits of rates, sizes, occupancy and markers.
      if (!chromaAndDelay || !vbv ||
          (*vbv == 1 && (!bits.Read(32) || !bits.Read(32) || !bits.Read(15)))) {
        return std::nullopt;
      }
    }
    const auto shape = bits.Read(2);
    if (!shape || (*shape == 3 && verid != 1 && !bits.Read(4))) {
      return std::nullopt;
    }
    const auto marker = bits.Read(1);
    const auto resolution = bits.Read(16);
    if (!marker || !resolution || *resolution == 0) {
      return std::nullopt;
    }
    // As many bits as resolution - 1 needs, at least one.
    unsigned count = 1;
    while (count < 16 && (1U << count) < *resolution) {
      ++count;
    }
    return count;
  }
  return std::nullopt;
}

std::optional<bool> IsIntraMPEG4Picture(const uint8_t* data, size_t size,
                                        std::optional<unsigned> timeIncrementBits) {
  if (data == nullptr) {
    return std::nullopt;
  }
  if (const auto inBand = MPEG4TimeIncrementBits(data, size)) {
    timeIncrementBits = inBand;
  }
  constexpr uint8_t VideoObjectPlane = 0xB6;
  for (size_t at = 0; at + 4 < size; ++at) {
    if (data[at] != 0 || data[at + 1] != 0 || data[at + 2] != 1 ||
        data[at + 3] != VideoObjectPlane) {
      continue;
    }
    // vop_coding_type: 0 intra, 1 predicted, 2 bidirectional, 3 sprite.
    CmHeaderBits bits(data + at + 4, size - at - 4);
    const auto type = bits.Read(2);
    if (!type || *type != 0 || !timeIncrementBits) {
      return type ? std::optional<bool>(*type == 0) : std::nullopt;
    }
    // A plane that is not coded (packed streams put one behind each packed
    // pair, and mark it intra and a key frame) holds no picture to start at:
    // modulo_time_base, a marker, vop_time_increment, a marker, vop_coded.
    std::optional<uint32_t> bit;
    while ((bit = bits.Read(1)) && *bit == 1) {
    }
    if (!bit || !bits.Read(1) || !bits.Read(*timeIncrementBits) || !bits.Read(1)) {
      return true;
    }
    const auto coded = bits.Read(1);
    return !coded || *coded == 1;
  }
  return std::nullopt;
}

} // namespace NmMedia
