#include <gtest/gtest.h>

#include "Codecs/Primitives/H264Deblock.h"
#include "Primitives/PrimitiveTestSupport.h"

using NmPrimitiveTest::ExpectSameWrites;
using NmPrimitiveTest::SmTestPlane;
using namespace NmPrimitives;

namespace {

// A 16x16 area around an edge through its middle, smooth with a step across
// the edge so that the filters' conditions are met in some places and not in
// others; now and then with samples at 0 and 255, where the clips act.
SmTestPlane EdgeArea(std::mt19937& random, bool vertical) {
  SmTestPlane plane(random, 16, 16);
  const int base = static_cast<int>(random() % 256);
  const int step = static_cast<int>(random() % 41) - 20;
  const int noise = 1 + static_cast<int>(random() % 6);
  const bool saturated = random() % 4 == 0;
  for (int y = 0; y < 16; ++y) {
    for (int x = 0; x < 16; ++x) {
      const bool far = (vertical ? x : y) >= 8;
      int value = base + (far ? step : 0) + static_cast<int>(random() % noise);
      if (saturated && random() % 3 == 0) {
        value = random() % 2 == 0 ? 0 : 255;
      }
      plane.bytes[static_cast<size_t>(y) * plane.stride + static_cast<size_t>(x)] =
          static_cast<uint8_t>(std::clamp(value, 0, 255));
    }
  }
  return plane;
}

using Filter = void (*)(uint8_t*, ptrdiff_t, int, int, const int8_t*);
using IntraFilter = void (*)(uint8_t*, ptrdiff_t, int, int);

} // namespace

VZK_TEST_ON_EVERY_TARGET(H264Deblock);

TEST_P(H264Deblock, EveryEdgeMatchesTheReference) {
  std::mt19937& random = Random();
  struct SmCase {
    const char* name;
    bool vertical;
    Filter reference, kernel;
    IntraFilter referenceIntra, kernelIntra;
  };
  const SmCase cases[] = {
      {"luma vertical", true, &NmReference::H264FilterLumaVerticalEdge, &H264FilterLumaVerticalEdge,
       &NmReference::H264FilterLumaVerticalEdgeIntra, &H264FilterLumaVerticalEdgeIntra},
      {"luma horizontal", false, &NmReference::H264FilterLumaHorizontalEdge,
       &H264FilterLumaHorizontalEdge, &NmReference::H264FilterLumaHorizontalEdgeIntra,
       &H264FilterLumaHorizontalEdgeIntra},
      {"chroma vertical", true, &NmReference::H264FilterChromaVerticalEdge,
       &H264FilterChromaVerticalEdge, &NmReference::H264FilterChromaVerticalEdgeIntra,
       &H264FilterChromaVerticalEdgeIntra},
      {"chroma horizontal", false, &NmReference::H264FilterChromaHorizontalEdge,
       &H264FilterChromaHorizontalEdge, &NmReference::H264FilterChromaHorizontalEdgeIntra,
       &H264FilterChromaHorizontalEdgeIntra},
  };
  for (const SmCase& c : cases) {
    for (int round = 0; round < 500; ++round) {
      // alpha and beta over the whole of their tables, tc0 up to the table's
      // 25, a segment left alone (-1) now and then.
      const int alpha = round % 10 == 0 ? 255 : static_cast<int>(random() % 256);
      const int beta = static_cast<int>(random() % 19);
      int8_t tc0[4];
      for (int8_t& t : tc0) {
        t = static_cast<int8_t>(random() % 5 == 0 ? -1 : static_cast<int>(random() % 26));
      }
      SCOPED_TRACE(::testing::Message()
                   << c.name << " alpha " << alpha << " beta " << beta << " tc0 " << int{tc0[0]}
                   << " " << int{tc0[1]} << " " << int{tc0[2]} << " " << int{tc0[3]});
      const SmTestPlane area = EdgeArea(random, c.vertical);
      // The edge through the middle of the area.
      const auto q = [&](SmTestPlane& p) { return p.data() + (c.vertical ? 8 : 8 * p.stride); };
      const ptrdiff_t stride = static_cast<ptrdiff_t>(area.stride);
      ExpectSameWrites(
          c.reference, c.kernel, area,
          [&](Filter f, SmTestPlane& p) { f(q(p), stride, alpha, beta, tc0); }, "normal");
      ExpectSameWrites(
          c.referenceIntra, c.kernelIntra, area,
          [&](IntraFilter f, SmTestPlane& p) { f(q(p), stride, alpha, beta); }, "intra");
    }
  }
}

class H264DeblockReference : public ::NmKernelTest::CmSeededTest {};

TEST_F(H264DeblockReference, WorkedValuesAndTheThresholds) {
  // One column across a horizontal luma edge: p3..p0 = 60, q0..q3 = 70.
  const auto column = [](int p, int q) {
    std::vector<uint8_t> c(8 * 16);
    for (int y = 0; y < 8; ++y) {
      std::fill_n(c.begin() + 16 * y, 16, static_cast<uint8_t>(y < 4 ? p : q));
    }
    return c;
  };
  std::vector<uint8_t> area = column(60, 70);
  const int8_t tc0[4] = {1, 1, 1, -1};
  NmReference::H264FilterLumaHorizontalEdge(area.data() + 4 * 16, 16, 20, 5, tc0);
  // delta = (4 * 10 - 10 + 4) >> 3 = 4, held to tc = 1 + 2 (both sides smooth).
  EXPECT_EQ(area[3 * 16], 63);
  EXPECT_EQ(area[4 * 16], 67);
  // p1 moves by (60 + 65 - 120) >> 1 = 2, held to tc0 = 1.
  EXPECT_EQ(area[2 * 16], 61);
  // The last segment is left alone.
  EXPECT_EQ(area[3 * 16 + 15], 60);
  // A step of alpha or more is an edge of the picture, not of the blocks.
  area = column(60, 80);
  NmReference::H264FilterLumaHorizontalEdge(area.data() + 4 * 16, 16, 20, 5, tc0);
  EXPECT_EQ(area, column(60, 80));
  // Strength 4 on smooth sides: three samples each side from the strong filter.
  area = column(60, 70);
  NmReference::H264FilterLumaHorizontalEdgeIntra(area.data() + 4 * 16, 16, 40, 5);
  EXPECT_EQ(area[3 * 16], (60 + 120 + 120 + 140 + 70 + 4) >> 3);
  EXPECT_EQ(area[2 * 16], (60 + 60 + 60 + 70 + 2) >> 2);
  EXPECT_EQ(area[1 * 16], (120 + 180 + 60 + 60 + 70 + 4) >> 3);
  EXPECT_EQ(area[0 * 16], 60);
  // Chroma adds 1 to tc0 (delta 4 held to 2) and changes p0 and q0 only.
  area = column(60, 70);
  NmReference::H264FilterChromaHorizontalEdge(area.data() + 4 * 16, 16, 20, 5, tc0);
  EXPECT_EQ(area[3 * 16], 62);
  EXPECT_EQ(area[4 * 16], 68);
  EXPECT_EQ(area[2 * 16], 60);
}
