#include "MediaProcessing/Image/StaticImageAllocator.h"

#include "Common/Error/Precondition.h"
#include "MediaProcessing/Image/ImageBufferHelpers.h"
#include "MediaProcessing/Image/ReferenceCountingImageAllocator.h"

namespace NmMediaProcessing {

using NmError::CmIntegrityErrorCode;
using Own = CmStaticImageAllocationErrorCode;

namespace {
constexpr uint64_t MaximumDimension = 32767;
constexpr uint64_t MaximumAlignment = 0x10000;
} // namespace

CmStaticImageAllocator::CmStaticImageAllocator(
    uint64_t width, uint64_t height, ColorFormat colorFormat,
    const std::vector<std::pair<uint64_t, uint8_t*>>& buffers) {
  VZK_REQUIRE_AS(
      CmStaticImageAllocationError, buffers.size() == NmMediaProcessing::GetPlaneCount(colorFormat),
      "Plane count doesn't match color format", Own::General, CmIntegrityErrorCode::OutOfRange);
  VZK_REQUIRE_AS(CmStaticImageAllocationError, IsKnownColorFormat(colorFormat),
                 "Unknown image color format", Own::General, CmIntegrityErrorCode::InvalidArgument);
  for (uint64_t i = 0; i < buffers.size(); ++i) {
    const SmPlaneSize size = GetPlaneSize(colorFormat, i, width, height);
    AddPlane(size.width, size.height, GetBytesPerPixel(colorFormat), GetPixelStride(colorFormat),
             buffers[i].first, buffers[i].second);
  }
  m_ColorFormat = colorFormat;
}

CmStaticImageAllocator::CmStaticImageAllocator(ImImageMemoryAllocation& other) {
  for (uint64_t i = 0; i < other.GetPlaneCount(); ++i) {
    const CmWriteablePlane plane = other.GetWriteablePlane(i);
    AddPlane(plane.width, plane.height, plane.bytesPerPixel, plane.pixelStride, plane.rowStride,
             plane.data);
  }
  m_ColorFormat = other.GetColorFormat();
}

void CmStaticImageAllocator::AddPlane(uint64_t width, uint64_t height, uint64_t bytesPerPixel,
                                      uint64_t pixelStride, uint64_t rowStride, uint8_t* data) {
  VZK_REQUIRE_AS(CmStaticImageAllocationError, data != nullptr,
                 "Static buffer pointer cannot be NULL", Own::General,
                 CmIntegrityErrorCode::InvalidArgument);
  VZK_REQUIRE_AS(CmStaticImageAllocationError, width >= 1 && width <= MaximumDimension,
                 "Image width is out of range", Own::General,
                 CmIntegrityErrorCode::InvalidArgument);
  VZK_REQUIRE_AS(CmStaticImageAllocationError, height >= 1 && height <= MaximumDimension,
                 "Image height is out of range", Own::General,
                 CmIntegrityErrorCode::InvalidArgument);
  VZK_REQUIRE_AS(CmStaticImageAllocationError, pixelStride * width <= rowStride,
                 "Row stride is too small for width and color format", Own::General,
                 CmIntegrityErrorCode::OutOfRange);
  VZK_REQUIRE_AS(CmStaticImageAllocationError, bytesPerPixel <= pixelStride,
                 "Pixel stride is too small for color format", Own::General,
                 CmIntegrityErrorCode::OutOfRange);
  CmWriteablePlane plane;
  plane.width = width;
  plane.height = height;
  plane.bytesPerPixel = bytesPerPixel;
  plane.pixelStride = pixelStride;
  plane.rowStride = rowStride;
  plane.data = data;
  m_Planes.push_back(plane);
}

bool CmStaticImageAllocator::FitsAlignment(uint64_t alignment) const {
  for (const CmWriteablePlane& plane : m_Planes) {
    if (plane.rowStride != RoundUp(plane.pixelStride * plane.width, alignment)) {
      return false;
    }
  }
  return true;
}

std::optional<uint64_t> CmStaticImageAllocator::FindAlignment() const {
  if (m_Planes.empty()) {
    return std::nullopt;
  }
  for (uint64_t alignment = 1; alignment <= MaximumAlignment; alignment *= 2) {
    if (FitsAlignment(alignment)) {
      return alignment;
    }
  }
  // Buffers with odd strides may still all agree on plane 0's stride.
  if (m_Planes[0].rowStride != 0 && FitsAlignment(m_Planes[0].rowStride)) {
    return m_Planes[0].rowStride;
  }
  return std::nullopt;
}

void CmStaticImageAllocator::Allocate(uint64_t width, uint64_t height, ColorFormat colorFormat,
                                      uint64_t alignment) {
  VZK_REQUIRE_AS(CmStaticImageAllocationError, colorFormat == m_ColorFormat,
                 "Color format cannot be changed during allocation", Own::RequestNotSatisfiable,
                 CmIntegrityErrorCode::InvalidArgument);
  switch (colorFormat) {
  case Gray:
  case RGB24:
  case BGR24:
  case RGB32:
  case BGR32:
  case RGBA:
  case BGRA:
    VZK_REQUIRE_AS(CmStaticImageAllocationError,
                   m_Planes[0].width == width && m_Planes[0].height == height,
                   "Image size cannot be changed during allocation", Own::RequestNotSatisfiable,
                   CmIntegrityErrorCode::InvalidArgument);
    break;
  case YCbCr420_Planar:
  case YCbCr422_Planar:
  case YCbCr444_Planar:
    for (uint64_t i = 0; i < m_Planes.size(); ++i) {
      const SmPlaneSize size = GetPlaneSize(colorFormat, i, width, height);
      VZK_REQUIRE_AS(CmStaticImageAllocationError,
                     m_Planes[i].width == size.width && m_Planes[i].height == size.height,
                     "Plane size cannot be changed during allocation", Own::RequestNotSatisfiable,
                     CmIntegrityErrorCode::InvalidArgument);
    }
    break;
  default:
    throw CmStaticImageAllocationError(VZK_LOCATION, "Unsupported color format",
                                       Own::RequestNotSatisfiable,
                                       CmIntegrityErrorCode::InvalidArgument);
  }
  if (alignment != 0) {
    VZK_REQUIRE_AS(CmStaticImageAllocationError, FitsAlignment(alignment),
                   "Alignment doesn't match the static buffer row stride",
                   Own::RequestNotSatisfiable, CmIntegrityErrorCode::InvalidArgument);
    m_Alignment = alignment;
  } else {
    m_Alignment = FindAlignment().value_or(0);
  }
  m_Allocated = true;
}

uint64_t CmStaticImageAllocator::GetAlignment() const {
  VZK_REQUIRE_AS(CmStaticImageAllocationError, m_Allocated,
                 "No alignment is available, since no allocation has been made",
                 Own::RequestNotSatisfiable, CmIntegrityErrorCode::InvalidPointer);
  if (m_Alignment != 0) {
    return m_Alignment;
  }
  const std::optional<uint64_t> found = FindAlignment();
  VZK_REQUIRE_AS(CmStaticImageAllocationError, found,
                 "No alignment can be found that matches all the given row strides",
                 Own::RequestNotSatisfiable, CmIntegrityErrorCode::InvalidArgument);
  return *found;
}

uint64_t CmStaticImageAllocator::GetDefaultAlignment() const {
  const std::optional<uint64_t> found = FindAlignment();
  VZK_REQUIRE_AS(CmStaticImageAllocationError, found,
                 "No alignment can be found that matches all the given row strides",
                 Own::RequestNotSatisfiable, CmIntegrityErrorCode::InvalidArgument);
  return *found;
}

ImImageMemoryAllocation::CmPlane CmStaticImageAllocator::GetPlane(uint64_t index) const {
  VZK_REQUIRE_AS(CmStaticImageAllocationError, index < m_Planes.size(), "Plane index out of range",
                 Own::General, CmIntegrityErrorCode::InvalidArgument);
  return CmPlane(m_Planes[index]);
}

ImImageMemoryAllocation::CmWriteablePlane
CmStaticImageAllocator::GetWriteablePlane(uint64_t index) {
  VZK_REQUIRE_AS(CmStaticImageAllocationError, index < m_Planes.size(), "Plane index out of range",
                 Own::General, CmIntegrityErrorCode::InvalidArgument);
  return m_Planes[index];
}

void CmStaticImageAllocator::CopyFrom(const ImImageMemoryAllocation& other) {
  if (&other == this) {
    return;
  }
  const CmPlane first = other.GetPlane(0);
  // The buffers cannot move, so the other's geometry has to be ours already.
  Allocate(first.width, first.height, other.GetColorFormat(), m_Alignment);
  for (uint64_t i = 0; i < m_Planes.size(); ++i) {
    CmImageBufferHelpers::CopyPlaneContents(other.GetPlane(i), m_Planes[i]);
  }
}

void CmStaticImageAllocator::Swap(ImImageMemoryAllocation& other) {
  if (&other == this) {
    return;
  }
  {
    CmReferenceCountingImageAllocator temporary;
    temporary.CopyFrom(*this);
    CopyFrom(other);
    other.CopyFrom(temporary);
  }
  for (uint64_t i = 0; i < other.GetPlaneCount(); ++i) {
    if (other.IsSharedPlane(i)) {
      other.Clear();
      break;
    }
  }
}

void CmStaticImageAllocator::ReinterpretFormat(ColorFormat target) {
  if (target == m_ColorFormat) {
    return;
  }
  VZK_REQUIRE_AS(CmStaticImageAllocationError, IsKnownColorFormat(target), "Unknown color format",
                 Own::General, CmIntegrityErrorCode::InvalidArgument);
  const auto isThirtyTwoBit = [](ColorFormat f) {
    return f == RGB32 || f == BGR32 || f == RGBA || f == BGRA;
  };
  if ((target == RGB24 && m_ColorFormat == BGR24) || (target == BGR24 && m_ColorFormat == RGB24)) {
    m_ColorFormat = target;
    return;
  }
  if (isThirtyTwoBit(target) && isThirtyTwoBit(m_ColorFormat)) {
    m_Planes[0].bytesPerPixel = GetBytesPerPixel(target);
    m_ColorFormat = target;
    return;
  }
  // A static buffer can neither lose planes nor gain them.
  throw CmStaticImageAllocationError(VZK_LOCATION, "Invalid color format conversion", Own::General,
                                     CmIntegrityErrorCode::InvalidArgument);
}

void CmStaticImageAllocator::Crop(uint64_t x, uint64_t y, uint64_t width, uint64_t height) {
  CropPlanes(m_Planes, m_ColorFormat, x, y, width, height);
}

} // namespace NmMediaProcessing
