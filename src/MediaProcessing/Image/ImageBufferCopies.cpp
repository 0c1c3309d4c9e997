// Copies and fills: whole planes and allocators, masked or not.
#include "Codecs/Primitives/PlaneCopy.h"
#include "Codecs/Primitives/PlaneLogic.h"
#include "Common/Error/Precondition.h"
#include "MediaProcessing/Image/ImageBufferHelpers.h"
#include "MediaProcessing/Image/ImageBufferLayout.h"

namespace NmMediaProcessing::CmImageBufferHelpers {

using Code = NmError::CmIntegrityErrorCode;

void CopyPlaneContents(const CmPlane& source, const CmWriteablePlane& destination) {
  VZK_REQUIRE(source.bytesPerPixel == destination.bytesPerPixel,
              "Planes have different number of bytes per pixel", Code::OutOfRange);
  VZK_REQUIRE(source.pixelStride == destination.pixelStride, "Pixel strides do not match",
              Code::OutOfRange);
  VZK_REQUIRE(source.width == destination.width, "Plane widths do not match", Code::OutOfRange);
  VZK_REQUIRE(source.height == destination.height, "Plane heights do not match", Code::OutOfRange);
  NmPrimitives::CopyPlane(source.data, source.rowStride, destination.data, destination.rowStride,
                          source.width * source.pixelStride, source.height);
}

void CopyAllocatorContents(const ImImageMemoryAllocation& source,
                           ImImageMemoryAllocation& destination) {
  VZK_REQUIRE(source.GetColorFormat() == destination.GetColorFormat(),
              "Allocators have different formats", Code::InvalidArgument);
  for (uint64_t i = 0; i < source.GetPlaneCount(); ++i) {
    CopyPlaneContents(source.GetPlane(i), destination.GetWriteablePlane(i));
  }
}

void CopyPlaneMasked(const CmPlane& source, const CmWriteablePlane& destination,
                     const CmPlane& mask) {
  VZK_REQUIRE(source.bytesPerPixel == destination.bytesPerPixel,
              "Planes have different number of bytes per pixel", Code::OutOfRange);
  VZK_REQUIRE(source.pixelStride == destination.pixelStride, "Pixel strides do not match",
              Code::OutOfRange);
  VZK_REQUIRE(mask.bytesPerPixel == source.bytesPerPixel, "Bytes per pixel do not match",
              Code::OutOfRange);
  VZK_REQUIRE(source.width == destination.width && mask.width == source.width,
              "Plane widths do not match", Code::OutOfRange);
  VZK_REQUIRE(source.height == destination.height && mask.height == source.height,
              "Plane heights do not match", Code::OutOfRange);
  VZK_REQUIRE(mask.pixelStride == 1 || mask.pixelStride == source.pixelStride,
              "Cannot copy with composite plane masks", Code::OutOfRange);
  VZK_REQUIRE(IsSupportedLayout(destination),
              "Masked copy is not supported for the given pixel stride", Code::InvalidPointer);
  NmPrimitives::CopyMasked(source.data, source.rowStride, destination.data, destination.rowStride,
                           mask.data, mask.rowStride, mask.pixelStride, source.width, source.height,
                           source.pixelStride, source.bytesPerPixel);
}

void CopyAllocatorMasked(const ImImageMemoryAllocation& source,
                         ImImageMemoryAllocation& destination,
                         const ImImageMemoryAllocation& mask) {
  const ColorFormat format = source.GetColorFormat();
  VZK_REQUIRE(format == destination.GetColorFormat(), "Allocators have different formats",
              Code::InvalidArgument);
  const bool monochrome = mask.GetPlaneCount() == 1;
  VZK_REQUIRE(!monochrome || (format != YCbCr420_Planar && format != YCbCr422_Planar),
              "Monochrome masks cannot be used to copy subsampled formats", Code::InvalidArgument);
  VZK_REQUIRE(monochrome || mask.GetColorFormat() == format,
              "If a planar copy mask is specified, its color format must match the image data",
              Code::InvalidArgument);
  for (uint64_t i = 0; i < source.GetPlaneCount(); ++i) {
    CopyPlaneMasked(source.GetPlane(i), destination.GetWriteablePlane(i),
                    mask.GetPlane(monochrome ? 0 : i));
  }
}

void SetMaskedPlanePixels(uint8_t c0, uint8_t c1, uint8_t c2, uint8_t alpha, const CmPlane& mask,
                          const CmWriteablePlane& plane) {
  VZK_REQUIRE(mask.pixelStride == 1, "Mask plane has an invalid pixel stride (!= 1)",
              Code::OutOfRange);
  VZK_REQUIRE(mask.width == plane.width && mask.height == plane.height,
              "Mask plane has an invalid size", Code::OutOfRange);
  VZK_REQUIRE(IsSupportedLayout(plane),
              "Masked pixel value setting is not supported for the given pixel stride",
              Code::InvalidPointer);
  const uint8_t values[4] = {c0, c1, c2, alpha};
  NmPrimitives::SetMaskedPixels(values, mask.data, mask.rowStride, plane.data, plane.rowStride,
                                plane.width, plane.height, plane.pixelStride, plane.bytesPerPixel);
}

void SetAlphaChannel(ImImageMemoryAllocation& allocator, uint8_t value) {
  const ColorFormat format = allocator.GetColorFormat();
  VZK_REQUIRE(format == RGBA || format == BGRA,
              "The given colour format doesn't have an alpha channel", Code::InvalidPointer);
  const CmWriteablePlane plane = allocator.GetWriteablePlane(0);
  NmPrimitives::SetChannel4(value, 3, plane.data, plane.rowStride, plane.width, plane.height);
}

void SetPlane(uint8_t value, const CmWriteablePlane& plane) {
  VZK_REQUIRE(plane.pixelStride == 1,
              "Setting plane values is not supported for the given pixel stride",
              Code::InvalidPointer);
  NmPrimitives::SetPlane(value, plane.data, plane.rowStride, plane.width, plane.height);
}

} // namespace NmMediaProcessing::CmImageBufferHelpers
