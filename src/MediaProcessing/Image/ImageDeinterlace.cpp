#include "MediaProcessing/Image/ImageDeinterlace.h"

#include "Codecs/Primitives/DeinterlaceFilter.h"
#include "Common/Error/Error.h"
#include "MediaProcessing/Image/ImageBufferHelpers.h"
#include "MediaProcessing/Image/ImageColorFormatConvert.h"
#include "MediaProcessing/Image/ImageResize.h"

namespace NmMediaProcessing {

using NmError::CmIntegrityError;
using NmError::CmIntegrityErrorCode;

void CmImageDeinterlace::Execute(CmImage& image) {
  const Interlacing interlacing = image.GetAttributes().interlacing;
  if (interlacing == Progressive) {
    return;
  }
  if ((interlacing == InterleavedTopFirst || interlacing == InterleavedBottomFirst) &&
      image.GetColorFormat() != YCbCr420_Planar) {
    // The rows are already in picture order: only the label changes.
    image.GetAttributes().interlacing = Progressive;
    return;
  }
  CmBaseImageTransformation::Execute(image);
}

void CmImageDeinterlace::Execute(const CmImage& source, CmImage& destination) {
  if (&source == &destination) {
    Execute(destination);
    return;
  }
  const Interlacing interlacing = source.GetAttributes().interlacing;
  switch (interlacing) {
  case Progressive:
    destination = source;
    return;
  case InterleavedTopFirst:
  case InterleavedBottomFirst:
    // Interleaved 4:2:0 chroma belongs to the fields; 4:2:2 does not.
    if (source.GetColorFormat() == YCbCr420_Planar) {
      CmImageColorFormatConvert(YCbCr422_Planar).Execute(source, destination);
    } else {
      destination = source;
    }
    break;
  case SeparateTopFirst:
  case SeparateBottomFirst: {
    if (source.GetHeight() == 1) {
      destination = source;
      break;
    }
    if (source.GetColorFormat() == YCbCr420_Planar) {
      CmImage upsampled;
      CmImageColorFormatConvert(YCbCr422_Planar).Execute(source, upsampled);
      Execute(upsampled, destination);
      return;
    }
    destination.Allocate(source.GetWidth(), source.GetHeight(), source.GetColorFormat());
    const Orientation& orientation = source.GetAttributes().orientation;
    const Interlacing woven =
        interlacing == SeparateTopFirst ? InterleavedTopFirst : InterleavedBottomFirst;
    const ImImageMemoryAllocation& from = source.Allocator();
    ImImageMemoryAllocation& to = destination.Allocator();
    for (uint64_t p = 0; p < from.GetPlaneCount(); ++p) {
      const ImImageMemoryAllocation::CmPlane plane = from.GetPlane(p);
      const ImImageMemoryAllocation::CmWriteablePlane target = to.GetWriteablePlane(p);
      for (uint32_t field = 0; field < 2; ++field) {
        CmImageBufferHelpers::CopyPlaneContents(
            CmImageBufferHelpers::GetFieldPlane(plane, interlacing, orientation, field),
            CmImageBufferHelpers::GetFieldPlane(target, woven, orientation, field));
      }
    }
    destination.CopyAttributes(source);
    break;
  }
  case TopFieldOnly:
  case BottomFieldOnly:
    if (m_HalveAspectForSingleField) {
      // Shown at half the pixel aspect, the half-height picture keeps its shape.
      destination = source;
      destination.GetAttributes().aspectRatio *= 0.5;
    } else {
      CmImageResize(source.GetWidth(), 2 * source.GetHeight(), true).Execute(source, destination);
    }
    break;
  default:
    throw CmIntegrityError(VZK_LOCATION, "Unknown interlacing format",
                           CmIntegrityErrorCode::InvalidPointer);
  }
  destination.GetAttributes().interlacing = Progressive;
}

void CmImageDeinterlaceCAVT::Execute(const CmImage& source, CmImage& destination) {
  if (&source == &destination) {
    Execute(destination);
    return;
  }
  const Interlacing interlacing = source.GetAttributes().interlacing;
  if (interlacing == Progressive || interlacing == TopFieldOnly || interlacing == BottomFieldOnly) {
    CmImageDeinterlace(m_HalveAspectForSingleField).Execute(source, destination);
    return;
  }
  CmImage woven;
  CmImageDeinterlace(m_HalveAspectForSingleField).Execute(source, woven);
  const ColorFormat format = woven.GetColorFormat();
  if (format != Gray && format != YCbCr422_Planar && format != YCbCr444_Planar) {
    CmImageColorFormatConvert(YCbCr422_Planar).Execute(woven);
  }
  destination.Allocate(woven.GetWidth(), woven.GetHeight(), woven.GetColorFormat());
  for (uint64_t p = 0; p < woven.Allocator().GetPlaneCount(); ++p) {
    const ImImageMemoryAllocation::CmPlane from = woven.Allocator().GetPlane(p);
    const ImImageMemoryAllocation::CmWriteablePlane to =
        destination.Allocator().GetWriteablePlane(p);
    const int32_t status =
        NmPrimitives::DeinterlaceCAVT(from.data, from.rowStride, to.data, to.rowStride, from.width,
                                      from.height, static_cast<uint16_t>(m_Threshold));
    if (status == -6) {
      // A plane the filter cannot take leaves the picture unfiltered; later
      // planes write into memory of their own.
      destination = woven;
    } else {
      ThrowStatus(status);
    }
  }
  destination.CopyAttributes(woven);
}

} // namespace NmMediaProcessing
