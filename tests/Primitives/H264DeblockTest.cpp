#include <gtest/gtest.h>

#include <utility>

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
  using PairFilter = void (*)(uint8_t*, uint8_t*, ptrdiff_t, const int*, const int*, const int8_t*);
  using PairIntraFilter = void (*)(uint8_t*, uint8_t*, ptrdiff_t, const int*, const int*);
  for (int round = 0; round < 500; ++round) {
    int alpha[2], beta[2];
    int8_t tc0[8];
    for (int plane = 0; plane < 2; ++plane) {
      alpha[plane] = round % 10 == plane ? 255 : static_cast<int>(random() % 256);
      beta[plane] = static_cast<int>(random() % 19);
    }
    for (int8_t& t : tc0) {
      t = static_cast<int8_t>(random() % 5 == 0 ? -1 : static_cast<int>(random() % 26));
    }
    SCOPED_TRACE(::testing::Message() << "round " << round << " alpha " << alpha[0] << "/"
                                      << alpha[1] << " beta " << beta[0] << "/" << beta[1]);
    // Cb's area above Cr's in one plane, each with the edge through its
    // middle; the gap between them shows writes beyond eight rows.
    const SmTestPlane cb = EdgeArea(random, true), cr = EdgeArea(random, true);
    SmTestPlane both = cb;
    both.bytes.resize(2 * cb.stride * 16 + 1);
    for (size_t y = 0; y < 16; ++y) {
      for (size_t x = 0; x < 16; ++x) {
        both.bytes[(16 + y) * both.stride + x] = cr.bytes[y * cr.stride + x];
      }
    }
    const ptrdiff_t stride = static_cast<ptrdiff_t>(both.stride);
    const auto edges = [&](SmTestPlane& p) {
      return std::pair{p.data() + 4 * stride + 8, p.data() + 20 * stride + 8};
    };
    ExpectSameWrites(
        PairFilter{&NmReference::H264FilterChromaVerticalEdges},
        PairFilter{&H264FilterChromaVerticalEdges}, both,
        [&](PairFilter f, SmTestPlane& p) {
          const auto [qCb, qCr] = edges(p);
          f(qCb, qCr, stride, alpha, beta, tc0);
        },
        "normal");
    ExpectSameWrites(
        PairIntraFilter{&NmReference::H264FilterChromaVerticalEdgesIntra},
        PairIntraFilter{&H264FilterChromaVerticalEdgesIntra}, both,
        [&](PairIntraFilter f, SmTestPlane& p) {
          const auto [qCb, qCr] = edges(p);
          f(qCb, qCr, stride, alpha, beta);
        },
        "intra");
    SmH264EdgeLines lines;
    for (int i = 0; i < 16; ++i) {
      lines.alpha[i] = static_cast<uint8_t>(i % 8 == round % 8 ? 255 : random() % 256);
      lines.beta[i] = static_cast<uint8_t>(random() % 19);
      lines.strength[i] = static_cast<uint8_t>(random() % 5);
      lines.tc0[i] = static_cast<int8_t>(random() % 26);
    }
    using LinesFilter = void (*)(uint8_t*, uint8_t*, ptrdiff_t, const SmH264EdgeLines&);
    ExpectSameWrites(
        LinesFilter{&NmReference::H264FilterChromaVerticalEdgesLines},
        LinesFilter{&H264FilterChromaVerticalEdgesLines}, both,
        [&](LinesFilter f, SmTestPlane& p) {
          const auto [qCb, qCr] = edges(p);
          f(qCb, qCr, stride, lines);
        },
        "lines");
    using LumaLinesFilter = void (*)(uint8_t*, ptrdiff_t, const SmH264EdgeLines&);
    ExpectSameWrites(
        LumaLinesFilter{&NmReference::H264FilterLumaVerticalEdgeLines},
        LumaLinesFilter{&H264FilterLumaVerticalEdgeLines}, cb,
        [&](LumaLinesFilter f, SmTestPlane& p) { f(p.data() + 8, stride, lines); }, "luma lines");
  }
}
