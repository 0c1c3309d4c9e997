#include "MediaProcessing/Image/Image.h"

#include "Common/Error/Error.h"
#include "Common/Error/Precondition.h"
#include "MediaProcessing/Image/ImageBufferHelpers.h"
#include "MediaProcessing/Image/ImageColorFormatConvert.h"

namespace NmMediaProcessing {

using NmError::CmIntegrityError;
using NmError::CmIntegrityErrorCode;

CmImage::CmImage(std::unique_ptr<ImImageMemoryAllocation> allocator)
    : CmBaseImage(std::move(allocator)) {}

CmImage::CmImage(const CmImage& other) : CmBaseImage(other) {
  CopyAttributes(other);
}

CmImage& CmImage::operator=(const CmImage& other) {
  if (this != &other) {
    CmBaseImage::operator=(other);
    CopyAttributes(other);
  }
  return *this;
}

CmImage::~CmImage() = default;

void CmImage::Reset() {
  CmBaseImage::Reset();
  m_ExtendedAttributes.reset();
  m_Attributes = CmStandardImageAttributes();
}

void CmImage::SetExtendedAttributes(std::unique_ptr<ImImageAttributes> attributes) {
  m_ExtendedAttributes = std::move(attributes);
}

void CmImage::CopyAttributes(const CmImage& other) {
  if (this == &other) {
    return;
  }
  m_Attributes = other.m_Attributes;
  m_ExtendedAttributes.reset(other.m_ExtendedAttributes ? other.m_ExtendedAttributes->Clone()
                                                        : nullptr);
}

void CmImage::SplitFields(CmImage& firstField, CmImage& secondField) const {
  const Interlacing interlacing = m_Attributes.interlacing;
  bool topFirst = true;
  switch (interlacing) {
  case Progressive:
    throw CmIntegrityError(VZK_LOCATION, "Cannot split fields in an image that is not interlaced",
                           CmIntegrityErrorCode::InvalidArgument);
  case InterleavedTopFirst:
  case SeparateTopFirst:
    topFirst = true;
    break;
  case InterleavedBottomFirst:
  case SeparateBottomFirst:
    topFirst = false;
    break;
  case TopFieldOnly:
    throw CmIntegrityError(VZK_LOCATION, "Image doesn't contain a bottom field",
                           CmIntegrityErrorCode::InvalidArgument);
  case BottomFieldOnly:
    throw CmIntegrityError(VZK_LOCATION, "Image doesn't contain a top field",
                           CmIntegrityErrorCode::InvalidArgument);
  default:
    throw CmIntegrityError(VZK_LOCATION, "Unknown interlacing format",
                           CmIntegrityErrorCode::Unknown);
  }
  VZK_REQUIRE(GetHeight() >= 2, "An image of height 1 doesn't contain two fields",
              CmIntegrityErrorCode::InvalidPointer);
  // 4:2:0 chroma of a height that is not a multiple of 4 cannot be halved per
  // field; such an image is split from a 4:2:2 copy instead.
  if (GetColorFormat() == YCbCr420_Planar && GetHeight() % 4 != 0) {
    CmImage upsampled;
    CmImageColorFormatConvert(YCbCr422_Planar).Execute(*this, upsampled);
    upsampled.SplitFields(firstField, secondField);
    return;
  }

  const uint64_t height = GetHeight();
  CmImage top;
  CmImage bottom;
  top.Allocate(GetWidth(), (height + 1) / 2, GetColorFormat());
  bottom.Allocate(GetWidth(), height / 2, GetColorFormat());
  top.CopyAttributes(*this);
  bottom.CopyAttributes(*this);
  top.m_Attributes.interlacing = TopFieldOnly;
  bottom.m_Attributes.interlacing = BottomFieldOnly;

  const ImImageMemoryAllocation& source = Allocator();
  for (uint64_t i = 0; i < source.GetPlaneCount(); ++i) {
    const ImImageMemoryAllocation::CmPlane plane = source.GetPlane(i);
    CmImageBufferHelpers::CopyPlaneContents(
        CmImageBufferHelpers::GetFieldPlane(plane, interlacing, m_Attributes.orientation, 0),
        top.Allocator().GetWriteablePlane(i));
    CmImageBufferHelpers::CopyPlaneContents(
        CmImageBufferHelpers::GetFieldPlane(plane, interlacing, m_Attributes.orientation, 1),
        bottom.Allocator().GetWriteablePlane(i));
  }
  firstField = topFirst ? top : bottom;
  secondField = topFirst ? bottom : top;
}

} // namespace NmMediaProcessing
