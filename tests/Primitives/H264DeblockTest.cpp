#include <gtest/gtest.h>

#include <array>
#include <utility>

#include "Codecs/Primitives/H264Deblock.h"
#include "Primitives/PrimitiveTestSupport.h"

using NmPrimitiveTest::ExpectSameWrites;
using NmPrimitiveTest::SmTestPlane;
using namespace NmPrimitives;

namespace {

// A 16x16 area around an edge through its middle (or 16 x rows beside a
// vertical one), smooth with a step across the edge so that the filters'
// conditions are met in some places and not in others; now and then with
// samples at 0 and 255, where the clips act.
SmTestPlane EdgeArea(std::mt19937& random, bool vertical, int rows = 16) {
  SmTestPlane plane(random, 16, static_cast<size_t>(rows));
  const int base = static_cast<int>(random() % 256);
  const int step = static_cast<int>(random() % 41) - 20;
  const int noise = 1 + static_cast<int>(random() % 6);
  const bool saturated = random() % 4 == 0;
  for (int y = 0; y < rows; ++y) {
    for (int x = 0; x < 16; ++x) {
      const bool far = (vertical ? x : y) >= 8;
      int value = base + (far ? step : 0) + static_cast<int>(random() % noise);
      if (saturated && random() % 3 == 0) {
        value = random() % 2 == 0 ? 0 : 255;
      }
      plane.bytes[y * plane.stride + x] = static_cast<uint8_t>(std::clamp(value, 0, 255));
    }
  }
  return plane;
}

using Filter = void (*)(uint8_t*, ptrdiff_t, int, int, const int8_t*);
using IntraFilter = void (*)(uint8_t*, ptrdiff_t, int, int);

} // namespace

// Every target against the reference. The reference is held to the standard
// through the decoder, whose pictures, made by the dispatched target, equal
// ffmpeg's sample for sample.
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

// Both chroma planes in one pass against the reference, which filters them
// one after the other: each plane must keep to its own alpha, beta and tc0,
// so they differ between the planes in most rounds. Edges whose lines each
// have their own thresholds and strength, 4 beside lower ones, go the same
// way, luma among them.
TEST_P(H264Deblock, BothChromaPlanesMatchTheReference) {
  std::mt19937& random = Random();
  for (int round = 0; round < 500; ++round) {
    SmH264EdgeLines lines;
    for (int i = 0; i < 16; ++i) {
      lines.alpha[i] = static_cast<uint8_t>(i % 8 == round % 8 ? 255 : random() % 256);
      lines.beta[i] = static_cast<uint8_t>(random() % 19);
      lines.strength[i] = static_cast<uint8_t>(random() % 5);
      lines.tc0[i] = static_cast<int8_t>(random() % 26);
    }
    // Whole edges take each plane's first line's thresholds, and leave a
    // segment alone (-1) where its first line has strength 0.
    const int alpha[2] = {lines.alpha[0], lines.alpha[8]}, beta[2] = {lines.beta[0], lines.beta[8]};
    int8_t tc0[8];
    for (int i = 0; i < 8; ++i) {
      tc0[i] = static_cast<int8_t>(lines.strength[2 * i] == 0 ? -1 : lines.tc0[2 * i]);
    }
    SCOPED_TRACE(::testing::Message() << "round " << round);
    // Cb's edge through the middle of the upper 16 rows, Cr's through the
    // lower 16: the rows between show writes beyond eight. The luma edge
    // spans the upper 16.
    const SmTestPlane area = EdgeArea(random, true, 32);
    const ptrdiff_t stride = static_cast<ptrdiff_t>(area.stride);
    const auto check = [&](auto reference, auto kernel, auto call, const char* what) {
      ExpectSameWrites(
          reference, kernel, area,
          [&](auto f, SmTestPlane& p) { call(f, p.data() + 8, 4 * stride, 20 * stride); }, what);
    };
    check(
        &NmReference::H264FilterChromaVerticalEdges, &H264FilterChromaVerticalEdges,
        [&](auto f, uint8_t* q, ptrdiff_t cb, ptrdiff_t cr) {
          f(q + cb, q + cr, stride, alpha, beta, tc0);
        },
        "normal");
    check(
        &NmReference::H264FilterChromaVerticalEdgesIntra, &H264FilterChromaVerticalEdgesIntra,
        [&](auto f, uint8_t* q, ptrdiff_t cb, ptrdiff_t cr) {
          f(q + cb, q + cr, stride, alpha, beta);
        },
        "intra");
    check(
        &NmReference::H264FilterChromaVerticalEdgesLines, &H264FilterChromaVerticalEdgesLines,
        [&](auto f, uint8_t* q, ptrdiff_t cb, ptrdiff_t cr) { f(q + cb, q + cr, stride, lines); },
        "lines");
    check(
        &NmReference::H264FilterLumaVerticalEdgeLines, &H264FilterLumaVerticalEdgeLines,
        [&](auto f, uint8_t* q, ptrdiff_t, ptrdiff_t) { f(q, stride, lines); }, "luma lines");
  }
}

// Three macroblocks of random motion near the thresholds: few pictures, so
// that blocks share them in both orders, vectors a few quarter samples
// apart, now and then at the ends of their range, lists unused now and then
// (never in the one-list form, which requires them used).
TEST_P(H264Deblock, MotionEdgesMatchTheReference) {
  std::mt19937& random = Random();
  struct SmRecord {
    int16_t mv[2][16][2];
    int8_t refIdx[2][4];
    uint32_t refPicture[2][4];
  };
  for (int round = 0; round < 3000; ++round) {
    const int list = static_cast<int>(random() % 3) - 1;
    const int verticalLimit = random() % 2 == 0 ? 4 : 2;
    const int16_t base = static_cast<int16_t>(random());
    SmRecord records[3];
    for (SmRecord& r : records) {
      for (int l = 0; l < 2; ++l) {
        for (int b = 0; b < 4; ++b) {
          r.refIdx[l][b] = static_cast<int8_t>(list < 0 && random() % 3 == 0 ? -1 : random() % 4);
          r.refPicture[l][b] = static_cast<uint32_t>(random() % 3) * 0x40000001u;
        }
        for (auto& v : r.mv[l]) {
          for (int16_t& c : v) {
            c = random() % 50 == 0 ? static_cast<int16_t>(random() % 2 == 0 ? -32768 : 32767)
                                   : static_cast<int16_t>(base + static_cast<int>(random() % 9));
          }
        }
      }
    }
    const auto motion = [](const SmRecord& r) {
      return SmH264Motion{r.mv, r.refIdx, r.refPicture};
    };
    std::array<uint16_t, 2> expected{}, actual{};
    for (auto [edges, data] : {std::pair{&NmReference::H264GetMotionEdges, expected.data()},
                               std::pair{&H264GetMotionEdges, actual.data()}}) {
      edges(motion(records[0]), motion(records[1]), motion(records[2]), list, verticalLimit, data);
    }
    ASSERT_EQ(actual, expected) << "round " << round << " list " << list;
  }
}
