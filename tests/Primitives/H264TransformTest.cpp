#include <gtest/gtest.h>

#include <array>

#include "Codecs/Primitives/H264Transform.h"
#include "Primitives/PrimitiveTestSupport.h"

using NmPrimitiveTest::ExpectSameWrites;
using NmPrimitiveTest::SmTestPlane;
using namespace NmPrimitives;

namespace {

// Coefficients of one of several kinds: small, typical, as large as the sums
// allow in 32 bits, or a few scattered ones among zeros.
template <size_t Count> std::array<int32_t, Count> Coefficients(std::mt19937& random, int kind) {
  std::array<int32_t, Count> c{};
  const int32_t range = kind == 0 ? 64 : kind == 1 ? 4096 : 1 << 20;
  for (int32_t& value : c) {
    value = static_cast<int32_t>(random() % (2 * range + 1)) - range;
    if (kind == 3 && random() % 6 != 0) {
      value = 0;
    }
  }
  if (kind == 2 && random() % 2 == 0) {
    // Every coefficient at one extreme, which drives every sum to its limit.
    const int32_t sign = random() % 2 == 0 ? 1 : -1;
    c.fill(sign * range);
  }
  return c;
}

} // namespace

// Every target against the reference. The reference is held to the standard
// through the decoder, whose pictures, made by the dispatched target, equal
// ffmpeg's sample for sample.
VZK_TEST_ON_EVERY_TARGET(H264Transform);

TEST_P(H264Transform, MatchesTheReference) {
  std::mt19937& random = Random();
  for (int round = 0; round < 400; ++round) {
    const int kind = round % 4;
    SCOPED_TRACE(::testing::Message() << "round " << round);
    // Predictions that are noise, or all 0 or all 255 where the clip decides.
    SmTestPlane plane(random, 8, 8);
    if (round % 5 == 0) {
      for (size_t y = 0; y < 8; ++y) {
        std::fill_n(plane.data() + y * plane.stride, 8,
                    static_cast<uint8_t>(round % 10 == 0 ? 0 : 255));
      }
    }
    const auto c4 = Coefficients<16>(random, kind);
    ExpectSameWrites(
        &NmReference::H264AddInverseTransform4x4, &H264AddInverseTransform4x4, plane,
        [&](auto f, SmTestPlane& p) { f(c4.data(), p.data(), static_cast<ptrdiff_t>(p.stride)); },
        "4x4");
    const auto c8 = Coefficients<64>(random, kind);
    ExpectSameWrites(
        &NmReference::H264AddInverseTransform8x8, &H264AddInverseTransform8x8, plane,
        [&](auto f, SmTestPlane& p) { f(c8.data(), p.data(), static_cast<ptrdiff_t>(p.stride)); },
        "8x8");
    // DC values around the points where the added value saturates, and far beyond.
    const int32_t dcs[] = {c4[0], -255 * 64 - 32, 255 * 64 - 32, 256 * 64, -(1 << 24), 1 << 24};
    const int32_t dc = dcs[random() % std::size(dcs)];
    ExpectSameWrites(
        &NmReference::H264AddDc4x4, &H264AddDc4x4, plane,
        [&](auto f, SmTestPlane& p) { f(dc, p.data(), static_cast<ptrdiff_t>(p.stride)); },
        "DC 4x4");
    ExpectSameWrites(
        &NmReference::H264AddDc8x8, &H264AddDc8x8, plane,
        [&](auto f, SmTestPlane& p) { f(dc, p.data(), static_cast<ptrdiff_t>(p.stride)); },
        "DC 8x8");
  }
}

// Levels in scan order: the gather into raster order per scan, with and
// without a DC of its own, and the scaling on both sides of qp 24, where it
// turns from a rounded right shift into a left shift.
TEST_P(H264Transform, LevelsMatchTheReference) {
  std::mt19937& random = Random();
  for (int round = 0; round < 208; ++round) {
    const int qp = round % 52;
    const bool field = round / 52 % 2 != 0;
    SCOPED_TRACE(::testing::Message() << "qp " << qp << (field ? " field" : " frame"));
    SmTestPlane plane(random, 4, 4);
    // Factors of flat and steep scaling lists; levels that stay within 32
    // bits at the largest factor and shift.
    int32_t scale[16];
    int16_t levels[16];
    for (int k = 0; k < 16; ++k) {
      scale[k] = static_cast<int32_t>(1 + random() % (round < 104 ? 16 : 255)) *
                 static_cast<int32_t>(10 + random() % 20);
      levels[k] = static_cast<int16_t>(random() % 6 == 0 ? 0 : int(random() % 511) - 255);
    }
    const int32_t dc = static_cast<int32_t>(random() % 20001) - 10000;
    ExpectSameWrites(
        &NmReference::H264AddLevels4x4, &H264AddLevels4x4, plane,
        [&](auto f, SmTestPlane& p) {
          f(levels, field, scale, qp, p.data(), static_cast<ptrdiff_t>(p.stride));
        },
        "levels");
    ExpectSameWrites(
        &NmReference::H264AddAcLevels4x4, &H264AddAcLevels4x4, plane,
        [&](auto f, SmTestPlane& p) {
          f(levels, dc, field, scale, qp, p.data(), static_cast<ptrdiff_t>(p.stride));
        },
        "AC levels");
  }
}
