#include "Codecs/H264/SegmentDecoder.h"

namespace MCL {

using namespace NmH264;

namespace {

// The macroblock at which a slice broke off is the last that the slice
// began, in the order of addresses within its slice group: it counts as not
// decoded, so that concealment fills it instead of leaving half of it.
void ForgetBrokenMacroblock(CmPicture& picture, uint32_t sliceNumber) {
  SmMacroblockInfo* macroblocks = picture.GetMacroblocks();
  for (uint32_t address = picture.GetWidthInMbs() * picture.GetHeightInMbs(); address-- > 0;) {
    if (macroblocks[address].slice == sliceNumber) {
      macroblocks[address].slice = 0;
      return;
    }
  }
}

} // namespace

void H264SegmentDecoderMultiThreaded::DecodeSlices(H264PictureTask& task, size_t first,
                                                   size_t last) {
  const SmSequenceParameterSet& sps = *task.sps;
  for (size_t index = first; index < last && index < task.slices->size(); ++index) {
    const H264Slice& slice = (*task.slices)[index];
    const SmPictureParameterSet* pps = task.pictureParameterSets[slice.header.ppsId];
    if (pps == nullptr) {
      continue;
    }
    SmReferenceList lists[2];
    if (slice.header.sliceType != SliceI &&
        !BuildReferenceLists(*task.references, slice.header, sps.GetMaxFrameNum(),
                             task.picture->GetPoc(), lists)) {
      continue;
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
  }
}

} // namespace MCL
