#include <gtest/gtest.h>

#include <cfenv>

#include "MediaProcessing/GenericByteData/GenericByteDataBlock.h"
#include "TestTimes.h"
#include "support/CaughtError.h"
#include "support/GenericByteDataBuilder.h"

using namespace NmMediaProcessing;
using namespace NmTestSupport;
using NmTimeStamp::CmTimeStamp;

namespace {
struct CmBlockFixture {
  explicit CmBlockFixture(const SmBlockFields& fields)
      : bytes(BuildBlock(fields)), block(bytes.data(), bytes.size()) {}
  CmBytes bytes;
  CmGenericVideoByteDataBlock block;
};
} // namespace

TEST(GenericByteDataBlockTimes, ValidityRulesPerTypeAndImageCount) {
  struct {
    uint16_t type;
    uint16_t imageCount;
    uint64_t begin, end;
    bool valid;
  } const table[] = {
      {10, 0, 5, 5, false}, {10, 1, 5, 5, true},  {10, 1, 5, 6, false}, {10, 2, 5, 5, false},
      {10, 2, 5, 6, true},  {10, 2, 6, 5, false}, {1, 1, 5, 5, true},   {1, 2, 5, 6, false},
      {8, 2, 5, 6, false},  {8, 2, 5, 5, false},  {4, 30, 0, 1, true},  {15, 3, 9, 10, true},
  };
  for (const auto& row : table) {
    CmBlockFixture f({.type = row.type,
                      .beginTime = row.begin,
                      .endTime = row.end,
                      .imageCount = row.imageCount});
    EXPECT_EQ(f.block.AreTimesValid(), row.valid)
        << row.type << " " << row.imageCount << " " << row.begin << " " << row.end;
  }
}

namespace {
// The time of image `index` in milliseconds, or -1 when there is none.
int64_t ImageTime(const CmBlockFixture& f, uint64_t index) {
  CmTimeStamp time;
  return f.block.GetTimeStampForImage(index, time) ? time.GetMilliseconds() : -1;
}
using SmShown = std::pair<int64_t, int64_t>;
// The image shown at `ms` and its time, or {-1, -1} when none is.
SmShown Shown(const CmBlockFixture& f, int64_t ms) {
  uint64_t index = 99;
  CmTimeStamp time;
  return f.block.GetImageIndexForTime(Ms(ms), index, time)
             ? SmShown(static_cast<int64_t>(index), time.GetMilliseconds())
             : SmShown(-1, -1);
}
} // namespace

TEST(GenericByteDataBlockTimes, ImageTimesIntervalsRoundingAndWireTimesBeyondTheRange) {
  // Last image at the end time: two images at 0 and 1000 ms.
  CmBlockFixture closed({.lastImageAtEndTime = true, .endTime = 1000, .imageCount = 2});
  EXPECT_EQ(Shown(closed, 1000), SmShown(1, 1000));
  EXPECT_EQ(Shown(closed, 999), SmShown(0, 0));
  EXPECT_EQ(Shown(closed, 1001), SmShown(-1, -1));

  // End time exclusive: the same times put images at 0 and 500, and 1000
  // lies outside the block.
  CmBlockFixture open({.lastImageAtEndTime = false, .endTime = 1000, .imageCount = 2});
  EXPECT_EQ(ImageTime(open, 1), 500);
  EXPECT_EQ(Shown(open, 1000), SmShown(-1, -1));
  EXPECT_EQ(Shown(open, 500), SmShown(1, 500));
  EXPECT_EQ(Shown(open, 499), SmShown(0, 0));

  // Before the first image, and indices beyond the images.
  CmBlockFixture later({.beginTime = 100, .endTime = 400, .imageCount = 4});
  uint64_t index = 99;
  CmTimeStamp time;
  EXPECT_FALSE(later.block.GetImageIndexForTime(Ms(99), index, time));
  EXPECT_EQ(index, 0u);
  EXPECT_EQ(ImageTime(later, 4), -1);
  EXPECT_EQ(ImageTime(later, 3), 400);

  // One image: only its own time matches.
  CmBlockFixture single({.beginTime = 70, .endTime = 70, .imageCount = 1});
  EXPECT_EQ(Shown(single, 70), SmShown(0, 70));
  EXPECT_EQ(Shown(single, 71), SmShown(-1, -1));

  // No images, or an end before the begin: nothing to find.
  CmBlockFixture none({.endTime = 10, .imageCount = 0});
  CmBlockFixture backwards({.beginTime = 10, .endTime = 5, .imageCount = 2});
  EXPECT_EQ(ImageTime(none, 0) + ImageTime(backwards, 0), -2);
  EXPECT_EQ(Shown(none, 5).first + Shown(backwards, 7).first, -2);

  // 29 ms over 7 intervals: a quotient rounded to nearest lies above 29/7 and
  // would put the last image at 30 ms, behind the end of the block.
  CmBlockFixture f({.lastImageAtEndTime = true, .endTime = 29, .imageCount = 8});
  ASSERT_EQ(std::fegetround(), FE_TONEAREST);
  EXPECT_EQ(Shown(f, 29), SmShown(7, 29));
  EXPECT_EQ(std::fegetround(), FE_TONEAREST);
  // Images land on ceil(index x interval): 0, 5, 9, 13, 17, 21, 25, 29.
  const int64_t expected[] = {0, 5, 9, 13, 17, 21, 25, 29};
  for (uint64_t i = 0; i < 8; ++i) {
    EXPECT_EQ(ImageTime(f, i), expected[i]) << i;
  }
  // Far-apart times must not overflow the index arithmetic.
  CmBlockFixture wide({.endTime = 1800000000000000, .imageCount = 65535});
  EXPECT_EQ(Shown(wide, 1799999999999999).first, 65533);

  const uint64_t limit = 1844674407370956ULL - 11644473600000ULL;
  CmBlockFixture edge({.beginTime = limit - 1, .endTime = limit - 1});
  EXPECT_EQ(edge.block.GetBeginTime().GetMilliseconds(), static_cast<int64_t>(limit - 1));
  for (uint64_t wire : {limit, ~uint64_t{0}}) {
    CmBlockFixture beyond({.beginTime = wire, .endTime = wire});
    EXPECT_THROW(beyond.block.GetBeginTime(), NmTimeStamp::CmTimeError) << wire;
    EXPECT_THROW(beyond.block.AreTimesValid(), NmTimeStamp::CmTimeError) << wire;
  }
  CmBlockFixture beyondEnd({.beginTime = 0, .endTime = ~uint64_t{0}, .imageCount = 2});
  EXPECT_EQ(NmTestSupport::Caught<NmTimeStamp::CmTimeError>([&] {
              beyondEnd.block.GetEndTime();
            })->GetDescription(),
            "Error initializing time stamp. Invalid number of milliseconds given!");
}

TEST(GenericByteDataBlockFlags, EndTimeExclusiveLeavesOtherBitsAlone) {
  CmBlockFixture f({.lastImageAtEndTime = true, .extraFlags = 0x80000001u});
  EXPECT_FALSE(f.block.IsEndTimeExclusive());
  ASSERT_TRUE(f.block.SetEndTimeExclusive(true));
  EXPECT_TRUE(f.block.IsEndTimeExclusive());
  EXPECT_EQ(f.bytes[4] << 8 | f.bytes[7], 0x8001);
  ASSERT_TRUE(f.block.SetEndTimeExclusive(false));
  EXPECT_EQ(f.bytes[7], 0x03);
  ASSERT_TRUE(f.block.SetPictureFormat(15) && f.block.SetInterlacing(true, false, 3));
  EXPECT_EQ(f.bytes[4] << 8 | (f.bytes[7] & 0x03), 0x8003);
  EXPECT_FALSE(f.block.IsEndTimeExclusive());
}
