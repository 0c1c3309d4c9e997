#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "Common/TimeStamp/TimeStamp.h"
#include "MediaProcessing/StreamCollector/LegacyVideoBufferHandler.h"
#include "MediaProcessing/StreamCollector/VideoBlockGOPFactory.h"
#include "MediaProcessing/StreamCollector/VideoGOPBuffer.h"
#include "MediaProcessing/StreamCollector/VideoGOPLimiter.h"
#include "MediaProcessing/StreamCollector/VideoStreamConverterTraits.h"
#include "MediaProcessing/StreamCollector/VideoSubsampler.h"
#include "MediaProcessing/Video/StreamAnalyzer.h"

namespace NmMediaProcessing {

// Follows a stream of frames, blocks and legacy JPEG and turns it into one
// block per group of pictures. A frame that cannot be taken is refused with
// the reason kept as the last error; a group is closed early when the stream
// breaks (time warp, lost sync frame, changed attributes) or a block limit
// would be passed. Finished blocks queue up until they are retrieved.
template <typename Traits>
class CmVideoStreamCollector : public CmLegacyVideoBufferHandler<typename Traits::ReferenceCount>,
                               public CmVideoBlockGOPFactory,
                               public CmVideoGOPLimiter<typename Traits::Limits>,
                               public CmGenericVideoBlockBuffer<typename Traits::ReferenceCount>,
                               public CmKeyFrameOnlyVideoSubsampler {
public:
  using Count = typename Traits::ReferenceCount;
  using CmStreamAttributesAnalyzer = CmStreamAnalyzer<SmVideoStreamAttributesAnalysisTraits>;

  void Reset() override;
  uint32_t HandleFrame(const CmGenericVideoStreamDataPacket& frame) override;
  void SetDataError(const std::string& message) override;

  // Makes the block of the frames gathered and queues it. A GOP of one frame
  // always ends at its own time, whatever is asked.
  void CreateGOP(const NmTimeStamp::CmTimeStamp& endTime, bool endTimeExclusive);
  // Closes the GOP at its last frame, or 1 ms behind it, exclusive.
  void FlushGOP();

  // True: a GOP ends at its last frame; false: at the next GOP's sync frame.
  void SetEndTimeIsLastFrame(bool endTimeIsLastFrame) { m_EndTimeIsLastFrame = endTimeIsLastFrame; }
  bool GetEndTimeIsLastFrame() const { return m_EndTimeIsLastFrame; }
  const SmVideoGOPAttributes& GetGOPAttributes() const { return m_GOPAttributes; }

protected:
  bool InternalHandleBlock(const CmVideoBlockPointer<Count>& block) override;

private:
  void Refuse(const char* operation, int line, const char* message, uint32_t code);
  // Ends the present GOP before a sync frame or a lost one.
  void CloseGOPBefore(const CmGenericVideoStreamDataPacket& frame);
  CmStreamAttributesAnalyzer& AttributesAnalyzer(std::unique_ptr<CmStreamAttributesAnalyzer>& slot);

  CmStreamAnalyzer<SmByteDataSequenceAnalysisTraits> m_SequenceAnalyzer;
  std::unique_ptr<CmStreamAttributesAnalyzer> m_FrameAttributesAnalyzer;
  std::unique_ptr<CmStreamAttributesAnalyzer> m_GOPAttributesAnalyzer;
  SmVideoGOPAttributes m_GOPAttributes;
  bool m_EndTimeIsLastFrame = false;
};

extern template class CmVideoStreamCollector<SmVideoStreamConverterTraits>;

} // namespace NmMediaProcessing
