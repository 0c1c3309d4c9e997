// Our JPEG decoder beside libjpeg-turbo in the same run, on a 1920 x 1080
// picture with the gradients, edges and sensor noise of a camera, encoded as
// 4:2:0 at quality 85: decoding to YCbCr planes at full size, 1/2, 1/4 and 1/8.
// Both decode to planes with the accurate integer-grade inverse DCT. The run
// ends with the ratios, turbo time / our time.

#include <benchmark/benchmark.h>
#include <turbojpeg.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "BenchmarkRatios.h"
#include "Codecs/Primitives/JPEGInverseDCT.h"
#include "MediaProcessing/JPEG/JPEGDecoder.h"
#include "MediaProcessing/JPEG/MemBuffInput.h"

namespace {

constexpr int kWidth = 1920;
constexpr int kHeight = 1080;

std::vector<uint8_t> MakeCameraJPEG() {
  std::mt19937 random(7);
  std::normal_distribution<double> noise(0.0, 4.0);
  std::vector<uint8_t> rgb(static_cast<size_t>(kWidth) * kHeight * 3);
  for (int y = 0; y < kHeight; ++y) {
    for (int x = 0; x < kWidth; ++x) {
      double base[3] = {60 + 120.0 * y / kHeight, 90 + 80.0 * x / kWidth, 170 - 90.0 * y / kHeight};
      if (std::hypot(x - 1100.0, y - 450.0) < 280) {
        base[0] += 70;
        base[1] += 50;
        base[2] -= 40;
      }
      if (x % 97 < 9) {
        for (double& b : base) {
          b *= 0.4;
        }
      }
      const double texture = 12 * std::sin(x * 0.31 + y * 0.17) * std::cos(y * 0.23);
      for (int c = 0; c < 3; ++c) {
        rgb[(static_cast<size_t>(y) * kWidth + x) * 3 + c] = static_cast<uint8_t>(
            std::clamp(std::lround(base[c] + texture + noise(random)), 0L, 255L));
      }
    }
  }
  tjhandle handle = tjInitCompress();
  unsigned char* jpeg = nullptr;
  unsigned long size = 0;
  tjCompress2(handle, rgb.data(), kWidth, kWidth * 3, kHeight, TJPF_RGB, &jpeg, &size, TJSAMP_420,
              85, TJFLAG_ACCURATEDCT);
  std::vector<uint8_t> out(jpeg, jpeg + size);
  tjFree(jpeg);
  tjDestroy(handle);
  return out;
}

const std::vector<uint8_t>& Picture() {
  static const std::vector<uint8_t> jpeg = MakeCameraJPEG();
  return jpeg;
}

struct SmPlanes {
  explicit SmPlanes(int scale)
      : width((kWidth + (1 << scale) - 1) >> scale), height((kHeight + (1 << scale) - 1) >> scale),
        // libjpeg-turbo writes whole chroma samples: room for one more row.
        y(static_cast<size_t>(width + 2) * (height + 2)),
        cb(static_cast<size_t>((width + 2) / 2) * ((height + 2) / 2)), cr(cb.size()) {}
  int width;
  int height;
  std::vector<uint8_t> y, cb, cr;
};

void Ours(benchmark::State& state) {
  const int scale = static_cast<int>(state.range(0));
  const std::vector<uint8_t>& jpeg = Picture();
  SmPlanes planes(scale);
  uint8_t* pointers[4] = {planes.y.data(), planes.cb.data(), planes.cr.data(), nullptr};
  const uint32_t steps[4] = {static_cast<uint32_t>(planes.width),
                             static_cast<uint32_t>((planes.width + 1) / 2),
                             static_cast<uint32_t>((planes.width + 1) / 2), 0};
  CJPEGDecoder decoder;
  for (auto _ : state) {
    CMemBuffInput input;
    input.Open(jpeg.data(), static_cast<uint32_t>(jpeg.size()));
    decoder.Clean();
    decoder.SetSource(&input);
    int width, height, channels, precision;
    JColor color;
    JSampling sampling;
    decoder.ReadHeader(width, height, channels, color, sampling, precision);
    decoder.SetDestination(pointers, steps, planes.width, planes.height, 3, color, sampling, 8,
                           scale);
    if (decoder.ReadData() != JStatusOk) {
      state.SkipWithError("decode failed");
    }
    benchmark::DoNotOptimize(planes.y.data());
  }
}

void Turbo(benchmark::State& state) {
  const int scale = static_cast<int>(state.range(0));
  const std::vector<uint8_t>& jpeg = Picture();
  SmPlanes planes(scale);
  unsigned char* pointers[3] = {planes.y.data(), planes.cb.data(), planes.cr.data()};
  int strides[3] = {planes.width, (planes.width + 1) / 2, (planes.width + 1) / 2};
  tjhandle handle = tjInitDecompress();
  for (auto _ : state) {
    if (tjDecompressToYUVPlanes(handle, jpeg.data(), static_cast<unsigned long>(jpeg.size()),
                                pointers, planes.width, strides, planes.height,
                                TJFLAG_ACCURATEDCT) != 0) {
      state.SkipWithError("decode failed");
    }
    benchmark::DoNotOptimize(planes.y.data());
  }
  tjDestroy(handle);
}

BENCHMARK(Ours)->Name("Decode420/ours")->Arg(0)->Unit(benchmark::kMillisecond);
BENCHMARK(Turbo)->Name("Decode420/turbo")->Arg(0)->Unit(benchmark::kMillisecond);
BENCHMARK(Ours)->Name("DecodeHalf/ours")->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK(Turbo)->Name("DecodeHalf/turbo")->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK(Ours)->Name("DecodeQuarter/ours")->Arg(2)->Unit(benchmark::kMillisecond);
BENCHMARK(Turbo)->Name("DecodeQuarter/turbo")->Arg(2)->Unit(benchmark::kMillisecond);
BENCHMARK(Ours)->Name("DecodeEighth/ours")->Arg(3)->Unit(benchmark::kMillisecond);
BENCHMARK(Turbo)->Name("DecodeEighth/turbo")->Arg(3)->Unit(benchmark::kMillisecond);

// The inverse transform beside its reference, a row of 240 blocks at a time,
// 135 rows (the luma of 1920 x 1080), at each size.
void InverseDCTKernel(benchmark::State& state, bool reference) {
  const int reduction = static_cast<int>(state.range(0));
  static const std::vector<int16_t> blocks = [] {
    // Typical camera blocks: a DC term and a few low-frequency terms.
    std::vector<int16_t> all(240 * 64);
    std::mt19937 random(3);
    for (size_t b = 0; b < 240; ++b) {
      for (int i = 0; i < 64; ++i) {
        const int v = i / 8;
        const int u = i % 8;
        all[b * 64 + i] = static_cast<int16_t>(
            i == 0 ? static_cast<int>(random() % 120) - 60
                   : (random() % (2 + 2 * (u + v)) == 0 ? static_cast<int>(random() % 9) - 4 : 0));
      }
    }
    return all;
  }();
  int16_t quant[64];
  for (int i = 0; i < 64; ++i) {
    quant[i] = static_cast<int16_t>(4 + i / 3);
  }
  std::vector<uint8_t> out(240 * 8 * 8);
  for (auto _ : state) {
    for (int row = 0; row < 135; ++row) {
      if (reference) {
        NmPrimitives::NmReference::JPEGInverseDCTBlocks(reduction, blocks.data(), 240, quant,
                                                        out.data(), 240 * 8);
      } else {
        NmPrimitives::JPEGInverseDCTBlocks(reduction, blocks.data(), 240, quant, out.data(),
                                           240 * 8);
      }
      benchmark::DoNotOptimize(out.data());
    }
  }
}
void InverseDCTOurs(benchmark::State& state) {
  InverseDCTKernel(state, false);
}
void InverseDCTReference(benchmark::State& state) {
  InverseDCTKernel(state, true);
}
BENCHMARK(InverseDCTOurs)->Name("InverseDCT8x8/ours")->Arg(0)->Unit(benchmark::kMillisecond);
BENCHMARK(InverseDCTReference)
    ->Name("InverseDCT8x8/reference")
    ->Arg(0)
    ->Unit(benchmark::kMillisecond);
BENCHMARK(InverseDCTOurs)->Name("InverseDCT4x4/ours")->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK(InverseDCTReference)
    ->Name("InverseDCT4x4/reference")
    ->Arg(1)
    ->Unit(benchmark::kMillisecond);
BENCHMARK(InverseDCTOurs)->Name("InverseDCT2x2/ours")->Arg(2)->Unit(benchmark::kMillisecond);
BENCHMARK(InverseDCTReference)
    ->Name("InverseDCT2x2/reference")
    ->Arg(2)
    ->Unit(benchmark::kMillisecond);

} // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  NmBenchmark::CmRatioReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  reporter.PrintRatios("ours", {"turbo", "reference"});
  std::printf("picture: %d x %d, %zu bytes\n", kWidth, kHeight, Picture().size());
  benchmark::Shutdown();
  return 0;
}
