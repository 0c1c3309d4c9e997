#pragma once

#include <vector>

#include "Common/CountedPtr/CountedPtr.h"
#include "MediaProcessing/Image/ImageMemoryAllocationInterface.h"

namespace NmMediaProcessing {

// The default allocator: planes are shared by count between copies and
// copied on the first write, so copying an image moves no pixels.
class CmReferenceCountingImageAllocator : public ImImageMemoryAllocation {
public:
  CmReferenceCountingImageAllocator();
  CmReferenceCountingImageAllocator(const CmReferenceCountingImageAllocator& other);
  CmReferenceCountingImageAllocator& operator=(const CmReferenceCountingImageAllocator& other);
  ~CmReferenceCountingImageAllocator() override;

  using ImImageMemoryAllocation::Allocate;
  void Allocate(uint64_t width, uint64_t height, ColorFormat colorFormat,
                uint64_t alignment) override;
  void Clear() override;
  void CopyFrom(const ImImageMemoryAllocation& other) override;
  void Swap(ImImageMemoryAllocation& other) override;
  ColorFormat GetColorFormat() const override;
  uint64_t GetAlignment() const override;
  uint64_t GetDefaultAlignment() const override { return 32; }
  uint64_t GetPlaneCount() const override { return m_Planes.size(); }
  CmPlane GetPlane(uint64_t index) const override;
  CmWriteablePlane GetWriteablePlane(uint64_t index) override;
  bool IsSharedPlane(uint64_t index) const override;
  void ReinterpretFormat(ColorFormat colorFormat) override;
  void Crop(uint64_t x, uint64_t y, uint64_t width, uint64_t height) override;

private:
  struct CmPlaneMemory;
  // Images are copied across threads, so the count of the shares of a block
  // is one that several threads may change at once.
  using CmMemoryShare =
      NmCountedPtr::CmCountedPtr<CmPlaneMemory, NmCountedPtr::CmSerializedReferenceCount>;

  // A writable view that holds one share of its memory block.
  class CmAllocatedPlane : public CmWriteablePlane {
  public:
    CmAllocatedPlane(uint64_t width, uint64_t height, uint64_t bytesPerPixel, uint64_t pixelStride,
                     uint64_t alignment);
    CmAllocatedPlane(const CmAllocatedPlane& other);
    CmAllocatedPlane(CmAllocatedPlane&& other) noexcept;
    CmAllocatedPlane& operator=(CmAllocatedPlane other) noexcept;
    ~CmAllocatedPlane();

    // Gives this plane its own block when others share it; a cropped view
    // keeps its offset in the copy.
    void MakeUnique();
    bool IsShared() const;
    uint64_t GetAlignment() const;
    // Relabels the same bytes; the new rows must fit the old ones.
    void Reinterpret(uint64_t width, uint64_t height, uint64_t bytesPerPixel, uint64_t pixelStride);

  private:
    CmMemoryShare m_Memory;
  };

  void CheckIndex(uint64_t index) const;
  void CheckAllocated() const;

  std::vector<CmAllocatedPlane> m_Planes;
  ColorFormat m_ColorFormat = ColorFormatNone;
};

} // namespace NmMediaProcessing
