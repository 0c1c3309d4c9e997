#pragma once

#include <cstdint>
#include <memory>
#include <type_traits>
#include <vector>

#include "Common/CountedPtr/CountedPtr.h"
#include "Common/TimeStamp/TimeStamp.h"
#include "MediaProcessing/GenericByteData/GenericByteData.h"
#include "MediaProcessing/GenericByteData/GenericByteDataMultiPacket.h"
#include "MediaProcessing/GenericByteData/RawJPEGToBlockConverter.h"
#include "MediaProcessing/StreamCollector/VideoGOPBuffer.h"
#include "MediaProcessing/Video/JPEG/VideoAnalyzerJPEG.h"

namespace NmMediaProcessing {

template <typename Count>
using CmByteDataPointer = NmCountedPtr::CmCountedPtr<CmGenericByteData, Count>;

// Takes whole blocks in any of the shared pointer kinds. A pointer whose
// count another thread may change is not kept: the collector works on a view
// of the same bytes, which the caller's pointer keeps alive for the call.
template <typename Count>
class CmVideoBlockBufferHandler : public CmGenericVideoPacketGOPBuffer<Count> {
public:
  bool HandleBlock(
      const CmVideoBlockPointer<NmCountedPtr::CmUnserializedReferenceCount>& block) override {
    return HandleAnyBlock(block);
  }
  bool
  HandleBlock(const CmVideoBlockPointer<NmCountedPtr::CmSerializedReferenceCount>& block) override {
    return HandleAnyBlock(block);
  }
  bool HandleBlock(const std::shared_ptr<CmGenericVideoByteDataBlock>& block) override {
    return HandleAnyBlock(block);
  }

protected:
  virtual bool InternalHandleBlock(const CmVideoBlockPointer<Count>& block) = 0;

private:
  template <typename Pointer> bool HandleAnyBlock(const Pointer& block) {
    if constexpr (std::is_same_v<Pointer, CmVideoBlockPointer<Count>>) {
      return InternalHandleBlock(block);
    } else {
      CmVideoBlockPointer<Count> view;
      if (block && !block->IsEmpty()) {
        view = CmVideoBlockPointer<Count>(
            new CmGenericVideoByteDataBlock(block->GetData(), block->GetLength()));
      }
      return InternalHandleBlock(view);
    }
  }
};

// Legacy data (raw JPEG) carries no time; whoever hands it in says when it
// was taken.
class CmExplicitTimeStampsForLegacyData {
public:
  void SetExplicitTime(const NmTimeStamp::CmTimeStamp& time) { m_ExplicitTime = time; }
  const NmTimeStamp::CmTimeStamp& GetExplicitTime() const { return m_ExplicitTime; }
  void ResetExplicitTime() { m_ExplicitTime = NmTimeStamp::CmTimeStamp(); }

private:
  NmTimeStamp::CmTimeStamp m_ExplicitTime;
};

// Keeps the records whose bytes the gathered frames view, so that no frame is
// copied before the one copy into the block.
template <typename Count>
class CmBaseLegacyVideoBufferHandler : public CmVideoBlockBufferHandler<Count>,
                                       public CmExplicitTimeStampsForLegacyData {
public:
  void Reset() override {
    // The frames view the kept records: both go together.
    CmVideoBlockBufferHandler<Count>::Reset();
    ResetExplicitTime();
    m_KeptRecords.clear();
  }

protected:
  void KeepRecord(CmByteDataPointer<Count> record) { m_KeptRecords.push_back(std::move(record)); }

private:
  std::vector<CmByteDataPointer<Count>> m_KeptRecords;
};

// Dispatches a record by its kind: legacy JPEG and blocks as whole groups,
// packets frame by frame.
template <typename Count>
class CmLegacyVideoBufferHandler : public CmBaseLegacyVideoBufferHandler<Count> {
public:
  bool HandleData(const CmByteDataPointer<Count>& record) {
    const CmGenericByteData& data = *record;
    if (data.IsRawJPEG()) {
      const CmJPEGSizeAnalyzer sizeAnalyzer;
      std::unique_ptr<CmGenericVideoByteDataBlock> converted =
          CmRawJPEGToBlockConverter(&sizeAnalyzer)
              .Convert(data.GetData(), data.GetLength(), this->GetExplicitTime(), true);
      if (converted) {
        this->ResetExplicitTime();
        return this->HandleBlock(CmVideoBlockPointer<Count>(converted.release()));
      }
    } else if (data.IsBlock()) {
      // A view: the kept record holds the bytes, and the collector copies the
      // block once when it queues it.
      CmVideoBlockPointer<Count> block(
          new CmGenericVideoByteDataBlock(data.GetData(), data.GetLength()));
      const bool handled = this->HandleBlock(block);
      this->ResetExplicitTime();
      return handled && Keep(record);
    } else if (data.GetType() == SmByteDataType::VideoStreamDataPacket) {
      return AddFrameOf(record, data.GetData(), data.GetLength());
    } else if (data.IsMultiPacket() && !data.IsEmpty()) {
      const CmGenericByteDataMultiPacket multiPacket(data.GetData(), data.GetLength());
      uint8_t* packet = nullptr;
      uint64_t length = 0;
      if (multiPacket.GetVideoPacket(packet, length)) {
        return AddFrameOf(record, packet, length);
      }
    }
    this->ResetExplicitTime();
    this->SetDataError("Error extracting video data from Generic Byte Data");
    return false;
  }

  // False: the frame is refused; true: added or skipped on purpose.
  bool AddFrame(const CmGenericVideoStreamDataPacket& frame) {
    switch (this->HandleFrame(frame)) {
    case 0:
      return false;
    case 1:
      return true;
    default:
      this->AppendFrame(CmVideoPacketPointer<Count>(
          new CmGenericVideoStreamDataPacket(frame.GetData(), frame.GetLength())));
      return true;
    }
  }

private:
  bool AddFrameOf(const CmByteDataPointer<Count>& record, uint8_t* packet, uint64_t length) {
    const CmGenericVideoStreamDataPacket frame(packet, length);
    const bool added = AddFrame(frame);
    this->ResetExplicitTime();
    return added && Keep(record);
  }
  bool Keep(const CmByteDataPointer<Count>& record) {
    this->KeepRecord(record);
    return true;
  }
};

} // namespace NmMediaProcessing
