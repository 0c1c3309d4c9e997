#include <gtest/gtest.h>

#include <algorithm>
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
    // ffmpeg's 4:2:2: luma 2x2 over chroma 1x2, a 16 x 16 MCU.
    {"tall422", 101, 77, false, "-quality 75 -sample 2x2,1x2,1x2", JSampling422},
    {"tall422prog", 64, 48, false, "-quality 80 -sample 2x2,1x2,1x2 -progressive", JSampling422},
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

namespace {

struct SmHeaderAndDecoder {
  CMemBuffInput input;
  CJPEGDecoder decoder;
  int width = 0;
  int height = 0;
  int channels = 0;
  int precision = 0;
  JColor color = JColorUnknown;
  JSampling sampling = JSamplingOther;
  JStatus Open(const CmBytes& jpeg, bool headerOnly = false) {
    decoder.Clean();
    if (input.Open(jpeg.data(), static_cast<uint32_t>(jpeg.size())) != JStatusOk ||
        decoder.SetSource(&input) != JStatusOk) {
      return JStatusFailed;
    }
    return decoder.ReadHeader(width, height, channels, color, sampling, precision, headerOnly);
  }
};

// A one-component lossless frame (predictor 7) with a restart interval of
// whole rows, written here from T.81 H.1 because no tool at hand writes one.
// `cutAtInterval` ends the stream (EOI) where that interval would begin.
CmBytes WriteLosslessGray(const CmBytes& samples, int width, int height, int rowsPerInterval,
                          int cutAtInterval = -1) {
  // The example luminance DC table of T.81 K.3 covers differences of 8-bit
  // samples (categories up to 8).
  const uint8_t bits[16] = {0, 1, 5, 1, 1, 1, 1, 1, 1, 0, 0, 0, 0, 0, 0, 0};
  uint16_t code[12] = {};
  int length[12] = {};
  for (int size = 1, k = 0, next = 0; size <= 16; ++size, next <<= 1) {
    for (int i = 0; i < bits[size - 1]; ++i, ++k, ++next) {
      code[k] = static_cast<uint16_t>(next);
      length[k] = size;
    }
  }
  const auto be16 = [](CmBytes& out, int value) {
    out.push_back(static_cast<uint8_t>(value >> 8));
    out.push_back(static_cast<uint8_t>(value));
  };
  const int interval = rowsPerInterval * width;
  CmBytes out = {0xFF, 0xD8, 0xFF, 0xC4, 0, 31, 0x00};
  out.insert(out.end(), bits, bits + 16);
  for (uint8_t v = 0; v < 12; ++v) {
    out.push_back(v);
  }
  out.insert(out.end(), {0xFF, 0xDD, 0, 4});
  be16(out, interval);
  out.insert(out.end(), {0xFF, 0xC3, 0, 11, 8});
  be16(out, height);
  be16(out, width);
  out.insert(out.end(), {1, 1, 0x11, 0, 0xFF, 0xDA, 0, 8, 1, 1, 0x00, 7, 0, 0});
  uint32_t pending = 0;
  int pendingBits = 0;
  const auto put = [&](uint32_t value, int count) {
    pending = (pending << count) | (value & ((1u << count) - 1));
    pendingBits += count;
    while (pendingBits >= 8) {
      const auto byte = static_cast<uint8_t>(pending >> (pendingBits - 8));
      out.push_back(byte);
      if (byte == 0xFF) {
        out.push_back(0x00);
      }
      pendingBits -= 8;
    }
  };
  const auto flush = [&] {
    if (pendingBits > 0) {
      put(0x7F, 8 - pendingBits);
    }
  };
  for (int y = 0; y < height; ++y) {
    const int firstRow = y / rowsPerInterval * rowsPerInterval;
    if (y == firstRow && y != 0) {
      flush();
      if (y / rowsPerInterval == cutAtInterval) {
        out.insert(out.end(), {0xFF, 0xD9});
        return out;
      }
      out.insert(out.end(), {0xFF, static_cast<uint8_t>(0xD0 + (y / rowsPerInterval - 1) % 8)});
    }
    for (int x = 0; x < width; ++x) {
      const uint8_t* at = samples.data() + static_cast<size_t>(y) * width + x;
      int prediction = 128;
      if (y == firstRow) {
        prediction = x == 0 ? 128 : at[-1];
      } else {
        prediction = x == 0 ? at[-width] : (at[-1] + at[-width]) >> 1;
      }
      const int difference = *at - prediction;
      int category = 0;
      while ((std::abs(difference) >> category) != 0) {
        ++category;
      }
      put(code[category], length[category]);
      if (category > 0) {
        put(static_cast<uint32_t>(difference > 0 ? difference : difference + (1 << category) - 1),
            category);
      }
    }
  }
  flush();
  out.insert(out.end(), {0xFF, 0xD9});
  return out;
}

} // namespace

TEST(JPEGDecoder, LosslessFramesEqualFfmpegsDecode) {
  struct SmLossless {
    const char* name;
    int width;
    int height;
    const char* format;
    int chromaShiftX;
    int chromaShiftY;
  };
  for (const SmLossless& c : {SmLossless{"ljpeg420", 96, 64, "yuvj420p", 1, 1},
                              SmLossless{"ljpeg422", 70, 31, "yuvj422p", 1, 0},
                              SmLossless{"ljpeg444", 37, 23, "yuvj444p", 0, 0}}) {
    CmBytes expected;
    const CmBytes jpeg = MakeLosslessJPEG(c.name, c.width, c.height, c.format, expected);
    SmHeaderAndDecoder d;
    ASSERT_EQ(d.Open(jpeg), JStatusOk) << c.name;
    EXPECT_EQ(d.decoder.GetMode(), JModeLossless);
    const int chromaWidth = (c.width + (1 << c.chromaShiftX) - 1) >> c.chromaShiftX;
    const int chromaHeight = (c.height + (1 << c.chromaShiftY) - 1) >> c.chromaShiftY;
    CmBytes planes[3] = {CmBytes(static_cast<size_t>(c.width) * c.height),
                         CmBytes(static_cast<size_t>(chromaWidth) * chromaHeight),
                         CmBytes(static_cast<size_t>(chromaWidth) * chromaHeight)};
    uint8_t* pointers[4] = {planes[0].data(), planes[1].data(), planes[2].data(), nullptr};
    const uint32_t steps[4] = {static_cast<uint32_t>(c.width), static_cast<uint32_t>(chromaWidth),
                               static_cast<uint32_t>(chromaWidth), 0};
    ASSERT_EQ(
        d.decoder.SetDestination(pointers, steps, c.width, c.height, 3, d.color, d.sampling, 8, 0),
        JStatusOk)
        << c.name;
    ASSERT_EQ(d.decoder.ReadData(), JStatusOk) << c.name;
    CmBytes all = planes[0];
    all.insert(all.end(), planes[1].begin(), planes[1].end());
    all.insert(all.end(), planes[2].begin(), planes[2].end());
    ASSERT_EQ(all.size(), expected.size()) << c.name;
    EXPECT_TRUE(all == expected) << c.name;
  }
}

// Each restart interval starts its predictions afresh; a stream cut at an
// interval's start still gives every row before it exactly.
TEST(JPEGDecoder, LosslessRestartIntervalsStartAfreshAndBoundACut) {
  const int width = 13;
  const int height = 10;
  const CmBytes samples = MakeCameraPicture(width, height, 1, 5);
  for (const int cut : {-1, 3}) {
    SCOPED_TRACE(cut);
    SmHeaderAndDecoder d;
    ASSERT_EQ(d.Open(WriteLosslessGray(samples, width, height, 2, cut)), JStatusOk);
    EXPECT_EQ(d.decoder.GetRestartInterval(), 26u);
    CmBytes plane(samples.size(), 0xAA);
    uint8_t* pointers[4] = {plane.data(), nullptr, nullptr, nullptr};
    const uint32_t steps[4] = {width, 0, 0, 0};
    ASSERT_EQ(
        d.decoder.SetDestination(pointers, steps, width, height, 1, d.color, d.sampling, 8, 0),
        JStatusOk);
    EXPECT_EQ(d.decoder.ReadData(), cut < 0 ? JStatusOk : JStatusEndOfData);
    const size_t exact = cut < 0 ? samples.size() : static_cast<size_t>(cut) * 2 * width;
    EXPECT_TRUE(std::equal(samples.begin(), samples.begin() + exact, plane.begin()));
  }
}

TEST(JPEGDecoder, PackedOutputAndColourConventions) {
  // YCbCr to RGB with replicated chroma, as libjpeg-turbo's fast up-sampling.
  for (const char* name : {"base420", "base422", "base444", "odd420", "tall422"}) {
    const SmCase* c = nullptr;
    for (const SmCase& k : kCases) {
      c = std::string(k.name) == name ? &k : c;
    }
    const CmBytes jpeg = MakeJPEG(c->name, c->width, c->height, c->gray, c->arguments);
    int width = 0;
    int height = 0;
    CmBytes turbo;
    ASSERT_TRUE(TurboDecodeRGB(jpeg, width, height, turbo));
    for (const JColor order : {JColorRGB, JColorBGR}) {
      SmHeaderAndDecoder d;
      ASSERT_EQ(d.Open(jpeg), JStatusOk);
      CmBytes rgb(static_cast<size_t>(width) * height * 3);
      ASSERT_EQ(d.decoder.SetDestination(rgb.data(), width * 3, width, height, 3, order,
                                         JSampling444, 8, 0),
                JStatusOk);
      ASSERT_EQ(d.decoder.ReadData(), JStatusOk);
      int worst = 0;
      long total = 0;
      for (size_t i = 0; i < rgb.size(); ++i) {
        const size_t j = order == JColorBGR ? i - i % 3 + (2 - i % 3) : i;
        worst = std::max(worst, std::abs(rgb[i] - turbo[j]));
        total += std::abs(rgb[i] - turbo[j]);
      }
      // One off in each of Y, Cb and Cr may add up through the transform.
      EXPECT_LE(worst, 3) << name;
      EXPECT_LT(static_cast<double>(total) / static_cast<double>(rgb.size()), 0.2) << name;
    }
  }

  // An RGB frame (Adobe transform 0) to packed RGB: no colour transform.
  const CmBytes rgbFrame = MakeJPEG("rgbframe", 48, 40, false, "-quality 90 -rgb");
  SmHeaderAndDecoder d;
  ASSERT_EQ(d.Open(rgbFrame), JStatusOk);
  EXPECT_EQ(d.color, JColorRGB);
  EXPECT_TRUE(d.decoder.SawAdobe());
  EXPECT_EQ(d.decoder.GetAdobeTransform(), 0);
  int width = 0;
  int height = 0;
  CmBytes turbo;
  ASSERT_TRUE(TurboDecodeRGB(rgbFrame, width, height, turbo));
  CmBytes rgb(turbo.size());
  ASSERT_EQ(d.decoder.SetDestination(rgb.data(), width * 3, width, height, 3, JColorRGB,
                                     JSampling444, 8, 0),
            JStatusOk);
  ASSERT_EQ(d.decoder.ReadData(), JStatusOk);
  int worst = 0;
  for (size_t i = 0; i < rgb.size(); ++i) {
    worst = std::max(worst, std::abs(rgb[i] - turbo[i]));
  }
  EXPECT_LE(worst, 1);
  // Planes of YCbCr cannot be asked of an RGB frame in another layout.
  uint8_t byte = 0;
  EXPECT_EQ(d.decoder.SetDestination(&byte, 1, 1, 1, 1, JColorGray, JSampling444, 8, 0),
            JStatusUnsupported);

  // Adobe with transform 1 is YCbCr just like JFIF, and decodes the same.
  const CmBytes jfif = MakeJPEG("base420", 320, 240, false, "-quality 75 -sample 2x2");
  const CmBytes adobe = ReplaceJFIFWithAdobe(jfif, 1);
  ASSERT_EQ(d.Open(jfif), JStatusOk);
  EXPECT_TRUE(d.decoder.SawJFIF());
  EXPECT_FALSE(d.decoder.SawAdobe());
  ASSERT_EQ(d.Open(adobe), JStatusOk);
  EXPECT_FALSE(d.decoder.SawJFIF());
  EXPECT_TRUE(d.decoder.SawAdobe());
  EXPECT_EQ(d.color, JColorYCbCr);
  const SmDecoded a = DecodePlanes(adobe, 0);
  const SmDecoded j = DecodePlanes(jfif, 0);
  EXPECT_EQ(a.data, JStatusOk);
  EXPECT_TRUE(a.planes.planes == j.planes.planes);
  // Exif and JFXX segments are recognised and passed over.
  const CmBytes exif = InsertSegment(jfif, 0xE1, {'E', 'x', 'i', 'f', 0, 0, 'M', 'M', 0, 42});
  const CmBytes jfxx = InsertSegment(jfif, 0xE0, {'J', 'F', 'X', 'X', 0, 0x10});
  ASSERT_EQ(d.Open(exif), JStatusOk);
  EXPECT_TRUE(d.decoder.SawExif());
  EXPECT_TRUE(DecodePlanes(exif, 0).planes.planes == j.planes.planes);
  EXPECT_TRUE(DecodePlanes(jfxx, 0).planes.planes == j.planes.planes);
  // Without DHT (as Motion JPEG sends it), the example tables of T.81 Annex K
  // are meant, which cjpeg uses when it does not optimise.
  CmBytes noTables;
  for (size_t i = 0; i < jfif.size();) {
    if (i + 3 < jfif.size() && jfif[i] == 0xFF && jfif[i + 1] == 0xC4) {
      i += 2 + static_cast<size_t>(jfif[i + 2] << 8 | jfif[i + 3]);
      continue;
    }
    noTables.push_back(jfif[i++]);
  }
  ASSERT_LT(noTables.size(), jfif.size());
  const SmDecoded motion = DecodePlanes(noTables, 0);
  EXPECT_EQ(motion.data, JStatusOk);
  EXPECT_TRUE(motion.planes.planes == j.planes.planes);
  // Gray from a YCbCr frame is its luma plane.
  const SmDecoded luma = DecodePlanes(jfif, 0, true);
  ASSERT_EQ(luma.data, JStatusOk);
  EXPECT_TRUE(luma.planes.planes[0] == j.planes.planes[0]);
}

// 4:2:2 and 4:4:4 written with factors that TurboJPEG does not name: the
// sampling goes by the ratio of luma to chroma, and both the planes and the
// packed output agree with djpeg's decode.
TEST(JPEGDecoder, UnusualSamplingFactorsMatchDjpeg) {
  const SmCase cases[] = {
      {"tall422", 101, 77, false, "-quality 75 -sample 2x2,1x2,1x2", JSampling422},
      {"wide422", 75, 21, false, "-quality 75 -sample 4x1,2x1,2x1 -restart 1", JSampling422},
      {"wide422prog", 61, 40, false, "-quality 80 -sample 4x1,2x1,2x1 -progressive", JSampling422},
      {"tall444", 37, 29, false, "-quality 85 -sample 1x2,1x2,1x2", JSampling444},
      {"wide444", 50, 18, false, "-quality 85 -sample 2x1,2x1,2x1", JSampling444},
  };
  auto clamp = [](double value) {
    return static_cast<int>(std::lround(std::clamp(value, 0.0, 255.0)));
  };
  for (const SmCase& c : cases) {
    SCOPED_TRACE(c.name);
    const CmBytes jpeg = MakeJPEG(c.name, c.width, c.height, false, c.arguments);
    int width = 0;
    int height = 0;
    CmBytes reference;
    ASSERT_TRUE(DjpegDecodeRGB(c.name, jpeg, width, height, reference));
    ASSERT_EQ(width, c.width);
    ASSERT_EQ(height, c.height);

    const SmDecoded ours = DecodePlanes(jpeg, 0);
    ASSERT_EQ(ours.header, JStatusOk);
    ASSERT_EQ(ours.data, JStatusOk);
    ASSERT_EQ(ours.sampling, c.sampling);
    // The planes, chroma repeated over the luma samples it covers, through
    // the JFIF equations.
    const int stepX = c.sampling == JSampling444 ? 1 : 2;
    int worst = 0;
    double total = 0;
    for (int y = 0; y < height; ++y) {
      for (int x = 0; x < width; ++x) {
        const double l = ours.planes.planes[0][static_cast<size_t>(y) * ours.planes.width[0] + x];
        const size_t chroma = static_cast<size_t>(y) * ours.planes.width[1] + x / stepX;
        const double cb = ours.planes.planes[1][chroma] - 128.0;
        const double cr = ours.planes.planes[2][chroma] - 128.0;
        const int rgb[3] = {clamp(l + 1.402 * cr), clamp(l - 0.344136 * cb - 0.714136 * cr),
                            clamp(l + 1.772 * cb)};
        for (int k = 0; k < 3; ++k) {
          const int difference =
              std::abs(rgb[k] - reference[(static_cast<size_t>(y) * width + x) * 3 + k]);
          worst = std::max(worst, difference);
          total += difference;
        }
      }
    }
    EXPECT_LE(worst, 4) << "planes";
    EXPECT_LT(total / (3.0 * width * height), 0.3) << "planes";

    SmHeaderAndDecoder d;
    ASSERT_EQ(d.Open(jpeg), JStatusOk);
    CmBytes packed(static_cast<size_t>(width) * height * 3);
    ASSERT_EQ(d.decoder.SetDestination(packed.data(), width * 3, width, height, 3, JColorRGB,
                                       JSampling444, 8, 0),
              JStatusOk);
    ASSERT_EQ(d.decoder.ReadData(), JStatusOk);
    worst = 0;
    total = 0;
    for (size_t i = 0; i < packed.size(); ++i) {
      worst = std::max(worst, std::abs(packed[i] - reference[i]));
      total += std::abs(packed[i] - reference[i]);
    }
    EXPECT_LE(worst, 3) << "packed";
    EXPECT_LT(total / static_cast<double>(packed.size()), 0.2) << "packed";
  }
}

TEST(JPEGDecoder, HostileStreamsGiveErrorsOrPartialPictures) {
  const CmBytes jpeg = MakeJPEG("base420", 320, 240, false, "-quality 75 -sample 2x2");
  const CmBytes progressive =
      MakeJPEG("prog420", 320, 240, false, "-quality 75 -sample 2x2 -progressive");
  SmHeaderAndDecoder d;

  // Markers of unsupported processes, a second frame header.
  for (const uint8_t sof : {0xC5, 0xC9, 0xCA, 0xCB, 0xCD, 0xCF}) {
    CmBytes changed = jpeg;
    for (size_t i = 0; i + 1 < changed.size(); ++i) {
      if (changed[i] == 0xFF && changed[i + 1] == 0xC0) {
        changed[i + 1] = sof;
        break;
      }
    }
    EXPECT_EQ(d.Open(changed), JStatusFailed) << int(sof);
  }
  CmBytes twoFrames = jpeg;
  for (size_t i = 0; i + 1 < jpeg.size(); ++i) {
    if (jpeg[i] == 0xFF && jpeg[i + 1] == 0xC0) {
      const size_t length = static_cast<size_t>(jpeg[i + 2] << 8 | jpeg[i + 3]) + 2;
      twoFrames.insert(twoFrames.begin() + static_cast<std::ptrdiff_t>(i),
                       jpeg.begin() + static_cast<std::ptrdiff_t>(i),
                       jpeg.begin() + static_cast<std::ptrdiff_t>(i + length));
      break;
    }
  }
  EXPECT_EQ(d.Open(twoFrames), JStatusSecondFrameHeader);
  // Zero width, zero height (DNL), huge sizes.
  auto withSize = [&](uint16_t width, uint16_t height) {
    CmBytes changed = jpeg;
    for (size_t i = 0; i + 8 < changed.size(); ++i) {
      if (changed[i] == 0xFF && changed[i + 1] == 0xC0) {
        changed[i + 5] = static_cast<uint8_t>(height >> 8);
        changed[i + 6] = static_cast<uint8_t>(height);
        changed[i + 7] = static_cast<uint8_t>(width >> 8);
        changed[i + 8] = static_cast<uint8_t>(width);
        break;
      }
    }
    return changed;
  };
  EXPECT_EQ(d.Open(withSize(0, 240)), JStatusFailed);
  EXPECT_EQ(d.Open(withSize(320, 0)), JStatusUnsupported);
  EXPECT_EQ(d.Open(withSize(65535, 65535)), JStatusUnsupported);
  // A picture larger than its data: decodes what there is, says so.
  const SmDecoded larger = DecodePlanes(withSize(1000, 900), 0);
  EXPECT_EQ(larger.header, JStatusOk);
  EXPECT_EQ(larger.data, JStatusEndOfData);
  // No SOI, nothing at all, a header only.
  EXPECT_NE(d.Open(CmBytes(jpeg.begin() + 2, jpeg.end())), JStatusSecondFrameHeader);
  EXPECT_EQ(d.Open(CmBytes{0xFF}), JStatusEndOfData);
  EXPECT_EQ(d.Open(CmBytes{0xFF, 0xD8, 0xFF, 0xD9}), JStatusFailed);
  EXPECT_EQ(d.Open(CmBytes(jpeg.begin(), jpeg.begin() + 300), true), JStatusOk);
  EXPECT_EQ(d.width, 320);

  // Every cut of the data, and damage of every kind, in both processes:
  // statuses only, the first rows stay right when the cut is late enough.
  std::mt19937 random(77);
  for (const CmBytes* source : {&jpeg, &progressive}) {
    SmPlanes reference;
    ASSERT_TRUE(TurboDecodePlanes(*source, 0, reference));
    for (size_t cut = 2; cut < source->size(); cut += 1 + source->size() / 40) {
      const SmDecoded partial = DecodePlanes(CmBytes(source->begin(), source->begin() + cut), 0);
      if (partial.header != JStatusOk) {
        continue;
      }
      EXPECT_TRUE(partial.data == JStatusOk || partial.data == JStatusEndOfData)
          << cut << " " << partial.data;
    }
    for (int round = 0; round < 25; ++round) {
      CmBytes damaged = *source;
      const int hits = 1 + static_cast<int>(random() % 8);
      for (int h = 0; h < hits; ++h) {
        damaged[random() % damaged.size()] = static_cast<uint8_t>(random());
      }
      for (int scale = 0; scale < 4; scale += 3) {
        const SmDecoded result = DecodePlanes(damaged, scale);
        (void)result; // any status; the sanitizer run checks the rest
      }
    }
  }
  const SmDecoded half = DecodePlanes(
      CmBytes(jpeg.begin(), jpeg.begin() + static_cast<std::ptrdiff_t>(jpeg.size() / 2)), 0);
  ASSERT_EQ(half.data, JStatusEndOfData);
  SmPlanes reference;
  ASSERT_TRUE(TurboDecodePlanes(jpeg, 0, reference));
  for (int y = 0; y < 64; ++y) {
    for (int x = 0; x < 320; ++x) {
      ASSERT_LE(std::abs(half.planes.planes[0][y * 320 + x] - reference.planes[0][y * 320 + x]), 1);
    }
  }
  // Destinations that cannot be: too small a step, wrong precision, no frame.
  ASSERT_EQ(d.Open(jpeg), JStatusOk);
  CmBytes small(100);
  EXPECT_EQ(d.decoder.SetDestination(small.data(), 10, 320, 240, 3, JColorRGB, JSampling444, 8, 0),
            JStatusFailed);
  EXPECT_EQ(
      d.decoder.SetDestination(small.data(), 960, 320, 240, 3, JColorRGB, JSampling444, 12, 0),
      JStatusUnsupported);
  EXPECT_EQ(d.decoder.SetDestination(small.data(), 960, 320, 240, 3, JColorRGB, JSampling444, 8, 4),
            JStatusFailed);
  EXPECT_EQ(d.decoder.ReadData(), JStatusFailed);
  CJPEGDecoder fresh;
  EXPECT_EQ(fresh.SetDestination(small.data(), 960, 320, 240, 3, JColorRGB, JSampling444, 8, 0),
            JStatusFailed);
  EXPECT_EQ(fresh.ReadData(), JStatusFailed);
}
