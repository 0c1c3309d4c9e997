#include "Codecs/Primitives/JPEGHuffman.h"

#include <cstring>

#include "Codecs/Primitives/JPEGHuffman-inl.h"

namespace NmPrimitives {

namespace {
// T.81 C.2: code lengths and codes in canonical order. False when some length
// has more codes than fit, or when there are more than 256 symbols.
bool CanonicalCodes(const uint8_t bits[16], uint8_t* lengths, uint16_t* codes, int& count) {
  count = 0;
  uint32_t code = 0;
  for (int length = 1; length <= 16; ++length) {
    for (int i = 0; i < bits[length - 1]; ++i) {
      if (count == 256) {
        return false;
      }
      lengths[count] = static_cast<uint8_t>(length);
      codes[count] = static_cast<uint16_t>(code);
      ++count;
      ++code;
    }
    if (code > (1u << length)) {
      return false;
    }
    code <<= 1;
  }
  return true;
}
} // namespace

bool BuildHuffmanDecodeTable(const uint8_t bits[16], const uint8_t* values,
                             SmHuffmanDecodeTable& table) {
  uint8_t lengths[256];
  uint16_t codes[256];
  int count = 0;
  if (!CanonicalCodes(bits, lengths, codes, count)) {
    return false;
  }
  std::memset(&table, 0, sizeof table);
  std::memcpy(table.bits, bits, 16);
  std::memcpy(table.values, values, static_cast<size_t>(count));
  int index = 0;
  for (int length = 1; length <= 16; ++length) {
    if (bits[length - 1] == 0) {
      table.maxCode[length] = -1;
      continue;
    }
    table.valueOffset[length] = index - codes[index];
    index += bits[length - 1];
    table.maxCode[length] = codes[index - 1];
  }
  table.maxCode[0] = -1;
  table.maxCode[17] = 0x7FFFFFFF;
  for (int i = 0; i < count && lengths[i] <= kHuffmanLookupBits; ++i) {
    const int shift = kHuffmanLookupBits - lengths[i];
    const int first = codes[i] << shift;
    for (int j = 0; j < (1 << shift); ++j) {
      table.lookup[first + j] = static_cast<uint16_t>(lengths[i] << 8 | values[i]);
    }
    const int run = values[i] >> 4;
    const int size = values[i] & 15;
    if (size == 0 && (run == 0 || run == 15)) {
      // End of block and a run of 16 zeros: value 0, which no other entry has.
      for (int j = 0; j < (1 << shift); ++j) {
        table.acLookup[first + j] = static_cast<int16_t>(run << 4 | lengths[i]);
      }
      continue;
    }
    if (size == 0 || size > 7 || lengths[i] + size > kHuffmanLookupBits) {
      continue;
    }
    const int rest = shift - size;
    for (int extra = 0; extra < (1 << size); ++extra) {
      const int value = extra < (1 << (size - 1)) ? extra - (1 << size) + 1 : extra;
      const int entry = (first | extra << rest);
      for (int j = 0; j < (1 << rest); ++j) {
        table.acLookup[entry + j] =
            static_cast<int16_t>(value * 256 + (run << 4 | (lengths[i] + size)));
      }
    }
  }
  return true;
}

bool BuildHuffmanEncodeTable(const uint8_t bits[16], const uint8_t* values,
                             SmHuffmanEncodeTable& table) {
  uint8_t lengths[256];
  uint16_t codes[256];
  int count = 0;
  if (!CanonicalCodes(bits, lengths, codes, count)) {
    return false;
  }
  std::memset(&table, 0, sizeof table);
  for (int i = 0; i < count; ++i) {
    if (table.size[values[i]] != 0) {
      return false; // a symbol with two codes
    }
    table.code[values[i]] = codes[i];
    table.size[values[i]] = lengths[i];
  }
  return true;
}

using namespace NmHuffmanDetail;

bool DecodeBlockSequential(SmEntropySource& source, SmHuffmanDecodeState& state,
                           const SmHuffmanDecodeTable& dc, const SmHuffmanDecodeTable& ac,
                           int16_t* block, int32_t& lastDC) {
  return DecodeSequential<true, true>(source, state, dc, ac, block, lastDC);
}
bool DecodeBlockSequentialDCOnly(SmEntropySource& source, SmHuffmanDecodeState& state,
                                 const SmHuffmanDecodeTable& dc, const SmHuffmanDecodeTable& ac,
                                 int16_t* block, int32_t& lastDC) {
  return DecodeSequential<true, false>(source, state, dc, ac, block, lastDC);
}
size_t DecodeMcusSequential(SmEntropySource& source, SmHuffmanDecodeState& state,
                            const SmHuffmanMcuBlock* blocks, int count, size_t mcus, bool dcOnly,
                            size_t reserve, bool& damaged) {
  return dcOnly ? DecodeMcus<true, false>(source, state, blocks, count, mcus, reserve, damaged)
                : DecodeMcus<true, true>(source, state, blocks, count, mcus, reserve, damaged);
}
bool DecodeBlockDCFirst(SmEntropySource& source, SmHuffmanDecodeState& state,
                        const SmHuffmanDecodeTable& dc, int16_t* block, int32_t& lastDC,
                        int successiveLow) {
  return DecodeDCFirst<true>(source, state, dc, block, lastDC, successiveLow);
}
bool DecodeBlockDCRefine(SmEntropySource& source, SmHuffmanDecodeState& state, int16_t* block,
                         int successiveLow) {
  return DCRefine(source, state, block, successiveLow);
}
bool DecodeBlockACFirst(SmEntropySource& source, SmHuffmanDecodeState& state,
                        const SmHuffmanDecodeTable& ac, int16_t* block, int spectralStart,
                        int spectralEnd, int successiveLow) {
  return DecodeACFirst<true>(source, state, ac, block, spectralStart, spectralEnd, successiveLow);
}
bool DecodeBlockACRefine(SmEntropySource& source, SmHuffmanDecodeState& state,
                         const SmHuffmanDecodeTable& ac, int16_t* block, int spectralStart,
                         int spectralEnd, int successiveLow) {
  return DecodeACRefine<true>(source, state, ac, block, spectralStart, spectralEnd, successiveLow);
}
bool DecodeLosslessDifference(SmEntropySource& source, SmHuffmanDecodeState& state,
                              const SmHuffmanDecodeTable& table, int32_t& difference) {
  return DecodeDifference<true>(source, state, table, difference);
}

} // namespace NmPrimitives
