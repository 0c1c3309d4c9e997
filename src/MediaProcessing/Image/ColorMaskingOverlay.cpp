#include "MediaProcessing/Image/ColorMaskingOverlay.h"

#include <algorithm>
#include <cmath>

#include "Codecs/Primitives/ColorConvert.h"
#include "Common/Error/Error.h"
#include "Common/Error/Precondition.h"
#include "MediaProcessing/Image/ImageBufferHelpers.h"
#include "MediaProcessing/Image/ImageResize.h"

namespace NmMediaProcessing {

using NmError::CmIntegrityError;
using NmError::CmIntegrityErrorCode;
namespace Helpers = CmImageBufferHelpers;

namespace {

CmOverlayParameters PixelExactParameters() {
  CmOverlayParameters parameters;
  parameters.flags = OverlayPixelExact;
  return parameters;
}

} // namespace

SmMaskColor ConvertMaskColor(uint8_t red, uint8_t green, uint8_t blue, ColorFormat format,
                             SubColorFormat subColorFormat) {
  SmMaskColor color;
  switch (format) {
  case RGB24:
  case RGB32:
  case RGBA:
    color.sample[0] = red;
    color.sample[1] = green;
    color.sample[2] = blue;
    return color;
  case BGR24:
  case BGR32:
  case BGRA:
    color.sample[0] = blue;
    color.sample[1] = green;
    color.sample[2] = red;
    return color;
  default:
    break;
  }
  // The project's own conversion, so that a mask colour and a converted
  // picture of that colour agree to the bit.
  const NmPrimitives::SmYCbCrMatrix matrix =
      subColorFormat == SubColorFormatVideoRange  ? NmPrimitives::YCbCrVideoRange
      : subColorFormat == SubColorFormatPlainGray ? NmPrimitives::YCbCrBt601Full
                                                  : NmPrimitives::YCbCrJfif;
  const uint8_t rgb[3] = {red, green, blue};
  NmPrimitives::SmYCbCrDestination destination{};
  destination.y = &color.sample[0];
  destination.yStride = 1;
  destination.cb = &color.sample[1];
  destination.cbStride = 1;
  destination.cr = &color.sample[2];
  destination.crStride = 1;
  NmPrimitives::RgbToYCbCr(rgb, 3, NmPrimitives::SmPackedLayout{3, false}, destination,
                           NmPrimitives::Chroma444, 1, 1, matrix);
  return color;
}

CmColorMaskingOverlay::CmColorMaskingOverlay(const ImMaskRepository& repository, uint8_t red,
                                             uint8_t green, uint8_t blue)
    : CmBaseOverlayTransformation(PixelExactParameters()), m_Repository(repository.Clone()),
      m_Red(red), m_Green(green), m_Blue(blue) {}

CmColorMaskingOverlay::CmColorMaskingOverlay(const CmColorMaskingOverlay& other)
    : CmBaseOverlayTransformation(PixelExactParameters()),
      m_Repository(other.m_Repository->Clone()), m_Red(other.m_Red), m_Green(other.m_Green),
      m_Blue(other.m_Blue) {}

bool CmColorMaskingOverlay::NeedsUpdate(const CmImage& image) {
  // With scaling on, a pixel-exact overlay must be the image's own size, which
  // is what a mask has to be.
  m_Parameters.flags |= OverlayScale;
  bool matching = false;
  try {
    matching = IsOverlayMatching(image, m_LumaMask, m_LumaMask);
  } catch (...) {
    m_Parameters.flags &= ~static_cast<uint32_t>(OverlayScale);
    throw;
  }
  m_Parameters.flags &= ~static_cast<uint32_t>(OverlayScale);
  return !matching || m_ColorFormatCurrent != image.GetColorFormat() ||
         m_LastSubColorFormat != image.GetAttributes().subColorFormat;
}

void CmColorMaskingOverlay::UpdateColor(const CmImage& image) {
  const SubColorFormat sub = image.GetAttributes().subColorFormat;
  m_ColorCurrent = ConvertMaskColor(m_Red, m_Green, m_Blue, image.GetColorFormat(), sub);
  m_ColorFormatCurrent = image.GetColorFormat();
  m_LastSubColorFormat = sub;
}

void CmColorMaskingOverlay::UpdateMasks(const CmImage& image) {
  const uint64_t width = image.GetWidth();
  const uint64_t height = image.GetHeight();
  CmImage luma;
  m_Definition->CreateMaskImage(width, height, luma);
  CmImage chroma;
  const ColorFormat format = image.GetColorFormat();
  if (format == YCbCr420_Planar || format == YCbCr422_Planar) {
    const SmPlaneSize chromaSize = GetPlaneSize(format, 1, width, height);
    m_Definition->CreateMaskImage(chromaSize.width, chromaSize.height, chroma);
    // A chroma sample colours every luma pixel that it covers. So a chroma
    // sample is hidden as soon as one of its luma pixels is, and the luma
    // mask then takes in the whole footprint of every hidden chroma sample:
    // no colour of a hidden pixel can bleed into a visible one through
    // shared chroma, and no mask colour shows on a visible pixel.
    const uint64_t rowFactor = format == YCbCr420_Planar ? 2 : 1;
    const ImImageMemoryAllocation::CmWriteablePlane m = luma.Allocator().GetWriteablePlane(0);
    const ImImageMemoryAllocation::CmWriteablePlane c = chroma.Allocator().GetWriteablePlane(0);
    for (uint64_t y = 0; y < c.height; ++y) {
      uint8_t* out = c.data + y * c.rowStride;
      for (uint64_t x = 0; x < c.width; ++x) {
        uint8_t any = out[x];
        for (uint64_t ly = y * rowFactor; ly < (y + 1) * rowFactor && ly < height; ++ly) {
          const uint8_t* in = m.data + ly * m.rowStride;
          for (uint64_t lx = 2 * x; lx < 2 * x + 2 && lx < width; ++lx) {
            any |= in[lx];
          }
        }
        out[x] = any != 0 ? 255 : 0;
      }
    }
    CmImage expanded;
    CmImageResize footprints(chromaSize.width * 2, chromaSize.height * rowFactor, true);
    footprints.SetOptions(OptionFast);
    footprints.Execute(chroma, expanded);
    ImImageMemoryAllocation::CmPlane footprint = expanded.Allocator().GetPlane(0);
    footprint.Crop(0, 0, width, height);
    Helpers::CopyPlaneContents(footprint, m);
  }
  // The masks are stored like the image, so that they lie on it unturned.
  luma.GetAttributes().orientation = image.GetAttributes().orientation;
  luma.GetAttributes().aspectRatio = image.GetAttributes().aspectRatio;
  PrepareOverlay(m_LumaMask, image, luma, 0);
  if (chroma.IsValid()) {
    chroma.GetAttributes().orientation = image.GetAttributes().orientation;
    chroma.GetAttributes().aspectRatio = image.GetAttributes().aspectRatio;
    PrepareOverlay(m_ChromaMask, image, chroma, 0);
  }
}

void CmColorMaskingOverlay::Execute(CmImage& image) {
  VZK_REQUIRE(image.IsValid(), "No valid source image data", CmIntegrityErrorCode::InvalidPointer);
  if (m_Repository->GetMaskAt(image.GetAttributes().timeStamp, false, m_Definition, m_ValidSpan)) {
    m_LumaMask.Reset();
    m_ChromaMask.Reset();
  }
  if (m_Definition == nullptr || m_Definition->IsEmpty()) {
    return;
  }
  if (NeedsUpdate(image)) {
    m_LumaMask.Reset();
    m_ChromaMask.Reset();
    UpdateMasks(image);
    UpdateColor(image);
  }
  const SmMaskColor& color = m_ColorCurrent;
  ImImageMemoryAllocation& planes = image.Allocator();
  Helpers::SetMaskedPlanePixels(color.sample[0], color.sample[1], color.sample[2], 255,
                                m_LumaMask.Allocator().GetPlane(0), planes.GetWriteablePlane(0));
  if (planes.GetPlaneCount() >= 3) {
    const ColorFormat format = image.GetColorFormat();
    const CmImage& chromaMask =
        (format == YCbCr420_Planar || format == YCbCr422_Planar) ? m_ChromaMask : m_LumaMask;
    const ImImageMemoryAllocation::CmPlane mask = chromaMask.Allocator().GetPlane(0);
    Helpers::SetMaskedPlanePixels(color.sample[1], color.sample[1], color.sample[1], 255, mask,
                                  planes.GetWriteablePlane(1));
    Helpers::SetMaskedPlanePixels(color.sample[2], color.sample[2], color.sample[2], 255, mask,
                                  planes.GetWriteablePlane(2));
  }
}

} // namespace NmMediaProcessing
