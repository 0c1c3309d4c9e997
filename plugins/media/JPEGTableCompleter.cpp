#include "JPEGTableCompleter.h"

#include "Common/BitStream/BigEndian.h"
#include "MediaProcessing/JPEG/JPEGStandardTables.h"

namespace NmMedia {
namespace {

// A table as a DHT segment carries it: class and id, code counts, symbols.
void AppendTable(std::vector<uint8_t>& out, uint8_t classAndId,
                 const NmJPEGStandardTables::SmHuffmanSpec& table) {
  out.push_back(classAndId);
  out.insert(out.end(), table.bits, table.bits + 16);
  out.insert(out.end(), table.values, table.values + NmJPEGStandardTables::SymbolCount(table));
}

std::vector<uint8_t> StandardTablesSegment() {
  std::vector<uint8_t> segment = {0xFF, 0xC4, 0, 0};
  AppendTable(segment, 0x00, NmJPEGStandardTables::LuminanceDC);
  AppendTable(segment, 0x10, NmJPEGStandardTables::LuminanceAC);
  AppendTable(segment, 0x01, NmJPEGStandardTables::ChrominanceDC);
  AppendTable(segment, 0x11, NmJPEGStandardTables::ChrominanceAC);
  const size_t length = segment.size() - 2;
  segment[2] = static_cast<uint8_t>(length >> 8);
  segment[3] = static_cast<uint8_t>(length & 0xFF);
  return segment;
}

} // namespace

bool CompleteJPEGHuffmanTables(const uint8_t* data, size_t size, std::vector<uint8_t>& out) {
  out.clear();
  if (data == nullptr || size < 4 || data[0] != 0xFF || data[1] != 0xD8) {
    return false;
  }
  bool sequentialHuffman = false;
  size_t at = 2;
  for (;;) {
    if (at + 2 > size || data[at] != 0xFF) {
      return false;
    }
    const uint8_t marker = data[at + 1];
    if (marker == 0xFF) {
      // Fill byte in front of a marker.
      ++at;
      continue;
    }
    if (marker == 0xC4) {
      return false;
    }
    if (marker == 0xDA) {
      break;
    }
    if (marker == 0x01 || (marker >= 0xD0 && marker <= 0xD7)) {
      at += 2;
      continue;
    }
    if (marker == 0xD9 || at + 4 > size) {
      return false;
    }
    // Baseline and extended sequential frames with Huffman coding.
    sequentialHuffman = sequentialHuffman || marker == 0xC0 || marker == 0xC1;
    const size_t length = NmBigEndian::Load16(data + at + 2);
    if (length < 2 || length > size - at - 2) {
      return false;
    }
    at += 2 + length;
  }
  if (!sequentialHuffman) {
    return false;
  }
  static const std::vector<uint8_t> tables = StandardTablesSegment();
  out.reserve(size + tables.size());
  out.assign(data, data + at);
  out.insert(out.end(), tables.begin(), tables.end());
  out.insert(out.end(), data + at, data + size);
  return true;
}

} // namespace NmMedia
