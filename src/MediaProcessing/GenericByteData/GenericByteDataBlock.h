#pragma once

#include "MediaProcessing/GenericByteData/GenericByteData.h"
#include "MediaProcessing/GenericByteData/ImageFormFields.h"

namespace NmMediaProcessing {

// The 32-bit flags of a block: where the last image lies, and the image form
// bits.
inline constexpr SmHeaderField BlockFlagsField{4, 4};

// A block: a 36-byte header, an optional header extension, then all frames of
// one group of pictures (or one image) back to back. The type field names the
// codec in the block numbering. A raw JPEG is accepted as a block type too,
// but having no header it has no fields to read.
class CmGenericByteDataBlock : public CmImageFormFields<CmGenericByteData, BlockFlagsField> {
public:
  CmGenericByteDataBlock() = default;
  explicit CmGenericByteDataBlock(bool freeOnDestruction) : CmImageFormFields(freeOnDestruction) {}
  CmGenericByteDataBlock(uint8_t* buffer, uint64_t size) { Attach(buffer, size); }
  CmGenericByteDataBlock(const CmGenericByteDataBlock&) = default;
  CmGenericByteDataBlock& operator=(const CmGenericByteDataBlock&) = default;
  ~CmGenericByteDataBlock() override = default;

  bool IsValidType(int32_t type) const override;
  bool CanAllocate() const override { return true; }
  int32_t GetDefaultType() const override { return 1; }

  NmTimeStamp::CmTimeStamp GetBeginTime() const;
  bool SetBeginTime(const NmTimeStamp::CmTimeStamp& time);
  NmTimeStamp::CmTimeStamp GetEndTime() const;
  bool SetEndTime(const NmTimeStamp::CmTimeStamp& time);
  uint32_t GetImageWidth() const;
  bool SetImageWidth(uint32_t width);
  uint32_t GetImageHeight() const;
  bool SetImageHeight(uint32_t height);
  bool SetComponentCount(uint32_t count);
  uint32_t GetImageCount() const;
  bool SetImageCount(uint32_t count);

  // Exclusive: the end time lies one image interval behind the last image.
  bool SetEndTimeExclusive(bool exclusive);
  bool IsEndTimeExclusive() const;

  bool AreTimesValid() const;
  bool GetTimeStampForImage(uint64_t index, NmTimeStamp::CmTimeStamp& timeOut) const;
  // The image shown at a time and that image's own time; false when the time
  // lies outside the block.
  bool GetImageIndexForTime(const NmTimeStamp::CmTimeStamp& time, uint64_t& indexOut,
                            NmTimeStamp::CmTimeStamp& timeOut) const;
};

// The block as video decoding sees it; same layout and rules.
class CmGenericVideoByteDataBlock : public CmGenericByteDataBlock {
public:
  CmGenericVideoByteDataBlock() = default;
  explicit CmGenericVideoByteDataBlock(bool freeOnDestruction)
      : CmGenericByteDataBlock(freeOnDestruction) {}
  CmGenericVideoByteDataBlock(uint8_t* buffer, uint64_t size) { Attach(buffer, size); }
  CmGenericVideoByteDataBlock(const CmGenericVideoByteDataBlock&) = default;
  CmGenericVideoByteDataBlock& operator=(const CmGenericVideoByteDataBlock&) = default;
  ~CmGenericVideoByteDataBlock() override = default;
};

} // namespace NmMediaProcessing
