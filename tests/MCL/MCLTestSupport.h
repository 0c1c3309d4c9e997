#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "Codecs/MCL/VideoDecoderParams.h"
#include "MCL/FakeMCLDecoder.h"
#include "MediaProcessing/Image/StaticImageAllocator.h"
#include "MediaProcessing/Video/MCL/MCLError.h"
#include "MediaProcessing/Video/MCL/VideoDecoderBaseMCL.h"
#include "support/CaughtError.h"

namespace NmMCLTest {

using CmFakeVideoDecoder =
    NmMediaProcessing::CmVideoDecoderBaseMCL<CmFakeMCLDecoder, MCL::VideoDecoderParams, 3>;

// Clears the one script between tests.
class CmFakeScriptTest : public ::testing::Test {
protected:
  void SetUp() override { Script() = SmFakeScript(); }
  void TearDown() override { Script() = SmFakeScript(); }
};

// The status of the MCL error that the call raises; one that raises none
// fails the test.
template <typename Call> auto RaisedStatus(Call&& call) {
  return NmTestSupport::Caught<NmMediaProcessing::CmMCLError>(call)->GetStatus();
}

inline SmFakeStep Step(MCL::Status status, size_t consume = 0, int32_t frameId = -1) {
  SmFakeStep step;
  step.status = status;
  step.consume = consume;
  step.frameId = frameId;
  return step;
}

inline SmFakeStep FrameStep(const SmFakePicture& picture, int32_t frameId, size_t consume = 0,
                            MCL::Status status = MCL::StatusOk) {
  SmFakeStep step = Step(status, consume, frameId);
  step.picture = picture;
  return step;
}

inline std::unique_ptr<NmMediaProcessing::CmStaticImageAllocator>
ViewAllocator(MCL::VideoData& data) {
  std::vector<std::pair<uint64_t, uint8_t*>> planes;
  for (int i = 0; i < data.GetPlaneCount(); ++i) {
    planes.emplace_back(data.GetPlanePitch(i), data.GetPlanePointer(i));
  }
  return std::make_unique<NmMediaProcessing::CmStaticImageAllocator>(
      static_cast<uint64_t>(data.GetWidth()), static_cast<uint64_t>(data.GetHeight()),
      NmMediaProcessing::CmMCLVideoDataWrapper::FromMCLFormat(data.GetColorFormat()), planes);
}

// The fake's picture as a CmImage over its own planes, to compare against.
class CmExpectedPicture {
public:
  explicit CmExpectedPicture(const SmFakePicture& picture)
      : m_Buffer(picture), m_Image(ViewAllocator(m_Buffer.Data())) {
    const NmMediaProcessing::ColorFormat format = m_Image.GetColorFormat();
    if (format == NmMediaProcessing::Gray || NmMediaProcessing::IsMultiPlaneFormat(format)) {
      m_Image.GetAttributes().subColorFormat = NmMediaProcessing::SubColorFormatVideoRange;
    }
  }
  const NmMediaProcessing::CmImage& Image() const { return m_Image; }

private:
  CmFakePictureBuffer m_Buffer;
  NmMediaProcessing::CmImage m_Image;
};

} // namespace NmMCLTest
