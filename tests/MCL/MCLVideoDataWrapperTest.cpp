#include <gtest/gtest.h>

#include <new>
#include <string>
#include <vector>

#include "Image/ImageFixtures.h"
#include "MCL/MCLTestSupport.h"
#include "MediaProcessing/Image/SPLError.h"
#include "MediaProcessing/Video/MCL/MCLError.h"
#include "MediaProcessing/Video/MCL/MCLPostProcessing.h"
#include "MediaProcessing/Video/MCL/MCLVideoDataWrapper.h"

namespace NmMCLTest {
namespace {

using namespace NmMediaProcessing;
using NmTimeStamp::CmTimeStamp;

TEST(MCLThrowStatusTest, StatusesBecomeTheirErrors) {
  EXPECT_NO_THROW(ThrowStatus(MCL::StatusOk));
  try {
    ThrowStatus(MCL::StatusNoMemory);
    ADD_FAILURE() << "no error";
  } catch (const std::bad_alloc& error) {
    EXPECT_STREQ(error.what(), "bad allocation");
  }
  for (const int32_t status : {-882, -879, -897, -995, -996, -998, -999, 1, 2, -4, -9}) {
    SCOPED_TRACE(status);
    const auto error =
        NmTestSupport::Caught<CmMCLError>([&] { ThrowStatus(static_cast<MCL::Status>(status)); });
    EXPECT_EQ(error->GetDescription(), "Media Codec Layer (MCL) error " + std::to_string(status));
    EXPECT_EQ(error->GetErrorCode(), 2u);
    EXPECT_EQ(error->GetStatus(), status);
    EXPECT_EQ(error->GetLocation().rfind("NmMediaProcessing::ThrowStatus (line ", 0), 0u);
    std::unique_ptr<NmError::CmError> clone(error->Clone());
    auto* copy = dynamic_cast<CmMCLError*>(clone.get());
    ASSERT_NE(copy, nullptr);
    EXPECT_EQ(copy->GetStatus(), status);
  }
  // The plane primitives keep their own meaning of small negative numbers.
  EXPECT_THROW(ThrowStatus(-9), std::bad_alloc);
  EXPECT_THROW(ThrowStatus(-5), CmSPLError);
  EXPECT_NO_THROW(ThrowStatus(3));
}

TEST(MCLVideoDataWrapperTest, FormatsMapBothWaysAndOddSizesAreRefused) {
  const std::vector<std::pair<ColorFormat, MCL::ColorFormat>> formats = {
      {Gray, MCL::GRAY},
      {BGR24, MCL::BGR24},
      {BGR32, MCL::BGR32},
      {BGRA, MCL::BGR32},
      {YCbCr420_Planar, MCL::YUV420},
      {YCbCr422_Planar, MCL::YUV422},
      {YCbCr444_Planar, MCL::YUV444},
  };
  for (const auto& [format, mcl] : formats) {
    SCOPED_TRACE(format);
    CmImage image = NmImageTest::MakeImage(6, 4, format);
    CmMCLVideoDataWrapper wrapper(image);
    EXPECT_EQ(wrapper.GetColorFormat(), mcl);
    EXPECT_EQ(wrapper.GetWidth(), 6);
    EXPECT_EQ(wrapper.GetHeight(), 4);
    EXPECT_EQ(wrapper.GetPlaneCount(), static_cast<int>(image.Allocator().GetPlaneCount()));
    for (int i = 0; i < wrapper.GetPlaneCount(); ++i) {
      const auto plane = image.Allocator().GetWriteablePlane(static_cast<uint64_t>(i));
      EXPECT_EQ(wrapper.GetPlanePointer(i), plane.data);
      EXPECT_EQ(wrapper.GetPlanePitch(i), plane.rowStride);
    }
    EXPECT_EQ(wrapper.GetAlignment(), image.GetAlignment());
    EXPECT_EQ(CmMCLVideoDataWrapper::FromMCLFormat(mcl), format == BGRA ? BGR32 : format);
  }
  for (const ColorFormat format : {RGB24, RGB32, RGBA}) {
    SCOPED_TRACE(format);
    CmImage image = NmImageTest::MakeImage(6, 4, format);
    NmImageTest::ExpectError([&] { CmMCLVideoDataWrapper wrapper(image); },
                             "Image format not supported for MCL operations", 2);
  }
  NmImageTest::ExpectError(
      [] { CmMCLVideoDataWrapper::FromMCLFormat(static_cast<MCL::ColorFormat>(13)); },
      "Image format not supported for MCL operations", 2);

  const std::string odd =
      "The combination of image format and dimensions is not supported for MCL operations";
  struct SmSize {
    ColorFormat format;
    uint64_t width, height;
    bool accepted;
  };
  for (const SmSize& size : std::vector<SmSize>{{YCbCr420_Planar, 7, 4, false},
                                                {YCbCr420_Planar, 6, 5, false},
                                                {YCbCr420_Planar, 6, 4, true},
                                                {YCbCr422_Planar, 7, 4, false},
                                                {YCbCr422_Planar, 6, 5, true},
                                                {YCbCr444_Planar, 7, 5, true},
                                                {Gray, 7, 5, true},
                                                {BGR24, 7, 5, true}}) {
    SCOPED_TRACE(testing::Message() << size.format << " " << size.width << "x" << size.height);
    CmImage image = NmImageTest::MakeImage(size.width, size.height, size.format);
    if (size.accepted) {
      CmMCLVideoDataWrapper wrapper(image);
      EXPECT_EQ(wrapper.GetWidth(), static_cast<int32_t>(size.width));
    } else {
      NmImageTest::ExpectError([&] { CmMCLVideoDataWrapper wrapper(image); }, odd, 3);
    }
  }

  // An image without planes describes nothing and refuses nothing.
  CmImage empty;
  empty.GetAttributes().interlacing = SeparateTopFirst;
  CmMCLVideoDataWrapper wrapper(empty);
  EXPECT_EQ(wrapper.GetColorFormat(), MCL::ColorFormatNone);
  EXPECT_EQ(wrapper.GetPlanePointer(0), nullptr);
}

TEST(MCLVideoDataWrapperTest, InterlacingAspectAndTimeMapBothWays) {
  const std::vector<std::pair<Interlacing, MCL::PictureStructure>> structures = {
      {Progressive, MCL::Frame},
      {InterleavedTopFirst, MCL::FrameTopFieldFirst},
      {InterleavedBottomFirst, MCL::FrameBottomFieldFirst},
      {TopFieldOnly, MCL::TopField},
      {BottomFieldOnly, MCL::BottomField},
  };
  for (const auto& [interlacing, structure] : structures) {
    SCOPED_TRACE(interlacing);
    CmImage image = NmImageTest::MakeImage(4, 4, Gray, 1, interlacing);
    CmMCLVideoDataWrapper wrapper(image);
    EXPECT_EQ(wrapper.GetPictureStructure(), structure);
    CmStandardImageAttributes back;
    wrapper.UpdateAttributes(back);
    EXPECT_EQ(back.interlacing, interlacing);
  }
  for (const Interlacing interlacing : {SeparateTopFirst, SeparateBottomFirst}) {
    CmImage image = NmImageTest::MakeImage(4, 4, Gray, 1, interlacing);
    NmImageTest::ExpectError([&] { CmMCLVideoDataWrapper wrapper(image); },
                             "Interlacing format not supported for MCL operations", 1);
  }
  CmImage image = NmImageTest::MakeImage(4, 4, Gray);
  CmMCLVideoDataWrapper wrapper(image);
  wrapper.SetPictureStructure(MCL::PictureStructureNone);
  CmStandardImageAttributes refused;
  NmImageTest::ExpectError([&] { wrapper.UpdateAttributes(refused); },
                           "Interlacing format not supported for MCL operations", 1);

  struct SmAspect {
    double ratio;
    int32_t horizontal, vertical;
  };
  for (const SmAspect& aspect : std::vector<SmAspect>{{1.0, 50000, 50000},
                                                      {2.0, 100000, 50000},
                                                      {0.5, 50000, 100000},
                                                      {4.0 / 3.0, 66667, 50000},
                                                      {1.000004, 50000, 50000},
                                                      {0.9, 50000, 55556}}) {
    SCOPED_TRACE(aspect.ratio);
    image.GetAttributes().aspectRatio = aspect.ratio;
    wrapper.SetAttributes(image.GetAttributes());
    EXPECT_EQ(wrapper.GetAspectHorizontal(), aspect.horizontal);
    EXPECT_EQ(wrapper.GetAspectVertical(), aspect.vertical);
    wrapper.SetPictureStructure(MCL::Frame);
    CmStandardImageAttributes back;
    wrapper.UpdateAttributes(back);
    EXPECT_NEAR(back.aspectRatio, aspect.ratio, 1e-4);
  }
  for (const double ratio : {0.0, -1.0, 1e-6}) {
    SCOPED_TRACE(ratio);
    image.GetAttributes().aspectRatio = ratio;
    EXPECT_EQ(RaisedStatus([&] { wrapper.SetAttributes(image.GetAttributes()); }),
              MCL::StatusInvalidStream);
  }
  image.GetAttributes().aspectRatio = 1.0;

  image.GetAttributes().timeStamp = CmTimeStamp::FromMilliseconds(1500);
  wrapper.SetAttributes(image.GetAttributes());
  EXPECT_DOUBLE_EQ(wrapper.GetTime(), 1.5);
  image.GetAttributes().timeStamp = CmTimeStamp();
  wrapper.SetAttributes(image.GetAttributes());
  EXPECT_DOUBLE_EQ(wrapper.GetTime(), 0.0);
  image.GetAttributes().timeStamp = CmTimeStamp::FromMilliseconds(-1);
  NmImageTest::ExpectError([&] { wrapper.SetAttributes(image.GetAttributes()); },
                           "Timestamp epoch not supported for MCL operations", 1);
  wrapper.SetTime(-0.5);
  CmStandardImageAttributes back;
  NmImageTest::ExpectError([&] { wrapper.UpdateAttributes(back); },
                           "Timestamp epoch not supported for MCL operations", 1);
}

TEST(MCLPostProcessingTest, RefusesWhatItCannotWriteAndSkipsWhenTold) {
  CmSpecialMCLVideoDecoderProcessing processing;
  ASSERT_EQ(processing.Init(MCL::VideoProcessingParams()), MCL::StatusOk);
  CmFakePictureBuffer picture{SmFakePicture()};
  CmImage image;
  CmMCLVideoDataWrapper wrapper(image);
  MCL::MediaData plain;
  MCL::VideoData notAWrapper;
  EXPECT_EQ(processing.GetFrame(&plain, &wrapper), MCL::StatusNullPointer);
  EXPECT_EQ(processing.GetFrame(&picture.Data(), &plain), MCL::StatusNullPointer);
  EXPECT_EQ(processing.GetFrame(nullptr, &wrapper), MCL::StatusNullPointer);
  EXPECT_EQ(processing.GetFrame(&picture.Data(), &notAWrapper), MCL::StatusNullPointer);
  MCL::VideoData formatless;
  EXPECT_EQ(processing.GetFrame(&formatless, &wrapper), MCL::StatusFailed);
  EXPECT_FALSE(image.IsValid());
  EXPECT_FALSE(processing.IsActive());

  processing.SetSkipOutput(true);
  picture.Data().SetTime(9.5);
  picture.Data().SetPictureStructure(MCL::TopField);
  EXPECT_EQ(processing.GetFrame(&picture.Data(), &notAWrapper), MCL::StatusOk);
  EXPECT_DOUBLE_EQ(notAWrapper.GetTime(), 9.5);
  EXPECT_EQ(notAWrapper.GetPictureStructure(), MCL::Frame);
  EXPECT_EQ(processing.GetFrame(&picture.Data(), &wrapper), MCL::StatusOk);
  EXPECT_FALSE(image.IsValid());

  processing.SetSkipOutput(false);
  processing.SetScaleDivisor(0);
  EXPECT_EQ(processing.GetFrame(&picture.Data(), &wrapper), MCL::StatusOk);
  EXPECT_TRUE(processing.IsActive());
  EXPECT_EQ(image.GetWidth(), 16u);
  EXPECT_EQ(wrapper.GetPictureStructure(), MCL::TopField);
  EXPECT_DOUBLE_EQ(wrapper.GetTime(), 9.5);
}

} // namespace
} // namespace NmMCLTest
