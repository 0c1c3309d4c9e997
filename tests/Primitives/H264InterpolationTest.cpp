#include <gtest/gtest.h>

#include <vector>

#include "Codecs/Primitives/H264Interpolation.h"
#include "Primitives/PrimitiveTestSupport.h"

using NmPrimitiveTest::SmTestPlane;
using namespace NmPrimitives;

namespace {

// A source exactly as large as the filters may read around a block: `before`
// samples before it and `after` after it in both directions, with no spare
// byte after the last row, so that a read beyond shows under the address
// sanitizer. Content is noise, a flat extreme, or stripes that drive the
// six-tap sums to their limits.
struct SmSource {
  SmSource(std::mt19937& random, int width, int height, int before, int after, int kind)
      : stride(width + before + after),
        bytes(static_cast<size_t>(stride * (height + before + after))),
        origin(before * stride + before) {
    for (size_t i = 0; i < bytes.size(); ++i) {
      const size_t x = i % static_cast<size_t>(stride);
      switch (kind) {
      case 0:
        bytes[i] = static_cast<uint8_t>(random());
        break;
      case 1:
        bytes[i] = random() % 2 == 0 ? 0 : 255;
        break;
      case 2: // two dark, two bright, along rows and columns alike
        bytes[i] = ((x / 2) + (i / static_cast<size_t>(stride) / 2)) % 2 == 0 ? 0 : 255;
        break;
      default:
        bytes[i] = static_cast<uint8_t>(200 + random() % 56);
        break;
      }
    }
  }
  const uint8_t* block() const { return bytes.data() + origin; }
  ptrdiff_t stride;
  std::vector<uint8_t> bytes;
  ptrdiff_t origin;
};

} // namespace

// Every target against the reference. The reference is held to the standard
// through the decoder, whose pictures, made by the dispatched target, equal
// ffmpeg's sample for sample.
VZK_TEST_ON_EVERY_TARGET(H264Interpolation);

TEST_P(H264Interpolation, LumaMatchesTheReferenceAtEveryPositionAndSize) {
  std::mt19937& random = Random();
  for (const int width : {4, 8, 16}) {
    for (int position = 0; position < 16; ++position) {
      for (int round = 0; round < 6; ++round) {
        const int height = round == 0 ? width : 1 + static_cast<int>(random() % 16);
        const int dx = position % 4, dy = position / 4;
        SCOPED_TRACE(::testing::Message() << width << "x" << height << " at (" << dx << ", " << dy
                                          << ") kind " << round % 4);
        const SmSource source(random, width, height, 2, 3, round % 4);
        const SmTestPlane destination(random, static_cast<size_t>(width),
                                      static_cast<size_t>(height));
        NmPrimitiveTest::ExpectSameWrites(
            &NmReference::H264InterpolateLuma, &H264InterpolateLuma, destination,
            [&](auto f, SmTestPlane& p) {
              f(source.block(), source.stride, p.data(), static_cast<ptrdiff_t>(p.stride), width,
                height, dx, dy);
            },
            "luma");
      }
    }
  }
}

TEST_P(H264Interpolation, ChromaMatchesTheReferenceAtEveryPositionAndSize) {
  std::mt19937& random = Random();
  for (const int width : {2, 4, 8}) {
    for (int position = 0; position < 64; ++position) {
      for (int round = 0; round < 3; ++round) {
        const int height = round == 0 ? width : 1 + static_cast<int>(random() % 8);
        const int dx = position % 8, dy = position / 8;
        SCOPED_TRACE(::testing::Message()
                     << width << "x" << height << " at (" << dx << ", " << dy << ")");
        const SmSource source(random, width, height, 0, 1, round == 2 ? 1 : 0);
        const SmTestPlane destination(random, static_cast<size_t>(width),
                                      static_cast<size_t>(height));
        NmPrimitiveTest::ExpectSameWrites(
            &NmReference::H264InterpolateChroma, &H264InterpolateChroma, destination,
            [&](auto f, SmTestPlane& p) {
              f(source.block(), source.stride, p.data(), static_cast<ptrdiff_t>(p.stride), width,
                height, dx, dy);
            },
            "chroma");
        // Both planes in one call: Cr from its own buffer, written below Cb.
        const SmSource cr(random, width, height, 0, 1, round == 2 ? 1 : 0);
        const SmTestPlane both(random, static_cast<size_t>(width), 2 * static_cast<size_t>(height));
        NmPrimitiveTest::ExpectSameWrites(
            &NmReference::H264InterpolateChromaPair, &H264InterpolateChromaPair, both,
            [&](auto f, SmTestPlane& p) {
              const auto stride = static_cast<ptrdiff_t>(p.stride);
              f(source.block(), cr.block(), source.stride, p.data(), p.data() + height * stride,
                stride, width, height, dx, dy);
            },
            "chroma pair");
      }
    }
  }
}
