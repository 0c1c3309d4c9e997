#include "Codecs/H264/CabacDecoder.h"

#include <algorithm>
#include <array>

namespace NmH264 {

namespace {

constexpr uint8_t RangeTabLpsTable[64][4] = {
    {128, 176, 208, 240}, {128, 167, 197, 227}, {128, 158, 187, 216}, {123, 150, 178, 205},
    {116, 142, 169, 195}, {111, 135, 160, 185}, {105, 128, 152, 175}, {100, 122, 144, 166},
    {95, 116, 137, 158},  {90, 110, 130, 150},  {85, 104, 123, 142},  {81, 99, 117, 135},
    {77, 94, 111, 128},   {73, 89, 105, 122},   {69, 85, 100, 116},   {66, 80, 95, 110},
    {62, 76, 90, 104},    {59, 72, 86, 99},     {56, 69, 81, 94},     {53, 65, 77, 89},
    {51, 62, 73, 85},     {48, 59, 69, 80},     {46, 56, 66, 76},     {43, 53, 63, 72},
    {41, 50, 59, 69},     {39, 48, 56, 65},     {37, 45, 54, 62},     {35, 43, 51, 59},
    {33, 41, 48, 56},     {32, 39, 46, 53},     {30, 37, 43, 50},     {29, 35, 41, 48},
    {27, 33, 39, 45},     {26, 31, 37, 43},     {24, 30, 35, 41},     {23, 28, 33, 39},
    {22, 27, 32, 37},     {21, 26, 30, 35},     {20, 24, 29, 33},     {19, 23, 27, 31},
    {18, 22, 26, 30},     {17, 21, 25, 28},     {16, 20, 23, 27},     {15, 19, 22, 25},
    {14, 18, 21, 24},     {14, 17, 20, 23},     {13, 16, 19, 22},     {12, 15, 18, 21},
    {12, 14, 17, 20},     {11, 14, 16, 19},     {11, 13, 15, 18},     {10, 12, 15, 17},
    {10, 12, 14, 16},     {9, 11, 13, 15},      {9, 11, 12, 14},      {8, 10, 12, 14},
    {8, 9, 11, 13},       {7, 9, 11, 12},       {7, 9, 10, 12},       {7, 8, 10, 11},
    {6, 8, 9, 11},        {6, 7, 9, 10},        {6, 7, 8, 9},         {2, 2, 2, 2}};

constexpr uint8_t TransIdxLpsTable[64] = {
    0,  0,  1,  2,  2,  4,  4,  5,  6,  7,  8,  9,  9,  11, 11, 12, 13, 13, 15, 15, 16, 16,
    18, 18, 19, 19, 21, 21, 22, 22, 23, 24, 24, 25, 26, 26, 27, 27, 28, 29, 29, 30, 30, 30,
    31, 32, 32, 33, 33, 33, 34, 34, 35, 35, 35, 36, 36, 36, 37, 37, 37, 38, 38, 63};

// The context byte after a most or least probable symbol: transIdxMps and
// transIdxLps, valMPS flipping on a least probable symbol in state 0. State
// 63 belongs to the terminating bin and never changes.
constexpr std::array<uint8_t, 128> MakeTransition(bool mps) {
  std::array<uint8_t, 128> table{};
  for (int context = 0; context < 128; ++context) {
    const int state = context >> 1;
    const int mpsBit = context & 1;
    int next = 0, bit = mpsBit;
    if (mps) {
      next = state < 62 ? state + 1 : state;
    } else {
      next = TransIdxLpsTable[state];
      bit = state == 0 ? 1 - mpsBit : mpsBit;
    }
    table[static_cast<size_t>(context)] = static_cast<uint8_t>(next << 1 | bit);
  }
  return table;
}

} // namespace

const std::array<uint8_t, 128> CmCabacDecoder::TransitionMps = MakeTransition(true);
const std::array<uint8_t, 128> CmCabacDecoder::TransitionLps = MakeTransition(false);
const std::array<uint8_t, 256> CmCabacDecoder::Transitions = [] {
  std::array<uint8_t, 256> both{};
  const std::array<uint8_t, 128> mps = MakeTransition(true), lps = MakeTransition(false);
  for (size_t i = 0; i < 128; ++i) {
    both[i] = mps[i];
    both[128 + i] = lps[i];
  }
  return both;
}();

namespace {

struct SmLpsRows {
  std::array<uint32_t, 128> lps{};
  std::array<uint64_t, 128> next{};
};

constexpr SmLpsRows MakeLpsRows() {
  SmLpsRows rows;
  for (size_t context = 0; context < 128; ++context) {
    for (unsigned q = 0; q < 4; ++q) {
      const uint32_t lps = RangeTabLpsTable[context >> 1][q];
      uint32_t shift = 0;
      while ((lps << shift) < 256) {
        ++shift;
      }
      rows.lps[context] |= lps << (8 * q);
      rows.next[context] |= uint64_t{lps << shift | shift << 12} << (16 * q);
    }
  }
  return rows;
}

constexpr SmLpsRows LpsRowTables = MakeLpsRows();

} // namespace

const uint8_t (&CmCabacDecoder::RangeTabLps)[64][4] = RangeTabLpsTable;
const std::array<uint32_t, 128> CmCabacDecoder::LpsRows = LpsRowTables.lps;
const std::array<uint64_t, 128> CmCabacDecoder::LpsNextRows = LpsRowTables.next;

void CmCabacDecoder::Start(const uint8_t* data, size_t size, size_t start) {
  m_Data = data;
  m_Size = size;
  m_Next = start;
  m_Value = 0;
  m_Available = 0;
  m_Range = 510;
  Refill();
  m_Available -= 9;
}

} // namespace NmH264
