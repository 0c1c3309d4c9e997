#pragma once

// The fixed-point form of the colour equations, shared by the plain and the
// vector kernels so that both round the same way. Towards RGB, samples are
// carried with six fraction bits (value << 6), products use 15-bit
// coefficients rounded half up as the pmulhrsw instruction does, and results
// are rounded and clamped once. From RGB, the three products of 15-bit
// coefficients are summed exactly in 32 bits and rounded once, which maps
// onto one multiply-add of 16-bit pairs per output.
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

// Every forward coefficient is below one in magnitude, so c * 32768 fits a
// signed 16-bit lane.
constexpr int16_t QuantizeQ15(double c) {
  const double q = c * 32768.0;
  return static_cast<int16_t>(q >= 0 ? q + 0.5 : q - 0.5);
}

struct SmFromRgbConstants {
  int16_t offset[3]; // added to Y, Cb, Cr
  int16_t rgb[3][3]; // [Y, Cb, Cr][R, G, B], 15 fraction bits
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
    return {
        0, Quantize(1.0), Quantize(1.402), Quantize(-0.34414), Quantize(-0.71414), Quantize(1.772)};
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
            {{QuantizeQ15(0.299), QuantizeQ15(0.587), QuantizeQ15(0.114)},
             {QuantizeQ15(-0.1687), QuantizeQ15(-0.3313), QuantizeQ15(0.5)},
             {QuantizeQ15(0.5), QuantizeQ15(-0.4187), QuantizeQ15(-0.0813)}}};
  case YCbCrVideoRange:
    return {
        {16, 128, 128},
        {{QuantizeQ15(Kr * LumaRange), QuantizeQ15(Kg * LumaRange), QuantizeQ15(Kb * LumaRange)},
         {QuantizeQ15(-Kr / (2 * (1 - Kb)) * ChromaRange),
          QuantizeQ15(-Kg / (2 * (1 - Kb)) * ChromaRange), QuantizeQ15(0.5 * ChromaRange)},
         {QuantizeQ15(0.5 * ChromaRange), QuantizeQ15(-Kg / (2 * (1 - Kr)) * ChromaRange),
          QuantizeQ15(-Kb / (2 * (1 - Kr)) * ChromaRange)}}};
  default:
    return {
        {0, 128, 128},
        {{QuantizeQ15(Kr), QuantizeQ15(Kg), QuantizeQ15(Kb)},
         {QuantizeQ15(-Kr / (2 * (1 - Kb))), QuantizeQ15(-Kg / (2 * (1 - Kb))), QuantizeQ15(0.5)},
         {QuantizeQ15(0.5), QuantizeQ15(-Kg / (2 * (1 - Kr))), QuantizeQ15(-Kb / (2 * (1 - Kr)))}}};
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

// The forward equations over the sum of 1 << log2Pixels pixels (one, a pair or
// a square): the products of the colour sums and the bias are exact in 32 bits,
// and the one shift both averages and rounds. The bias is the offset plus one
// half, scaled to the sum; it is a multiple of 1 << 14 by at most 1028, so the
// vector code gets it from a 16-bit pair of that multiple and 1 << 14.
constexpr int BiasUnitBits = 14;
constexpr int32_t BiasMultiple(int32_t offset, int log2Pixels) {
  return (2 * offset + 1) << log2Pixels;
}
inline uint8_t FromRgb(const SmFromRgbConstants& k, int component, int32_t r, int32_t g, int32_t b,
                       int log2Pixels) {
  const int16_t* c = k.rgb[component];
  const int32_t sum = r * c[0] + g * c[1] + b * c[2] +
                      (BiasMultiple(k.offset[component], log2Pixels) << BiasUnitBits);
  return static_cast<uint8_t>(std::clamp(sum >> (15 + log2Pixels), 0, 255));
}

} // namespace NmPrimitives::NmColorFixedPoint
