#include "Codecs/H264/Cavlc.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstdint>
#include <cstdlib>
#include <stdexcept>

namespace NmH264 {

namespace NmCavlcTables {

namespace {

// Table 9-5, one row per (TrailingOnes, TotalCoeff) in the order
// (0,0), (0,1), (1,1), (0,2), (1,2), (2,2), (0,3) ... (3,16); columns
// 0 <= nC < 2, 2 <= nC < 4, 4 <= nC < 8, nC == -1 ("" where unused).
// 8 <= nC is a fixed 6-bit code and is made by rule.
constexpr const char* CoeffTokenRows[][4] = {
    {"1", "11", "1111", "01"},
    {"000101", "001011", "001111", "000111"},
    {"01", "10", "1110", "1"},
    {"00000111", "000111", "001011", "000100"},
    {"000100", "00111", "01111", "000110"},
    {"001", "011", "1101", "001"},
    {"000000111", "0000111", "001000", "000011"},
    {"00000110", "001010", "01100", "0000011"},
    {"0000101", "001001", "01110", "0000010"},
    {"00011", "0101", "1100", "000101"},
    {"0000000111", "00000111", "0001111", "000010"},
    {"000000110", "000110", "01010", "00000011"},
    {"00000101", "000101", "01011", "00000010"},
    {"000011", "0100", "1011", "0000000"},
    {"00000000111", "00000100", "0001011", ""},
    {"0000000110", "0000110", "01000", ""},
    {"000000101", "0000101", "01001", ""},
    {"0000100", "00110", "1010", ""},
    {"0000000001111", "000000111", "0001001", ""},
    {"00000000110", "00000110", "001110", ""},
    {"0000000101", "00000101", "001101", ""},
    {"00000100", "001000", "1001", ""},
    {"0000000001011", "00000001111", "0001000", ""},
    {"0000000001110", "000000110", "001010", ""},
    {"00000000101", "000000101", "001001", ""},
    {"000000100", "000100", "1000", ""},
    {"0000000001000", "00000001011", "00001111", ""},
    {"0000000001010", "00000001110", "0001110", ""},
    {"0000000001101", "00000001101", "0001101", ""},
    {"0000000100", "0000100", "01101", ""},
    {"00000000001111", "000000001111", "00001011", ""},
    {"00000000001110", "00000001010", "00001110", ""},
    {"0000000001001", "00000001001", "0001010", ""},
    {"00000000100", "000000100", "001100", ""},
    {"00000000001011", "000000001011", "000001111", ""},
    {"00000000001010", "000000001110", "00001010", ""},
    {"00000000001101", "000000001101", "00001101", ""},
    {"0000000001100", "00000001100", "0001100", ""},
    {"000000000001111", "000000001000", "000001011", ""},
    {"000000000001110", "000000001010", "000001110", ""},
    {"00000000001001", "000000001001", "00001001", ""},
    {"00000000001100", "00000001000", "00001100", ""},
    {"000000000001011", "0000000001111", "000001000", ""},
    {"000000000001010", "0000000001110", "000001010", ""},
    {"000000000001101", "0000000001101", "000001101", ""},
    {"00000000001000", "000000001100", "00001000", ""},
    {"0000000000001111", "0000000001011", "0000001101", ""},
    {"000000000000001", "0000000001010", "000000111", ""},
    {"000000000001001", "0000000001001", "000001001", ""},
    {"000000000001100", "0000000001100", "000001100", ""},
    {"0000000000001011", "0000000000111", "0000001001", ""},
    {"0000000000001110", "00000000001011", "0000001100", ""},
    {"0000000000001101", "0000000000110", "0000001011", ""},
    {"000000000001000", "0000000001000", "0000001010", ""},
    {"0000000000000111", "00000000001001", "0000000101", ""},
    {"0000000000001010", "00000000001000", "0000001000", ""},
    {"0000000000001001", "00000000001010", "0000000111", ""},
    {"0000000000001100", "0000000000001", "0000000110", ""},
    {"0000000000000100", "00000000000111", "0000000001", ""},
    {"0000000000000110", "00000000000110", "0000000100", ""},
    {"0000000000000101", "00000000000101", "0000000011", ""},
    {"0000000000001000", "00000000000100", "0000000010", ""},
};

// Table 9-7 and 9-8: total_zeros for TotalCoeff 1 to 15, from total_zeros 0 on.
constexpr const char* TotalZerosRows[15][16] = {
    {"1", "011", "010", "0011", "0010", "00011", "00010", "000011", "000010", "0000011", "0000010",
     "00000011", "00000010", "000000011", "000000010", "000000001"},
    {"111", "110", "101", "100", "011", "0101", "0100", "0011", "0010", "00011", "00010", "000011",
     "000010", "000001", "000000"},
    {"0101", "111", "110", "101", "0100", "0011", "100", "011", "0010", "00011", "00010", "000001",
     "00001", "000000"},
    {"00011", "111", "0101", "0100", "110", "101", "100", "0011", "011", "0010", "00010", "00001",
     "00000"},
    {"0101", "0100", "0011", "111", "110", "101", "100", "011", "0010", "00001", "0001", "00000"},
    {"000001", "00001", "111", "110", "101", "100", "011", "010", "0001", "001", "000000"},
    {"000001", "00001", "101", "100", "011", "11", "010", "0001", "001", "000000"},
    {"000001", "0001", "00001", "011", "11", "10", "010", "001", "000000"},
    {"000001", "000000", "0001", "11", "10", "001", "01", "00001"},
    {"00001", "00000", "001", "11", "10", "01", "0001"},
    {"0000", "0001", "001", "010", "1", "011"},
    {"0000", "0001", "01", "1", "001"},
    {"000", "001", "1", "01"},
    {"00", "01", "1"},
    {"0", "1"},
};

// Table 9-9 (a): total_zeros of the 2x2 chroma DC, TotalCoeff 1 to 3.
constexpr const char* TotalZerosChromaDcRows[3][4] = {
    {"1", "01", "001", "000"},
    {"1", "01", "00"},
    {"1", "0"},
};

// Table 9-10: run_before for zerosLeft 1 to 6 and above 6.
constexpr const char* RunBeforeRows[7][15] = {
    {"1", "0"},
    {"1", "01", "00"},
    {"11", "10", "01", "00"},
    {"11", "10", "01", "001", "000"},
    {"11", "10", "011", "010", "001", "000"},
    {"11", "000", "001", "011", "010", "101", "100"},
    {"111", "110", "101", "100", "011", "010", "001", "0001", "00001", "000001", "0000001",
     "00000001", "000000001", "0000000001", "00000000001"},
};

std::vector<SmVlcSymbol> MakeCoeffTokenCodes(int nCClass) {
  std::vector<SmVlcSymbol> codes;
  if (nCClass == 3) {
    // xxxxyy: TotalCoeff - 1 and TrailingOnes; 000011 for no coefficients.
    codes.push_back({"000011", 0});
    for (int total = 1; total <= 16; ++total) {
      for (int ones = 0; ones <= std::min(total, 3); ++ones) {
        const int value = (total - 1) << 2 | ones;
        std::string bits(6, '0');
        for (int b = 0; b < 6; ++b) {
          bits[static_cast<size_t>(b)] = (value >> (5 - b) & 1) != 0 ? '1' : '0';
        }
        codes.push_back({bits, total * 4 + ones});
      }
    }
    return codes;
  }
  const int column = nCClass == 4 ? 3 : nCClass;
  size_t row = 0;
  for (int total = 0; total <= 16; ++total) {
    for (int ones = 0; ones <= std::min(total, 3); ++ones, ++row) {
      const char* bits = CoeffTokenRows[row][column];
      if (*bits != '\0') {
        codes.push_back({bits, total * 4 + ones});
      }
    }
  }
  return codes;
}

template <size_t N> std::vector<SmVlcSymbol> MakeCodes(const char* const (&row)[N]) {
  std::vector<SmVlcSymbol> codes;
  for (size_t i = 0; i < N && row[i] != nullptr; ++i) {
    codes.push_back({row[i], static_cast<int>(i)});
  }
  return codes;
}

} // namespace

const std::vector<SmVlcSymbol>& GetCoeffTokenCodes(int nCClass) {
  static const std::array<std::vector<SmVlcSymbol>, 5> codes = {
      MakeCoeffTokenCodes(0), MakeCoeffTokenCodes(1), MakeCoeffTokenCodes(2),
      MakeCoeffTokenCodes(3), MakeCoeffTokenCodes(4)};
  return codes.at(static_cast<size_t>(nCClass));
}

const std::vector<SmVlcSymbol>& GetTotalZerosCodes(int totalCoeff, bool chromaDc) {
  static const auto tables = [] {
    std::array<std::vector<SmVlcSymbol>, 15> all;
    for (size_t i = 0; i < 15; ++i) {
      all[i] = MakeCodes(TotalZerosRows[i]);
    }
    return all;
  }();
  static const auto chroma = [] {
    std::array<std::vector<SmVlcSymbol>, 3> all;
    for (size_t i = 0; i < 3; ++i) {
      all[i] = MakeCodes(TotalZerosChromaDcRows[i]);
    }
    return all;
  }();
  return chromaDc ? chroma.at(static_cast<size_t>(totalCoeff - 1))
                  : tables.at(static_cast<size_t>(totalCoeff - 1));
}

const std::vector<SmVlcSymbol>& GetRunBeforeCodes(int zerosLeft) {
  static const auto tables = [] {
    std::array<std::vector<SmVlcSymbol>, 7> all;
    for (size_t i = 0; i < 7; ++i) {
      all[i] = MakeCodes(RunBeforeRows[i]);
    }
    return all;
  }();
  return tables.at(static_cast<size_t>(std::min(zerosLeft, 7) - 1));
}

} // namespace NmCavlcTables

namespace {

// The tables of the decoder, made at compile time from the rows above: each
// code is found by the number of its leading zeros, up to a limit, and the
// next few bits, so a code of any length costs one count of leading zeros
// and one table read, with no search and no second level. The limit and the
// number of bits are chosen per table to keep it smallest.
struct SmCode {
  uint16_t value;
  uint8_t length;
  uint8_t symbol;
};

struct SmCodeSet {
  SmCode codes[68]{};
  int count = 0;

  constexpr void Add(const char* bits, int symbol) {
    SmCode code{0, 0, static_cast<uint8_t>(symbol)};
    for (; *bits != '\0'; ++bits) {
      code.value = static_cast<uint16_t>(code.value << 1 | (*bits == '1' ? 1 : 0));
      ++code.length;
    }
    codes[count++] = code;
  }
  constexpr void Add(uint16_t value, uint8_t length, int symbol) {
    codes[count++] = SmCode{value, length, static_cast<uint8_t>(symbol)};
  }
};

// Sets in the decoder's table: coeff_token by nC class, total_zeros of 4x4
// blocks by TotalCoeff, of chroma DC by TotalCoeff.
constexpr int CoeffTokenSet = 0;
constexpr int TotalZerosSet = 5;
constexpr int TotalZerosChromaDcSet = TotalZerosSet + 15;
constexpr int SetCount = TotalZerosChromaDcSet + 3;

constexpr std::array<SmCodeSet, SetCount> MakeCodeSets() {
  using namespace NmCavlcTables;
  std::array<SmCodeSet, SetCount> sets{};
  for (int nCClass = 0; nCClass < 5; ++nCClass) {
    SmCodeSet& set = sets[CoeffTokenSet + nCClass];
    if (nCClass == 3) {
      // xxxxyy: TotalCoeff - 1 and TrailingOnes; 000011 for no coefficients.
      set.Add(3, 6, 0);
      for (int total = 1; total <= 16; ++total) {
        for (int ones = 0; ones <= std::min(total, 3); ++ones) {
          set.Add(static_cast<uint16_t>((total - 1) << 2 | ones), 6, total * 4 + ones);
        }
      }
      continue;
    }
    const int column = nCClass == 4 ? 3 : nCClass;
    int row = 0;
    for (int total = 0; total <= 16; ++total) {
      for (int ones = 0; ones <= std::min(total, 3); ++ones, ++row) {
        if (*CoeffTokenRows[row][column] != '\0') {
          set.Add(CoeffTokenRows[row][column], total * 4 + ones);
        }
      }
    }
  }
  for (int n = 0; n < 15; ++n) {
    for (int i = 0; i < 16 && TotalZerosRows[n][i] != nullptr; ++i) {
      sets[TotalZerosSet + n].Add(TotalZerosRows[n][i], i);
    }
  }
  for (int n = 0; n < 3; ++n) {
    for (int i = 0; i < 4 && TotalZerosChromaDcRows[n][i] != nullptr; ++i) {
      sets[TotalZerosChromaDcSet + n].Add(TotalZerosChromaDcRows[n][i], i);
    }
  }
  return sets;
}

constexpr std::array<SmCodeSet, SetCount> CodeSets = MakeCodeSets();

// Where a set lies in the table: the entry of the first code, the most
// leading zeros told apart, and the bits read after them.
struct SmShape {
  uint16_t base;
  uint8_t maxZeros;
  uint8_t width;
};

constexpr int LeadingZeros(const SmCode& code) {
  return code.length - static_cast<int>(std::bit_width(static_cast<unsigned>(code.value)));
}

constexpr SmShape ShapeOf(const SmCodeSet& set) {
  SmShape best{0, 0, 0};
  int bestSize = 1 << 30;
  for (int maxZeros = 0; maxZeros <= 16; ++maxZeros) {
    int width = 1;
    for (int i = 0; i < set.count; ++i) {
      width = std::max(width, set.codes[i].length - std::min(LeadingZeros(set.codes[i]), maxZeros));
    }
    const int size = (maxZeros + 1) << width;
    if (size < bestSize) {
      bestSize = size;
      best = SmShape{0, static_cast<uint8_t>(maxZeros), static_cast<uint8_t>(width)};
    }
  }
  return best;
}

constexpr size_t CountEntries() {
  size_t count = 0;
  for (const SmCodeSet& set : CodeSets) {
    const SmShape shape = ShapeOf(set);
    count += size_t{shape.maxZeros + 1u} << shape.width;
  }
  return count;
}

// An entry is symbol << 8 | code length; 0 where no code begins so.
struct SmVlcTables {
  SmShape shapes[SetCount]{};
  uint16_t entries[CountEntries()]{};
};

constexpr SmVlcTables MakeVlcTables() {
  SmVlcTables tables{};
  size_t base = 0;
  for (int s = 0; s < SetCount; ++s) {
    const SmCodeSet& set = CodeSets[static_cast<size_t>(s)];
    SmShape shape = ShapeOf(set);
    shape.base = static_cast<uint16_t>(base);
    tables.shapes[s] = shape;
    for (int i = 0; i < set.count; ++i) {
      const SmCode& code = set.codes[i];
      const int zeros = std::min(LeadingZeros(code), int{shape.maxZeros});
      const int rest = code.length - zeros;
      const size_t first = base + (size_t(zeros) << shape.width) +
                           (size_t(code.value & ((1u << rest) - 1)) << (shape.width - rest));
      for (size_t k = 0; k < size_t{1} << (shape.width - rest); ++k) {
        tables.entries[first + k] = static_cast<uint16_t>(code.symbol << 8 | code.length);
      }
    }
    base += size_t{shape.maxZeros + 1u} << shape.width;
  }
  return tables;
}

constexpr SmVlcTables VlcTables = MakeVlcTables();

// The entry of the code that begins the 32 bits.
inline uint32_t LookUp(int set, uint32_t bits) {
  const SmShape shape = VlcTables.shapes[set];
  // No table tells more than 16 zeros apart, so all zeros may count as 31.
  const int zeros = std::min(std::countl_zero(bits | 1), int{shape.maxZeros});
  return VlcTables.entries[shape.base + (unsigned(zeros) << shape.width) +
                           ((bits << zeros) >> (32 - shape.width))];
}

// run_before by zerosLeft (0 to 15, all above 6 alike) and the next three
// bits: run << 4 | code length, RunEscape for the longer codes of zerosLeft
// above 6, which are a count of zeros. No code of a row gives a run above
// its zerosLeft but those longer ones.
constexpr uint8_t RunEscape = 0xFF;

constexpr std::array<std::array<uint8_t, 8>, 16> MakeRunBeforeTable() {
  std::array<std::array<uint8_t, 8>, 16> table{};
  for (size_t zerosLeft = 7; zerosLeft < 16; ++zerosLeft) {
    table[zerosLeft][0] = RunEscape;
  }
  for (size_t zerosLeft = 1; zerosLeft < 16; ++zerosLeft) {
    const size_t z = std::min<size_t>(zerosLeft, 7) - 1;
    for (int run = 0; run < 15 && NmCavlcTables::RunBeforeRows[z][run] != nullptr; ++run) {
      SmCodeSet set;
      set.Add(NmCavlcTables::RunBeforeRows[z][run], run);
      const SmCode& code = set.codes[0];
      if (code.length <= 3) {
        for (unsigned k = 0; k < 1u << (3 - code.length); ++k) {
          table[zerosLeft][(unsigned{code.value} << (3 - code.length)) + k] =
              static_cast<uint8_t>(run << 4 | code.length);
        }
      }
    }
  }
  return table;
}

constexpr std::array<std::array<uint8_t, 8>, 16> RunBeforeTable = MakeRunBeforeTable();

// The next suffixLength after a level, by the current one: at least 1, and
// one more when the level's magnitude exceeds the threshold.
constexpr int8_t NextSuffixLength[7] = {1, 1, 2, 3, 4, 5, 6};
constexpr int32_t SuffixThreshold[7] = {3, 3, 6, 12, 24, 48, INT32_MAX};

// The usual level is one table read by suffixLength and the next LevelBits
// bits, which gives the level, its code's length and the suffixLength
// after it: no count of zeros, no arithmetic and no update of
// suffixLength on the path that every level of a block waits for. A code
// longer than the bits has length 0 and is read by counting.
constexpr int LevelBits = 8;
struct SmLevelEntry {
  uint8_t length;
  uint8_t nextSuffixLength;
  int16_t level;
};
using SmLevelTable = std::array<std::array<SmLevelEntry, 1 << LevelBits>, 7>;

constexpr SmLevelTable MakeLevelTable() {
  SmLevelTable table{};
  for (int suffixLength = 0; suffixLength < 7; ++suffixLength) {
    for (int bits = 0; bits < 1 << LevelBits; ++bits) {
      const int prefix = std::countl_zero(static_cast<uint8_t>(bits));
      const int length = prefix + 1 + suffixLength;
      if (length > LevelBits) {
        continue;
      }
      const int suffix = bits >> (LevelBits - length) & ((1 << suffixLength) - 1);
      const int levelCode = (prefix << suffixLength) + suffix;
      const int magnitude = (levelCode >> 1) + 1;
      table[static_cast<size_t>(suffixLength)][static_cast<size_t>(bits)] =
          SmLevelEntry{static_cast<uint8_t>(length),
                       static_cast<uint8_t>(NextSuffixLength[suffixLength] +
                                            (magnitude > SuffixThreshold[suffixLength] ? 1 : 0)),
                       static_cast<int16_t>(levelCode % 2 == 0 ? magnitude : -magnitude)};
    }
  }
  return table;
}

constexpr SmLevelTable LevelTable = MakeLevelTable();

// coeff_token's class by nC, for nC from -1 to 16.
constexpr uint8_t CoeffTokenClass[18] = {4, 0, 0, 1, 1, 2, 2, 2, 2, 3, 3, 3, 3, 3, 3, 3, 3, 3};

// A level whose prefix is 14 or more: the escapes, with suffixes of up to
// 28 bits. levelCode lacks the adjustment of the first level.
[[gnu::always_inline]] inline int ReadEscapedLevel(CmBitCursor& window, int prefix,
                                                   int suffixLength, int64_t& levelCode) {
  int suffixSize = suffixLength;
  if (prefix == 14 && suffixLength == 0) {
    suffixSize = 4;
  } else if (prefix >= 15) {
    suffixSize = prefix - 3;
  }
  if (suffixSize > 31) {
    return -1;
  }
  const int64_t suffix = suffixSize > 0 ? window.Read(static_cast<unsigned>(suffixSize)) : 0;
  levelCode = (int64_t{std::min(15, prefix)} << suffixLength) + suffix;
  if (prefix >= 15 && suffixLength == 0) {
    levelCode += 15;
  }
  if (prefix >= 16) {
    levelCode += (int64_t{1} << (prefix - 3)) - 4096;
  }
  return 0;
}

// A level whose code is longer than the table's bits, with adjust added to
// its levelCode; false for damage. A code of a prefix below 14 has at most
// 20 bits, which the window holds; the escapes need the whole window.
[[gnu::always_inline]] inline bool ReadLongLevel(CmBitCursor& window, int suffixLength, int adjust,
                                                 int& level) {
  const uint32_t bits = window.Peek();
  int levelCode = 0;
  int prefix = std::countl_zero(bits | 1);
  if (prefix < 14) {
    // The prefix's zeros, its one and the suffix read as a number are
    // 2^suffixLength + level_suffix.
    const int length = prefix + 1 + suffixLength;
    window.Skip(static_cast<unsigned>(length));
    levelCode = (prefix << suffixLength) + static_cast<int>(bits >> (32 - length)) -
                (1 << suffixLength) + adjust;
  } else {
    // A prefix that fills the window gives a level beyond 16 bits in any
    // case, which is damage.
    if (bits == 0) {
      return false;
    }
    prefix = std::countl_zero(bits);
    window.Skip(static_cast<unsigned>(prefix) + 1);
    int64_t escaped = 0;
    if (ReadEscapedLevel(window, prefix, suffixLength, escaped) < 0) {
      return false;
    }
    escaped += adjust;
    // Coefficients of 8-bit video fit 16 bits; larger ones are damage:
    // above 32767 for even codes, below -32768 for odd ones.
    if (escaped > (escaped % 2 == 0 ? 65532 : 65535)) {
      return false;
    }
    levelCode = static_cast<int>(escaped);
  }
  // Even codes are positive levels, odd ones negative.
  const int magnitude = (levelCode >> 1) + 1;
  level = (levelCode & 1) != 0 ? -magnitude : magnitude;
  return true;
}

// One block; ChromaDc picks the total_zeros tables of the 2x2 chroma DC.
// Inlined into callers that pass the range as constants. The window is
// refilled at the start, which leaves room for the coeff_token, the signs of
// the trailing ones and the first level; later codes refill only when the
// window cannot hold the longest code of their kind.
template <bool ChromaDc>
[[gnu::always_inline]] inline int ReadBlock(CmBitCursor& window, int nC, int startIdx, int endIdx,
                                            int maxNumCoeff, int16_t* coefficients) {
  const int numCoeff = endIdx - startIdx + 1;
  window.Refill();
  const int nCClass = CoeffTokenClass[std::clamp(nC, -1, 16) + 1];
  const uint32_t tokenEntry = LookUp(CoeffTokenSet + nCClass, window.PeekFilled());
  if (tokenEntry == 0) {
    return -1;
  }
  window.Skip(tokenEntry & 0xFF);
  const int totalCoeff = static_cast<int>(tokenEntry >> 10 & 31);
  const int trailingOnes = static_cast<int>(tokenEntry >> 8 & 3);
  if (totalCoeff == 0) {
    std::fill(coefficients + startIdx, coefficients + endIdx + 1, int16_t{0});
    return 0;
  }
  if (totalCoeff > maxNumCoeff || totalCoeff > numCoeff) {
    return -1;
  }
  // The levels from the last, highest frequency, one down at reversed[15 -
  // i], with zeros after them: the levels in the places they take when no
  // zeros lie between them start at reversed + 16 - totalCoeff.
  int16_t reversed[32];
  std::fill(reversed + 16, reversed + 32, int16_t{0});
  const uint32_t signs = window.PeekFilled() >> 29;
  window.Skip(static_cast<unsigned>(trailingOnes));
  for (int i = 0; i < 3; ++i) {
    reversed[15 - i] = static_cast<int16_t>(1 - 2 * static_cast<int>(signs >> (2 - i) & 1));
  }
  if (trailingOnes < totalCoeff) {
    // The first level lies within the 38 bits left after a coeff_token of
    // at most 16 bits and three signs. After fewer than three trailing
    // ones it cannot be +-1, so its code counts from +-2: one more in
    // magnitude than the same code elsewhere.
    const int bump = trailingOnes < 3 ? 1 : 0;
    const int suffixLength = static_cast<int>(static_cast<unsigned>(10 - totalCoeff) >> 31) & bump;
    const SmLevelEntry entry =
        LevelTable[static_cast<size_t>(suffixLength)][window.PeekIndex<LevelBits>()];
    int level = entry.level;
    if (entry.length != 0) [[likely]] {
      window.Skip(entry.length);
      level += (level >> 31 | 1) & -bump;
    } else if (!ReadLongLevel(window, suffixLength, 2 * bump, level)) {
      return -1;
    }
    reversed[15 - trailingOnes] = static_cast<int16_t>(level);
    // suffixLength was 0 or 1, whose threshold is 3.
    int nextSuffixLength = static_cast<unsigned>(level + 3) > 6 ? 2 : 1;
    for (int i = trailingOnes + 1; i < totalCoeff; ++i) {
      const SmLevelEntry next =
          LevelTable[static_cast<size_t>(nextSuffixLength)][window.PeekIndex<LevelBits>()];
      int value = next.level;
      if (next.length != 0) [[likely]] {
        window.Skip(next.length);
        nextSuffixLength = next.nextSuffixLength;
      } else {
        if (!ReadLongLevel(window, nextSuffixLength, 0, value)) {
          return -1;
        }
        nextSuffixLength = NextSuffixLength[nextSuffixLength] +
                           static_cast<int>(std::abs(value) > SuffixThreshold[nextSuffixLength]);
      }
      reversed[15 - i] = static_cast<int16_t>(value);
    }
  }
  int zerosLeft = 0;
  if (totalCoeff < numCoeff) {
    if (ChromaDc && totalCoeff > 3) {
      return -1;
    }
    const uint32_t entry = LookUp(
        (ChromaDc ? TotalZerosChromaDcSet : TotalZerosSet) + totalCoeff - 1, window.Peek<9>());
    zerosLeft = static_cast<int>(entry >> 8);
    if (entry == 0 || zerosLeft > numCoeff - totalCoeff) {
      return -1;
    }
    window.Skip(entry & 0xFF);
  }
  // First all levels side by side at the bottom, with the zeros above them,
  // in one copy; then the runs move the higher ones up, from the first
  // level on, as long as zeros are left. A level leaves zero behind, which
  // no level placed before it can occupy, as those lie higher still.
  std::copy(reversed + 16 - totalCoeff, reversed + 16 - totalCoeff + numCoeff,
            coefficients + startIdx);
  int position = startIdx + totalCoeff - 1 + zerosLeft;
  coefficients[startIdx + totalCoeff - 1] = 0;
  coefficients[position] = reversed[15];
  for (int i = 1; i < totalCoeff && zerosLeft > 0; ++i) {
    unsigned entry = RunBeforeTable[static_cast<size_t>(zerosLeft)][window.PeekIndex<3>()];
    if (entry == RunEscape) [[unlikely]] {
      // zerosLeft above 6: runs from 7 on are three zeros and more, then a
      // one.
      const int zeros = std::countl_zero(window.Peek<11>() | 1);
      if (zeros > 10 || zeros + 4 > zerosLeft) {
        return -1;
      }
      entry = static_cast<unsigned>((zeros + 4) << 4 | (zeros + 1));
    }
    const int run = static_cast<int>(entry >> 4);
    window.Skip(entry & 15);
    zerosLeft -= run;
    position -= run + 1;
    coefficients[startIdx + totalCoeff - 1 - i] = 0;
    coefficients[position] = reversed[15 - i];
  }
  return totalCoeff;
}

} // namespace

template <int MaxNumCoeff>
int ReadResidualBlockCavlc(CmBitCursor& cursor, int nC, int16_t* coefficients) {
  // The cursor in registers for the block, not in the caller's memory.
  CmBitCursor local = cursor;
  const int total =
      ReadBlock<MaxNumCoeff == 4>(local, nC, 0, MaxNumCoeff - 1, MaxNumCoeff, coefficients);
  cursor = local;
  return total;
}

template int ReadResidualBlockCavlc<16>(CmBitCursor&, int, int16_t*);
template int ReadResidualBlockCavlc<15>(CmBitCursor&, int, int16_t*);
template int ReadResidualBlockCavlc<4>(CmBitCursor&, int, int16_t*);

int ReadResidualBlockCavlc(CmBitReader& reader, int nC, int startIdx, int endIdx, int maxNumCoeff,
                           int16_t* coefficients) {
  CmBitWindow window(reader);
  CmBitCursor& cursor = window.GetCursor();
  const int total = maxNumCoeff == 4
                        ? ReadBlock<true>(cursor, nC, startIdx, endIdx, maxNumCoeff, coefficients)
                        : ReadBlock<false>(cursor, nC, startIdx, endIdx, maxNumCoeff, coefficients);
  return total < 0 || window.IsOverrun() ? -1 : total;
}

} // namespace NmH264
