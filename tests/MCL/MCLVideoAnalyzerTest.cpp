#include <gtest/gtest.h>

#include <new>
#include <vector>

#include "Image/ImageFixtures.h"
#include "MCL/MCLTestSupport.h"
#include "MediaProcessing/Video/MCL/VideoAnalyzerBaseMCL.h"

namespace NmMCLTest {
namespace {

using namespace NmMediaProcessing;
using CmFakeAnalyzer = CmVideoAnalyzerBaseMCL<CmFakeMCLDecoder, MCL::VideoDecoderParams>;

class MCLVideoAnalyzerTest : public CmFakeScriptTest {};

TEST_F(MCLVideoAnalyzerTest, SizeOnlyFromAWholeAnswer) {
  CmFakeAnalyzer analyzer;
  const std::vector<uint8_t> data(40, 1);
  SmVideoSize size{0, 0};
  NmImageTest::ExpectError([&] { analyzer.Analyze(nullptr, 40, size); },
                           "Null input parameters given", 3);
  NmImageTest::ExpectError([&] { analyzer.Analyze(data.data(), 0, size); },
                           "Null input parameters given", 3);
  EXPECT_EQ(Script().initCalls, 0);

  Script().infoWidth = 352;
  Script().infoHeight = 288;
  ASSERT_TRUE(analyzer.Analyze(data.data(), data.size(), size));
  EXPECT_EQ(size, SmVideoSize(352, 288));
  // The decoder is made for the one question: one thread, the data given at Init.
  EXPECT_EQ(Script().threads, 1);
  EXPECT_EQ(Script().initialData, data.data());
  EXPECT_EQ(Script().initialSize, data.size());
  EXPECT_EQ(Script().closeCalls, 1);

  struct SmCase {
    MCL::Status init, info;
    int32_t width, height;
  };
  const std::vector<SmCase> unknown = {
      {MCL::StatusOk, MCL::StatusOk, 0, 288},
      {MCL::StatusOk, MCL::StatusOk, 352, 0},
      {MCL::StatusOk, MCL::StatusOk, -1, 288},
      {MCL::StatusOk, MCL::StatusFrameHeld, 352, 288},
      {MCL::StatusOk, MCL::StatusInvalidStream, 352, 288},
      {MCL::StatusOk, MCL::StatusInvalidStreamSync, 352, 288},
      {MCL::StatusOk, MCL::StatusNotEnoughData, 352, 288},
      {MCL::StatusOk, MCL::StatusFrameIncomplete, 352, 288},
      {MCL::StatusOk, MCL::StatusWorkerFailed, 352, 288},
      {MCL::StatusNotEnoughData, MCL::StatusOk, 352, 288},
      {MCL::StatusInvalidStream, MCL::StatusOk, 352, 288},
  };
  for (const SmCase& c : unknown) {
    SCOPED_TRACE(testing::Message()
                 << c.init << " " << c.info << " " << c.width << "x" << c.height);
    Script().initStatus = c.init;
    Script().infoStatus = c.info;
    Script().infoWidth = c.width;
    Script().infoHeight = c.height;
    size = SmVideoSize(7, 7);
    EXPECT_FALSE(analyzer.Analyze(data.data(), data.size(), size));
    EXPECT_EQ(size, SmVideoSize(7, 7));
  }

  Script().infoWidth = 352;
  Script().infoHeight = 288;
  for (const MCL::Status status :
       {MCL::StatusFailed, MCL::StatusNotInitialised, MCL::StatusNullPointer}) {
    for (const bool atInit : {true, false}) {
      SCOPED_TRACE(testing::Message() << status << (atInit ? " at Init" : " at GetInfo"));
      Script().initStatus = atInit ? status : MCL::StatusOk;
      Script().infoStatus = atInit ? MCL::StatusOk : status;
      EXPECT_EQ(RaisedStatus([&] { analyzer.Analyze(data.data(), data.size(), size); }), status);
    }
  }
  Script().initStatus = MCL::StatusOk;
  Script().infoStatus = MCL::StatusNoMemory;
  EXPECT_THROW(analyzer.Analyze(data.data(), data.size(), size), std::bad_alloc);
}

} // namespace
} // namespace NmMCLTest
