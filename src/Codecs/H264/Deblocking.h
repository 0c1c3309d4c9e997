#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "Codecs/H264/Picture.h"

namespace NmH264 {

// What the loop filter needs of each slice of a picture, by slice number.
struct SmSliceFilterParameters {
  uint32_t disableIdc = 0; // disable_deblocking_filter_idc
  int32_t alphaOffset = 0; // FilterOffsetA
  int32_t betaOffset = 0;  // FilterOffsetB
  int32_t chromaQpOffset[2] = {0, 0};
};

// The rows in which the filter goes: macroblock rows, or rows of macroblock
// pairs in a frame of pairs.
uint32_t GetDeblockingRowCount(const CmPicture& picture);

// The filter of one picture's rows, in order, as they become ready.
// Filtering a row changes the lowest lines of the row above and every line
// of its own, the last ones included, which intra prediction of the row
// below reads unfiltered: a row may be filtered once the row below it is
// decoded, and the result is the same as the filter of clause 8.7 over the
// whole picture, macroblock by macroblock in raster order. slices[n] belongs
// to slice number n. What it gathers of each row, which the filter of the
// row below reads too, is kept from one call to the next.
class CmRowDeblocker {
public:
  CmRowDeblocker(CmPicture& picture, const std::vector<SmSliceFilterParameters>& slices);
  ~CmRowDeblocker();
  CmRowDeblocker(const CmRowDeblocker&) = delete;
  CmRowDeblocker& operator=(const CmRowDeblocker&) = delete;

  // Filters the rows from the end of the last call up to endRow.
  void FilterUpTo(uint32_t endRow);

private:
  struct SmState;
  CmPicture& m_Picture;
  const std::vector<SmSliceFilterParameters>& m_Slices;
  std::unique_ptr<SmState> m_State; // none for a frame of macroblock pairs
  uint32_t m_FilteredRows = 0;
};

} // namespace NmH264
