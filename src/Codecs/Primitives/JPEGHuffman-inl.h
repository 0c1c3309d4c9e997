// The bit reader and the block decoders, shared by the lookup-table path and
// the bit-wise reference, which differ only in how a symbol is found.
#pragma once

#include <cstring>

#include "Codecs/Primitives/JPEGHuffman.h"
#include "Codecs/Primitives/JPEGTables.h"

namespace NmPrimitives::NmHuffmanDetail {

// Tops the bit buffer up to at least 57 bits. Stuffed zero bytes are dropped;
// at a marker or at the end of the data the buffer is filled with zeros.
__attribute__((always_inline)) inline void FillBits(SmEntropySource& source,
                                                    SmHuffmanDecodeState& state) {
  // Most of the time the next eight bytes hold no 0xFF: take as many whole
  // bytes as fit in one go.
  if (state.marker == 0 && source.position + 8 <= source.size) {
    uint64_t word;
    std::memcpy(&word, source.data + source.position, sizeof word);
    word = __builtin_bswap64(word);
    const uint64_t inverted = ~word;
    const bool hasFF =
        ((inverted - 0x0101010101010101ull) & ~inverted & 0x8080808080808080ull) != 0;
    if (!hasFF) {
      const int bytes = (63 - state.count) >> 3;
      if (bytes > 0) {
        state.bits |= (word >> (64 - 8 * bytes)) << (64 - 8 * bytes - state.count);
        state.count += 8 * bytes;
        source.position += static_cast<size_t>(bytes);
      }
    }
  }
  while (state.count <= 56) {
    uint64_t byte = 0;
    if (state.marker == 0 && source.position < source.size) {
      byte = source.data[source.position];
      if (byte != 0xFF) {
        ++source.position;
      } else {
        size_t next = source.position + 1;
        while (next < source.size && source.data[next] == 0xFF) {
          ++next; // fill bytes before a marker
        }
        if (next >= source.size) {
          source.position = source.size;
          byte = 0;
          ++state.paddingBytes;
        } else if (source.data[next] == 0) {
          source.position = next + 1;
        } else {
          // Leave the marker for the caller, with its last 0xFF.
          state.marker = source.data[next];
          source.position = next - 1;
          byte = 0;
          ++state.paddingBytes;
        }
      }
    } else {
      ++state.paddingBytes;
    }
    state.bits |= byte << (56 - state.count);
    state.count += 8;
  }
}

__attribute__((always_inline)) inline void EnsureBits(SmEntropySource& source,
                                                      SmHuffmanDecodeState& state) {
  if (state.count < 32) {
    FillBits(source, state);
  }
}

__attribute__((always_inline)) inline uint32_t PeekBits(const SmHuffmanDecodeState& state, int n) {
  return static_cast<uint32_t>(state.bits >> (64 - n));
}

__attribute__((always_inline)) inline void SkipBits(SmHuffmanDecodeState& state, int n) {
  state.bits <<= n;
  state.count -= n;
}

// n in 0..16; the buffer must hold n bits.
__attribute__((always_inline)) inline uint32_t GetBits(SmHuffmanDecodeState& state, int n) {
  if (n == 0) {
    return 0;
  }
  const uint32_t value = PeekBits(state, n);
  SkipBits(state, n);
  return value;
}

// T.81 F.2.2.1: the n extra bits of a magnitude category, as a signed value.
__attribute__((always_inline)) inline int32_t ReceiveExtend(SmHuffmanDecodeState& state, int n) {
  if (n == 0) {
    return 0;
  }
  const int32_t value = static_cast<int32_t>(GetBits(state, n));
  return value < (1 << (n - 1)) ? value - (1 << n) + 1 : value;
}

// The buffer must hold 16 bits. -1 for a code that the table lacks.
template <bool kLookup>
__attribute__((always_inline)) inline int DecodeSymbol(SmHuffmanDecodeState& state,
                                                       const SmHuffmanDecodeTable& table) {
  int length = 1;
  if constexpr (kLookup) {
    const uint16_t entry = table.lookup[PeekBits(state, kHuffmanLookupBits)];
    if (entry != 0) {
      SkipBits(state, entry >> 8);
      return entry & 0xFF;
    }
    length = kHuffmanLookupBits + 1;
  }
  int32_t code = static_cast<int32_t>(PeekBits(state, length));
  while (length <= 16 && code > table.maxCode[length]) {
    ++length;
    code = static_cast<int32_t>(PeekBits(state, length));
  }
  if (length > 16) {
    return -1;
  }
  SkipBits(state, length);
  return table.values[(code + table.valueOffset[length]) & 0xFF];
}

inline int32_t AddWrapping(int32_t a, int32_t b) {
  return static_cast<int32_t>(static_cast<uint32_t>(a) + static_cast<uint32_t>(b));
}

template <bool kLookup, bool kStoreAC>
__attribute__((always_inline)) inline bool
DecodeSequentialLocal(SmEntropySource& source, SmHuffmanDecodeState& state,
                      const SmHuffmanDecodeTable& dc, const SmHuffmanDecodeTable& ac,
                      int16_t* block, int32_t& lastDC);

// The hot loop works on copies, which the compiler can keep in registers.
template <bool kLookup, bool kStoreAC>
bool DecodeSequential(SmEntropySource& source, SmHuffmanDecodeState& state,
                      const SmHuffmanDecodeTable& dc, const SmHuffmanDecodeTable& ac,
                      int16_t* block, int32_t& lastDC) {
  SmEntropySource localSource = source;
  SmHuffmanDecodeState localState = state;
  int32_t localDC = lastDC;
  const bool ok =
      DecodeSequentialLocal<kLookup, kStoreAC>(localSource, localState, dc, ac, block, localDC);
  source = localSource;
  state = localState;
  lastDC = localDC;
  return ok;
}

// Inlined into DecodeSequential, so that the copies never reach memory.
template <bool kLookup, bool kStoreAC>
__attribute__((always_inline)) inline bool
DecodeSequentialLocal(SmEntropySource& source, SmHuffmanDecodeState& state,
                      const SmHuffmanDecodeTable& dc, const SmHuffmanDecodeTable& ac,
                      int16_t* block, int32_t& lastDC) {
  EnsureBits(source, state);
  const int category = DecodeSymbol<kLookup>(state, dc);
  if (category < 0 || category > 15) {
    return false;
  }
  lastDC = AddWrapping(lastDC, ReceiveExtend(state, category));
  block[0] = static_cast<int16_t>(lastDC);
  for (int k = 1; k < 64; ++k) {
    EnsureBits(source, state);
    if constexpr (kLookup) {
      // Short code with a small value: one lookup gives both.
      const int16_t entry = ac.acLookup[PeekBits(state, kHuffmanLookupBits)];
      if (entry != 0) {
        SkipBits(state, entry & 15);
        if ((entry >> 4) == 0) {
          break; // end of block
        }
        k += (entry >> 4) & 15;
        if constexpr (kStoreAC) {
          block[kJPEGNaturalOrder[k]] = static_cast<int16_t>(entry >> 8);
        }
        continue;
      }
    }
    const int symbol = DecodeSymbol<kLookup>(state, ac);
    if (symbol < 0) {
      return false;
    }
    const int run = symbol >> 4;
    const int size = symbol & 15;
    if (size != 0) {
      k += run;
      const int32_t value = ReceiveExtend(state, size);
      if constexpr (kStoreAC) {
        block[kJPEGNaturalOrder[k]] = static_cast<int16_t>(value);
      }
    } else if (run == 15) {
      k += 15;
    } else {
      break;
    }
  }
  return true;
}

template <bool kLookup, bool kStoreAC>
size_t DecodeMcus(SmEntropySource& sourceOut, SmHuffmanDecodeState& stateOut,
                  const SmHuffmanMcuBlock* blocks, int count, size_t mcus, size_t reserve,
                  bool& damaged) {
  SmEntropySource source = sourceOut;
  SmHuffmanDecodeState state = stateOut;
  size_t done = 0;
  for (; done < mcus; ++done) {
    if (source.size - source.position < reserve) {
      break;
    }
    for (int i = 0; i < count; ++i) {
      const SmHuffmanMcuBlock& b = blocks[i];
      int16_t* block = b.block + done * b.step;
      if constexpr (kStoreAC) {
        std::memset(block, 0, 64 * sizeof(int16_t));
      }
      int32_t lastDC = *b.lastDC;
      const bool ok =
          DecodeSequentialLocal<kLookup, kStoreAC>(source, state, *b.dc, *b.ac, block, lastDC);
      *b.lastDC = lastDC;
      if (!ok) {
        damaged = true;
        sourceOut = source;
        stateOut = state;
        return done;
      }
    }
  }
  sourceOut = source;
  stateOut = state;
  return done;
}

template <bool kLookup>
bool DecodeDCFirst(SmEntropySource& source, SmHuffmanDecodeState& state,
                   const SmHuffmanDecodeTable& dc, int16_t* block, int32_t& lastDC,
                   int successiveLow) {
  EnsureBits(source, state);
  const int category = DecodeSymbol<kLookup>(state, dc);
  if (category < 0 || category > 15) {
    return false;
  }
  lastDC = AddWrapping(lastDC, ReceiveExtend(state, category));
  block[0] = static_cast<int16_t>(static_cast<uint32_t>(lastDC) << (successiveLow & 15));
  return true;
}

inline bool DCRefine(SmEntropySource& source, SmHuffmanDecodeState& state, int16_t* block,
                     int successiveLow) {
  EnsureBits(source, state);
  if (GetBits(state, 1) != 0) {
    block[0] = static_cast<int16_t>(block[0] | (1 << (successiveLow & 15)));
  }
  return true;
}

template <bool kLookup>
bool DecodeACFirst(SmEntropySource& source, SmHuffmanDecodeState& state,
                   const SmHuffmanDecodeTable& ac, int16_t* block, int spectralStart,
                   int spectralEnd, int successiveLow) {
  if (state.endOfBandRun > 0) {
    --state.endOfBandRun;
    return true;
  }
  for (int k = spectralStart; k <= spectralEnd; ++k) {
    EnsureBits(source, state);
    const int symbol = DecodeSymbol<kLookup>(state, ac);
    if (symbol < 0) {
      return false;
    }
    const int run = symbol >> 4;
    const int size = symbol & 15;
    if (size != 0) {
      k += run;
      const uint32_t value = static_cast<uint32_t>(ReceiveExtend(state, size));
      block[kJPEGNaturalOrder[k]] = static_cast<int16_t>(value << (successiveLow & 15));
    } else if (run == 15) {
      k += 15;
    } else {
      state.endOfBandRun = (1u << run) + GetBits(state, run) - 1;
      break;
    }
  }
  return true;
}

// T.81 G.1.2.3: new coefficients of magnitude 1 << successiveLow, and one
// correction bit for each coefficient that is already non-zero.
template <bool kLookup>
bool DecodeACRefine(SmEntropySource& source, SmHuffmanDecodeState& state,
                    const SmHuffmanDecodeTable& ac, int16_t* block, int spectralStart,
                    int spectralEnd, int successiveLow) {
  const int positive = 1 << (successiveLow & 15);
  const int negative = -positive;
  int k = spectralStart;
  auto correct = [&](int16_t& coefficient) {
    if (GetBits(state, 1) != 0 && (coefficient & positive) == 0) {
      coefficient = static_cast<int16_t>(coefficient + (coefficient >= 0 ? positive : negative));
    }
  };
  if (state.endOfBandRun == 0) {
    for (; k <= spectralEnd; ++k) {
      EnsureBits(source, state);
      const int symbol = DecodeSymbol<kLookup>(state, ac);
      if (symbol < 0) {
        return false;
      }
      int run = symbol >> 4;
      int value = 0;
      if ((symbol & 15) != 0) {
        value = GetBits(state, 1) != 0 ? positive : negative;
      } else if (run != 15) {
        state.endOfBandRun = (1u << run) + GetBits(state, run);
        break;
      }
      while (k <= spectralEnd) {
        int16_t& coefficient = block[kJPEGNaturalOrder[k]];
        EnsureBits(source, state);
        if (coefficient != 0) {
          correct(coefficient);
        } else if (--run < 0) {
          break;
        }
        ++k;
      }
      if (value != 0) {
        block[kJPEGNaturalOrder[k]] = static_cast<int16_t>(value);
      }
    }
  }
  if (state.endOfBandRun > 0) {
    for (; k <= spectralEnd; ++k) {
      int16_t& coefficient = block[kJPEGNaturalOrder[k]];
      if (coefficient != 0) {
        EnsureBits(source, state);
        correct(coefficient);
      }
    }
    --state.endOfBandRun;
  }
  return true;
}

template <bool kLookup>
bool DecodeDifference(SmEntropySource& source, SmHuffmanDecodeState& state,
                      const SmHuffmanDecodeTable& table, int32_t& difference) {
  EnsureBits(source, state);
  const int category = DecodeSymbol<kLookup>(state, table);
  if (category < 0 || category > 16) {
    return false;
  }
  difference = category == 16 ? 32768 : ReceiveExtend(state, category);
  return true;
}

} // namespace NmPrimitives::NmHuffmanDetail
