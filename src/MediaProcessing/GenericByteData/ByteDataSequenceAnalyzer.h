#pragma once

#include <cstdint>

#include "Common/TimeStamp/TimeStamp.h"
#include "MediaProcessing/GenericByteData/GenericAudioStreamDataPacket.h"
#include "MediaProcessing/GenericByteData/GenericByteDataBlock.h"
#include "MediaProcessing/GenericByteData/GenericVideoStreamDataPacket.h"

namespace NmMediaProcessing {

// How a record continues the stream before it.
struct SmByteDataSequenceResult {
  enum Status : uint32_t {
    SequenceContinuous = 0,
    // A raw JPEG: no time, no sequence, stands alone.
    SequenceLegacy = 1,
    SequenceTimeWarp = 2,
    SequenceSyncLost = 3,
    SequenceGap = 4,
  };

  uint32_t m_Status = SequenceContinuous;
  // The record decodes by itself.
  bool m_Sync = false;
};

// Follows one stream record by record and tells whether it is intact: times
// that run forward, sync frames seen before the frames that depend on them,
// and no sequence numbers skipped. A stream is either video (packets and
// blocks, freely mixed) or audio; mixing the two is the caller's error.
class CmByteDataSequenceSpecificAnalyzer {
public:
  enum Kind : uint32_t { KindVideoPacket = 0, KindAudioPacket = 1, KindBlock = 2, KindNone = 3 };

  // False when the record cannot be analysed at all; the state is then unchanged.
  bool Analyze(const CmGenericByteData& byteData, SmByteDataSequenceResult& result);
  bool AnalyzeVideo(const CmGenericVideoStreamDataPacket& packet, SmByteDataSequenceResult& result);
  bool AnalyzeAudio(const CmGenericAudioStreamDataPacket& packet, SmByteDataSequenceResult& result);
  bool AnalyzeBlock(const CmGenericVideoByteDataBlock& block, SmByteDataSequenceResult& result);

  const NmTimeStamp::CmTimeStamp& GetLastSyncTime() const { return m_LastSyncTime; }
  const NmTimeStamp::CmTimeStamp& GetLastTime() const { return m_LastTime; }
  uint16_t GetLastSequenceNumber() const { return m_LastSequenceNumber; }
  bool GetLastEndExclusive() const { return m_LastEndExclusive; }
  uint32_t GetLastKind() const { return m_LastKind; }

private:
  NmTimeStamp::CmTimeStamp m_LastSyncTime;
  NmTimeStamp::CmTimeStamp m_LastTime;
  uint16_t m_LastSequenceNumber = 0;
  bool m_LastEndExclusive = false;
  uint32_t m_LastKind = KindNone;
};

} // namespace NmMediaProcessing
