// JPEG encoding of a 1920x1080 camera-like picture from 4:2:0 planes at
// quality 75, ours beside libjpeg-turbo's compress-from-planes, and the
// encoder's kernels beside their plain references. At the end the run prints
// how many times faster ours is than each peer measured in this same run
// (peer time / our time; above 1.0 means ours is faster).
#include <benchmark/benchmark.h>
#include <turbojpeg.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <functional>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "BenchmarkRatios.h"
#include "Codecs/Primitives/JPEGForwardDCT.h"
#include "Codecs/Primitives/JPEGHuffmanEncode.h"
#include "MediaProcessing/Image/Image.h"
#include "MediaProcessing/JPEG/JPEGStandardTables.h"
#include "MediaProcessing/JPEG/SimpleJPEGEncoder.h"

using namespace NmMediaProcessing;

namespace {

constexpr int Width = 1920;
constexpr int Height = 1080;
constexpr int Quality = 75;
constexpr size_t BlocksPerRow = Width / 8;

// Shapes and edges under sensor noise, as a camera delivers them.
struct SmPicture {
  SmPicture() {
    image.Allocate(Width, Height, YCbCr420_Planar);
    image.GetAttributes().subColorFormat = SubColorFormatFullRange;
    std::mt19937 random(5);
    std::normal_distribution<double> grain(0.0, 4.0);
    for (int p = 0; p < 3; ++p) {
      const auto plane = image.Allocator().GetWriteablePlane(p);
      const double scale = p == 0 ? 1.0 : 2.0;
      for (uint64_t y = 0; y < plane.height; ++y) {
        for (uint64_t x = 0; x < plane.width; ++x) {
          const double fx = x * scale;
          const double fy = y * scale;
          double v = p == 0 ? 110 + 60 * std::sin(fx * 0.011) * std::cos(fy * 0.017) +
                                  ((int(fx) / 160 + int(fy) / 120) % 2 ? 30 : 0)
                            : 128 + (p == 1 ? 25 : -20) * std::sin(fx * 0.004 + fy * 0.006);
          v += grain(random) / (p == 0 ? 1.0 : 2.0);
          plane.data[y * plane.rowStride + x] =
              static_cast<uint8_t>(std::clamp(v, 0.0, 255.0) + 0.5);
        }
      }
      planes[p] = plane.data;
      strides[p] = static_cast<int>(plane.rowStride);
    }
  }
  CmImage image;
  const unsigned char* planes[3] = {};
  int strides[3] = {};
};

SmPicture& Picture() {
  static SmPicture picture;
  return picture;
}

void Register(const std::string& name, const std::string& who,
              std::function<void(benchmark::State&)> body) {
  // Medians of several runs: the machine may be busy with other work.
  benchmark::RegisterBenchmark((name + "/" + who).c_str(), body)
      ->Unit(benchmark::kMillisecond)
      ->Repetitions(7)
      ->ReportAggregatesOnly(true);
}

void RegisterAll() {
  Register("encode420q75", "ours", [](benchmark::State& state) {
    CmSimpleJPEGEncoder encoder;
    const uint8_t* data = nullptr;
    uint64_t size = 0;
    for (auto _ : state) {
      if (!encoder.Encode(Picture().image, Quality, data, size, false)) {
        state.SkipWithError("encode failed");
        break;
      }
      benchmark::DoNotOptimize(data);
    }
    state.counters["bytes"] = static_cast<double>(size);
  });
  Register("encode420q75", "turbo", [](benchmark::State& state) {
    tjhandle handle = tjInitCompress();
    // A buffer of the largest size, so that TurboJPEG does not allocate
    // inside the loop either.
    unsigned long capacity = tjBufSizeYUV2(Width, 1, Height, TJSAMP_420) * 2;
    unsigned char* buffer = tjAlloc(static_cast<int>(capacity));
    unsigned long size = 0;
    for (auto _ : state) {
      size = capacity;
      if (tjCompressFromYUVPlanes(handle, Picture().planes, Width, Picture().strides, Height,
                                  TJSAMP_420, &buffer, &size, Quality, TJFLAG_NOREALLOC) != 0) {
        state.SkipWithError(tjGetErrorStr2(handle));
        break;
      }
      benchmark::DoNotOptimize(buffer);
    }
    state.counters["bytes"] = static_cast<double>(size);
    tjFree(buffer);
    tjDestroy(handle);
  });

  // The kernels over all luma blocks of the picture.
  auto dct = [](bool reference) {
    return [reference](benchmark::State& state) {
      const auto plane = Picture().image.Allocator().GetPlane(0);
      std::vector<float> coefficients(BlocksPerRow * 64);
      for (auto _ : state) {
        for (int row = 0; row + 8 <= Height; row += 8) {
          const uint8_t* samples = plane.data + row * plane.rowStride;
          if (reference) {
            NmPrimitives::NmReference::ForwardDCT8x8Blocks(samples, plane.rowStride, BlocksPerRow,
                                                           coefficients.data());
          } else {
            NmPrimitives::ForwardDCT8x8Blocks(samples, plane.rowStride, BlocksPerRow,
                                              coefficients.data());
          }
          benchmark::DoNotOptimize(coefficients.data());
        }
      }
    };
  };
  Register("forwardDCT", "ours", dct(false));
  Register("forwardDCT", "reference", dct(true));

  // What the encoder runs: transform and quantisation in one, fixed point.
  auto dctQuantize = [](bool reference) {
    return [reference](benchmark::State& state) {
      const auto plane = Picture().image.Allocator().GetPlane(0);
      uint16_t table[64];
      for (int i = 0; i < 64; ++i) {
        table[i] = static_cast<uint16_t>(
            std::clamp((NmJPEGStandardTables::LuminanceQuant[i] * 50 + 50) / 100, 1, 255));
      }
      float reciprocals[64];
      NmPrimitives::MakeQuantReciprocals(table, reciprocals);
      std::vector<int16_t> quantized(BlocksPerRow * 64);
      for (auto _ : state) {
        for (int row = 0; row + 8 <= Height; row += 8) {
          const uint8_t* samples = plane.data + row * plane.rowStride;
          if (reference) {
            NmPrimitives::NmReference::ForwardDCTQuantizeBlocks(
                samples, plane.rowStride, BlocksPerRow, reciprocals, quantized.data());
          } else {
            NmPrimitives::ForwardDCTQuantizeBlocks(samples, plane.rowStride, BlocksPerRow,
                                                   reciprocals, quantized.data());
          }
          benchmark::DoNotOptimize(quantized.data());
        }
      }
    };
  };
  Register("forwardDCTQuantize", "ours", dctQuantize(false));
  Register("forwardDCTQuantize", "reference", dctQuantize(true));

  auto huffman = [](bool reference) {
    return [reference](benchmark::State& state) {
      // Quantised luma of the picture, coded with the example tables.
      const auto plane = Picture().image.Allocator().GetPlane(0);
      uint16_t table[64];
      for (int i = 0; i < 64; ++i) {
        table[i] = static_cast<uint16_t>(
            std::clamp((NmJPEGStandardTables::LuminanceQuant[i] * 50 + 50) / 100, 1, 255));
      }
      float reciprocals[64];
      NmPrimitives::MakeQuantReciprocals(table, reciprocals);
      std::vector<float> coefficients(BlocksPerRow * 64);
      std::vector<int16_t> blocks;
      for (int row = 0; row + 8 <= Height; row += 8) {
        NmPrimitives::ForwardDCT8x8Blocks(plane.data + row * plane.rowStride, plane.rowStride,
                                          BlocksPerRow, coefficients.data());
        blocks.resize(blocks.size() + BlocksPerRow * 64);
        NmPrimitives::QuantizeBlocks(coefficients.data(), BlocksPerRow, reciprocals,
                                     blocks.data() + blocks.size() - BlocksPerRow * 64);
      }
      NmPrimitives::SmHuffmanEncodeTable dc;
      NmPrimitives::SmHuffmanEncodeTable ac;
      NmPrimitives::BuildHuffmanEncodeTable(NmJPEGStandardTables::LuminanceDC.bits,
                                            NmJPEGStandardTables::LuminanceDC.values, dc);
      NmPrimitives::BuildHuffmanEncodeTable(NmJPEGStandardTables::LuminanceAC.bits,
                                            NmJPEGStandardTables::LuminanceAC.values, ac);
      std::vector<uint8_t> out(blocks.size() / 64 * NmPrimitives::kMaxHuffmanBlockBytes / 4 +
                               NmPrimitives::kMaxHuffmanBlockBytes);
      for (auto _ : state) {
        NmPrimitives::SmHuffmanBitWriter writer;
        int32_t lastDC = 0;
        size_t used = 0;
        for (size_t b = 0; b < blocks.size(); b += 64) {
          if (used + NmPrimitives::kMaxHuffmanBlockBytes > out.size()) {
            used = 0;
          }
          used += reference ? NmPrimitives::NmReference::EncodeBlockSequential(
                                  blocks.data() + b, lastDC, dc, ac, writer, out.data() + used)
                            : NmPrimitives::EncodeBlockSequential(blocks.data() + b, lastDC, dc, ac,
                                                                  writer, out.data() + used);
        }
        benchmark::DoNotOptimize(out.data());
      }
    };
  };
  Register("huffmanEncode", "ours", huffman(false));
  Register("huffmanEncode", "reference", huffman(true));
}

} // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  RegisterAll();
  NmBenchmark::CmRatioReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  reporter.PrintRatios("ours", {"turbo", "reference"});
  benchmark::Shutdown();
  return 0;
}
