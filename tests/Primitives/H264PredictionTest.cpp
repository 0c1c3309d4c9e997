#include <gtest/gtest.h>

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
