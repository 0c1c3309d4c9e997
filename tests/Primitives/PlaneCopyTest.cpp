#include <gtest/gtest.h>

#include "Codecs/Primitives/PlaneCopy.h"
#include "Primitives/PrimitiveTestSupport.h"

using NmPrimitiveTest::SmTestPlane;
namespace Ref = NmPrimitives::NmReference;

namespace {
// Widths around every vector length that a target can have, plus odd ones.
size_t RandomWidth(std::mt19937& random) {
  static const size_t edges[] = {1, 2, 3, 15, 16, 17, 31, 32, 33, 63, 64, 65, 127, 128, 129};
  // Now and then rows long enough for the copy of large blocks.
  if (random() % 8 == 0) {
    return 1100 + random() % 600;
  }
  return random() % 2 ? edges[random() % std::size(edges)] : 1 + random() % 300;
}
} // namespace

VZK_TEST_ON_EVERY_TARGET(PlaneCopy);

TEST_P(PlaneCopy, MatchesTheReference) {
  std::mt19937& random = Random();
  for (int round = 0; round < 60; ++round) {
    const size_t width = RandomWidth(random);
    const size_t height = 1 + random() % 5;
    const uint8_t value = static_cast<uint8_t>(random());
    const size_t channel = random() % 4;
    SCOPED_TRACE(::testing::Message() << "width " << width << " height " << height);

    for (const size_t pixelBytes : {1u, 3u, 4u}) {
      const SmTestPlane source(random, width * pixelBytes, height);
      ExpectSameWrites(
          Ref::CopyPlane, NmPrimitives::CopyPlane, SmTestPlane(random, width * pixelBytes, height),
          [&](auto copy, SmTestPlane& out) {
            copy(source.data(), source.stride, out.data(), out.stride, width * pixelBytes, height);
          },
          "copy");
    }
    ExpectSameWrites(
        Ref::SetPlane, NmPrimitives::SetPlane, SmTestPlane(random, width, height),
        [&](auto set, SmTestPlane& out) { set(value, out.data(), out.stride, width, height); },
        "set");
    ExpectSameWrites(
        Ref::SetChannel4, NmPrimitives::SetChannel4, SmTestPlane(random, 4 * width, height),
        [&](auto set, SmTestPlane& out) {
          set(value, channel, out.data(), out.stride, width, height);
        },
        "set channel");
    const SmTestPlane three(random, 3 * width, height);
    ExpectSameWrites(
        Ref::Copy3To4, NmPrimitives::Copy3To4, SmTestPlane(random, 4 * width, height),
        [&](auto copy, SmTestPlane& out) {
          copy(three.data(), three.stride, out.data(), out.stride, width, height, value);
        },
        "3 to 4");
    const SmTestPlane four(random, 4 * width, height);
    ExpectSameWrites(
        Ref::Copy4To3, NmPrimitives::Copy4To3, SmTestPlane(random, 3 * width, height),
        [&](auto copy, SmTestPlane& out) {
          copy(four.data(), four.stride, out.data(), out.stride, width, height);
        },
        "4 to 3");
    for (const size_t pixelBytes : {3u, 4u}) {
      const auto swap = pixelBytes == 3 ? NmPrimitives::SwapChannels3 : NmPrimitives::SwapChannels4;
      const auto reference = pixelBytes == 3 ? Ref::SwapChannels3 : Ref::SwapChannels4;
      const SmTestPlane source(random, pixelBytes * width, height);
      SmTestPlane expected(random, pixelBytes * width, height);
      const auto call = [&](auto f, SmTestPlane& out) {
        f(source.data(), source.stride, out.data(), out.stride, width, height);
      };
      ExpectSameWrites(reference, swap, expected, call, "swap");
      call(reference, expected);
      // In place, the result is the same as out of place.
      ExpectSameInPlace(
          source, expected, pixelBytes * width,
          [&](SmTestPlane& p) { swap(p.data(), p.stride, p.data(), p.stride, width, height); },
          "in-place swap");
    }
  }
}
