// Each plane kernel on a 1920x1080 frame beside its peer: libyuv where it has
// the same operation, and always our own plain reference. At the end the run
// prints, per kernel, how many times faster ours is than each peer measured
// in this same run (above 1.0 means ours is faster). Ratios use processor
// time, which other work on a busy machine disturbs far less than wall time.
#include <benchmark/benchmark.h>

#include <libyuv/convert_argb.h>
#include <libyuv/convert_from_argb.h>
#include <libyuv/planar_functions.h>
#include <libyuv/rotate.h>
#include <libyuv/rotate_argb.h>
#include <libyuv/scale.h>
#include <libyuv/scale_argb.h>
extern "C" {
#include <libswscale/swscale.h>
}

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <functional>
#include <map>
#include <random>
#include <string>
#include <type_traits>
#include <vector>

#include "BenchmarkRatios.h"
#include "Codecs/Primitives/ChromaResample.h"
#include "Codecs/Primitives/ColorConvert.h"
#include "Codecs/Primitives/H264Deblock.h"
#include "Codecs/Primitives/H264Interpolation.h"
#include "Codecs/Primitives/H264IntraPrediction.h"
#include "Codecs/Primitives/H264Prediction.h"
#include "Codecs/Primitives/H264Transform.h"
#include "Codecs/Primitives/PlaneCopy.h"
#include "Codecs/Primitives/PlaneFlip.h"
#include "Codecs/Primitives/PlaneLogic.h"
#include "Codecs/Primitives/PlaneTranspose.h"
#include "Codecs/Primitives/Resize.h"
#include "KernelTargets.h"

namespace {

constexpr int Width = 1920;
constexpr int Height = 1080;

struct SmFrame {
  explicit SmFrame(int pixelBytes) : stride(Width * pixelBytes), bytes(stride * Height) {
    std::mt19937 random(7);
    for (uint8_t& b : bytes) {
      b = static_cast<uint8_t>(random());
    }
  }
  uint8_t* data() { return bytes.data(); }
  int stride;
  std::vector<uint8_t> bytes;
};

SmFrame gray(1), gray2(1), rgb(3), rgb2(3), argb(4), argb2(4);
// Chroma planes of a 4:2:0 frame, in the first quarter of these frames.
SmFrame chromaU(1), chromaV(1), chromaU2(1), chromaV2(1);

constexpr int SmallWidth = 640;
constexpr int SmallHeight = 360;

std::vector<uint8_t> ResizeScratch(NmPrimitives::SmResizeMode mode) {
  return std::vector<uint8_t>(
      NmPrimitives::GetResizeScratchSize(Width, Height, SmallWidth, SmallHeight, 1, mode));
}

// Scalers of libswscale for the grey plane and for four-byte pixels, made once.
SwsContext* LanczosScaler() {
  static SwsContext* const context =
      sws_getContext(Width, Height, AV_PIX_FMT_GRAY8, SmallWidth, SmallHeight, AV_PIX_FMT_GRAY8,
                     SWS_LANCZOS, nullptr, nullptr, nullptr);
  return context;
}
SwsContext* LanczosScaler4() {
  static SwsContext* const context =
      sws_getContext(Width, Height, AV_PIX_FMT_BGRA, SmallWidth, SmallHeight, AV_PIX_FMT_BGRA,
                     SWS_LANCZOS, nullptr, nullptr, nullptr);
  return context;
}

// With --every_target each of our kernels is also timed on every target that
// the CPU runs, not only on the one that dispatch picks.
bool g_EveryTarget = false;

void Register(const std::string& kernel, const std::string& who, std::function<void()> body) {
  if (who == "ours" && g_EveryTarget) {
    NmBenchmark::RegisterOnEveryTarget(kernel, body);
  }
  benchmark::RegisterBenchmark((kernel + "/" + who).c_str(), [body](benchmark::State& state) {
    for (auto _ : state) {
      body();
      benchmark::ClobberMemory();
    }
  })->Unit(benchmark::kMicrosecond);
}

// The H.264 kernels over every block of a 1080p frame, so that one iteration
// is a frame's worth of the operation. Blocks keep 16 samples clear of the
// frame's edges for the filters' margins.
template <typename Body> void ForEachBlock(int size, Body body) {
  int index = 0;
  for (int y = 16; y + size + 16 <= Height; y += size) {
    for (int x = 16; x + size + 16 <= Width; x += size) {
      body(x, y, index++);
    }
  }
}

// A smooth frame with steps every 4 samples, where the loop filters act.
SmFrame& SmoothFrame() {
  static SmFrame frame = [] {
    SmFrame f(1);
    std::mt19937 random(11);
    for (int y = 0; y < Height; ++y) {
      for (int x = 0; x < Width; ++x) {
        f.bytes[static_cast<size_t>(y * Width + x)] =
            static_cast<uint8_t>(100 + (x / 4 + y / 4) % 3 * 4 + static_cast<int>(random() % 3));
      }
    }
    return f;
  }();
  return frame;
}

template <typename Luma> void InterpolateFrame(Luma luma, int size) {
  ForEachBlock(size, [&](int x, int y, int index) {
    luma(gray.data() + y * Width + x, Width, gray2.data() + y * Width + x, Width, size, size,
         index % 4, (index / 4) % 4);
  });
}

template <typename Chroma> void InterpolateChromaFrame(Chroma chroma, int size) {
  ForEachBlock(size, [&](int x, int y, int index) {
    chroma(gray.data() + y * Width + x, Width, gray2.data() + y * Width + x, Width, size, size,
           index % 8, (index / 8) % 8);
  });
}

// Both planes of every block, the second plane's block in another frame.
template <typename Chroma> void InterpolateChromaPairFrame(Chroma chroma, int size) {
  ForEachBlock(size, [&](int x, int y, int index) {
    const int offset = y * Width + x;
    chroma(gray.data() + offset, rgb.data() + offset, Width, gray2.data() + offset,
           rgb2.data() + offset, Width, size, size, index % 8, (index / 8) % 8);
  });
}

template <typename Transform> void TransformFrame(Transform transform, int size) {
  static const std::vector<int32_t> coefficients = [] {
    std::vector<int32_t> c(64);
    std::mt19937 random(5);
    for (int32_t& value : c) {
      value = static_cast<int32_t>(random() % 512) - 256;
    }
    return c;
  }();
  ForEachBlock(size, [&](int x, int y, int) {
    transform(coefficients.data(), gray2.data() + y * Width + x, Width);
  });
}

// Filters every vertical or horizontal 4-sample-spaced edge of the frame.
template <typename Filter> void DeblockFrame(Filter filter, bool vertical, int length) {
  SmFrame& frame = SmoothFrame();
  const int8_t tc0[4] = {1, 2, -1, 3};
  ForEachBlock(length, [&](int x, int y, int) {
    for (int edge = 0; edge < length; edge += 4) {
      uint8_t* q = frame.data() + (vertical ? y * Width + x + edge : (y + edge) * Width + x);
      filter(q, Width, 40, 6, tc0);
    }
  });
}

template <typename Filter> void DeblockFrameIntra(Filter filter, bool vertical, int length) {
  SmFrame& frame = SmoothFrame();
  ForEachBlock(length, [&](int x, int y, int) {
    uint8_t* q = frame.data() + (vertical ? y * Width + x : y * Width + x);
    filter(q, Width, 40, 6);
  });
}

// The pair kernel over every vertical chroma edge, each block's edge taken
// together with the one of the block below as the other plane's.
template <typename Filter> void DeblockFramePair(Filter filter) {
  SmFrame& frame = SmoothFrame();
  const int8_t tc0[8] = {1, 2, -1, 3, 0, 2, 1, -1};
  const int alpha[2] = {40, 36}, beta[2] = {6, 5};
  ForEachBlock(8, [&](int x, int y, int) {
    for (int edge = 0; edge < 8; edge += 4) {
      uint8_t* q = frame.data() + y * Width + x + edge;
      filter(q, q + 8 * Width, Width, alpha, beta, tc0);
    }
  });
}

// The motion edges of a row of macroblocks of made-up motion: one list, or
// both with a list unused now and then; vectors a few quarter samples apart.
template <typename Edges> void MotionEdgesRow(Edges edges, int list) {
  struct SmRecord {
    int16_t mv[2][16][2];
    int8_t refIdx[2][4];
    uint32_t refPicture[2][4];
  };
  static const std::vector<SmRecord> records = [] {
    std::vector<SmRecord> r(120);
    uint32_t seed = 1;
    const auto next = [&seed] { return (seed = seed * 1103515245u + 12345u) >> 16; };
    for (SmRecord& record : r) {
      for (int l = 0; l < 2; ++l) {
        for (int b = 0; b < 4; ++b) {
          record.refIdx[l][b] = static_cast<int8_t>(next() % 5 == 0 ? -1 : next() % 2);
          record.refPicture[l][b] = next() % 2;
        }
        for (auto& v : record.mv[l]) {
          v[0] = static_cast<int16_t>(next() % 9);
          v[1] = static_cast<int16_t>(next() % 9);
        }
      }
    }
    return r;
  }();
  uint16_t bits[2];
  unsigned sum = 0;
  const auto motion = [](const SmRecord& r) {
    return NmPrimitives::SmH264Motion{r.mv, r.refIdx, r.refPicture};
  };
  for (size_t i = 1; i < records.size(); ++i) {
    edges(motion(records[i]), motion(records[i - 1]), motion(records[(i + 7) % records.size()]),
          list, 4, bits);
    sum += bits[0] ^ bits[1];
  }
  benchmark::DoNotOptimize(sum);
}

// The kernels whose lines differ over every block edge of the frame, with
// strengths and thresholds as beside a macroblock pair of the other kind:
// two neighbours by turns, one of them intra, Cb's lines in the luma edge's
// rows and Cr's eight rows below.
template <typename Filter> void DeblockFrameLines(Filter filter, int length) {
  SmFrame& frame = SmoothFrame();
  NmPrimitives::SmH264EdgeLines lines;
  for (int i = 0; i < 16; ++i) {
    lines.alpha[i] = static_cast<uint8_t>(i % 2 == 0 ? 40 : 36);
    lines.beta[i] = static_cast<uint8_t>(i % 2 == 0 ? 6 : 5);
    lines.strength[i] = static_cast<uint8_t>(i % 2 == 0 ? 4 : 1 + i / 8);
    lines.tc0[i] = static_cast<int8_t>(i % 3);
  }
  ForEachBlock(length, [&](int x, int y, int) {
    uint8_t* q = frame.data() + y * Width + x;
    if constexpr (std::is_invocable_v<Filter, uint8_t*, ptrdiff_t, decltype(lines)>) {
      filter(q, Width, lines);
    } else {
      filter(q, q + 8 * Width, Width, lines);
    }
  });
}

void RegisterH264() {
  namespace P = NmPrimitives;
  namespace R = NmPrimitives::NmReference;
  for (const int size : {16, 8, 4}) {
    const std::string name = "H264Luma" + std::to_string(size);
    Register(name, "ours", [size] { InterpolateFrame(P::H264InterpolateLuma, size); });
    Register(name, "reference", [size] { InterpolateFrame(R::H264InterpolateLuma, size); });
  }
  // Bi-prediction's second list, averaged with the first list's block.
  const auto lumaAverage = [](auto f) {
    ForEachBlock(16, [&](int x, int y, int index) {
      const int offset = y * Width + x;
      f(gray.data() + offset, Width, chromaU.data() + offset, Width, gray2.data() + offset, Width,
        16, 16, index % 4, (index / 4) % 4);
    });
  };
  Register("H264LumaAverage16", "ours",
           [lumaAverage] { lumaAverage(P::H264InterpolateLumaAverage); });
  Register("H264LumaAverage16", "reference",
           [lumaAverage] { lumaAverage(R::H264InterpolateLumaAverage); });
  for (const int size : {8, 4, 2}) {
    const std::string name = "H264Chroma" + std::to_string(size);
    Register(name, "ours", [size] { InterpolateChromaFrame(P::H264InterpolateChroma, size); });
    Register(name, "reference", [size] { InterpolateChromaFrame(R::H264InterpolateChroma, size); });
    const std::string pair = "H264ChromaPair" + std::to_string(size);
    Register(pair, "ours",
             [size] { InterpolateChromaPairFrame(P::H264InterpolateChromaPair, size); });
    Register(pair, "reference",
             [size] { InterpolateChromaPairFrame(R::H264InterpolateChromaPair, size); });
    // Bi-prediction's second list, averaged with blocks of the first.
    const auto pairAverage = [size](auto f) {
      ForEachBlock(size, [&](int x, int y, int index) {
        const int offset = y * Width + x;
        f(gray.data() + offset, rgb.data() + offset, Width, chromaU.data() + offset,
          chromaV.data() + offset, Width, gray2.data() + offset, rgb2.data() + offset, Width, size,
          size, index % 8, (index / 8) % 8);
      });
    };
    Register(pair + "Average", "ours",
             [pairAverage] { pairAverage(P::H264InterpolateChromaPairAverage); });
    Register(pair + "Average", "reference",
             [pairAverage] { pairAverage(R::H264InterpolateChromaPairAverage); });
  }
  const auto average = [](auto f) {
    ForEachBlock(16, [&](int x, int y, int) {
      f(gray.data() + y * Width + x, Width, chromaU.data() + y * Width + x, Width,
        gray2.data() + y * Width + x, Width, 16, 16);
    });
  };
  Register("H264Average16", "ours", [average] { average(P::H264Average); });
  Register("H264Average16", "reference", [average] { average(R::H264Average); });
  const auto weight = [](auto f) {
    ForEachBlock(16, [&](int x, int y, int) {
      f(gray.data() + y * Width + x, Width, gray2.data() + y * Width + x, Width, 16, 16, 6, 70, -3);
    });
  };
  Register("H264Weight16", "ours", [weight] { weight(P::H264Weight); });
  Register("H264Weight16", "reference", [weight] { weight(R::H264Weight); });
  // 16 as luma macroblocks, 8 as their chroma.
  for (const int size : {16, 8}) {
    const auto weightBi = [size](auto f) {
      ForEachBlock(size, [&](int x, int y, int) {
        f(gray.data() + y * Width + x, Width, chromaU.data() + y * Width + x, Width,
          gray2.data() + y * Width + x, Width, size, size, 5, 40, 24, 2);
      });
    };
    const std::string name = "H264WeightBi" + std::to_string(size);
    Register(name, "ours", [weightBi] { weightBi(P::H264WeightBi); });
    Register(name, "reference", [weightBi] { weightBi(R::H264WeightBi); });
  }
  Register("H264Transform4x4", "ours", [] { TransformFrame(P::H264AddInverseTransform4x4, 4); });
  Register("H264Transform4x4", "reference",
           [] { TransformFrame(R::H264AddInverseTransform4x4, 4); });
  const auto levels = [](auto f) {
    // Levels in zig-zag order of a typical inter block, and a flat list's factors.
    static constexpr int16_t scanned[16] = {24, -9, 7, 0, 3, -2, 0, 0, 1, 0, 0, -1, 0, 0, 0, 0};
    static constexpr int32_t scale[16] = {160, 208, 160, 208, 208, 256, 208, 256,
                                          160, 208, 160, 208, 208, 256, 208, 256};
    ForEachBlock(4, [&](int x, int y, int index) {
      f(scanned, false, scale, 20 + index % 12, gray2.data() + y * Width + x, Width);
    });
  };
  Register("H264Levels4x4", "ours", [levels] { levels(P::H264AddLevels4x4); });
  Register("H264Levels4x4", "reference", [levels] { levels(R::H264AddLevels4x4); });
  Register("H264Transform8x8", "ours", [] { TransformFrame(P::H264AddInverseTransform8x8, 8); });
  Register("H264Transform8x8", "reference",
           [] { TransformFrame(R::H264AddInverseTransform8x8, 8); });
  // Intra prediction of every block of the frame, the modes taken in turn.
  const auto intra = [](auto f, int size, int modes) {
    const P::SmH264IntraNeighbours all{true, true, true, true};
    ForEachBlock(size, [&](int x, int y, int index) {
      f(gray2.data() + y * Width + x, Width, index % modes, all);
    });
  };
  Register("H264Intra4x4", "ours", [intra] { intra(P::H264PredictIntra4x4, 4, 9); });
  Register("H264Intra4x4", "reference", [intra] { intra(R::H264PredictIntra4x4, 4, 9); });
  Register("H264Intra8x8", "ours", [intra] { intra(P::H264PredictIntra8x8, 8, 9); });
  Register("H264Intra8x8", "reference", [intra] { intra(R::H264PredictIntra8x8, 8, 9); });
  Register("H264Intra16x16", "ours", [intra] { intra(P::H264PredictIntra16x16, 16, 4); });
  Register("H264Intra16x16", "reference", [intra] { intra(R::H264PredictIntra16x16, 16, 4); });
  Register("H264IntraChroma", "ours", [intra] { intra(P::H264PredictIntraChroma8x8, 8, 4); });
  Register("H264IntraChroma", "reference", [intra] { intra(R::H264PredictIntraChroma8x8, 8, 4); });
  Register("H264DeblockLumaV", "ours",
           [] { DeblockFrame(P::H264FilterLumaVerticalEdge, true, 16); });
  Register("H264DeblockLumaV", "reference",
           [] { DeblockFrame(R::H264FilterLumaVerticalEdge, true, 16); });
  Register("H264DeblockLumaH", "ours",
           [] { DeblockFrame(P::H264FilterLumaHorizontalEdge, false, 16); });
  Register("H264DeblockLumaH", "reference",
           [] { DeblockFrame(R::H264FilterLumaHorizontalEdge, false, 16); });
  Register("H264DeblockLumaIntraV", "ours",
           [] { DeblockFrameIntra(P::H264FilterLumaVerticalEdgeIntra, true, 16); });
  Register("H264DeblockLumaIntraV", "reference",
           [] { DeblockFrameIntra(R::H264FilterLumaVerticalEdgeIntra, true, 16); });
  Register("H264DeblockLumaIntraH", "ours",
           [] { DeblockFrameIntra(P::H264FilterLumaHorizontalEdgeIntra, false, 16); });
  Register("H264DeblockLumaIntraH", "reference",
           [] { DeblockFrameIntra(R::H264FilterLumaHorizontalEdgeIntra, false, 16); });
  Register("H264DeblockChromaV", "ours",
           [] { DeblockFrame(P::H264FilterChromaVerticalEdge, true, 8); });
  Register("H264DeblockChromaV", "reference",
           [] { DeblockFrame(R::H264FilterChromaVerticalEdge, true, 8); });
  Register("H264DeblockChromaPairV", "ours",
           [] { DeblockFramePair(P::H264FilterChromaVerticalEdges); });
  Register("H264DeblockChromaPairV", "reference",
           [] { DeblockFramePair(R::H264FilterChromaVerticalEdges); });
  Register("H264DeblockLumaLinesV", "ours",
           [] { DeblockFrameLines(P::H264FilterLumaVerticalEdgeLines, 16); });
  Register("H264DeblockLumaLinesV", "reference",
           [] { DeblockFrameLines(R::H264FilterLumaVerticalEdgeLines, 16); });
  Register("H264DeblockChromaLinesV", "ours",
           [] { DeblockFrameLines(P::H264FilterChromaVerticalEdgesLines, 16); });
  Register("H264DeblockChromaLinesV", "reference",
           [] { DeblockFrameLines(R::H264FilterChromaVerticalEdgesLines, 16); });
  Register("H264DeblockChromaH", "ours",
           [] { DeblockFrame(P::H264FilterChromaHorizontalEdge, false, 8); });
  Register("H264DeblockChromaH", "reference",
           [] { DeblockFrame(R::H264FilterChromaHorizontalEdge, false, 8); });
  Register("H264MotionEdges1", "ours", [] { MotionEdgesRow(P::H264GetMotionEdges, 0); });
  Register("H264MotionEdges1", "reference", [] { MotionEdgesRow(R::H264GetMotionEdges, 0); });
  Register("H264MotionEdges2", "ours", [] { MotionEdgesRow(P::H264GetMotionEdges, -1); });
  Register("H264MotionEdges2", "reference", [] { MotionEdgesRow(R::H264GetMotionEdges, -1); });
}

void RegisterAll() {
  namespace P = NmPrimitives;
  namespace R = NmPrimitives::NmReference;
  Register("CopyPlane", "ours",
           [] { P::CopyPlane(gray.data(), Width, gray2.data(), Width, Width, Height); });
  Register("CopyPlane", "reference",
           [] { R::CopyPlane(gray.data(), Width, gray2.data(), Width, Width, Height); });
  Register("CopyPlane", "libyuv",
           [] { libyuv::CopyPlane(gray.data(), Width, gray2.data(), Width, Width, Height); });

  Register("SetPlane", "ours", [] { P::SetPlane(9, gray2.data(), Width, Width, Height); });
  Register("SetPlane", "reference", [] { R::SetPlane(9, gray2.data(), Width, Width, Height); });
  Register("SetPlane", "libyuv", [] { libyuv::SetPlane(gray2.data(), Width, Width, Height, 9); });

  Register("MirrorColumns1", "ours", [] {
    P::FlipPlane(gray.data(), Width, gray2.data(), Width, Width, Height, 1, P::FlipColumns);
  });
  Register("MirrorColumns1", "reference", [] {
    R::FlipPlane(gray.data(), Width, gray2.data(), Width, Width, Height, 1, P::FlipColumns);
  });
  Register("MirrorColumns1", "libyuv",
           [] { libyuv::MirrorPlane(gray.data(), Width, gray2.data(), Width, Width, Height); });

  Register("MirrorColumns4", "ours", [] {
    P::FlipPlane(argb.data(), 4 * Width, argb2.data(), 4 * Width, Width, Height, 4, P::FlipColumns);
  });
  Register("MirrorColumns4", "reference", [] {
    R::FlipPlane(argb.data(), 4 * Width, argb2.data(), 4 * Width, Width, Height, 4, P::FlipColumns);
  });
  Register("MirrorColumns4", "libyuv", [] {
    libyuv::ARGBMirror(argb.data(), 4 * Width, argb2.data(), 4 * Width, Width, Height);
  });

  Register("MirrorColumns3", "ours", [] {
    P::FlipPlane(rgb.data(), 3 * Width, rgb2.data(), 3 * Width, Width, Height, 3, P::FlipColumns);
  });
  Register("MirrorColumns3", "reference", [] {
    R::FlipPlane(rgb.data(), 3 * Width, rgb2.data(), 3 * Width, Width, Height, 3, P::FlipColumns);
  });

  Register("Copy3To4", "ours",
           [] { P::Copy3To4(rgb.data(), 3 * Width, argb2.data(), 4 * Width, Width, Height, 255); });
  Register("Copy3To4", "reference",
           [] { R::Copy3To4(rgb.data(), 3 * Width, argb2.data(), 4 * Width, Width, Height, 255); });
  Register("Copy3To4", "libyuv", [] {
    libyuv::RGB24ToARGB(rgb.data(), 3 * Width, argb2.data(), 4 * Width, Width, Height);
  });

  Register("Copy4To3", "ours",
           [] { P::Copy4To3(argb.data(), 4 * Width, rgb2.data(), 3 * Width, Width, Height); });
  Register("Copy4To3", "reference",
           [] { R::Copy4To3(argb.data(), 4 * Width, rgb2.data(), 3 * Width, Width, Height); });
  Register("Copy4To3", "libyuv", [] {
    libyuv::ARGBToRGB24(argb.data(), 4 * Width, rgb2.data(), 3 * Width, Width, Height);
  });

  Register("SwapChannels3", "ours",
           [] { P::SwapChannels3(rgb.data(), 3 * Width, rgb2.data(), 3 * Width, Width, Height); });
  Register("SwapChannels3", "reference",
           [] { R::SwapChannels3(rgb.data(), 3 * Width, rgb2.data(), 3 * Width, Width, Height); });
  Register("SwapChannels3", "libyuv", [] {
    libyuv::RAWToRGB24(rgb.data(), 3 * Width, rgb2.data(), 3 * Width, Width, Height);
  });

  Register("SwapChannels4", "ours", [] {
    P::SwapChannels4(argb.data(), 4 * Width, argb2.data(), 4 * Width, Width, Height);
  });
  Register("SwapChannels4", "reference", [] {
    R::SwapChannels4(argb.data(), 4 * Width, argb2.data(), 4 * Width, Width, Height);
  });
  Register("SwapChannels4", "libyuv", [] {
    libyuv::ARGBToABGR(argb.data(), 4 * Width, argb2.data(), 4 * Width, Width, Height);
  });

  // A quarter turn clockwise of the frame into a 1080 x 1920 buffer.
  Register("QuarterTurn1", "ours", [] {
    P::TransposePlane(gray.data(), Width, gray2.data(), Height, Width, Height, 1, true, false);
  });
  Register("QuarterTurn1", "reference", [] {
    R::TransposePlane(gray.data(), Width, gray2.data(), Height, Width, Height, 1, true, false);
  });
  Register("QuarterTurn1", "libyuv",
           [] { libyuv::RotatePlane90(gray.data(), Width, gray2.data(), Height, Width, Height); });
  Register("QuarterTurn4", "ours", [] {
    P::TransposePlane(argb.data(), 4 * Width, argb2.data(), 4 * Height, Width, Height, 4, true,
                      false);
  });
  Register("QuarterTurn4", "reference", [] {
    R::TransposePlane(argb.data(), 4 * Width, argb2.data(), 4 * Height, Width, Height, 4, true,
                      false);
  });
  Register("QuarterTurn4", "libyuv", [] {
    libyuv::ARGBRotate(argb.data(), 4 * Width, argb2.data(), 4 * Height, Width, Height,
                       libyuv::kRotate90);
  });

  // 4:2:0 video range to packed RGB, in libyuv's byte orders: its "RGB24" is
  // B, G, R in memory and its "ARGB" is B, G, R, A.
  const P::SmYCbCrSource yuv{gray.data(), Width,          chromaU.data(),
                             Width / 2,   chromaV.data(), Width / 2};
  Register("I420ToRGB24", "ours", [yuv] {
    P::YCbCrToRgb(yuv, P::Chroma420, rgb2.data(), 3 * Width, {3, true}, Width, Height,
                  P::YCbCrVideoRange);
  });
  Register("I420ToRGB24", "reference", [yuv] {
    R::YCbCrToRgb(yuv, P::Chroma420, rgb2.data(), 3 * Width, {3, true}, Width, Height,
                  P::YCbCrVideoRange);
  });
  Register("I420ToRGB24", "libyuv", [] {
    libyuv::I420ToRGB24(gray.data(), Width, chromaU.data(), Width / 2, chromaV.data(), Width / 2,
                        rgb2.data(), 3 * Width, Width, Height);
  });
  Register("I420ToBGRA", "ours", [yuv] {
    P::YCbCrToRgb(yuv, P::Chroma420, argb2.data(), 4 * Width, {4, true}, Width, Height,
                  P::YCbCrVideoRange);
  });
  Register("I420ToBGRA", "reference", [yuv] {
    R::YCbCrToRgb(yuv, P::Chroma420, argb2.data(), 4 * Width, {4, true}, Width, Height,
                  P::YCbCrVideoRange);
  });
  Register("I420ToBGRA", "libyuv", [] {
    libyuv::I420ToARGB(gray.data(), Width, chromaU.data(), Width / 2, chromaV.data(), Width / 2,
                       argb2.data(), 4 * Width, Width, Height);
  });
  const P::SmYCbCrDestination planes{gray2.data(), Width,           chromaU2.data(),
                                     Width / 2,    chromaV2.data(), Width / 2};
  Register("RGB24ToI420", "ours", [planes] {
    P::RgbToYCbCr(rgb.data(), 3 * Width, {3, true}, planes, P::Chroma420, Width, Height,
                  P::YCbCrVideoRange);
  });
  Register("RGB24ToI420", "reference", [planes] {
    R::RgbToYCbCr(rgb.data(), 3 * Width, {3, true}, planes, P::Chroma420, Width, Height,
                  P::YCbCrVideoRange);
  });
  Register("RGB24ToI420", "libyuv", [] {
    libyuv::RGB24ToI420(rgb.data(), 3 * Width, gray2.data(), Width, chromaU2.data(), Width / 2,
                        chromaV2.data(), Width / 2, Width, Height);
  });

  // A plane of 1920 x 1080 to 640 x 360.
  const struct {
    const char* name;
    P::SmResizeMode mode;
    libyuv::FilterMode peer;
  } resizes[] = {{"ResizeLinear", P::ResizeLinear, libyuv::kFilterBilinear},
                 {"ResizeSuperSample", P::ResizeSuperSample, libyuv::kFilterBox},
                 {"ResizeNearest", P::ResizeNearest, libyuv::kFilterNone},
                 {"ResizeLanczos", P::ResizeLanczos, libyuv::kFilterNone}};
  for (const auto& r : resizes) {
    const P::SmResizeMode mode = r.mode;
    Register(r.name, "ours", [mode, scratch = ResizeScratch(mode)]() mutable {
      P::ResizePlane(gray.data(), Width, Width, Height, gray2.data(), SmallWidth, SmallWidth,
                     SmallHeight, 1, mode, scratch.data(), scratch.size(),
                     P::SmResizeWindow::Whole(SmallWidth, SmallHeight));
    });
    Register(r.name, "reference", [mode, scratch = ResizeScratch(mode)]() mutable {
      R::ResizePlane(gray.data(), Width, Width, Height, gray2.data(), SmallWidth, SmallWidth,
                     SmallHeight, 1, mode, scratch.data(), scratch.size(),
                     P::SmResizeWindow::Whole(SmallWidth, SmallHeight));
    });
    if (mode != P::ResizeLanczos) {
      const libyuv::FilterMode peer = r.peer;
      Register(r.name, "libyuv", [peer] {
        libyuv::ScalePlane(gray.data(), Width, Width, Height, gray2.data(), SmallWidth, SmallWidth,
                           SmallHeight, peer);
      });
    }
  }
  Register("ResizeLanczos", "swscale", [] {
    const uint8_t* const from[4] = {gray.data(), nullptr, nullptr, nullptr};
    const int fromStride[4] = {Width, 0, 0, 0};
    uint8_t* const to[4] = {gray2.data(), nullptr, nullptr, nullptr};
    const int toStride[4] = {SmallWidth, 0, 0, 0};
    sws_scale(LanczosScaler(), from, fromStride, 0, Height, to, toStride);
  });

  // Linear to 1280 x 720, where no output centre falls on a source centre.
  Register("ResizeLinear720", "ours",
           [scratch = std::vector<uint8_t>(
                P::GetResizeScratchSize(Width, Height, 1280, 720, 1, P::ResizeLinear))]() mutable {
             P::ResizePlane(gray.data(), Width, Width, Height, gray2.data(), 1280, 1280, 720, 1,
                            P::ResizeLinear, scratch.data(), scratch.size(),
                            P::SmResizeWindow::Whole(1280, 720));
           });
  Register("ResizeLinear720", "libyuv", [] {
    libyuv::ScalePlane(gray.data(), Width, Width, Height, gray2.data(), 1280, 1280, 720,
                       libyuv::kFilterBilinear);
  });

  Register("ResizeLinear720x4", "ours",
           [scratch = std::vector<uint8_t>(
                P::GetResizeScratchSize(Width, Height, 1280, 720, 4, P::ResizeLinear))]() mutable {
             P::ResizePlane(argb.data(), 4 * Width, Width, Height, argb2.data(), 4 * 1280, 1280,
                            720, 4, P::ResizeLinear, scratch.data(), scratch.size(),
                            P::SmResizeWindow::Whole(1280, 720));
           });
  Register("ResizeLinear720x4", "libyuv", [] {
    libyuv::ARGBScale(argb.data(), 4 * Width, Width, Height, argb2.data(), 4 * 1280, 1280, 720,
                      libyuv::kFilterBilinear);
  });

  // The same with four-byte pixels.
  Register("ResizeLanczos4", "ours",
           [scratch = std::vector<uint8_t>(P::GetResizeScratchSize(
                Width, Height, SmallWidth, SmallHeight, 4, P::ResizeLanczos))]() mutable {
             P::ResizePlane(argb.data(), 4 * Width, Width, Height, argb2.data(), 4 * SmallWidth,
                            SmallWidth, SmallHeight, 4, P::ResizeLanczos, scratch.data(),
                            scratch.size(), P::SmResizeWindow::Whole(SmallWidth, SmallHeight));
           });
  Register("ResizeLanczos4", "reference",
           [scratch = std::vector<uint8_t>(P::GetResizeScratchSize(
                Width, Height, SmallWidth, SmallHeight, 4, P::ResizeLanczos))]() mutable {
             R::ResizePlane(argb.data(), 4 * Width, Width, Height, argb2.data(), 4 * SmallWidth,
                            SmallWidth, SmallHeight, 4, P::ResizeLanczos, scratch.data(),
                            scratch.size(), P::SmResizeWindow::Whole(SmallWidth, SmallHeight));
           });
  Register("ResizeLanczos4", "swscale", [] {
    const uint8_t* const from[4] = {argb.data(), nullptr, nullptr, nullptr};
    const int fromStride[4] = {4 * Width, 0, 0, 0};
    uint8_t* const to[4] = {argb2.data(), nullptr, nullptr, nullptr};
    const int toStride[4] = {4 * SmallWidth, 0, 0, 0};
    sws_scale(LanczosScaler4(), from, fromStride, 0, Height, to, toStride);
  });

  Register("SetAlpha", "ours",
           [] { P::SetChannel4(255, 3, argb2.data(), 4 * Width, Width, Height); });
  Register("SetAlpha", "reference",
           [] { R::SetChannel4(255, 3, argb2.data(), 4 * Width, Width, Height); });

  Register("Chroma422To420", "ours", [] {
    P::Chroma422To420(gray.data(), Width / 2, gray2.data(), Width / 2, Width / 2, Height);
  });
  Register("Chroma422To420", "reference", [] {
    R::Chroma422To420(gray.data(), Width / 2, gray2.data(), Width / 2, Width / 2, Height);
  });

  Register("CopyMasked4", "ours", [] {
    P::CopyMasked(argb.data(), 4 * Width, argb2.data(), 4 * Width, gray.data(), Width, 1, Width,
                  Height, 4, 4);
  });
  Register("CopyMasked4", "reference", [] {
    R::CopyMasked(argb.data(), 4 * Width, argb2.data(), 4 * Width, gray.data(), Width, 1, Width,
                  Height, 4, 4);
  });
}

} // namespace

int main(int argc, char** argv) {
  const auto end = std::remove_if(argv + 1, argv + argc, [](const char* argument) {
    return std::strcmp(argument, "--every_target") == 0;
  });
  g_EveryTarget = end != argv + argc;
  argc = static_cast<int>(end - argv);
  benchmark::Initialize(&argc, argv);
  RegisterAll();
  RegisterH264();
  NmBenchmark::CmRatioReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  reporter.PrintRatios("ours", {"libyuv", "swscale", "reference"});
  if (g_EveryTarget) {
    for (const int64_t target : NmBenchmark::RunnableTargets()) {
      reporter.PrintRatios(NmPrimitives::GetTargetName(target), {"reference", "ours"});
    }
  }
  benchmark::Shutdown();
  return 0;
}
