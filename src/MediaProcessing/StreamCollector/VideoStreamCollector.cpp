#include "MediaProcessing/StreamCollector/VideoStreamCollector.h"

#include <cstring>
#include <new>

#include "MediaProcessing/GenericByteData/ByteDataSequenceAnalyzer.h"

namespace NmMediaProcessing {

namespace {

template <typename Traits> std::string CollectorFunction(const char* operation) {
  return std::string("NmMediaProcessing::CmVideoStreamCollector<") + Traits::Name +
         ">::" + operation;
}

// Runs the collector's last step of CreateGOP on every way out of it.
template <typename Action> class CmOnExit {
public:
  explicit CmOnExit(Action action) : m_Action(action) {}
  ~CmOnExit() { m_Action(); }
  CmOnExit(const CmOnExit&) = delete;
  CmOnExit& operator=(const CmOnExit&) = delete;

private:
  Action m_Action;
};

} // namespace

template <typename Traits>
void CmVideoStreamCollector<Traits>::Refuse(const char* operation, int line, const char* message,
                                            uint32_t code) {
  this->SetLastError(CmVideoStreamCollectorError(
      StreamCollectorLocation(CollectorFunction<Traits>(operation), __FILE__, line), message,
      code));
}

#define VZK_COLLECTOR_THROW(ErrorType, operation, message, code)                                   \
  throw ErrorType(                                                                                 \
      StreamCollectorLocation(CollectorFunction<Traits>(operation), __FILE__, __LINE__), message,  \
      code)

template <typename Traits> void CmVideoStreamCollector<Traits>::Reset() {
  CmLegacyVideoBufferHandler<Count>::Reset();
  this->ClearBlocks();
  this->ResetSizeAnalyzer();
  this->ClearLastError();
  this->ZeroCounts();
  m_SequenceAnalyzer.Reset();
  m_FrameAttributesAnalyzer.reset();
  m_GOPAttributesAnalyzer.reset();
  m_GOPAttributes = SmVideoGOPAttributes();
}

template <typename Traits>
void CmVideoStreamCollector<Traits>::SetDataError(const std::string& message) {
  this->SetLastError(CmVideoStreamCollectorError(
      StreamCollectorLocation(CollectorFunction<Traits>("SetDataError"), __FILE__, __LINE__),
      message, SmVideoStreamCollectorErrorCode::UnusableData));
}

template <typename Traits>
typename CmVideoStreamCollector<Traits>::CmStreamAttributesAnalyzer&
CmVideoStreamCollector<Traits>::AttributesAnalyzer(
    std::unique_ptr<CmStreamAttributesAnalyzer>& slot) {
  if (!slot) {
    slot = std::make_unique<CmStreamAttributesAnalyzer>();
  }
  return *slot;
}

template <typename Traits>
void CmVideoStreamCollector<Traits>::CloseGOPBefore(const CmGenericVideoStreamDataPacket& frame) {
  if (m_EndTimeIsLastFrame) {
    FlushGOP();
  } else {
    CreateGOP(frame.GetSyncTime(), true);
  }
}

template <typename Traits>
uint32_t CmVideoStreamCollector<Traits>::HandleFrame(const CmGenericVideoStreamDataPacket& frame) {
  SmByteDataSequenceResult sequence;
  if (!m_SequenceAnalyzer.Analyze(frame, sequence)) {
    Refuse("HandleFrame", __LINE__, "Frame has invalid header and cannot be analyzed",
           SmVideoStreamCollectorErrorCode::UnusableData);
    return 0;
  }
  const bool sync = frame.GetSync();
  if (sync) {
    // A sync frame may open new attributes.
    m_FrameAttributesAnalyzer.reset();
  }
  switch (sequence.m_Status) {
  case SmByteDataSequenceResult::SequenceContinuous:
    if (sync) {
      CloseGOPBefore(frame);
    }
    break;
  case SmByteDataSequenceResult::SequenceTimeWarp:
    FlushGOP();
    Refuse("HandleFrame", __LINE__, "Skipping frame due to time warp",
           SmVideoStreamCollectorErrorCode::TimeWarp);
    return 0;
  case SmByteDataSequenceResult::SequenceSyncLost:
    if (!this->IsGOPEmpty()) {
      CloseGOPBefore(frame);
      Refuse("HandleFrame", __LINE__,
             "Skipping rest of synchronization sequence due to synchronization point loss",
             SmVideoStreamCollectorErrorCode::UnusableData);
    } else {
      Refuse("HandleFrame", __LINE__, "Cannot add non-synchronization frame at this point",
             SmVideoStreamCollectorErrorCode::UnusableData);
    }
    return 0;
  case SmByteDataSequenceResult::SequenceGap:
    // The decoder sees the gap in a frame that depends on others and copes;
    // a sync frame behind a gap simply opens the next GOP.
    if (sync) {
      FlushGOP();
    }
    break;
  default:
    VZK_COLLECTOR_THROW(NmError::CmIntegrityError, "HandleFrame",
                        "Invalid sequence analysis result for frame",
                        NmError::CmIntegrityErrorCode::InvalidPointer);
  }
  if (!sync && this->IsGOPEmpty()) {
    Refuse("HandleFrame", __LINE__, "A GOP must start with a packet with the sync flag set",
           SmVideoStreamCollectorErrorCode::UnusableData);
    return 0;
  }
  SmVideoStreamAttributes frameAttributes;
  if (!AttributesAnalyzer(m_FrameAttributesAnalyzer).Analyze(frame, frameAttributes) ||
      frameAttributes.m_Status != SmVideoStreamAttributes::AttributesUsable) {
    FlushGOP();
    Refuse("HandleFrame", __LINE__, "Invalid video stream attributes detected",
           SmVideoStreamCollectorErrorCode::UnusableData);
    return 0;
  }
  if (this->GetKeyFramesOnly() && !sync) {
    this->ClearLastError();
    return 1;
  }
  if (!this->UpdateAndCheckLimits(frame.GetPayloadLength(), frame.GetFrameTime())) {
    // Closing the GOP clears the error that closed it; the caller must see it.
    std::unique_ptr<CmVideoStreamCollectorError> limit(
        static_cast<CmVideoStreamCollectorError*>(this->GetLastError()->Clone()));
    FlushGOP();
    this->SetLastError(*limit);
    return 0;
  }
  if (sync) {
    m_GOPAttributesAnalyzer.reset();
    m_GOPAttributes = SmVideoGOPAttributes();
    if (!this->TakeSizeFromFrame(frame, m_GOPAttributes)) {
      Refuse("HandleFrame", __LINE__, "Invalid video stream size analysis result",
             SmVideoStreamCollectorErrorCode::UnusableData);
      return 0;
    }
  }
  SmVideoStreamAttributes gopAttributes;
  if (!AttributesAnalyzer(m_GOPAttributesAnalyzer).Analyze(frame, gopAttributes) ||
      gopAttributes.m_Status != SmVideoStreamAttributes::AttributesUsable) {
    VZK_COLLECTOR_THROW(NmError::CmIntegrityError, "HandleFrame",
                        "Invalid GOP attributes analysis result for frame to be added!",
                        NmError::CmIntegrityErrorCode::InvalidPointer);
  }
  m_GOPAttributes.m_Codec = gopAttributes.m_Codec;
  m_GOPAttributes.m_Interlaced = gopAttributes.m_Interlaced;
  m_GOPAttributes.m_TopFieldFirst = gopAttributes.m_TopFieldFirst;
  m_GOPAttributes.m_InterlaceLayout = gopAttributes.m_InterlaceLayout;
  m_GOPAttributes.m_PictureFormat = gopAttributes.m_PictureFormat;
  this->ClearLastError();
  return 2;
}

template <typename Traits>
bool CmVideoStreamCollector<Traits>::InternalHandleBlock(const CmVideoBlockPointer<Count>& block) {
  if (!block || block->IsEmpty()) {
    Refuse("InternalHandleBlock", __LINE__, "Empty block passed to Stream Collector",
           SmVideoStreamCollectorErrorCode::UnusableData);
    return false;
  }
  SmByteDataSequenceResult sequence;
  if (!m_SequenceAnalyzer.Analyze(*block, sequence)) {
    Refuse("InternalHandleBlock", __LINE__, "Block has invalid header and cannot be analyzed",
           SmVideoStreamCollectorErrorCode::UnusableData);
    return false;
  }
  switch (sequence.m_Status) {
  case SmByteDataSequenceResult::SequenceContinuous:
    if (!sequence.m_Sync) {
      VZK_COLLECTOR_THROW(NmError::CmIntegrityError, "InternalHandleBlock",
                          "Invalid sequence analysis result for non-sync-marked block",
                          NmError::CmIntegrityErrorCode::InvalidPointer);
    }
    // A block that arrives whole is a GOP already: it passes through.
    FlushGOP();
    if (!this->CheckBlockLimits(*block)) {
      return false;
    }
    this->StoreBlock(CmVideoBlockPointer<Count>(new CmGenericVideoByteDataBlock(*block)));
    this->ClearLastError();
    return true;
  case SmByteDataSequenceResult::SequenceLegacy:
    FlushGOP();
    Refuse("InternalHandleBlock", __LINE__, "Legacy data is skipped",
           SmVideoStreamCollectorErrorCode::UnusableData);
    return false;
  case SmByteDataSequenceResult::SequenceTimeWarp:
    FlushGOP();
    Refuse("InternalHandleBlock", __LINE__, "Skipping block due to time warp",
           SmVideoStreamCollectorErrorCode::TimeWarp);
    return false;
  default:
    VZK_COLLECTOR_THROW(NmError::CmIntegrityError, "InternalHandleBlock",
                        "Invalid sequence analysis result for block",
                        NmError::CmIntegrityErrorCode::InvalidPointer);
  }
}

template <typename Traits> void CmVideoStreamCollector<Traits>::FlushGOP() {
  const NmTimeStamp::CmTimeStamp last =
      this->IsGOPEmpty() ? NmTimeStamp::CmTimeStamp() : this->GetLastTimeStamp();
  if (m_EndTimeIsLastFrame) {
    CreateGOP(last, false);
  } else {
    CreateGOP(last + NmTimeStamp::CmTimeSpan::FromMilliseconds(1), true);
  }
}

template <typename Traits>
void CmVideoStreamCollector<Traits>::CreateGOP(const NmTimeStamp::CmTimeStamp& endTime,
                                               bool endTimeExclusive) {
  const CmOnExit done([this] {
    this->ClearLastError();
    this->ZeroCounts();
    CmBaseLegacyVideoBufferHandler<Count>::Reset();
  });
  if (this->IsGOPEmpty()) {
    return;
  }
  CmVideoBlockPointer<Count> block(new CmGenericVideoByteDataBlock(true));
  if (!block->Allocate(this->GetByteCount())) {
    throw std::bad_alloc();
  }
  const NmTimeStamp::CmTimeStamp begin = this->GetKeyFrame().GetFrameTime();
  if (!this->FillBlockHeader(*block, m_GOPAttributes, begin)) {
    VZK_COLLECTOR_THROW(CmVideoStreamCollectorError, "CreateGOP",
                        "Unable to fill video block header",
                        SmVideoStreamCollectorErrorCode::UnusableData);
  }
  const uint64_t frameCount = this->GetFrameCount();
  bool filled = block->SetImageCount(static_cast<uint32_t>(frameCount));
  if (frameCount == 1) {
    filled = filled && block->SetEndTime(begin) && block->SetEndTimeExclusive(false);
  } else {
    filled = filled && block->SetEndTime(endTime) && block->SetEndTimeExclusive(endTimeExclusive);
  }
  filled = filled && block->AreTimesValid();
  uint8_t* const payload = block->GetPayload();
  const uint64_t capacity = block->GetPayloadLength();
  uint64_t position = 0;
  for (const CmVideoPacketPointer<Count>& frame : this->GetFrames()) {
    if (!filled) {
      break;
    }
    const uint64_t length = frame->GetPayloadLength();
    if (length > capacity - position) {
      filled = false;
      break;
    }
    std::memcpy(payload + position, frame->GetPayload(), length);
    position += length;
  }
  if (!filled || position != capacity) {
    VZK_COLLECTOR_THROW(CmVideoStreamCollectorError, "CreateGOP", "Unable to fill video block data",
                        SmVideoStreamCollectorErrorCode::UnusableData);
  }
  this->StoreBlock(std::move(block));
}

template class CmVideoStreamCollector<SmVideoStreamConverterTraits>;

} // namespace NmMediaProcessing
