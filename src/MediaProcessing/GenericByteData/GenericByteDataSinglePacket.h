#pragma once

#include "MediaProcessing/GenericByteData/GenericByteData.h"

namespace NmMediaProcessing {

// Any record of one frame or one piece of audio: types 16 to 65023. Only the
// video (16) and audio (32) packets have a layout of their own; this class
// serves to walk records of types that it does not know.
class CmGenericByteDataSinglePacket : public CmGenericByteData {
public:
  CmGenericByteDataSinglePacket() = default;
  explicit CmGenericByteDataSinglePacket(bool freeOnDestruction)
      : CmGenericByteData(freeOnDestruction) {}
  CmGenericByteDataSinglePacket(uint8_t* buffer, uint64_t size) { Attach(buffer, size); }
  CmGenericByteDataSinglePacket(const CmGenericByteDataSinglePacket&) = default;
  CmGenericByteDataSinglePacket& operator=(const CmGenericByteDataSinglePacket&) = default;
  ~CmGenericByteDataSinglePacket() override = default;

  bool IsValidType(int32_t type) const override;
};

// What the video and the audio packet share: one type each, a header of a
// fixed length, the codec field at 6 and the sequence number at 8.
class CmGenericStreamDataPacket : public CmGenericByteDataSinglePacket {
public:
  CmGenericStreamDataPacket() = default;
  explicit CmGenericStreamDataPacket(bool freeOnDestruction)
      : CmGenericByteDataSinglePacket(freeOnDestruction) {}

  bool IsValidType(int32_t type) const override { return type == GetDefaultType(); }
  bool CanAllocate() const override { return true; }
  uint64_t GetHeaderLength(int32_t type) const override;

  // 0 unless the field holds a codec value known to the packet's kind.
  uint32_t GetCodec() const;
  bool SetCodec(uint32_t codec);
  uint16_t GetSequenceNumber() const;
  bool SetSequenceNumber(uint16_t sequenceNumber);
  // The number that the packet before this one must have carried.
  uint16_t GetPreviousSequenceNumber() const;

protected:
  virtual uint64_t GetFixedHeaderLength() const = 0;
  virtual bool IsKnownCodec(uint32_t codec) const = 0;
};

} // namespace NmMediaProcessing
