#include <gtest/gtest.h>

#include <stdexcept>

#include "MediaProcessing/GenericByteData/RawJPEGToBlockConverter.h"
#include "TestTimes.h"
#include "support/GenericByteDataBuilder.h"
#include "support/ImageTestSupport.h"

using namespace NmMediaProcessing;
using namespace NmTestSupport;

namespace {
// Stands in for the JPEG codec's analyser: answers with a fixed size, or
// refuses, or throws.
class CmFixedSizeAnalyzer : public ImJPEGSizeAnalyzer {
public:
  enum Mode { Answer, Refuse, Throw };
  explicit CmFixedSizeAnalyzer(Mode mode) : m_Mode(mode) {}
  bool GetImageSize(const uint8_t*, uint64_t, uint32_t& width, uint32_t& height) const override {
    if (m_Mode == Throw) {
      throw std::runtime_error("analyser failure");
    }
    width = 1920;
    height = 1080;
    return m_Mode == Answer;
  }

private:
  Mode m_Mode;
};
} // namespace

TEST(RawJPEGToBlockConverter, MakesAOneImageBlockOrRefuses) {
  const CmBytes jpeg = BuildRawJPEG(100);
  const CmFixedSizeAnalyzer answer(CmFixedSizeAnalyzer::Answer);
  const auto block =
      CmRawJPEGToBlockConverter(&answer).Convert(jpeg.data(), jpeg.size(), Ms(123456), true);
  ASSERT_NE(block, nullptr);
  EXPECT_EQ(CmBytes(block->GetPayload(), block->GetPayload() + 100), jpeg);
  // The whole header against one written by the test builder.
  const CmBytes header = BuildBlock({.type = 1,
                                     .payloadLength = 100,
                                     .beginTime = 123456,
                                     .endTime = 123456,
                                     .width = 1920,
                                     .height = 1080,
                                     .payload = {}});
  EXPECT_EQ(CmBytes(block->GetData(), block->GetPayload()), header);
  EXPECT_TRUE(block->AreTimesValid());

  // Without the size the fields stay 0, and no analyser is needed.
  const auto sizeless =
      CmRawJPEGToBlockConverter(nullptr).Convert(jpeg.data(), jpeg.size(), Ms(5), false);
  ASSERT_NE(sizeless, nullptr);
  EXPECT_EQ(CmBytes(sizeless->GetData() + 28, sizeless->GetData() + 34), CmBytes(6, 0));

  // Refusals: too short, not a JPEG, an analyser that says no or throws.
  const CmBytes short5 = BuildRawJPEG(5);
  CmBytes notJpeg = jpeg;
  notJpeg[1] = 0xD9;
  const CmFixedSizeAnalyzer refuse(CmFixedSizeAnalyzer::Refuse);
  const CmFixedSizeAnalyzer thrower(CmFixedSizeAnalyzer::Throw);
  EXPECT_EQ(CmRawJPEGToBlockConverter(&answer).Convert(short5.data(), 5, Ms(0), true), nullptr);
  EXPECT_EQ(CmRawJPEGToBlockConverter(&answer).Convert(notJpeg.data(), 100, Ms(0), true), nullptr);
  EXPECT_EQ(CmRawJPEGToBlockConverter(&answer).Convert(nullptr, 100, Ms(0), true), nullptr);
  EXPECT_EQ(CmRawJPEGToBlockConverter(&refuse).Convert(jpeg.data(), 100, Ms(0), true), nullptr);
  EXPECT_EQ(CmRawJPEGToBlockConverter(&thrower).Convert(jpeg.data(), 100, Ms(0), true), nullptr);

  // Asking for the size with no analyser is a programming error.
  NmImageTest::ExpectError(
      [&] { CmRawJPEGToBlockConverter(nullptr).Convert(jpeg.data(), jpeg.size(), Ms(0), true); },
      "No JPEG size analyser to read the image size with",
      NmError::CmIntegrityErrorCode::NotImplemented);
}
