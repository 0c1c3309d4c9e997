#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "Codecs/H264/MotionRecord.h"
#include "Codecs/H264/Picture.h"

using NmH264::CmMotionRecord;
using NmH264::SmMacroblockInfo;

namespace {

// Whether direct prediction can read block (x, y) as co-located under the
// layout chosen for a sequence: the corners with the inference in frames
// only, the outer columns with fields too, every block without it.
bool Readable(CmMotionRecord::SmLayout layout, int x, int y) {
  const bool outerX = x == 0 || x == 3, outerY = y == 0 || y == 3;
  return layout == CmMotionRecord::SmLayout::All ||
         (outerX && (outerY || layout == CmMotionRecord::SmLayout::Columns));
}

} // namespace

// No encoder at hand writes direct_8x8_inference_flag 0, and the test
// writer codes one vector per macroblock: so every kept block is checked
// here against the full record it came from, with vectors that differ per
// block, list 1 where list 0 is unused, intra blocks with stale motion,
// and pictures named by large identities.
TEST(H264MotionRecord, EveryBlockThatCanBeCoLocatedReadsAsInTheFullRecord) {
  const unsigned seed = std::random_device()();
  SCOPED_TRACE(testing::Message() << "seed " << seed);
  std::mt19937 random(seed);
  constexpr uint32_t Count = 40;
  std::vector<SmMacroblockInfo> mbs(Count);
  const uint32_t pictures[] = {0, 7, 0x12345678, 0xfffffff0};
  for (SmMacroblockInfo& mb : mbs) {
    mb.kind = random() % 4 == 0 ? NmH264::MbI4x4 : NmH264::MbInter;
    mb.field = random() % 2 != 0;
    for (int list = 0; list < 2; ++list) {
      for (int b8 = 0; b8 < 4; ++b8) {
        mb.refIdx[list][b8] = static_cast<int8_t>(static_cast<int>(random() % 4) - 1);
        mb.refPicture[list][b8] = pictures[random() % 4];
      }
      for (auto& mv : mb.mv[list]) {
        mv[0] = static_cast<int16_t>(random());
        mv[1] = static_cast<int16_t>(random());
      }
    }
  }
  for (const auto layout : {CmMotionRecord::SmLayout::Corners, CmMotionRecord::SmLayout::Columns,
                            CmMotionRecord::SmLayout::All}) {
    for (const bool mbaff : {false, true}) {
      CmMotionRecord record;
      record.Store(mbs.data(), Count, mbaff, layout);
      for (uint32_t address = 0; address < Count; ++address) {
        const SmMacroblockInfo& mb = mbs[address];
        EXPECT_EQ(record.IsField(address), mbaff && mb.field);
        for (int y = 0; y < 4; ++y) {
          for (int x = 0; x < 4; ++x) {
            if (!Readable(layout, x, y)) {
              continue;
            }
            const int b8 = x / 2 + 2 * (y / 2);
            const int list = mb.refIdx[0][b8] >= 0 ? 0 : 1;
            const bool intra = NmH264::IsIntra(mb.kind);
            const int refIdx = intra ? -1 : mb.refIdx[list][b8];
            const CmMotionRecord::SmColocated read = record.Read(address, x, y);
            ASSERT_EQ(read.refIdx, refIdx < 0 ? -1 : refIdx == 0 ? 0 : 1) << address << x << y;
            ASSERT_EQ(read.mv[0], intra ? 0 : mb.mv[list][x + 4 * y][0]) << address << x << y;
            ASSERT_EQ(read.mv[1], intra ? 0 : mb.mv[list][x + 4 * y][1]) << address << x << y;
            if (refIdx >= 0) {
              ASSERT_EQ(read.picture, mb.refPicture[list][b8]) << address << x << y;
            }
          }
        }
      }
      EXPECT_EQ(record.Read(Count, 0, 0).refIdx, -1);
      record.Release();
      const CmMotionRecord::SmColocated released = record.Read(0, 0, 0);
      EXPECT_TRUE(released.refIdx == -1 && released.mv[0] == 0 && released.mv[1] == 0);
      EXPECT_FALSE(record.IsField(0));
    }
  }
}
