#include <gtest/gtest.h>

#include "MediaProcessing/Video/H263/VideoDecoderH263.h"
#include "MediaProcessing/Video/H263/VideoFactoryH263.h"
#include "MediaProcessing/Video/H264/VideoDecoderH264.h"
#include "MediaProcessing/Video/H264/VideoFactoryH264.h"
#include "MediaProcessing/Video/JPEG/VideoFactoryJPEG.h"
#include "MediaProcessing/Video/JPEG2000/VideoAnalyzerJPEG2000.h"
#include "MediaProcessing/Video/JPEG2000/VideoDecoderJPEG2000.h"
#include "MediaProcessing/Video/JPEG2000/VideoFactoryJPEG2000.h"
#include "MediaProcessing/Video/MPEG4/VideoDecoderMPEG4.h"
#include "MediaProcessing/Video/MPEG4/VideoFactoryMPEG4.h"
#include "MediaProcessing/Video/MxPEG/VideoFactoryMxPEG.h"
#include "MediaProcessing/Video/SmartVideoDecoderPointer.h"
#include "ScriptedVideoCodec.h"
#include "support/ImageTestSupport.h"

using namespace NmMediaProcessing;
using NmImageTest::ExpectError;
using Code = NmError::CmIntegrityErrorCode;

namespace {

template <typename T> bool Makes(uint32_t codec) {
  const auto factory = CmVideoFactory::CreateFromCodec(codec);
  return dynamic_cast<T*>(factory.get()) != nullptr;
}

} // namespace

TEST(VideoFactory, EveryCodecValueOfTheTable) {
  EXPECT_TRUE(Makes<CmVideoFactoryJPEG>(1));
  for (uint32_t codec : {4u, 5u, 6u, 11u}) {
    EXPECT_TRUE(Makes<CmVideoFactoryMPEG4>(codec)) << codec;
  }
  EXPECT_TRUE(Makes<CmVideoFactoryH263>(7) && Makes<CmVideoFactoryH263>(9));
  EXPECT_TRUE(Makes<CmVideoFactoryJPEG2000>(8));
  EXPECT_TRUE(Makes<CmVideoFactoryH264>(10));
  EXPECT_TRUE(Makes<CmVideoFactoryMxPEG>(128));
  for (uint32_t codec : {2u, 3u, 12u, 13u, 0u, 14u, 15u, 127u, 129u, 0xFFFFFFFFu}) {
    ExpectError([&] { CmVideoFactory::CreateFromCodec(codec); },
                codec == 0 || codec > 13 ? "Unknown codec type" : "Codec type not supported", 1,
                "NmMediaProcessing::CmVideoFactory::CreateFromCodec");
  }
}

TEST(VideoFactory, ParsersAreRefusedAndMissingEnginesSaySo) {
  struct SmRow {
    uint32_t codec;
    const char* parserMessage;
    const char* function;
  };
  for (const SmRow& row :
       {SmRow{1, "No parser for JPEG implemented", "NmMediaProcessing::CmVideoFactoryJPEG"},
        SmRow{4, "No parser for MPEG-4 implemented", "NmMediaProcessing::CmVideoFactoryMPEG4"},
        SmRow{7, "No parser for H.263 implemented", "NmMediaProcessing::CmVideoFactoryH263"},
        SmRow{8, "No parser for JPEG2000 implemented", "NmMediaProcessing::CmVideoFactoryJPEG2000"},
        SmRow{128, "No parser for MxPEG implemented", "NmMediaProcessing::CmVideoFactoryMxPEG"}}) {
    const auto factory = CmVideoFactory::CreateFromCodec(row.codec);
    ExpectError([&] { factory->CreateParser(); }, row.parserMessage, Code::OutOfRange,
                std::string(row.function) + "::CreateParser");
  }
  // Engines that are not in this build refuse rather than pretend.
  for (uint32_t codec : {128u}) {
    const auto factory = CmVideoFactory::CreateFromCodec(codec);
    EXPECT_THROW(std::unique_ptr<ImVideoDecoder>(factory->CreateDecoder()),
                 NmError::CmIntegrityError)
        << codec;
    EXPECT_THROW(std::unique_ptr<ImVideoAnalyzer>(factory->CreateAnalyzer()),
                 NmError::CmIntegrityError)
        << codec;
  }
  ExpectError([] { CmVideoFactory::CreateFromCodec(10)->CreateParser(); },
              "No parser for H.264 implemented", Code::NotImplemented,
              "NmMediaProcessing::CmVideoFactoryH264::CreateParser");
  // H.264 decodes through our engine behind the MCL adapter.
  const auto h264 = CmVideoFactory::CreateFromCodec(10);
  EXPECT_NE(dynamic_cast<CmVideoDecoderH264*>(
                std::unique_ptr<ImVideoDecoder>(h264->CreateDecoder()).get()),
            nullptr);
  EXPECT_NE(dynamic_cast<CmVideoAnalyzerH264*>(
                std::unique_ptr<ImVideoAnalyzer>(h264->CreateAnalyzer()).get()),
            nullptr);
  // MPEG-4 (all four values) and H.263 (both) decode through libavcodec
  // behind the same adapter.
  for (uint32_t codec : {4u, 5u, 6u, 11u}) {
    const auto factory = CmVideoFactory::CreateFromCodec(codec);
    EXPECT_NE(dynamic_cast<CmVideoDecoderMPEG4*>(
                  std::unique_ptr<ImVideoDecoder>(factory->CreateDecoder()).get()),
              nullptr)
        << codec;
    EXPECT_NE(dynamic_cast<CmVideoAnalyzerMPEG4*>(
                  std::unique_ptr<ImVideoAnalyzer>(factory->CreateAnalyzer()).get()),
              nullptr)
        << codec;
  }
  for (uint32_t codec : {7u, 9u}) {
    const auto factory = CmVideoFactory::CreateFromCodec(codec);
    EXPECT_NE(dynamic_cast<CmVideoDecoderH263*>(
                  std::unique_ptr<ImVideoDecoder>(factory->CreateDecoder()).get()),
              nullptr)
        << codec;
    EXPECT_NE(dynamic_cast<CmVideoAnalyzerH263*>(
                  std::unique_ptr<ImVideoAnalyzer>(factory->CreateAnalyzer()).get()),
              nullptr)
        << codec;
  }
  const auto jpeg2000 = CmVideoFactory::CreateFromCodec(8);
  const std::unique_ptr<ImVideoDecoder> decoder(jpeg2000->CreateDecoder());
  const std::unique_ptr<ImVideoAnalyzer> analyzer(jpeg2000->CreateAnalyzer());
  EXPECT_NE(dynamic_cast<CmVideoDecoderJPEG2000*>(decoder.get()), nullptr);
  EXPECT_NE(dynamic_cast<CmVideoAnalyzerJPEG2000*>(analyzer.get()), nullptr);
}

TEST(SmartVideoDecoderPointer, CodecChangesByValueAndFailedChangesKeepTheDecoder) {
  auto script = std::make_shared<NmVideoTest::CmScript>();
  CmSmartVideoDecoderPointer pointer(NmVideoTest::ScriptedFactoryMaker(script));
  EXPECT_FALSE(pointer.IsSet());
  ExpectError([&] { pointer->Reset(); }, "No codec pointer has been set", Code::InvalidPointer,
              "NmMediaProcessing::CmSmartVideoDecoderPointer::operator->");
  ExpectError([&] { pointer.NeedsCodecUpdate(0); }, "Unknown codec type", Code::InvalidArgument);
  EXPECT_TRUE(pointer.NeedsCodecUpdate(4));

  pointer.SetCodec(4);
  ASSERT_TRUE(pointer.IsSet());
  EXPECT_FALSE(pointer.NeedsCodecUpdate(4));
  // Same family, other value: still a change.
  EXPECT_TRUE(pointer.NeedsCodecUpdate(5));
  ImVideoDecoder* const before = pointer.operator->();
  ExpectError([&] { pointer.SetCodec(12); }, "Codec type not supported", Code::InvalidPointer);
  EXPECT_EQ(pointer.operator->(), before);
  EXPECT_EQ(pointer.GetCodec(), 4u);
  pointer.SetCodec(5);
  EXPECT_EQ(script->madeCodecs, (std::vector<uint32_t>{4, 5}));

  // The real factories: a codec without engine leaves no decoder behind.
  CmSmartVideoDecoderPointer real;
  EXPECT_THROW(real.SetCodec(128), NmError::CmIntegrityError);
  EXPECT_FALSE(real.IsSet());
  real.SetCodec(8);
  EXPECT_TRUE(real.IsSet());
}
