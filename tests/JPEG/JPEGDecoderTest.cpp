#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <random>

#include "JPEG/JPEGTestSupport.h"
#include "MediaProcessing/JPEG/JPEGDecoder.h"
#include "MediaProcessing/JPEG/MemBuffInput.h"

using namespace NmJPEGTest;

namespace {

struct SmDecoded {
  JStatus header = JStatusFailed;
  JStatus data = JStatusFailed;
  int width = 0;
  int height = 0;
  int channels = 0;
  JColor color = JColorUnknown;
  JSampling sampling = JSamplingOther;
  SmPlanes planes;
};

// Our decode into planes of the frame's own layout, sized as libjpeg-turbo
// sizes them, so the two can be held side by side.
SmDecoded DecodePlanes(const CmBytes& jpeg, int scale, bool grayOnly = false) {
  SmDecoded result;
  CMemBuffInput input;
  CJPEGDecoder decoder;
  if (input.Open(jpeg.data(), static_cast<uint32_t>(jpeg.size())) != JStatusOk ||
      decoder.SetSource(&input) != JStatusOk) {
    return result;
  }
  int precision = 0;
  result.header = decoder.ReadHeader(result.width, result.height, result.channels, result.color,
                                     result.sampling, precision);
  if (result.header != JStatusOk) {
    return result;
  }
  const int width = (result.width + (1 << scale) - 1) >> scale;
  const int height = (result.height + (1 << scale) - 1) >> scale;
  const int count = grayOnly ? 1 : result.channels;
  int h[4] = {1, 1, 1, 1};
  int v[4] = {1, 1, 1, 1};
  if (!grayOnly && result.sampling == JSampling422) {
    h[0] = 2;
  } else if (!grayOnly && result.sampling == JSampling420) {
    h[0] = v[0] = 2;
  }
  uint8_t* planes[4] = {};
  uint32_t steps[4] = {};
  result.planes.planes.resize(count);
  for (int i = 0; i < count; ++i) {
    result.planes.width[i] = i == 0 ? width : (width + h[0] - 1) / h[0];
    result.planes.height[i] = i == 0 ? height : (height + v[0] - 1) / v[0];
    result.planes.planes[i].assign(
        static_cast<size_t>(result.planes.width[i]) * result.planes.height[i], 0);
    planes[i] = result.planes.planes[i].data();
    steps[i] = static_cast<uint32_t>(result.planes.width[i]);
  }
  const JStatus destination = grayOnly
                                  ? decoder.SetDestination(planes[0], steps[0], width, height, 1,
                                                           JColorGray, JSampling444, 8, scale)
                                  : decoder.SetDestination(planes, steps, width, height, count,
                                                           result.color, result.sampling, 8, scale);
  result.data = destination != JStatusOk ? destination : decoder.ReadData();
  return result;
}

// At most 1 apart anywhere, and below 0.1 apart on average. libjpeg-turbo
// pads subsampled planes to whole chroma samples; the padding is not compared.
void ExpectClose(const SmPlanes& ours, const SmPlanes& turbo, const std::string& what) {
  ASSERT_EQ(ours.planes.size(), turbo.planes.size()) << what;
  for (size_t p = 0; p < ours.planes.size(); ++p) {
    const int width = ours.width[p];
    const int height = ours.height[p];
    ASSERT_TRUE(turbo.width[p] == width || turbo.width[p] == width + 1) << what << " plane " << p;
    ASSERT_TRUE(turbo.height[p] == height || turbo.height[p] == height + 1)
        << what << " plane " << p;
    long total = 0;
    int worst = 0;
    int worstX = 0;
    int worstY = 0;
    for (int y = 0; y < height; ++y) {
      for (int x = 0; x < width; ++x) {
        const int a = ours.planes[p][static_cast<size_t>(y) * width + x];
        const int b = turbo.planes[p][static_cast<size_t>(y) * turbo.width[p] + x];
        total += std::abs(a - b);
        if (std::abs(a - b) > worst) {
          worst = std::abs(a - b);
          worstX = x;
          worstY = y;
        }
      }
    }
    const double mean = static_cast<double>(total) / (static_cast<double>(width) * height);
    EXPECT_LE(worst, 1) << what << " plane " << p << " at column " << worstX << " row " << worstY;
    EXPECT_LT(mean, 0.1) << what << " plane " << p;
  }
}

struct SmCase {
  const char* name;
  int width;
  int height;
  bool gray;
  const char* arguments;
  JSampling sampling;
};

const SmCase kCases[] = {
    {"base420", 320, 240, false, "-quality 75 -sample 2x2", JSampling420},
    {"base422", 320, 240, false, "-quality 80 -sample 2x1", JSampling422},
    {"base444", 320, 240, false, "-quality 90 -sample 1x1", JSampling444},
    {"gray", 320, 240, true, "-quality 75", JSampling444},
    {"prog420", 320, 240, false, "-quality 75 -sample 2x2 -progressive", JSampling420},
    {"prog444", 256, 160, false, "-quality 92 -sample 1x1 -progressive", JSampling444},
    {"proggray", 200, 120, true, "-quality 60 -progressive", JSampling444},
    {"restart420", 320, 240, false, "-quality 75 -sample 2x2 -restart 1", JSampling420},
    {"restartblocks", 160, 96, false, "-quality 85 -sample 2x1 -restart 3B", JSampling422},
    {"progrestart", 176, 144, false, "-quality 70 -progressive -restart 2B", JSampling420},
    {"optimized", 320, 240, false, "-quality 75 -optimize", JSampling420},
    {"quality30", 240, 176, false, "-quality 30", JSampling420},
    {"quality98", 240, 176, false, "-quality 98", JSampling420},
    {"odd420", 101, 77, false, "-quality 75 -sample 2x2", JSampling420},
    {"odd422", 53, 35, false, "-quality 75 -sample 2x1 -progressive", JSampling422},
    {"tiny1x1", 1, 1, false, "-quality 75", JSampling420},
    {"tiny3x2", 3, 2, false, "-quality 75 -sample 2x1", JSampling422},
    {"tiny17x9", 17, 9, true, "-quality 75", JSampling444},
    {"baseline", 96, 64, false, "-quality 75 -baseline", JSampling420},
};

} // namespace

TEST(JPEGDecoder, PlanesMatchLibjpegTurboAtEveryScale) {
  for (const SmCase& c : kCases) {
    const CmBytes jpeg = MakeJPEG(c.name, c.width, c.height, c.gray, c.arguments);
    for (int scale = 0; scale < 4; ++scale) {
      const std::string what = std::string(c.name) + " at 1/" + std::to_string(1 << scale);
      // TurboJPEG picks its scale from the output size, and takes the larger
      // factor when two give the same size: no reference for this one.
      auto scaled = [](int size, int s) { return (size + (1 << s) - 1) >> s; };
      if (scale > 0 && scaled(c.width, scale) == scaled(c.width, scale - 1) &&
          scaled(c.height, scale) == scaled(c.height, scale - 1)) {
        continue;
      }
      SmPlanes turbo;
      ASSERT_TRUE(TurboDecodePlanes(jpeg, scale, turbo)) << what;
      const SmDecoded ours = DecodePlanes(jpeg, scale);
      ASSERT_EQ(ours.header, JStatusOk) << what;
      ASSERT_EQ(ours.data, JStatusOk) << what;
      EXPECT_EQ(ours.width, c.width);
      EXPECT_EQ(ours.height, c.height);
      EXPECT_EQ(ours.color, c.gray ? JColorGray : JColorYCbCr) << what;
      EXPECT_EQ(ours.sampling, c.sampling) << what;
      ExpectClose(ours.planes, turbo, what);
    }
  }
}
