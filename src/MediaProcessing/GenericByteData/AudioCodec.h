#pragma once

#include <cstdint>

namespace NmMediaProcessing {

// Audio codec values and codec options of audio stream data packets, shared
// by everything that writes or reads them.
struct SmAudioCodec {
  enum : uint32_t {
    Unknown = 0,
    PCM = 1,
    // G.711 in any form; the narrow form is telephony: one channel at 8 kHz.
    G711 = 2,
    G711Telephony = 3,
    G726 = 4,
    MPEG1Audio = 16,
    AAC = 17,
    // AAC in LOAS frames, the form the AAC decoder reads.
    AACLoas = 18,
  };
};

// CodecOption of G.711 packets: the companding law.
struct SmG711Law {
  enum : uint32_t { ALaw = 1, MuLaw = 2 };
};

// CodecOption of G.726 packets: the rate index in the low bits (1 to 4 for
// 16, 24, 32 and 40 kbit/s, that is 2 to 5 bits a code word), and bit 15 set
// when code words are packed from the most significant bit of each byte
// (as ATM AAL2 does) rather than from the least (as RFC 3551 does).
struct SmG726Option {
  enum : uint32_t { MostSignificantFirst = 0x8000, RateMask = 0x7 };
  static constexpr uint32_t RateIndex(uint32_t bitsPerCode) { return bitsPerCode - 1; }
};

// CodecOption of AAC packets: the profile, one bit each.
struct SmAACProfile {
  enum : uint32_t {
    LowComplexity = 1,
    LongTermPrediction = 2,
    Main = 4,
    Scalable = 8,
    HighEfficiency = 16
  };
};

} // namespace NmMediaProcessing
