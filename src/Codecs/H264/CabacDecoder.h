#pragma once

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace NmH264 {

// The binary arithmetic decoding engine of context-adaptive binary
// arithmetic coding. A context is one byte: pStateIdx << 1 | valMPS.
//
// codIOffset is kept scaled: m_Value holds it shifted left by m_Available,
// with the next m_Available bits of the stream below it. Renormalising is
// then only a smaller shift, and comparisons shift the range instead of
// the offset; the window is refilled four bytes at a time.
class CmCabacDecoder {
public:
  // Starts the engine at byte offset `start` of data (the slice data after
  // cabac_alignment_one_bit, or the byte after I_PCM samples).
  void Start(const uint8_t* data, size_t size, size_t start);

  int DecodeDecision(uint8_t& context) {
    Refill();
    const unsigned current = context;
    // The four rangeTabLPS values of a state, and what renormalisation
    // makes of them, come as rows that do not depend on the range: the
    // range only picks a lane, which is a shift, not a load, on the chain
    // from one decision to the next.
    const unsigned lane = (m_Range >> 3) & 24; // ((codIRange >> 6) & 3) * 8
    const uint32_t lps = (LpsRows[current] >> lane) & 0xff;
    const uint32_t next = static_cast<uint32_t>(LpsNextRows[current] >> (2 * lane));
    const uint32_t lpsNext = next & 0x1ff;
    const int lpsShift = static_cast<int>(next >> 12 & 7);
    const uint32_t mpsRange = m_Range - lps;
    const uint64_t scaledRange = uint64_t{mpsRange} << m_Available;
    // An MPS range needs at most one doubling.
    const int mpsShift = mpsRange < 256 ? 1 : 0;
    const uint32_t mpsNext = mpsRange << mpsShift;
    // Both symbols by masks instead of a branch: which one comes is as hard
    // to foresee as its probability says, and a mispredicted branch costs
    // more than the whole decision.
    const unsigned isLps = m_Value >= scaledRange ? 1u : 0u;
    const uint64_t mask = 0 - uint64_t{isLps};
    m_Value -= scaledRange & mask;
    m_Range = mpsNext ^ ((mpsNext ^ lpsNext) & static_cast<uint32_t>(mask));
    m_Available -= mpsShift ^ ((mpsShift ^ lpsShift) & static_cast<int>(mask));
    context = Transitions[isLps << 7 | current];
    return static_cast<int>((current & 1) ^ isLps);
  }

  int DecodeBypass() {
    Refill();
    --m_Available;
    const uint64_t scaledRange = uint64_t{m_Range} << m_Available;
    // Bypass bins (signs, mostly) are even odds: no branch.
    const unsigned bin = m_Value >= scaledRange ? 1u : 0u;
    m_Value -= scaledRange & (0 - uint64_t{bin});
    return static_cast<int>(bin);
  }

  // The bin of end_of_slice_flag and of the I_PCM choice in mb_type; after
  // a 1 the engine has read exactly up to the last bit the encoder flushed.
  int DecodeTerminate() {
    Refill();
    m_Range -= 2;
    const uint64_t scaledRange = uint64_t{m_Range} << m_Available;
    if (m_Value >= scaledRange) {
      return 1;
    }
    if (m_Range < 256) {
      m_Range <<= 1;
      --m_Available;
    }
    return 0;
  }

  // The position, in bits from the start of the data, that the standard's
  // bit-serial engine would have reached.
  size_t GetBitPosition() const { return m_Next * 8 - static_cast<size_t>(m_Available); }
  // Whether the engine has read beyond the end of its data.
  bool IsOverrun() const { return GetBitPosition() > m_Size * 8; }

  static const uint8_t (&RangeTabLps)[64][4];
  // Both transitions indexed by the whole context byte.
  static const std::array<uint8_t, 128> TransitionMps;
  static const std::array<uint8_t, 128> TransitionLps;
  // TransitionMps followed by TransitionLps, indexed by the symbol too.
  static const std::array<uint8_t, 256> Transitions;
  // By context byte: rangeTabLPS of its state for the four values of
  // (codIRange >> 6) & 3, a byte each; and in sixteen bits each, the same
  // ranges renormalised (bits 0 to 8) with the shifts that did it (bits 12
  // to 14).
  static const std::array<uint32_t, 128> LpsRows;
  static const std::array<uint64_t, 128> LpsNextRows;

private:
  void Refill() {
    if (m_Available < 16) {
      uint32_t word = 0;
      if (m_Next + 4 <= m_Size) {
        std::memcpy(&word, m_Data + m_Next, 4);
        if constexpr (std::endian::native == std::endian::little) {
          word = __builtin_bswap32(word);
        }
      } else {
        for (size_t i = 0; i < 4; ++i) {
          word = word << 8 | (m_Next + i < m_Size ? m_Data[m_Next + i] : 0u);
        }
      }
      m_Next += 4;
      m_Value = m_Value << 32 | word;
      m_Available += 32;
    }
  }

  const uint8_t* m_Data = nullptr;
  size_t m_Size = 0;
  size_t m_Next = 0;
  uint64_t m_Value = 0;
  int m_Available = 0;
  uint32_t m_Range = 510;
};

// The initial state of context ctxIdx for a slice: initIdc 0 to 2 for the
// cabac_init_idc of P and B slices, 3 for I slices. Only the contexts of
// frame macroblocks of 4:2:0 and 4:0:0 are known (0 to 276 and 399 to
// 435); the others start as if m and n were 0.
void InitialiseCabacContexts(uint8_t* contexts, int initIdc, int sliceQp);

// The m and n of a context, for tests.
void GetCabacInitValues(int ctxIdx, int initIdc, int& m, int& n);

} // namespace NmH264
