#include "MediaProcessing/StreamCollector/VideoBlockGOPFactory.h"

#include "MediaProcessing/GenericByteData/RawVideoByteDataAccess.h"
#include "MediaProcessing/GenericByteData/VideoCodec.h"

namespace NmMediaProcessing {

bool CmVideoBlockWithoutImageSizeGOPFactory::FillBlockHeader(
    CmGenericVideoByteDataBlock& block, const SmVideoGOPAttributes& attributes,
    const NmTimeStamp::CmTimeStamp& beginTime) const {
  int32_t type = 0;
  return CodecToByteDataType(attributes.m_Codec, type) && block.SetType(type) &&
         block.SetInterlacing(attributes.m_Interlaced, attributes.m_TopFieldFirst,
                              attributes.m_InterlaceLayout) &&
         block.SetPictureFormat(attributes.m_PictureFormat) && block.SetBeginTime(beginTime);
}

bool CmVideoBlockGOPFactory::FillBlockHeader(CmGenericVideoByteDataBlock& block,
                                             const SmVideoGOPAttributes& attributes,
                                             const NmTimeStamp::CmTimeStamp& beginTime) const {
  // The header's fields are 16 bits wide.
  constexpr uint64_t FieldLimit = 0xFFFF;
  if (!CmVideoBlockWithoutImageSizeGOPFactory::FillBlockHeader(block, attributes, beginTime) ||
      attributes.m_ImageWidth == 0 || attributes.m_ImageHeight == 0 ||
      attributes.m_ComponentCount == 0 || attributes.m_ImageWidth > FieldLimit ||
      attributes.m_ImageHeight > FieldLimit || attributes.m_ComponentCount > FieldLimit) {
    return false;
  }
  return block.SetImageWidth(static_cast<uint32_t>(attributes.m_ImageWidth)) &&
         block.SetImageHeight(static_cast<uint32_t>(attributes.m_ImageHeight)) &&
         block.SetComponentCount(static_cast<uint32_t>(attributes.m_ComponentCount));
}

bool CmVideoBlockGOPFactory::TakeSizeFromFrame(const CmGenericVideoStreamDataPacket& frame,
                                               SmVideoGOPAttributes& attributes) {
  const CmRawVideoByteDataAccess view(frame, false);
  if (!view.IsValid() || !view.GetSync()) {
    return false;
  }
  SmVideoSize size{0, 0};
  if (!m_SizeAnalyzer.Analyze(frame, size) || size.first == 0 || size.second == 0) {
    return false;
  }
  attributes.m_ImageWidth = size.first;
  attributes.m_ImageHeight = size.second;
  attributes.m_ComponentCount = 3;
  return true;
}

} // namespace NmMediaProcessing
