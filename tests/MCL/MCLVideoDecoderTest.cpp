#include <gtest/gtest.h>

#include <functional>
#include <new>
#include <tuple>
#include <vector>

#include "Image/ImageFixtures.h"
#include "MCL/MCLTestSupport.h"
#include "MediaProcessing/Image/ImageColorFormatConvert.h"
#include "MediaProcessing/Image/ImageResize.h"
#include "MediaProcessing/Video/MCL/MCLError.h"

namespace NmMCLTest {
namespace {

using namespace NmMediaProcessing;
using NmTimeStamp::CmTimeStamp;

class MCLVideoDecoderTest : public CmFakeScriptTest {
protected:
  bool Decode(const uint8_t* data, uint64_t size, CmImage& image, int32_t id = 5) {
    m_Result = SmVideoDecodeResult();
    return m_Decoder.Decode(data, size, id, CmTimeStamp::FromMilliseconds(2000), image, m_Result);
  }
  bool Decode(const std::vector<uint8_t>& data, CmImage& image, int32_t id = 5) {
    return Decode(data.data(), data.size(), image, id);
  }

  CmFakeVideoDecoder m_Decoder;
  SmVideoDecodeResult m_Result;
  std::vector<uint8_t> m_Source = std::vector<uint8_t>(100, 0x17);
  std::vector<uint8_t> m_Other = std::vector<uint8_t>(100, 0x29);
};

uint8_t* FirstPlane(CmImage& image) {
  return image.Allocator().GetWriteablePlane(0).data;
}

// One call of a decoder of its own over `data`, with a result of its own.
bool DecodeOnce(CmFakeVideoDecoder& decoder, const std::vector<uint8_t>& data, int32_t id = 1) {
  CmImage image;
  SmVideoDecodeResult result;
  return decoder.Decode(data.data(), data.size(), id, CmTimeStamp(), image, result);
}

// Every status the decoder can answer, and what it does to this call and to
// the decoder's life: a bad stream resets the decoder in place, a broken
// decoder raises and is made anew.
TEST_F(MCLVideoDecoderTest, EachStatusDecidesResultResetAndRebuild) {
  struct SmRow {
    const char* name;
    SmFakeStep step;
    bool succeeds;
    bool produces;
    bool resetsNext;
  };
  SmFakePicture picture;
  const std::vector<SmRow> rows = {
      {"0 with a picture", FrameStep(picture, 7, 100), true, true, false},
      {"1 with id and image", FrameStep(picture, 7, 100, MCL::StatusFrameHeld), true, true, false},
      {"1 without id", Step(MCL::StatusFrameHeld, 100), false, false, false},
      {"1 with id, no image", Step(MCL::StatusFrameHeld, 100, 7), false, false, false},
      {"-996", Step(MCL::StatusNotEnoughData, 100), true, false, false},
      {"-882", Step(MCL::StatusInvalidStream, 10), false, false, true},
      {"-879", Step(MCL::StatusInvalidStreamSync, 10), false, false, true},
      {"-999", Step(MCL::StatusFailed, 10), false, false, true},
      {"-897 with input left", Step(MCL::StatusFrameIncomplete, 50), false, false, false},
      {"-897 all consumed", Step(MCL::StatusFrameIncomplete, 100), true, false, false},
  };
  for (const SmRow& row : rows) {
    SCOPED_TRACE(row.name);
    Script() = SmFakeScript();
    CmFakeVideoDecoder decoder;
    CmImage image;
    Script().steps.push_back(row.step);
    SmVideoDecodeResult result;
    EXPECT_EQ(decoder.Decode(m_Source.data(), m_Source.size(), 5, CmTimeStamp(), image, result),
              row.succeeds);
    EXPECT_EQ(result.m_ImageProduced, row.produces);
    if (row.produces) {
      EXPECT_EQ(result.m_ImageId, 7);
      EXPECT_TRUE(image.IsValid());
    }
    const int resets = Script().resetCalls;
    // A failure that left input behind still asks for the same source again.
    const std::vector<uint8_t>& next = result.m_CallAgain ? m_Source : m_Other;
    Script().steps.push_back(Step(MCL::StatusNotEnoughData, 100));
    SmVideoDecodeResult second;
    EXPECT_TRUE(decoder.Decode(next.data(), next.size(), 6, CmTimeStamp(), image, second));
    EXPECT_EQ(Script().resetCalls - resets, row.resetsNext ? 1 : 0);
    EXPECT_EQ(Script().initCalls, 1);
  }

  const std::vector<MCL::Status> raising = {MCL::StatusNotInitialised, MCL::StatusNullPointer,
                                            MCL::StatusWorkerFailed, static_cast<MCL::Status>(2),
                                            static_cast<MCL::Status>(-1000)};
  for (const MCL::Status status : raising) {
    SCOPED_TRACE(status);
    Script() = SmFakeScript();
    CmFakeVideoDecoder decoder;
    CmImage image;
    Script().steps.push_back(Step(status, 10));
    SmVideoDecodeResult result;
    EXPECT_EQ(RaisedStatus([&] {
                decoder.Decode(m_Source.data(), m_Source.size(), 5, CmTimeStamp(), image, result);
              }),
              status);
    // Broken: the next call closes it and makes a new one, with no repeat pending.
    EXPECT_TRUE(decoder.Decode(m_Other.data(), m_Other.size(), 6, CmTimeStamp(), image, result));
    EXPECT_EQ(Script().initCalls, 2);
    EXPECT_EQ(Script().closeCalls, 1);
    EXPECT_EQ(Script().inputs.back(), m_Other.data());
  }

  Script() = SmFakeScript();
  CmFakeVideoDecoder decoder;
  Script().steps.push_back(Step(MCL::StatusNoMemory));
  EXPECT_THROW(DecodeOnce(decoder, m_Source), std::bad_alloc);
  DecodeOnce(decoder, m_Other);
  EXPECT_EQ(Script().initCalls, 2);
}

// A source that the decoder did not finish must come back unchanged; the
// decoder then sees only what it has not consumed.
TEST_F(MCLVideoDecoderTest, RepeatedSourceSkipsWhatWasConsumed) {
  CmImage image;
  Script().steps.push_back(Step(MCL::StatusNotEnoughData, 10));
  ASSERT_TRUE(Decode(m_Source, image));
  EXPECT_TRUE(m_Result.m_CallAgain);
  EXPECT_FALSE(m_Result.m_NothingConsumed);

  Script().steps.push_back(Step(MCL::StatusNotEnoughData, 0));
  ASSERT_TRUE(Decode(m_Source, image));
  EXPECT_EQ(Script().inputs.back(), m_Source.data() + 10);
  EXPECT_EQ(Script().inputSizes.back(), 90u);
  EXPECT_TRUE(m_Result.m_CallAgain && m_Result.m_NothingConsumed);

  Script().steps.push_back(FrameStep(SmFakePicture(), 3, 30));
  ASSERT_TRUE(Decode(m_Source, image));
  EXPECT_EQ(Script().inputs.back(), m_Source.data() + 10);
  EXPECT_TRUE(m_Result.m_ImageProduced && m_Result.m_CallAgain);
  EXPECT_FALSE(m_Result.m_NothingConsumed);

  // 60 bytes left, the decoder takes 57: a tail of 3 is dropped, so the
  // source is done.
  Script().steps.push_back(Step(MCL::StatusNotEnoughData, 57));
  ASSERT_TRUE(Decode(m_Source, image));
  EXPECT_EQ(Script().inputs.back(), m_Source.data() + 40);
  EXPECT_FALSE(m_Result.m_CallAgain);
  const int resets = Script().resetCalls;
  ASSERT_TRUE(Decode(m_Other, image));
  EXPECT_EQ(Script().inputs.back(), m_Other.data());
  EXPECT_EQ(Script().resetCalls, resets);
}

TEST_F(MCLVideoDecoderTest, RepeatWithAnotherSourceRaisesThenRecoversAfterReset) {
  CmImage image;
  for (const bool samePointer : {false, true}) {
    SCOPED_TRACE(samePointer);
    Script().steps.push_back(Step(MCL::StatusNotEnoughData, 10));
    ASSERT_TRUE(Decode(m_Source, image));
    ASSERT_TRUE(m_Result.m_CallAgain);
    const uint8_t* data = samePointer ? m_Source.data() : m_Other.data();
    const uint64_t size = samePointer ? m_Source.size() - 1 : m_Other.size();
    NmImageTest::ExpectError(
        [&] { Decode(data, size, image); }, "Invalid source data parameters for re-use by decoder",
        3, "NmMediaProcessing::CmVideoDecoderBaseMCL<Decoder, Params, N>::Decode");
    const int resets = Script().resetCalls;
    Script().steps.push_back(Step(MCL::StatusNotEnoughData, 100));
    EXPECT_TRUE(Decode(m_Other, image));
    EXPECT_EQ(Script().resetCalls, resets + 1);
    EXPECT_EQ(Script().inputs.back(), m_Other.data());
    EXPECT_EQ(Script().inputSizes.back(), m_Other.size());
  }
  EXPECT_EQ(Script().initCalls, 1);
}

TEST_F(MCLVideoDecoderTest, EmptyShortAndMissingSources) {
  CmImage image;
  NmImageTest::ExpectError([&] { Decode(m_Source.data(), 0, image); },
                           "Invalid source data length for non-NULL source data", 3);
  int resets = Script().resetCalls;
  EXPECT_TRUE(Decode(m_Source, image));
  EXPECT_EQ(Script().resetCalls, resets + 1);

  // Three bytes cannot hold anything: no call of the decoder, no error, done.
  const int calls = Script().getFrameCalls;
  for (const uint64_t size : {1u, 3u}) {
    EXPECT_TRUE(Decode(m_Source.data(), size, image));
    EXPECT_FALSE(m_Result.m_ImageProduced);
    EXPECT_FALSE(m_Result.m_CallAgain);
    EXPECT_EQ(m_Result.m_ImageId, -1);
  }
  EXPECT_EQ(Script().getFrameCalls, calls);
  Script().steps.push_back(Step(MCL::StatusNotEnoughData, 0));
  EXPECT_TRUE(Decode(m_Source.data(), 4, image));
  EXPECT_EQ(Script().getFrameCalls, calls + 1);
  EXPECT_TRUE(m_Result.m_CallAgain && m_Result.m_NothingConsumed);
  Script().steps.push_back(Step(MCL::StatusNotEnoughData, 4));
  EXPECT_TRUE(Decode(m_Source.data(), 4, image));

  // A flush goes on while frames come, and resets the decoder when it is dry.
  Script().steps.push_back(FrameStep(SmFakePicture(), 8));
  EXPECT_TRUE(Decode(nullptr, 0, image));
  EXPECT_EQ(Script().inputs.back(), nullptr);
  EXPECT_TRUE(m_Result.m_ImageProduced && m_Result.m_CallAgain);
  Script().steps.push_back(Step(MCL::StatusNotEnoughData));
  EXPECT_TRUE(Decode(nullptr, 0, image));
  EXPECT_FALSE(m_Result.m_ImageProduced || m_Result.m_CallAgain);
  resets = Script().resetCalls;
  EXPECT_TRUE(Decode(m_Source, image));
  EXPECT_EQ(Script().resetCalls, resets + 1);
  EXPECT_EQ(Script().initCalls, 1);
}

// Each setting's flag bits, and whether changing it makes a new decoder:
// only settings of the decoder itself do.
TEST_F(MCLVideoDecoderTest, SettingsReachTheFlagWordAndOnlyThoseOfTheDecoderRebuildIt) {
  using Change = std::function<void(SmVideoDecodeParameters&)>;
  const std::vector<std::tuple<const char*, Change, bool, uint32_t>> changes = {
      {"nothing", [](auto&) {}, false, 0x4u},
      {"low delay", [](auto& p) { p.m_LowDelay = true; }, true, 0x20000004u},
      {"sync frames only", [](auto& p) { p.m_DecodeMode = 2; }, true, 0x80000004u},
      {"reduced", [](auto& p) { p.m_DecodeMode = 1; }, true, 0x40000004u},
      {"unknown mode", [](auto& p) { p.m_DecodeMode = 3; }, true, 0x4u},
      {"filter mode", [](auto& p) { p.m_FilterMode = 1; }, true, 0x10000004u},
      {"filter mode 2", [](auto& p) { p.m_FilterMode = 2; }, true, 0x4u},
      {"luminance only", [](auto& p) { p.m_LuminanceOnly = true; }, true, 0x8000004u},
      {"thread count", [](auto& p) { p.m_ThreadCount = 4; }, true, 0x4u},
      {"scale divisor", [](auto& p) { p.m_ScaleDivisor = 2; }, false, 0x4u},
      {"produce image", [](auto& p) { p.m_ProduceImage = false; }, false, 0x4u},
      {"split fields", [](auto& p) { p.m_SplitFields = true; }, false, 0x4u},
  };
  for (const bool viaReset : {false, true}) {
    for (const auto& [name, change, rebuilds, flags] : changes) {
      SCOPED_TRACE(testing::Message() << name << " via reset " << viaReset);
      Script() = SmFakeScript();
      CmFakeVideoDecoder decoder;
      DecodeOnce(decoder, m_Source);
      SmVideoDecodeParameters parameters = decoder.GetParameters();
      change(parameters);
      decoder.SetParameters(parameters);
      if (viaReset && rebuilds) {
        decoder.Reset();
        EXPECT_EQ(Script().closeCalls, 1);
      }
      DecodeOnce(decoder, m_Other, 2);
      EXPECT_EQ(Script().initCalls, rebuilds ? 2 : 1);
      EXPECT_EQ(Script().closeCalls, rebuilds ? 1 : 0);
      EXPECT_EQ(Script().flags, flags);
      EXPECT_TRUE(Script().hadPostProcessing);
      EXPECT_EQ(std::pair(Script().inputImageCount, Script().outputImageCount), std::pair(1, 1));
      // Setting the same values once more changes nothing.
      decoder.SetParameters(parameters);
      DecodeOnce(decoder, m_Source, 3);
      EXPECT_EQ(Script().initCalls, rebuilds ? 2 : 1);
    }
  }
  const std::vector<std::pair<uint32_t, int32_t>> threads = {
      {0, 1}, {1, 1}, {2, 2}, {7, 7}, {0x7FFFFFFF, 0x7FFFFFFF}, {0x80000000u, 0}, {0xFFFFFFFFu, 0}};
  for (const auto& [count, expected] : threads) {
    SCOPED_TRACE(count);
    Script() = SmFakeScript();
    CmFakeVideoDecoder decoder;
    decoder.SetParameters({.m_ThreadCount = count});
    DecodeOnce(decoder, m_Source);
    EXPECT_EQ(Script().threads, expected);
  }
}

TEST_F(MCLVideoDecoderTest, FailingSetUpMakesTheDecoderAgain) {
  CmImage image;
  Script().initStatus = MCL::StatusFailed;
  EXPECT_EQ(RaisedStatus([&] { Decode(m_Source, image); }), MCL::StatusFailed);
  // A positive status raises nothing but the decoder is still not trusted.
  Script().initStatus = MCL::StatusFrameHeld;
  EXPECT_TRUE(Decode(m_Source, image));
  EXPECT_EQ(Script().initCalls, 2);
  Script().initStatus = MCL::StatusOk;
  EXPECT_TRUE(Decode(m_Source, image));
  EXPECT_EQ(Script().initCalls, 3);
  EXPECT_TRUE(Decode(m_Source, image));
  EXPECT_EQ(Script().initCalls, 3);

  Script().resetStatus = MCL::StatusNotInitialised;
  EXPECT_THROW(m_Decoder.Reset(), CmMCLError);
  Script().resetStatus = MCL::StatusOk;
  EXPECT_TRUE(Decode(m_Source, image));
  EXPECT_EQ(Script().initCalls, 4);
}

// RGB images are relabelled to the BGR form the codecs write and receive the
// picture in place; without a picture the caller gets the image back as it was.
TEST_F(MCLVideoDecoderTest, PackedRGBImagesAreWrittenInPlaceOrRestored) {
  const std::vector<std::pair<ColorFormat, MCL::ColorFormat>> cases = {{RGB24, MCL::BGR24},
                                                                       {RGB32, MCL::BGR32}};
  for (const auto& [format, written] : cases) {
    SCOPED_TRACE(format);
    CmImage image = NmImageTest::MakeImage(16, 8, format);
    const auto before = NmImageTest::Planes(image);
    uint8_t* plane = FirstPlane(image);

    Script().steps.push_back(Step(MCL::StatusNotInitialised, 100));
    EXPECT_THROW(Decode(m_Source, image), CmMCLError);
    EXPECT_EQ(image.GetColorFormat(), format);
    EXPECT_EQ(NmImageTest::Planes(image), before);

    SmFakePicture picture;
    picture.format = written;
    Script().steps.push_back(FrameStep(picture, 9, 100));
    image.GetAttributes().attribute1 = 5;
    image.GetAttributes().orientation.rotation = 1;
    EXPECT_TRUE(Decode(m_Source, image));
    EXPECT_TRUE(m_Result.m_ImageProduced);
    EXPECT_EQ(FirstPlane(image), plane);
    CmExpectedPicture expected(picture);
    EXPECT_TRUE(NmImageTest::SamePicture(image, expected.Image()));
    EXPECT_EQ(image.GetAttributes().subColorFormat, NotApplicable);
    EXPECT_TRUE(image.GetAttributes().attribute1 == 0 &&
                image.GetAttributes().orientation == Orientation())
        << "the picture's, not the caller's";
  }
}

TEST_F(MCLVideoDecoderTest, OtherImagesAreSetAsideAndComeBackWithoutAPicture) {
  // Before 1970 too: the codecs cannot carry such a time, so the image must
  // not reach them, RGB or not.
  for (const ColorFormat format : {YCbCr420_Planar, Gray, RGB24, RGB32}) {
    for (const int64_t milliseconds : {int64_t{4000}, int64_t{-5000}}) {
      SCOPED_TRACE(testing::Message() << format << " at " << milliseconds);
      CmImage image = NmImageTest::MakeImage(16, 8, format, 3);
      image.GetAttributes().timeStamp = CmTimeStamp::FromMilliseconds(milliseconds);
      image.GetAttributes().aspectRatio = 1.5;
      const auto before = NmImageTest::Planes(image);
      for (const MCL::Status status : {MCL::StatusNotEnoughData, MCL::StatusInvalidStream}) {
        Script().steps.push_back(Step(status, 100));
        Decode(m_Source, image);
        EXPECT_EQ(image.GetColorFormat(), format);
        EXPECT_EQ(NmImageTest::Planes(image), before);
        EXPECT_EQ(image.GetAttributes().timeStamp.GetMilliseconds(), milliseconds);
        EXPECT_EQ(image.GetAttributes().aspectRatio, 1.5);
      }
    }
  }

  // An empty image from before 1970 is simply given a usable time; it takes
  // the picture's attributes as any image does.
  CmImage empty;
  empty.GetAttributes().timeStamp = CmTimeStamp::FromMilliseconds(-1);
  SmFakePicture picture;
  picture.time = 7.25;
  picture.structure = MCL::FrameTopFieldFirst;
  picture.aspectHorizontal = 100000;
  picture.aspectVertical = 50000;
  Script().steps.push_back(FrameStep(picture, 2, 100));
  EXPECT_TRUE(Decode(m_Source, empty));
  const CmStandardImageAttributes& attributes = empty.GetAttributes();
  EXPECT_EQ(attributes.timeStamp.GetMilliseconds(), 7250);
  EXPECT_EQ(attributes.interlacing, InterleavedTopFirst);
  EXPECT_EQ(attributes.aspectRatio, 2.0);
  EXPECT_EQ(attributes.subColorFormat, SubColorFormatVideoRange);
}

TEST_F(MCLVideoDecoderTest, SharedPlanesAreNeverWrittenThrough) {
  SmFakePicture picture;
  CmImage image = NmImageTest::MakeImage(16, 8, YCbCr420_Planar, 5);
  const CmImage copy(image);
  const auto before = NmImageTest::Planes(copy);
  Script().steps.push_back(FrameStep(picture, 1, 100));
  EXPECT_TRUE(Decode(m_Source, image));
  EXPECT_EQ(NmImageTest::Planes(copy), before);
  CmExpectedPicture expected(picture);
  EXPECT_TRUE(NmImageTest::SamePicture(image, expected.Image()));

  // RGB is written in place, so sharing matters most there.
  CmImage rgb = NmImageTest::MakeImage(16, 8, RGB24, 6);
  const CmImage rgbCopy(rgb);
  const auto rgbBefore = NmImageTest::Planes(rgbCopy);
  picture.format = MCL::BGR24;
  Script().steps.push_back(FrameStep(picture, 1, 100));
  EXPECT_TRUE(Decode(m_Source, rgb));
  EXPECT_EQ(NmImageTest::Planes(rgbCopy), rgbBefore);
  EXPECT_EQ(rgbCopy.GetColorFormat(), RGB24);

  // A shared image is let go before decoding, not kept for the caller: with
  // no picture it comes back empty while the other holder keeps the pixels.
  CmImage held = NmImageTest::MakeImage(16, 8, RGB24, 7);
  const CmImage holder(held);
  Script().steps.push_back(Step(MCL::StatusNotEnoughData, 100));
  EXPECT_TRUE(Decode(m_Source, held));
  EXPECT_FALSE(held.IsValid());
  EXPECT_TRUE(holder.IsValid());
  EXPECT_EQ(holder.GetColorFormat(), RGB24);
}

TEST_F(MCLVideoDecoderTest, PostProcessingSkipsScalesAndReducesToLuminance) {
  // No image wanted: the frame still counts and its id comes back.
  m_Decoder.SetParameters({.m_ProduceImage = false});
  CmImage image = NmImageTest::MakeImage(16, 8, YCbCr420_Planar, 9);
  const auto before = NmImageTest::Planes(image);
  Script().steps.push_back(FrameStep(SmFakePicture(), 4, 100));
  EXPECT_TRUE(Decode(m_Source, image));
  EXPECT_FALSE(m_Result.m_ImageProduced);
  EXPECT_EQ(m_Result.m_ImageId, 4);
  EXPECT_EQ(NmImageTest::Planes(image), before);

  struct SmScaling {
    MCL::ColorFormat format;
    uint32_t divisor;
    bool luminanceOnly;
  };
  const std::vector<SmScaling> scalings = {
      {MCL::YUV420, 1, false}, {MCL::YUV422, 1, false}, {MCL::BGR32, 1, false},
      {MCL::YUV420, 2, false}, {MCL::GRAY, 3, false},   {MCL::YUV444, 3, false},
      {MCL::BGR24, 2, false},  {MCL::YUV420, 1, true},  {MCL::YUV420, 2, true},
      {MCL::GRAY, 100, false},
  };
  for (const SmScaling& scaling : scalings) {
    SCOPED_TRACE(testing::Message() << scaling.format << " / " << scaling.divisor << " luma "
                                    << scaling.luminanceOnly);
    m_Decoder.SetParameters(
        {.m_LuminanceOnly = scaling.luminanceOnly, .m_ScaleDivisor = scaling.divisor});
    SmFakePicture picture;
    picture.format = scaling.format;
    picture.width = 64;
    picture.height = 48;
    Script().steps.push_back(FrameStep(picture, 1, 100));
    CmImage output;
    ASSERT_TRUE(Decode(m_Source, output));
    ASSERT_TRUE(m_Result.m_ImageProduced);

    // What the image operations themselves make of the picture.
    CmExpectedPicture expected(picture);
    CmImage reference;
    const CmImage* source = &expected.Image();
    CmImage converted;
    if (scaling.luminanceOnly) {
      CmImageColorFormatConvert(Gray).Execute(*source, converted);
      source = &converted;
    }
    const uint64_t width = std::max<uint64_t>(1, 64 / scaling.divisor);
    const uint64_t height = std::max<uint64_t>(1, 48 / scaling.divisor);
    if (scaling.divisor > 1) {
      CmImageResize(width, height, true).Execute(*source, reference);
    } else {
      reference = *source;
    }
    EXPECT_EQ(output.GetHeight(), height);
    EXPECT_TRUE(NmImageTest::SamePicture(output, reference));
    const bool packed = scaling.format == MCL::BGR24 || scaling.format == MCL::BGR32;
    EXPECT_EQ(output.GetAttributes().subColorFormat,
              packed ? NotApplicable : SubColorFormatVideoRange);
  }
}

} // namespace
} // namespace NmMCLTest
