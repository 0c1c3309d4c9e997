#include <gtest/gtest.h>

#include "Codecs/Primitives/PlaneLogic.h"
#include "Primitives/PrimitiveTestSupport.h"

using NmPrimitiveTest::SmTestPlane;
using namespace NmPrimitives;

namespace {
struct SmLayout {
  size_t pixelStride;
  size_t channels;
};
const SmLayout Layouts[] = {{1, 1}, {3, 3}, {4, 3}, {4, 4}};

// Noise that hits equality often enough: values from a small alphabet.
void Sparse(SmTestPlane& plane, std::mt19937& random) {
  for (uint8_t& b : plane.bytes) {
    b = static_cast<uint8_t>(random() % 3 == 0 ? 7 : random() % 4);
  }
}
} // namespace

VZK_TEST_ON_EVERY_TARGET(PlaneLogic);

TEST_P(PlaneLogic, MatchesTheReference) {
  std::mt19937& random = Random();
  for (int round = 0; round < 50; ++round) {
    const size_t width = 1 + random() % 140;
    const size_t height = 1 + random() % 4;
    SCOPED_TRACE(::testing::Message() << width << "x" << height);
    {
      const SmTestPlane source(random, width, height);
      SmTestPlane expected(random, width, height);
      SmTestPlane actual = expected;
      NmReference::BitwiseOr(source.data(), source.stride, expected.data(), expected.stride, width,
                             height);
      BitwiseOr(source.data(), source.stride, actual.data(), actual.stride, width, height);
      NmReference::BitwiseAnd(source.data(), source.stride, expected.data(), expected.stride, width,
                              height);
      BitwiseAnd(source.data(), source.stride, actual.data(), actual.stride, width, height);
      NmReference::BitwiseNot(expected.data(), expected.stride, width, height);
      BitwiseNot(actual.data(), actual.stride, width, height);
      EXPECT_EQ(actual.bytes, expected.bytes) << "logic";
    }
    for (const SmLayout layout : Layouts) {
      SCOPED_TRACE(::testing::Message()
                   << "stride " << layout.pixelStride << " channels " << layout.channels);
      const size_t rowBytes = width * layout.pixelStride;
      uint8_t value[4];
      for (uint8_t& v : value) {
        v = static_cast<uint8_t>(random() % 2 ? 7 : random());
      }
      SmTestPlane mask(random, width, height);
      Sparse(mask, random);
      SmTestPlane compositeMask(random, rowBytes, height);
      Sparse(compositeMask, random);
      SmTestPlane source(random, rowBytes, height);
      Sparse(source, random);
      const SmTestPlane background(random, rowBytes, height);

      for (const bool composite : {false, true}) {
        const SmTestPlane& m = composite ? compositeMask : mask;
        const size_t maskPixelStride = composite ? layout.pixelStride : 1;
        ExpectSameWrites(
            NmReference::CopyMasked, CopyMasked, SmTestPlane(random, rowBytes, height),
            [&](auto copy, SmTestPlane& out) {
              copy(source.data(), source.stride, out.data(), out.stride, m.data(), m.stride,
                   maskPixelStride, width, height, layout.pixelStride, layout.channels);
            },
            composite ? "masked copy, composite mask" : "masked copy");
      }
      ExpectSameWrites(
          NmReference::SetMaskedPixels, SetMaskedPixels, SmTestPlane(random, rowBytes, height),
          [&](auto set, SmTestPlane& out) {
            set(value, mask.data(), mask.stride, out.data(), out.stride, width, height,
                layout.pixelStride, layout.channels);
          },
          "masked set");
      ExpectSameWrites(
          NmReference::CompareEqual, CompareEqual, SmTestPlane(random, width, height),
          [&](auto compare, SmTestPlane& out) {
            compare(source.data(), source.stride, value, out.data(), out.stride, width, height,
                    layout.pixelStride, layout.channels);
          },
          "compare");
      ExpectSameWrites(
          NmReference::ColorKeyOverlay, ColorKeyOverlay, SmTestPlane(random, rowBytes, height),
          [&](auto overlay, SmTestPlane& out) {
            overlay(source.data(), source.stride, value, background.data(), background.stride,
                    out.data(), out.stride, width, height, layout.pixelStride, layout.channels);
          },
          "colour key");
    }
  }
}

TEST(PlaneLogicReference, Meaning) {
  // Two pixels of three-in-four: the first matches on all channels, the second
  // on two of three; the fourth byte never counts.
  const uint8_t pixels[8] = {1, 2, 3, 99, 1, 2, 4, 99};
  const uint8_t key[4] = {1, 2, 3, 0};
  uint8_t result[2];
  NmReference::CompareEqual(pixels, 8, key, result, 2, 2, 1, 4, 3);
  EXPECT_EQ(result[0], 255);
  EXPECT_EQ(result[1], 0);
  const uint8_t background[8] = {10, 20, 30, 40, 50, 60, 70, 80};
  uint8_t out[8] = {0, 0, 0, 5, 0, 0, 0, 6};
  NmReference::ColorKeyOverlay(pixels, 8, key, background, 8, out, 8, 2, 1, 4, 3);
  EXPECT_EQ(std::vector<uint8_t>(out, out + 8), (std::vector<uint8_t>{10, 20, 30, 5, 1, 2, 4, 6}));
  const uint8_t mask[2] = {0, 1};
  const uint8_t value[4] = {9, 9, 9, 9};
  NmReference::SetMaskedPixels(value, mask, 2, out, 8, 2, 1, 4, 4);
  EXPECT_EQ(std::vector<uint8_t>(out, out + 8), (std::vector<uint8_t>{10, 20, 30, 5, 9, 9, 9, 9}));
}
