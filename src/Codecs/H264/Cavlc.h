#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "Codecs/H264/BitReader.h"

namespace NmH264 {

// Context-adaptive variable-length coding of residual blocks (clause 9.2).
// nC selects the coeff_token table: 0 and up from the neighbours' counts, -1
// for the 2x2 chroma DC of 4:2:0. Levels go to coefficients[startIdx ..
// endIdx] in scan order and the rest of that range is zeroed. Returns the
// number of non-zero coefficients (TotalCoeff), or -1 for bits that form no
// valid block.
int ReadResidualBlockCavlc(CmBitReader& reader, int nC, int startIdx, int endIdx, int maxNumCoeff,
                           int16_t* coefficients);

// A prefix code as bit strings with their symbols, for the decoder's tables
// and for tests that check each table as a complete prefix code.
struct SmVlcSymbol {
  std::string bits;
  int symbol;
};

// Decodes one prefix code by an 8-bit first lookup and second lookups for
// longer codes: a code costs one or two table reads.
class CmVlcTable {
public:
  explicit CmVlcTable(const std::vector<SmVlcSymbol>& codes);
  // The symbol, or -1 when no code matches.
  int Decode(CmBitReader& reader) const {
    unsigned length = 0;
    const int symbol = Decode(reader.PeekBits(16), length);
    reader.Skip(length);
    return symbol;
  }
  // The symbol whose code begins the 16 bits, and the code's length (0 for
  // no code).
  int Decode(uint32_t bits, unsigned& length) const {
    const SmSlot* slot = &m_Slots[bits >> (16 - RootBits)];
    if (slot->length == 0 && slot->subtable != 0) {
      const unsigned width = slot->width;
      slot = &m_Slots[slot->subtable + ((bits >> (16 - RootBits - width)) & ((1u << width) - 1))];
    }
    length = slot->length;
    return slot->length == 0 ? -1 : slot->symbol;
  }

private:
  static constexpr unsigned RootBits = 8;
  // A code's symbol and length, or for a first-level slot whose codes are
  // longer, where their second-level table starts and how many bits it takes.
  struct SmSlot {
    int16_t symbol = -1;
    uint8_t length = 0;
    uint8_t width = 0;
    uint32_t subtable = 0;
  };
  std::vector<SmSlot> m_Slots;
};

namespace NmCavlcTables {
// Symbol of a coeff_token: TotalCoeff * 4 + TrailingOnes. Classes: 0 for
// 0 <= nC < 2, 1 for 2 <= nC < 4, 2 for 4 <= nC < 8, 3 for 8 <= nC, 4 for
// nC == -1.
const std::vector<SmVlcSymbol>& GetCoeffTokenCodes(int nCClass);
// total_zeros for TotalCoeff 1 to 15 of 4x4 blocks, and 1 to 3 of chroma DC.
const std::vector<SmVlcSymbol>& GetTotalZerosCodes(int totalCoeff, bool chromaDc);
// run_before for zerosLeft 1 to 6, and 7 for more.
const std::vector<SmVlcSymbol>& GetRunBeforeCodes(int zerosLeft);
} // namespace NmCavlcTables

} // namespace NmH264
