#include "MediaProcessing/Image/ImageResize.h"

#include <algorithm>

#include "Common/Error/Error.h"
#include "Common/Error/Precondition.h"
#include "MediaProcessing/Image/ImageBufferHelpers.h"
#include "MediaProcessing/Image/ImageColorFormatConvert.h"

namespace NmMediaProcessing {

using NmError::CmIntegrityError;
using NmError::CmIntegrityErrorCode;
namespace Helpers = CmImageBufferHelpers;

namespace {
constexpr uint64_t MaximumDimension = 32767;
} // namespace

CmImageResize::CmImageResize(uint64_t width, uint64_t height, bool keepAspectRatioAttribute)
    : m_Width(width), m_Height(height), m_KeepAspectRatioAttribute(keepAspectRatioAttribute) {
  VZK_REQUIRE(width >= 1 && width <= MaximumDimension, "Resized width out of range",
              CmIntegrityErrorCode::InvalidArgument);
  VZK_REQUIRE(height >= 1 && height <= MaximumDimension, "Resized height out of range",
              CmIntegrityErrorCode::InvalidArgument);
}

void CmImageResize::Execute(CmImage& image) {
  if (image.IsValid() && image.GetWidth() == m_Width && image.GetHeight() == m_Height) {
    return;
  }
  CmBaseImageTransformation::Execute(image);
}

void CmImageResize::Execute(const CmImage& source, CmImage& destination) {
  VZK_REQUIRE(source.IsValid() && source.GetWidth() != 0 && source.GetHeight() != 0,
              "Cannot resize invalid image with width and/or height of 0",
              CmIntegrityErrorCode::InvalidPointer);
  const Interlacing interlacing = source.GetAttributes().interlacing;
  // Scaling rows would blend the two fields, which were taken at different times.
  VZK_REQUIRE(source.GetHeight() == m_Height ||
                  (interlacing != InterleavedTopFirst && interlacing != InterleavedBottomFirst),
              "Cannot resize interleaved images vertically", CmIntegrityErrorCode::InvalidPointer);
  if (&source == &destination) {
    Execute(destination);
    return;
  }
  if (source.GetWidth() == m_Width && source.GetHeight() == m_Height) {
    destination = source;
    return;
  }
  const ColorFormat format = source.GetColorFormat();
  const uint32_t options = GetOptions();
  const bool highQuality = (options & OptionHighQuality) != 0;
  const bool oddWidth = source.GetWidth() % 2 == 1 || m_Width % 2 == 1;
  const bool oddHeight = source.GetHeight() % 2 == 1 || m_Height % 2 == 1;
  if (highQuality && ((format == YCbCr420_Planar && (oddWidth || oddHeight)) ||
                      (format == YCbCr422_Planar && oddWidth))) {
    // Subsampled chroma of an odd size does not sit exactly under its luma;
    // at full chroma resolution the result is exact, and stays in 4:4:4.
    CmImage full;
    CmImageColorFormatConvert(YCbCr444_Planar).Execute(source, full);
    Execute(full, destination);
    return;
  }

  Helpers::ResizeMode mode = Helpers::ResizeLinear;
  if ((options & OptionFast) != 0) {
    mode = Helpers::ResizeNearest;
  } else if (highQuality) {
    mode = source.GetWidth() > m_Width && source.GetHeight() > m_Height
               ? Helpers::ResizeSuperSampling
               : Helpers::ResizeLanczos;
  }
  const bool superSampling = mode == Helpers::ResizeSuperSampling;

  destination.Allocate(m_Width, m_Height, format);
  const ImImageMemoryAllocation& from = source.Allocator();
  ImImageMemoryAllocation& to = destination.Allocator();
  const uint64_t planeCount = from.GetPlaneCount();
  uint64_t bufferSize = 0;
  for (uint64_t p = 0; p < planeCount; ++p) {
    uint64_t size = 0;
    Helpers::GetResizeBufferSize(from.GetPlane(p), to.GetPlane(p), 1, mode, superSampling, size);
    bufferSize = std::max(bufferSize, size);
  }
  uint8_t* buffer = GetScratch(bufferSize);
  bool equalStrides = format == YCbCr444_Planar;
  for (uint64_t p = 1; equalStrides && p < planeCount; ++p) {
    equalStrides = from.GetPlane(p).rowStride == from.GetPlane(0).rowStride;
  }
  if (equalStrides) {
    Helpers::ResizeMultiplePlanes(from, to, mode, superSampling, buffer, bufferSize);
  } else {
    for (uint64_t p = 0; p < planeCount; ++p) {
      Helpers::Resize(from.GetPlane(p), to.GetWriteablePlane(p), mode, superSampling, buffer,
                      bufferSize);
    }
  }
  destination.CopyAttributes(source);
  const double widthRatio = static_cast<double>(m_Width) / static_cast<double>(source.GetWidth());
  const double heightRatio =
      static_cast<double>(m_Height) / static_cast<double>(source.GetHeight());
  if (!m_KeepAspectRatioAttribute && widthRatio > 1e-9) {
    destination.GetAttributes().aspectRatio *= heightRatio / widthRatio;
  }
}

} // namespace NmMediaProcessing
