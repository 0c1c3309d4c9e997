// What vzk writes for each kind of item: pictures as PNG and YUV4MPEG2, PCM
// audio as WAV, the contact sheet, compared with what the tree delivered.

#include <gtest/gtest.h>
#include <png.h>

#include <map>

#include "JpegPicture.h"
#include "PictureConversion.h"
#include "PicturePattern.h"
#include "Toolkits/TransformTestSupport.h"
#include "VzkTestSupport.h"
#include "Y4mWriter.h"
#include "support/GenericByteDataBuilder.h"

using namespace NmVzkTest;
using NmTestPictures::PatternByte;

namespace {

struct SmPicture {
  uint32_t format;
  uint32_t width;
  uint32_t height;
  int64_t time = 1000;
  uint32_t seed = 1;
  uint32_t interlacing = 0;
  std::string aspect = "1";
};

std::string PictureTree(const std::vector<SmPicture>& pictures) {
  std::string config;
  for (const SmPicture& p : pictures) {
    config += "<picture format='" + std::to_string(p.format) + "' width='" +
              std::to_string(p.width) + "' height='" + std::to_string(p.height) + "' time='" +
              std::to_string(p.time) + "' seed='" + std::to_string(p.seed) + "' interlacing='" +
              std::to_string(p.interlacing) + "' aspect='" + p.aspect + "' padding='5'/>";
  }
  return TreeOver("pictures", config);
}

// The bytes of plane `plane` as the source fills it, rows tight.
std::vector<uint8_t> PlaneBytes(const SmPicture& p, uint32_t plane) {
  const auto shape = NmTestPictures::PlaneShapes(p.format, p.width, p.height)[plane];
  std::vector<uint8_t> bytes;
  for (uint32_t y = 0; y < shape.height; ++y) {
    for (uint32_t x = 0; x < shape.width * shape.pixelStride; ++x) {
      bytes.push_back(PatternByte(p.seed, plane, x, y));
    }
  }
  return bytes;
}

struct SmPng {
  uint32_t width = 0;
  uint32_t height = 0;
  uint32_t channels = 0;
  std::vector<uint8_t> pixels;
};

// Reads a PNG in the form it was stored in.
SmPng ReadPng(const std::string& path) {
  png_image image{};
  image.version = PNG_IMAGE_VERSION;
  SmPng png;
  if (png_image_begin_read_from_file(&image, path.c_str()) == 0) {
    ADD_FAILURE() << path << ": " << image.message;
    return png;
  }
  png.width = image.width;
  png.height = image.height;
  png.channels = PNG_IMAGE_SAMPLE_CHANNELS(image.format);
  png.pixels.resize(PNG_IMAGE_SIZE(image));
  EXPECT_NE(png_image_finish_read(&image, nullptr, png.pixels.data(), 0, nullptr), 0);
  return png;
}

class VzkWriters : public ::testing::Test {
protected:
  SmResult Run(const std::string& tree, std::vector<std::string> arguments) {
    const std::string path = m_Scratch.Path("tree-" + std::to_string(++m_Trees) + ".xml");
    WriteText(path, tree);
    arguments.insert(arguments.begin(), {"run", path});
    return ExpectSuccess(arguments);
  }
  CmScratch m_Scratch;
  int m_Trees = 0;
};

TEST_F(VzkWriters, PngHoldsExactlyThePixelsDelivered) {
  const std::vector<SmPicture> pictures = {{0, 5, 3}, {1, 4, 3}, {2, 3, 2}, {3, 3, 3}, {4, 2, 5},
                                           {8, 3, 2}, {9, 4, 1}, {5, 7, 5}, {6, 5, 3}, {7, 2, 2}};
  const SmResult result = Run(PictureTree(pictures), {"--out", m_Scratch.Path("png")});
  EXPECT_EQ(result.out.rfind("10 items in", 0), 0u);
  EXPECT_NE(result.out.find("10 pictures"), std::string::npos);
  for (size_t i = 0; i < pictures.size(); ++i) {
    const SmPicture& p = pictures[i];
    char name[64];
    std::snprintf(name, sizeof name, "png/image-%06zu.png", i + 1);
    const SmPng png = ReadPng(m_Scratch.Path(name));
    ASSERT_EQ(png.width, p.width);
    ASSERT_EQ(png.height, p.height);
    const std::vector<uint8_t> source = PlaneBytes(p, 0);
    std::vector<uint8_t> expected;
    const uint32_t pixels = p.width * p.height;
    // Packed formats: the source bytes of each pixel that PNG stores, in its
    // order; gray stays gray, and the fourth byte of RGB32 and BGR32 goes.
    const std::map<uint32_t, std::vector<uint32_t>> packed = {
        {0, {0}},       {1, {0, 1, 2}},    {2, {2, 1, 0}},   {3, {0, 1, 2}},
        {4, {2, 1, 0}}, {8, {0, 1, 2, 3}}, {9, {2, 1, 0, 3}}};
    const auto order = packed.find(p.format);
    const uint32_t step = NmTestPictures::PlaneShapes(p.format, p.width, p.height)[0].pixelStride;
    for (uint32_t k = 0; order != packed.end() && k < pixels; ++k) {
      for (const uint32_t byte : order->second) {
        expected.push_back(source[k * step + byte]);
      }
    }
    if (order == packed.end()) { // planar YCbCr: each pixel takes the chroma sample of its cell
      const std::vector<uint8_t> cb = PlaneBytes(p, 1);
      const std::vector<uint8_t> cr = PlaneBytes(p, 2);
      const auto shape = NmTestPictures::PlaneShapes(p.format, p.width, p.height)[1];
      for (uint32_t y = 0; y < p.height; ++y) {
        for (uint32_t x = 0; x < p.width; ++x) {
          const uint32_t cx = shape.width == p.width ? x : x / 2;
          const uint32_t cy = shape.height == p.height ? y : y / 2;
          uint8_t rgb[3];
          NmVzkTool::YCbCrToRGB(source[y * p.width + x], cb[cy * shape.width + cx],
                                cr[cy * shape.width + cx], rgb[0], rgb[1], rgb[2]);
          expected.insert(expected.end(), rgb, rgb + 3);
        }
      }
    }
    EXPECT_EQ(png.channels, expected.size() / pixels) << name;
    EXPECT_EQ(png.pixels, expected) << name;
  }
}

TEST_F(VzkWriters, Y4mKeepsPlanesAndStartsANewStreamForEachNewForm) {
  const std::vector<SmPicture> pictures = {
      {5, 7, 5, 1000, 1},           {5, 7, 5, 1040, 2}, // out.y4m, 25 a second
      {5, 8, 4, 1080, 3},                               // new size: out-2.y4m
      {0, 8, 4, 1120, 4},           {0, 8, 4, 1153, 5}, // gray: out-3.y4m
      {6, 4, 2, 1200, 6, 1, "1.5"},                     // 4:2:2, interlaced: out-4
      {7, 3, 4, 1300, 7, 3},                            // fields one after the other
  };
  const SmResult result =
      Run(PictureTree(pictures), {"--out", m_Scratch.Path("y4m"), "--format", "y4m"});
  const auto frame = [&](size_t i) {
    std::string bytes = "FRAME\n";
    for (uint32_t plane = 0; plane < (pictures[i].format == 0 ? 1u : 3u); ++plane) {
      const auto b = PlaneBytes(pictures[i], plane);
      bytes.append(b.begin(), b.end());
    }
    return bytes;
  };
  EXPECT_EQ(ReadText(m_Scratch.Path("y4m/out.y4m")),
            "YUV4MPEG2 W7 H5 F25:1 Ip A1:1 C420jpeg\n" + frame(0) + frame(1));
  EXPECT_EQ(ReadText(m_Scratch.Path("y4m/out-2.y4m")),
            "YUV4MPEG2 W8 H4 F25:1 Ip A1:1 C420jpeg\n" + frame(2));
  EXPECT_EQ(ReadText(m_Scratch.Path("y4m/out-3.y4m")),
            "YUV4MPEG2 W8 H4 F1000:33 Ip A1:1 Cmono\n" + frame(3) + frame(4));
  EXPECT_EQ(ReadText(m_Scratch.Path("y4m/out-4.y4m")),
            "YUV4MPEG2 W4 H2 F25:1 It A3:2 C422\n" + frame(5));
  // Separate fields are woven back: picture row 1 is the first row of the bottom
  // field, stored after the (4 + 1) / 2 rows of the top field.
  const std::string woven = ReadText(m_Scratch.Path("y4m/out-5.y4m"));
  const std::string header = "YUV4MPEG2 W3 H4 F25:1 It A1:1 C444\nFRAME\n";
  ASSERT_EQ(woven.size(), header.size() + 3 * 12);
  EXPECT_EQ(woven.substr(0, header.size()), header);
  const std::vector<uint8_t> luma = PlaneBytes(pictures[6], 0);
  const std::string rows = woven.substr(header.size(), 12);
  for (uint32_t row = 0; row < 4; ++row) {
    const uint32_t stored = row % 2 == 0 ? row / 2 : 2 + row / 2;
    EXPECT_EQ(rows.substr(row * 3, 3),
              std::string(luma.begin() + stored * 3, luma.begin() + stored * 3 + 3))
        << row;
  }
  EXPECT_FALSE(Exists(m_Scratch.Path("y4m/out-6.y4m")));
}

TEST_F(VzkWriters, PicturesThatCannotBeWrittenAreErrorsInWords) {
  // JPEG pictures go through the toolkit's own encoder.
  const std::string tree = PictureTree({{0, 8, 8, 1000, 0}, {5, 8, 8, 1040, 0}});
  for (const std::string quality : {"100", "10"}) {
    Run(tree, {"--out", m_Scratch.Path("j" + quality), "--format", "jpg", "--quality", quality});
  }
  EXPECT_LT(ReadBytes(m_Scratch.Path("j10/image-000002.jpg")).size(),
            ReadBytes(m_Scratch.Path("j100/image-000002.jpg")).size())
      << "the quality reaches the encoder";
  const std::vector<uint8_t> expected = PlaneBytes({0, 8, 8, 1000, 0}, 0);
  for (const std::string name : {"j100/image-000001.jpg", "j100/image-000002.jpg"}) {
    const std::vector<uint8_t> file = ReadBytes(m_Scratch.Path(name));
    const NmToolkitTest::SmDecoded decoded = NmToolkitTest::Decode(file.data(), file.size(), true);
    EXPECT_EQ(std::make_pair(decoded.width, decoded.height), std::make_pair(8, 8)) << name;
    // A smooth gray ramp at quality 100 comes back within a step or two.
    for (size_t i = 0; i < 64 && name == "j100/image-000001.jpg"; ++i) {
      EXPECT_NEAR(decoded.pixels.at(i), expected[i], 3) << i;
    }
  }

  // A format outside the ten, and an empty picture, among good ones.
  const SmResult bad = ExpectRun(
      {"run",
       m_Scratch.Write("bad.xml", PictureTree({{0, 2, 2}, {12, 2, 2}, {1, 0, 0}, {0, 2, 2}})),
       "--out", m_Scratch.Path("bad")},
      1,
      "Item 2 could not be written: The picture has colour format 12, which is none of "
      "the ten formats that vzk knows.");
  EXPECT_NE(bad.err.find("Item 3 could not be written: The picture is empty (0x0 pixels)."),
            std::string::npos);
  EXPECT_NE(bad.out.find("; 2 errors."), std::string::npos);
  EXPECT_TRUE(Exists(m_Scratch.Path("bad/image-000004.png")));
}

TEST_F(VzkWriters, PcmAudioGoesIntoWavFilesAndOtherAudioIsKept) {
  using namespace NmTestSupport;
  const auto pcm = [](uint32_t rate, uint8_t seed, uint64_t time) {
    SmAudioPacketFields fields;
    fields.codec = 1;
    fields.bitsPerSample = 16;
    fields.channelCount = 2;
    fields.samplingFrequency = rate;
    fields.sampleCount = 4;
    fields.time = time;
    fields.payload = Pattern(16, seed);
    return fields;
  };
  const std::vector<SmAudioPacketFields> packets = {pcm(8000, 1, 1000), pcm(8000, 2, 1002),
                                                    pcm(16000, 3, 1004)};
  SmAudioPacketFields g711;
  g711.codec = 2;
  g711.time = 1006;
  const std::string recording = m_Scratch.Path("audio.gbd");
  for (const auto& fields : packets) {
    WriteBytes(recording, BuildAudioPacket(fields), true);
  }
  WriteBytes(recording, BuildAudioPacket(g711), true);
  const SmResult result = Run(RecordingTree(recording), {"--out", m_Scratch.Path("wav")});
  EXPECT_NE(result.out.find("4 audio packets"), std::string::npos);
  EXPECT_NE(result.err.find("Audio in G.711 is not PCM, so its packets go to records.gbd"),
            std::string::npos);

  const auto header = [](uint32_t rate, uint32_t dataSize) {
    std::vector<uint8_t> h = {'R', 'I', 'F', 'F'};
    const auto put = [&h](uint32_t value, int bytes) {
      for (int i = 0; i < bytes; ++i) {
        h.push_back(static_cast<uint8_t>(value >> (8 * i)));
      }
    };
    put(36 + dataSize, 4);
    h.insert(h.end(), {'W', 'A', 'V', 'E', 'f', 'm', 't', ' '});
    put(16, 4), put(1, 2), put(2, 2), put(rate, 4), put(rate * 4, 4), put(4, 2), put(16, 2);
    h.insert(h.end(), {'d', 'a', 't', 'a'});
    put(dataSize, 4);
    return h;
  };
  std::vector<uint8_t> first = header(8000, 32);
  for (const auto& fields : {packets[0], packets[1]}) {
    first.insert(first.end(), fields.payload.begin(), fields.payload.end());
  }
  EXPECT_EQ(ReadBytes(m_Scratch.Path("wav/audio.wav")), first);
  std::vector<uint8_t> second = header(16000, 16);
  second.insert(second.end(), packets[2].payload.begin(), packets[2].payload.end());
  EXPECT_EQ(ReadBytes(m_Scratch.Path("wav/audio-2.wav")), second);
  EXPECT_EQ(ReadBytes(m_Scratch.Path("wav/records.gbd")), BuildAudioPacket(g711));
}

TEST_F(VzkWriters, ContactSheetShowsPicturesAndSaysWhatItLeftOut) {
  std::vector<SmPicture> pictures;
  for (uint32_t i = 0; i < 150; ++i) {
    pictures.push_back({5, 80, 60, 1000 + 40 * i, i});
  }
  const SmResult result =
      Run(PictureTree(pictures), {"--contact-sheet", m_Scratch.Path("sheet.png")});
  // 150 pictures keep at most 64 thumbnails: every fourth, 38 of them, on 7 columns.
  const SmPng sheet = ReadPng(m_Scratch.Path("sheet.png"));
  EXPECT_EQ(sheet.width, 8u + 7 * 168);
  EXPECT_EQ(sheet.height, 8u + 6 * 144);

  // JPEG records are decoded for the sheet; a damaged one is left out, in words.
  const std::string recording = m_Scratch.Path("raw.gbd");
  const auto frames = MakeRawJPEGRecording(recording, 3, 320, 240);
  // Whole in its markers, so that the recording holds it, but with a sample
  // precision of 7 bits in its frame header, which no decoder takes.
  std::vector<uint8_t> damaged = frames[0];
  for (size_t i = 0; i + 4 < damaged.size(); ++i) {
    if (damaged[i] == 0xFF && damaged[i + 1] == 0xC0) {
      damaged[i + 4] = 7;
      break;
    }
  }
  WriteBytes(recording, damaged, true);
  const SmResult jpeg =
      Run(RecordingTree(recording), {"--contact-sheet", m_Scratch.Path("jpeg.png")});
  EXPECT_EQ(jpeg.err, "vzk: The contact sheet leaves out 1 damaged JPEG record.\n");
  const SmPng small = ReadPng(m_Scratch.Path("jpeg.png"));
  ASSERT_EQ(small.width, 8u + 2 * 168);
  ASSERT_EQ(small.height, 8u + 2 * 144);
  // The thumbnails are ffmpeg's test picture: its top left is white-ish, its
  // colour bars are saturated, and nothing of it is the sheet's dark grey.
  const auto pixel = [&small](uint32_t x, uint32_t y) {
    const uint8_t* p = &small.pixels[(uint64_t{y} * small.width + x) * 3];
    return std::vector<int>{p[0], p[1], p[2]};
  };
  for (const auto& [x, y] : std::vector<std::pair<uint32_t, uint32_t>>{{20, 20}, {176 + 80, 68}}) {
    EXPECT_NE(pixel(x, y), (std::vector<int>{38, 38, 38})) << x << "," << y;
  }
  EXPECT_EQ(pixel(4, 4), (std::vector<int>{38, 38, 38}));

  // Encoded video cannot be shown without a decoder in the tree.
  NmTestSupport::SmVideoPacketFields h264;
  WriteBytes(m_Scratch.Path("h264.gbd"), NmTestSupport::BuildVideoPacket(h264));
  ExpectRun({"run", m_Scratch.Write("h264.xml", RecordingTree(m_Scratch.Path("h264.gbd"))),
             "--contact-sheet", m_Scratch.Path("none.png")},
            1,
            "vzk: No contact sheet was written: the tree delivered no pictures, only 1 H.264 "
            "record, which vzk cannot show; a \"video_decoder\" element in the tree makes "
            "pictures of them.");
  EXPECT_FALSE(Exists(m_Scratch.Path("none.png")));
}

TEST(VzkPictureConversion, JfifEquationsAndRatios) {
  // Y, Cb, Cr and R, G, B: grey, white, pure red by JFIF, and values beyond
  // the range, which clamp.
  const std::array<int, 6> conversions[] = {{128, 128, 128, 128, 128, 128},
                                            {255, 128, 128, 255, 255, 255},
                                            {76, 85, 255, 254, 0, 0},
                                            {0, 0, 0, 0, 135, 0}};
  for (const auto& c : conversions) {
    uint8_t r, g, b;
    NmVzkTool::YCbCrToRGB(uint8_t(c[0]), uint8_t(c[1]), uint8_t(c[2]), r, g, b);
    EXPECT_EQ((std::array<int, 3>{r, g, b}), (std::array<int, 3>{c[3], c[4], c[5]}));
  }
  for (const auto& c : {std::array<int, 6>{255, 0, 0, 76, 85, 255}, {0, 0, 255, 29, 255, 107}}) {
    uint8_t y, cb, cr;
    NmVzkTool::RGBToYCbCr(uint8_t(c[0]), uint8_t(c[1]), uint8_t(c[2]), y, cb, cr);
    EXPECT_EQ((std::array<int, 3>{y, cb, cr}), (std::array<int, 3>{c[3], c[4], c[5]}));
  }
  uint32_t n, d;
  NmVzkTool::ApproximateRatio(1.5, 1000, n, d);
  EXPECT_EQ(n * 10 + d, 32u);
  NmVzkTool::ApproximateRatio(10.0 / 11.0, 1000, n, d);
  EXPECT_EQ(std::make_pair(n, d), std::make_pair(10u, 11u));
  // Convergents only: 22/7 is the last one whose denominator stays within 100.
  NmVzkTool::ApproximateRatio(3.14159265358979, 100, n, d);
  EXPECT_EQ(std::make_pair(n, d), std::make_pair(22u, 7u));
  for (const double unknown : {0.0, -1.0, 1e300 * 1e300}) {
    NmVzkTool::ApproximateRatio(unknown, 1000, n, d);
    EXPECT_EQ(std::make_pair(n, d), std::make_pair(0u, 0u));
  }
}

} // namespace
