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

protected:
  // The sequence number field is shared by both stream packets.
  uint16_t ReadSequenceNumber() const;
};

} // namespace NmMediaProcessing
