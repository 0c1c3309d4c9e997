#include <gtest/gtest.h>

#include "MediaProcessing/Image/CairoImageAllocator.h"
#include "MediaProcessing/Image/ReferenceCountingImageAllocator.h"
#include "MediaProcessing/Image/VideoProcessingError.h"
#include "support/ImageTestSupport.h"

using namespace NmMediaProcessing;
using NmImageTest::ExpectError;

namespace {
void PaintRectangle(cairo_t* context, double r, double g, double b, int x, int y, int w, int h) {
  cairo_set_source_rgb(context, r, g, b);
  cairo_rectangle(context, x, y, w, h);
  cairo_fill(context);
}
} // namespace

TEST(CairoImageAllocator, AllocatesOneUprightPlaneAndCopiesCropsAndSwaps) {
  CmCairoImageAllocator allocator;
  EXPECT_EQ(allocator.GetColorFormat(), ColorFormatNone);
  // One missing-image check stands for all: they share the message.
  ExpectError([&] { allocator.GetHandle(); }, "No image is allocated", 1);
  allocator.Allocate(5, 3, BGR32);
  ASSERT_EQ(allocator.GetPlaneCount(), 1u);
  EXPECT_EQ(allocator.GetAlignment(), 4u);
  EXPECT_EQ(allocator.GetPlane(0).rowStride, 20u);
  EXPECT_EQ(allocator.GetPlane(0).bytesPerPixel, 3u);
  ExpectError([&] { allocator.GetPlane(1); }, "Plane index out of range", 2);

  // Red painted at the top left lands in row 0 as B G R.
  PaintRectangle(allocator.GetHandle(), 1, 0, 0, 0, 0, 2, 1);
  PaintRectangle(allocator.GetHandle(), 0, 0, 1, 4, 2, 1, 1);
  const auto painted = allocator.GetPlane(0);
  EXPECT_EQ(painted.data[0] + painted.data[1], 0);
  EXPECT_EQ(painted.data[2], 255);
  EXPECT_EQ(painted.GetPixelAddress(4, 2)[0], 255);
  EXPECT_EQ(painted.GetPixelAddress(4, 2)[2], 0);
  // The last pixel is addressable, the one past it is not.
  ExpectError([&] { painted.GetPixelAddress(5, 2); }, "Argument x out of range", 2);
  ExpectError([&] { painted.GetPixelAddress(4, 3); }, "Argument y out of range", 2);

  // Same geometry keeps the pixels; an alignment that keeps the stride passes.
  allocator.Allocate(5, 3, BGR32, 2);
  EXPECT_EQ(allocator.GetAlignment(), 2u);
  EXPECT_EQ(allocator.GetPlane(0).data[2], 255);
  allocator.Allocate(8, 2, BGRA, 32);
  EXPECT_EQ(allocator.GetPlane(0).bytesPerPixel, 4u);
  allocator.ReinterpretFormat(BGRA);
  ExpectError([&] { allocator.ReinterpretFormat(BGR32); },
              "Cannot change color format on this device", 2);

  ExpectError([&] { allocator.Allocate(0, 1, BGR32); }, "Image width is out of range", 2);
  ExpectError([&] { allocator.Allocate(1, 0, BGR32); }, "Image height is out of range", 2);
  ExpectError([&] { allocator.Allocate(1, 32768, BGR32); }, "Image height is out of range", 2);
  // Cairo stores B G R X only; and rows of four-byte pixels cannot be padded
  // further.
  for (const ColorFormat format : {Gray, RGB24, BGR24, RGB32, RGBA, YCbCr420_Planar}) {
    ExpectError<CmVideoProcessingError>([&] { allocator.Allocate(4, 4, format); },
                                        "Device does not support the given color format", 2);
  }
  ExpectError<CmVideoProcessingError>([&] { allocator.Allocate(3, 4, BGR32, 32); },
                                      "Device does not support the requested alignment", 2);
  // Failures leave the old surface in place.
  EXPECT_EQ(allocator.GetPlane(0).width, 8u);
  allocator.Allocate(32767, 1, BGR32);
  EXPECT_EQ(allocator.GetPlane(0).rowStride, 4u * 32767);
  allocator.Clear();
  EXPECT_EQ(allocator.GetPlaneCount(), 0u);

  CmCairoImageAllocator source;
  source.Allocate(6, 4, BGR32);
  PaintRectangle(source.GetHandle(), 0, 0, 0, 0, 0, 6, 4);
  PaintRectangle(source.GetHandle(), 0, 1, 0, 2, 1, 1, 1);
  source.Crop(2, 1, 3, 2);
  const auto cropped = source.GetPlane(0);
  EXPECT_EQ(cropped.width, 3u);
  EXPECT_EQ(cropped.data[1], 255); // green at the crop's origin
  ExpectError([&] { source.Crop(0, 0, 4, 1); }, "Clipping region is outside plane", 3);

  // Between two surfaces the copy is of what the source shows.
  CmCairoImageAllocator copy;
  copy.CopyFrom(source);
  ASSERT_EQ(copy.GetPlane(0).height, 2u);
  EXPECT_EQ(copy.GetPlane(0).data[1], 255);
  EXPECT_EQ(copy.GetPlane(0).GetPixelAddress(1, 0)[1], 0);

  // From plain memory, pixel by pixel.
  CmReferenceCountingImageAllocator plain;
  plain.Allocate(2, 2, BGRA);
  auto p = plain.GetWriteablePlane(0);
  for (int i = 0; i < 4; ++i) {
    p.data[(i / 2) * p.rowStride + (i % 2) * 4 + 0] = static_cast<uint8_t>(10 + i);
  }
  CmCairoImageAllocator fromPlain;
  fromPlain.CopyFrom(plain);
  EXPECT_EQ(fromPlain.GetColorFormat(), BGRA);
  EXPECT_EQ(fromPlain.GetPlane(0).GetPixelAddress(1, 1)[0], 13);
  CmReferenceCountingImageAllocator rgb;
  rgb.Allocate(2, 2, RGB24);
  ExpectError<CmVideoProcessingError>([&] { fromPlain.CopyFrom(rgb); },
                                      "Device does not support the given color format", 2);
  CmReferenceCountingImageAllocator nothing;
  fromPlain.CopyFrom(nothing);
  EXPECT_EQ(fromPlain.GetPlaneCount(), 0u);

  // A swap with plain memory moves the pixels both ways.
  CmCairoImageAllocator surface;
  surface.Allocate(1, 1, BGR32);
  PaintRectangle(surface.GetHandle(), 0, 0, 1, 0, 0, 1, 1);
  surface.Swap(plain);
  EXPECT_EQ(surface.GetPlane(0).GetPixelAddress(1, 0)[0], 11);
  EXPECT_EQ(plain.GetPlane(0).data[0], 255);
  // Between surfaces everything changes hands.
  surface.Swap(copy);
  EXPECT_EQ(surface.GetPlane(0).width, 3u);
  EXPECT_EQ(copy.GetColorFormat(), BGRA);
}
