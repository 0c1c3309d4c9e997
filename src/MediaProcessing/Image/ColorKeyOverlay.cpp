#include "MediaProcessing/Image/ColorKeyOverlay.h"

#include "Codecs/Primitives/ColorConvert.h"
#include "Codecs/Primitives/PlaneCopy.h"
#include "Common/Error/Error.h"
#include "Common/Error/Precondition.h"
#include "MediaProcessing/Image/ImageBufferHelpers.h"
#include "MediaProcessing/Image/ImageColorFormatConvert.h"
#include "MediaProcessing/Image/ImageResize.h"

namespace NmMediaProcessing {

using NmError::CmIntegrityError;
using NmError::CmIntegrityErrorCode;
namespace Helpers = CmImageBufferHelpers;

namespace {
bool IsSubsampled(ColorFormat format) {
  return format == YCbCr420_Planar || format == YCbCr422_Planar;
}
bool IsPackedRGB(ColorFormat format) {
  return format == RGB24 || format == BGR24 || format == RGB32 || format == BGR32 ||
         format == RGBA || format == BGRA;
}
bool IsBlueFirst(ColorFormat format) {
  return format == BGR24 || format == BGR32 || format == BGRA;
}
bool IsLumaChroma(ColorFormat format) {
  return format == Gray || IsMultiPlaneFormat(format);
}

// An RGB picture laid on a YCbCr or grey image is converted with the
// equations of the image's own range, so that its white is the image's white.
void ConvertToImageRange(const CmImage& picture, ColorFormat target, SubColorFormat range,
                         CmImage& result) {
  result.Allocate(picture.GetWidth(), picture.GetHeight(), target);
  ImImageMemoryAllocation& to = result.Allocator();
  const ImImageMemoryAllocation::CmPlane from = picture.Allocator().GetPlane(0);
  NmPrimitives::SmYCbCrDestination planes{};
  const ImImageMemoryAllocation::CmWriteablePlane luma = to.GetWriteablePlane(0);
  planes.y = luma.data;
  planes.yStride = luma.rowStride;
  NmPrimitives::SmChromaLayout layout = NmPrimitives::Chroma444;
  if (target != Gray) {
    const ImImageMemoryAllocation::CmWriteablePlane cb = to.GetWriteablePlane(1);
    const ImImageMemoryAllocation::CmWriteablePlane cr = to.GetWriteablePlane(2);
    planes.cb = cb.data;
    planes.cbStride = cb.rowStride;
    planes.cr = cr.data;
    planes.crStride = cr.rowStride;
    layout = target == YCbCr420_Planar   ? NmPrimitives::Chroma420
             : target == YCbCr422_Planar ? NmPrimitives::Chroma422
                                         : NmPrimitives::Chroma444;
  }
  NmPrimitives::RgbToYCbCr(from.data, from.rowStride,
                           NmPrimitives::SmPackedLayout{static_cast<size_t>(from.pixelStride),
                                                        IsBlueFirst(picture.GetColorFormat())},
                           planes, layout, from.width, from.height,
                           static_cast<NmPrimitives::SmYCbCrMatrix>(range));
  result.CopyAttributes(picture);
  result.GetAttributes().subColorFormat = range;
}

} // namespace

CmColorKeyOverlay::CmColorKeyOverlay(const CmImage& overlay, const CmOverlayParameters& parameters,
                                     uint8_t key0, uint8_t key1, uint8_t key2, uint8_t key3)
    : CmBaseOverlayTransformation(parameters), m_Overlay(overlay), m_Key{key0, key1, key2, key3} {
  VZK_REQUIRE(m_Overlay.IsValid(), "Invalid overlay image", CmIntegrityErrorCode::InvalidArgument);
  // The fourth byte of a 32-bit pixel is unlabelled; calling it alpha and
  // taking the first pixel's value into the key lets the key match all four.
  const ColorFormat format = m_Overlay.GetColorFormat();
  if (format == RGB32 || format == BGR32) {
    m_Overlay.Allocator().ReinterpretFormat(format == RGB32 ? RGBA : BGRA);
    m_Key[3] = m_Overlay.Allocator().GetPlane(0).data[3];
  }
}

CmColorKeyOverlay::CmColorKeyOverlay(const CmColorKeyOverlay& other)
    : CmBaseOverlayTransformation(other),
      m_Overlay(other.m_Overlay), m_Key{other.m_Key[0], other.m_Key[1], other.m_Key[2],
                                        other.m_Key[3]} {}

void CmColorKeyOverlay::UpdateScaledOverlay(const CmImage& image) {
  if (m_ScaledOverlay.IsValid() && m_ScaledOverlay.GetColorFormat() == image.GetColorFormat() &&
      IsOverlayMatching(image, m_Overlay, m_ScaledOverlay)) {
    return;
  }
  m_ScaledOverlay.Reset();
  CmImage prepared;
  PrepareOverlay(prepared, image, m_Overlay, 0);
  const ColorFormat target = image.GetColorFormat();
  CmImage converted;
  const SubColorFormat range = image.GetAttributes().subColorFormat;
  if (IsPackedRGB(prepared.GetColorFormat()) && IsLumaChroma(target) &&
      (range == SubColorFormatFullRange || range == SubColorFormatVideoRange ||
       range == SubColorFormatPlainGray)) {
    ConvertToImageRange(prepared, target, range, converted);
  } else {
    CmImageColorFormatConvert(target).Execute(prepared, converted);
  }
  VZK_REQUIRE(converted.IsValid(), "Invalid image during overlay update",
              CmIntegrityErrorCode::InvalidPointer);
  if (target == RGB32 || target == BGR32) {
    const ImImageMemoryAllocation::CmWriteablePlane plane =
        converted.Allocator().GetWriteablePlane(0);
    NmPrimitives::SetChannel4(m_Key[3], 3, plane.data, plane.rowStride, plane.width, plane.height);
  }
  m_ScaledOverlay = converted;
}

void CmColorKeyOverlay::UpdateMask(const CmImage& image) {
  const ColorFormat format = image.GetColorFormat();
  const bool subsampled = IsSubsampled(format);
  const ColorFormat maskFormat = subsampled ? format : Gray;
  if (m_Mask.IsValid() && m_Mask.GetColorFormat() == maskFormat &&
      IsOverlayMatching(image, m_Overlay, m_Mask)) {
    return;
  }
  m_Mask.Reset();
  const ImImageMemoryAllocation& overlay = m_Overlay.Allocator();
  CmImage mask;
  mask.Allocate(m_Overlay.GetWidth(), m_Overlay.GetHeight(), Gray);
  mask.CopyAttributes(m_Overlay);
  mask.GetAttributes().subColorFormat = SubColorFormatPlainGray;
  const ImImageMemoryAllocation::CmWriteablePlane maskPlane = mask.Allocator().GetWriteablePlane(0);
  Helpers::Compare(overlay.GetPlane(0), m_Key[0], m_Key[1], m_Key[2], m_Key[3],
                   Helpers::CompareEqual, maskPlane);
  // A planar picture shows the key only where all its planes agree with it.
  for (uint64_t p = 1; p < overlay.GetPlaneCount(); ++p) {
    const ImImageMemoryAllocation::CmPlane chroma = overlay.GetPlane(p);
    CmImage matches;
    matches.Allocate(chroma.width, chroma.height, Gray);
    Helpers::Compare(chroma, m_Key[1], m_Key[1], m_Key[1], m_Key[1], Helpers::CompareEqual,
                     matches.Allocator().GetWriteablePlane(0));
    if (chroma.width != maskPlane.width || chroma.height != maskPlane.height) {
      CmImageResize enlarge(maskPlane.width, maskPlane.height, true);
      enlarge.SetOptions(OptionFast);
      enlarge.Execute(matches);
    }
    Helpers::BitwiseAndPlaneContents(matches.Allocator().GetPlane(0), maskPlane);
  }
  Helpers::BitwiseNotPlaneContents(maskPlane);

  CmImage prepared;
  PrepareOverlay(prepared, image, mask, 0);
  if (subsampled) {
    // Chroma is selected by the nearest luma mask sample, so a key pixel
    // never lets in a blend of key and picture.
    const SmPlaneSize chromaSize =
        GetPlaneSize(format, 1, prepared.GetWidth(), prepared.GetHeight());
    CmImage chromaMask;
    CmImageResize shrink(chromaSize.width, chromaSize.height, true);
    shrink.SetOptions(OptionFast);
    shrink.Execute(prepared, chromaMask);
    CmImage planar;
    planar.Allocate(prepared.GetWidth(), prepared.GetHeight(), format);
    planar.CopyAttributes(prepared);
    ImImageMemoryAllocation& planes = planar.Allocator();
    Helpers::CopyPlaneContents(prepared.Allocator().GetPlane(0), planes.GetWriteablePlane(0));
    Helpers::CopyPlaneContents(chromaMask.Allocator().GetPlane(0), planes.GetWriteablePlane(1));
    Helpers::CopyPlaneContents(chromaMask.Allocator().GetPlane(0), planes.GetWriteablePlane(2));
    prepared = planar;
  }
  VZK_REQUIRE(prepared.IsValid(), "Invalid image during overlay mask update",
              CmIntegrityErrorCode::InvalidPointer);
  m_Mask = prepared;
}

bool CmColorKeyOverlay::CanUseKeyDirectly(const CmImage& source) const {
  // The key primitive compares the converted picture with the key, so the
  // key has to mean the same bytes in both formats.
  const ColorFormat from = m_Overlay.GetColorFormat();
  const ColorFormat to = source.GetColorFormat();
  if (source.Allocator().GetPlaneCount() != 1 || m_Overlay.Allocator().GetPlaneCount() != 1) {
    return false;
  }
  if (m_ScaledOverlay.GetWidth() != source.GetWidth() ||
      m_ScaledOverlay.GetHeight() != source.GetHeight()) {
    return false;
  }
  if (from == to) {
    return true;
  }
  // A conversion that adds or drops a byte (alpha, padding) leaves that byte
  // out of the key's reach; the mask made from the original picture is exact.
  return IsPackedRGB(from) && IsPackedRGB(to) &&
         m_Overlay.Allocator().GetPlane(0).bytesPerPixel ==
             source.Allocator().GetPlane(0).bytesPerPixel;
}

void CmColorKeyOverlay::Execute(const CmImage& source, CmImage& destination) {
  VZK_REQUIRE(source.IsValid(), "No valid source image data", CmIntegrityErrorCode::InvalidPointer);
  UpdateScaledOverlay(source);
  if (CanUseKeyDirectly(source)) {
    uint8_t key[4] = {m_Key[0], m_Key[1], m_Key[2], m_Key[3]};
    if (IsBlueFirst(m_Overlay.GetColorFormat()) != IsBlueFirst(source.GetColorFormat())) {
      std::swap(key[0], key[2]);
    }
    const ColorFormat format = source.GetColorFormat();
    if (format == RGB24 || format == BGR24) {
      key[3] = 0; // three-byte pixels have no fourth byte to compare
    }
    CmImage result;
    result.Allocate(source.GetWidth(), source.GetHeight(), format);
    Helpers::ColorKeyOverlay(m_ScaledOverlay.Allocator().GetPlane(0), key[0], key[1], key[2],
                             key[3], source.Allocator().GetPlane(0),
                             result.Allocator().GetWriteablePlane(0));
    result.CopyAttributes(source);
    destination = result;
    return;
  }
  UpdateMask(source);
  if (&source != &destination) {
    destination = source;
  }
  CmOverlayPlacement placement(*this, m_ScaledOverlay);
  ImImageMemoryAllocation& placed = placement.PlaceOn(destination);
  const ImImageMemoryAllocation& overlay = m_ScaledOverlay.Allocator();
  const ImImageMemoryAllocation& mask = m_Mask.Allocator();
  if (mask.GetPlaneCount() > 1) {
    Helpers::CopyAllocatorMasked(overlay, placed, mask);
    return;
  }
  // One mask byte selects a whole pixel of any width; the masked copy wants
  // the mask to be labelled with the pixel's width.
  for (uint64_t p = 0; p < overlay.GetPlaneCount(); ++p) {
    const ImImageMemoryAllocation::CmWriteablePlane target = placed.GetWriteablePlane(p);
    ImImageMemoryAllocation::CmPlane selection = mask.GetPlane(0);
    selection.bytesPerPixel = target.bytesPerPixel;
    Helpers::CopyPlaneMasked(overlay.GetPlane(p), target, selection);
  }
}

void CmColorKeyOverlay::Execute(CmImage& image) {
  Execute(image, image);
}

} // namespace NmMediaProcessing
