#pragma once

#include <cstdint>
#include <vector>

#include "Codecs/H264/CabacDecoder.h"

namespace NmTestSupport {

// The arithmetic encoder of CABAC, bit by bit as the standard gives it, so
// that tests can make streams the decoder has to follow. Contexts use the
// decoder's byte form: pStateIdx << 1 | valMPS.
class CmCabacEncoder {
public:
  void EncodeDecision(uint8_t& context, int bin) {
    const int state = context >> 1;
    const uint32_t lps = NmH264::CmCabacDecoder::RangeTabLps[state][(m_Range >> 6) & 3];
    m_Range -= lps;
    if (bin != (context & 1)) {
      m_Low += m_Range;
      m_Range = lps;
      context = NmH264::CmCabacDecoder::TransitionLps[context];
    } else {
      context = NmH264::CmCabacDecoder::TransitionMps[context];
    }
    Renormalise();
  }

  void EncodeBypass(int bin) {
    m_Low <<= 1;
    if (bin != 0) {
      m_Low += m_Range;
    }
    if (m_Low >= 1024) {
      PutBit(1);
      m_Low -= 1024;
    } else if (m_Low < 512) {
      PutBit(0);
    } else {
      m_Low -= 512;
      ++m_Outstanding;
    }
  }

  // A terminating 1 flushes the encoder; its last bit is a 1 that serves
  // as the stop bit of the slice data, or precedes the I_PCM alignment.
  void EncodeTerminate(int bin) {
    m_Range -= 2;
    if (bin != 0) {
      m_Low += m_Range;
      m_Range = 2;
      Renormalise();
      PutBit(m_Low >> 9 & 1);
      WriteBit(m_Low >> 8 & 1);
      WriteBit(1);
    } else {
      Renormalise();
    }
  }

  // Zero bits up to the byte boundary, as after the stop bit or before
  // PCM samples.
  void AlignWithZeros() {
    while (m_Bits.size() % 8 != 0) {
      m_Bits.push_back(0);
    }
  }
  void WriteByte(uint8_t value) {
    for (int i = 7; i >= 0; --i) {
      m_Bits.push_back(static_cast<uint8_t>(value >> i & 1));
    }
  }
  // The engine starts over, as after PCM samples.
  void Restart() {
    m_Low = 0;
    m_Range = 510;
    m_Outstanding = 0;
    m_FirstBit = true;
  }
  void WriteBit(int bit) { m_Bits.push_back(static_cast<uint8_t>(bit)); }
  size_t GetBitCount() const { return m_Bits.size(); }
  const std::vector<uint8_t>& GetBits() const { return m_Bits; }
  std::vector<uint8_t> GetBytes() const {
    std::vector<uint8_t> bytes((m_Bits.size() + 7) / 8);
    for (size_t i = 0; i < m_Bits.size(); ++i) {
      bytes[i / 8] = static_cast<uint8_t>(bytes[i / 8] | m_Bits[i] << (7 - i % 8));
    }
    return bytes;
  }

private:
  void Renormalise() {
    while (m_Range < 256) {
      if (m_Low < 256) {
        PutBit(0);
      } else if (m_Low >= 512) {
        m_Low -= 512;
        PutBit(1);
      } else {
        m_Low -= 256;
        ++m_Outstanding;
      }
      m_Range <<= 1;
      m_Low <<= 1;
    }
  }
  void PutBit(uint32_t bit) {
    if (m_FirstBit) {
      m_FirstBit = false;
    } else {
      WriteBit(static_cast<int>(bit));
    }
    for (; m_Outstanding > 0; --m_Outstanding) {
      WriteBit(static_cast<int>(1 - bit));
    }
  }

  uint32_t m_Low = 0;
  uint32_t m_Range = 510;
  uint32_t m_Outstanding = 0;
  bool m_FirstBit = true;
  std::vector<uint8_t> m_Bits;
};

} // namespace NmTestSupport
