#include <gtest/gtest.h>

#include <vector>

#include "Codecs/Primitives/H264Interpolation.h"
#include "Codecs/Primitives/H264IntraPrediction.h"
#include "Codecs/Primitives/H264Prediction.h"
#include "Primitives/PrimitiveTestSupport.h"

using NmPrimitiveTest::ExpectSameWrites;
using NmPrimitiveTest::SmTestPlane;
using namespace NmPrimitives;

// Every target against the reference. The reference is held to the standard
// through the decoder, whose pictures, made by the dispatched target, equal
// ffmpeg's sample for sample.
VZK_TEST_ON_EVERY_TARGET(H264Prediction);

TEST_P(H264Prediction, MatchesTheReference) {
  std::mt19937& random = Random();
  for (int round = 0; round < 300; ++round) {
    const int width = 2 * (1 + static_cast<int>(random() % 8));
    const int height = 1 + static_cast<int>(random() % 16);
    const int logWD = static_cast<int>(random() % 8);
    // Weights at the ends of their ranges every few rounds, where the sums
    // and the clip are at their limits: beyond what conforming streams may
    // carry, and the implicit weights' extremes that conforming ones reach.
    const bool extreme = round % 4 == 0;
    const int extremes[4][2] = {{127, 128}, {-128, -128}, {128, -64}, {-64, 128}};
    const int* pair = extremes[(round / 4) % 4];
    const int weight = extreme ? pair[0] : static_cast<int>(random() % 256) - 128;
    const int weightB = extreme ? pair[1] : static_cast<int>(random() % 257) - 128;
    const int offset = static_cast<int>(random() % 256) - 128;
    SCOPED_TRACE(::testing::Message() << width << "x" << height << " logWD " << logWD << " weights "
                                      << weight << ", " << weightB << " offset " << offset);
    SmTestPlane a(random, static_cast<size_t>(width), static_cast<size_t>(height));
    SmTestPlane b(random, static_cast<size_t>(width), static_cast<size_t>(height));
    if (extreme) {
      std::fill(a.bytes.begin(), a.bytes.end(), uint8_t{255});
    }
    const SmTestPlane destination(random, static_cast<size_t>(width), static_cast<size_t>(height));
    const auto s = [](const SmTestPlane& p) { return static_cast<ptrdiff_t>(p.stride); };
    ExpectSameWrites(
        &NmReference::H264Average, &H264Average, destination,
        [&](auto f, SmTestPlane& p) {
          f(a.data(), s(a), b.data(), s(b), p.data(), s(p), width, height);
        },
        "average");
    ExpectSameWrites(
        &NmReference::H264Weight, &H264Weight, destination,
        [&](auto f, SmTestPlane& p) {
          f(a.data(), s(a), p.data(), s(p), width, height, logWD, weight, offset);
        },
        "weight");
    ExpectSameWrites(
        &NmReference::H264WeightBi, &H264WeightBi, destination,
        [&](auto f, SmTestPlane& p) {
          f(a.data(), s(a), b.data(), s(b), p.data(), s(p), width, height, logWD, weight, weightB,
            offset);
        },
        "two weights");
    // The average in place, as the decoder uses it: dst is the first block.
    ExpectSameWrites(
        &NmReference::H264Average, &H264Average, destination,
        [&](auto f, SmTestPlane& p) {
          f(p.data(), s(p), b.data(), s(b), p.data(), s(p), width, height);
        },
        "average in place");
  }
}

namespace {

using Predictor = void (*)(uint8_t*, ptrdiff_t, int, const SmH264IntraNeighbours&);

// A block at (1, 1) of a plane wide enough for the row above to reach 16
// samples past it: noise, or samples at 0 and 255 where the plane mode clips.
SmTestPlane Neighbourhood(std::mt19937& random, int size, bool extreme) {
  SmTestPlane plane(random, static_cast<size_t>(1 + 2 * size), static_cast<size_t>(1 + size));
  if (extreme) {
    for (uint8_t& b : plane.bytes) {
      b = random() % 2 == 0 ? 0 : 255;
    }
  }
  return plane;
}

} // namespace

VZK_TEST_ON_EVERY_TARGET(H264IntraPrediction);

TEST_P(H264IntraPrediction, EveryModeAndNeighbourhoodMatchesTheReference) {
  std::mt19937& random = Random();
  struct SmCase {
    const char* name;
    int size, modes;
    Predictor reference, kernel;
  };
  const SmCase cases[] = {
      {"4x4", 4, 9, &NmReference::H264PredictIntra4x4, &H264PredictIntra4x4},
      {"8x8", 8, 9, &NmReference::H264PredictIntra8x8, &H264PredictIntra8x8},
      {"16x16", 16, 4, &NmReference::H264PredictIntra16x16, &H264PredictIntra16x16},
      {"chroma 8x8", 8, 4, &NmReference::H264PredictIntraChroma8x8, &H264PredictIntraChroma8x8},
  };
  for (const SmCase& c : cases) {
    for (int mode = 0; mode < c.modes; ++mode) {
      for (int flags = 0; flags < 16; ++flags) {
        const SmH264IntraNeighbours n{(flags & 1) != 0, (flags & 2) != 0, (flags & 4) != 0,
                                      (flags & 8) != 0};
        for (int round = 0; round < 4; ++round) {
          SCOPED_TRACE(::testing::Message() << c.name << " mode " << mode << " flags " << flags);
          const SmTestPlane plane = Neighbourhood(random, c.size, round == 0);
          ExpectSameWrites(
              c.reference, c.kernel, plane,
              [&](Predictor f, SmTestPlane& p) {
                f(p.data() + p.stride + 1, static_cast<ptrdiff_t>(p.stride), mode, n);
              },
              "prediction");
        }
      }
    }
  }
}

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
        // Averaged with another block, and in place over it as bi-prediction may.
        const SmTestPlane other(random, static_cast<size_t>(width), static_cast<size_t>(height));
        for (const bool inPlace : {false, true}) {
          NmPrimitiveTest::ExpectSameWrites(
              &NmReference::H264InterpolateLumaAverage, &H264InterpolateLumaAverage,
              inPlace ? other : destination,
              [&](auto f, SmTestPlane& p) {
                const SmTestPlane& with = inPlace ? p : other;
                f(source.block(), source.stride, with.data(), static_cast<ptrdiff_t>(with.stride),
                  p.data(), static_cast<ptrdiff_t>(p.stride), width, height, dx, dy);
              },
              inPlace ? "luma averaged in place" : "luma averaged");
        }
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
        const SmTestPlane other(random, static_cast<size_t>(width),
                                2 * static_cast<size_t>(height));
        NmPrimitiveTest::ExpectSameWrites(
            &NmReference::H264InterpolateChromaPairAverage, &H264InterpolateChromaPairAverage, both,
            [&](auto f, SmTestPlane& p) {
              const auto stride = static_cast<ptrdiff_t>(p.stride);
              const auto otherStride = static_cast<ptrdiff_t>(other.stride);
              f(source.block(), cr.block(), source.stride, other.data(),
                other.data() + height * otherStride, otherStride, p.data(),
                p.data() + height * stride, stride, width, height, dx, dy);
            },
            "chroma pair averaged");
      }
    }
  }
}
