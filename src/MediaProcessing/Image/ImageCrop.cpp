#include "MediaProcessing/Image/ImageCrop.h"

#include "Common/Error/Error.h"
#include "Common/Error/Precondition.h"
#include "MediaProcessing/Image/ImageColorFormatConvert.h"
#include "MediaProcessing/Image/ReferenceCountingImageAllocator.h"
#include "MediaProcessing/Image/StaticImageAllocator.h"

namespace NmMediaProcessing {

using NmError::CmIntegrityError;
using NmError::CmIntegrityErrorCode;

namespace {
constexpr uint64_t MaximumDimension = 32767;
} // namespace

CmImageCrop::CmImageCrop(uint64_t x, uint64_t y, uint64_t width, uint64_t height)
    : m_X(x), m_Y(y), m_Width(width), m_Height(height) {
  VZK_REQUIRE(width != 0 && width <= MaximumDimension, "Cropping area width out of range",
              CmIntegrityErrorCode::InvalidArgument);
  VZK_REQUIRE(height != 0 && height <= MaximumDimension, "Cropping area height out of range",
              CmIntegrityErrorCode::InvalidArgument);
}

void CmImageCrop::Execute(const CmImage& source, CmImage& destination) {
  if (&source == &destination) {
    Execute(destination);
    return;
  }
  if (m_X == 0 && m_Y == 0 && m_Width == source.GetWidth() && m_Height == source.GetHeight()) {
    destination = source;
    return;
  }
  const ColorFormat format = source.GetColorFormat();
  if ((format == YCbCr422_Planar && m_X % 2 == 1) ||
      (format == YCbCr420_Planar && (m_X % 2 == 1 || m_Y % 2 == 1))) {
    // Subsampled chroma cannot start between two of its samples.
    CmImageColorFormatConvert(YCbCr444_Planar).Execute(source, destination);
    Execute(destination);
    return;
  }
  auto cropped = std::make_unique<CmReferenceCountingImageAllocator>();
  if (dynamic_cast<const CmReferenceCountingImageAllocator*>(&source.Allocator()) != nullptr) {
    cropped->CopyFrom(source.Allocator());
    cropped->Crop(m_X, m_Y, m_Width, m_Height);
  } else {
    // Foreign memory is viewed through a static wrapper, cropped there and
    // then copied, since nobody can say how long it lives.
    CmStaticImageAllocator wrapper(const_cast<ImImageMemoryAllocation&>(source.Allocator()));
    const ImImageMemoryAllocation::CmPlane first = wrapper.GetPlane(0);
    wrapper.Allocate(first.width, first.height, wrapper.GetColorFormat());
    wrapper.Crop(m_X, m_Y, m_Width, m_Height);
    cropped->CopyFrom(wrapper);
  }
  destination.SetAllocator(std::move(cropped));
  destination.CopyAttributes(source);
}

} // namespace NmMediaProcessing
