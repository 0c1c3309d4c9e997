#include <gtest/gtest.h>

#include "Codecs/Primitives/H264IntraPrediction.h"
#include "Primitives/PrimitiveTestSupport.h"

using NmPrimitiveTest::ExpectSameWrites;
using NmPrimitiveTest::SmTestPlane;
using namespace NmPrimitives;

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
  // 4x4 and 8x8 luma run the plain loops on every target; they join this
  // list when they get vector versions.
  const SmCase cases[] = {
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

class H264IntraPredictionReference : public ::NmKernelTest::CmSeededTest {};

TEST_F(H264IntraPredictionReference, WorkedValues) {
  const SmH264IntraNeighbours all{true, true, true, true};
  const SmH264IntraNeighbours none{false, false, false, false};
  // A linear ramp around a 16x16 block: the plane mode carries it on.
  constexpr int Stride = 33;
  std::vector<uint8_t> plane(Stride * 17);
  const auto at = [&](int x, int y) -> uint8_t& { return plane[(y + 1) * Stride + x + 1]; };
  for (int y = -1; y < 16; ++y) {
    for (int x = -1; x < 32; ++x) {
      at(x, y) = static_cast<uint8_t>(100 + 2 * x + 3 * y);
    }
  }
  NmReference::H264PredictIntra16x16(&at(0, 0), Stride, 3, all);
  EXPECT_EQ(at(0, 0), 100);
  EXPECT_EQ(at(15, 15), 100 + 30 + 45);
  EXPECT_EQ(at(7, 3), 100 + 14 + 9);
  // DC without neighbours is mid-grey; vertical repeats the row above.
  NmReference::H264PredictIntra16x16(&at(0, 0), Stride, 2, none);
  EXPECT_EQ(at(9, 9), 128);
  NmReference::H264PredictIntra4x4(&at(0, 0), Stride, 0, all);
  EXPECT_EQ(at(2, 3), at(2, -1));
  // 4x4 diagonal down left without the top right repeats the last sample
  // above: the bottom right corner then equals it.
  at(3, -1) = 40;
  NmReference::H264PredictIntra4x4(&at(0, 0), Stride, 3,
                                   SmH264IntraNeighbours{true, true, false, true});
  EXPECT_EQ(at(3, 3), 40);
  // Chroma DC: the top right quarter takes the row above only.
  for (int x = 0; x < 8; ++x) {
    at(x, -1) = x < 4 ? 10 : 50;
  }
  for (int y = 0; y < 8; ++y) {
    at(-1, y) = 90;
  }
  NmReference::H264PredictIntraChroma8x8(&at(0, 0), Stride, 0, all);
  EXPECT_EQ(at(0, 0), (4 * 10 + 4 * 90 + 4) >> 3);
  EXPECT_EQ(at(5, 1), 50);
  EXPECT_EQ(at(1, 5), 90);
  EXPECT_EQ(at(5, 5), (4 * 50 + 4 * 90 + 4) >> 3);
}
