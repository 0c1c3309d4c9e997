#pragma once

#include <cstdint>
#include <memory>

#include "MediaProcessing/Image/ImageMemoryAllocationInterface.h"

namespace NmMediaProcessing {

// An image without attributes: an owned allocator and the picture's size.
class CmBaseImage {
public:
  CmBaseImage();
  // Takes ownership; an allocator that already has planes gives the size.
  explicit CmBaseImage(std::unique_ptr<ImImageMemoryAllocation> allocator);
  // Shares the other's planes through a new reference-counting allocator.
  CmBaseImage(const CmBaseImage& other);
  CmBaseImage& operator=(const CmBaseImage& other);
  virtual ~CmBaseImage();

  // The allocator may keep its planes, which is what makes a decoder's
  // re-allocation at the same geometry free. Attributes go back to defaults.
  void Allocate(uint64_t width, uint64_t height, ColorFormat colorFormat);
  void Allocate(uint64_t width, uint64_t height, ColorFormat colorFormat, uint64_t alignment);
  void SetAllocator(std::unique_ptr<ImImageMemoryAllocation> allocator);
  std::unique_ptr<ImImageMemoryAllocation> ReleaseAllocator();

  virtual void Reset();
  // A decoder calls this before writing into an image that it keeps, so that
  // no reader of a shared copy sees the picture change.
  void ReleaseIfShared();

  bool IsValid() const;
  uint64_t GetWidth() const { return m_Width; }
  uint64_t GetHeight() const { return m_Height; }
  ColorFormat GetColorFormat() const;
  uint64_t GetAlignment() const;

  virtual ImImageMemoryAllocation& Allocator();
  virtual const ImImageMemoryAllocation& Allocator() const;

private:
  void ClearDimensionsAndPlanes();

  // Null only while Allocate has set it aside around Reset.
  std::unique_ptr<ImImageMemoryAllocation> m_Allocator;
  uint64_t m_Width = 0;
  uint64_t m_Height = 0;
};

} // namespace NmMediaProcessing
