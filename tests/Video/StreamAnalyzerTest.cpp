#include <gtest/gtest.h>

#include "MediaProcessing/Video/StreamAnalyzer.h"
#include "support/GenericByteDataBuilder.h"
#include "support/ImageTestSupport.h"

using namespace NmMediaProcessing;
using namespace NmTestSupport;
using NmImageTest::ExpectError;

namespace {

constexpr uint64_t T0 = 1700000000000;

template <typename Analyzer, typename Result>
bool Analyze(Analyzer& analyzer, CmBytes bytes, Result& result) {
  const CmGenericByteData record(bytes.data(), bytes.size());
  return analyzer.Analyze(record, result);
}

CmBytes Video(uint16_t sequence, bool sync, uint64_t time, SmImageForm form = {},
              uint16_t codec = 10) {
  return BuildVideoPacket({.codec = codec,
                           .sequenceNumber = sequence,
                           .sync = sync,
                           .imageForm = form,
                           // dependent frames belong to the group that starts at T0
                           .syncTime = sync ? time : T0,
                           .frameTime = time});
}

} // namespace

// Every instance shares the one template check; one stands for them all.
TEST(StreamAnalyzer, EmptyRecordsAreRefusedAndAttributesChangeWithinSequencesOnly) {
  const CmGenericByteData empty;
  const std::string prefix = "NmMediaProcessing::CmStreamAnalyzer<struct NmMediaProcessing::";
  CmByteDataSequenceAnalyzer sequence;
  SmByteDataSequenceResult sequenceResult;
  ExpectError([&] { sequence.Analyze(empty, sequenceResult); }, "Null input parameters given", 3,
              prefix + "SmByteDataSequenceAnalysisTraits>::Analyze");
  CmVideoSizeKeyFrameStreamAnalyzer size;
  SmVideoSize sizeResult;
  const uint8_t byte = 0;
  for (const auto& [data, length] :
       {std::pair{static_cast<const uint8_t*>(nullptr), 10}, std::pair{&byte, 0}}) {
    ExpectError([&] { size.AnalyzeRawData(8, data, length, sizeResult); },
                "Null input parameters given", 3,
                prefix + "SmVideoSizeKeyFrameAnalysisTraits>::AnalyzeRawData");
  }

  // The sequence instance keeps its inner state between calls.
  EXPECT_TRUE(Analyze(sequence, Video(1, true, T0), sequenceResult));
  EXPECT_TRUE(Analyze(sequence, Video(3, false, T0 + 80), sequenceResult));
  EXPECT_EQ(sequenceResult.m_Status, SmByteDataSequenceResult::SequenceGap);

  CmVideoStreamAttributesStreamAnalyzer analyzer;
  SmVideoStreamAttributes r;
  const SmImageForm interleaved{.interlaced = true, .topFieldFirst = true, .layout = 0};
  ASSERT_TRUE(Analyze(analyzer, Video(1, true, T0, interleaved), r));
  EXPECT_EQ(r.m_Codec, 10u);
  EXPECT_TRUE(r.m_Interlaced && r.m_TopFieldFirst);
  // Layout 2 reads as interleaved: compatible, and the result carries 2.
  ASSERT_TRUE(Analyze(
      analyzer, Video(2, false, T0 + 40, {.interlaced = true, .topFieldFirst = true, .layout = 2}),
      r));
  EXPECT_EQ(r.m_Status, 0u);
  EXPECT_EQ(r.m_InterlaceLayout, 2u);
  // Separate fields within the sequence: a change.
  ASSERT_TRUE(Analyze(
      analyzer, Video(3, false, T0 + 80, {.interlaced = true, .topFieldFirst = true, .layout = 1}),
      r));
  EXPECT_EQ(r.m_Status, 1u);
  // Turned picture in a dependent frame: a change; at a sync frame: none.
  ASSERT_TRUE(Analyze(analyzer, Video(4, false, T0 + 120, {.rotatedQuarterTurn = true}), r));
  EXPECT_EQ(r.m_Status, 1u);
  EXPECT_EQ(r.m_PictureFormat, 4u);
  ASSERT_TRUE(Analyze(analyzer, Video(5, true, T0, interleaved), r));
  EXPECT_EQ(r.m_Status, 0u);
  // Separate fields after interleaved ones (layout 0): a change too.
  ASSERT_TRUE(Analyze(
      analyzer, Video(6, false, T0 + 40, {.interlaced = true, .topFieldFirst = true, .layout = 1}),
      r));
  EXPECT_EQ(r.m_Status, 1u);
  ASSERT_TRUE(Analyze(analyzer, Video(7, true, T0, interleaved), r));
  // Field bits without the interlaced bit contradict each other.
  ASSERT_TRUE(Analyze(analyzer, Video(8, false, T0 + 200, {.topFieldFirst = true}), r));
  EXPECT_EQ(r.m_Status, 2u);
  // Time running back into a dependent frame resets and tells nothing.
  EXPECT_FALSE(Analyze(analyzer, Video(9, false, T0 + 100), r));

  // Blocks compare with nothing; raw JPEG is a one-image JPEG block.
  ASSERT_TRUE(Analyze(analyzer,
                      BuildBlock({.type = 4,
                                  .imageForm = {.flippedHorizontally = true},
                                  .beginTime = T0 + 300,
                                  .endTime = T0 + 300}),
                      r));
  EXPECT_EQ(r.m_Status, 0u);
  EXPECT_EQ(r.m_Codec, 4u);
  EXPECT_EQ(r.m_PictureFormat, 2u);
  ASSERT_TRUE(Analyze(analyzer, BuildRawJPEG(64), r));
  EXPECT_EQ(r.m_Codec, 1u);
  // Audio tells nothing about video.
  EXPECT_FALSE(Analyze(analyzer, BuildAudioPacket({}), r));
}

TEST(StreamAnalyzer, SizeAnalysisUsesTheCodecsAnalyzer) {
  CmVideoSizeKeyFrameStreamAnalyzer analyzer;
  SmVideoSize size{7, 7};
  // A JPEG 2000 record whose payload is no codestream: the codec's analyser
  // answers, and says it cannot tell.
  EXPECT_FALSE(Analyze(analyzer, Video(1, true, T0, {}, 8), size));
  EXPECT_EQ(size, (SmVideoSize{7, 7}));
  // A codec without an engine in this build raises through.
  EXPECT_THROW(Analyze(analyzer, Video(2, true, T0, {}, 128), size), NmError::CmIntegrityError);
  // Codec 0 tells nothing.
  EXPECT_FALSE(Analyze(analyzer, Video(3, true, T0, {}, 0), size));
  const uint8_t bytes[4] = {1, 2, 3, 4};
  EXPECT_FALSE(analyzer.AnalyzeRawData(8, bytes, sizeof bytes, size));
  EXPECT_FALSE(analyzer.AnalyzeRawData(0, bytes, sizeof bytes, size));
}
