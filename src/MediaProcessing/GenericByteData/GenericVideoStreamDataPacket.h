#pragma once

#include "MediaProcessing/GenericByteData/GenericByteDataSinglePacket.h"

namespace NmMediaProcessing {

// One encoded video frame behind a 32-byte header.
class CmGenericVideoStreamDataPacket : public CmGenericByteDataSinglePacket {
public:
  static constexpr uint64_t HeaderLength = 32;

  CmGenericVideoStreamDataPacket() = default;
  explicit CmGenericVideoStreamDataPacket(bool freeOnDestruction)
      : CmGenericByteDataSinglePacket(freeOnDestruction) {}
  CmGenericVideoStreamDataPacket(uint8_t* buffer, uint64_t size) { Attach(buffer, size); }
  CmGenericVideoStreamDataPacket(const CmGenericVideoStreamDataPacket&) = default;
  CmGenericVideoStreamDataPacket& operator=(const CmGenericVideoStreamDataPacket&) = default;
  ~CmGenericVideoStreamDataPacket() override = default;

  bool IsValidType(int32_t type) const override;
  bool CanAllocate() const override { return true; }
  uint64_t GetHeaderLength(int32_t type) const override;
  int32_t GetDefaultType() const override { return SmByteDataType::VideoStreamDataPacket; }

  // 0 unless the field holds a known video codec value.
  uint32_t GetCodec() const;
  bool SetCodec(uint32_t codec);
  uint16_t GetSequenceNumber() const;
  bool SetSequenceNumber(uint16_t sequenceNumber);
  // The number that the packet before this one must have carried.
  uint16_t GetPreviousSequenceNumber() const;
  bool GetSync() const;
  bool SetSync(bool sync);
  NmTimeStamp::CmTimeStamp GetSyncTime() const;
  bool SetSyncTime(const NmTimeStamp::CmTimeStamp& time);
  NmTimeStamp::CmTimeStamp GetFrameTime() const;
  bool SetFrameTime(const NmTimeStamp::CmTimeStamp& time);
  bool GetInterlacing(bool& interlaced, bool& topFieldFirst, uint32_t& layout) const;
  bool SetInterlacing(bool interlaced, bool topFieldFirst, uint32_t layout);
  bool GetPictureFormat(uint32_t& pictureFormat) const;
  bool SetPictureFormat(uint32_t pictureFormat);
};

} // namespace NmMediaProcessing
