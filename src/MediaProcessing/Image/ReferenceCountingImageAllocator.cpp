#include "MediaProcessing/Image/ReferenceCountingImageAllocator.h"

#include <cstdlib>
#include <cstring>
#include <new>
#include <utility>

#include "Common/Error/Error.h"
#include "Common/Error/Precondition.h"
#include "MediaProcessing/Image/ImageBufferHelpers.h"

namespace NmMediaProcessing {

using NmError::CmIntegrityError;
using NmError::CmIntegrityErrorCode;

namespace {
constexpr uint64_t MaximumDimension = 32767;
constexpr uint64_t MaximumAlignment = 0x10000;
constexpr uint64_t MaximumReservation = 0x7FFFFFFF;
} // namespace

// One block of pixel memory shared by every plane that sees the same bytes.
struct CmReferenceCountingImageAllocator::CmPlaneMemory {
  CmPlaneMemory(uint64_t requestedSize, uint64_t requestedAlignment)
      : size(requestedSize), alignment(requestedAlignment == 0 ? 32 : requestedAlignment) {
    const uint64_t reserved = size + alignment;
    if (reserved >= MaximumReservation) {
      throw std::bad_alloc();
    }
    rawMemory = std::malloc(reserved);
    if (rawMemory == nullptr) {
      throw std::bad_alloc();
    }
    const uintptr_t address = reinterpret_cast<uintptr_t>(rawMemory);
    alignedMemory = static_cast<uint8_t*>(rawMemory) + (RoundUp(address, alignment) - address);
  }
  ~CmPlaneMemory() { std::free(rawMemory); }
  CmPlaneMemory(const CmPlaneMemory&) = delete;
  CmPlaneMemory& operator=(const CmPlaneMemory&) = delete;

  void* rawMemory = nullptr;
  uint8_t* alignedMemory = nullptr;
  uint64_t size;
  uint64_t alignment;
};

CmReferenceCountingImageAllocator::CmAllocatedPlane::CmAllocatedPlane(uint64_t planeWidth,
                                                                      uint64_t planeHeight,
                                                                      uint64_t planeBytesPerPixel,
                                                                      uint64_t planePixelStride,
                                                                      uint64_t alignment) {
  const uint64_t stride = RoundUp(planeWidth * planePixelStride, alignment);
  m_Memory = CmMemoryShare(new CmPlaneMemory(stride * planeHeight, alignment));
  width = planeWidth;
  height = planeHeight;
  bytesPerPixel = planeBytesPerPixel;
  pixelStride = planePixelStride;
  rowStride = stride;
  data = m_Memory->alignedMemory;
}

CmReferenceCountingImageAllocator::CmAllocatedPlane::CmAllocatedPlane(
    const CmAllocatedPlane& other) = default;

CmReferenceCountingImageAllocator::CmAllocatedPlane::CmAllocatedPlane(
    CmAllocatedPlane&& other) noexcept = default;

CmReferenceCountingImageAllocator::CmAllocatedPlane&
CmReferenceCountingImageAllocator::CmAllocatedPlane::operator=(CmAllocatedPlane other) noexcept {
  std::swap(static_cast<CmWriteablePlane&>(*this), static_cast<CmWriteablePlane&>(other));
  m_Memory.Swap(other.m_Memory);
  return *this;
}

// Out of line, where the block is a complete type that can be deleted.
CmReferenceCountingImageAllocator::CmAllocatedPlane::~CmAllocatedPlane() = default;

void CmReferenceCountingImageAllocator::CmAllocatedPlane::MakeUnique() {
  if (m_Memory.UseCount() <= 1) {
    return;
  }
  CmMemoryShare copy(new CmPlaneMemory(m_Memory->size, m_Memory->alignment));
  // One block copy, stride gaps included: cheaper than row by row.
  std::memcpy(copy->alignedMemory, m_Memory->alignedMemory, m_Memory->size);
  data = copy->alignedMemory + (data - m_Memory->alignedMemory);
  m_Memory = std::move(copy);
}

bool CmReferenceCountingImageAllocator::CmAllocatedPlane::IsShared() const {
  return m_Memory.UseCount() > 1;
}

uint64_t CmReferenceCountingImageAllocator::CmAllocatedPlane::GetAlignment() const {
  return m_Memory->alignment;
}

void CmReferenceCountingImageAllocator::CmAllocatedPlane::Reinterpret(uint64_t newWidth,
                                                                      uint64_t newHeight,
                                                                      uint64_t newBytesPerPixel,
                                                                      uint64_t newPixelStride) {
  VZK_REQUIRE(static_cast<bool>(m_Memory), "No image is allocated", CmIntegrityErrorCode::InvalidPointer);
  VZK_REQUIRE(newHeight <= height && newWidth * newPixelStride <= rowStride,
              "Previous plane is too small for new interpretation",
              CmIntegrityErrorCode::InvalidArgument);
  width = newWidth;
  height = newHeight;
  bytesPerPixel = newBytesPerPixel;
  pixelStride = newPixelStride;
}

CmReferenceCountingImageAllocator::CmReferenceCountingImageAllocator() = default;
CmReferenceCountingImageAllocator::CmReferenceCountingImageAllocator(
    const CmReferenceCountingImageAllocator& other) = default;
CmReferenceCountingImageAllocator& CmReferenceCountingImageAllocator::operator=(
    const CmReferenceCountingImageAllocator& other) = default;
CmReferenceCountingImageAllocator::~CmReferenceCountingImageAllocator() = default;

void CmReferenceCountingImageAllocator::Allocate(uint64_t width, uint64_t height,
                                                 ColorFormat colorFormat, uint64_t alignment) {
  VZK_REQUIRE(width >= 1 && width <= MaximumDimension, "Image width is out of range",
              CmIntegrityErrorCode::InvalidArgument);
  VZK_REQUIRE(height >= 1 && height <= MaximumDimension, "Image height is out of range",
              CmIntegrityErrorCode::InvalidArgument);
  if (alignment == 0) {
    alignment = GetDefaultAlignment();
  }
  VZK_REQUIRE(alignment <= MaximumAlignment, "Image alignment is out of range",
              CmIntegrityErrorCode::InvalidArgument);
  VZK_REQUIRE(IsKnownColorFormat(colorFormat), "Unsupported color format",
              CmIntegrityErrorCode::InvalidArgument);
  const uint64_t count = NmMediaProcessing::GetPlaneCount(colorFormat);
  const uint64_t bytesPerPixel = GetBytesPerPixel(colorFormat);
  const uint64_t pixelStride = GetPixelStride(colorFormat);

  // A decoder allocates the same geometry frame after frame: keep what exists.
  bool reusable = m_Planes.size() == count && MatchesAlignment(*this, alignment);
  for (uint64_t i = 0; reusable && i < count; ++i) {
    const SmPlaneSize size = GetPlaneSize(colorFormat, i, width, height);
    const CmAllocatedPlane& plane = m_Planes[i];
    reusable = plane.width == size.width && plane.height == size.height &&
               plane.bytesPerPixel == bytesPerPixel && plane.pixelStride == pixelStride;
  }
  if (!reusable) {
    std::vector<CmAllocatedPlane> planes;
    planes.reserve(count);
    for (uint64_t i = 0; i < count; ++i) {
      const SmPlaneSize size = GetPlaneSize(colorFormat, i, width, height);
      planes.emplace_back(size.width, size.height, bytesPerPixel, pixelStride, alignment);
    }
    m_Planes.swap(planes);
  }
  m_ColorFormat = colorFormat;
}

void CmReferenceCountingImageAllocator::Clear() {
  m_Planes.clear();
  m_ColorFormat = ColorFormatNone;
}

void CmReferenceCountingImageAllocator::CopyFrom(const ImImageMemoryAllocation& other) {
  if (&other == this) {
    return;
  }
  if (const auto* same = dynamic_cast<const CmReferenceCountingImageAllocator*>(&other)) {
    std::vector<CmAllocatedPlane> planes = same->m_Planes;
    m_Planes.swap(planes);
    m_ColorFormat = same->m_ColorFormat;
    return;
  }
  if (other.GetPlaneCount() == 0) {
    Clear();
    return;
  }
  // Nobody can say how long foreign memory lives, so its pixels are copied.
  const CmPlane first = other.GetPlane(0);
  CmReferenceCountingImageAllocator copy;
  copy.Allocate(first.width, first.height, other.GetColorFormat());
  CmImageBufferHelpers::CopyAllocatorContents(other, copy);
  m_Planes.swap(copy.m_Planes);
  m_ColorFormat = copy.m_ColorFormat;
}

void CmReferenceCountingImageAllocator::Swap(ImImageMemoryAllocation& other) {
  if (&other == this) {
    return;
  }
  if (auto* same = dynamic_cast<CmReferenceCountingImageAllocator*>(&other)) {
    m_Planes.swap(same->m_Planes);
    std::swap(m_ColorFormat, same->m_ColorFormat);
    return;
  }
  CmReferenceCountingImageAllocator temporary;
  temporary.CopyFrom(other);
  other.CopyFrom(*this);
  Swap(temporary);
}

void CmReferenceCountingImageAllocator::CheckAllocated() const {
  VZK_REQUIRE(!m_Planes.empty(), "No image is allocated", CmIntegrityErrorCode::InvalidPointer);
}

void CmReferenceCountingImageAllocator::CheckIndex(uint64_t index) const {
  CheckAllocated();
  VZK_REQUIRE(index < m_Planes.size(), "Plane index out of range",
              CmIntegrityErrorCode::InvalidArgument);
}

ColorFormat CmReferenceCountingImageAllocator::GetColorFormat() const {
  CheckAllocated();
  return m_ColorFormat;
}

uint64_t CmReferenceCountingImageAllocator::GetAlignment() const {
  CheckAllocated();
  return m_Planes[0].GetAlignment();
}

ImImageMemoryAllocation::CmPlane CmReferenceCountingImageAllocator::GetPlane(uint64_t index) const {
  CheckIndex(index);
  return CmPlane(m_Planes[index]);
}

ImImageMemoryAllocation::CmWriteablePlane
CmReferenceCountingImageAllocator::GetWriteablePlane(uint64_t index) {
  CheckIndex(index);
  m_Planes[index].MakeUnique();
  return m_Planes[index];
}

bool CmReferenceCountingImageAllocator::IsSharedPlane(uint64_t index) const {
  CheckIndex(index);
  return m_Planes[index].IsShared();
}

void CmReferenceCountingImageAllocator::ReinterpretFormat(ColorFormat target) {
  CheckAllocated();
  if (target == m_ColorFormat) {
    return;
  }
  VZK_REQUIRE(IsKnownColorFormat(target), "Unknown color format",
              CmIntegrityErrorCode::InvalidArgument);
  const ColorFormat source = m_ColorFormat;
  const auto isThirtyTwoBit = [](ColorFormat f) {
    return f == RGB32 || f == BGR32 || f == RGBA || f == BGRA;
  };
  switch (target) {
  case Gray:
    if (IsMultiPlaneFormat(source)) {
      m_Planes.resize(1, m_Planes[0]);
      m_ColorFormat = target;
      return;
    }
    break;
  case RGB24:
  case BGR24:
    if (source == RGB24 || source == BGR24) {
      m_ColorFormat = target;
      return;
    }
    break;
  case RGB32:
  case BGR32:
  case RGBA:
  case BGRA:
    if (isThirtyTwoBit(source)) {
      CmAllocatedPlane& plane = m_Planes[0];
      plane.Reinterpret(plane.width, plane.height, GetBytesPerPixel(target), plane.pixelStride);
      m_ColorFormat = target;
      return;
    }
    break;
  case YCbCr420_Planar:
  case YCbCr422_Planar:
  case YCbCr444_Planar:
    if (source == Gray) {
      const CmAllocatedPlane& luma = m_Planes[0];
      const SmPlaneSize size = GetPlaneSize(target, 1, luma.width, luma.height);
      // The chroma bytes are left undefined: the caller fills them.
      std::vector<CmAllocatedPlane> planes = m_Planes;
      planes.emplace_back(size.width, size.height, 1, 1, luma.GetAlignment());
      planes.emplace_back(size.width, size.height, 1, 1, luma.GetAlignment());
      m_Planes.swap(planes);
      m_ColorFormat = target;
      return;
    }
    break;
  default:
    break;
  }
  throw CmIntegrityError(VZK_LOCATION, "Invalid color format conversion",
                         CmIntegrityErrorCode::InvalidArgument);
}

void CmReferenceCountingImageAllocator::Crop(uint64_t x, uint64_t y, uint64_t width,
                                             uint64_t height) {
  CheckAllocated();
  CropPlanes(m_Planes, m_ColorFormat, x, y, width, height);
}

} // namespace NmMediaProcessing
