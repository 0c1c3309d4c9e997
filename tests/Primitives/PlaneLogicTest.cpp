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
    // Or, and and not in turn on one plane, on either path.
    const SmTestPlane logicSource(random, width, height);
    ExpectSameWrites(
        true, false, SmTestPlane(random, width, height),
        [&](bool reference, SmTestPlane& out) {
          const uint8_t* in = logicSource.data();
          (reference ? NmReference::BitwiseOr : BitwiseOr)(in, logicSource.stride, out.data(),
                                                           out.stride, width, height);
          (reference ? NmReference::BitwiseAnd : BitwiseAnd)(in, logicSource.stride, out.data(),
                                                             out.stride, width, height);
          (reference ? NmReference::BitwiseNot : BitwiseNot)(out.data(), out.stride, width, height);
        },
        "logic");
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
