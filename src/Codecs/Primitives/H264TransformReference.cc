#include <algorithm>

#include "Codecs/Primitives/H264Transform.h"

namespace NmPrimitives::NmReference {

namespace {

uint8_t Clip(int32_t value) {
  return static_cast<uint8_t>(std::clamp(value, 0, 255));
}

// One dimension of the 8x8 transform over eight values `step` apart.
void Transform8(const int32_t* d, ptrdiff_t step, int32_t* out, ptrdiff_t outStep) {
  const int32_t a0 = d[0] + d[4 * step], a4 = d[0] - d[4 * step];
  const int32_t a2 = (d[2 * step] >> 1) - d[6 * step], a6 = d[2 * step] + (d[6 * step] >> 1);
  const int32_t b0 = a0 + a6, b2 = a4 + a2, b4 = a4 - a2, b6 = a0 - a6;
  const int32_t d1 = d[step], d3 = d[3 * step], d5 = d[5 * step], d7 = d[7 * step];
  const int32_t a1 = -d3 + d5 - d7 - (d7 >> 1);
  const int32_t a3 = d1 + d7 - d3 - (d3 >> 1);
  const int32_t a5 = -d1 + d7 + d5 + (d5 >> 1);
  const int32_t a7 = d3 + d5 + d1 + (d1 >> 1);
  const int32_t b1 = a1 + (a7 >> 2), b7 = a7 - (a1 >> 2);
  const int32_t b3 = a3 + (a5 >> 2), b5 = (a3 >> 2) - a5;
  out[0] = b0 + b7;
  out[outStep] = b2 + b5;
  out[2 * outStep] = b4 + b3;
  out[3 * outStep] = b6 + b1;
  out[4 * outStep] = b6 - b1;
  out[5 * outStep] = b4 - b3;
  out[6 * outStep] = b2 - b5;
  out[7 * outStep] = b0 - b7;
}

void AddDc(int32_t dc, uint8_t* dst, ptrdiff_t stride, int size) {
  const int32_t add = (dc + 32) >> 6;
  for (int i = 0; i < size; ++i) {
    for (int j = 0; j < size; ++j) {
      uint8_t& sample = dst[i * stride + j];
      sample = Clip(sample + add);
    }
  }
}

} // namespace

void H264AddInverseTransform4x4(const int32_t* d, uint8_t* dst, ptrdiff_t stride) {
  // Rows first, then columns: the halvings make the order matter.
  int32_t h[16];
  for (int i = 0; i < 4; ++i) {
    const int32_t* r = d + 4 * i;
    const int32_t e = r[0] + r[2], f = r[0] - r[2];
    const int32_t g = (r[1] >> 1) - r[3], k = r[1] + (r[3] >> 1);
    h[4 * i + 0] = e + k;
    h[4 * i + 1] = f + g;
    h[4 * i + 2] = f - g;
    h[4 * i + 3] = e - k;
  }
  for (int j = 0; j < 4; ++j) {
    const int32_t e = h[j] + h[8 + j], f = h[j] - h[8 + j];
    const int32_t g = (h[4 + j] >> 1) - h[12 + j], k = h[4 + j] + (h[12 + j] >> 1);
    const int32_t column[4] = {e + k, f + g, f - g, e - k};
    for (int i = 0; i < 4; ++i) {
      uint8_t& sample = dst[i * stride + j];
      sample = Clip(sample + ((column[i] + 32) >> 6));
    }
  }
}

void H264AddInverseTransform8x8(const int32_t* d, uint8_t* dst, ptrdiff_t stride) {
  int32_t g[64];
  for (int i = 0; i < 8; ++i) {
    Transform8(d + 8 * i, 1, g + 8 * i, 1);
  }
  int32_t m[64];
  for (int j = 0; j < 8; ++j) {
    Transform8(g + j, 8, m + j, 8);
  }
  for (int i = 0; i < 8; ++i) {
    for (int j = 0; j < 8; ++j) {
      uint8_t& sample = dst[i * stride + j];
      sample = Clip(sample + ((m[8 * i + j] + 32) >> 6));
    }
  }
}

void H264AddDc4x4(int32_t dc, uint8_t* dst, ptrdiff_t stride) {
  AddDc(dc, dst, stride, 4);
}

namespace {

// Levels from scan position first on, placed and scaled.
void AddLevels(const int16_t* levels, int first, int32_t dc, bool field, const int32_t* levelScale,
               int qp, uint8_t* dst, ptrdiff_t stride) {
  const uint8_t* scan = field ? H264FieldScan4x4 : H264ZigZag4x4;
  int32_t c[16];
  c[0] = dc;
  for (int k = first; k < 16; ++k) {
    const int position = scan[k];
    const int32_t product = levels[k - first] * levelScale[position];
    c[position] =
        qp >= 24 ? product * (1 << (qp / 6 - 4)) : (product + (1 << (3 - qp / 6))) >> (4 - qp / 6);
  }
  H264AddInverseTransform4x4(c, dst, stride);
}

} // namespace

void H264AddLevels4x4(const int16_t* levels, bool field, const int32_t* levelScale, int qp,
                      uint8_t* dst, ptrdiff_t stride) {
  AddLevels(levels, 0, 0, field, levelScale, qp, dst, stride);
}

void H264AddAcLevels4x4(const int16_t* levels, int32_t dc, bool field, const int32_t* levelScale,
                        int qp, uint8_t* dst, ptrdiff_t stride) {
  AddLevels(levels, 1, dc, field, levelScale, qp, dst, stride);
}

void H264AddDc8x8(int32_t dc, uint8_t* dst, ptrdiff_t stride) {
  AddDc(dc, dst, stride, 8);
}

} // namespace NmPrimitives::NmReference
