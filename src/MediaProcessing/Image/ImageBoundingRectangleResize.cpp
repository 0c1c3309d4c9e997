#include "MediaProcessing/Image/ImageBoundingRectangleResize.h"

#include <algorithm>
#include <cmath>

#include "Common/Error/Error.h"
#include "Common/Error/Precondition.h"
#include "MediaProcessing/Image/ImageBufferHelpers.h"
#include "MediaProcessing/Image/ImageColorFormatConvert.h"
#include "MediaProcessing/Image/NormalizeImage.h"

namespace NmMediaProcessing {

using NmError::CmIntegrityError;
using NmError::CmIntegrityErrorCode;
namespace Helpers = CmImageBufferHelpers;

namespace {

constexpr uint64_t MaximumDimension = 32767;

// floor(v + 0.5) as a size; shapes so extreme that they leave any image size
// are held at a bound that the resize refuses with its own message.
int64_t RoundToSize(double v) {
  constexpr double Bound = 1e12;
  if (std::isnan(v) || v <= 0) {
    return 0;
  }
  return static_cast<int64_t>(std::floor(std::min(v, Bound) + 0.5));
}

} // namespace

CmImageBoundingRectangleResize::CmImageBoundingRectangleResize(uint64_t width, uint64_t height,
                                                               uint32_t mode,
                                                               double targetAspectRatio)
    : m_Width(width), m_Height(height), m_Mode(mode), m_TargetAspectRatio(targetAspectRatio) {
  VZK_REQUIRE(width <= MaximumDimension, "Bounding rectangle width out of range",
              CmIntegrityErrorCode::InvalidArgument);
  VZK_REQUIRE(height <= MaximumDimension, "Bounding rectangle height out of range",
              CmIntegrityErrorCode::InvalidArgument);
  VZK_REQUIRE(width != 0 || height != 0, "No bounding dimensions given",
              CmIntegrityErrorCode::InvalidArgument);
}

CmImageBoundingRectangleResize::CmImageBoundingRectangleResize(
    const CmImageBoundingRectangleResize& other)
    : CmBaseImageTransformation(other), m_Width(other.m_Width), m_Height(other.m_Height),
      m_Mode(other.m_Mode), m_TargetAspectRatio(other.m_TargetAspectRatio) {}

void CmImageBoundingRectangleResize::Execute(const CmImage& source, CmImage& destination) {
  VZK_REQUIRE(source.IsValid(), "No valid image data", CmIntegrityErrorCode::InvalidPointer);
  const double sourceWidth = static_cast<double>(source.GetWidth());
  const double sourceHeight = static_cast<double>(source.GetHeight());
  // The picture's shape on screen over the shape of a box of target pixels.
  const double a =
      sourceWidth * source.GetAttributes().aspectRatio / (sourceHeight * m_TargetAspectRatio);
  int64_t width = static_cast<int64_t>(m_Width);
  int64_t height = static_cast<int64_t>(m_Height);
  const int64_t widthFromHeight = RoundToSize(height * a);
  const int64_t heightFromWidth = RoundToSize(width / a);
  if (width == 0) {
    width = widthFromHeight;
  } else if (height == 0) {
    height = heightFromWidth;
  } else if (m_Mode == BoundingFit || m_Mode == BoundingFitWithoutEnlarging) {
    if (widthFromHeight > width) {
      height = heightFromWidth;
    } else {
      width = widthFromHeight;
    }
  } else if (widthFromHeight < width) {
    height = heightFromWidth;
  } else {
    width = widthFromHeight;
  }
  width = std::max<int64_t>(width, 1);
  height = std::max<int64_t>(height, 1);
  if (m_Mode == BoundingFitWithoutEnlarging &&
      (width > static_cast<int64_t>(source.GetWidth()) ||
       height > static_cast<int64_t>(source.GetHeight()))) {
    width = static_cast<int64_t>(source.GetWidth());
    height = static_cast<int64_t>(source.GetHeight());
    const int64_t w2 = RoundToSize(height * a);
    const int64_t h2 = RoundToSize(width / a);
    if (w2 <= width) {
      width = w2;
    } else {
      height = h2;
    }
    width = std::max<int64_t>(width, 1);
    height = std::max<int64_t>(height, 1);
  }
  if (!m_Resize || m_Resize->GetWidth() != static_cast<uint64_t>(width) ||
      m_Resize->GetHeight() != static_cast<uint64_t>(height)) {
    m_Resize.reset();
    m_Resize = std::make_unique<CmImageResize>(width, height, false);
  }
  m_Resize->SetOptions(GetOptions());
  m_Resize->Execute(source, destination);
}

CmImageFilledRectangleResize::CmImageFilledRectangleResize(uint64_t width, uint64_t height,
                                                           double targetAspectRatio,
                                                           bool allowEnlarge)
    : m_Width(width), m_Height(height), m_TargetAspectRatio(targetAspectRatio),
      m_Bounding(width == 0
                     ? throw CmIntegrityError(VZK_LOCATION, "Bounding rectangle width out of range",
                                              CmIntegrityErrorCode::InvalidArgument)
                     : width,
                 height == 0 ? throw CmIntegrityError(VZK_LOCATION,
                                                      "Bounding rectangle height out of range",
                                                      CmIntegrityErrorCode::InvalidArgument)
                             : height,
                 allowEnlarge ? BoundingFit : BoundingFitWithoutEnlarging, targetAspectRatio) {}

void CmImageFilledRectangleResize::Execute(const CmImage& source, CmImage& destination) {
  if (&source == &destination) {
    Execute(destination);
    return;
  }
  CmImage fitted;
  m_Bounding.SetOptions(GetOptions());
  m_Bounding.Execute(source, fitted);
  if (!fitted.IsValid() || (fitted.GetWidth() == m_Width && fitted.GetHeight() == m_Height)) {
    destination = fitted;
    destination.GetAttributes().aspectRatio = m_TargetAspectRatio;
    return;
  }
  // Progressive and upright, so that the picture can be placed by rows.
  CmNormalizeImage(false, Orientation()).Execute(fitted);
  ColorFormat format = fitted.GetColorFormat();
  if (format == YCbCr420_Planar || format == YCbCr422_Planar) {
    // Subsampled chroma could not start at an odd offset.
    CmImageColorFormatConvert(YCbCr444_Planar).Execute(fitted);
    format = YCbCr444_Planar;
  }

  // Black of the right range, one pixel of it stretched to the box.
  SubColorFormat sub = fitted.GetAttributes().subColorFormat;
  if (sub == NotApplicable) {
    sub = SubColorFormatPlainGray;
  }
  CmImage fill;
  fill.Allocate(1, 1, Gray);
  fill.GetAttributes().subColorFormat = sub;
  Helpers::SetPlane(sub == SubColorFormatVideoRange ? 16 : 0,
                    fill.Allocator().GetWriteablePlane(0));
  CmImageColorFormatConvert(format).Execute(fill);
  fill.CopyAttributes(fitted);
  CmImageResize(m_Width, m_Height, true).Execute(fill, destination);

  // Centred; a fitted picture that rounding made larger than the box loses
  // its edges evenly rather than spilling over.
  const uint64_t copyWidth = std::min(fitted.GetWidth(), m_Width);
  const uint64_t copyHeight = std::min(fitted.GetHeight(), m_Height);
  const auto offset = [](uint64_t outer, uint64_t inner) {
    return static_cast<int32_t>(outer > inner ? (outer - inner) / 2 : 0);
  };
  const Helpers::RegionOfInterest from{
      offset(fitted.GetWidth(), m_Width), offset(fitted.GetHeight(), m_Height),
      static_cast<int32_t>(copyWidth), static_cast<int32_t>(copyHeight)};
  const Helpers::RegionOfInterest to{
      offset(m_Width, fitted.GetWidth()), offset(m_Height, fitted.GetHeight()),
      static_cast<int32_t>(copyWidth), static_cast<int32_t>(copyHeight)};
  const ImImageMemoryAllocation& picture = fitted.Allocator();
  ImImageMemoryAllocation& box = destination.Allocator();
  for (uint64_t p = 0; p < picture.GetPlaneCount(); ++p) {
    Helpers::CopyPlaneContents(Helpers::GetCroppedPlane(picture.GetPlane(p), from),
                               Helpers::GetCroppedPlane(box.GetWriteablePlane(p), to));
  }
  destination.GetAttributes().aspectRatio = m_TargetAspectRatio;
}

} // namespace NmMediaProcessing
