#include "MediaProcessing/GenericByteData/ByteDataSequenceAnalyzer.h"

#include "Common/Error/Error.h"
#include "Common/Error/Precondition.h"
#include "MediaProcessing/GenericByteData/GenericByteDataMultiPacket.h"

namespace NmMediaProcessing {

using NmTimeStamp::CmTimeStamp;
using Result = SmByteDataSequenceResult;

bool CmByteDataSequenceSpecificAnalyzer::Analyze(const CmGenericByteData& byteData,
                                                 SmByteDataSequenceResult& result) {
  if (byteData.IsEmpty()) {
    return false;
  }
  if (byteData.IsRawJPEG()) {
    result.m_Status = Result::SequenceLegacy;
    result.m_Sync = true;
    return true;
  }
  uint8_t* const data = byteData.GetData();
  const uint64_t length = byteData.GetLength();
  if (byteData.IsBlock()) {
    const CmGenericVideoByteDataBlock block(data, length);
    return block.IsTypeValid() && AnalyzeBlock(block, result);
  }
  if (byteData.IsPacket()) {
    switch (byteData.GetType()) {
    case SmByteDataType::AudioStreamDataPacket:
      return AnalyzeAudio(CmGenericAudioStreamDataPacket(data, length), result);
    case SmByteDataType::VideoStreamDataPacket:
      return AnalyzeVideo(CmGenericVideoStreamDataPacket(data, length), result);
    default:
      return false;
    }
  }
  if (byteData.IsMultiPacket()) {
    // Audio first: a multi packet that carries both is taken for the audio
    // stream here, while size analysis prefers its video.
    const CmGenericByteDataMultiPacket multiPacket(data, length);
    uint8_t* packet = nullptr;
    uint64_t packetLength = 0;
    if (multiPacket.GetAudioPacket(packet, packetLength)) {
      return AnalyzeAudio(CmGenericAudioStreamDataPacket(packet, packetLength), result);
    }
    if (multiPacket.GetVideoPacket(packet, packetLength)) {
      return AnalyzeVideo(CmGenericVideoStreamDataPacket(packet, packetLength), result);
    }
  }
  return false;
}

bool CmByteDataSequenceSpecificAnalyzer::AnalyzeVideo(const CmGenericVideoStreamDataPacket& packet,
                                                      SmByteDataSequenceResult& result) {
  VZK_REQUIRE(m_LastKind != KindAudioPacket, "Cannot analyze video packets after audio packets!",
              NmError::CmIntegrityErrorCode::Unknown);
  if (!packet.IsTypeValid()) {
    return false;
  }
  const CmTimeStamp frameTime = packet.GetFrameTime();
  const CmTimeStamp syncTime = packet.GetSyncTime();
  const uint16_t previous = packet.GetPreviousSequenceNumber();
  const bool sync = packet.GetSync();
  const bool afterVideoPacket = m_LastKind == KindVideoPacket;

  uint32_t status = (frameTime <= m_LastTime || frameTime < syncTime) ? Result::SequenceTimeWarp
                                                                      : Result::SequenceContinuous;
  if (sync) {
    if (status == Result::SequenceTimeWarp) {
      m_LastSyncTime = syncTime;
    } else if (afterVideoPacket && m_LastSequenceNumber != previous) {
      status = Result::SequenceGap;
      m_LastSyncTime = syncTime;
    } else if (syncTime == frameTime && syncTime > m_LastSyncTime) {
      m_LastSyncTime = syncTime;
    } else {
      // A sync frame must name itself as the sync frame of a new GOP.
      status = Result::SequenceTimeWarp;
      m_LastSyncTime = syncTime;
    }
  } else if (status != Result::SequenceTimeWarp) {
    if (afterVideoPacket && syncTime == m_LastSyncTime) {
      if (m_LastSequenceNumber != previous) {
        status = Result::SequenceGap;
      }
    } else {
      // Either the frame refers back to an older GOP, or to one whose sync
      // frame never arrived.
      status = syncTime <= m_LastSyncTime ? Result::SequenceTimeWarp : Result::SequenceSyncLost;
    }
  }
  result.m_Status = status;
  result.m_Sync = sync;
  m_LastTime = frameTime;
  m_LastSequenceNumber = packet.GetSequenceNumber();
  m_LastEndExclusive = false;
  m_LastKind = KindVideoPacket;
  return true;
}

bool CmByteDataSequenceSpecificAnalyzer::AnalyzeAudio(const CmGenericAudioStreamDataPacket& packet,
                                                      SmByteDataSequenceResult& result) {
  VZK_REQUIRE(m_LastKind == KindAudioPacket || m_LastKind == KindNone,
              "Cannot analyze audio packets after other types of Generic Byte Data",
              NmError::CmIntegrityErrorCode::Unknown);
  if (!packet.IsTypeValid()) {
    return false;
  }
  const CmTimeStamp time = packet.GetTime();
  uint32_t status = Result::SequenceContinuous;
  if (time <= m_LastTime) {
    status = Result::SequenceTimeWarp;
  } else if (m_LastKind == KindAudioPacket &&
             m_LastSequenceNumber != packet.GetPreviousSequenceNumber()) {
    status = Result::SequenceGap;
  }
  result.m_Status = status;
  result.m_Sync = true;
  m_LastSyncTime = time;
  m_LastTime = time;
  m_LastSequenceNumber = packet.GetSequenceNumber();
  m_LastKind = KindAudioPacket;
  return true;
}

bool CmByteDataSequenceSpecificAnalyzer::AnalyzeBlock(const CmGenericVideoByteDataBlock& block,
                                                      SmByteDataSequenceResult& result) {
  VZK_REQUIRE(m_LastKind != KindAudioPacket, "Cannot analyze video blocks after audio packets!",
              NmError::CmIntegrityErrorCode::Unknown);
  if (!block.IsTypeValid()) {
    return false;
  }
  const CmTimeStamp begin = block.GetBeginTime();
  const CmTimeStamp end = block.GetEndTime();
  // A block may start at the very millisecond where the one before ended
  // only when that end lay behind its last image.
  const bool timeWarp = begin <= m_LastSyncTime || begin < m_LastTime ||
                        (begin == m_LastTime && !m_LastEndExclusive) || end < begin ||
                        !block.AreTimesValid();
  result.m_Status = timeWarp ? Result::SequenceTimeWarp : Result::SequenceContinuous;
  result.m_Sync = true;
  m_LastSyncTime = begin;
  m_LastTime = end;
  m_LastSequenceNumber = 0;
  m_LastEndExclusive = begin != end && block.IsEndTimeExclusive();
  m_LastKind = KindBlock;
  return true;
}

} // namespace NmMediaProcessing
