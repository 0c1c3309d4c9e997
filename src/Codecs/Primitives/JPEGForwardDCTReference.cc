// The plain forms: the separable DCT as two matrix products, and rounding by
// the C library in its default mode (to nearest, ties to even).
#include <algorithm>
#include <cmath>
#include <cstdint>

#include "Codecs/Primitives/JPEGForwardDCT.h"

namespace NmPrimitives {

// c(k) / 2 * cos((2n + 1) k pi / 16), c(0) = 1 / sqrt(2), to float precision.
const float kForwardDCTMatrix[64] = {
    0.353553391f,  0.353553391f,  0.353553391f,  0.353553391f,  0.353553391f,  0.353553391f,
    0.353553391f,  0.353553391f,  0.490392640f,  0.415734806f,  0.277785117f,  0.097545161f,
    -0.097545161f, -0.277785117f, -0.415734806f, -0.490392640f, 0.461939766f,  0.191341716f,
    -0.191341716f, -0.461939766f, -0.461939766f, -0.191341716f, 0.191341716f,  0.461939766f,
    0.415734806f,  -0.097545161f, -0.490392640f, -0.277785117f, 0.277785117f,  0.490392640f,
    0.097545161f,  -0.415734806f, 0.353553391f,  -0.353553391f, -0.353553391f, 0.353553391f,
    0.353553391f,  -0.353553391f, -0.353553391f, 0.353553391f,  0.277785117f,  -0.490392640f,
    0.097545161f,  0.415734806f,  -0.415734806f, -0.097545161f, 0.490392640f,  -0.277785117f,
    0.191341716f,  -0.461939766f, 0.461939766f,  -0.191341716f, -0.191341716f, 0.461939766f,
    -0.461939766f, 0.191341716f,  0.097545161f,  -0.277785117f, 0.415734806f,  -0.490392640f,
    0.490392640f,  -0.415734806f, 0.277785117f,  -0.097545161f,
};

void MakeQuantReciprocals(const uint16_t natural[64], float reciprocals[64]) {
  for (int i = 0; i < 64; ++i) {
    reciprocals[i] = 1.0f / static_cast<float>(std::max<uint16_t>(natural[i], 1));
  }
}

namespace NmReference {

void ForwardDCT8x8Blocks(const uint8_t* samples, size_t stride, size_t blocks,
                         float* coefficients) {
  for (size_t b = 0; b < blocks; ++b) {
    float columns[64];
    // Columns first: t[k][x] = sum over y of M[k][y] s[y][x].
    for (int k = 0; k < 8; ++k) {
      for (int x = 0; x < 8; ++x) {
        float sum = 0;
        for (int y = 0; y < 8; ++y) {
          sum += kForwardDCTMatrix[k * 8 + y] *
                 (static_cast<float>(samples[y * stride + b * 8 + x]) - 128.0f);
        }
        columns[k * 8 + x] = sum;
      }
    }
    // Then rows: F[k][u] = sum over x of t[k][x] M[u][x].
    float* out = coefficients + b * 64;
    for (int k = 0; k < 8; ++k) {
      for (int u = 0; u < 8; ++u) {
        float sum = 0;
        for (int x = 0; x < 8; ++x) {
          sum += columns[k * 8 + x] * kForwardDCTMatrix[u * 8 + x];
        }
        out[k * 8 + u] = sum;
      }
    }
  }
}

void QuantizeBlocks(const float* coefficients, size_t blocks, const float reciprocals[64],
                    int16_t* quantized) {
  for (size_t i = 0; i < blocks * 64; ++i) {
    const float v = std::nearbyint(coefficients[i] * reciprocals[i % 64]);
    quantized[i] = static_cast<int16_t>(std::clamp(v, -32768.0f, 32767.0f));
  }
}

void ForwardDCTQuantizeBlocks(const uint8_t* samples, size_t stride, size_t blocks,
                              const float reciprocals[64], int16_t* quantized) {
  for (size_t b = 0; b < blocks; ++b) {
    float coefficients[64];
    ForwardDCT8x8Blocks(samples + b * 8, stride, 1, coefficients);
    QuantizeBlocks(coefficients, 1, reciprocals, quantized + b * 64);
  }
}

} // namespace NmReference
} // namespace NmPrimitives
