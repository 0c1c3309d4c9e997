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

// One decoder over one stream, the header read by Open.
struct SmDecoder {
  CMemBuffInput input;
  CJPEGDecoder decoder;
  int width = 0;
  int height = 0;
  int channels = 0;
  int precision = 0;
  JColor color = JColorUnknown;
  JSampling sampling = JSamplingOther;
  JStatus data = JStatusFailed;
  SmPlanes planes;

  JStatus Open(const CmBytes& jpeg, bool headerOnly = false) {
    decoder.Clean();
    if (input.Open(jpeg.data(), static_cast<uint32_t>(jpeg.size())) != JStatusOk ||
        decoder.SetSource(&input) != JStatusOk) {
      return JStatusFailed;
    }
    return decoder.ReadHeader(width, height, channels, color, sampling, precision, headerOnly);
  }
  // Into planes of the frame's own layout (luma alone for `grayOnly`), sized
  // as libjpeg-turbo sizes them, so the two can be held side by side.
  JStatus DecodePlanes(int scale, bool grayOnly = false) {
    const int w = (width + (1 << scale) - 1) >> scale;
    const int h = (height + (1 << scale) - 1) >> scale;
    const int count = grayOnly ? 1 : channels;
    const int across = sampling == JSampling422 || sampling == JSampling420 ? 2 : 1;
    const int down = sampling == JSampling420 ? 2 : 1;
    uint8_t* pointers[4] = {};
    uint32_t steps[4] = {};
    planes.planes.resize(count);
    for (int i = 0; i < count; ++i) {
      planes.width[i] = i == 0 ? w : (w + across - 1) / across;
      planes.height[i] = i == 0 ? h : (h + down - 1) / down;
      planes.planes[i].assign(static_cast<size_t>(planes.width[i]) * planes.height[i], 0);
      pointers[i] = planes.planes[i].data();
      steps[i] = static_cast<uint32_t>(planes.width[i]);
    }
    const JStatus destination =
        grayOnly ? decoder.SetDestination(pointers[0], steps[0], w, h, 1, JColorGray, JSampling444,
                                          8, scale)
                 : decoder.SetDestination(pointers, steps, w, h, count, color, sampling, 8, scale);
    return data = destination != JStatusOk ? destination : decoder.ReadData();
  }
  // Into packed samples of the given order.
  JStatus DecodePacked(JColor order, CmBytes& out) {
    out.assign(static_cast<size_t>(width) * height * 3, 0);
    const JStatus destination =
        decoder.SetDestination(out.data(), width * 3, width, height, 3, order, JSampling444, 8, 0);
    return destination != JStatusOk ? destination : decoder.ReadData();
  }
};

// A fresh decoder that has decoded the whole stream to planes, if it could.
std::unique_ptr<SmDecoder> Decoded(const CmBytes& jpeg, int scale = 0, bool grayOnly = false) {
  auto d = std::make_unique<SmDecoder>();
  if (d->Open(jpeg) == JStatusOk) {
    d->DecodePlanes(scale, grayOnly);
  }
  return d;
}

// Packed samples against libjpeg-turbo's or djpeg's RGB; BGR is compared
// channel for channel.
SmDifference PackedDifference(const CmBytes& ours, const CmBytes& rgb, JColor order = JColorRGB) {
  if (ours.size() != rgb.size()) {
    return {};
  }
  SmDifference d{0, 0};
  for (size_t i = 0; i < ours.size(); ++i) {
    const size_t j = order == JColorBGR ? i - i % 3 + (2 - i % 3) : i;
    d.worst = std::max(d.worst, std::abs(ours[i] - rgb[j]));
    d.mean += std::abs(ours[i] - rgb[j]);
  }
  d.mean /= static_cast<double>(ours.size());
  return d;
}

size_t FindMarker(const CmBytes& jpeg, uint8_t marker) {
  for (size_t i = 0; i + 1 < jpeg.size(); ++i) {
    if (jpeg[i] == 0xFF && jpeg[i + 1] == marker) {
      return i;
    }
  }
  return jpeg.size();
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

CmBytes MakeJPEG(const SmCase& c) {
  return NmJPEGTest::MakeJPEG(c.name, c.width, c.height, c.gray, c.arguments);
}

} // namespace

TEST(JPEGDecoder, PlanesMatchLibjpegTurboAtEveryScale) {
  for (const SmCase& c : kCases) {
    const CmBytes jpeg = MakeJPEG(c);
    for (int scale = 0; scale < 4; ++scale) {
      SCOPED_TRACE(std::string(c.name) + " at 1/" + std::to_string(1 << scale));
      // TurboJPEG picks its scale from the output size, and takes the larger
      // factor when two give the same size: no reference for this one.
      auto scaled = [](int size, int s) { return (size + (1 << s) - 1) >> s; };
      if (scale > 0 && scaled(c.width, scale) == scaled(c.width, scale - 1) &&
          scaled(c.height, scale) == scaled(c.height, scale - 1)) {
        continue;
      }
      SmPlanes turbo;
      ASSERT_TRUE(TurboDecodePlanes(jpeg, scale, turbo));
      const auto ours = Decoded(jpeg, scale);
      ASSERT_EQ(ours->data, JStatusOk);
      EXPECT_EQ(ours->color, c.gray ? JColorGray : JColorYCbCr);
      EXPECT_EQ(ours->sampling, c.sampling);
      ExpectClose(ours->planes, turbo);
    }
  }
}

namespace {

// A one-component lossless frame (predictor 7) with a restart interval of
// whole rows, written here from T.81 H.1 because no tool at hand writes one.
// `cutAtInterval` ends the stream (EOI) where that interval would begin.
CmBytes WriteLosslessGray(const CmBytes& samples, int width, int height, int rowsPerInterval,
                          int cutAtInterval = -1) {
  // One DC table of twelve 4-bit codes, each category's code its value; then
  // DRI, SOF3 and SOS.
  CmBytes out = {0xFF, 0xD8, 0xFF, 0xC4, 0,    31, 0,    0,    0, 0,    12,   0, 0,  0, 0, 0,
                 0,    0,    0,    0,    0,    0,  0,    0,    1, 2,    3,    4, 5,  6, 7, 8,
                 9,    10,   11,   0xFF, 0xDD, 0,  4,    0,    0, 0xFF, 0xC3, 0, 11, 8, 0, 0,
                 0,    0,    1,    1,    0x11, 0,  0xFF, 0xDA, 0, 8,    1,    1, 0,  7, 0, 0};
  for (const auto& [at, value] :
       {std::pair{39, rowsPerInterval * width}, std::pair{46, height}, std::pair{48, width}}) {
    out[at] = static_cast<uint8_t>(value >> 8);
    out[at + 1] = static_cast<uint8_t>(value);
  }
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
      put(static_cast<uint32_t>(category), 4);
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

// Lossless frames come out exactly as ffmpeg decodes them. Each restart
// interval starts its predictions afresh; a stream cut at an interval's start
// still gives every row before it exactly.
TEST(JPEGDecoder, LosslessFramesAreExactAndRestartIntervalsBoundACut) {
  struct SmLossless {
    const char* name;
    int width;
    int height;
    const char* format;
  };
  for (const SmLossless& c :
       {SmLossless{"ljpeg420", 96, 64, "yuvj420p"}, SmLossless{"ljpeg422", 70, 31, "yuvj422p"},
        SmLossless{"ljpeg444", 37, 23, "yuvj444p"}}) {
    CmBytes expected;
    const auto d = Decoded(MakeLosslessJPEG(c.name, c.width, c.height, c.format, expected));
    ASSERT_EQ(d->data, JStatusOk) << c.name;
    EXPECT_EQ(d->decoder.GetMode(), JModeLossless);
    CmBytes all;
    for (const CmBytes& plane : d->planes.planes) {
      all.insert(all.end(), plane.begin(), plane.end());
    }
    EXPECT_TRUE(all == expected) << c.name;
  }

  const int width = 13;
  const int height = 10;
  const CmBytes samples = MakeCameraPicture(width, height, 1, 5);
  for (const int cut : {-1, 3}) {
    SCOPED_TRACE(cut);
    const auto d = Decoded(WriteLosslessGray(samples, width, height, 2, cut));
    EXPECT_EQ(d->decoder.GetRestartInterval(), 26u);
    EXPECT_EQ(d->data, cut < 0 ? JStatusOk : JStatusEndOfData);
    const size_t exact = cut < 0 ? samples.size() : static_cast<size_t>(cut) * 2 * width;
    ASSERT_EQ(d->planes.planes.size(), 1u);
    EXPECT_TRUE(std::equal(samples.begin(), samples.begin() + exact, d->planes.planes[0].begin()));
  }
}

TEST(JPEGDecoder, ColourConventions) {
  // An RGB frame (Adobe transform 0) to packed RGB: no colour transform.
  const CmBytes rgbFrame = MakeJPEG("rgbframe", 48, 40, false, "-quality 90 -rgb");
  SmDecoder d;
  ASSERT_EQ(d.Open(rgbFrame), JStatusOk);
  EXPECT_EQ(d.color, JColorRGB);
  EXPECT_TRUE(d.decoder.SawAdobe());
  EXPECT_EQ(d.decoder.GetAdobeTransform(), 0);
  int width = 0;
  int height = 0;
  CmBytes turbo;
  CmBytes packed;
  ASSERT_TRUE(DjpegDecodeRGB(rgbFrame, width, height, turbo));
  ASSERT_EQ(d.DecodePacked(JColorRGB, packed), JStatusOk);
  EXPECT_LE(PackedDifference(packed, turbo).worst, 1);
  // Planes of YCbCr cannot be asked of an RGB frame in another layout.
  uint8_t byte = 0;
  EXPECT_EQ(d.decoder.SetDestination(&byte, 1, 1, 1, 1, JColorGray, JSampling444, 8, 0),
            JStatusUnsupported);

  // Adobe with transform 1 is YCbCr just like JFIF, and decodes the same; so
  // do frames with Exif and JFXX segments, and frames without DHT (as Motion
  // JPEG sends them), which mean the example tables of T.81 Annex K that
  // cjpeg uses when it does not optimise.
  const CmBytes jfif = MakeJPEG(kCases[0]);
  const CmBytes adobe = ReplaceJFIFWithAdobe(jfif, 1);
  const CmBytes exif = InsertSegment(jfif, 0xE1, {'E', 'x', 'i', 'f', 0, 0, 'M', 'M', 0, 42});
  const CmBytes jfxx = InsertSegment(jfif, 0xE0, {'J', 'F', 'X', 'X', 0, 0x10});
  const CmBytes noTables = WithoutHuffmanTables(jfif);
  ASSERT_LT(noTables.size(), jfif.size());
  ASSERT_EQ(d.Open(jfif), JStatusOk);
  EXPECT_TRUE(d.decoder.SawJFIF());
  EXPECT_FALSE(d.decoder.SawAdobe()) << "what an earlier stream held is forgotten";
  ASSERT_EQ(d.Open(adobe), JStatusOk);
  EXPECT_FALSE(d.decoder.SawJFIF());
  EXPECT_TRUE(d.decoder.SawAdobe());
  EXPECT_EQ(d.color, JColorYCbCr);
  ASSERT_EQ(d.Open(exif), JStatusOk);
  EXPECT_TRUE(d.decoder.SawExif());
  const auto j = Decoded(jfif);
  for (const CmBytes* same :
       std::initializer_list<const CmBytes*>{&adobe, &exif, &jfxx, &noTables}) {
    const auto other = Decoded(*same);
    EXPECT_EQ(other->data, JStatusOk);
    EXPECT_TRUE(other->planes.planes == j->planes.planes);
  }
  // Gray from a YCbCr frame is its luma plane.
  const auto luma = Decoded(jfif, 0, true);
  ASSERT_EQ(luma->data, JStatusOk);
  EXPECT_TRUE(luma->planes.planes[0] == j->planes.planes[0]);
}

// Packed RGB and BGR, and the planes through the JFIF equations with chroma
// repeated over the luma samples it covers, agree with djpeg's decode with
// replicated chroma: for layouts that TurboJPEG names, and for 4:2:2 and
// 4:4:4 written with factors that it does not, whose sampling goes by the
// ratio of luma to chroma.
TEST(JPEGDecoder, PackedAndPlanarOutputMatchDjpeg) {
  const SmCase cases[] = {
      kCases[0],
      kCases[1],
      kCases[2],
      kCases[13],
      kCases[19],
      {"wide422", 75, 21, false, "-quality 75 -sample 4x1,2x1,2x1 -restart 1", JSampling422},
      {"wide422prog", 61, 40, false, "-quality 80 -sample 4x1,2x1,2x1 -progressive", JSampling422},
      {"tall444", 37, 29, false, "-quality 85 -sample 1x2,1x2,1x2", JSampling444},
      {"wide444", 50, 18, false, "-quality 85 -sample 2x1,2x1,2x1", JSampling444},
  };
  auto clamp = [](double value) {
    return static_cast<uint8_t>(std::lround(std::clamp(value, 0.0, 255.0)));
  };
  for (const SmCase& c : cases) {
    SCOPED_TRACE(c.name);
    const CmBytes jpeg = MakeJPEG(c);
    int width = 0;
    int height = 0;
    CmBytes reference;
    ASSERT_TRUE(DjpegDecodeRGB(jpeg, width, height, reference));
    ASSERT_EQ(height, c.height);

    SmDecoder d;
    ASSERT_EQ(d.Open(jpeg), JStatusOk);
    ASSERT_EQ(d.sampling, c.sampling);
    ASSERT_EQ(d.DecodePlanes(0), JStatusOk);
    const SmPlanes& planes = d.planes;
    const int across = c.sampling == JSampling444 ? 1 : 2;
    const int down = c.sampling == JSampling420 ? 2 : 1;
    CmBytes converted;
    for (int y = 0; y < height; ++y) {
      for (int x = 0; x < width; ++x) {
        const double l = planes.planes[0][static_cast<size_t>(y) * planes.width[0] + x];
        const size_t chroma = static_cast<size_t>(y / down) * planes.width[1] + x / across;
        const double cb = planes.planes[1][chroma] - 128.0;
        const double cr = planes.planes[2][chroma] - 128.0;
        converted.insert(converted.end(),
                         {clamp(l + 1.402 * cr), clamp(l - 0.344136 * cb - 0.714136 * cr),
                          clamp(l + 1.772 * cb)});
      }
    }
    const SmDifference viaPlanes = PackedDifference(converted, reference);
    EXPECT_LE(viaPlanes.worst, 4) << "planes";
    EXPECT_LT(viaPlanes.mean, 0.3) << "planes";
    // One off in each of Y, Cb and Cr may add up through the transform.
    for (const JColor order : {JColorRGB, JColorBGR}) {
      CmBytes packed;
      ASSERT_EQ(d.Open(jpeg), JStatusOk);
      ASSERT_EQ(d.DecodePacked(order, packed), JStatusOk);
      const SmDifference direct = PackedDifference(packed, reference, order);
      EXPECT_LE(direct.worst, 3) << "packed " << order;
      EXPECT_LT(direct.mean, 0.2) << "packed " << order;
    }
  }
}

TEST(JPEGDecoder, HostileStreamsGiveErrorsOrPartialPictures) {
  const CmBytes jpeg = MakeJPEG(kCases[0]);
  const CmBytes progressive = MakeJPEG(kCases[4]);
  const size_t sof = FindMarker(jpeg, 0xC0);
  ASSERT_LT(sof, jpeg.size());
  SmDecoder d;

  // Markers of unsupported processes, a second frame header.
  for (const uint8_t marker : {0xC5, 0xC9, 0xCA, 0xCB, 0xCD, 0xCF}) {
    CmBytes changed = jpeg;
    changed[sof + 1] = marker;
    EXPECT_EQ(d.Open(changed), JStatusFailed) << int(marker);
  }
  CmBytes twoFrames = jpeg;
  twoFrames.insert(twoFrames.begin() + static_cast<std::ptrdiff_t>(sof), jpeg.begin() + sof,
                   jpeg.begin() + sof + 2 + (jpeg[sof + 2] << 8 | jpeg[sof + 3]));
  EXPECT_EQ(d.Open(twoFrames), JStatusSecondFrameHeader);
  // Zero width, zero height (DNL), huge sizes.
  auto withSize = [&](uint16_t width, uint16_t height) {
    CmBytes changed = jpeg;
    changed[sof + 5] = static_cast<uint8_t>(height >> 8);
    changed[sof + 6] = static_cast<uint8_t>(height);
    changed[sof + 7] = static_cast<uint8_t>(width >> 8);
    changed[sof + 8] = static_cast<uint8_t>(width);
    return changed;
  };
  EXPECT_EQ(d.Open(withSize(0, 240)), JStatusFailed);
  EXPECT_EQ(d.Open(withSize(320, 0)), JStatusUnsupported);
  EXPECT_EQ(d.Open(withSize(65535, 65535)), JStatusUnsupported);
  // A picture larger than its data: decodes what there is, says so.
  EXPECT_EQ(Decoded(withSize(1000, 900))->data, JStatusEndOfData);
  // No SOI, nothing at all, a header only.
  EXPECT_NE(d.Open(CmBytes(jpeg.begin() + 2, jpeg.end())), JStatusSecondFrameHeader);
  EXPECT_EQ(d.Open(CmBytes{0xFF}), JStatusEndOfData);
  EXPECT_EQ(d.Open(CmBytes{0xFF, 0xD8, 0xFF, 0xD9}), JStatusFailed);
  EXPECT_EQ(d.Open(CmBytes(jpeg.begin(), jpeg.begin() + 300), true), JStatusOk);

  // Every cut of the data, and damage of every kind, in both processes:
  // statuses only; the sanitizer run checks the rest.
  std::mt19937 random(77);
  for (const CmBytes* source : {&jpeg, &progressive}) {
    for (size_t cut = 2; cut < source->size(); cut += 1 + source->size() / 40) {
      SmDecoder partial;
      if (partial.Open(CmBytes(source->begin(), source->begin() + cut)) == JStatusOk) {
        const JStatus status = partial.DecodePlanes(0);
        EXPECT_TRUE(status == JStatusOk || status == JStatusEndOfData) << cut << " " << status;
      }
    }
    for (int round = 0; round < 25; ++round) {
      CmBytes damaged = *source;
      for (int h = 1 + static_cast<int>(random() % 8); h > 0; --h) {
        damaged[random() % damaged.size()] = static_cast<uint8_t>(random());
      }
      Decoded(damaged, 0);
      Decoded(damaged, 3);
    }
  }
  // Cut in half: the first rows stay right.
  const auto half = Decoded(CmBytes(jpeg.begin(), jpeg.begin() + jpeg.size() / 2));
  ASSERT_EQ(half->data, JStatusEndOfData);
  SmPlanes reference;
  ASSERT_TRUE(TurboDecodePlanes(jpeg, 0, reference));
  EXPECT_LE(Compare(half->planes, reference, 0, 64).worst, 1);

  // Destinations that cannot be: too small a step, wrong precision, no frame.
  ASSERT_EQ(d.Open(jpeg), JStatusOk);
  CmBytes small(100);
  const auto packed = [&](CJPEGDecoder& decoder, uint32_t step, int precision, int scale) {
    return decoder.SetDestination(small.data(), step, 320, 240, 3, JColorRGB, JSampling444,
                                  precision, scale);
  };
  EXPECT_EQ(packed(d.decoder, 10, 8, 0), JStatusFailed);
  EXPECT_EQ(packed(d.decoder, 960, 12, 0), JStatusUnsupported);
  EXPECT_EQ(packed(d.decoder, 960, 8, 4), JStatusFailed);
  EXPECT_EQ(d.decoder.ReadData(), JStatusFailed);
  CJPEGDecoder fresh;
  EXPECT_EQ(packed(fresh, 960, 8, 0), JStatusFailed);
  EXPECT_EQ(fresh.ReadData(), JStatusFailed);
}
