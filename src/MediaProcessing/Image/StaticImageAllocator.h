#pragma once

#include <optional>
#include <utility>
#include <vector>

#include "Common/Error/Error.h"
#include "MediaProcessing/Image/ImageMemoryAllocationInterface.h"

namespace NmMediaProcessing {

// Own codes of the static allocator's errors, stacked over the integrity code.
struct CmStaticImageAllocationErrorCode {
  enum Code : uint32_t {
    General = 0,
    // The buffers cannot take the request; callers fall back on their own memory.
    RequestNotSatisfiable = 1,
  };
};

using CmStaticImageAllocationError =
    NmError::CmGenericErrorWithBaseErrorCode<NmError::CmIntegrityErrorCode, NmError::CmError, 4>;

// Wraps memory that belongs to somebody else so that it can serve as an image
// without a copy. It never allocates: Allocate only checks that the request
// describes the buffers that are there.
class CmStaticImageAllocator : public ImImageMemoryAllocation {
public:
  // One (row stride, data) pair for one-plane formats, three for 5, 6 and 7.
  CmStaticImageAllocator(uint64_t width, uint64_t height, ColorFormat colorFormat,
                         const std::vector<std::pair<uint64_t, uint8_t*>>& buffers);
  // Adopts the other's writable planes without taking over their memory.
  explicit CmStaticImageAllocator(ImImageMemoryAllocation& other);

  using ImImageMemoryAllocation::Allocate;
  void Allocate(uint64_t width, uint64_t height, ColorFormat colorFormat,
                uint64_t alignment) override;
  void Clear() override { m_Allocated = false; }
  void CopyFrom(const ImImageMemoryAllocation& other) override;
  void Swap(ImImageMemoryAllocation& other) override;
  ColorFormat GetColorFormat() const override { return m_ColorFormat; }
  uint64_t GetAlignment() const override;
  uint64_t GetDefaultAlignment() const override;
  uint64_t GetPlaneCount() const override { return m_Planes.size(); }
  CmPlane GetPlane(uint64_t index) const override;
  CmWriteablePlane GetWriteablePlane(uint64_t index) override;
  bool IsSharedPlane(uint64_t) const override { return false; }
  void ReinterpretFormat(ColorFormat colorFormat) override;
  void Crop(uint64_t x, uint64_t y, uint64_t width, uint64_t height) override;

  bool IsAllocated() const { return m_Allocated; }
  // The first of 1, 2, 4 ... 65536 that every plane's row stride is rounded
  // to, else plane 0's row stride if that fits, else nothing.
  std::optional<uint64_t> FindAlignment() const;

private:
  void AddPlane(uint64_t width, uint64_t height, uint64_t bytesPerPixel, uint64_t pixelStride,
                uint64_t rowStride, uint8_t* data);
  bool FitsAlignment(uint64_t alignment) const;

  std::vector<CmWriteablePlane> m_Planes;
  ColorFormat m_ColorFormat = ColorFormatNone;
  uint64_t m_Alignment = 0;
  bool m_Allocated = false;
};

} // namespace NmMediaProcessing
