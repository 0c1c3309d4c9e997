#include "Codecs/H264/Cavlc.h"

#include <algorithm>
#include <array>
#include <bit>
#include <stdexcept>

namespace NmH264 {

CmVlcTable::CmVlcTable(const std::vector<SmVlcSymbol>& codes) {
  m_Slots.resize(size_t{1} << RootBits);
  // Longer codes grouped by their first RootBits bits: each group gets a
  // second-level table as wide as its longest code needs.
  std::array<unsigned, 1u << RootBits> widths{};
  for (const SmVlcSymbol& code : codes) {
    if (code.bits.size() > RootBits) {
      const unsigned prefix =
          static_cast<unsigned>(std::stoul(code.bits.substr(0, RootBits), nullptr, 2));
      widths[prefix] = std::max(widths[prefix], static_cast<unsigned>(code.bits.size()) - RootBits);
    }
  }
  for (unsigned prefix = 0; prefix < widths.size(); ++prefix) {
    if (widths[prefix] != 0) {
      m_Slots[prefix].subtable = static_cast<uint32_t>(m_Slots.size());
      m_Slots[prefix].width = static_cast<uint8_t>(widths[prefix]);
      m_Slots.resize(m_Slots.size() + (size_t{1} << widths[prefix]));
    }
  }
  for (const SmVlcSymbol& code : codes) {
    const unsigned length = static_cast<unsigned>(code.bits.size());
    const unsigned value = static_cast<unsigned>(std::stoul(code.bits, nullptr, 2));
    size_t first = 0;
    size_t count = 0;
    if (length <= RootBits) {
      first = size_t{value} << (RootBits - length);
      count = size_t{1} << (RootBits - length);
    } else {
      const unsigned prefix = value >> (length - RootBits);
      const unsigned width = m_Slots[prefix].width;
      const unsigned rest = value & ((1u << (length - RootBits)) - 1);
      first = m_Slots[prefix].subtable + (size_t{rest} << (width - (length - RootBits)));
      count = size_t{1} << (width - (length - RootBits));
    }
    for (size_t i = first; i < first + count; ++i) {
      m_Slots[i].symbol = static_cast<int16_t>(code.symbol);
      m_Slots[i].length = static_cast<uint8_t>(length);
    }
  }
}

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

struct SmTables {
  std::vector<CmVlcTable> coeffToken;
  std::vector<CmVlcTable> totalZeros;       // TotalCoeff 1 to 15
  std::vector<CmVlcTable> totalZerosChroma; // TotalCoeff 1 to 3
  std::vector<CmVlcTable> runBefore;        // zerosLeft 1 to 7
};

const SmTables& GetTables() {
  static const SmTables tables = [] {
    SmTables t;
    for (int c = 0; c < 5; ++c) {
      t.coeffToken.emplace_back(NmCavlcTables::GetCoeffTokenCodes(c));
    }
    for (int n = 1; n <= 15; ++n) {
      t.totalZeros.emplace_back(NmCavlcTables::GetTotalZerosCodes(n, false));
    }
    for (int n = 1; n <= 3; ++n) {
      t.totalZerosChroma.emplace_back(NmCavlcTables::GetTotalZerosCodes(n, true));
    }
    for (int z = 1; z <= 7; ++z) {
      t.runBefore.emplace_back(NmCavlcTables::GetRunBeforeCodes(z));
    }
    return t;
  }();
  return tables;
}

int GetCoeffTokenClass(int nC) {
  if (nC < 0) {
    return 4;
  }
  return nC < 2 ? 0 : nC < 4 ? 1 : nC < 8 ? 2 : 3;
}

} // namespace

namespace {

// The reader's next bits held in a register for the codes of one block: the
// reader's position moves only when the window runs low, instead of a load,
// byte swap and shift for every code.
class CmBitWindow {
public:
  explicit CmBitWindow(CmBitReader& reader) : m_Reader(reader), m_Bits(reader.PeekWindow()) {}
  CmBitWindow(const CmBitWindow&) = delete;
  CmBitWindow& operator=(const CmBitWindow&) = delete;
  // Hands the bits taken back to the reader.
  ~CmBitWindow() { m_Reader.Skip(m_Used); }

  // The next 32 bits; of the 57 the window holds, a code of up to 32 bits
  // fits as long as no more than 25 are taken.
  uint32_t Peek() {
    if (m_Used > 25) {
      m_Reader.Skip(m_Used);
      m_Bits = m_Reader.PeekWindow();
      m_Used = 0;
    }
    return static_cast<uint32_t>((m_Bits << m_Used) >> 32);
  }
  void Skip(unsigned count) { m_Used += count; }
  // 1 to 32 bits.
  uint32_t Read(unsigned count) {
    const uint32_t bits = Peek() >> (32 - count);
    m_Used += count;
    return bits;
  }
  int Decode(const CmVlcTable& table) {
    unsigned length = 0;
    const int symbol = table.Decode(Peek() >> 16, length);
    m_Used += length;
    return symbol;
  }

private:
  CmBitReader& m_Reader;
  uint64_t m_Bits;
  unsigned m_Used = 0;
};

int ReadResidualBlockCavlc(CmBitWindow& reader, int nC, int startIdx, int endIdx, int maxNumCoeff,
                           int16_t* coefficients) {
  const SmTables& tables = GetTables();
  std::fill(coefficients + startIdx, coefficients + endIdx + 1, int16_t{0});
  const int token = reader.Decode(tables.coeffToken[static_cast<size_t>(GetCoeffTokenClass(nC))]);
  if (token < 0) {
    return -1;
  }
  const int totalCoeff = token >> 2;
  const int trailingOnes = token & 3;
  if (totalCoeff == 0) {
    return 0;
  }
  if (totalCoeff > maxNumCoeff || totalCoeff > endIdx - startIdx + 1) {
    return -1;
  }
  int32_t levels[16];
  int suffixLength = totalCoeff > 10 && trailingOnes < 3 ? 1 : 0;
  // The signs of the trailing ones in one read.
  if (trailingOnes > 0) {
    const uint32_t signs = reader.Read(static_cast<unsigned>(trailingOnes));
    for (int i = 0; i < trailingOnes; ++i) {
      levels[i] = 1 - 2 * static_cast<int32_t>(signs >> (trailingOnes - 1 - i) & 1);
    }
  }
  for (int i = trailingOnes; i < totalCoeff; ++i) {
    // level_prefix: the number of zeros before a one, counted at once. A
    // prefix that fills the whole window gives a level beyond 16 bits in
    // any case, which is damage.
    const uint32_t window = reader.Peek();
    if (window == 0) {
      return -1;
    }
    const int prefix = std::countl_zero(window);
    reader.Skip(static_cast<unsigned>(prefix) + 1);
    int suffixSize = suffixLength;
    if (prefix == 14 && suffixLength == 0) {
      suffixSize = 4;
    } else if (prefix >= 15) {
      suffixSize = prefix - 3;
    }
    if (suffixSize > 31) {
      return -1;
    }
    const int64_t suffix = suffixSize > 0 ? reader.Read(static_cast<unsigned>(suffixSize)) : 0;
    int64_t levelCode = (int64_t{std::min(15, prefix)} << suffixLength) + suffix;
    if (prefix >= 15 && suffixLength == 0) {
      levelCode += 15;
    }
    if (prefix >= 16) {
      levelCode += (int64_t{1} << (prefix - 3)) - 4096;
    }
    if (i == trailingOnes && trailingOnes < 3) {
      levelCode += 2;
    }
    const int64_t level = levelCode % 2 == 0 ? (levelCode + 2) >> 1 : (-levelCode - 1) >> 1;
    // Coefficients of 8-bit video fit 16 bits; larger ones are damage.
    if (level < -32768 || level > 32767) {
      return -1;
    }
    levels[i] = static_cast<int32_t>(level);
    if (suffixLength == 0) {
      suffixLength = 1;
    }
    if ((level < 0 ? -level : level) > (3 << (suffixLength - 1)) && suffixLength < 6) {
      ++suffixLength;
    }
  }
  int zerosLeft = 0;
  if (totalCoeff < endIdx - startIdx + 1) {
    const std::vector<CmVlcTable>& table =
        maxNumCoeff == 4 ? tables.totalZerosChroma : tables.totalZeros;
    if (static_cast<size_t>(totalCoeff) > table.size()) {
      return -1;
    }
    zerosLeft = reader.Decode(table[static_cast<size_t>(totalCoeff - 1)]);
    if (zerosLeft < 0 || zerosLeft > endIdx - startIdx + 1 - totalCoeff) {
      return -1;
    }
  }
  // Levels come highest frequency first; runs place them downwards.
  int position = startIdx + totalCoeff - 1 + zerosLeft;
  for (int i = 0; i < totalCoeff; ++i) {
    coefficients[position] = static_cast<int16_t>(levels[i]);
    if (i + 1 == totalCoeff) {
      break;
    }
    int run = 0;
    if (zerosLeft > 0) {
      run = reader.Decode(tables.runBefore[static_cast<size_t>(std::min(zerosLeft, 7) - 1)]);
      if (run < 0 || run > zerosLeft) {
        return -1;
      }
      zerosLeft -= run;
    }
    position -= run + 1;
  }
  return totalCoeff;
}

} // namespace

int ReadResidualBlockCavlc(CmBitReader& reader, int nC, int startIdx, int endIdx, int maxNumCoeff,
                           int16_t* coefficients) {
  const int total = [&] {
    CmBitWindow window(reader);
    return ReadResidualBlockCavlc(window, nC, startIdx, endIdx, maxNumCoeff, coefficients);
  }();
  return total < 0 || reader.IsOverrun() ? -1 : total;
}

} // namespace NmH264
