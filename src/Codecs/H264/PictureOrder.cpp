#include "Codecs/H264/PictureOrder.h"

namespace NmH264 {

void CmPictureOrderCounter::Compute(const SmSequenceParameterSet& sps, const SmSliceHeader& header,
                                    int32_t& top, int32_t& bottom) {
  if (header.IsIdr()) {
    m_PrevMsb = 0;
    m_PrevLsb = 0;
    m_PrevFrameNumOffset = 0;
    m_PrevFrameNum = 0;
  }
  const int64_t maxFrameNum = sps.GetMaxFrameNum();
  if (header.IsIdr()) {
    m_FrameNumOffset = 0;
  } else if (m_PrevFrameNum > header.frameNum) {
    m_FrameNumOffset = m_PrevFrameNumOffset + maxFrameNum;
  } else {
    m_FrameNumOffset = m_PrevFrameNumOffset;
  }
  int64_t t = 0, b = 0;
  if (sps.picOrderCntType == 0) {
    const int64_t maxLsb = int64_t{1} << sps.log2MaxPicOrderCntLsb;
    const int64_t lsb = header.picOrderCntLsb;
    const int64_t prevLsb = m_PrevLsb;
    if (lsb < prevLsb && prevLsb - lsb >= maxLsb / 2) {
      m_Msb = m_PrevMsb + maxLsb;
    } else if (lsb > prevLsb && lsb - prevLsb > maxLsb / 2) {
      m_Msb = m_PrevMsb - maxLsb;
    } else {
      m_Msb = m_PrevMsb;
    }
    t = m_Msb + lsb;
    // A bottom field's count is its own, without the frame's delta.
    b = header.fieldPic ? t : t + header.deltaPicOrderCntBottom;
  } else if (sps.picOrderCntType == 1) {
    const int64_t cycle = sps.numRefFramesInPicOrderCntCycle;
    int64_t absFrameNum = cycle != 0 ? m_FrameNumOffset + header.frameNum : 0;
    if (!header.IsReference() && absFrameNum > 0) {
      --absFrameNum;
    }
    int64_t expected = 0;
    if (absFrameNum > 0) {
      const int64_t cycleCount = (absFrameNum - 1) / cycle;
      const int64_t inCycle = (absFrameNum - 1) % cycle;
      expected = cycleCount * sps.expectedDeltaPerPicOrderCntCycle;
      for (int64_t i = 0; i <= inCycle; ++i) {
        expected += sps.offsetForRefFrame[static_cast<size_t>(i)];
      }
    }
    if (!header.IsReference()) {
      expected += sps.offsetForNonRefPic;
    }
    t = expected + header.deltaPicOrderCnt[0];
    b = header.fieldPic ? expected + sps.offsetForTopToBottomField + header.deltaPicOrderCnt[0]
                        : t + sps.offsetForTopToBottomField + header.deltaPicOrderCnt[1];
    if (header.fieldPic) {
      // A field has one count: its parity's.
      t = header.bottomField ? b : t;
      b = t;
    }
  } else {
    const int64_t value = header.IsIdr()         ? 0
                          : header.IsReference() ? 2 * (m_FrameNumOffset + header.frameNum)
                                                 : 2 * (m_FrameNumOffset + header.frameNum) - 1;
    t = b = value;
  }
  top = static_cast<int32_t>(t);
  bottom = static_cast<int32_t>(b);
}

void CmPictureOrderCounter::Finish(const SmSliceHeader& header, int32_t top, int32_t bottom) {
  const bool reset = header.HasMemoryManagement5();
  if (header.IsReference()) {
    if (reset) {
      // The picture's counts become relative to itself (8.2.1).
      m_PrevMsb = 0;
      m_PrevLsb = static_cast<uint32_t>(top - (top < bottom ? top : bottom));
    } else {
      m_PrevMsb = m_Msb;
      m_PrevLsb = header.picOrderCntLsb;
    }
  }
  m_PrevFrameNumOffset = reset ? 0 : m_FrameNumOffset;
  m_PrevFrameNum = reset ? 0 : header.frameNum;
}

} // namespace NmH264
