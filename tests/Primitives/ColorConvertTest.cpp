#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>

#include "Codecs/Primitives/ColorConvert.h"
#include "Codecs/Primitives/JPEGColorConvert.h"
#include "Primitives/PrimitiveTestSupport.h"

using NmPrimitiveTest::SmTestPlane;
using namespace NmPrimitives;

namespace {

constexpr SmYCbCrMatrix Matrices[] = {YCbCrJfif, YCbCrVideoRange, YCbCrBt601Full};
constexpr SmChromaLayout Layouts[] = {Chroma444, Chroma422, Chroma420};

size_t ChromaWidth(SmChromaLayout c, size_t w) {
  return c == Chroma444 ? w : (w + 1) / 2;
}
size_t ChromaHeight(SmChromaLayout c, size_t h) {
  return c == Chroma420 ? (h + 1) / 2 : h;
}

// The equations as the standards print them, independent of the kernels'
// fixed-point form: JFIF's rounded constants, BT.601's digital video form and
// BT.601 luma with the colour differences scaled to full range.
void ExactToRgb(SmYCbCrMatrix m, double y, double cb, double cr, double rgb[3]) {
  cb -= 128;
  cr -= 128;
  if (m == YCbCrJfif) {
    rgb[0] = y + 1.402 * cr;
    rgb[1] = y - 0.34414 * cb - 0.71414 * cr;
    rgb[2] = y + 1.772 * cb;
  } else if (m == YCbCrVideoRange) {
    const double l = 255.0 / 219.0 * (y - 16);
    rgb[0] = l + 255.0 / 224.0 * 1.402 * cr;
    rgb[2] = l + 255.0 / 224.0 * 1.772 * cb;
    rgb[1] = (l - 0.299 * rgb[0] - 0.114 * rgb[2]) / 0.587;
  } else {
    rgb[0] = y + 1.402 * cr;
    rgb[2] = y + 1.772 * cb;
    rgb[1] = (y - 0.299 * rgb[0] - 0.114 * rgb[2]) / 0.587;
  }
}

void ExactFromRgb(SmYCbCrMatrix m, double r, double g, double b, double ycc[3]) {
  if (m == YCbCrJfif) {
    ycc[0] = 0.299 * r + 0.587 * g + 0.114 * b;
    ycc[1] = -0.1687 * r - 0.3313 * g + 0.5 * b + 128;
    ycc[2] = 0.5 * r - 0.4187 * g - 0.0813 * b + 128;
  } else if (m == YCbCrVideoRange) {
    ycc[0] = 16 + (65.481 * r + 128.553 * g + 24.966 * b) / 255;
    ycc[1] = 128 + (-37.797 * r - 74.203 * g + 112.0 * b) / 255;
    ycc[2] = 128 + (112.0 * r - 93.786 * g - 18.214 * b) / 255;
  } else {
    ycc[0] = 0.299 * r + 0.587 * g + 0.114 * b;
    ycc[1] = 128 + (b - ycc[0]) / 1.772;
    ycc[2] = 128 + (r - ycc[0]) / 1.402;
  }
}

int Expected(double v) {
  return static_cast<int>(std::clamp(std::floor(v + 0.5), 0.0, 255.0));
}

} // namespace

VZK_TEST_ON_EVERY_TARGET(ColorConvert);
class ColorConvertReference : public NmKernelTest::CmSeededTest {};

TEST_P(ColorConvert, MatchesTheReference) {
  std::mt19937& random = Random();
  for (int round = 0; round < 40; ++round) {
    const size_t width = round < 3 ? 64 * (round + 1) : 1 + random() % 150;
    const size_t height = 1 + random() % 7;
    for (const SmChromaLayout chroma : Layouts) {
      for (const SmYCbCrMatrix matrix : Matrices) {
        for (const size_t pixelBytes : {3u, 4u}) {
          const SmPackedLayout layout{pixelBytes, random() % 2 == 1};
          SCOPED_TRACE(::testing::Message()
                       << width << "x" << height << " chroma " << chroma << " matrix " << matrix
                       << " bytes " << pixelBytes << " blue first " << layout.blueFirst);
          const size_t cw = ChromaWidth(chroma, width), ch = ChromaHeight(chroma, height);
          const SmTestPlane y(random, width, height), cb(random, cw, ch), cr(random, cw, ch);
          const SmYCbCrSource source{y.data(),  y.stride,  cb.data(),
                                     cb.stride, cr.data(), cr.stride};
          ExpectSameWrites(
              NmReference::YCbCrToRgb, YCbCrToRgb, SmTestPlane(random, width * pixelBytes, height),
              [&](auto convert, SmTestPlane& out) {
                convert(source, chroma, out.data(), out.stride, layout, width, height, matrix);
              },
              "to RGB");

          SmTestPlane rgb(random, width * pixelBytes, height);
          if (round % 4 == 3) {
            // Corners of the cube only: where the sums leave 0..255 and
            // the vector code's saturating packs must clamp as the
            // reference does.
            for (uint8_t& b : rgb.bytes) {
              b = (b & 1) != 0 ? 255 : 0;
            }
          }
          const bool lumaOnly = random() % 4 == 0;
          ExpectSameWrites(
              NmReference::RgbToYCbCr, RgbToYCbCr,
              std::array{SmTestPlane(random, width, height), SmTestPlane(random, cw, ch),
                         SmTestPlane(random, cw, ch)},
              [&](auto convert, std::array<SmTestPlane, 3>& out) {
                const SmYCbCrDestination to{out[0].data(),
                                            out[0].stride,
                                            lumaOnly ? nullptr : out[1].data(),
                                            out[1].stride,
                                            lumaOnly ? nullptr : out[2].data(),
                                            out[2].stride};
                convert(rgb.data(), rgb.stride, layout, to, chroma, width, height, matrix);
              },
              "to YCbCr");
        }
      }
    }
  }
}

TEST_F(ColorConvertReference, IsWithinOneOfTheEquations) {
  std::mt19937& random = Random();
  for (const SmYCbCrMatrix matrix : Matrices) {
    SCOPED_TRACE(::testing::Message() << "matrix " << matrix);
    // Every pixel of a 4:4:4 picture is an independent sample of the cube,
    // the corners included.
    constexpr size_t Count = 4096;
    std::vector<uint8_t> y(Count), cb(Count), cr(Count), rgb(3 * Count);
    for (size_t i = 0; i < Count; ++i) {
      y[i] = static_cast<uint8_t>(i < 8 ? (i & 1) * 255 : random());
      cb[i] = static_cast<uint8_t>(i < 8 ? (i >> 1 & 1) * 255 : random());
      cr[i] = static_cast<uint8_t>(i < 8 ? (i >> 2 & 1) * 255 : random());
    }
    NmReference::YCbCrToRgb({y.data(), Count, cb.data(), Count, cr.data(), Count}, Chroma444,
                            rgb.data(), 3 * Count, {3, false}, Count, 1, matrix);
    int worst = 0;
    for (size_t i = 0; i < Count; ++i) {
      double exact[3];
      ExactToRgb(matrix, y[i], cb[i], cr[i], exact);
      for (int c = 0; c < 3; ++c) {
        worst = std::max(worst, std::abs(rgb[3 * i + c] - Expected(exact[c])));
      }
    }
    EXPECT_LE(worst, 1) << "to RGB";

    std::vector<uint8_t> back(3 * Count);
    for (uint8_t& b : back) {
      b = static_cast<uint8_t>(random());
    }
    NmReference::RgbToYCbCr(back.data(), 3 * Count, {3, false},
                            {y.data(), Count, cb.data(), Count, cr.data(), Count}, Chroma444, Count,
                            1, matrix);
    worst = 0;
    // Rounded once, an output is off by at most a half plus what the 15-bit
    // coefficients lose over three full-scale channels.
    double farthest = 0;
    for (size_t i = 0; i < Count; ++i) {
      double exact[3];
      ExactFromRgb(matrix, back[3 * i], back[3 * i + 1], back[3 * i + 2], exact);
      const uint8_t got[3] = {y[i], cb[i], cr[i]};
      for (int c = 0; c < 3; ++c) {
        worst = std::max(worst, std::abs(got[c] - Expected(exact[c])));
        farthest = std::max(farthest, std::abs(got[c] - std::clamp(exact[c], 0.0, 255.0)));
      }
    }
    EXPECT_LE(worst, 1) << "from RGB";
    EXPECT_LT(farthest, 0.5 + 3 * 255 * 0.5 / 32768) << "from RGB";
  }
}

TEST_P(ColorConvert, SubsampledChromaIsTheMeanColourOfItsPixels) {
  // A 3 x 3 picture in 4:2:0: the last column and row have chroma samples of
  // two pixels and the corner one of a single pixel.
  std::mt19937& random = Random();
  for (const SmYCbCrMatrix matrix : Matrices) {
    for (const SmChromaLayout chroma : {Chroma422, Chroma420}) {
      uint8_t rgb[27];
      for (uint8_t& b : rgb) {
        b = static_cast<uint8_t>(random());
      }
      uint8_t y[9], cb[6], cr[6];
      RgbToYCbCr(rgb, 9, {3, false}, {y, 3, cb, 2, cr, 2}, chroma, 3, 3, matrix);
      const size_t rows = chroma == Chroma420 ? 2 : 3;
      for (size_t cy = 0; cy < rows; ++cy) {
        for (size_t cx = 0; cx < 2; ++cx) {
          double mean[3] = {0, 0, 0};
          int count = 0;
          for (size_t py = 0; py < 3; ++py) {
            for (size_t px = 0; px < 3; ++px) {
              const bool covered = px / 2 == cx && (chroma == Chroma420 ? py / 2 : py) == cy;
              if (covered) {
                ++count;
                for (int c = 0; c < 3; ++c) {
                  mean[c] += rgb[py * 9 + px * 3 + c];
                }
              }
            }
          }
          double exact[3];
          ExactFromRgb(matrix, mean[0] / count, mean[1] / count, mean[2] / count, exact);
          SCOPED_TRACE(::testing::Message() << "matrix " << matrix << " chroma " << chroma
                                            << " sample " << cx << "," << cy);
          EXPECT_LE(std::abs(cb[cy * 2 + cx] - Expected(exact[1])), 1);
          EXPECT_LE(std::abs(cr[cy * 2 + cx] - Expected(exact[2])), 1);
        }
      }
    }
  }
  // Black and white land on the ends of each range, and back.
  const uint8_t ends[6] = {0, 0, 0, 255, 255, 255};
  uint8_t y[2], cb[2], cr[2];
  RgbToYCbCr(ends, 6, {3, false}, {y, 2, cb, 2, cr, 2}, Chroma444, 2, 1, YCbCrVideoRange);
  EXPECT_EQ((std::array<int, 4>{y[0], y[1], cb[0], cr[1]}),
            (std::array<int, 4>{16, 235, 128, 128}));
  uint8_t again[8];
  YCbCrToRgb({y, 2, cb, 2, cr, 2}, Chroma444, again, 8, {4, true}, 2, 1, YCbCrVideoRange);
  EXPECT_EQ(std::vector<uint8_t>(again, again + 8),
            (std::vector<uint8_t>{0, 0, 0, 255, 255, 255, 255, 255}));
  RgbToYCbCr(ends, 6, {3, false}, {y, 2, nullptr, 0, nullptr, 0}, Chroma444, 2, 1, YCbCrJfif);
  EXPECT_EQ(y[1], 255);
}

VZK_TEST_ON_EVERY_TARGET(JPEGColorConvert);

TEST_P(JPEGColorConvert, MatchesTheReferenceAndTheEquations) {
  std::mt19937& random = Random();
  for (int round = 0; round < 80; ++round) {
    const size_t width = 1 + random() % 100;
    const SmTestPlane y(random, width, 1), cb(random, width, 1), cr(random, width, 1);
    const bool bgr = round % 2 == 1;
    SmTestPlane expected(random, 3 * width, 1);
    const auto convert = [&](auto f, SmTestPlane& out) {
      f(y.data(), cb.data(), cr.data(), out.data(), width, bgr);
    };
    ExpectSameWrites(NmReference::JPEGYCbCrToRGBRow, JPEGYCbCrToRGBRow, expected, convert, "row");
    convert(NmReference::JPEGYCbCrToRGBRow, expected);
    // The reference follows the JFIF equations to within rounding.
    for (size_t x = 0; x < width; ++x) {
      const double r = y.bytes[x] + 1.402 * (cr.bytes[x] - 128);
      const double g = y.bytes[x] - 0.344136 * (cb.bytes[x] - 128) - 0.714136 * (cr.bytes[x] - 128);
      const double b = y.bytes[x] + 1.772 * (cb.bytes[x] - 128);
      auto clamp = [](double v) { return v < 0 ? 0.0 : v > 255 ? 255.0 : v; };
      const int first = bgr ? 2 : 0;
      EXPECT_LE(std::abs(expected.bytes[3 * x + first] - clamp(r)), 0.51);
      EXPECT_LE(std::abs(expected.bytes[3 * x + 1] - clamp(g)), 0.51);
      EXPECT_LE(std::abs(expected.bytes[3 * x + 2 - first] - clamp(b)), 0.51);
    }
  }
}
