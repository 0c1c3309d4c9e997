#pragma once

#include "MediaProcessing/GenericByteData/GenericByteDataSinglePacket.h"
#include "MediaProcessing/GenericByteData/ImageFormFields.h"

namespace NmMediaProcessing {

// The 16-bit flags of a video packet: the sync bit and the image form bits.
inline constexpr SmHeaderField VideoPacketFlagsField{10, 2};

// One encoded video frame behind a 32-byte header.
class CmGenericVideoStreamDataPacket
    : public CmImageFormFields<CmGenericStreamDataPacket, VideoPacketFlagsField> {
public:
  static constexpr uint64_t HeaderLength = 32;

  CmGenericVideoStreamDataPacket() = default;
  explicit CmGenericVideoStreamDataPacket(bool freeOnDestruction)
      : CmImageFormFields(freeOnDestruction) {}
  CmGenericVideoStreamDataPacket(uint8_t* buffer, uint64_t size) { Attach(buffer, size); }
  CmGenericVideoStreamDataPacket(const CmGenericVideoStreamDataPacket&) = default;
  CmGenericVideoStreamDataPacket& operator=(const CmGenericVideoStreamDataPacket&) = default;
  ~CmGenericVideoStreamDataPacket() override = default;

  int32_t GetDefaultType() const override { return SmByteDataType::VideoStreamDataPacket; }

  bool GetSync() const;
  bool SetSync(bool sync);
  NmTimeStamp::CmTimeStamp GetSyncTime() const;
  bool SetSyncTime(const NmTimeStamp::CmTimeStamp& time);
  NmTimeStamp::CmTimeStamp GetFrameTime() const;
  bool SetFrameTime(const NmTimeStamp::CmTimeStamp& time);

protected:
  uint64_t GetFixedHeaderLength() const override { return HeaderLength; }
  bool IsKnownCodec(uint32_t codec) const override;
};

} // namespace NmMediaProcessing
