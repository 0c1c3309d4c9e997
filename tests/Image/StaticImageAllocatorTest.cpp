#include <gtest/gtest.h>

#include "Image/ImageFixtures.h"
#include "MediaProcessing/Image/StaticImageAllocator.h"

using namespace NmMediaProcessing;

namespace {

using Buffers = std::vector<std::pair<uint64_t, uint8_t*>>;

// A refused call and both codes of the static allocator's error class.
struct SmStaticRefusal {
  std::function<void()> call;
  std::string message;
  uint32_t ownCode, baseCode;
};

void ExpectStaticErrors(const std::vector<SmStaticRefusal>& refusals) {
  for (const SmStaticRefusal& r : refusals) {
    try {
      r.call();
      ADD_FAILURE() << "expected \"" << r.message << "\"";
    } catch (const CmStaticImageAllocationError& error) {
      EXPECT_EQ(error.GetDescription(), r.message);
      EXPECT_EQ(error.GetErrorCode(), r.ownCode) << r.message;
      EXPECT_EQ(error.GetBaseErrorCode(), r.baseCode) << r.message;
    }
  }
}

// Wraps the buffers, for calls that are to be refused.
std::function<void()> Wrap(uint64_t width, uint64_t height, ColorFormat format, Buffers buffers) {
  return [=] { CmStaticImageAllocator(width, height, format, buffers); };
}

} // namespace

TEST(StaticImageAllocator, ConstructionChecksEveryPlane) {
  std::vector<uint8_t> memory(4096);
  uint8_t* p = memory.data();
  CmStaticImageAllocator a(7, 3, YCbCr420_Planar, Buffers{{8, p}, {4, p + 100}, {5, p + 200}});
  const std::string count = "Plane count doesn't match color format";
  const std::string stride = "Row stride is too small for width and color format";
  ExpectStaticErrors({
      {Wrap(4, 4, YCbCr420_Planar, {{4, p}}), count, 0, 3},
      {Wrap(4, 4, Gray, {{4, p}, {4, p}}), count, 0, 3},
      {Wrap(4, 4, static_cast<ColorFormat>(11), {{4, p}}), "Unknown image color format", 0, 2},
      {Wrap(4, 4, Gray, {{4, nullptr}}), "Static buffer pointer cannot be NULL", 0, 2},
      {Wrap(0, 4, Gray, {{4, p}}), "Image width is out of range", 0, 2},
      {Wrap(32768, 4, Gray, {{40000, p}}), "Image width is out of range", 0, 2},
      {Wrap(4, 32768, Gray, {{4, p}}), "Image height is out of range", 0, 2},
      {Wrap(4, 4, RGB32, {{15, p}}), stride, 0, 3},
      // The chroma of 4:2:0 at width 7 needs 4 bytes a row.
      {Wrap(7, 2, YCbCr420_Planar, {{8, p}, {3, p}, {4, p}}), stride, 0, 3},
      {[&] { (void)a.GetPlane(3); }, "Plane index out of range", 0, 2},
      {[&] { (void)a.GetWriteablePlane(3); }, "Plane index out of range", 0, 2},
  });
  // The largest side the limit allows still wraps.
  std::vector<uint8_t> longRow(32767);
  EXPECT_NO_THROW(CmStaticImageAllocator(32767, 1, Gray, Buffers{{32767, longRow.data()}}));
  // A static allocator's errors are integrity errors to catchers that know no more.
  EXPECT_THROW(Wrap(4, 4, Gray, {{4, nullptr}})(), NmError::CmIntegrityError);
  EXPECT_EQ(a.GetPlane(2).width, 4u);
  EXPECT_EQ(a.GetPlane(2).data, p + 200);
  EXPECT_FALSE(a.IsAllocated());
}

TEST(StaticImageAllocator, AllocateOnlyAcceptsWhatIsThere) {
  std::vector<uint8_t> memory(4096);
  uint8_t* p = memory.data();
  CmStaticImageAllocator a(100, 2, Gray, Buffers{{128, p}});
  // Planes that agree on nothing.
  CmStaticImageAllocator mixed(4, 2, YCbCr444_Planar, Buffers{{4, p}, {5, p}, {6, p}});
  CmStaticImageAllocator planar(7, 3, YCbCr422_Planar, Buffers{{8, p}, {4, p}, {4, p}});
  const std::string none = "No alignment is available, since no allocation has been made";
  const std::string mismatch = "No alignment can be found that matches all the given row strides";
  ExpectStaticErrors({
      {[&] { (void)a.GetAlignment(); }, none, 1, 1},
      {[&] { a.Allocate(100, 2, RGB24); }, "Color format cannot be changed during allocation", 1,
       2},
      {[&] { a.Allocate(99, 2, Gray); }, "Image size cannot be changed during allocation", 1, 2},
      {[&] { a.Allocate(100, 2, Gray, 256); },
       "Alignment doesn't match the static buffer row stride", 1, 2},
      {[&] { (void)mixed.GetDefaultAlignment(); }, mismatch, 1, 2},
      {[&] { planar.Allocate(8, 3, YCbCr422_Planar); },
       "Plane size cannot be changed during allocation", 1, 2},
  });
  EXPECT_FALSE(a.IsAllocated());
  a.Allocate(100, 2, Gray);
  EXPECT_TRUE(a.IsAllocated());
  EXPECT_EQ(a.GetAlignment(), 32u); // the first power of two that rounds 100 to 128
  a.Allocate(100, 2, Gray, 64);
  EXPECT_EQ(a.GetAlignment(), 64u);
  a.Clear();
  EXPECT_FALSE(mixed.FindAlignment().has_value());
  mixed.Allocate(4, 2, YCbCr444_Planar);
  planar.Allocate(7, 3, YCbCr422_Planar);
  EXPECT_EQ(planar.GetAlignment(), 2u); // rounds 7 to 8 and keeps 4
  ExpectStaticErrors({{[&] { (void)a.GetAlignment(); }, none, 1, 1},
                      {[&] { (void)mixed.GetAlignment(); }, mismatch, 1, 2}});

  EXPECT_EQ(CmStaticImageAllocator(100, 1, Gray, Buffers{{100, p}}).FindAlignment(), 1u);
  // Stride 100 for width 30 of RGB24 (90 bytes) fits no power of two but itself.
  CmStaticImageAllocator odd(30, 1, RGB24, Buffers{{100, p}});
  EXPECT_EQ(odd.GetDefaultAlignment(), 100u);
}

TEST(StaticImageAllocator, CopiesSwapsCropsAndRelabelsInPlace) {
  std::vector<uint8_t> memory(64, 0);
  CmStaticImageAllocator a(3, 2, RGB24, Buffers{{12, memory.data()}});
  auto source = NmImageTest::Allocated(3, 2, RGB24);
  for (uint64_t y = 0; y < 2; ++y) {
    for (uint64_t x = 0; x < 9; ++x) {
      source.GetWriteablePlane(0).data[y * source.GetPlane(0).rowStride + x] =
          static_cast<uint8_t>(1 + y * 9 + x);
    }
  }
  a.CopyFrom(source);
  EXPECT_TRUE(a.IsAllocated());
  EXPECT_EQ(memory[0], 1);
  EXPECT_EQ(memory[12 + 8], 18);
  EXPECT_EQ(memory[9], 0); // stride gap untouched

  std::vector<uint8_t> rgba(32, 0);
  CmStaticImageAllocator b(2, 2, RGBA, Buffers{{8, rgba.data()}});
  b.ReinterpretFormat(BGR32);
  EXPECT_EQ(b.GetPlane(0).bytesPerPixel, 3u);
  EXPECT_EQ(b.GetPlane(0).pixelStride, 4u);
  CmStaticImageAllocator g(4, 2, Gray, Buffers{{4, memory.data()}});
  const std::string invalid = "Invalid color format conversion";
  ExpectStaticErrors({
      {[&] { a.CopyFrom(NmImageTest::Allocated(4, 2, RGB24)); },
       "Image size cannot be changed during allocation", 1, 2},
      {[&] { a.ReinterpretFormat(RGBA); }, invalid, 0, 2},
      {[&] { a.ReinterpretFormat(static_cast<ColorFormat>(12)); }, "Unknown color format", 0, 2},
      {[&] { g.ReinterpretFormat(YCbCr420_Planar); }, invalid, 0, 2},
  });
  a.ReinterpretFormat(BGR24);
  EXPECT_EQ(a.GetColorFormat(), BGR24);

  // Adopting another allocator's planes does not copy them.
  CmStaticImageAllocator adopted(source);
  EXPECT_EQ(adopted.GetPlane(0).data, source.GetPlane(0).data);
  adopted.Crop(1, 1, 2, 1);
  EXPECT_EQ(adopted.GetPlane(0).data[0], 1 + 9 + 3);
  EXPECT_EQ(source.GetPlane(0).width, 3u);

  // A crop moves every plane, or none when it does not fit.
  uint8_t* p = memory.data();
  CmStaticImageAllocator planar(9, 4, YCbCr420_Planar, Buffers{{9, p}, {5, p + 40}, {5, p + 50}});
  EXPECT_THROW(planar.Crop(3, 0, 7, 4), NmError::CmIntegrityError);
  EXPECT_EQ(planar.GetPlane(0).width, 9u);
  planar.Crop(2, 2, 4, 2);
  EXPECT_EQ(planar.GetPlane(0).data, p + 2 + 2 * 9);
  EXPECT_EQ(planar.GetPlane(1).data, p + 40 + 1 + 5);
  EXPECT_EQ(planar.GetPlane(2).height, 1u);
}
