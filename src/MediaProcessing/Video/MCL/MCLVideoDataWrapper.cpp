#include "MediaProcessing/Video/MCL/MCLVideoDataWrapper.h"

#include <cmath>
#include <limits>

#include "MediaProcessing/Video/MCL/MCLError.h"

namespace NmMediaProcessing {

namespace {

using NmError::CmIntegrityError;
using NmError::CmIntegrityErrorCode;

// The codecs keep the pixel aspect as a fraction; this denominator keeps five
// decimal places of the ratio.
constexpr double AspectUnit = 50000.0;

int32_t ToAspectTerm(double value) {
  const double rounded = std::round(value);
  if (!(rounded >= 1.0) || rounded > static_cast<double>(std::numeric_limits<int32_t>::max())) {
    ThrowStatus(MCL::StatusInvalidStream);
  }
  return static_cast<int32_t>(rounded);
}

} // namespace

CmMCLVideoDataWrapper::CmMCLVideoDataWrapper(CmImage& image) : m_Image(image) {
  SetAlignment(image.GetAlignment());
  if (image.IsValid()) {
    SetImage(image);
    SetAttributes(image.GetAttributes());
    BindPlanes();
  }
}

MCL::ColorFormat CmMCLVideoDataWrapper::ToMCLFormat(ColorFormat format) {
  switch (format) {
  case Gray:
    return MCL::GRAY;
  case BGR24:
    return MCL::BGR24;
  case BGR32:
  case BGRA:
    return MCL::BGR32;
  case YCbCr420_Planar:
    return MCL::YUV420;
  case YCbCr422_Planar:
    return MCL::YUV422;
  case YCbCr444_Planar:
    return MCL::YUV444;
  default:
    throw CmIntegrityError(VZK_LOCATION, "Image format not supported for MCL operations",
                           CmIntegrityErrorCode::InvalidArgument);
  }
}

ColorFormat CmMCLVideoDataWrapper::FromMCLFormat(MCL::ColorFormat format) {
  switch (format) {
  case MCL::GRAY:
    return Gray;
  case MCL::BGR24:
    return BGR24;
  case MCL::BGR32:
    return BGR32;
  case MCL::YUV420:
    return YCbCr420_Planar;
  case MCL::YUV422:
    return YCbCr422_Planar;
  case MCL::YUV444:
    return YCbCr444_Planar;
  default:
    throw CmIntegrityError(VZK_LOCATION, "Image format not supported for MCL operations",
                           CmIntegrityErrorCode::InvalidArgument);
  }
}

MCL::PictureStructure CmMCLVideoDataWrapper::ToPictureStructure(Interlacing interlacing) {
  switch (interlacing) {
  case Progressive:
    return MCL::Frame;
  case InterleavedTopFirst:
    return MCL::FrameTopFieldFirst;
  case InterleavedBottomFirst:
    return MCL::FrameBottomFieldFirst;
  case TopFieldOnly:
    return MCL::TopField;
  case BottomFieldOnly:
    return MCL::BottomField;
  default:
    throw CmIntegrityError(VZK_LOCATION, "Interlacing format not supported for MCL operations",
                           CmIntegrityErrorCode::InvalidPointer);
  }
}

Interlacing CmMCLVideoDataWrapper::FromPictureStructure(MCL::PictureStructure structure) {
  switch (structure) {
  case MCL::Frame:
    return Progressive;
  case MCL::FrameTopFieldFirst:
    return InterleavedTopFirst;
  case MCL::FrameBottomFieldFirst:
    return InterleavedBottomFirst;
  case MCL::TopField:
    return TopFieldOnly;
  case MCL::BottomField:
    return BottomFieldOnly;
  default:
    throw CmIntegrityError(VZK_LOCATION, "Interlacing format not supported for MCL operations",
                           CmIntegrityErrorCode::InvalidPointer);
  }
}

void CmMCLVideoDataWrapper::CheckDimensions(ColorFormat format, uint64_t width, uint64_t height) {
  const bool oddWidth = (width & 1) != 0;
  const bool oddHeight = (height & 1) != 0;
  if ((format == YCbCr420_Planar && (oddWidth || oddHeight)) ||
      (format == YCbCr422_Planar && oddWidth)) {
    throw CmIntegrityError(
        VZK_LOCATION,
        "The combination of image format and dimensions is not supported for MCL operations",
        CmIntegrityErrorCode::OutOfRange);
  }
}

void CmMCLVideoDataWrapper::SetImage(const CmImage& image) {
  const ColorFormat format = image.GetColorFormat();
  const MCL::ColorFormat mclFormat = ToMCLFormat(format);
  CheckDimensions(format, image.GetWidth(), image.GetHeight());
  ThrowStatus(Init(static_cast<int32_t>(image.GetWidth()), static_cast<int32_t>(image.GetHeight()),
                   mclFormat));
  SetAlignment(image.GetAlignment());
}

void CmMCLVideoDataWrapper::SetAttributes(const CmStandardImageAttributes& attributes) {
  SetPictureStructure(ToPictureStructure(attributes.interlacing));

  const double aspect = attributes.aspectRatio;
  if (aspect > 1.0) {
    SetAspectRatio(ToAspectTerm(aspect * AspectUnit), static_cast<int32_t>(AspectUnit));
  } else {
    // Zero and negative ratios end below 1 here, or as no number at all.
    SetAspectRatio(static_cast<int32_t>(AspectUnit),
                   ToAspectTerm(aspect > 0.0 ? AspectUnit / aspect : -1.0));
  }

  const int64_t milliseconds = attributes.timeStamp.GetMilliseconds();
  if (milliseconds < 0) {
    throw CmIntegrityError(VZK_LOCATION, "Timestamp epoch not supported for MCL operations",
                           CmIntegrityErrorCode::InvalidPointer);
  }
  SetTime(static_cast<double>(milliseconds) / 1000.0);
}

void CmMCLVideoDataWrapper::UpdateAttributes(CmStandardImageAttributes& attributes) const {
  attributes.interlacing = FromPictureStructure(GetPictureStructure());
  if (GetAspectHorizontal() < 1 || GetAspectVertical() < 1) {
    ThrowStatus(MCL::StatusInvalidStream);
  }
  attributes.aspectRatio =
      static_cast<double>(GetAspectHorizontal()) / static_cast<double>(GetAspectVertical());
  if (GetTime() < 0.0) {
    throw CmIntegrityError(VZK_LOCATION, "Timestamp epoch not supported for MCL operations",
                           CmIntegrityErrorCode::InvalidPointer);
  }
  attributes.timeStamp = NmTimeStamp::CmTimeStamp::FromMilliseconds(
      static_cast<int64_t>(std::llround(GetTime() * 1000.0)));
}

void CmMCLVideoDataWrapper::BindPlanes() {
  const int count = GetPlaneCount();
  for (int i = 0; i < count; ++i) {
    const ImImageMemoryAllocation::CmWriteablePlane plane =
        m_Image.Allocator().GetWriteablePlane(static_cast<uint64_t>(i));
    ThrowStatus(SetPlanePointer(i, plane.data));
    ThrowStatus(SetPlanePitch(i, plane.rowStride));
  }
}

} // namespace NmMediaProcessing
