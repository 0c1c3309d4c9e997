#pragma once

// The fixed-point form of the colour equations, shared by the plain and the
// vector kernels so that both round the same way. Samples are carried with six
// fraction bits (value << 6), products use 15-bit coefficients rounded half up
// as the pmulhrsw instruction does, and results are rounded and clamped once.
#include <algorithm>
#include <cstdint>

#include "Codecs/Primitives/ColorConvert.h"

namespace NmPrimitives::NmColorFixedPoint {

// A coefficient c as n + q / 32768 with |q| < 32768.
struct SmCoefficient {
  int16_t whole;
  int16_t fraction;
};

constexpr SmCoefficient Quantize(double c) {
  const int16_t whole = c >= 0 ? static_cast<int16_t>(c) : 0;
  const double rest = (c - whole) * 32768.0;
  return {whole, static_cast<int16_t>(rest >= 0 ? rest + 0.5 : rest - 0.5)};
}

struct SmToRgbConstants {
  int16_t lumaOffset;
  SmCoefficient luma, crToR, cbToG, crToG, cbToB;
};

struct SmFromRgbConstants {
  int16_t offset[3];        // added to Y, Cb, Cr
  SmCoefficient rgb[3][3];  // [Y, Cb, Cr][R, G, B]
};

// BT.601 weights of red and blue in luma; green takes the rest.
constexpr double Kr = 0.299;
constexpr double Kb = 0.114;
constexpr double Kg = 1.0 - Kr - Kb;
// Video range: 219 steps of luma and 224 of chroma where full range has 255.
constexpr double LumaRange = 219.0 / 255.0;
constexpr double ChromaRange = 224.0 / 255.0;

constexpr SmToRgbConstants GetToRgbConstants(SmYCbCrMatrix matrix) {
  switch (matrix) {
  case YCbCrJfif:
    return {0, Quantize(1.0), Quantize(1.402), Quantize(-0.34414), Quantize(-0.71414),
            Quantize(1.772)};
  case YCbCrVideoRange:
    return {16,
            Quantize(1.0 / LumaRange),
            Quantize(2 * (1 - Kr) / ChromaRange),
            Quantize(-2 * (1 - Kb) * Kb / Kg / ChromaRange),
            Quantize(-2 * (1 - Kr) * Kr / Kg / ChromaRange),
            Quantize(2 * (1 - Kb) / ChromaRange)};
  default:
    return {0,
            Quantize(1.0),
            Quantize(2 * (1 - Kr)),
            Quantize(-2 * (1 - Kb) * Kb / Kg),
            Quantize(-2 * (1 - Kr) * Kr / Kg),
            Quantize(2 * (1 - Kb))};
  }
}

constexpr SmFromRgbConstants GetFromRgbConstants(SmYCbCrMatrix matrix) {
  switch (matrix) {
  case YCbCrJfif:
    return {{0, 128, 128},
            {{Quantize(0.299), Quantize(0.587), Quantize(0.114)},
             {Quantize(-0.1687), Quantize(-0.3313), Quantize(0.5)},
             {Quantize(0.5), Quantize(-0.4187), Quantize(-0.0813)}}};
  case YCbCrVideoRange:
    return {{16, 128, 128},
            {{Quantize(Kr * LumaRange), Quantize(Kg * LumaRange), Quantize(Kb * LumaRange)},
             {Quantize(-Kr / (2 * (1 - Kb)) * ChromaRange),
              Quantize(-Kg / (2 * (1 - Kb)) * ChromaRange), Quantize(0.5 * ChromaRange)},
             {Quantize(0.5 * ChromaRange), Quantize(-Kg / (2 * (1 - Kr)) * ChromaRange),
              Quantize(-Kb / (2 * (1 - Kr)) * ChromaRange)}}};
  default:
    return {{0, 128, 128},
            {{Quantize(Kr), Quantize(Kg), Quantize(Kb)},
             {Quantize(-Kr / (2 * (1 - Kb))), Quantize(-Kg / (2 * (1 - Kb))), Quantize(0.5)},
             {Quantize(0.5), Quantize(-Kg / (2 * (1 - Kr))), Quantize(-Kb / (2 * (1 - Kr)))}}};
  }
}

// round(a * q / 32768), halves up, in the way of pmulhrsw.
inline int32_t MulQ15(int32_t a, int32_t q) {
  return (a * q + 16384) >> 15;
}
inline int32_t Apply(int32_t a, SmCoefficient c) {
  return a * c.whole + MulQ15(a, c.fraction);
}
// From six fraction bits to a sample, rounded half up and clamped.
inline uint8_t ToSample(int32_t v) {
  return static_cast<uint8_t>(std::clamp((v + 32) >> 6, 0, 255));
}

inline void ToRgb(const SmToRgbConstants& k, int32_t y, int32_t cb, int32_t cr, uint8_t rgb[3]) {
  const int32_t luma = Apply((y - k.lumaOffset) * 64, k.luma);
  const int32_t b = (cb - 128) * 64;
  const int32_t r = (cr - 128) * 64;
  rgb[0] = ToSample(luma + Apply(r, k.crToR));
  rgb[1] = ToSample(luma + Apply(b, k.cbToG) + Apply(r, k.crToG));
  rgb[2] = ToSample(luma + Apply(b, k.cbToB));
}

// One output of the forward equations from colour sums carried with six
// fraction bits (a lone pixel shifted by 6, a pair by 5, a square by 4).
inline uint8_t FromRgb(const SmFromRgbConstants& k, int component, int32_t r, int32_t g,
                       int32_t b) {
  return ToSample(Apply(r, k.rgb[component][0]) + Apply(g, k.rgb[component][1]) +
                  Apply(b, k.rgb[component][2]) + k.offset[component] * 64);
}

} // namespace NmPrimitives::NmColorFixedPoint
