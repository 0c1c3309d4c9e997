#include "Codecs/H264/SegmentDecoder.h"

namespace MCL {

using namespace NmH264;

namespace {

// The macroblock at which a slice broke off is the last that the slice
// began, in the order of addresses within its slice group: it counts as not
// decoded, so that concealment fills it instead of leaving half of it.
void ForgetBrokenMacroblock(CmPicture& picture, uint32_t sliceNumber) {
  SmMacroblockInfo* macroblocks = picture.GetMacroblocks();
  const uint32_t width = picture.GetWidthInMbs();
  // In a frame of macroblock pairs the order goes pair by pair, top before
  // bottom, while the records lie in raster order.
  const auto record = [&picture, width](uint32_t address) {
    if (!picture.IsMbaff()) {
      return address;
    }
    const uint32_t pair = address / 2;
    return (2 * (pair / width) + address % 2) * width + pair % width;
  };
  for (uint32_t address = width * picture.GetHeightInMbs(); address-- > 0;) {
    SmMacroblockInfo& mb = macroblocks[record(address)];
    if (mb.slice == sliceNumber) {
      mb.slice = 0;
      // The field macroblocks of a pair share its lines: the top alone
      // leaves every other line of the pair's upper half unwritten, so a
      // broken bottom takes its top along to concealment.
      if (picture.IsMbaff() && address % 2 == 1 && mb.field) {
        macroblocks[record(address - 1)].slice = 0;
      }
      return;
    }
  }
}

} // namespace

bool SlicesFollowEachOther(const std::vector<H264Slice>& slices) {
  for (size_t index = 1; index < slices.size(); ++index) {
    if (slices[index].header.firstMbInSlice <= slices[index - 1].header.firstMbInSlice) {
      return false;
    }
  }
  return true;
}

void H264SegmentDecoderMultiThreaded::DecodeSlices(H264PictureTask& task, size_t first, size_t last,
                                                   ImSliceProgress* progress) {
  m_SliceDecoder.SetProgress(progress);
  for (size_t index = first; index < last && index < task.slices->size(); ++index) {
    if (progress != nullptr) {
      progress->OnSliceStart(index);
    }
    const bool intact = DecodeSlice(task, index);
    if (progress != nullptr) {
      progress->OnSliceEnd(intact);
    }
  }
  m_SliceDecoder.SetProgress(nullptr);
}

bool H264SegmentDecoderMultiThreaded::DecodeSlice(H264PictureTask& task, size_t index) {
  const SmSequenceParameterSet& sps = *task.sps;
  const H264Slice& slice = (*task.slices)[index];
  const SmPictureParameterSet* pps = task.pictureParameterSets[slice.header.ppsId];
  if (pps == nullptr) {
    return false;
  }
  SmReferenceList lists[2];
  if (slice.header.sliceType != SliceI &&
      !BuildReferenceLists(*task.references, slice.header, sps.GetMaxFrameNum(),
                           task.picture->GetPoc(), lists)) {
    return false;
  }
  SmSliceFilterParameters& filter = task.filters.at(index + 1);
  filter.disableIdc = slice.header.disableDeblockingFilterIdc;
  filter.alphaOffset = slice.header.sliceAlphaC0Offset;
  filter.betaOffset = slice.header.sliceBetaOffset;
  filter.chromaQpOffset[0] = pps->chromaQpIndexOffset;
  filter.chromaQpOffset[1] = pps->secondChromaQpIndexOffset;
  CmBitReader reader(slice.rbsp.data(), slice.rbsp.size());
  reader.Skip(slice.header.dataBitOffset);
  // Slice numbers index the loop filter's parameters; the slice decoder
  // tells the macroblocks of its own slice by them.
  const uint32_t number = static_cast<uint32_t>(index + 1);
  const CmSliceDecoder::SmResult result =
      m_SliceDecoder.Decode(reader, slice.header, sps, *pps, number, *task.picture, lists,
                            task.sliceGroups.empty() ? nullptr : &task.sliceGroups);
  if (result == CmSliceDecoder::Damaged) {
    ForgetBrokenMacroblock(*task.picture, number);
  }
  task.unsupported = task.unsupported || result == CmSliceDecoder::Unsupported;
  return result == CmSliceDecoder::Decoded;
}

} // namespace MCL
