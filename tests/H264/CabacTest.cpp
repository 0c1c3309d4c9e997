#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <vector>

#include "Codecs/H264/CabacDecoder.h"
#include "support/CabacEncoder.h"

using namespace NmH264;
using NmTestSupport::CmCabacEncoder;

// Every kind of bin, contexts at every state, and the PCM bytes behind a
// terminating 1 show in the CABAC streams that the decode tests compare with
// ffmpeg's pictures. What no valid stream shows: the decoder stands exactly
// behind the flushed bits after the last terminating bin, and says so when
// data that ends within the bins has been read past.
TEST(H264Cabac, EngineStopsBehindTheFlushAndTellsAnOverrun) {
  std::mt19937 random(2026);
  CmCabacEncoder encoder;
  std::vector<int> bins;
  for (int i = 0; i < 2000; ++i) {
    bins.push_back(static_cast<int>(random() % 2));
    encoder.EncodeBypass(bins.back());
  }
  encoder.EncodeTerminate(1);
  const size_t end = encoder.GetBitCount();
  encoder.AlignWithZeros();
  const std::vector<uint8_t> bytes = encoder.GetBytes();

  CmCabacDecoder decoder;
  decoder.Start(bytes.data(), bytes.size(), 0);
  for (size_t i = 0; i < bins.size(); ++i) {
    ASSERT_EQ(decoder.DecodeBypass(), bins[i]) << i;
  }
  EXPECT_EQ(decoder.DecodeTerminate(), 1);
  EXPECT_EQ(decoder.GetBitPosition(), end);
  EXPECT_FALSE(decoder.IsOverrun());

  // Cut short, the data ends within the last bins.
  CmCabacDecoder cut;
  cut.Start(bytes.data(), bytes.size() / 2, bytes.size() / 2 - 2);
  for (int i = 0; i < 64; ++i) {
    cut.DecodeBypass();
  }
  EXPECT_TRUE(cut.IsOverrun());

  // An offset that doubles to exactly the range is a 1, and leaves nothing:
  // the first nine bits start codIOffset at 255, the tenth bit is 0.
  const uint8_t equal[] = {0x7f, 0x80, 0x00, 0x00};
  CmCabacDecoder boundary;
  boundary.Start(equal, sizeof equal, 0);
  EXPECT_EQ(boundary.DecodeBypass(), 1);
  EXPECT_EQ(boundary.DecodeBypass(), 0);
}

// Initial states: the formula, and its clipping points in QP and in the
// state. (The values of the tables show in every CABAC stream decoded.)
TEST(H264Cabac, ContextInitialisation) {
  uint8_t contexts[1024], low[1024], high[1024];
  InitialiseCabacContexts(contexts, 3, 26);
  // ctxIdx 0 (m 20, n -15) at QP 26: ((20 * 26) >> 4) - 15 = 17, an LPS
  // state of 63 - 17 = 46 with valMPS 0; the terminating context stays at
  // state 63.
  EXPECT_EQ(contexts[0], 46 << 1);
  EXPECT_EQ(contexts[276], 63 << 1);
  // ctxIdx 6 (m -28, n 127): 127 at QP 0 clips to 126; at QP 51,
  // ((-28 * 51) >> 4) + 127 = -90 + 127 = 37, state 26, valMPS 0 (the shift
  // rounds towards minus infinity). QPs beyond count as the nearest end.
  InitialiseCabacContexts(low, 3, -5);
  InitialiseCabacContexts(high, 3, 60);
  EXPECT_EQ(low[6], (126 - 64) << 1 | 1);
  EXPECT_EQ(high[6], 26 << 1);
}
