#pragma once

#include "MediaProcessing/GenericByteData/GenericByteData.h"

namespace NmMediaProcessing {

// Several complete single packets behind a 16-byte header, each with its own
// header and length. Read only: nothing here writes one.
class CmGenericByteDataMultiPacket : public CmGenericByteData {
public:
  static constexpr uint64_t HeaderLength = 16;

  CmGenericByteDataMultiPacket() = default;
  explicit CmGenericByteDataMultiPacket(bool freeOnDestruction)
      : CmGenericByteData(freeOnDestruction) {}
  CmGenericByteDataMultiPacket(uint8_t* buffer, uint64_t size) { Attach(buffer, size); }
  CmGenericByteDataMultiPacket(const CmGenericByteDataMultiPacket&) = default;
  CmGenericByteDataMultiPacket& operator=(const CmGenericByteDataMultiPacket&) = default;
  ~CmGenericByteDataMultiPacket() override = default;

  bool IsValidType(int32_t type) const override;
  bool CanAllocate() const override { return true; }
  uint64_t GetHeaderLength(int32_t type) const override;
  int32_t GetDefaultType() const override { return SmByteDataType::MultiPacket; }

  uint32_t GetPacketCount() const;
  // The first packet of that type; null and 0 when there is none.
  bool GetVideoPacket(uint8_t*& dataOut, uint64_t& lengthOut) const;
  bool GetAudioPacket(uint8_t*& dataOut, uint64_t& lengthOut) const;
  // The packet of the type that comes wantedIndex matches after the first.
  bool FindPacket(int32_t wantedType, uint64_t wantedIndex, uint8_t*& dataOut,
                  uint64_t& lengthOut) const;
};

} // namespace NmMediaProcessing
