#include "MediaProcessing/Image/BaseImage.h"

#include "Common/Error/Error.h"
#include "Common/Error/Precondition.h"
#include "MediaProcessing/Image/ReferenceCountingImageAllocator.h"

namespace NmMediaProcessing {

using NmError::CmIntegrityError;
using NmError::CmIntegrityErrorCode;

CmBaseImage::CmBaseImage() : m_Allocator(std::make_unique<CmReferenceCountingImageAllocator>()) {}

CmBaseImage::CmBaseImage(std::unique_ptr<ImImageMemoryAllocation> allocator)
    : m_Allocator(allocator ? std::move(allocator)
                            : std::make_unique<CmReferenceCountingImageAllocator>()) {
  if (m_Allocator->GetPlaneCount() > 0) {
    const ImImageMemoryAllocation::CmPlane plane = m_Allocator->GetPlane(0);
    m_Width = plane.width;
    m_Height = plane.height;
  }
}

CmBaseImage::CmBaseImage(const CmBaseImage& other)
    : m_Allocator(std::make_unique<CmReferenceCountingImageAllocator>()), m_Width(other.m_Width),
      m_Height(other.m_Height) {
  if (other.m_Allocator->GetPlaneCount() > 0) {
    m_Allocator->CopyFrom(*other.m_Allocator);
  }
}

CmBaseImage& CmBaseImage::operator=(const CmBaseImage& other) {
  if (this == &other) {
    return *this;
  }
  if (other.m_Allocator->GetPlaneCount() > 0) {
    m_Allocator->CopyFrom(*other.m_Allocator);
  } else {
    m_Allocator->Clear();
  }
  m_Width = other.m_Width;
  m_Height = other.m_Height;
  return *this;
}

CmBaseImage::~CmBaseImage() = default;

void CmBaseImage::Allocate(uint64_t width, uint64_t height, ColorFormat colorFormat) {
  Allocate(width, height, colorFormat, 0);
}

void CmBaseImage::Allocate(uint64_t width, uint64_t height, ColorFormat colorFormat,
                           uint64_t alignment) {
  m_Allocator->Allocate(width, height, colorFormat, alignment);
  // Reset with the allocator set aside keeps the planes it may have reused.
  std::unique_ptr<ImImageMemoryAllocation> kept = std::move(m_Allocator);
  Reset();
  m_Allocator = std::move(kept);
  m_Width = width;
  m_Height = height;
}

void CmBaseImage::SetAllocator(std::unique_ptr<ImImageMemoryAllocation> allocator) {
  if (!allocator) {
    allocator = std::make_unique<CmReferenceCountingImageAllocator>();
  }
  uint64_t width = 0;
  uint64_t height = 0;
  if (allocator->GetPlaneCount() > 0) {
    const ImImageMemoryAllocation::CmPlane plane = allocator->GetPlane(0);
    width = plane.width;
    height = plane.height;
  }
  Reset();
  m_Allocator = std::move(allocator);
  m_Width = width;
  m_Height = height;
}

std::unique_ptr<ImImageMemoryAllocation> CmBaseImage::ReleaseAllocator() {
  std::unique_ptr<ImImageMemoryAllocation> released = std::move(m_Allocator);
  m_Allocator = std::make_unique<CmReferenceCountingImageAllocator>();
  Reset();
  return released;
}

void CmBaseImage::ClearDimensionsAndPlanes() {
  m_Width = 0;
  m_Height = 0;
  if (m_Allocator) {
    m_Allocator->Clear();
  }
}

void CmBaseImage::Reset() {
  ClearDimensionsAndPlanes();
}

void CmBaseImage::ReleaseIfShared() {
  for (uint64_t i = 0; i < m_Allocator->GetPlaneCount(); ++i) {
    if (m_Allocator->IsSharedPlane(i)) {
      Reset();
      return;
    }
  }
}

bool CmBaseImage::IsValid() const {
  return m_Allocator->GetPlaneCount() > 0;
}

ColorFormat CmBaseImage::GetColorFormat() const {
  VZK_REQUIRE(IsValid(), "No valid image data", CmIntegrityErrorCode::InvalidPointer);
  return m_Allocator->GetColorFormat();
}

uint64_t CmBaseImage::GetAlignment() const {
  return IsValid() ? m_Allocator->GetAlignment() : m_Allocator->GetDefaultAlignment();
}

ImImageMemoryAllocation& CmBaseImage::Allocator() {
  VZK_REQUIRE(IsValid(), "No valid image data", CmIntegrityErrorCode::InvalidPointer);
  return *m_Allocator;
}

const ImImageMemoryAllocation& CmBaseImage::Allocator() const {
  VZK_REQUIRE(IsValid(), "No valid image data", CmIntegrityErrorCode::InvalidPointer);
  return *m_Allocator;
}

} // namespace NmMediaProcessing
