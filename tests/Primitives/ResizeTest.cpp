#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <numbers>
#include <thread>

#include "Codecs/Primitives/Resize.h"
#include "Primitives/PrimitiveTestSupport.h"

using NmPrimitiveTest::SmTestPlane;
using namespace NmPrimitives;

namespace {

constexpr SmResizeMode Modes[] = {ResizeNearest, ResizeLinear, ResizeSuperSample, ResizeLanczos};

// Weights of every source index for output i along one axis, straight from
// the definitions, in double precision.
std::vector<double> ExactWeights(SmResizeMode mode, size_t i, size_t s, size_t d) {
  std::vector<double> w(s, 0.0);
  const double scale = static_cast<double>(s) / d;
  const double centre = (i + 0.5) * scale - 0.5;
  const auto clampIndex = [s](long j) {
    return static_cast<size_t>(std::clamp<long>(j, 0, s - 1));
  };
  if (mode == ResizeNearest) {
    // In whole numbers: centres fall exactly on pixel borders often, and a
    // product of doubles can land either side of one.
    w[clampIndex(static_cast<long>((2 * i + 1) * s / (2 * d)))] = 1;
  } else if (mode == ResizeLinear) {
    const double c = std::clamp(centre, 0.0, s - 1.0);
    const long j = static_cast<long>(std::floor(c));
    w[clampIndex(j)] += 1 - (c - j);
    w[clampIndex(j + 1)] += c - j;
  } else if (mode == ResizeSuperSample) {
    const double from = i * scale, to = (i + 1) * scale;
    for (size_t j = 0; j < s; ++j) {
      w[j] = std::max(0.0, std::min(to, j + 1.0) - std::max(from, static_cast<double>(j))) / scale;
    }
  } else {
    const double stretch = std::max(1.0, scale);
    double sum = 0;
    for (long j = static_cast<long>(centre) - 200; j <= static_cast<long>(centre) + 200; ++j) {
      const double t = (j - centre) / stretch;
      double l = 0;
      if (t == 0) {
        l = 1;
      } else if (std::fabs(t) < 3) {
        const double a = std::numbers::pi * t;
        l = 3 * std::sin(a) * std::sin(a / 3) / (a * a);
      }
      w[clampIndex(j)] += l;
      sum += l;
    }
    for (double& v : w) {
      v /= sum;
    }
  }
  return w;
}

std::vector<uint8_t> Scratch(size_t sw, size_t sh, size_t dw, size_t dh, size_t bytes,
                             SmResizeMode mode) {
  return std::vector<uint8_t>(GetResizeScratchSize(sw, sh, dw, dh, bytes, mode));
}

} // namespace

VZK_TEST_ON_EVERY_TARGET(Resize);
class ResizeReference : public NmKernelTest::CmSeededTest {};

TEST_P(Resize, MatchesTheReference) {
  std::mt19937& random = Random();
  // The first rounds shrink by odd whole factors, where linear
  // interpolation lands on source centres and becomes a copy, in one or
  // both directions; then one off such a factor. The last shrinks hundreds
  // of rows and columns to a handful: filters of hundreds of taps, more than
  // the vector passes hold in their short lists.
  const size_t fixed[][4] = {{30, 9, 10, 3}, {45, 15, 15, 5}, {30, 20, 10, 20},
                             {31, 9, 10, 3}, {64, 21, 64, 7}, {700, 420, 7, 3}};
  constexpr int FixedRounds = static_cast<int>(std::size(fixed));
  for (int round = 0; round < 35; ++round) {
    const bool drawn = round >= FixedRounds;
    const size_t sw = drawn ? 1 + random() % 70 : fixed[round][0];
    const size_t sh = drawn ? 1 + random() % 20 : fixed[round][1];
    const size_t dw = drawn ? 1 + random() % 70 : fixed[round][2];
    const size_t dh = drawn ? 1 + random() % 20 : fixed[round][3];
    for (const SmResizeMode mode : Modes) {
      for (const size_t bytes : {1u, 3u, 4u}) {
        SCOPED_TRACE(::testing::Message() << sw << "x" << sh << " to " << dw << "x" << dh
                                          << " mode " << mode << " bytes " << bytes);
        const SmTestPlane source(random, sw * bytes, sh);
        // Any window of the result, from a single pixel to the whole.
        SmResizeWindow window{};
        window.top = random() % dh;
        window.bottom = window.top + 1 + random() % (dh - window.top);
        window.left = random() % dw;
        window.right = window.left + 1 + random() % (dw - window.left);
        auto scratch = Scratch(sw, sh, dw, dh, bytes, mode);
        ExpectSameWrites(
            NmReference::ResizePlane, ResizePlane,
            SmTestPlane(random, (window.right - window.left) * bytes, window.bottom - window.top),
            [&](auto resize, SmTestPlane& out) {
              return resize(source.data(), source.stride, sw, sh, out.data(), out.stride, dw, dh,
                            bytes, mode, scratch.data(), scratch.size(), window);
            },
            "resize");
      }
    }
  }
}

TEST_F(ResizeReference, IsWithinOneOfTheDefinitions) {
  std::mt19937& random = Random();
  for (int round = 0; round < 40; ++round) {
    // The first rounds: exact halving, thirds, doubling and a one-pixel edge.
    const size_t sizes[4][4] = {{8, 8, 4, 4}, {30, 9, 10, 3}, {5, 4, 10, 8}, {1, 7, 9, 1}};
    const size_t sw = round < 4 ? sizes[round][0] : 1 + random() % 48;
    const size_t sh = round < 4 ? sizes[round][1] : 1 + random() % 48;
    const size_t dw = round < 4 ? sizes[round][2] : 1 + random() % 48;
    const size_t dh = round < 4 ? sizes[round][3] : 1 + random() % 48;
    const SmTestPlane source(random, sw, sh);
    for (const SmResizeMode mode : Modes) {
      SCOPED_TRACE(::testing::Message()
                   << sw << "x" << sh << " to " << dw << "x" << dh << " mode " << mode);
      std::vector<uint8_t> out(dw * dh);
      auto scratch = Scratch(sw, sh, dw, dh, 1, mode);
      ASSERT_EQ(NmReference::ResizePlane(source.data(), source.stride, sw, sh, out.data(), dw, dw,
                                         dh, 1, mode, scratch.data(), scratch.size(),
                                         SmResizeWindow::Whole(dw, dh)),
                ResizeOk);
      int worst = 0;
      for (size_t y = 0; y < dh; ++y) {
        const auto wy = ExactWeights(mode, y, sh, dh);
        for (size_t x = 0; x < dw; ++x) {
          const auto wx = ExactWeights(mode, x, sw, dw);
          double value = 0;
          for (size_t j = 0; j < sh; ++j) {
            for (size_t i = 0; i < sw; ++i) {
              value += wy[j] * wx[i] * source.bytes[j * source.stride + i];
            }
          }
          const int exact = static_cast<int>(std::clamp(std::floor(value + 0.5), 0.0, 255.0));
          worst = std::max(worst, std::abs(out[y * dw + x] - exact));
          if (mode == ResizeNearest) {
            ASSERT_EQ(out[y * dw + x], exact) << x << "," << y;
          }
        }
      }
      EXPECT_LE(worst, 1);
    }
  }
}

TEST_P(Resize, FlatStaysFlatAndWindowsJoin) {
  std::mt19937& random = Random();
  for (const SmResizeMode mode : Modes) {
    for (const size_t bytes : {1u, 3u, 4u}) {
      SCOPED_TRACE(::testing::Message() << "mode " << mode << " bytes " << bytes);
      // Any weights that sum to one keep a flat picture flat, to the bit.
      std::vector<uint8_t> flat(37 * bytes * 11, 201);
      std::vector<uint8_t> out(13 * bytes * 29);
      auto scratch = Scratch(37, 11, 13, 29, bytes, mode);
      ASSERT_EQ(ResizePlane(flat.data(), 37 * bytes, 37, 11, out.data(), 13 * bytes, 13, 29, bytes,
                            mode, scratch.data(), scratch.size(), SmResizeWindow::Whole(13, 29)),
                ResizeOk);
      EXPECT_TRUE(std::all_of(out.begin(), out.end(), [](uint8_t v) { return v == 201; }));
      // Tiles of rows and columns give the pixels of the whole, also where a
      // tile's taps reach past its own source span and at the plane's edges.
      const SmTestPlane noise(random, 37 * bytes, 11, 0);
      std::vector<uint8_t> whole(out.size()), tiled(out.size());
      ResizePlane(noise.data(), noise.stride, 37, 11, whole.data(), 13 * bytes, 13, 29, bytes, mode,
                  scratch.data(), scratch.size(), SmResizeWindow::Whole(13, 29));
      for (size_t top = 0; top < 29; top += 5) {
        for (size_t left = 0; left < 13; left += 4) {
          const SmResizeWindow tile{left, top, std::min<size_t>(left + 4, 13),
                                    std::min<size_t>(top + 5, 29)};
          ASSERT_EQ(ResizePlane(noise.data(), noise.stride, 37, 11,
                                tiled.data() + (top * 13 + left) * bytes, 13 * bytes, 13, 29, bytes,
                                mode, scratch.data(), scratch.size(), tile),
                    ResizeOk);
        }
      }
      EXPECT_EQ(tiled, whole);
    }
  }
}

TEST_P(Resize, StatusesOfBadCalls) {
  uint8_t plane[16] = {};
  auto scratch = Scratch(4, 4, 2, 2, 1, ResizeLinear);
  const auto call = [&](const uint8_t* src, uint8_t* dst, size_t sw, size_t dw, size_t bytes,
                        SmResizeMode mode, size_t scratchSize, size_t first, size_t end,
                        size_t left = 0, size_t right = 2) {
    return ResizePlane(src, 4, sw, 4, dst, 4, dw, 2, bytes, mode, scratch.data(), scratchSize,
                       SmResizeWindow{left, first, right, end});
  };
  EXPECT_EQ(call(nullptr, plane, 4, 2, 1, ResizeLinear, scratch.size(), 0, 2), ResizeNullPointer);
  EXPECT_EQ(call(plane, nullptr, 4, 2, 1, ResizeLinear, scratch.size(), 0, 2), ResizeNullPointer);
  EXPECT_EQ(call(plane, plane + 8, 0, 2, 1, ResizeLinear, scratch.size(), 0, 2), ResizeBadSize);
  EXPECT_EQ(call(plane, plane + 8, 4, 0, 1, ResizeLinear, scratch.size(), 0, 2), ResizeBadSize);
  EXPECT_EQ(call(plane, plane + 8, 4, 2, 2, ResizeLinear, scratch.size(), 0, 2), ResizeBadSize);
  EXPECT_EQ(call(plane, plane + 8, 4, 2, 1, ResizeLinear, scratch.size(), 1, 1), ResizeBadSize);
  EXPECT_EQ(call(plane, plane + 8, 4, 2, 1, ResizeLinear, scratch.size(), 0, 3), ResizeBadSize);
  EXPECT_EQ(call(plane, plane + 8, 4, 2, 1, ResizeLinear, scratch.size(), 0, 2, 1, 1),
            ResizeBadSize);
  EXPECT_EQ(call(plane, plane + 8, 4, 2, 1, ResizeLinear, scratch.size(), 0, 2, 0, 3),
            ResizeBadSize);
  EXPECT_EQ(call(plane, plane + 8, 4, 2, 1, static_cast<SmResizeMode>(4), scratch.size(), 0, 2),
            ResizeBadMode);
  EXPECT_EQ(call(plane, plane + 8, 4, 2, 1, ResizeLinear, scratch.size() - 1, 0, 2),
            ResizeScratchTooSmall);
  EXPECT_EQ(GetResizeScratchSize(4, 4, 2, 2, 1, static_cast<SmResizeMode>(3)), 0u);
  EXPECT_EQ(call(plane, plane + 8, 4, 2, 1, ResizeLinear, scratch.size(), 0, 2), ResizeOk);
}

TEST_P(Resize, KeptFilterTablesServeConcurrentCallersOfManyGeometries) {
  // More geometries than the filters kept, on several threads at once: each
  // result must be the one that the geometry gave when its filters were
  // first computed, whatever other threads kept or dropped meanwhile.
  std::mt19937& random = Random();
  struct SmCase {
    size_t sw, sh, dw, dh, bytes;
    SmResizeMode mode;
  };
  std::vector<SmCase> cases;
  for (int i = 0; i < 12; ++i) {
    // Some share one axis with another case, so that a table kept for one
    // axis of a geometry serves another one.
    const size_t sw = 20 + random() % 50, sh = i % 2 ? 17 : 5 + random() % 30;
    cases.push_back({sw, sh, 3 + random() % 60, i % 3 ? 11 : 2 + random() % 40,
                     i % 3 == 0 ? 1u : (i % 3 == 1 ? 3u : 4u), Modes[i % 4]});
  }
  // One geometry in two modes whose filters have the same number of taps.
  cases.push_back({20, 10, 30, 15, 1, ResizeLinear});
  cases.push_back({20, 10, 30, 15, 1, ResizeSuperSample});
  const SmTestPlane source(random, 90 * 4, 60, 0);
  const auto run = [&source](const SmCase& c) {
    std::vector<uint8_t> out(c.dw * c.bytes * c.dh);
    auto scratch = Scratch(c.sw, c.sh, c.dw, c.dh, c.bytes, c.mode);
    EXPECT_EQ(ResizePlane(source.data(), source.stride, c.sw, c.sh, out.data(), c.dw * c.bytes,
                          c.dw, c.dh, c.bytes, c.mode, scratch.data(), scratch.size(),
                          SmResizeWindow::Whole(c.dw, c.dh)),
              ResizeOk);
    return out;
  };
  // Each expected result from filters computed afresh: geometries of no
  // case, run before it, leave nothing of the others kept.
  std::vector<std::vector<uint8_t>> expected;
  for (const SmCase& c : cases) {
    for (size_t other = 0; other < 16; ++other) {
      run({71 + other, 41 + other, 5, 5, 1, ResizeLinear});
    }
    expected.push_back(run(c));
  }
  std::vector<std::thread> threads;
  std::vector<int> mismatches(4, 0);
  for (size_t t = 0; t < mismatches.size(); ++t) {
    threads.emplace_back([&, t] {
      for (size_t round = 0; round < 3 * cases.size(); ++round) {
        const size_t i = (round * (t + 1) + t) % cases.size();
        mismatches[t] += run(cases[i]) != expected[i];
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(mismatches, std::vector<int>(mismatches.size(), 0));
}
