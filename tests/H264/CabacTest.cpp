#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <vector>

#include "Codecs/H264/CabacDecoder.h"
#include "support/CabacEncoder.h"

using namespace NmH264;
using NmTestSupport::CmCabacEncoder;

// Long random runs of every kind of bin, with contexts near certainty and
// near even odds, bypass runs such as long Exp-Golomb suffixes, terminating
// bins of 0 and of 1 with PCM bytes behind them: the decoder returns each
// bin, stands exactly behind the flushed bits after a terminating 1, and
// says so when it has read past the end.
TEST(H264Cabac, EngineFollowsTheEncoderThroughEveryKindOfBin) {
  std::mt19937 random(2026);
  enum Kind { Decision, Bypass, Terminate, Pcm };
  struct SmBin {
    Kind kind;
    int context;
    int bin;
  };
  std::vector<SmBin> bins;
  for (int i = 0; i < 60000; ++i) {
    const unsigned choice = random() % 100;
    if (choice < 70) {
      // Context c produces ones with probability c / 8.
      const int context = static_cast<int>(random() % 9);
      bins.push_back({Decision, context, static_cast<int>(random() % 8) < context ? 1 : 0});
    } else if (choice < 95) {
      bins.push_back({Bypass, 0, static_cast<int>(random() % 2)});
    } else if (choice < 99) {
      bins.push_back({Terminate, 0, 0});
    } else {
      bins.push_back({Pcm, 0, static_cast<int>(random() % 256)});
    }
  }
  uint8_t encoderContexts[9], decoderContexts[9];
  for (int c = 0; c < 9; ++c) {
    // Both valMPS and states from 0 to 62.
    encoderContexts[c] = decoderContexts[c] = static_cast<uint8_t>((c * 7 % 63) << 1 | (c & 1));
  }
  CmCabacEncoder encoder;
  std::vector<size_t> pcmAt; // bit count of the flush before each PCM
  for (const SmBin& b : bins) {
    switch (b.kind) {
    case Decision:
      encoder.EncodeDecision(encoderContexts[b.context], b.bin);
      break;
    case Bypass:
      encoder.EncodeBypass(b.bin);
      break;
    case Terminate:
      encoder.EncodeTerminate(0);
      break;
    case Pcm:
      encoder.EncodeTerminate(1);
      pcmAt.push_back(encoder.GetBitCount());
      encoder.AlignWithZeros();
      encoder.WriteByte(static_cast<uint8_t>(b.bin));
      encoder.Restart();
      break;
    }
  }
  encoder.EncodeTerminate(1);
  const size_t end = encoder.GetBitCount();
  encoder.AlignWithZeros();
  const std::vector<uint8_t> bytes = encoder.GetBytes();

  CmCabacDecoder decoder;
  decoder.Start(bytes.data(), bytes.size(), 0);
  size_t pcm = 0;
  for (size_t i = 0; i < bins.size(); ++i) {
    const SmBin& b = bins[i];
    switch (b.kind) {
    case Decision:
      ASSERT_EQ(decoder.DecodeDecision(decoderContexts[b.context]), b.bin) << i;
      break;
    case Bypass:
      ASSERT_EQ(decoder.DecodeBypass(), b.bin) << i;
      break;
    case Terminate:
      ASSERT_EQ(decoder.DecodeTerminate(), 0) << i;
      break;
    case Pcm: {
      ASSERT_EQ(decoder.DecodeTerminate(), 1) << i;
      ASSERT_EQ(decoder.GetBitPosition(), pcmAt[pcm++]) << i;
      const size_t byte = (decoder.GetBitPosition() + 7) / 8;
      ASSERT_EQ(bytes[byte], b.bin);
      decoder.Start(bytes.data(), bytes.size(), byte + 1);
      break;
    }
    }
  }
  EXPECT_EQ(decoder.DecodeTerminate(), 1);
  EXPECT_EQ(decoder.GetBitPosition(), end);
  EXPECT_FALSE(decoder.IsOverrun());
  for (int c = 0; c < 9; ++c) {
    EXPECT_EQ(decoderContexts[c], encoderContexts[c]);
  }

  // Cut short, the data ends within the last bins.
  CmCabacDecoder cut;
  cut.Start(bytes.data(), bytes.size() / 2, bytes.size() / 2 - 2);
  for (int i = 0; i < 64; ++i) {
    cut.DecodeBypass();
  }
  EXPECT_TRUE(cut.IsOverrun());
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
