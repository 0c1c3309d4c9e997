#pragma once

#include <cstdint>

#include "Common/TimeStamp/TimeStamp.h"
#include "MediaProcessing/GenericByteData/GenericByteDataBlock.h"
#include "MediaProcessing/GenericByteData/GenericVideoStreamDataPacket.h"
#include "MediaProcessing/Video/StreamAnalyzer.h"

namespace NmMediaProcessing {

// What the header of the block being gathered will carry.
struct SmVideoGOPAttributes {
  uint64_t m_ImageWidth = 0;
  uint64_t m_ImageHeight = 0;
  uint64_t m_ComponentCount = 0;
  uint32_t m_Codec = 1;
  bool m_Interlaced = false;
  bool m_TopFieldFirst = false;
  uint32_t m_InterlaceLayout = 0;
  uint32_t m_PictureFormat = 0;
};

// Fills a block header from the attributes of a GOP, all but the image size.
class CmVideoBlockWithoutImageSizeGOPFactory {
public:
  virtual ~CmVideoBlockWithoutImageSizeGOPFactory() = default;
  virtual bool FillBlockHeader(CmGenericVideoByteDataBlock& block,
                               const SmVideoGOPAttributes& attributes,
                               const NmTimeStamp::CmTimeStamp& beginTime) const;
};

// The same with the image size, which it reads from the GOP's sync frame.
class CmVideoBlockGOPFactory : public CmVideoBlockWithoutImageSizeGOPFactory {
public:
  bool FillBlockHeader(CmGenericVideoByteDataBlock& block, const SmVideoGOPAttributes& attributes,
                       const NmTimeStamp::CmTimeStamp& beginTime) const override;
  // False when the frame is no sync frame or its codec cannot tell the size.
  bool TakeSizeFromFrame(const CmGenericVideoStreamDataPacket& frame,
                         SmVideoGOPAttributes& attributes);
  void ResetSizeAnalyzer() { m_SizeAnalyzer.Reset(); }

private:
  CmStreamAnalyzer<SmVideoSizeKeyFrameAnalysisTraits> m_SizeAnalyzer;
};

} // namespace NmMediaProcessing
