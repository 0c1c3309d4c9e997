#include <cmath>

#include "Codecs/Primitives/JPEGInverseDCT.h"

namespace NmPrimitives::NmReference {

namespace {
// The transform as T.81 A.3.3 writes it, in double precision, for all 64
// samples; a reduced size averages the samples of each area before rounding.
void InverseDCTBlock(int reduction, const int16_t* coefficients, const int16_t* quant, uint8_t* out,
                     size_t stride) {
  static const auto cosines = [] {
    struct {
      double at[8][8];
    } table;
    const double pi = std::acos(-1.0);
    for (int x = 0; x < 8; ++x) {
      for (int u = 0; u < 8; ++u) {
        table.at[x][u] = u == 0 ? 1.0 : std::cos((2 * x + 1) * u * pi / 16);
      }
    }
    return table;
  }();
  double full[8][8];
  for (int y = 0; y < 8; ++y) {
    for (int x = 0; x < 8; ++x) {
      double sum = 0;
      for (int v = 0; v < 8; ++v) {
        for (int u = 0; u < 8; ++u) {
          // c(0) squared is exactly 1/2, so that flat blocks round exactly.
          const double c = u == 0 && v == 0 ? 0.5 : u == 0 || v == 0 ? std::sqrt(0.5) : 1.0;
          const double value = static_cast<double>(coefficients[v * 8 + u]) * quant[v * 8 + u];
          sum += c * value * cosines.at[x][u] * cosines.at[y][v];
        }
      }
      full[y][x] = sum / 4.0;
    }
  }
  const int size = 8 >> reduction;
  const int area = 1 << reduction;
  for (int y = 0; y < size; ++y) {
    for (int x = 0; x < size; ++x) {
      double sum = 0;
      for (int j = 0; j < area; ++j) {
        for (int i = 0; i < area; ++i) {
          sum += full[y * area + j][x * area + i];
        }
      }
      // Exact halves (flat blocks) round up; the margin keeps double rounding
      // from turning them down.
      const double sample = std::floor(sum / (area * area) + 128.5 + 1e-7);
      out[y * stride + x] = static_cast<uint8_t>(sample < 0 ? 0 : sample > 255 ? 255 : sample);
    }
  }
}
} // namespace

void JPEGInverseDCTBlocks(int reduction, const int16_t* blocks, size_t count, const int16_t* quant,
                          uint8_t* out, size_t stride) {
  const size_t size = static_cast<size_t>(8 >> reduction);
  for (size_t b = 0; b < count; ++b) {
    InverseDCTBlock(reduction, blocks + 64 * b, quant, out + size * b, stride);
  }
}

} // namespace NmPrimitives::NmReference
