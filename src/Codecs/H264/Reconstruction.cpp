#include "Codecs/H264/Reconstruction.h"

#include <algorithm>

namespace NmH264 {

const std::array<uint8_t, 16> ZigZag4x4 = {0, 1, 4, 8, 5, 2, 3, 6, 9, 12, 13, 10, 7, 11, 14, 15};
const std::array<uint8_t, 16> FieldScan4x4 = {0, 4, 1, 8, 12, 5, 9, 13, 2, 6, 10, 14, 3, 7, 11, 15};
const std::array<uint8_t, 64> ZigZag8x8 = {
    0,  1,  8,  16, 9,  2,  3,  10, 17, 24, 32, 25, 18, 11, 4,  5,  12, 19, 26, 33, 40, 48,
    41, 34, 27, 20, 13, 6,  7,  14, 21, 28, 35, 42, 49, 56, 57, 50, 43, 36, 29, 22, 15, 23,
    30, 37, 44, 51, 58, 59, 52, 45, 38, 31, 39, 46, 53, 60, 61, 54, 47, 55, 62, 63};

const std::array<uint8_t, 64> FieldScan8x8 = {
    0,  8,  16, 1,  9,  24, 32, 17, 2, 25, 40, 48, 56, 33, 10, 3,  18, 41, 49, 57, 26, 11,
    4,  19, 34, 42, 50, 58, 27, 12, 5, 20, 35, 43, 51, 59, 28, 13, 6,  21, 36, 44, 52, 60,
    29, 14, 22, 37, 45, 53, 61, 30, 7, 15, 38, 46, 54, 62, 23, 31, 39, 47, 55, 63};

namespace {

constexpr int32_t NormAdjust4x4[6][3] = {{10, 16, 13}, {11, 18, 14}, {13, 20, 16},
                                         {14, 23, 18}, {16, 25, 20}, {18, 29, 23}};
constexpr int32_t NormAdjust8x8[6][6] = {{20, 18, 32, 19, 25, 24}, {22, 19, 35, 21, 28, 26},
                                         {26, 23, 42, 24, 33, 31}, {28, 25, 45, 26, 35, 33},
                                         {32, 28, 51, 30, 40, 38}, {36, 32, 58, 34, 46, 43}};

int32_t GetNorm4x4(int m, int i, int j) {
  if (i % 2 == 0 && j % 2 == 0) {
    return NormAdjust4x4[m][0];
  }
  if (i % 2 == 1 && j % 2 == 1) {
    return NormAdjust4x4[m][1];
  }
  return NormAdjust4x4[m][2];
}

int32_t GetNorm8x8(int m, int i, int j) {
  if (i % 4 == 0 && j % 4 == 0) {
    return NormAdjust8x8[m][0];
  }
  if (i % 2 == 1 && j % 2 == 1) {
    return NormAdjust8x8[m][1];
  }
  if (i % 4 == 2 && j % 4 == 2) {
    return NormAdjust8x8[m][2];
  }
  if ((i % 4 == 0 && j % 2 == 1) || (i % 2 == 1 && j % 4 == 0)) {
    return NormAdjust8x8[m][3];
  }
  if ((i % 4 == 0 && j % 4 == 2) || (i % 4 == 2 && j % 4 == 0)) {
    return NormAdjust8x8[m][4];
  }
  return NormAdjust8x8[m][5];
}

} // namespace

void SmLevelScale::Build(const SmScalingMatrices& matrices) {
  for (int list = 0; list < 6; ++list) {
    for (int m = 0; m < 6; ++m) {
      for (int k = 0; k < 16; ++k) {
        const int position = ZigZag4x4[static_cast<size_t>(k)];
        scale4x4[list][m][position] =
            matrices.list4x4[static_cast<size_t>(list)][static_cast<size_t>(k)] *
            GetNorm4x4(m, position / 4, position % 4);
      }
    }
  }
  for (int list = 0; list < 2; ++list) {
    for (int m = 0; m < 6; ++m) {
      for (int k = 0; k < 64; ++k) {
        const int position = ZigZag8x8[static_cast<size_t>(k)];
        scale8x8[list][m][position] =
            matrices.list8x8[static_cast<size_t>(list)][static_cast<size_t>(k)] *
            GetNorm8x8(m, position / 8, position % 8);
      }
    }
  }
}

int ChromaQp(int qpi) {
  static constexpr uint8_t High[22] = {29, 30, 31, 32, 32, 33, 34, 34, 35, 35, 36,
                                       36, 37, 37, 37, 38, 38, 38, 39, 39, 39, 39};
  return qpi < 30 ? qpi : High[qpi - 30];
}

void Scale8x8(int32_t* coefficients, const int32_t* levelScale, int qp) {
  const int shift = qp / 6;
  if (qp >= 36) {
    const int32_t factor = 1 << (shift - 6);
    for (int k = 0; k < 64; ++k) {
      coefficients[k] = (coefficients[k] * levelScale[k]) * factor;
    }
    return;
  }
  const int down = 6 - shift;
  const int32_t round = 1 << (5 - shift);
  for (int k = 0; k < 64; ++k) {
    coefficients[k] = (coefficients[k] * levelScale[k] + round) >> down;
  }
}

void TransformLumaDc(int32_t* c, int32_t levelScaleDc, int qp) {
  int32_t f[16];
  // Rows, then columns, of the 4x4 Hadamard transform.
  for (int i = 0; i < 4; ++i) {
    const int32_t* r = c + 4 * i;
    const int32_t a = r[0] + r[1], b = r[0] - r[1], e = r[2] + r[3], d = r[2] - r[3];
    f[4 * i + 0] = a + e;
    f[4 * i + 1] = a - e;
    f[4 * i + 2] = b - d;
    f[4 * i + 3] = b + d;
  }
  for (int j = 0; j < 4; ++j) {
    const int32_t a = f[j] + f[4 + j], b = f[j] - f[4 + j];
    const int32_t e = f[8 + j] + f[12 + j], d = f[8 + j] - f[12 + j];
    const int32_t column[4] = {a + e, a - e, b - d, b + d};
    for (int i = 0; i < 4; ++i) {
      const int32_t value = column[i] * levelScaleDc;
      c[4 * i + j] =
          qp >= 36 ? value * (1 << (qp / 6 - 6)) : (value + (1 << (5 - qp / 6))) >> (6 - qp / 6);
    }
  }
}

void TransformChromaDc2x2(int32_t* c, int32_t levelScaleDc, int qp) {
  const int32_t a = c[0] + c[1], b = c[0] - c[1], e = c[2] + c[3], d = c[2] - c[3];
  const int32_t f[4] = {a + e, b + d, a - e, b - d};
  for (int k = 0; k < 4; ++k) {
    c[k] = ((f[k] * levelScaleDc) * (1 << (qp / 6))) >> 5;
  }
}

} // namespace NmH264
