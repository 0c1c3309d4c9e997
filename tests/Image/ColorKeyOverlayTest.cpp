#include <gtest/gtest.h>

#include <string>

#include "Image/ImageFixtures.h"
#include "MediaProcessing/Image/ColorKeyOverlay.h"
#include "MediaProcessing/Image/ImageBufferHelpers.h"
#include "MediaProcessing/Image/NormalizeImage.h"

using namespace NmMediaProcessing;
using NmImageTest::ExpectError;
using NmImageTest::ExpectRefusals;
using NmImageTest::MakeImage;
using NmImageTest::MakeOrientation;
using NmImageTest::Planes;
using NmImageTest::Sample;

namespace {

CmOverlayParameters Parameters(uint32_t flags, double scale = 1.0, double x = -1.0,
                               double y = -1.0) {
  CmOverlayParameters parameters;
  parameters.flags = flags;
  parameters.scale = scale;
  parameters.x = x;
  parameters.y = y;
  return parameters;
}

// The picture a viewer sees.
CmImage Upright(CmImage stored) {
  CmNormalizeImageOrientation(Orientation()).Execute(stored);
  return stored;
}

} // namespace

TEST(OverlayParameters, ConstructorRefusesContradictions) {
  const CmImage picture = MakeImage(4, 4, Gray, 1);
  const auto make = [&](uint32_t flags, double scale = 1.0, double x = -1.0, double y = -1.0) {
    return [&picture, flags, scale, x, y] {
      CmColorKeyOverlay(picture, Parameters(flags, scale, x, y), 0, 0, 0, 0);
    };
  };
  const std::string scale = "Scaling factor must be positive if scaling is enabled";
  const std::string exact = "Exact positioning of overlay requires top and left flags to be set";
  ExpectRefusals({
      {make(OverlayScale | OverlayLeft | OverlayRight, 0.0), scale, 2},
      {make(OverlayScale, -1.0), scale, 2},
      {make(OverlayLeft | OverlayRight), "Overlay cannot be both left- and right-aligned", 2},
      {make(OverlayTop | OverlayBottom), "Overlay cannot be both top- and bottom-aligned", 2},
      {make(OverlayLeft, 1.0, 0.5, 0.5), exact, 2},
      {make(OverlayTop, 1.0, -1.0, 0.5), exact, 2},
      {make(OverlayLeft | OverlayTop | OverlayScale, 1.0, 0.5, 0.5),
       "Exact positioned overlays cannot be scaled", 2},
      {[] { CmColorKeyOverlay(CmImage(), Parameters(0), 0, 0, 0, 0); }, "Invalid overlay image", 2},
  });
  make(OverlayLeft | OverlayTop, 1.0, 0.5, 0.5)();
  make(OverlayScale, 0.01)();
}

TEST(OverlayGeometry, SizesFollowScaleAspectAndRoomAlignmentWhatTheViewerSees) {
  const CmImage image = MakeImage(100, 50, Gray, 2);
  const CmImage picture = MakeImage(40, 20, Gray, 3);
  CmImage wide = image; // pixels twice as wide as high
  wide.GetAttributes().aspectRatio = 2.0;
  CmImage turned = image;
  turned.GetAttributes().orientation.rotation = 1;
  const CmColorKeyOverlay plain(picture, Parameters(0), 0, 0, 0, 0);
  // Exact x = 0.9 leaves round(0.1 * 100) = 10 columns of room.
  const CmColorKeyOverlay exact(picture, Parameters(OverlayLeft | OverlayTop, 1.0, 0.9, 0.2), 0, 0,
                                0, 0);
  const CmColorKeyOverlay half(picture, Parameters(OverlayScale, 0.5), 0, 0, 0, 0);
  const CmColorKeyOverlay twice(picture, Parameters(OverlayScale, 2.0), 0, 0, 0, 0);
  const CmColorKeyOverlay exactPixels(picture, Parameters(OverlayPixelExact), 0, 0, 0, 0);
  const CmColorKeyOverlay tiny(picture, Parameters(OverlayScale, 1e-9), 0, 0, 0, 0);
  const struct {
    const CmColorKeyOverlay& overlay;
    const CmImage& image;
    bool fit;
    uint64_t width, height;
  } cases[] = {
      {plain, image, true, 40, 20},
      {exact, image, true, 10, 20},
      {exact, image, false, 40, 20},
      // Scaled to the image: the relatively wider side decides.
      {half, image, true, 50, 25},
      {twice, image, false, 200, 100},
      {twice, image, true, 100, 50},
      // Wide pixels on the image: the picture is drawn half as wide, unless exact.
      {plain, wide, true, 40, 40},
      {exactPixels, wide, true, 40, 20},
      // A turned image takes the picture turned, and nothing is ever 0 wide.
      {plain, turned, true, 20, 40},
      {tiny, image, true, 1, 1},
  };
  for (const auto& c : cases) {
    uint64_t w = 0;
    uint64_t h = 0;
    c.overlay.GetActualOverlaySize(c.image, picture, c.fit, w, h);
    EXPECT_EQ(std::make_pair(w, h), std::make_pair(c.width, c.height)) << &c - cases;
  }
  CmImage empty;
  uint64_t w = 0;
  uint64_t h = 0;
  ExpectError([&] { plain.GetActualOverlaySize(empty, picture, true, w, h); },
              "Invalid image for overlay", 2);

  CmImage interlaced = image;
  interlaced.GetAttributes().interlacing = SeparateTopFirst;
  ExpectError([&] { plain.IsOverlayMatching(interlaced, picture, picture); },
              "Overlays cannot be placed on interlaced images", 2);
  EXPECT_FALSE(plain.IsOverlayMatching(image, picture, empty));
  EXPECT_TRUE(plain.IsOverlayMatching(image, picture, picture));
  CmImage slightly = image;
  slightly.GetAttributes().aspectRatio = 1.001; // below a pixel's worth at 40 x 20
  EXPECT_TRUE(plain.IsOverlayMatching(slightly, picture, picture));
  slightly.GetAttributes().aspectRatio = 1.06;
  EXPECT_FALSE(plain.IsOverlayMatching(slightly, picture, picture));

  const CmImage small = MakeImage(4, 2, Gray, 4);
  // Where a 4 x 2 picture lands: x, y, width and height.
  const auto place = [&](CmOverlayParameters p, uint64_t width, uint64_t height, Orientation o) {
    const SmOverlayRectangle r =
        CmColorKeyOverlay(small, p, 0, 0, 0, 0).Position(width, height, o, 4, 2);
    return std::vector<uint64_t>{r.x, r.y, r.width, r.height};
  };
  const auto at = [](std::vector<uint64_t> where) {
    where.resize(2);
    return where;
  };
  // A quarter turn clockwise shows the stored top row as the left column.
  EXPECT_EQ(at(place(Parameters(OverlayLeft), 20, 10, MakeOrientation(1, false, false))),
            (std::vector<uint64_t>{8, 0}));
  const CmOverlayParameters rightBottom = Parameters(OverlayRight | OverlayBottom);
  EXPECT_EQ(at(place(rightBottom, 20, 10, MakeOrientation(0, false, true))),
            (std::vector<uint64_t>{0, 8}));
  // Too large: the rectangle never leaves the image.
  EXPECT_EQ(place(rightBottom, 3, 1, Orientation()), (std::vector<uint64_t>{0, 0, 3, 1}));
  EXPECT_EQ(at(place(Parameters(OverlayLeft | OverlayTop, 1.0, 1.5, -0.5), 20, 10, Orientation())),
            (std::vector<uint64_t>{16, 0}));
}

TEST(ColorKeyOverlay, LandsAndClipsAlikeUnderEveryOrientation) {
  // A picture laid on a stored image and then viewed upright must look the
  // same as the picture laid on the upright image: every orientation, every
  // alignment, pictures that fit and pictures cut at one or both edges.
  const struct { uint64_t width, height; } pictures[] = {{5, 3}, {14, 4}, {6, 11}, {20, 20}};
  struct SmExact {
    double x, y;
  };
  const SmExact exacts[] = {{0.9, 0.2}, {0.0, 0.75}, {0.45, 0.0}};
  for (const auto& size : pictures) {
    CmImage picture = MakeImage(size.width, size.height, Gray, 5);
    // Every third pixel is the key and lets the image through.
    const auto plane = picture.Allocator().GetWriteablePlane(0);
    for (uint64_t i = 0; i < plane.width * plane.height; i += 3) {
      plane.data[(i / plane.width) * plane.rowStride + i % plane.width] = 0;
    }
    std::vector<CmOverlayParameters> parameters;
    for (const uint32_t across : {+OverlayLeft, 0u, +OverlayRight}) {
      for (const uint32_t down : {+OverlayTop, 0u, +OverlayBottom}) {
        parameters.push_back(Parameters(across | down));
      }
    }
    for (const SmExact& e : exacts) {
      parameters.push_back(Parameters(OverlayLeft | OverlayTop, 1.0, e.x, e.y));
    }
    for (const CmOverlayParameters& p : parameters) {
      for (uint32_t rotation = 0; rotation < 4; ++rotation) {
        for (int flips = 0; flips < 4; ++flips) {
          // The stored image is 12 x 8 whatever its orientation, so that the
          // upright picture is 8 x 12 for odd turns.
          CmImage stored = MakeImage(12, 8, Gray, rotation * 4 + flips);
          stored.GetAttributes().orientation = MakeOrientation(rotation, flips & 1, flips & 2);
          CmImage upright = Upright(stored);
          CmColorKeyOverlay onStored(picture, p, 0, 0, 0, 0);
          CmColorKeyOverlay onUpright(picture, p, 0, 0, 0, 0);
          onStored.Execute(stored);
          onUpright.Execute(upright);
          ASSERT_TRUE(Planes(Upright(stored)) == Planes(upright))
              << "picture " << size.width << "x" << size.height << " flags " << p.flags << " x "
              << p.x << " y " << p.y << " rotation " << rotation << " flips " << flips;
        }
      }
    }
  }
}

TEST(ColorKeyOverlay, KeyLetsTheImageThroughInEveryPath) {
  // Same size and one plane: the key primitive, with the key carried over to
  // the image's byte order.
  CmImage picture = MakeImage(6, 4, BGR24, 6);
  auto plane = picture.Allocator().GetWriteablePlane(0);
  const uint8_t key[3] = {1, 2, 3};
  std::copy_n(key, 3, plane.data); // B G R of pixel (0, 0) is the key
  const CmImage background = MakeImage(6, 4, RGB24, 7);
  CmColorKeyOverlay overlay(picture, Parameters(0), 1, 2, 3, 0);
  CmImage result = NmImageTest::Applied(overlay, background);
  EXPECT_EQ(Sample(result, 0, 0, 0, 2), Sample(background, 0, 0, 0, 2));
  EXPECT_EQ(Sample(result, 0, 1, 0, 0), Sample(picture, 0, 1, 0, 2)); // R moved to byte 0

  // A 32-bit picture takes its first pixel's fourth byte into the key.
  CmImage padded = MakeImage(3, 2, BGR32, 8);
  auto p32 = padded.Allocator().GetWriteablePlane(0);
  for (uint64_t x = 0; x < 3; ++x) {
    p32.data[4 * x + 3] = p32.data[p32.rowStride + 4 * x + 3] = 0x5A;
  }
  std::fill_n(p32.data + 4 * 2, 3, 9); // pixel (2, 0) is the key
  CmColorKeyOverlay keyed(padded, Parameters(OverlayLeft | OverlayTop), 9, 9, 9, 0);
  EXPECT_EQ(keyed.GetKey(3), 0x5A);
  CmImage target = MakeImage(7, 5, BGRA, 9);
  const uint8_t kept = Sample(target, 0, 2, 0, 1);
  keyed.Execute(target);
  EXPECT_EQ(Sample(target, 0, 2, 0, 1), kept);
  EXPECT_EQ(Sample(target, 0, 1, 1, 2), Sample(padded, 0, 1, 1, 2));

  // The two-image form leaves its source alone.
  const CmImage source = MakeImage(7, 5, BGRA, 10);
  const uint8_t original = Sample(source, 0, 0, 0, 0);
  CmImage painted;
  std::unique_ptr<ImImageTransformation> clone(keyed.Clone());
  clone->Execute(source, painted);
  EXPECT_EQ(Sample(source, 0, 0, 0, 0), original);
  EXPECT_EQ(Sample(painted, 0, 0, 0, 0), Sample(padded, 0, 0, 0, 0));
}

TEST(ColorKeyOverlay, KeyInEveryPlaneAndNotInBytesThePictureLacks) {
  CmImage picture = MakeImage(4, 4, YCbCr420_Planar, 11);
  CmImageBufferHelpers::SetPlane(16, picture.Allocator().GetWriteablePlane(0));
  auto cb = picture.Allocator().GetWriteablePlane(1);
  auto cr = picture.Allocator().GetWriteablePlane(2);
  // Chroma of the left half is the key, the right half's is not.
  for (uint64_t i = 0; i < 2; ++i) {
    cb.data[i * cb.rowStride] = 128;
    cr.data[i * cr.rowStride] = 128;
    cb.data[i * cb.rowStride + 1] = 5;
    cr.data[i * cr.rowStride + 1] = 128;
  }
  CmImage image = MakeImage(8, 6, YCbCr420_Planar, 12);
  const uint8_t through = Sample(image, 0, 0, 0);
  CmColorKeyOverlay overlay(picture, Parameters(OverlayLeft | OverlayTop), 16, 128, 128, 0);
  overlay.Execute(image);
  EXPECT_EQ(Sample(image, 0, 0, 0), through);
  EXPECT_EQ(Sample(image, 0, 3, 3), 16);
  EXPECT_EQ(Sample(image, 1, 1, 0), 5);

  // Same size, so the key primitive is tempting; but the alpha that the
  // conversion adds is no part of the key.
  for (const ColorFormat target : {BGRA, RGBA, BGR32, RGB24}) {
    SCOPED_TRACE(target);
    CmImage picture = MakeImage(5, 3, RGB24, 13);
    auto plane = picture.Allocator().GetWriteablePlane(0);
    std::fill_n(plane.data, 3, 0); // pixel (0, 0) is the key
    plane.data[3] = 200;           // pixel (1, 0) is not
    CmImage image = MakeImage(5, 3, target, 14);
    const uint8_t background = Sample(image, 0, 0, 0, 1);
    CmColorKeyOverlay overlay(picture, Parameters(0), 0, 0, 0, 0);
    overlay.Execute(image);
    EXPECT_EQ(Sample(image, 0, 0, 0, 1), background);
    EXPECT_EQ(Sample(image, 0, 1, 0, target == BGRA || target == BGR32 ? 2 : 0), 200);
  }
}
