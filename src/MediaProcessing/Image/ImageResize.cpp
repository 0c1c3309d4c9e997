#include "MediaProcessing/Image/ImageResize.h"

#include <algorithm>

#include "Common/Error/Error.h"
#include "Common/Error/Precondition.h"
#include "MediaProcessing/Image/ImageBufferHelpers.h"
#include "MediaProcessing/Image/ImageColorFormatConvert.h"
#include "MediaProcessing/Image/ImageCrop.h"

namespace NmMediaProcessing {

using NmError::CmIntegrityError;
using NmError::CmIntegrityErrorCode;
namespace Helpers = CmImageBufferHelpers;

namespace {
constexpr uint64_t MaximumDimension = 32767;

// Source pixels by which a window of subsampled chroma is widened on each
// side before it is brought to full chroma resolution, so that the
// interpolation near its cut edges sees the neighbours that the whole had.
constexpr uint64_t ChromaWindowMargin = 8;

bool IsSubsampledAt(ColorFormat format, uint64_t x, uint64_t y) {
  return (format == YCbCr422_Planar && x % 2 == 1) ||
         (format == YCbCr420_Planar && (x % 2 == 1 || y % 2 == 1));
}
} // namespace

CmImageResize::CmImageResize(uint64_t width, uint64_t height, bool keepAspectRatioAttribute)
    : m_Width(width), m_Height(height), m_KeepAspectRatioAttribute(keepAspectRatioAttribute) {
  VZK_REQUIRE(width >= 1 && width <= MaximumDimension, "Resized width out of range",
              CmIntegrityErrorCode::InvalidArgument);
  VZK_REQUIRE(height >= 1 && height <= MaximumDimension, "Resized height out of range",
              CmIntegrityErrorCode::InvalidArgument);
}

void CmImageResize::SetOutputWindow(uint64_t x, uint64_t y, uint64_t width, uint64_t height) {
  VZK_REQUIRE(width != 0 && height != 0, "Clipping region is empty",
              CmIntegrityErrorCode::InvalidArgument);
  VZK_REQUIRE(x <= m_Width && width <= m_Width - x && y <= m_Height && height <= m_Height - y,
              "Clipping region is outside plane", CmIntegrityErrorCode::OutOfRange);
  m_Window = {x, y, width, height};
}

bool CmImageResize::HasWindow() const {
  return m_Window.width != 0 && (m_Window.x != 0 || m_Window.y != 0 || m_Window.width != m_Width ||
                                 m_Window.height != m_Height);
}

void CmImageResize::Execute(CmImage& image) {
  if (image.IsValid() && image.GetWidth() == m_Width && image.GetHeight() == m_Height &&
      !HasWindow()) {
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
    if (HasWindow()) {
      CmImageCrop(m_Window.x, m_Window.y, m_Window.width, m_Window.height)
          .Execute(source, destination);
    } else {
      destination = source;
    }
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
  if (HasWindow()) {
    if (IsSubsampledAt(format, m_Window.x, m_Window.y)) {
      ExecuteOddChromaWindow(source, destination);
    } else {
      ExecuteWindow(source, destination, mode, superSampling);
    }
    return;
  }

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
  CopyResizedAttributes(source, destination);
}

void CmImageResize::CopyResizedAttributes(const CmImage& source, CmImage& destination) const {
  destination.CopyAttributes(source);
  const double widthRatio = static_cast<double>(m_Width) / static_cast<double>(source.GetWidth());
  const double heightRatio =
      static_cast<double>(m_Height) / static_cast<double>(source.GetHeight());
  if (!m_KeepAspectRatioAttribute && widthRatio > 1e-9) {
    destination.GetAttributes().aspectRatio *= heightRatio / widthRatio;
  }
}

void CmImageResize::ExecuteWindow(const CmImage& source, CmImage& destination, int32_t mode,
                                  bool superSampling) {
  const ColorFormat format = source.GetColorFormat();
  destination.Allocate(m_Window.width, m_Window.height, format);
  const ImImageMemoryAllocation& from = source.Allocator();
  ImImageMemoryAllocation& to = destination.Allocator();
  const bool planar = IsMultiPlaneFormat(format);
  // Each plane's whole and window follow from the luma ones as a crop would
  // place them.
  const SmCropRectangle whole = GetChromaCropRectangle(format, 0, 0, m_Width, m_Height);
  const SmCropRectangle window =
      GetChromaCropRectangle(format, m_Window.x, m_Window.y, m_Window.width, m_Window.height);
  std::vector<Helpers::SmResizeTarget> targets;
  uint64_t bufferSize = 0;
  for (uint64_t p = 0; p < from.GetPlaneCount(); ++p) {
    const bool chroma = planar && p > 0;
    const Helpers::SmResizeTarget target =
        chroma ? Helpers::SmResizeTarget{whole.width, whole.height, window.x, window.y}
               : Helpers::SmResizeTarget{m_Width, m_Height, m_Window.x, m_Window.y};
    ImImageMemoryAllocation::CmPlane full = to.GetPlane(p);
    full.width = target.fullWidth;
    full.height = target.fullHeight;
    uint64_t size = 0;
    Helpers::GetResizeBufferSize(from.GetPlane(p), full, 1, static_cast<Helpers::ResizeMode>(mode),
                                 superSampling, size);
    bufferSize = std::max(bufferSize, size);
    targets.push_back(target);
  }
  uint8_t* buffer = GetScratch(bufferSize);
  for (uint64_t p = 0; p < from.GetPlaneCount(); ++p) {
    Helpers::ResizeWindow(from.GetPlane(p), to.GetWriteablePlane(p), targets[p],
                          static_cast<Helpers::ResizeMode>(mode), superSampling, buffer,
                          bufferSize);
  }
  CopyResizedAttributes(source, destination);
}

void CmImageResize::ExecuteOddChromaWindow(const CmImage& source, CmImage& destination) {
  // Cropping the whole at an odd place first brings it to full chroma
  // resolution. The same is done to a wider window that starts on a whole
  // chroma sample, and the margin is then cut away.
  // Rows start on a multiple of four, so that interlaced chroma keeps the
  // parity of its fields.
  const uint64_t x = (m_Window.x - std::min(m_Window.x, ChromaWindowMargin)) / 2 * 2;
  const uint64_t y = (m_Window.y - std::min(m_Window.y, ChromaWindowMargin)) / 4 * 4;
  const uint64_t right = std::min(m_Width, m_Window.x + m_Window.width + ChromaWindowMargin);
  const uint64_t bottom = std::min(m_Height, m_Window.y + m_Window.height + ChromaWindowMargin);
  CmImageResize wider(*this);
  wider.SetOutputWindow(x, y, right - x, bottom - y);
  CmImage part;
  wider.Execute(source, part);
  CmImageCrop(m_Window.x - x, m_Window.y - y, m_Window.width, m_Window.height)
      .Execute(part, destination);
}

} // namespace NmMediaProcessing
