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

// The same for a whole block (startIdx 0, endIdx MaxNumCoeff - 1) of 16, 15
// or 4 coefficients, from a cursor that the caller keeps across the blocks
// of a macroblock and checks for overrun.
template <int MaxNumCoeff>
int ReadResidualBlockCavlc(CmBitCursor& cursor, int nC, int16_t* coefficients);
extern template int ReadResidualBlockCavlc<16>(CmBitCursor&, int, int16_t*);
extern template int ReadResidualBlockCavlc<15>(CmBitCursor&, int, int16_t*);
extern template int ReadResidualBlockCavlc<4>(CmBitCursor&, int, int16_t*);

// A prefix code as bit strings with their symbols, for tests that check each
// table as a complete prefix code and write blocks with them.
struct SmVlcSymbol {
  std::string bits;
  int symbol;
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
