#include <gtest/gtest.h>

#include <cstring>

#include "MediaProcessing/Image/ImageBufferHelpers.h"
#include "MediaProcessing/Image/ReferenceCountingImageAllocator.h"
#include "MediaProcessing/Image/SPLError.h"
#include "support/ImageTestSupport.h"

using namespace NmMediaProcessing;
using namespace NmMediaProcessing::CmImageBufferHelpers;
using NmImageTest::ExpectError;

namespace {

const std::string Helpers = "NmMediaProcessing::CmImageBufferHelpers::";

// Byte x of row y holds 16 * y + x (per channel byte).
void FillRows(ImImageMemoryAllocation& allocator) {
  for (uint64_t p = 0; p < allocator.GetPlaneCount(); ++p) {
    const auto plane = allocator.GetWriteablePlane(p);
    for (uint64_t y = 0; y < plane.height; ++y) {
      for (uint64_t x = 0; x < plane.width * plane.pixelStride; ++x) {
        plane.data[y * plane.rowStride + x] = static_cast<uint8_t>(16 * y + x);
      }
    }
  }
}

} // namespace

TEST(ImageBufferHelpers, CroppedPlanesRefuseEmptyOrOutsideRegions) {
  CmReferenceCountingImageAllocator a;
  a.Allocate(8, 4, Gray);
  const CmPlane plane = a.GetPlane(0);
  const std::string message = "Cropping region (ROI) is empty or outside of plane area";
  ExpectError(
      [&] {
        (void)GetCroppedPlane(plane, {0, 0, 0, 4});
      },
      message, 3, Helpers + "GetCroppedPlane");
  ExpectError([&] { (void)GetCroppedPlane(plane, {-1, 0, 2, 2}); }, message, 3);
  ExpectError([&] { (void)GetCroppedPlane(plane, {0, -1, 2, 2}); }, message, 3);
  ExpectError([&] { (void)GetCroppedPlane(plane, {7, 0, 2, 2}); }, message, 3);
  ExpectError([&] { (void)GetCroppedPlane(plane, {0, 3, 1, 2}); }, message, 3);
  const CmPlane cropped = GetCroppedPlane(plane, {7, 3, 1, 1});
  EXPECT_EQ(cropped.data, plane.data + 7 + 3 * plane.rowStride);
  const CmWriteablePlane writable = GetCroppedPlane(a.GetWriteablePlane(0), GetFullRegion(plane));
  EXPECT_EQ(writable.width, 8u);
  EXPECT_EQ(GetSize(cropped).width, 1);
  EXPECT_EQ(GetSize(plane).height, 4);
}

TEST(ImageBufferHelpers, FieldViewsOfEveryLayout) {
  CmReferenceCountingImageAllocator a;
  a.Allocate(3, 5, Gray);
  const CmPlane plane = a.GetPlane(0);
  const Orientation upright;
  Orientation upsideDown;
  upsideDown.flippedVertically = true;
  Orientation turned;
  turned.rotation = 1;
  Orientation halfTurn; // normal form: both flags set
  halfTurn.rotation = 2;

  CmPlane top = GetFieldPlane(plane, InterleavedTopFirst, upright, 0);
  CmPlane bottom = GetFieldPlane(plane, InterleavedBottomFirst, upright, 1);
  EXPECT_EQ(top.height, 3u);
  EXPECT_EQ(bottom.height, 2u);
  EXPECT_EQ(top.rowStride, 2 * plane.rowStride);
  EXPECT_EQ(bottom.data, plane.data + plane.rowStride);
  EXPECT_EQ(GetFieldPlane(plane, InterleavedTopFirst, upsideDown, 0).data,
            plane.data + plane.rowStride);
  EXPECT_EQ(GetFieldPlane(plane, InterleavedTopFirst, halfTurn, 1).data, plane.data);

  top = GetFieldPlane(plane, SeparateTopFirst, upright, 0);
  bottom = GetFieldPlane(plane, SeparateBottomFirst, upright, 1);
  EXPECT_EQ(top.rowStride, plane.rowStride);
  EXPECT_EQ(bottom.data, plane.data + 3 * plane.rowStride);
  EXPECT_EQ(bottom.height, 2u);
  EXPECT_EQ(GetFieldPlane(plane, SeparateTopFirst, upsideDown, 0).data,
            plane.data + 2 * plane.rowStride);
  EXPECT_EQ(GetFieldPlane(plane, SeparateTopFirst, upsideDown, 1).data, plane.data);

  EXPECT_EQ(GetFieldPlane(plane, TopFieldOnly, upright, 0).height, 5u);
  EXPECT_EQ(GetFieldPlane(plane, BottomFieldOnly, upright, 1).height, 5u);
  EXPECT_EQ(GetFieldPlane(plane, static_cast<Interlacing>(9), upright, 1).height, 5u);

  const std::string name = Helpers + "GetFieldPlane";
  ExpectError([&] { (void)GetFieldPlane(plane, Progressive, upright, 0); },
              "The image is progressive, and has no fields", 1, name);
  ExpectError([&] { (void)GetFieldPlane(plane, InterleavedTopFirst, turned, 0); },
              "Can not get an interleaved field from a rotated image", 1, name);
  ExpectError([&] { (void)GetFieldPlane(plane, SeparateTopFirst, turned, 0); },
              "Can not get a separate field from a rotated image", 1, name);
  ExpectError([&] { (void)GetFieldPlane(plane, TopFieldOnly, upright, 1); },
              "The image does not contain a bottom field", 1, name);
  ExpectError([&] { (void)GetFieldPlane(plane, BottomFieldOnly, upright, 0); },
              "The image does not contain a top field", 1, name);
}

TEST(ImageBufferHelpers, CopiesCheckShapeInOrderAndKeepStrideGaps) {
  CmReferenceCountingImageAllocator narrow;
  narrow.Allocate(5, 3, RGB24, 1);
  FillRows(narrow);
  CmReferenceCountingImageAllocator wide;
  wide.Allocate(5, 3, RGB24, 64);
  const auto target = wide.GetWriteablePlane(0);
  std::memset(target.data, 0xEE, target.rowStride * target.height);
  CopyPlaneContents(narrow.GetPlane(0), target);
  EXPECT_EQ(target.data[2 * target.rowStride + 14], 16 * 2 + 14);
  EXPECT_EQ(target.data[15], 0xEE);

  CmReferenceCountingImageAllocator other;
  const std::string name = Helpers + "CopyPlaneContents";
  other.Allocate(4, 2, RGB32);
  ExpectError([&] { CopyPlaneContents(narrow.GetPlane(0), other.GetWriteablePlane(0)); },
              "Pixel strides do not match", 3, name);
  other.Allocate(4, 2, Gray);
  ExpectError([&] { CopyPlaneContents(narrow.GetPlane(0), other.GetWriteablePlane(0)); },
              "Planes have different number of bytes per pixel", 3, name);
  other.Allocate(4, 2, BGR24);
  ExpectError([&] { CopyPlaneContents(narrow.GetPlane(0), other.GetWriteablePlane(0)); },
              "Plane widths do not match", 3, name);
  other.Allocate(5, 2, BGR24);
  ExpectError([&] { CopyPlaneContents(narrow.GetPlane(0), other.GetWriteablePlane(0)); },
              "Plane heights do not match", 3, name);
  ExpectError([&] { CopyAllocatorContents(narrow, other); }, "Allocators have different formats", 2,
              Helpers + "CopyAllocatorContents");

  // Copying into a shared allocator writes into its own planes only.
  CmReferenceCountingImageAllocator shared;
  shared.CopyFrom(wide);
  CmReferenceCountingImageAllocator source;
  source.Allocate(5, 3, RGB24);
  std::memset(source.GetWriteablePlane(0).data, 1, source.GetPlane(0).rowStride * 3);
  CopyAllocatorContents(source, shared);
  EXPECT_EQ(shared.GetPlane(0).data[0], 1);
  EXPECT_EQ(wide.GetPlane(0).data[0], 0);
}

TEST(ImageBufferHelpers, MirroringWholeAllocatorsAndSinglePlanes) {
  CmReferenceCountingImageAllocator a;
  a.Allocate(4, 1, Gray);
  FillRows(a);
  FlipPlaneContents(a, FlipRows); // one row: nothing to do
  EXPECT_EQ(a.GetPlane(0).data[0], 0);
  FlipPlaneContents(a, FlipBoth); // one row: columns only
  EXPECT_EQ(a.GetPlane(0).data[0], 3);

  a.Allocate(1, 3, Gray);
  FillRows(a);
  FlipPlaneContents(a, FlipColumns);
  EXPECT_EQ(a.GetPlane(0).data[0], 0);
  FlipPlaneContents(a, FlipBoth);
  EXPECT_EQ(a.GetPlane(0).data[0], 32);

  // 4:2:0 at 5 x 3: chroma is 3 x 2, each plane mirrors on its own.
  a.Allocate(5, 3, YCbCr420_Planar);
  FillRows(a);
  CmReferenceCountingImageAllocator before;
  before.CopyFrom(a);
  FlipPlaneContents(a, FlipBoth);
  EXPECT_EQ(a.GetPlane(0).data[0], 16 * 2 + 4);
  EXPECT_EQ(a.GetPlane(2).data[0], 16 + 2);
  EXPECT_EQ(before.GetPlane(0).data[0], 0); // the shared copy is untouched

  CmReferenceCountingImageAllocator mirrored;
  mirrored.Allocate(5, 3, YCbCr420_Planar);
  FlipPlaneContents(before.GetPlane(1), mirrored.GetWriteablePlane(1), FlipRows);
  EXPECT_EQ(mirrored.GetPlane(1).data[0], 16);
  ExpectError(
      [&] { FlipPlaneContents(before.GetPlane(0), mirrored.GetWriteablePlane(1), FlipRows); },
      "Source and destination planes must have the same dimensions for mirroring", 1,
      Helpers + "FlipPlaneContents");
  CmReferenceCountingImageAllocator rgb;
  rgb.Allocate(5, 3, RGB24);
  CmReferenceCountingImageAllocator gray;
  gray.Allocate(5, 3, Gray);
  ExpectError([&] { FlipPlaneContents(rgb.GetPlane(0), gray.GetWriteablePlane(0), FlipRows); },
              "Mirroring is not supported for the given pixel stride", 1);
}

TEST(ImageBufferHelpers, ChannelSwapsAndAlpha) {
  CmReferenceCountingImageAllocator a;
  a.Allocate(3, 2, RGBA);
  FillRows(a);
  SwapChannels(a);
  EXPECT_EQ(a.GetColorFormat(), BGRA);
  const CmPlane plane = a.GetPlane(0);
  EXPECT_EQ(plane.data[4], 6);
  EXPECT_EQ(plane.data[6], 4);
  EXPECT_EQ(plane.data[7], 7); // alpha stays in place
  SetAlphaChannel(a, 200);
  EXPECT_EQ(a.GetPlane(0).data[plane.rowStride + 11], 200);
  EXPECT_EQ(a.GetPlane(0).data[plane.rowStride + 10], 16 + 8);

  CmReferenceCountingImageAllocator rgb;
  rgb.Allocate(3, 2, RGB24);
  FillRows(rgb);
  CmReferenceCountingImageAllocator bgr;
  bgr.Allocate(3, 2, BGR24);
  SwapChannels(rgb, bgr);
  EXPECT_EQ(bgr.GetPlane(0).data[bgr.GetPlane(0).rowStride + 0], 16 + 2);

  const std::string swap = Helpers + "SwapChannels";
  CmReferenceCountingImageAllocator yuv;
  yuv.Allocate(3, 2, YCbCr444_Planar);
  ExpectError([&] { SwapChannels(yuv); }, "Unable to swap color channels in the given format", 1,
              swap);
  CmReferenceCountingImageAllocator small;
  small.Allocate(2, 2, BGR24);
  ExpectError([&] { SwapChannels(rgb, small); },
              "Unable to swap color channels between the given allocator dimensions", 1, swap);
  CmReferenceCountingImageAllocator same;
  same.Allocate(3, 2, RGB24);
  ExpectError([&] { SwapChannels(rgb, same); },
              "Unable to swap color channels between the given formats", 1, swap);
  ExpectError([&] { SetAlphaChannel(rgb, 1); },
              "The given colour format doesn't have an alpha channel", 1,
              Helpers + "SetAlphaChannel");

  CmReferenceCountingImageAllocator g;
  g.Allocate(3, 3, YCbCr420_Planar);
  SetPlane(128, g.GetWriteablePlane(1));
  EXPECT_EQ(g.GetPlane(1).GetPixelAddress(1, 1)[0], 128);
  EXPECT_THROW(SetPlane(1, rgb.GetWriteablePlane(0)), NmError::CmIntegrityError);
}

TEST(ImageBufferHelpers, ThrowStatusSortsStatuses) {
  EXPECT_NO_THROW(ThrowStatus(0));
  EXPECT_NO_THROW(ThrowStatus(12));
  EXPECT_THROW(ThrowStatus(-9), std::bad_alloc);
  try {
    ThrowStatus(-4);
    ADD_FAILURE();
  } catch (const std::bad_alloc& error) {
    EXPECT_STREQ(error.what(), "bad allocation");
  }
  try {
    ThrowStatus(-7);
    ADD_FAILURE();
  } catch (const CmSPLError& error) {
    EXPECT_EQ(error.GetStatus(), -7);
    EXPECT_EQ(error.GetErrorCode(), 2u);
    EXPECT_EQ(error.GetDescription(), "Signal Primitives Library (SPL) error -7");
    EXPECT_EQ(error.GetLocation().rfind("NmMediaProcessing::ThrowStatus (line ", 0), 0u);
  }
}
