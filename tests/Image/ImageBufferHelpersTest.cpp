#include <gtest/gtest.h>

#include <cstring>

#include "Image/ImageFixtures.h"
#include "MediaProcessing/Image/ImageBufferHelpers.h"
#include "MediaProcessing/Image/SPLError.h"
#include "support/CaughtError.h"

using namespace NmMediaProcessing;
using namespace NmMediaProcessing::CmImageBufferHelpers;
using NmImageTest::Allocated;
using NmImageTest::ExpectError;
using NmImageTest::ExpectRefusals;
using NmImageTest::Kept;

namespace {

const std::string Helpers = "NmMediaProcessing::CmImageBufferHelpers::";

// An allocator holding the fixtures' pattern.
CmReferenceCountingImageAllocator Rows(uint64_t width, uint64_t height, ColorFormat format,
                                       uint64_t alignment = 0) {
  CmReferenceCountingImageAllocator allocator = Allocated(width, height, format, alignment);
  NmImageTest::FillPattern(allocator);
  return allocator;
}

} // namespace

TEST(ImageBufferHelpers, CroppedPlanesRefuseEmptyOrOutsideRegions) {
  auto a = Allocated(8, 4, Gray);
  const CmPlane plane = a.GetPlane(0);
  for (const RegionOfInterest region :
       {RegionOfInterest{0, 0, 0, 4}, RegionOfInterest{-1, 0, 2, 2}, RegionOfInterest{0, -1, 2, 2},
        RegionOfInterest{7, 0, 2, 2}, RegionOfInterest{0, 3, 1, 2}}) {
    ExpectError([&] { (void)GetCroppedPlane(plane, region); },
                "Cropping region (ROI) is empty or outside of plane area", 3,
                Helpers + "GetCroppedPlane");
  }
  const CmPlane cropped = GetCroppedPlane(plane, {7, 3, 1, 1});
  EXPECT_EQ(cropped.data, plane.data + 7 + 3 * plane.rowStride);
  EXPECT_EQ(GetCroppedPlane(a.GetWriteablePlane(0), GetFullRegion(plane)).height, 4u);
  EXPECT_EQ(GetSize(plane).width, 8);
  EXPECT_EQ(GetSize(cropped).height, 1);
}

TEST(ImageBufferHelpers, FieldViewsOfEveryLayout) {
  // How fields split is proven on their pixels with the images; here the
  // orientations that the images do not reach, and the refusals.
  auto a = Allocated(3, 5, Gray);
  const CmPlane plane = a.GetPlane(0);
  const Orientation upright;
  const Orientation upsideDown = NmImageTest::MakeOrientation(0, true, false);
  const Orientation turned = NmImageTest::MakeOrientation(1, false, false);
  const Orientation halfTurn = NmImageTest::MakeOrientation(2, false, false); // both flags
  // Upside down with an odd height, picture row 0 is stored row 4: the top
  // field keeps the even rows. With an even height it moves to the odd rows.
  EXPECT_EQ(GetFieldPlane(plane, InterleavedTopFirst, halfTurn, 1).data,
            plane.data + plane.rowStride);
  for (uint64_t height = 1; height <= 8; ++height) {
    auto b = Allocated(2, height, Gray);
    const CmPlane full = b.GetPlane(0);
    for (uint32_t field = 0; field < 2 && field < height; ++field) {
      const CmPlane view = GetFieldPlane(full, InterleavedBottomFirst, upsideDown, field);
      const uint64_t firstRow = static_cast<uint64_t>(view.data - full.data) / full.rowStride;
      // The view's last row is inside the plane and is the stored row of the
      // picture's last row of that field.
      EXPECT_LT(firstRow + 2 * (view.height - 1), height) << height << " field " << field;
      EXPECT_EQ((height - 1 - firstRow) % 2, field) << height << " field " << field;
    }
  }
  EXPECT_EQ(GetFieldPlane(plane, SeparateTopFirst, upsideDown, 0).data,
            plane.data + 2 * plane.rowStride);
  EXPECT_EQ(GetFieldPlane(plane, SeparateTopFirst, upsideDown, 1).data, plane.data);
  // A picture of one field, or of a layout no one knows, is its whole plane.
  for (const uint32_t single : {+TopFieldOnly, +BottomFieldOnly, 9u}) {
    EXPECT_EQ(GetFieldPlane(plane, static_cast<Interlacing>(single), upright, single == 6).height,
              5u);
  }

  const std::string name = Helpers + "GetFieldPlane";
  const auto field = [&](Interlacing interlacing, const Orientation& o, uint32_t which) {
    return [&plane, interlacing, o, which] { (void)GetFieldPlane(plane, interlacing, o, which); };
  };
  ExpectRefusals({
      {field(Progressive, upright, 0), "The image is progressive, and has no fields", 1, name},
      {field(InterleavedTopFirst, turned, 0),
       "Can not get an interleaved field from a rotated image", 1, name},
      {field(SeparateTopFirst, turned, 0), "Can not get a separate field from a rotated image", 1,
       name},
      {field(TopFieldOnly, upright, 1), "The image does not contain a bottom field", 1, name},
      {field(BottomFieldOnly, upright, 0), "The image does not contain a top field", 1, name},
  });
}

TEST(ImageBufferHelpers, CopiesCheckShapeInOrderKeepStrideGapsAndMirror) {
  const auto narrow = Rows(5, 3, RGB24, 1);
  auto wide = Allocated(5, 3, RGB24, 64);
  const auto target = wide.GetWriteablePlane(0);
  std::memset(target.data, 0xEE, target.rowStride * target.height);
  CopyPlaneContents(narrow.GetPlane(0), target);
  EXPECT_EQ(target.data[2 * target.rowStride + 14], 16 * 2 + 14);
  EXPECT_EQ(target.data[15], 0xEE);

  const std::string name = Helpers + "CopyPlaneContents";
  const auto copy = [&](uint64_t width, uint64_t height, ColorFormat format) {
    return [&narrow, width, height, format] {
      CopyPlaneContents(narrow.GetPlane(0),
                        Kept(Allocated(width, height, format)).GetWriteablePlane(0));
    };
  };
  auto other = Allocated(5, 2, BGR24);
  ExpectRefusals({
      {copy(4, 2, RGB32), "Pixel strides do not match", 3, name},
      {copy(4, 2, Gray), "Planes have different number of bytes per pixel", 3, name},
      {copy(4, 2, BGR24), "Plane widths do not match", 3, name},
      {copy(5, 2, BGR24), "Plane heights do not match", 3, name},
      {copy(5, 4, BGR24), "Plane heights do not match", 3, name},
      {[&] { CopyAllocatorContents(narrow, other); }, "Allocators have different formats", 2,
       Helpers + "CopyAllocatorContents"},
  });

  // Copying into a shared allocator writes into its own planes only.
  CmReferenceCountingImageAllocator shared;
  shared.CopyFrom(wide);
  auto source = Allocated(5, 3, RGB24);
  std::memset(source.GetWriteablePlane(0).data, 1, source.GetPlane(0).rowStride * 3);
  CopyAllocatorContents(source, shared);
  EXPECT_EQ(shared.GetPlane(0).data[0], 1);
  EXPECT_EQ(wide.GetPlane(0).data[0], 0);

  auto a = Rows(4, 1, Gray);
  FlipPlaneContents(a, FlipRows); // one row: nothing to do
  EXPECT_EQ(a.GetPlane(0).data[0], 0);
  FlipPlaneContents(a, FlipBoth); // one row: columns only
  EXPECT_EQ(a.GetPlane(0).data[0], 3);

  a = Rows(1, 3, Gray);
  FlipPlaneContents(a, FlipColumns);
  EXPECT_EQ(a.GetPlane(0).data[0], 0);
  FlipPlaneContents(a, FlipBoth);
  EXPECT_EQ(a.GetPlane(0).data[0], 32);

  // 4:2:0 at 5 x 3: chroma is 3 x 2, each plane mirrors on its own.
  a = Rows(5, 3, YCbCr420_Planar);
  CmReferenceCountingImageAllocator before;
  before.CopyFrom(a);
  FlipPlaneContents(a, FlipBoth);
  EXPECT_EQ(a.GetPlane(0).data[0], 16 * 2 + 4);
  EXPECT_EQ(a.GetPlane(2).data[0], 128 + 16 + 2);
  EXPECT_EQ(before.GetPlane(0).data[0], 0); // the shared copy is untouched

  auto mirrored = Allocated(5, 3, YCbCr420_Planar);
  FlipPlaneContents(before.GetPlane(1), mirrored.GetWriteablePlane(1), FlipRows);
  EXPECT_EQ(mirrored.GetPlane(1).data[0], 64 + 16);
  auto rgb = Allocated(5, 3, RGB24);
  ExpectRefusals({
      {[&] { FlipPlaneContents(before.GetPlane(0), mirrored.GetWriteablePlane(1), FlipRows); },
       "Source and destination planes must have the same dimensions for mirroring", 1,
       Helpers + "FlipPlaneContents"},
      {[&] {
         FlipPlaneContents(rgb.GetPlane(0), Kept(Allocated(5, 3, Gray)).GetWriteablePlane(0),
                           FlipRows);
       },
       "Mirroring is not supported for the given pixel stride", 1},
  });
}

TEST(ImageBufferHelpers, ChannelSwapsAlphaAndStatuses) {
  auto a = Rows(3, 2, RGBA);
  SwapChannels(a);
  EXPECT_EQ(a.GetColorFormat(), BGRA);
  const CmPlane plane = a.GetPlane(0);
  EXPECT_EQ(plane.data[4], 6);
  EXPECT_EQ(plane.data[6], 4);
  EXPECT_EQ(plane.data[7], 7); // alpha stays in place
  SetAlphaChannel(a, 200);
  EXPECT_EQ(a.GetPlane(0).data[plane.rowStride + 11], 200);
  EXPECT_EQ(a.GetPlane(0).data[plane.rowStride + 10], 16 + 8);

  auto rgb = Rows(3, 2, RGB24);
  auto bgr = Allocated(3, 2, BGR24);
  SwapChannels(rgb, bgr);
  EXPECT_EQ(bgr.GetPlane(0).data[bgr.GetPlane(0).rowStride + 0], 16 + 2);
  auto wider = Allocated(3, 2, BGRA);
  SwapChannels(rgb, wider);
  EXPECT_EQ(wider.GetPlane(0).GetPixelAddress(1, 1)[0], 16 + 5);
  EXPECT_EQ(wider.GetPlane(0).GetPixelAddress(1, 1)[3], 255);

  const std::string swap = Helpers + "SwapChannels";
  auto yuv = Allocated(3, 2, YCbCr444_Planar);
  auto small = Allocated(2, 2, BGR24);
  auto same = Allocated(3, 2, RGB24);
  ExpectRefusals({
      {[&] { SwapChannels(yuv); }, "Unable to swap color channels in the given format", 1, swap},
      {[&] { SwapChannels(rgb, small); },
       "Unable to swap color channels between the given allocator dimensions", 1, swap},
      {[&] { SwapChannels(rgb, same); }, "Unable to swap color channels between the given formats",
       1, swap},
      {[&] { SetAlphaChannel(rgb, 1); }, "The given colour format doesn't have an alpha channel", 1,
       Helpers + "SetAlphaChannel"},
  });

  auto g = Allocated(3, 3, YCbCr420_Planar);
  SetPlane(128, g.GetWriteablePlane(1));
  EXPECT_EQ(g.GetPlane(1).GetPixelAddress(1, 1)[0], 128);
  EXPECT_THROW(SetPlane(1, rgb.GetWriteablePlane(0)), NmError::CmIntegrityError);

  // -9 and positive statuses are the MCL tests' too.
  EXPECT_NO_THROW(ThrowStatus(0));
  EXPECT_THROW(ThrowStatus(-4), std::bad_alloc);
  ExpectError<CmSPLError>([] { ThrowStatus(-7); }, "Signal Primitives Library (SPL) error -7", 2,
                          "NmMediaProcessing::ThrowStatus");
  EXPECT_EQ(NmTestSupport::Caught<CmSPLError>([] { ThrowStatus(-7); })->GetStatus(), -7);
}

TEST(ImageBufferHelpers, MaskedCopiesCheckTheirPlanesInOrder) {
  const auto source = Rows(4, 2, YCbCr444_Planar);
  auto target = Allocated(4, 2, YCbCr444_Planar);
  for (uint64_t p = 0; p < 3; ++p) {
    SetPlane(0, target.GetWriteablePlane(p));
  }
  auto mask = Allocated(4, 2, Gray);
  SetPlane(0, mask.GetWriteablePlane(0));
  mask.GetWriteablePlane(0).data[1] = 1;
  CopyAllocatorMasked(source, target, mask);
  for (uint64_t p = 0; p < 3; ++p) {
    EXPECT_EQ(target.GetPlane(p).data[1], 64 * p + 1);
    EXPECT_EQ(target.GetPlane(p).data[2], 0);
  }

  // Packed pixels take a mask of their own layout, byte by byte.
  const auto rgb = Rows(4, 2, RGB24);
  auto rgbTarget = Allocated(4, 2, RGB24);
  std::memset(rgbTarget.GetWriteablePlane(0).data, 0, rgbTarget.GetPlane(0).rowStride * 2);
  auto rgbMask = Allocated(4, 2, RGB24);
  std::memset(rgbMask.GetWriteablePlane(0).data, 0, rgbMask.GetPlane(0).rowStride * 2);
  rgbMask.GetWriteablePlane(0).data[4] = 1;
  CopyPlaneMasked(rgb.GetPlane(0), rgbTarget.GetWriteablePlane(0), rgbMask.GetPlane(0));
  EXPECT_EQ(rgbTarget.GetPlane(0).data[3], 0);
  EXPECT_EQ(rgbTarget.GetPlane(0).data[4], 4);
  EXPECT_EQ(rgbTarget.GetPlane(0).data[5], 0);

  const std::string allocators = Helpers + "CopyAllocatorMasked";
  const std::string planes = Helpers + "CopyPlaneMasked";
  auto subsampled = Allocated(4, 2, YCbCr420_Planar);
  const auto maskedCopy = [](const CmPlane& from, CmWriteablePlane to, const CmPlane& with) {
    return [from, to, with] { CopyPlaneMasked(from, to, with); };
  };
  const CmPlane grey = mask.GetPlane(0);
  ExpectRefusals({
      {[&] { CopyAllocatorMasked(subsampled, subsampled, mask); },
       "Monochrome masks cannot be used to copy subsampled formats", 2, allocators},
      {[&] { CopyAllocatorMasked(source, subsampled, mask); }, "Allocators have different formats",
       2, allocators},
      {[&] { CopyAllocatorMasked(source, target, Allocated(4, 2, YCbCr422_Planar)); },
       "If a planar copy mask is specified, its color format must match the image data", 2,
       allocators},
      {maskedCopy(rgb.GetPlane(0), rgbTarget.GetWriteablePlane(0), grey),
       "Bytes per pixel do not match", 3, planes},
      {maskedCopy(rgb.GetPlane(0), target.GetWriteablePlane(0), grey),
       "Planes have different number of bytes per pixel", 3, planes},
      {maskedCopy(rgb.GetPlane(0), Kept(Allocated(4, 2, RGB32)).GetWriteablePlane(0), grey),
       "Pixel strides do not match", 3, planes},
      {maskedCopy(grey, target.GetWriteablePlane(0), Kept(Allocated(5, 2, Gray)).GetPlane(0)),
       "Plane widths do not match", 3, planes},
      {maskedCopy(grey, target.GetWriteablePlane(0), Kept(Allocated(4, 3, Gray)).GetPlane(0)),
       "Plane heights do not match", 3, planes},
      {maskedCopy(rgb.GetPlane(0), rgbTarget.GetWriteablePlane(0),
                  Kept(Allocated(4, 2, BGR32)).GetPlane(0)),
       "Cannot copy with composite plane masks", 3, planes},
  });
}

TEST(ImageBufferHelpers, MaskedSetsLogicComparisonColourKeyAndTranspose) {
  auto image = Allocated(3, 2, RGBA);
  std::memset(image.GetWriteablePlane(0).data, 0, image.GetPlane(0).rowStride * 2);
  auto mask = Allocated(3, 2, Gray);
  SetPlane(0, mask.GetWriteablePlane(0));
  mask.GetWriteablePlane(0).data[mask.GetPlane(0).rowStride + 2] = 255;
  SetMaskedPlanePixels(1, 2, 3, 4, mask.GetPlane(0), image.GetWriteablePlane(0));
  const uint8_t* pixel = image.GetPlane(0).GetPixelAddress(2, 1);
  EXPECT_EQ(std::vector<uint8_t>(pixel, pixel + 4), (std::vector<uint8_t>{1, 2, 3, 4}));
  EXPECT_EQ(image.GetPlane(0).GetPixelAddress(1, 1)[0], 0);

  // Compare writes 255 only where all three channels match.
  auto rgb = Allocated(3, 1, RGB24);
  const uint8_t values[9] = {1, 2, 3, 1, 2, 4, 0, 2, 3};
  std::memcpy(rgb.GetWriteablePlane(0).data, values, 9);
  auto result = Allocated(3, 1, Gray);
  Compare(rgb.GetPlane(0), 1, 2, 3, 0, CompareEqual, result.GetWriteablePlane(0));
  EXPECT_EQ(std::vector<uint8_t>(result.GetPlane(0).data, result.GetPlane(0).data + 3),
            (std::vector<uint8_t>{255, 0, 0}));

  // Logic on whole planes.
  auto other = Allocated(3, 2, Gray);
  SetPlane(0x0F, other.GetWriteablePlane(0));
  BitwiseOrPlaneContents(other.GetPlane(0), mask.GetWriteablePlane(0));
  EXPECT_EQ(mask.GetPlane(0).data[0], 0x0F);
  EXPECT_EQ(mask.GetPlane(0).GetPixelAddress(2, 1)[0], 0xFF);
  SetPlane(0xF1, other.GetWriteablePlane(0));
  BitwiseAndPlaneContents(other.GetPlane(0), mask.GetWriteablePlane(0));
  EXPECT_EQ(mask.GetPlane(0).data[0], 0x01);
  BitwiseNotPlaneContents(mask.GetWriteablePlane(0));
  EXPECT_EQ(mask.GetPlane(0).data[0], 0xFE);

  // Colour key: keyed pixels show the background.
  auto background = Allocated(3, 1, RGB24);
  std::memset(background.GetWriteablePlane(0).data, 9, 9);
  auto rgbOut = Allocated(3, 1, RGB24);
  ColorKeyOverlay(rgb.GetPlane(0), 1, 2, 3, 0, background.GetPlane(0), rgbOut.GetWriteablePlane(0));
  EXPECT_EQ(rgbOut.GetPlane(0).data[0], 9);
  EXPECT_EQ(rgbOut.GetPlane(0).data[5], 4);

  const CmWriteablePlane small = Kept(Allocated(2, 2, Gray)).GetWriteablePlane(0);
  const auto key = [&](const CmPlane& backdrop) {
    return [&rgb, &rgbOut, backdrop] {
      ColorKeyOverlay(rgb.GetPlane(0), 0, 0, 0, 0, backdrop, rgbOut.GetWriteablePlane(0));
    };
  };
  const std::string keyName = Helpers + "ColorKeyOverlay";
  const std::string compare = Helpers + "Compare";
  const std::string setter = Helpers + "SetMaskedPlanePixels";
  ExpectRefusals({
      {[&] { SetMaskedPlanePixels(0, 0, 0, 0, image.GetPlane(0), image.GetWriteablePlane(0)); },
       "Mask plane has an invalid pixel stride (!= 1)", 3, setter},
      {[&] { SetMaskedPlanePixels(0, 0, 0, 0, small, image.GetWriteablePlane(0)); },
       "Mask plane has an invalid size", 3, setter},
      {[&] { Compare(rgb.GetPlane(0), 0, 0, 0, 0, CompareEqual, small); },
       "Planes have different dimensions", 3, compare},
      {[&] { Compare(rgb.GetPlane(0), 0, 0, 0, 0, CompareEqual, rgbOut.GetWriteablePlane(0)); },
       "Destination plane must be monochrome", 3, compare},
      {[&] { BitwiseOrPlaneContents(small, mask.GetWriteablePlane(0)); },
       "Planes have different dimensions", 3, Helpers + "BitwiseOrPlaneContents"},
      {[&] { BitwiseAndPlaneContents(rgb.GetPlane(0), result.GetWriteablePlane(0)); },
       "Planes have different pixel strides", 3, Helpers + "BitwiseAndPlaneContents"},
      {key(image.GetPlane(0)), "Planes have different number of bytes per pixel", 3, keyName},
      {key(Kept(Allocated(3, 1, RGB32)).GetPlane(0)), "Planes have different pixel strides", 3,
       keyName},
      {key(Kept(Allocated(4, 1, RGB24)).GetPlane(0)), "Planes have different dimensions", 3,
       keyName},
  });

  const auto source = Rows(3, 2, BGR32);
  auto turned = Allocated(2, 3, BGR32);
  Transpose(source.GetPlane(0), turned.GetWriteablePlane(0), true, false);
  // Clockwise: the bottom-left pixel lands top left, the top-left top right.
  EXPECT_EQ(turned.GetPlane(0).GetPixelAddress(0, 0)[1], 16 + 1);
  EXPECT_EQ(turned.GetPlane(0).GetPixelAddress(1, 0)[2], 2);
  EXPECT_EQ(turned.GetPlane(0).GetPixelAddress(1, 2)[0], 8);

  const std::string name = Helpers + "Transpose";
  const auto into = [&](uint64_t width, uint64_t height, ColorFormat format) {
    const CmWriteablePlane target = Kept(Allocated(width, height, format)).GetWriteablePlane(0);
    return [&source, target] { Transpose(source.GetPlane(0), target, false, false); };
  };
  ExpectRefusals({
      {into(3, 2, BGR32), "Planes have incompatible dimensions", 3, name},
      {into(2, 3, RGBA), "Planes have different number of bytes per pixel", 3, name},
      {into(2, 3, RGB24), "Planes have different pixel strides", 3, name},
  });
}
