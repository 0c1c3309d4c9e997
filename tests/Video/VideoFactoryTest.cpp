#include <gtest/gtest.h>

#include "MediaProcessing/Video/H263/VideoDecoderH263.h"
#include "MediaProcessing/Video/H264/VideoDecoderH264.h"
#include "MediaProcessing/Video/JPEG2000/VideoAnalyzerJPEG2000.h"
#include "MediaProcessing/Video/JPEG2000/VideoDecoderJPEG2000.h"
#include "MediaProcessing/Video/MPEG4/VideoDecoderMPEG4.h"
#include "MediaProcessing/Video/SmartVideoDecoderPointer.h"
#include "ScriptedVideoCodec.h"
#include "support/ImageTestSupport.h"

using namespace NmMediaProcessing;
using NmImageTest::ExpectError;
using Code = NmError::CmIntegrityErrorCode;

namespace {

template <typename Decoder, typename Analyzer>
void ExpectEngines(std::initializer_list<uint32_t> codecs) {
  for (const uint32_t codec : codecs) {
    const auto factory = CmVideoFactory::CreateFromCodec(codec);
    const std::unique_ptr<ImVideoDecoder> decoder(factory->CreateDecoder());
    const std::unique_ptr<ImVideoAnalyzer> analyzer(factory->CreateAnalyzer());
    EXPECT_NE(dynamic_cast<Decoder*>(decoder.get()), nullptr) << codec;
    EXPECT_NE(dynamic_cast<Analyzer*>(analyzer.get()), nullptr) << codec;
  }
}

} // namespace

// Each accepted codec value is pinned by the engines or the parser refusal of
// the factory it makes.
TEST(VideoFactory, CodecValuesParsersAndEngines) {
  for (uint32_t codec : {2u, 3u, 12u, 13u, 0u, 14u, 15u, 127u, 129u, 0xFFFFFFFFu}) {
    ExpectError([&] { CmVideoFactory::CreateFromCodec(codec); },
                codec == 0 || codec > 13 ? "Unknown codec type" : "Codec type not supported", 1,
                "NmMediaProcessing::CmVideoFactory::CreateFromCodec");
  }
  struct SmRow {
    uint32_t codec;
    const char* parserMessage;
    const char* function;
    uint32_t code = Code::OutOfRange;
  };
  for (const SmRow& row :
       {SmRow{1, "No parser for JPEG implemented", "NmMediaProcessing::CmVideoFactoryJPEG"},
        SmRow{4, "No parser for MPEG-4 implemented", "NmMediaProcessing::CmVideoFactoryMPEG4"},
        SmRow{7, "No parser for H.263 implemented", "NmMediaProcessing::CmVideoFactoryH263"},
        SmRow{8, "No parser for JPEG2000 implemented", "NmMediaProcessing::CmVideoFactoryJPEG2000"},
        SmRow{128, "No parser for MxPEG implemented", "NmMediaProcessing::CmVideoFactoryMxPEG"},
        SmRow{10, "No parser for H.264 implemented", "NmMediaProcessing::CmVideoFactoryH264",
              Code::NotImplemented}}) {
    const auto factory = CmVideoFactory::CreateFromCodec(row.codec);
    ExpectError([&] { factory->CreateParser(); }, row.parserMessage, row.code,
                std::string(row.function) + "::CreateParser");
  }
  // An engine that is not in this build refuses rather than pretends.
  const auto mxpeg = CmVideoFactory::CreateFromCodec(128);
  EXPECT_THROW(std::unique_ptr<ImVideoDecoder>(mxpeg->CreateDecoder()), NmError::CmIntegrityError);
  EXPECT_THROW(std::unique_ptr<ImVideoAnalyzer>(mxpeg->CreateAnalyzer()),
               NmError::CmIntegrityError);
  // H.264 through our engine, MPEG-4 (all four values) and H.263 (both)
  // through libavcodec, each behind the MCL adapter; JPEG 2000 its own.
  ExpectEngines<CmVideoDecoderH264, CmVideoAnalyzerH264>({10});
  ExpectEngines<CmVideoDecoderMPEG4, CmVideoAnalyzerMPEG4>({4, 5, 6, 11});
  ExpectEngines<CmVideoDecoderH263, CmVideoAnalyzerH263>({7, 9});
  ExpectEngines<CmVideoDecoderJPEG2000, CmVideoAnalyzerJPEG2000>({8});
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
}
