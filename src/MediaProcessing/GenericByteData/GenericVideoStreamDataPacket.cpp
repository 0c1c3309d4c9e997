#include "MediaProcessing/GenericByteData/GenericVideoStreamDataPacket.h"

#include "MediaProcessing/GenericByteData/VideoCodec.h"

namespace NmMediaProcessing {

using NmTimeStamp::CmTimeStamp;

namespace {
constexpr uint64_t SyncTimeOffset = 12;
constexpr uint64_t FrameTimeOffset = 20;
constexpr uint32_t SyncFlag = 1;
} // namespace

bool CmGenericVideoStreamDataPacket::IsKnownCodec(uint32_t codec) const {
  return IsKnownVideoCodecValue(codec);
}

bool CmGenericVideoStreamDataPacket::GetSync() const {
  return GetFlag(VideoPacketFlagsField, SyncFlag);
}

bool CmGenericVideoStreamDataPacket::SetSync(bool sync) {
  return SetFlag(VideoPacketFlagsField, SyncFlag, sync);
}

CmTimeStamp CmGenericVideoStreamDataPacket::GetSyncTime() const {
  return GetTimeField(SyncTimeOffset);
}

bool CmGenericVideoStreamDataPacket::SetSyncTime(const CmTimeStamp& time) {
  return SetTimeField(SyncTimeOffset, time);
}

CmTimeStamp CmGenericVideoStreamDataPacket::GetFrameTime() const {
  return GetTimeField(FrameTimeOffset);
}

bool CmGenericVideoStreamDataPacket::SetFrameTime(const CmTimeStamp& time) {
  return SetTimeField(FrameTimeOffset, time);
}

} // namespace NmMediaProcessing
