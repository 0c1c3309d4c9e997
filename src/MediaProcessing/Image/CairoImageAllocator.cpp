#include "MediaProcessing/Image/CairoImageAllocator.h"

#include <utility>

#include "Common/Error/Error.h"
#include "Common/Error/Precondition.h"
#include "MediaProcessing/Image/ImageBufferHelpers.h"
#include "MediaProcessing/Image/VideoProcessingError.h"

namespace NmMediaProcessing {

using NmError::CmIntegrityError;
using NmError::CmIntegrityErrorCode;

namespace {
constexpr uint64_t MaximumDimension = 32767;
// Cairo's RGB24 pixel is four bytes, and its rows are packed to four bytes.
constexpr uint64_t SurfacePixelStride = 4;
constexpr uint64_t SurfaceRowAlignment = 4;

cairo_status_t StatusOf(cairo_surface_t* surface) {
  return cairo_surface_status(surface);
}
cairo_status_t StatusOf(cairo_t* context) {
  return cairo_status(context);
}

// Only the formats whose bytes are B G R in memory can share Cairo's layout;
// the fourth byte is Cairo's padding, read as alpha under the label BGRA.
bool IsSurfaceFormat(ColorFormat format) {
  return format == BGR32 || format == BGRA;
}
} // namespace

template <typename T, void (*Deleter)(T*)>
CmCairoHandle<T, Deleter>::CmCairoHandle(T* handle) : m_Handle(handle) {
  // Cairo hands back an inert error object rather than null on failure.
  VZK_REQUIRE_AS(NmError::CmSystemError, handle != nullptr, "Unable to acquire resource", 0,
                 "null handle");
  const cairo_status_t status = StatusOf(handle);
  VZK_REQUIRE_AS(NmError::CmSystemError, status == CAIRO_STATUS_SUCCESS,
                 "Unable to acquire resource", static_cast<int32_t>(status),
                 cairo_status_to_string(status));
}

template class CmCairoHandle<cairo_surface_t, cairo_surface_destroy>;
template class CmCairoHandle<cairo_t, cairo_destroy>;

CmCairoImageAllocator::~CmCairoImageAllocator() = default;

ColorFormat CmCairoImageAllocator::GetRecommendedColorFormat() {
  return BGR32;
}

void CmCairoImageAllocator::Allocate(uint64_t width, uint64_t height, ColorFormat colorFormat,
                                     uint64_t alignment) {
  VZK_REQUIRE(width >= 1 && width <= MaximumDimension, "Image width is out of range",
              CmIntegrityErrorCode::InvalidArgument);
  VZK_REQUIRE(height >= 1 && height <= MaximumDimension, "Image height is out of range",
              CmIntegrityErrorCode::InvalidArgument);
  if (alignment == 0) {
    alignment = SurfaceRowAlignment;
  }
  const uint64_t rowStride = RoundUp(width * SurfacePixelStride, SurfaceRowAlignment);
  if (m_Surface && colorFormat == m_ColorFormat &&
      static_cast<uint64_t>(cairo_image_surface_get_width(m_Surface.Get())) == width &&
      static_cast<uint64_t>(cairo_image_surface_get_height(m_Surface.Get())) == height &&
      RoundUp(width * SurfacePixelStride, alignment) == rowStride) {
    // Same geometry: the surface and its pixels stay, but a crop is undone.
    m_Alignment = alignment;
    m_Plane.width = width;
    m_Plane.height = height;
    m_Plane.data = cairo_image_surface_get_data(m_Surface.Get());
    return;
  }
  VZK_REQUIRE_AS(CmVideoProcessingError, IsSurfaceFormat(colorFormat),
                 "Device does not support the given color format",
                 CmIntegrityErrorCode::InvalidArgument);
  VZK_REQUIRE_AS(
      CmVideoProcessingError, RoundUp(width * SurfacePixelStride, alignment) == rowStride,
      "Device does not support the requested alignment", CmIntegrityErrorCode::InvalidArgument);
  const int stride = cairo_format_stride_for_width(CAIRO_FORMAT_RGB24, static_cast<int>(width));
  VZK_REQUIRE_AS(CmVideoProcessingError, stride >= 0 && static_cast<uint64_t>(stride) == rowStride,
                 "Device does not support the requested alignment",
                 CmIntegrityErrorCode::InvalidArgument);
  CmCairoSurfaceHandle surface(cairo_image_surface_create(
      CAIRO_FORMAT_RGB24, static_cast<int>(width), static_cast<int>(height)));
  CmCairoContextHandle context(cairo_create(surface.Get()));
  cairo_surface_flush(surface.Get());

  CmWriteablePlane plane;
  plane.width = width;
  plane.height = height;
  plane.bytesPerPixel = colorFormat == BGRA ? 4 : 3;
  plane.pixelStride = SurfacePixelStride;
  plane.rowStride = static_cast<uint64_t>(cairo_image_surface_get_stride(surface.Get()));
  plane.data = cairo_image_surface_get_data(surface.Get());

  // Nothing below throws: the old surface goes only when the new one exists.
  m_Context = std::move(context);
  m_Surface = std::move(surface);
  m_Plane = plane;
  m_ColorFormat = colorFormat;
  m_Alignment = alignment;
}

void CmCairoImageAllocator::Clear() {
  if (m_Surface) {
    cairo_surface_flush(m_Surface.Get());
  }
  m_Context.Reset();
  m_Surface.Reset();
  m_Plane = CmWriteablePlane();
  m_ColorFormat = ColorFormatNone;
  m_Alignment = 0;
}

void CmCairoImageAllocator::CopyFrom(const ImImageMemoryAllocation& other) {
  if (&other == this) {
    return;
  }
  if (other.GetPlaneCount() == 0) {
    Clear();
    return;
  }
  const CmPlane source = other.GetPlane(0);
  if (const auto* cairoOther = dynamic_cast<const CmCairoImageAllocator*>(&other)) {
    Allocate(source.width, source.height, cairoOther->GetColorFormat(), cairoOther->GetAlignment());
    // A cropped source shows only part of its surface; copy what it shows.
    cairo_surface_flush(cairoOther->m_Surface.Get());
    const auto* origin = cairo_image_surface_get_data(cairoOther->m_Surface.Get());
    const uint64_t offset = static_cast<uint64_t>(source.data - origin);
    const uint64_t stride = source.rowStride;
    cairo_t* context = m_Context.Get();
    cairo_save(context);
    cairo_set_operator(context, CAIRO_OPERATOR_SOURCE);
    cairo_set_source_surface(context, cairoOther->m_Surface.Get(),
                             -static_cast<double>((offset % stride) / SurfacePixelStride),
                             -static_cast<double>(offset / stride));
    cairo_paint(context);
    cairo_restore(context);
    cairo_surface_flush(m_Surface.Get());
    return;
  }
  Allocate(source.width, source.height, other.GetColorFormat(), SurfaceRowAlignment);
  cairo_surface_flush(m_Surface.Get());
  CmImageBufferHelpers::CopyAllocatorContents(other, *this);
  cairo_surface_mark_dirty(m_Surface.Get());
}

void CmCairoImageAllocator::ExchangeWith(CmCairoImageAllocator& other) noexcept {
  std::swap(m_ColorFormat, other.m_ColorFormat);
  std::swap(m_Alignment, other.m_Alignment);
  std::swap(m_Plane, other.m_Plane);
  std::swap(m_Surface, other.m_Surface);
  std::swap(m_Context, other.m_Context);
}

void CmCairoImageAllocator::Swap(ImImageMemoryAllocation& other) {
  if (&other == this) {
    return;
  }
  if (auto* cairoOther = dynamic_cast<CmCairoImageAllocator*>(&other)) {
    ExchangeWith(*cairoOther);
    return;
  }
  CmCairoImageAllocator temporary;
  temporary.CopyFrom(*this);
  CopyFrom(other);
  other.CopyFrom(temporary);
}

uint64_t CmCairoImageAllocator::GetAlignment() const {
  VZK_REQUIRE(m_Surface, "No image is allocated", CmIntegrityErrorCode::InvalidPointer);
  return m_Alignment;
}

void CmCairoImageAllocator::CheckPlaneIndex(uint64_t index) const {
  VZK_REQUIRE(index == 0, "Plane index out of range", CmIntegrityErrorCode::InvalidArgument);
  VZK_REQUIRE(m_Surface, "No image is allocated", CmIntegrityErrorCode::InvalidPointer);
}

ImImageMemoryAllocation::CmPlane CmCairoImageAllocator::GetPlane(uint64_t index) const {
  // Cairo may defer its drawing; a reader has to see what was painted.
  if (m_Surface) {
    cairo_surface_flush(m_Surface.Get());
  }
  CheckPlaneIndex(index);
  return m_Plane;
}

ImImageMemoryAllocation::CmWriteablePlane CmCairoImageAllocator::GetWriteablePlane(uint64_t index) {
  if (m_Surface) {
    cairo_surface_flush(m_Surface.Get());
  }
  CheckPlaneIndex(index);
  // The caller is about to write behind Cairo's back; Cairo must not trust
  // anything it may have cached about these pixels.
  cairo_surface_mark_dirty(m_Surface.Get());
  return m_Plane;
}

void CmCairoImageAllocator::ReinterpretFormat(ColorFormat colorFormat) {
  VZK_REQUIRE(m_Surface, "No image is allocated", CmIntegrityErrorCode::InvalidPointer);
  if (colorFormat == m_ColorFormat) {
    return;
  }
  throw CmIntegrityError(VZK_LOCATION, "Cannot change color format on this device",
                         CmIntegrityErrorCode::InvalidArgument);
}

void CmCairoImageAllocator::Crop(uint64_t x, uint64_t y, uint64_t width, uint64_t height) {
  VZK_REQUIRE(m_Surface, "No image is allocated", CmIntegrityErrorCode::InvalidPointer);
  m_Plane.Crop(x, y, width, height);
}

cairo_t* CmCairoImageAllocator::GetHandle() const {
  VZK_REQUIRE(m_Context, "No image is allocated", CmIntegrityErrorCode::InvalidPointer);
  return m_Context.Get();
}

} // namespace NmMediaProcessing
