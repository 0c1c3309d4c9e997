#include <gtest/gtest.h>

#include <memory>

#include "Toolkits/VZKSourceToolkitPlugin/Items/ImageData.h"
#include "Toolkits/VZKSourceToolkitPlugin/Items/SharedData.h"

using namespace NmToolkit;
using namespace NmMediaProcessing;

namespace {

TEST(ImageDataTest, AnswersEveryImageOperationAndNeverThrows) {
  const CmImageData none{CmImage(), CmVZKSourceToolkitProperties()};
  EXPECT_EQ(none.GetPlaneStride(0), 0u);

  CmImage image;
  image.Allocate(33, 17, YCbCr420_Planar);
  image.GetAttributes().timeStamp = NmTimeStamp::CmTimeStamp::FromMilliseconds(1700000000040);
  image.GetAttributes().interlacing = static_cast<Interlacing>(3);
  image.GetAttributes().aspectRatio = 12.0 / 11.0;
  CmVZKSourceToolkitProperties properties;
  properties.SetProperty("Transcoded", std::make_unique<CmBooleanProperty>(true));
  auto item = std::make_shared<CmImageData>(image, properties);
  properties.SetProperty("Transcoded", std::make_unique<CmBooleanProperty>(false));
  EXPECT_TRUE(dynamic_cast<const ImBooleanProperty*>(item->GetProperty("Transcoded"))->GetValue())
      << "the properties were copied at construction";
  EXPECT_EQ(item->GetEndTime(), 1700000000040);
  EXPECT_EQ(item->GetInterlacing(), 3u);
  EXPECT_DOUBLE_EQ(item->GetPixelAspectRatio(), 12.0 / 11.0);
  EXPECT_EQ(item->GetPlaneWidth(1), 17u) << "chroma is half the width, rounded up";
  EXPECT_EQ(item->GetPlanePointer(3), nullptr) << "a plane that does not exist answers 0";

  // A shared wrapper is an image too and keeps the item alive.
  std::unique_ptr<ImData> wrapper(WrapSharedData(item));
  const auto* shared = dynamic_cast<const ImImage*>(wrapper.get());
  ASSERT_NE(shared, nullptr);
  const uint8_t* plane = item->GetPlanePointer(0);
  item.reset();
  EXPECT_EQ(shared->GetPlanePointer(0), plane);
  EXPECT_EQ(shared->GetPlaneHeight(1), 9u);
}

} // namespace
