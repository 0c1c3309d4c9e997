#include <gtest/gtest.h>

#include "MediaProcessing/GenericByteData/ByteDataVideoAccess.h"
#include "MediaProcessing/GenericByteData/RawVideoByteDataAccess.h"
#include "TestTimes.h"
#include "support/GenericByteDataBuilder.h"
#include "support/ImageTestSupport.h"

using namespace NmMediaProcessing;
using namespace NmTestSupport;
using NmTimeStamp::CmTimeStamp;

namespace {
struct CmRecord {
  explicit CmRecord(CmBytes b) : bytes(std::move(b)), record(bytes.data(), bytes.size()) {}
  CmBytes bytes;
  CmGenericByteData record;
};

// What a view says: codec, where its data starts in the record and how long
// it is, the time in milliseconds, the image count and the sync flag.
using SmFacts = std::tuple<uint32_t, int64_t, uint64_t, int64_t, uint64_t, bool>;
SmFacts Facts(const CmRawVideoByteDataAccess& view, const CmRecord& record) {
  return {view.GetCodec(),      view.GetData() - record.bytes.data(),
          view.GetDataSize(),   view.GetTime().GetMilliseconds(),
          view.GetImageCount(), view.GetSync()};
}
} // namespace

TEST(RawVideoByteDataAccess, ViewsOfEveryKind) {
  CmRecord block(BuildBlock({.type = 11,
                             .extension = Pattern(3),
                             .imageForm = {.interlaced = true, .layout = 3},
                             .beginTime = 100,
                             .endTime = 400,
                             .imageCount = 4,
                             .payload = Pattern(20)}));
  const CmRawVideoByteDataAccess blockView(block.record, false);
  ASSERT_TRUE(blockView.IsValid());
  EXPECT_EQ(Facts(blockView, block), SmFacts(12, 39, 20, 100, 4, true));
  EXPECT_EQ(blockView.GetRawSize(), block.bytes.size());
  EXPECT_TRUE(blockView.GetInterlaced() && !blockView.GetTopFieldFirst());
  EXPECT_EQ(blockView.GetInterlaceLayout(), 3u);
  CmTimeStamp time;
  ASSERT_TRUE(blockView.GetTimeStampForImage(3, time));
  EXPECT_EQ(time, Ms(400));
  NmImageTest::ExpectError([&] { blockView.GetTimeStampForImage(4, time); }, "Invalid image index",
                           2, "NmMediaProcessing::CmRawVideoByteDataAccess::GetTimeStampForImage");

  CmRecord packet(BuildVideoPacket({.codec = 128,
                                    .sync = false,
                                    .imageForm = {.rotatedQuarterTurn = true},
                                    .syncTime = 10,
                                    .frameTime = 50}));
  const CmRawVideoByteDataAccess packetView(packet.record, false);
  ASSERT_TRUE(packetView.IsValid());
  EXPECT_EQ(Facts(packetView, packet), SmFacts(128, 32, 16, 50, 1, false));
  EXPECT_EQ(packetView.GetPictureFormat(), 4u);

  // The multi packet's first video packet is viewed; the raw fields stay
  // those of the multi packet.
  const CmBytes inner = BuildVideoPacket({.codec = 10, .frameTime = 77});
  CmRecord multi(BuildMultiPacket({.packets = {BuildAudioPacket({}), inner}}));
  const CmRawVideoByteDataAccess multiView(multi.record, false);
  ASSERT_TRUE(multiView.IsValid());
  EXPECT_EQ(Facts(multiView, multi),
            SmFacts(10, static_cast<int64_t>(multi.bytes.size()) - 16, 16, 77, 1, true));
  EXPECT_EQ(multiView.GetRawData(), multi.bytes.data());
  CmRecord audioOnly(BuildMultiPacket({.packets = {BuildAudioPacket({})}}));
  EXPECT_FALSE(CmRawVideoByteDataAccess(audioOnly.record, true).IsValid());

  // A raw JPEG has no time of its own: each view takes the moment of viewing.
  CmRecord jpeg(BuildRawJPEG(64));
  const CmTimeStamp before(CmTimeStamp::Current);
  const CmRawVideoByteDataAccess jpegView(jpeg.record, false);
  const CmTimeStamp after(CmTimeStamp::Current);
  ASSERT_TRUE(jpegView.IsValid());
  EXPECT_EQ(jpegView.GetCodec(), 1u);
  EXPECT_EQ(jpegView.GetDataSize(), 64u);
  EXPECT_TRUE(jpegView.GetTime() >= before && jpegView.GetTime() <= after);

  // Audio is not video, and an empty record has no view.
  CmRecord audio(BuildAudioPacket({}));
  const CmRawVideoByteDataAccess audioView(audio.record, true);
  EXPECT_FALSE(audioView.IsValid());
  EXPECT_FALSE(CmRawVideoByteDataAccess(CmGenericByteData(), true).IsValid());
  CmRecord otherPacket(BuildVideoPacket({.type = 17}));
  EXPECT_FALSE(CmRawVideoByteDataAccess(otherPacket.record, true).IsValid());
}

TEST(RawVideoByteDataAccess, StrictRefusesWhatLenientPassesOver) {
  // An intra-only frame that claims not to be a sync frame.
  CmRecord jpegFrame(BuildVideoPacket({.codec = 1, .sync = false}));
  EXPECT_FALSE(CmRawVideoByteDataAccess(jpegFrame.record, false).IsValid());
  const CmRawVideoByteDataAccess lenientFrame(jpegFrame.record, true);
  EXPECT_TRUE(lenientFrame.IsValid() && lenientFrame.IsLenient());
  CmRecord h264Frame(BuildVideoPacket({.codec = 10, .sync = false}));
  EXPECT_TRUE(CmRawVideoByteDataAccess(h264Frame.record, false).IsValid());

  // Blocks whose times contradict themselves, or that hold no image.
  const SmBlockFields damaged[] = {
      {.type = 1, .endTime = 10, .imageCount = 2},
      {.type = 10, .beginTime = 20, .endTime = 10, .imageCount = 2},
      {.type = 10, .imageCount = 0},
      {.type = 10, .endTime = 5, .imageCount = 1},
  };
  for (const SmBlockFields& fields : damaged) {
    CmRecord block(BuildBlock(fields));
    CmRawVideoByteDataAccess view;
    view.Initialize(block.record);
    EXPECT_FALSE(view.IsValid() || view.IsLenient()) << fields.type << " " << fields.imageCount;
    view.Initialize(block.record, true);
    ASSERT_TRUE(view.IsValid());
    EXPECT_EQ(view.GetCodec(), fields.type);
    EXPECT_EQ(view.GetImageCount(), fields.imageCount);
  }
  // An invalid type is refused even leniently.
  CmRecord bad(BuildBlock({.type = 13}));
  EXPECT_FALSE(CmRawVideoByteDataAccess(bad.record, true).IsValid());
}

namespace {
// A block of five images at 0, 100, 200, 300, 400 ms (end time inclusive).
struct CmFiveImages {
  CmFiveImages()
      : block(BuildBlock({.beginTime = 1000, .endTime = 1400, .imageCount = 5})),
        view(block.record, false) {}
  bool Match(int64_t ms, SmTimeMatchType type, CmTimeStamp* matched, bool syncOnly = false) {
    return CmByteDataVideoAccess::IsByteDataMatched(Ms(ms), type, syncOnly, block.record, view,
                                                    matched);
  }
  CmRecord block;
  CmRawVideoByteDataAccess view;
};
} // namespace

TEST(ByteDataVideoAccess, EachMatchTypeSyncFramesOnlySingleImagesAndMisuse) {
  CmFiveImages f;
  ASSERT_TRUE(f.view.IsValid());
  // Per time, the image each type matches (0: none), in the order After,
  // Before, AtOrAfter, AtOrBefore, Nearest, Exact.
  const std::pair<int64_t, std::array<int64_t, 6>> table[] = {
      {999, {1000, 0, 1000, 0, 1000, 0}},           // before the first image
      {1000, {1100, 0, 1000, 1000, 1000, 1000}},    // at the first image
      {1130, {1200, 1100, 1200, 1100, 1100, 0}},    // between images
      {1150, {1200, 1100, 1200, 1100, 1200, 0}},    // a tie goes to the later image
      {1170, {1200, 1100, 1200, 1100, 1200, 0}},    //
      {1200, {1300, 1100, 1200, 1200, 1200, 1200}}, // on an inner image
      {1400, {0, 1300, 1400, 1400, 1400, 1400}},    // at the last image
      {1401, {0, 1400, 0, 1400, 1400, 0}},          // behind the last image
  };
  for (const auto& [time, wanted] : table) {
    for (uint32_t type = 0; type < 6; ++type) {
      CmTimeStamp matched = Ms(1);
      const bool result = f.Match(time, static_cast<SmTimeMatchType>(type), &matched);
      EXPECT_EQ(result ? matched.GetMilliseconds() : 0, wanted[type]) << time << " type " << type;
      // Without an output the answer is the same.
      EXPECT_EQ(f.Match(time, static_cast<SmTimeMatchType>(type), nullptr), wanted[type] != 0)
          << time << " type " << type;
    }
  }

  CmTimeStamp matched;
  // With sync frames only a block is its first image.
  ASSERT_TRUE(f.Match(1300, TimeMatchAtOrBefore, &matched, true));
  EXPECT_EQ(matched, Ms(1000));
  EXPECT_FALSE(f.Match(1000, TimeMatchAfter, &matched, true));
  EXPECT_FALSE(f.Match(1200, TimeMatchExact, &matched, true));

  CmRecord frame(BuildVideoPacket({.sync = false, .syncTime = 0, .frameTime = 500}));
  const CmRawVideoByteDataAccess frameView(frame.record, false);
  auto match = [&](int64_t ms, SmTimeMatchType type, bool syncOnly) {
    return CmByteDataVideoAccess::IsByteDataMatched(Ms(ms), type, syncOnly, frame.record, frameView,
                                                    &matched);
  };
  EXPECT_FALSE(match(500, TimeMatchNearest, true));
  EXPECT_FALSE(match(501, TimeMatchExact, false));
  ASSERT_TRUE(match(900, TimeMatchNearest, false));
  EXPECT_EQ(matched, Ms(500));
  EXPECT_FALSE(match(500, TimeMatchAfter, false));
  EXPECT_FALSE(match(500, TimeMatchBefore, false));

  // Misuse: an empty record, an invalid view, an unknown match type.
  const CmRawVideoByteDataAccess invalid;
  EXPECT_THROW(CmByteDataVideoAccess::IsByteDataMatched(Ms(0), TimeMatchNearest, false,
                                                        CmGenericByteData(), f.view, nullptr),
               NmError::CmIntegrityError);
  NmImageTest::ExpectError(
      [&] {
        CmByteDataVideoAccess::IsByteDataMatched(Ms(0), TimeMatchNearest, false, f.block.record,
                                                 invalid, nullptr);
      },
      "Byte data is not valid for video access", 2);
  NmImageTest::ExpectError([&] { f.Match(1000, static_cast<SmTimeMatchType>(6), nullptr); },
                           "Unknown time match type", 2);
}
