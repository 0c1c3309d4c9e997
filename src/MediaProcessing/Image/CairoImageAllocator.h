#pragma once

#include <cairo.h>

#include <memory>

#include "MediaProcessing/Image/ImageMemoryAllocationInterface.h"

namespace NmMediaProcessing {

// Owns one Cairo object; a null or failed object at construction is the error
// "Unable to acquire resource", so no half-made surface ever escapes.
template <typename T, void (*Deleter)(T*)> class CmCairoHandle {
public:
  CmCairoHandle() = default;
  explicit CmCairoHandle(T* handle);
  T* Get() const { return m_Handle.get(); }
  explicit operator bool() const { return m_Handle != nullptr; }
  void Reset() { m_Handle.reset(); }

private:
  struct CmDelete {
    void operator()(T* handle) const { Deleter(handle); }
  };
  std::unique_ptr<T, CmDelete> m_Handle;
};

using CmCairoSurfaceHandle = CmCairoHandle<cairo_surface_t, cairo_surface_destroy>;
using CmCairoContextHandle = CmCairoHandle<cairo_t, cairo_destroy>;

// One plane in a Cairo image surface, so that Cairo and Pango can paint on an
// image. The surface is CAIRO_FORMAT_RGB24: four bytes a pixel, B G R X in
// memory, row 0 at the top, rows packed to four bytes.
class CmCairoImageAllocator : public ImImageMemoryAllocation {
public:
  CmCairoImageAllocator() = default;
  ~CmCairoImageAllocator() override;
  CmCairoImageAllocator(const CmCairoImageAllocator&) = delete;
  CmCairoImageAllocator& operator=(const CmCairoImageAllocator&) = delete;

  // The format whose bytes Cairo paints natively: 4 ("BGR32").
  static ColorFormat GetRecommendedColorFormat();

  using ImImageMemoryAllocation::Allocate;
  void Allocate(uint64_t width, uint64_t height, ColorFormat colorFormat,
                uint64_t alignment) override;
  void Clear() override;
  void CopyFrom(const ImImageMemoryAllocation& other) override;
  void Swap(ImImageMemoryAllocation& other) override;
  ColorFormat GetColorFormat() const override { return m_ColorFormat; }
  uint64_t GetAlignment() const override;
  uint64_t GetDefaultAlignment() const override { return 4; }
  uint64_t GetPlaneCount() const override { return m_Surface ? 1 : 0; }
  CmPlane GetPlane(uint64_t index) const override;
  CmWriteablePlane GetWriteablePlane(uint64_t index) override;
  bool IsSharedPlane(uint64_t) const override { return false; }
  void ReinterpretFormat(ColorFormat colorFormat) override;
  void Crop(uint64_t x, uint64_t y, uint64_t width, uint64_t height) override;

  // The drawing context of the whole surface; painting goes through it.
  cairo_t* GetHandle() const;

private:
  void ExchangeWith(CmCairoImageAllocator& other) noexcept;
  void CheckPlaneIndex(uint64_t index) const;

  ColorFormat m_ColorFormat = ColorFormatNone;
  uint64_t m_Alignment = 0;
  CmWriteablePlane m_Plane;
  CmCairoSurfaceHandle m_Surface;
  CmCairoContextHandle m_Context;
};

} // namespace NmMediaProcessing
