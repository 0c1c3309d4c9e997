#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "Codecs/H264/Deblocking.h"
#include "Codecs/H264/ParameterSets.h"
#include "Codecs/H264/Picture.h"
#include "Codecs/H264/ReferenceLists.h"
#include "Codecs/H264/SliceDecoder.h"
#include "Codecs/H264/SliceHeader.h"

namespace MCL {

// A slice waiting in the picture it belongs to: its header and payload.
struct H264Slice {
  NmH264::SmSliceHeader header;
  std::vector<uint8_t> rbsp;
  uint8_t nalHeader = 0;
};

// Whether each slice begins behind the one before it, so that none can
// write over macroblocks that an earlier one decoded.
bool SlicesFollowEachOther(const std::vector<H264Slice>& slices);

// Everything the decoding of one picture needs, gathered by the supplier.
// The supplier keeps it all alive and unchanged until the broker is done.
struct H264PictureTask {
  NmH264::CmPicture* picture = nullptr;
  const std::vector<H264Slice>* slices = nullptr;
  const NmH264::SmSequenceParameterSet* sps = nullptr;
  std::array<const NmH264::SmPictureParameterSet*, 256> pictureParameterSets{};
  // The reference frames as they stand before this picture is marked.
  const std::vector<NmH264::SmReferenceFrame>* references = nullptr;
  // Each macroblock's slice group when the picture has several; else empty.
  std::vector<uint8_t> sliceGroups;
  // The loop filter's parameters by slice number: slice k of the list is
  // number k + 1, and 0 stands for none.
  std::vector<NmH264::SmSliceFilterParameters> filters;
  // Macroblocks that no slice decoded, filled in before the loop filter.
  uint32_t concealed = 0;
  // A slice used coding that is not decoded yet: the picture is not to be
  // shown.
  bool unsupported = false;
};

// Follows the decoding of a picture's slices macroblock by macroblock.
class ImSliceProgress : public NmH264::ImMacroblockProgress {
public:
  // Slice `index` of the task's list begins.
  virtual void OnSliceStart(size_t index) = 0;
  // It ends; intact unless it broke off or was passed over.
  virtual void OnSliceEnd(bool intact) = 0;
};

// Decodes slices of a picture: parsing, prediction and reconstruction, not
// the loop filter. Each worker of the broker has one, with its own buffers.
class H264SegmentDecoderMultiThreaded {
public:
  explicit H264SegmentDecoderMultiThreaded(int32_t number) : m_Number(number) {}
  int32_t GetNumber() const { return m_Number; }

  // Decodes the slices from first up to last of the task. A slice whose
  // parameter set is missing or whose references cannot be had is passed
  // over, and so is the rest of one that turns out damaged.
  void DecodeSlices(H264PictureTask& task, size_t first, size_t last,
                    ImSliceProgress* progress = nullptr);

private:
  // False when the slice was passed over or broke off.
  bool DecodeSlice(H264PictureTask& task, size_t index);

  int32_t m_Number;
  NmH264::CmSliceDecoder m_SliceDecoder;
};

} // namespace MCL
