#pragma once

#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <vector>

#include "Common/CountedPtr/CountedPtr.h"
#include "Common/TimeStamp/TimeStamp.h"
#include "MediaProcessing/GenericByteData/GenericByteDataBlock.h"
#include "MediaProcessing/GenericByteData/GenericVideoStreamDataPacket.h"

namespace NmMediaProcessing {

template <typename Count>
using CmVideoPacketPointer = NmCountedPtr::CmCountedPtr<CmGenericVideoStreamDataPacket, Count>;
template <typename Count>
using CmVideoBlockPointer = NmCountedPtr::CmCountedPtr<CmGenericVideoByteDataBlock, Count>;

// What a gatherer of groups of pictures is given: frames one at a time and
// whole blocks, each of which already is a group.
class ImVideoGOPBuffer {
public:
  virtual ~ImVideoGOPBuffer() = default;
  virtual void Reset() = 0;
  // 0: the frame is refused; 1: skipped on purpose; 2: it belongs to the GOP.
  virtual uint32_t HandleFrame(const CmGenericVideoStreamDataPacket& frame) = 0;
  virtual bool
  HandleBlock(const CmVideoBlockPointer<NmCountedPtr::CmUnserializedReferenceCount>& block) = 0;
  virtual bool
  HandleBlock(const CmVideoBlockPointer<NmCountedPtr::CmSerializedReferenceCount>& block) = 0;
  virtual bool HandleBlock(const std::shared_ptr<CmGenericVideoByteDataBlock>& block) = 0;
  virtual void SetDataError(const std::string& message) = 0;
};

// The names the errors of the buffers carry for their reference count policy.
template <typename Count> struct SmReferenceCountName;
template <> struct SmReferenceCountName<NmCountedPtr::CmUnserializedReferenceCount> {
  static constexpr const char* Name = "class NmCountedPtr::CmUnserializedReferenceCount";
};
template <> struct SmReferenceCountName<NmCountedPtr::CmSerializedReferenceCount> {
  static constexpr const char* Name = "class NmCountedPtr::CmSerializedReferenceCount";
};

[[noreturn]] void RaiseEmptyGOPBuffer(const char* countName, const char* operation);
[[noreturn]] void RaiseNoVideoBlockReady(const char* countName);

// The frames of the GOP under construction. They are views over the bytes of
// their records, which someone else keeps alive until the block is written.
template <typename Count> class CmGenericVideoPacketGOPBuffer : public ImVideoGOPBuffer {
public:
  void Reset() override { m_Frames.clear(); }

  const CmGenericVideoStreamDataPacket& GetKeyFrame() const {
    if (m_Frames.empty()) {
      RaiseEmptyGOPBuffer(SmReferenceCountName<Count>::Name, "GetKeyFrame");
    }
    return *m_Frames.front();
  }
  NmTimeStamp::CmTimeStamp GetLastTimeStamp() const {
    if (m_Frames.empty()) {
      RaiseEmptyGOPBuffer(SmReferenceCountName<Count>::Name, "GetLastTimeStamp");
    }
    return m_Frames.back()->GetFrameTime();
  }

protected:
  bool IsGOPEmpty() const { return m_Frames.empty(); }
  void AppendFrame(CmVideoPacketPointer<Count> frame) { m_Frames.push_back(std::move(frame)); }
  const std::vector<CmVideoPacketPointer<Count>>& GetFrames() const { return m_Frames; }

private:
  std::vector<CmVideoPacketPointer<Count>> m_Frames;
};

// Finished blocks, oldest first.
template <typename Count> class CmGenericVideoBlockBuffer {
public:
  void StoreBlock(CmVideoBlockPointer<Count> block) { m_Blocks.push_back(std::move(block)); }
  uint64_t GetBlockCount() const { return m_Blocks.size(); }
  CmVideoBlockPointer<Count> RetrieveBlock() {
    if (m_Blocks.empty()) {
      RaiseNoVideoBlockReady(SmReferenceCountName<Count>::Name);
    }
    CmVideoBlockPointer<Count> oldest = std::move(m_Blocks.front());
    m_Blocks.pop_front();
    return oldest;
  }

protected:
  void ClearBlocks() { m_Blocks.clear(); }

private:
  std::deque<CmVideoBlockPointer<Count>> m_Blocks;
};

} // namespace NmMediaProcessing
