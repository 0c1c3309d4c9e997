#pragma once

#include <cstdint>
#include <vector>

#include "MediaProcessing/Image/ImageTypes.h"

namespace NmMediaProcessing {

// Where an image's planes are. Implementations decide who owns the bytes.
class ImImageMemoryAllocation {
public:
  class CmWriteablePlane {
  public:
    uint8_t* GetPixelAddress(uint64_t x, uint64_t y) const;
    // Narrows the view; the row stride stays, so the cropped rows have gaps.
    void Crop(uint64_t x, uint64_t y, uint64_t w, uint64_t h);

    uint64_t width = 0;
    uint64_t height = 0;
    uint64_t bytesPerPixel = 0;
    uint64_t pixelStride = 0;
    uint64_t rowStride = 0;
    uint8_t* data = nullptr;
  };

  class CmPlane {
  public:
    CmPlane() = default;
    CmPlane(const CmWriteablePlane& plane) // NOLINT: a writable view is also a read view
        : width(plane.width), height(plane.height), bytesPerPixel(plane.bytesPerPixel),
          pixelStride(plane.pixelStride), rowStride(plane.rowStride), data(plane.data) {}
    const uint8_t* GetPixelAddress(uint64_t x, uint64_t y) const;
    void Crop(uint64_t x, uint64_t y, uint64_t w, uint64_t h);

    uint64_t width = 0;
    uint64_t height = 0;
    uint64_t bytesPerPixel = 0;
    uint64_t pixelStride = 0;
    uint64_t rowStride = 0;
    const uint8_t* data = nullptr;
  };

  virtual ~ImImageMemoryAllocation() = default;
  virtual void Allocate(uint64_t width, uint64_t height, ColorFormat colorFormat) {
    Allocate(width, height, colorFormat, 0);
  }
  // alignment 0 asks for the allocator's default.
  virtual void Allocate(uint64_t width, uint64_t height, ColorFormat colorFormat,
                        uint64_t alignment) = 0;
  virtual void Clear() = 0;
  virtual void CopyFrom(const ImImageMemoryAllocation& other) = 0;
  virtual void Swap(ImImageMemoryAllocation& other) = 0;
  virtual ColorFormat GetColorFormat() const = 0;
  virtual uint64_t GetAlignment() const = 0;
  virtual uint64_t GetDefaultAlignment() const = 0;
  virtual uint64_t GetPlaneCount() const = 0;
  // Views are returned by value: a caller may crop its copy without touching ours.
  virtual CmPlane GetPlane(uint64_t index) const = 0;
  virtual CmWriteablePlane GetWriteablePlane(uint64_t index) = 0;
  virtual bool IsSharedPlane(uint64_t index) const = 0;
  virtual void ReinterpretFormat(ColorFormat colorFormat) = 0;
  virtual void Crop(uint64_t x, uint64_t y, uint64_t width, uint64_t height) = 0;
};

// value if it is a multiple already, else the next multiple above.
uint64_t RoundUp(uint64_t value, uint64_t multiple);

// False without planes, true for alignment 0, otherwise whether every plane's
// row stride is exactly its row of pixels rounded up to the alignment.
bool MatchesAlignment(const ImImageMemoryAllocation& allocator, uint64_t alignment);

// The chroma rectangle that belongs to a luma crop in a multi-plane format.
struct SmCropRectangle {
  uint64_t x, y, width, height;
};
SmCropRectangle GetChromaCropRectangle(ColorFormat format, uint64_t x, uint64_t y, uint64_t width,
                                       uint64_t height);

// Crops every plane of an allocator in place. The last plane's rectangle is
// tried on a copy first, so that a rectangle that misses the chroma fails
// before the luma has changed.
template <typename Plane>
void CropPlanes(std::vector<Plane>& planes, ColorFormat format, uint64_t x, uint64_t y,
                uint64_t width, uint64_t height) {
  if (planes.size() == 3 && IsMultiPlaneFormat(format)) {
    const SmCropRectangle chroma = GetChromaCropRectangle(format, x, y, width, height);
    ImImageMemoryAllocation::CmWriteablePlane trial = planes.back();
    trial.Crop(chroma.x, chroma.y, chroma.width, chroma.height);
    planes[0].Crop(x, y, width, height);
    planes[1].Crop(chroma.x, chroma.y, chroma.width, chroma.height);
    planes[2].Crop(chroma.x, chroma.y, chroma.width, chroma.height);
    return;
  }
  planes[0].Crop(x, y, width, height);
}

} // namespace NmMediaProcessing
