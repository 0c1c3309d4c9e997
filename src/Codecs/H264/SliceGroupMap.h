#pragma once

#include <cstdint>
#include <vector>

#include "Codecs/H264/ParameterSets.h"

namespace NmH264 {

// How the macroblocks of a picture are counted: a frame's in raster order,
// a field picture's, or a frame of macroblock pairs' pair by pair, top
// before bottom.
enum class SmMacroblockOrder { Frame, Field, Pairs };

// The slice group of every macroblock of a picture, by its address in the
// picture's order (clause 8.2.2), for a picture parameter set with more than
// one slice group; changeCycle is the slice header's
// slice_group_change_cycle. False when the picture parameter set does not
// fit the sequence.
bool BuildSliceGroupMap(const SmSequenceParameterSet& sps, const SmPictureParameterSet& pps,
                        uint32_t changeCycle, std::vector<uint8_t>& map,
                        SmMacroblockOrder order = SmMacroblockOrder::Frame);

// The macroblock after address in the same slice group, or the number of
// macroblocks when none follows (NextMbAddress of 8.2.2).
inline uint32_t NextMacroblockAddress(const std::vector<uint8_t>& map, uint32_t address) {
  const uint32_t count = static_cast<uint32_t>(map.size());
  uint32_t next = address + 1;
  while (next < count && map[next] != map[address]) {
    ++next;
  }
  return next;
}

} // namespace NmH264
