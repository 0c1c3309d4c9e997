#include "Codecs/H264/NalUnits.h"

#include <algorithm>
#include <cstring>

namespace NmH264 {

namespace {

// The offset of the 0x01 of the next 00 00 01 at or after from, or size.
size_t FindStartCode(const uint8_t* data, size_t size, size_t from) {
  size_t i = from + 2;
  while (i < size) {
    // Jump by what the byte at i rules out: a byte above 1 cannot be part
    // of a start code, so the next one can end no earlier than i + 3.
    const uint8_t byte = data[i];
    if (byte > 1) {
      i += 3;
    } else if (byte == 0) {
      ++i;
    } else if (data[i - 1] == 0 && data[i - 2] == 0) {
      return i;
    } else {
      i += 3;
    }
  }
  return size;
}

} // namespace

bool NextAnnexBUnit(const uint8_t* data, size_t size, size_t& position, bool atEnd,
                    SmNalUnit& unit) {
  for (;;) {
    const size_t code = FindStartCode(data, size, position);
    if (code >= size) {
      // Keep the last two bytes: they may begin a start code that the next
      // data completes.
      position = atEnd ? size : std::max(position, size >= 2 ? size - 2 : size_t{0});
      return false;
    }
    const size_t begin = code + 1;
    const size_t next = FindStartCode(data, size, begin);
    if (next >= size && !atEnd) {
      position = code - 2;
      return false;
    }
    // The unit ends before the next start code's 00 00 and before the zero
    // bytes ahead of it (trailing_zero_8bits, zero_byte): a unit never ends
    // in a zero byte.
    size_t end = next >= size ? size : next - 2;
    while (end > begin && data[end - 1] == 0) {
      --end;
    }
    position = next >= size ? size : next - 2;
    if (end > begin) {
      unit.data = data + begin;
      unit.size = end - begin;
      return true;
    }
    // Two start codes in a row, or nothing but zeros between them: no unit.
  }
}

bool NextLengthPrefixedUnit(const uint8_t* data, size_t size, size_t& position, unsigned lengthSize,
                            SmNalUnit& unit) {
  if (position > size || size - position < lengthSize) {
    return false;
  }
  size_t length = 0;
  for (unsigned i = 0; i < lengthSize; ++i) {
    length = length << 8 | data[position + i];
  }
  const size_t begin = position + lengthSize;
  if (length == 0 || length > size - begin) {
    return false;
  }
  unit.data = data + begin;
  unit.size = length;
  position = begin + length;
  return true;
}

void ExtractPayload(const uint8_t* data, size_t size, std::vector<uint8_t>& rbsp) {
  rbsp.resize(size);
  size_t out = 0;
  size_t i = 0;
  while (i < size) {
    // Copy up to the next 00 00 03 in one piece.
    const uint8_t* hit = nullptr;
    for (size_t j = i; j + 2 < size; ++j) {
      if (data[j + 2] > 3) {
        j += 2;
        continue;
      }
      if (data[j] == 0 && data[j + 1] == 0 && data[j + 2] == 3) {
        hit = data + j;
        break;
      }
    }
    const size_t stop = hit == nullptr ? size : static_cast<size_t>(hit - data) + 2;
    std::memcpy(rbsp.data() + out, data + i, stop - i);
    out += stop - i;
    i = hit == nullptr ? size : stop + 1;
  }
  rbsp.resize(out);
}

} // namespace NmH264
