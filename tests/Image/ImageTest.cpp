#include <gtest/gtest.h>

#include "Image/ImageFixtures.h"
#include "MediaProcessing/Image/Image.h"
#include "MediaProcessing/Image/ReferenceCountingImageAllocator.h"
#include "MediaProcessing/Image/StaticImageAllocator.h"

using namespace NmMediaProcessing;
using NmImageTest::Column;
using NmImageTest::ExpectError;
using NmImageTest::ExpectRefusals;
using NmImageTest::Sample;

namespace {

class CmTaggedAttributes : public ImImageAttributes {
public:
  explicit CmTaggedAttributes(int tag) : m_Tag(tag) {}
  CmTaggedAttributes* Clone() const override { return new CmTaggedAttributes(*this); }
  int m_Tag;
};

void FillPattern(CmImage& image) {
  NmImageTest::FillPattern(image.Allocator());
}

} // namespace

TEST(Image, EmptyImageRefusesPixelAccessAllocateResetsAttributes) {
  CmImage image;
  EXPECT_FALSE(image.IsValid());
  EXPECT_EQ(image.GetWidth() + image.GetHeight(), 0u);
  EXPECT_EQ(image.GetAlignment(), 32u); // the default allocator's default
  const CmImage& constant = image;
  const std::string name = "NmMediaProcessing::CmBaseImage::";
  ExpectRefusals({
      {[&] { (void)image.GetColorFormat(); }, "No valid image data", 1, name + "GetColorFormat"},
      {[&] { (void)image.Allocator(); }, "No valid image data", 1, name + "Allocator"},
      {[&] { (void)constant.Allocator(); }, "No valid image data", 1, name + "Allocator"},
  });

  image.Allocate(64, 48, YCbCr420_Planar);
  const uint8_t* before = image.Allocator().GetPlane(2).data;
  image.GetAttributes().aspectRatio = 2.0;
  image.GetAttributes().interlacing = InterleavedTopFirst;
  image.GetAttributes().attribute3 = 7;
  image.SetExtendedAttributes(std::make_unique<CmTaggedAttributes>(3));
  image.Allocate(64, 48, YCbCr420_Planar);
  EXPECT_EQ(image.Allocator().GetPlane(2).data, before);
  EXPECT_EQ(image.GetAttributes().aspectRatio, 1.0);
  EXPECT_EQ(image.GetAttributes().attribute3, 0u);
  EXPECT_EQ(image.GetExtendedAttributes(), nullptr);
  image.Allocate(64, 48, YCbCr420_Planar, 64);
  EXPECT_EQ(image.GetAlignment(), 64u);
  // A failing allocation leaves the image as it was.
  ExpectError([&] { image.Allocate(0, 48, Gray); }, "Image width is out of range", 2);
  EXPECT_EQ(image.GetColorFormat(), YCbCr420_Planar);
}

TEST(Image, CopiesSharePlanesAllocatorsAndAttributesHandOver) {
  CmImage source;
  source.Allocate(10, 6, RGB24);
  FillPattern(source);
  source.GetAttributes().aspectRatio = 0.5;
  source.SetExtendedAttributes(std::make_unique<CmTaggedAttributes>(9));

  CmImage copy(source);
  EXPECT_TRUE(source.Allocator().IsSharedPlane(0));
  EXPECT_EQ(copy.GetAttributes().aspectRatio, 0.5);
  ASSERT_NE(copy.GetExtendedAttributes(), nullptr);
  EXPECT_NE(copy.GetExtendedAttributes(), source.GetExtendedAttributes());
  EXPECT_EQ(dynamic_cast<const CmTaggedAttributes&>(*copy.GetExtendedAttributes()).m_Tag, 9);

  // A copy from a foreign allocator copies pixels: nobody knows how long they live.
  std::vector<uint8_t> buffer(4 * 3, 5);
  CmImage wrapped(std::make_unique<CmStaticImageAllocator>(
      4, 3, Gray, std::vector<std::pair<uint64_t, uint8_t*>>{{4, buffer.data()}}));
  CmImage detached(wrapped);
  EXPECT_NE(detached.Allocator().GetPlane(0).data, buffer.data());
  EXPECT_EQ(Sample(detached, 0, 3, 2), 5);

  // Assignment from an empty image empties the target; self-assignment does nothing.
  CmImage target(source);
  target = target;
  EXPECT_TRUE(target.IsValid());
  target = CmImage();
  EXPECT_FALSE(target.IsValid());
  EXPECT_EQ(target.GetExtendedAttributes(), nullptr);

  CmImage image;
  image.GetAttributes().aspectRatio = 3.0;
  auto allocator = std::make_unique<CmReferenceCountingImageAllocator>();
  allocator->Allocate(7, 5, BGRA);
  const uint8_t* pixels = allocator->GetPlane(0).data;
  image.SetAllocator(std::move(allocator));
  EXPECT_EQ(image.GetAttributes().aspectRatio, 1.0);
  EXPECT_EQ(image.Allocator().GetPlane(0).data, pixels);
  std::unique_ptr<ImImageMemoryAllocation> released = image.ReleaseAllocator();
  EXPECT_FALSE(image.IsValid());
  EXPECT_EQ(released->GetPlane(0).data, pixels);

  // Releasing if shared drops only planes that another image holds too.
  image.Allocate(8, 8, YCbCr444_Planar);
  image.GetAttributes().aspectRatio = 2.0;
  image.ReleaseIfShared();
  EXPECT_TRUE(image.IsValid());
  EXPECT_EQ(image.GetAttributes().aspectRatio, 2.0);
  CmImage reader(image);
  image.ReleaseIfShared();
  EXPECT_FALSE(image.IsValid());
  EXPECT_EQ(image.GetAttributes().aspectRatio, 1.0);
  EXPECT_TRUE(reader.IsValid());
  EXPECT_FALSE(reader.Allocator().IsSharedPlane(0));

  // Copying attributes replaces the extended ones, or drops them.
  CmImage a;
  CmImage b;
  b.SetExtendedAttributes(std::make_unique<CmTaggedAttributes>(1));
  b.GetAttributes().orientation.rotation = 3;
  a.CopyAttributes(b);
  EXPECT_EQ(a.GetAttributes().orientation.rotation, 3u);
  ASSERT_NE(a.GetExtendedAttributes(), nullptr);
  b.CopyAttributes(CmImage());
  EXPECT_EQ(b.GetExtendedAttributes(), nullptr);
  EXPECT_EQ(b.GetAttributes().orientation.rotation, 0u);
}

TEST(Image, SplitFieldsRefusesWhatHasNoTwoFields) {
  CmImage image;
  image.Allocate(4, 4, Gray);
  CmImage first;
  CmImage second;
  const std::string name = "NmMediaProcessing::CmImage::SplitFields";
  const auto split = [&](int interlacing, uint64_t height) {
    return [&, interlacing, height] {
      image.Allocate(4, height, Gray);
      image.GetAttributes().interlacing = static_cast<Interlacing>(interlacing);
      image.SplitFields(first, second);
    };
  };
  ExpectRefusals({
      {split(Progressive, 4), "Cannot split fields in an image that is not interlaced", 2, name},
      {split(TopFieldOnly, 4), "Image doesn't contain a bottom field", 2, name},
      {split(BottomFieldOnly, 4), "Image doesn't contain a top field", 2, name},
      {split(7, 4), "Unknown interlacing format", 0, name},
      {split(InterleavedTopFirst, 1), "An image of height 1 doesn't contain two fields", 1, name},
  });
  EXPECT_FALSE(first.IsValid());
}

TEST(Image, SplitFieldsOfEveryLayout) {
  // Height 5: the top field has rows 0, 2, 4 and the bottom rows 1, 3.
  CmImage image;
  image.Allocate(3, 5, Gray);
  FillPattern(image);
  image.GetAttributes().interlacing = InterleavedTopFirst;
  image.GetAttributes().aspectRatio = 1.25;
  CmImage first;
  CmImage second;
  image.SplitFields(first, second);
  EXPECT_EQ(first.GetAttributes().interlacing, TopFieldOnly);
  EXPECT_EQ(second.GetAttributes().interlacing, BottomFieldOnly);
  EXPECT_EQ(second.GetAttributes().aspectRatio, 1.25);
  EXPECT_EQ(Column(first, 0, 2), Column(image, 0, 2, {0, 2, 4}));
  EXPECT_EQ(Column(second, 0, 1), Column(image, 0, 1, {1, 3}));

  // Bottom first puts the bottom field in the first argument.
  image.GetAttributes().interlacing = InterleavedBottomFirst;
  image.SplitFields(first, second);
  EXPECT_EQ(first.GetAttributes().interlacing, BottomFieldOnly);
  EXPECT_EQ(Column(first, 0, 0), Column(image, 0, 0, {1, 3}));

  // Separate fields of height 5: the bottom field begins at row 3.
  image.GetAttributes().interlacing = SeparateTopFirst;
  image.SplitFields(first, second);
  EXPECT_EQ(Column(first, 0, 0), Column(image, 0, 0, {0, 1, 2}));
  EXPECT_EQ(Column(second, 0, 0), Column(image, 0, 0, {3, 4}));

  // Stored upside down, picture row r is stored row 4 - r: with this odd
  // height the picture's top field stays on the even rows (4, 2, 0).
  image.GetAttributes().interlacing = InterleavedTopFirst;
  image.GetAttributes().orientation.flippedVertically = true;
  image.SplitFields(first, second);
  EXPECT_EQ(Column(first, 0, 0), Column(image, 0, 0, {0, 2, 4}));
  EXPECT_EQ(Column(second, 0, 0), Column(image, 0, 0, {1, 3}));
  EXPECT_TRUE(first.GetAttributes().orientation.flippedVertically);

  image.GetAttributes().orientation = Orientation();
  // Planar formats split every plane, each to its own height.
  image.Allocate(6, 8, YCbCr420_Planar);
  FillPattern(image);
  image.GetAttributes().interlacing = InterleavedTopFirst;
  image.SplitFields(first, second);
  EXPECT_EQ(Column(second, 1, 2), Column(image, 1, 2, {1, 3}));
  EXPECT_EQ(Column(first, 2, 0), Column(image, 2, 0, {0, 2}));
  image.Allocate(6, 5, YCbCr422_Planar);
  FillPattern(image);
  image.GetAttributes().interlacing = SeparateBottomFirst;
  image.SplitFields(first, second);
  EXPECT_EQ(Column(first, 2, 1), Column(image, 2, 1, {3, 4}));
  EXPECT_EQ(Column(second, 1, 1), Column(image, 1, 1, {0, 1, 2}));
}
