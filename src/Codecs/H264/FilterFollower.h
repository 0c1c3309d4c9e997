#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

#include "Codecs/H264/SegmentDecoder.h"

namespace MCL {

// Counts the macroblocks of a picture that are decoded for good, from the
// first one on without a hole, and releases each row to the loop filter
// once the row below it is complete too. A macroblock counts only once the
// next one is done or its slice ended intact, because a slice that breaks
// off takes back the last one it began; and never at or beyond the start of
// the next slice, which may decode the same macroblocks again. Whatever is
// not counted is left to concealment, which comes before the filter reaches
// it.
class CmFilterFollower final : public ImSliceProgress {
public:
  // sliceStarts: each slice's first macroblock in decoding order; rows are
  // macroblock rows, or rows of pairs in a frame of pairs. release(rows)
  // lets the filter go up to that row.
  CmFilterFollower(uint32_t widthInMbs, uint32_t heightInMbs, bool mbaff,
                   std::vector<uint32_t> sliceStarts, std::function<void(uint32_t)> release);
  // The same for the picture and slices of a task.
  CmFilterFollower(const H264PictureTask& task, std::function<void(uint32_t)> release);

  void OnSliceStart(size_t index) override;
  void OnMacroblockDone(uint32_t mbAddr) override;
  void OnSliceEnd(bool intact) override;

  // Every macroblock counted: none is left to concealment.
  bool IsComplete() const { return m_Decoded == m_Count; }

private:
  void Count();

  const uint32_t m_MbsPerRow;
  const uint32_t m_Count;
  const std::vector<uint32_t> m_SliceStarts;
  const std::function<void(uint32_t)> m_Release;
  uint32_t m_Decoded = 0; // macroblocks in decoding order that are final
  uint32_t m_Limit = 0;   // where the next slice begins
  std::optional<uint32_t> m_Pending;
};

} // namespace MCL
