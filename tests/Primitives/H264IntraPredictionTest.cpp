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

// Every target against the reference. The reference is held to the standard
// through the decoder, whose pictures, made by the dispatched target, equal
// ffmpeg's sample for sample.
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
