#include <gtest/gtest.h>

#include <cstring>
#include <thread>

#include "Image/ImageFixtures.h"
#include "MediaProcessing/Image/ReferenceCountingImageAllocator.h"
#include "MediaProcessing/Image/StaticImageAllocator.h"

using namespace NmMediaProcessing;
using NmImageTest::ExpectError;
using NmImageTest::ExpectRefusals;

using NmImageTest::FillPattern;

TEST(ReferenceCountingImageAllocator, RefusesBadArgumentsInOrderAndMissingImages) {
  CmReferenceCountingImageAllocator a;
  EXPECT_FALSE(MatchesAlignment(a, 0));
  const std::string name = "NmMediaProcessing::CmReferenceCountingImageAllocator::Allocate";
  const std::string none = "No image is allocated";
  const auto allocate = [&a](uint64_t width, uint64_t height, int format, uint64_t alignment) {
    return [&a, width, height, format, alignment] {
      a.Allocate(width, height, static_cast<ColorFormat>(format), alignment);
    };
  };
  ExpectRefusals({
      {allocate(0, 1, Gray, 32), "Image width is out of range", 2, name},
      {allocate(32768, 1, Gray, 32), "Image width is out of range", 2, name},
      {allocate(1, 0, Gray, 32), "Image height is out of range", 2, name},
      {allocate(1, 32768, Gray, 32), "Image height is out of range", 2, name},
      {allocate(1, 1, Gray, 65537), "Image alignment is out of range", 2, name},
      {allocate(0, 0, Gray, 65537), "Image width is out of range", 2, name},
      {allocate(1, 1, 10, 32), "Unsupported color format", 2, name},
      {allocate(1, 1, ColorFormatNone, 32), "Unsupported color format", 2, name},
      {[&] { (void)a.GetColorFormat(); }, none, 1},
      {[&] { (void)a.GetPlane(0); }, none, 1},
      {[&] { a.Crop(0, 0, 1, 1); }, none, 1},
      {[&] { a.ReinterpretFormat(Gray); }, none, 1},
  });
  a.Allocate(32767, 1, Gray);
  a.Allocate(1, 32767, Gray);
  a.Allocate(3, 2, RGB24, 65536);
  EXPECT_EQ(a.GetPlane(0).rowStride, 65536u);
  EXPECT_EQ(reinterpret_cast<uintptr_t>(a.GetPlane(0).data) % 65536, 0u);
  a.Allocate(2, 2, YCbCr444_Planar);
  ExpectRefusals({
      {[&] { (void)a.GetPlane(3); }, "Plane index out of range", 2},
      {[&] { (void)a.GetWriteablePlane(3); }, "Plane index out of range", 2},
      {[&] { (void)a.IsSharedPlane(3); }, "Plane index out of range", 2},
  });
}

TEST(ReferenceCountingImageAllocator, SharingAndCopyOnWriteAlsoForConcurrentWriters) {
  CmReferenceCountingImageAllocator a;
  a.Allocate(9, 4, YCbCr420_Planar);
  FillPattern(a);
  CmReferenceCountingImageAllocator b;
  b.CopyFrom(a);
  EXPECT_TRUE(a.IsSharedPlane(2));
  // Re-allocating at the same geometry keeps the shared planes; only the write splits them.
  b.Allocate(9, 4, YCbCr420_Planar);
  EXPECT_TRUE(b.IsSharedPlane(1));
  EXPECT_EQ(b.GetPlane(1).data, a.GetPlane(1).data);
  const auto written = b.GetWriteablePlane(1);
  EXPECT_NE(written.data, a.GetPlane(1).data);
  EXPECT_FALSE(a.IsSharedPlane(1));
  EXPECT_TRUE(a.IsSharedPlane(0));
  EXPECT_EQ(written.data[written.rowStride + 2], a.GetPlane(1).data[a.GetPlane(1).rowStride + 2]);
  // A different alignment is a different geometry.
  b.Allocate(9, 4, YCbCr420_Planar, 64);
  EXPECT_NE(b.GetPlane(0).data, a.GetPlane(0).data);
  EXPECT_FALSE(a.IsSharedPlane(0));

  // A cropped shared plane stays cropped in its private copy.
  CmReferenceCountingImageAllocator c;
  c.CopyFrom(a);
  c.Crop(3, 2, 4, 2);
  EXPECT_TRUE(c.IsSharedPlane(0));
  const auto cropped = c.GetWriteablePlane(0);
  EXPECT_EQ(std::make_pair(cropped.width, cropped.height), std::make_pair(4ul, 2ul));
  EXPECT_EQ(cropped.data[cropped.rowStride + 3], a.GetPlane(0).GetPixelAddress(6, 3)[0]);
  const auto chroma = c.GetWriteablePlane(2);
  EXPECT_EQ(chroma.data[0], a.GetPlane(2).GetPixelAddress(1, 1)[0]);

  CmReferenceCountingImageAllocator origin;
  origin.Allocate(64, 64, Gray);
  FillPattern(origin);
  std::vector<CmReferenceCountingImageAllocator> copies(4);
  for (auto& copy : copies) {
    copy.CopyFrom(origin);
  }
  std::vector<std::thread> threads;
  for (size_t t = 0; t < copies.size(); ++t) {
    threads.emplace_back([&, t] {
      for (int round = 0; round < 50; ++round) {
        CmReferenceCountingImageAllocator local;
        local.CopyFrom(copies[t]);
        local.GetWriteablePlane(0).data[0] = static_cast<uint8_t>(t);
      }
      copies[t].GetWriteablePlane(0).data[0] = static_cast<uint8_t>(100 + t);
    });
  }
  for (auto& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(origin.GetPlane(0).data[0], 0);
  for (size_t t = 0; t < copies.size(); ++t) {
    EXPECT_EQ(copies[t].GetPlane(0).data[0], 100 + t);
    EXPECT_FALSE(copies[t].IsSharedPlane(0));
  }
  EXPECT_FALSE(origin.IsSharedPlane(0));
}

TEST(ReferenceCountingImageAllocator, CropOfEveryShape) {
  CmReferenceCountingImageAllocator a;
  a.Allocate(10, 8, YCbCr420_Planar);
  FillPattern(a);
  const auto chromaBefore = a.GetPlane(1);
  // Odd x rounds the chroma x down and its width up.
  a.Crop(3, 3, 5, 3);
  EXPECT_EQ(a.GetPlane(1).width, 3u);
  EXPECT_EQ(a.GetPlane(1).height, 2u);
  EXPECT_EQ(a.GetPlane(1).data, chromaBefore.data + 1 + chromaBefore.rowStride);

  CmReferenceCountingImageAllocator b;
  b.Allocate(10, 8, YCbCr422_Planar);
  b.Crop(2, 1, 3, 7);
  EXPECT_EQ(b.GetPlane(2).width, 2u);

  // A rectangle outside the luma changes nothing.
  CmReferenceCountingImageAllocator c;
  c.Allocate(10, 4, YCbCr420_Planar);
  const auto lumaBefore = c.GetPlane(0);
  ExpectError([&] { c.Crop(3, 0, 8, 4); }, "Clipping region is outside plane", 3);
  EXPECT_EQ(c.GetPlane(0).data, lumaBefore.data);
  EXPECT_EQ(c.GetPlane(1).width, 5u);
  ExpectError([&] { c.Crop(0, 0, 0, 4); }, "Clipping region is empty", 2);
  ExpectError([&] { c.Crop(0, 1, 1, 4); }, "Clipping region is outside plane", 3);

  CmReferenceCountingImageAllocator d;
  d.Allocate(4, 4, RGBA);
  const auto before = d.GetPlane(0);
  d.Crop(1, 2, 3, 2);
  EXPECT_EQ(d.GetPlane(0).data, before.data + 4 + 2 * before.rowStride);
  EXPECT_TRUE(MatchesAlignment(d, 32)); // 12 bytes still round to 32
  EXPECT_FALSE(MatchesAlignment(d, 16));
  EXPECT_TRUE(MatchesAlignment(d, 0));
}

TEST(ReferenceCountingImageAllocator, ReinterpretFormatTable) {
  CmReferenceCountingImageAllocator a;
  a.Allocate(5, 3, RGBA);
  a.ReinterpretFormat(RGB32);
  EXPECT_EQ(a.GetPlane(0).bytesPerPixel, 3u);
  EXPECT_EQ(a.GetPlane(0).pixelStride, 4u);
  a.ReinterpretFormat(BGRA);
  EXPECT_EQ(a.GetPlane(0).bytesPerPixel, 4u);
  ExpectError([&] { a.ReinterpretFormat(RGB24); }, "Invalid color format conversion", 2);
  ExpectError([&] { a.ReinterpretFormat(static_cast<ColorFormat>(10)); }, "Unknown color format",
              2);

  a.Allocate(5, 3, RGB24);
  a.ReinterpretFormat(BGR24);
  EXPECT_EQ(a.GetColorFormat(), BGR24);
  ExpectError([&] { a.ReinterpretFormat(Gray); }, "Invalid color format conversion", 2);
  ExpectError([&] { a.ReinterpretFormat(BGRA); }, "Invalid color format conversion", 2);

  a.Allocate(11, 5, Gray, 16);
  const uint8_t* luma = a.GetPlane(0).data;
  a.ReinterpretFormat(YCbCr420_Planar);
  ASSERT_EQ(a.GetPlaneCount(), 3u);
  EXPECT_EQ(a.GetPlane(0).data, luma);
  EXPECT_EQ(std::make_pair(a.GetPlane(1).width, a.GetPlane(2).height), std::make_pair(6ul, 3ul));
  EXPECT_EQ(a.GetPlane(1).rowStride, 16u);
  a.ReinterpretFormat(Gray);
  EXPECT_EQ(a.GetPlaneCount(), 1u);
  a.ReinterpretFormat(YCbCr422_Planar);
  EXPECT_EQ(a.GetPlane(1).height, 5u);
  ExpectError([&] { a.ReinterpretFormat(YCbCr444_Planar); }, "Invalid color format conversion", 2);
}

TEST(ReferenceCountingImageAllocator, SwapAndForeignCopies) {
  CmReferenceCountingImageAllocator a;
  a.Allocate(3, 3, Gray);
  FillPattern(a);
  CmReferenceCountingImageAllocator b;
  b.Allocate(2, 2, RGB24);
  const uint8_t* aData = a.GetPlane(0).data;
  a.Swap(b);
  EXPECT_EQ(a.GetColorFormat(), RGB24);
  EXPECT_EQ(b.GetPlane(0).data, aData);

  std::vector<uint8_t> buffer(16 * 2);
  for (size_t i = 0; i < buffer.size(); ++i) {
    buffer[i] = static_cast<uint8_t>(i);
  }
  CmStaticImageAllocator wrapped(5, 2, RGB24, {{16, buffer.data()}});
  CmReferenceCountingImageAllocator copy;
  copy.CopyFrom(wrapped);
  EXPECT_NE(copy.GetPlane(0).data, buffer.data());
  EXPECT_EQ(copy.GetPlane(0).GetPixelAddress(4, 1)[2], buffer[16 + 14]);

  // Swapping with a static buffer moves pixels into the buffer and out of it.
  CmReferenceCountingImageAllocator other;
  other.Allocate(5, 2, RGB24);
  std::memset(other.GetWriteablePlane(0).data, 200, other.GetPlane(0).rowStride * 2);
  other.Swap(wrapped);
  EXPECT_EQ(buffer[16 + 14], 200);
  EXPECT_EQ(buffer[15], 15); // the stride gap is left alone
  EXPECT_EQ(other.GetPlane(0).GetPixelAddress(4, 1)[2], 16 + 14);
}
